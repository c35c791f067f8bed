// What the machine answers from its configuration files: services, shares, accounts, privileges.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>

#include "platform/host/host_platform.h"
#include "tests/support/mount_namespace.h"
#include "tests/support/temporary_folder.h"

namespace {

using platform::Lookup;

constexpr char kSamba[] = "etc/samba/smb.conf";

class ConfigurationTest : public ::testing::Test {
 protected:
  platform::Platform& machine() { return host_.platform(); }
  void WriteSamba(const std::string& text) const { folder_.Write(kSamba, text); }
  std::string PathOf(const std::string& name) {
    platform::Share share;
    const Lookup found = machine().shares.Open(name, share);
    if (found == Lookup::kFound) return share.path;
    return found == Lookup::kNotFound ? "(none)" : "(failed)";
  }

  tests::TemporaryFolder folder_;
  platform::SystemPaths paths_ = platform::SystemPaths::Under(folder_.path());
  platform::host::HostPlatform host_{paths_};
};

TEST_F(ConfigurationTest, AServiceIsOffOnlyWhereTheFileSaysSo) {
  const auto services = [this](const std::string& file, const std::string& text) {
    folder_.Write(file, text);
    return std::string(machine().services.IsLdapEnabled() ? "ldap " : "") +
           (machine().services.IsDomainEnabled() ? "domain " : "") +
           (machine().services.IsUserHomeEnabled() ? "home" : "");
  };
  const std::string switches = "etc/nsswitch.conf";
  EXPECT_EQ(services("unrelated", ""), "ldap domain home");
  EXPECT_EQ(services(switches, "passwd: files systemd\ngroup: files ldap winbind\n"), "home");
  EXPECT_EQ(services(switches, "#passwd: winbind\n passwd:\tfiles ldap # winbind\n"), "ldap home");
  EXPECT_EQ(services(switches, "passwd: files [NOTFOUND=return] ldap\n"), "ldap home");
  EXPECT_EQ(services(switches, "passwd: files [ ldap winbind ] systemd"), "home");
  EXPECT_EQ(services(switches, "passwd:compat winbind"), "domain home");
  EXPECT_EQ(services(kSamba, "[global]\n"), "domain ");
  EXPECT_EQ(services(kSamba, "[global]\ninclude = registry\n"), "domain home");
  EXPECT_EQ(services(kSamba, "[ Homes ]\nbrowseable = no\n"), "domain home");
}

TEST_F(ConfigurationTest, SharesAreTheSectionsWithAPath) {
  const std::string long_path = "/volume1/" + std::string(990, 'p');
  const std::string long_name(120, 'n');
  WriteSamba(
      "\xEF\xBB\xBFworkgroup = A\n[global]\n   path = /g\n[homes]\npath=/h\n[print$]\npath=/p\n"
      "[Photo]\n\t; a comment\n   PA TH = \"/volume1/my photos; #1\" \r\n   Plat : Replica = Yes\n"
      "   plat:flags = dhos, share_replica_demote\n   comment = no = path \\\n   path = /wrong\n"
      "[no path]\ncomment = x\n[\xC3\x84pfel Baum]\ndirectory = /volume1/a\n[twin]\ncopy = photo\n"
      "[photo]\nread only = no\n[" +
      long_name + "]\npath = " + long_path + "\n");
  platform::Share share;
  ASSERT_EQ(machine().shares.Open("pHOTO", share), Lookup::kFound);
  EXPECT_EQ(share.name, "Photo");
  EXPECT_EQ(share.path, "/volume1/my photos; #1");
  EXPECT_TRUE(share.is_replica);
  EXPECT_THAT(share.flags, ::testing::ElementsAre("dhos", "share_replica_demote"));
  EXPECT_EQ(PathOf(long_name), long_path);
  EXPECT_EQ(PathOf(long_name.substr(1)), "(none)");
  EXPECT_EQ(PathOf("\xC3\xA4PFEL  baum"), "/volume1/a");
  EXPECT_EQ(PathOf("twin"), "/volume1/my photos; #1");
  for (const char* name : {"global", "HOMES", "print$", "no path", "missing"}) {
    EXPECT_EQ(PathOf(name), "(none)") << name;
  }
}

TEST_F(ConfigurationTest, WhatCannotBeReadWholeNeverSaysThatAShareIsGone) {
  for (const std::string& text :
       {std::string("[a\npath=/a\n"), std::string("[a]\nnonsense\n"), std::string("[a]\n= /a\n"),
        std::string("[ ]\na=b\n"), std::string("[a]\npath=/a\rx\n"), std::string("[a]\ninclude = smb.conf\n"),
        std::string("[a]\npath=/a\0b\n", 14)}) {
    WriteSamba(text);
    EXPECT_EQ(PathOf("a"), "(failed)") << text;
  }
  for (const char* elsewhere : {"include = /etc/%m.conf\n", "config backend = registry\n"}) {
    WriteSamba(elsewhere + std::string("[a]\npath=/a\n"));
    EXPECT_EQ(PathOf("a"), "/a") << elsewhere;
    EXPECT_EQ(PathOf("b"), "(failed)") << elsewhere;
  }
  std::filesystem::remove(paths_.samba);
  std::filesystem::create_directory(paths_.samba);
  EXPECT_EQ(PathOf("a"), "(failed)");
}

TEST_F(ConfigurationTest, APrivilegeIsOneLineInAFileForRootOnly) {
  constexpr const char* kApplication = "PLAT.HDS.STFD.Instance";
  auto& privilege = machine().app_privilege;
  EXPECT_LT(privilege.PLIBAppPrivUserAddOne("root", kApplication), 0);  // parents are not made
  const std::string file = folder_.Write("usr/plat/etc/app_privilege/PLAT.HDS.STFD.Instance", "somebody");
  ASSERT_EQ(::chmod(file.c_str(), 0644), 0);
  for (int times = 0; times < 2; ++times) {
    EXPECT_EQ(privilege.PLIBAppPrivUserAddOne("root", kApplication), 0);
  }
  EXPECT_LT(privilege.PLIBAppPrivUserAddOne("no such account", kApplication), 0);
  EXPECT_LT(privilege.PLIBAppPrivUserAddOne("root", "../root"), 0);
  EXPECT_EQ(tests::ReadFile(file), "somebody\nroot\n");
  struct stat status {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600U);
}

TEST_F(ConfigurationTest, AccountsExpireOnTheirDayAndMayHaveLongLines) {
  if (!tests::EnterMountNamespace()) GTEST_SKIP() << "needs the right to mount";
  const auto now = std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now());
  const auto today = now.time_since_epoch().count();
  const std::string passwd =
      "mary:x:4001:100:" + std::string(3000, 'g') + ":/:\nold:x:4002:7::/:\nnew:x:4003:7::/:\n";
  const std::string shadow = "mary:*:19000::::::\nold:*:19000:::::" + std::to_string(today) +
                             ":\nnew:*:19000:::::" + std::to_string(today + 1) + ":\n";
  ASSERT_TRUE(tests::Run("mount --bind " + folder_.Write("passwd", passwd) + " /etc/passwd"));
  const tests::ScopedMount passwd_mount("/etc/passwd");
  ASSERT_TRUE(tests::Run("mount --bind " + folder_.Write("shadow", shadow) + " /etc/shadow"));
  const tests::ScopedMount shadow_mount("/etc/shadow");
  platform::Account account;
  for (const uid_t uid : {4001U, 4002U, 4003U}) {
    ASSERT_EQ(machine().accounts.FindByUid(uid, account), Lookup::kFound);
    EXPECT_EQ(account.expired, uid == 4002) << uid;
  }
}

}  // namespace
