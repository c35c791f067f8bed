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

class ConfigurationTest : public ::testing::Test {
 protected:
  platform::Platform& machine() { return host_.platform(); }
  void WriteSamba(const std::string& text) const { folder_.Write("etc/samba/smb.conf", text); }
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
  EXPECT_TRUE(machine().services.IsLdapEnabled());
  EXPECT_TRUE(machine().services.IsDomainEnabled());
  EXPECT_TRUE(machine().services.IsUserHomeEnabled());
  struct Case {
    const char* text;
    bool ldap;
    bool domain;
  };
  const std::array<Case, 6> cases = {{{"passwd: files systemd\ngroup: files ldap winbind\n", false, false},
                                      {"#passwd: ldap\n passwd:\tfiles sss # winbind\n", true, false},
                                      {"passwd: files [NOTFOUND=return] ldap\n", true, false},
                                      {"passwd: files [ ldap winbind ] systemd", false, false},
                                      {"passwd:compat winbind", false, true},
                                      {"", false, false}}};
  for (const Case& c : cases) {
    folder_.Write("etc/nsswitch.conf", c.text);
    EXPECT_EQ(machine().services.IsLdapEnabled(), c.ldap) << c.text;
    EXPECT_EQ(machine().services.IsDomainEnabled(), c.domain) << c.text;
  }
  WriteSamba("[global]\n");
  EXPECT_FALSE(machine().services.IsUserHomeEnabled());
  WriteSamba("[global]\ninclude = registry\n");
  EXPECT_TRUE(machine().services.IsUserHomeEnabled());
  WriteSamba("[ Homes ]\nbrowseable = no\n");
  EXPECT_TRUE(machine().services.IsUserHomeEnabled());
}

TEST_F(ConfigurationTest, SharesAreTheSectionsWithAPath) {
  EXPECT_EQ(PathOf("photo"), "(none)");  // no file: no shares
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

TEST_F(ConfigurationTest, AChangedConfigurationIsReadAgain) {
  WriteSamba("include = more.conf\n[a]\npath=/a\n");
  EXPECT_EQ(PathOf("b"), "(none)");
  folder_.Write("etc/samba/more.conf", "[b]\npath = /b\n");
  EXPECT_EQ(PathOf("b"), "/b");
  EXPECT_EQ(PathOf("a"), "/a");
}

TEST_F(ConfigurationTest, IncludedLinesStandInTheirPlace) {
  const std::string more = folder_.Write("more.conf", "path = /more\n[inner]\npath = /inner\n");
  WriteSamba("[outer]\npath = /first\ninclude = " + more + "\n[last]\npath = /last\n");
  EXPECT_EQ(PathOf("outer"), "/more");
  EXPECT_EQ(PathOf("inner"), "/inner");
  EXPECT_EQ(PathOf("last"), "/last");
}

TEST_F(ConfigurationTest, WhatCannotBeReadWholeNeverSaysThatAShareIsGone) {
  const std::array<const char*, 6> unparsable = {"[a\npath=/a\n",     "[a]\nnonsense\n",
                                                 "[a]\n= /a\n",       "[ ]\na=b\n",
                                                 "[a]\npath=/a\rx\n", "[a]\ninclude = smb.conf\n"};
  for (const char* text : unparsable) {
    WriteSamba(text);
    EXPECT_EQ(PathOf("a"), "(failed)") << text;
  }
  WriteSamba(std::string("[a]\npath=/a\0b\n", 14));
  EXPECT_EQ(PathOf("a"), "(failed)");
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
  EXPECT_EQ(privilege.PLIBAppPrivUserAddOne("root", kApplication), 0);
  EXPECT_EQ(privilege.PLIBAppPrivUserAddOne("root", kApplication), 0);
  EXPECT_LT(privilege.PLIBAppPrivUserAddOne("no such account", kApplication), 0);
  EXPECT_LT(privilege.PLIBAppPrivUserAddOne("root", "../root"), 0);
  EXPECT_EQ(tests::ReadFile(file), "somebody\nroot\n");
  struct stat status {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600U);
}

TEST_F(ConfigurationTest, AccountsComeFromTheUserDatabaseAndExpireOnTheirDay) {
  if (!tests::EnterMountNamespace()) GTEST_SKIP() << "needs the right to mount";
  const auto days =
      std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now()).time_since_epoch();
  const std::string today = std::to_string(days.count());
  const std::string tomorrow = std::to_string(days.count() + 1);
  const std::string home = folder_.Write("home/mary/x", "");
  std::filesystem::create_symlink("home", folder_ / "link");
  const std::string passwd =
      folder_.Write("passwd", "root:x:0:0::/root:/bin/sh\nmary:x:4001:100:" + std::string(3000, 'g') + ":" +
                                  (folder_ / "link/mary") +
                                  ":/bin/sh\nold:x:4002:100::/nowhere:/bin/sh\nnew:x:4003:7::/:\n");
  const std::string shadow = folder_.Write(
      "shadow", "mary:*:19000:0:99999:7:::\nold:*:19000:0:99999:7::" + today + ":\nnew:*:19000::::::" + "\n");
  ASSERT_TRUE(tests::Run("mount --bind " + passwd + " /etc/passwd"));
  const tests::ScopedMount passwd_mount("/etc/passwd");
  ASSERT_TRUE(tests::Run("mount --bind " + shadow + " /etc/shadow"));
  const tests::ScopedMount shadow_mount("/etc/shadow");

  platform::Account account;
  ASSERT_EQ(machine().accounts.FindByUid(4001, account), Lookup::kFound);  // longer than the first buffer
  EXPECT_EQ(account.name, "mary");
  EXPECT_EQ(account.gid, 100U);
  EXPECT_FALSE(account.expired);
  ASSERT_EQ(machine().accounts.FindByUid(4002, account), Lookup::kFound);
  EXPECT_TRUE(account.expired);
  ASSERT_EQ(machine().accounts.FindByUid(4003, account), Lookup::kFound);
  EXPECT_FALSE(account.expired);
  EXPECT_EQ(machine().accounts.FindByUid(4999, account), Lookup::kNotFound);
  EXPECT_EQ(machine().accounts.GetRealHomeFolder("mary"), folder_ / "home/mary");
  EXPECT_EQ(machine().accounts.GetRealHomeFolder("old"), "");
  folder_.Write("shadow", "new:*:19000:::::" + tomorrow + ":\n");
  ASSERT_EQ(machine().accounts.FindByUid(4003, account), Lookup::kFound);
  EXPECT_FALSE(account.expired);

  // An account database that cannot be opened says nothing about who is gone, whichever way that shows.
  platform::SystemPaths without_passwd = paths_;
  without_passwd.passwd = folder_ / "missing";
  EXPECT_EQ(platform::host::HostAccounts(without_passwd).FindByUid(4999, account), Lookup::kFailed);
  ASSERT_TRUE(tests::Run("mount -t tmpfs none /etc"));
  const tests::ScopedMount etc_mount("/etc");
  EXPECT_EQ(machine().accounts.FindByUid(4999, account), Lookup::kFailed);
}

}  // namespace
