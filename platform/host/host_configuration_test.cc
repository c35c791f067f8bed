// What the machine answers from its configuration files about shares and accounts.
#include <map>

#include "base/text.h"
#include "platform/host/host_platform.h"
#include "tests/support/logged_test.h"
#include "tests/support/mount_namespace.h"

namespace {

using platform::Lookup;
using namespace std::string_literals;

constexpr char kSamba[] = "etc/samba/smb.conf";

class ConfigurationTest : public tests::LoggedTest {
 protected:
  platform::Platform& machine() { return host_.platform(); }
  std::string PathOf(const std::string& name) {
    platform::Share share;
    const Lookup found = machine().shares.Open(name, share);
    if (found == Lookup::kFound) return share.path;
    return found == Lookup::kNotFound ? "(none)" : "(failed)";
  }

  platform::SystemPaths paths_ = platform::SystemPaths::Under(folder_.path());
  platform::host::HostPlatform host_{paths_};
};

using Paths = std::map<std::string, std::string>;  // of every section but [global]

Paths PathsOfReader(const std::string& file) {
  platform::host::SambaConfiguration configuration;
  if (!platform::host::ReadSambaConfiguration(file, configuration).ok()) return {{"refused", ""}};
  Paths paths;
  for (const auto& [folded, section] : configuration.sections) paths[section.name] = section.path;
  return paths;
}

Paths PathsOfChecker(const std::string& folder) {
  const std::string run = "(cd " + folder + "; LC_ALL=C testparm -s --suppress-prompt smb.conf >../out)";
  if (!tests::Run(run)) return {{"refused", ""}};
  std::ifstream output(folder + "/../out");
  Paths paths;
  std::string name;
  for (std::string line; std::getline(output, line);) {
    if (line.starts_with('[')) paths.try_emplace(name = line.substr(1, line.size() - 2), paths["global"]);
    if (line.starts_with("\tpath = ")) paths[name] = line.substr(8);
  }
  paths.erase("global");
  return paths;
}

TEST_F(ConfigurationTest, SharesAreThoseOfTheFileServersOwnChecker) {
  if (!tests::Run("testparm --version")) GTEST_SKIP() << "needs testparm";
  std::string files =
      "include=deep10\n\1[a]\npath=/a\ninclude=deep11\n[z]\npath=/z\n\1[first]\ninclude=one\n";
  for (int i = 0; i < 150; ++i) {
    const std::string number = std::to_string(i);
    files += "[s" + number + "]\npath=/s\ninclude=one\n";
    folder_.Write("etc/samba/deep" + number, "[d" + number + "]\ninclude=deep" + std::to_string(i + 1));
  }
  for (char32_t i = 0xA1; i < 0x10000; i = i == 0x2FFF ? 0xA640 : i == 0xABFF ? 0xFF01 : i + 1) {
    const auto letter = std::filesystem::path(std::u32string(1, i)).string();
    files += (i == 0xA1 ? "\1[x" : "[x") + letter + "]\npath=/" + std::to_string(unsigned{i}) + '\n';
  }
  folder_.Write("etc/samba/deep110", "[last]\npath=/last\n");
  folder_.Write("etc/samba/one", "comment=in share\n[opened]\ncomment=goes on");
  folder_.Write("etc/samba/sub/two", "include = one\npath = /two\n[global]\npath = /global");
  folder_.Write("etc/samba/torn", "[a]\npath=/a\n[torn");
  files +=
      "\1[a]\npath=/a\n[b]\npath=/b\n[n\0n]\n"
      "\1[a]\npath=/a\0b\n\0path=/c\npath\0=/b\n[b]\n\0\npath=/b\n\0[c]\n"
      "\1[team a]\npath=/1\n[teama]\npath=/2\n[TEAM  A]\ncomment=x\n[ team a]\npath=/3\n[team a ]\npath=/4\n"
      "[a\tb]\npath=/5\n[a \tb]\npath=/6\n[\"a\"]\npath=/7\n[ ]\npath=/8"
      "\1[a]\npath=/a\ndirectory=/b\n[b]\nDIREC TORY=/b\nPa Th=/a\n[c]\npath=/c\ndirectory=\n[d]\ndirectory=\n"
      "p\v\ath=/d\np\v\fath=/d\n[e]\np-ath=/e\n[f]\n\xEF\xBD\x90\x61th=/f\n[g]\npath==/g"
      "\1[a]\npath=/a\n[b]\ncopy = A\n[c]\npath=/c\ncopy=a\n[d]\ncopy=a\npath=\n[e]\npath=\ncopy=a\n[f]\n"
      "[g]\ncopy=a\ncopy=f\n[a]\npath=/x\ncopy=b\n[h]\ndirectory=/h\n[h]\ncopy=a"
      "\1path=/0\n[a]\n[globals]\npath=/1\n[b]\n[Glo Bal]\npath=/2\n[c]\npath=\n[d]\ncopy=a\n"
      "\1[a]\npath=/a \\\n  b\n[b]\npath=/b\\\nc\n[c]\npa\\ \t\r\nth=/\\\\\nd\\ e\\\n;\n[x\\\ny]\npath=/f\n"
      "; path \\\npath=/g\n\\\n#path=/h\n\\\n[j]\n[i]\npath=/i\\"
      "\1\r\n[a]\r\npath=/a\r\n \v[b]x=y\rz\npath = \t/b  c\t\t d\r \n[c\rd]\rpath=/c\n[e]f]\npath=/e\rf ; # g\n"
      "nonsense\n  #path=/h\n[g[h]\npath=\xA0/g"
      "\1\xEF\xBB\xBF[a]\npath=/a\n[b]\npath=/b\1[a]\npath=/a\n[b\1[a]\n=/a\n\1[]\npath=/a\1[a\n]\npath=/a"
      "\1[a]\npath=/a\ninclude=torn\n\1[a]\ninclude=smb.conf\n"
      "\1[a]\nIN clude = sub/two\n[b]\ninclude=\ninclude=none\ninclude=one/none\ninclude=/dev/null\n"
      "include=\"one\"\n[c]\npath=/c\ninclude=one\npath=/after"s;
  for (std::string_view rest = files; !rest.empty();) {
    const std::string_view text = base::TakeUntil(rest, "\1");
    folder_.Write(kSamba, std::string(text));
    EXPECT_EQ(PathsOfReader(paths_.samba), PathsOfChecker(folder_ / "etc/samba")) << text.substr(0, 300);
  }
}

TEST_F(ConfigurationTest, AShareHasAPathAndItsOptions) {
  folder_.Write(
      kSamba,
      "[homes]\npath=/h\n[print$]\npath=/p\n[Old]\nplat:flags = dhos\n[tw\xE9in]\n[Photo]\n"
      "path = \"/my photos; #1\" \r\nPlat : Replica = Yes\nplat:flags = dhos, share_replica_demote\n"
      "[none]\npath=\"\"\n[copy]\ncopy=photo\n[old]\npath=\"\"/a\"b\n");
  platform::Share share;
  ASSERT_EQ(machine().shares.Open("old", share), Lookup::kFound);
  EXPECT_EQ(share.path, "\"\"/a\"b");
  EXPECT_TRUE(share.flags.empty());
  for (const char* name : {"copy", "pHOTO"}) {
    ASSERT_EQ(machine().shares.Open(name, share), Lookup::kFound);
    EXPECT_EQ(share.path, "/my photos; #1");
    EXPECT_TRUE(share.is_replica);
    EXPECT_THAT(share.flags, ::testing::ElementsAre("dhos", "share_replica_demote"));
  }
  EXPECT_EQ(share.name, "Photo");
  for (const char* name : {"HOMES", "print$", "none", "missing", ""}) EXPECT_EQ(PathOf(name), "(none)");
}

TEST_F(ConfigurationTest, BytesThatAreNoTextCompareAsBytes) {
  const std::string names =
      "caf caf\xE9 caf\xC9 \xC3 \xE9\xAA \xC1\x81 \xE0\x81\x81 \xFF \xF0\x90\x90\x80 \x80\x80 \xED\xA0\x80 \xE2\x82Z";
  std::string text = "d\xE9\x62it = 1\n";
  Paths expected;
  for (std::string_view rest = names; !rest.empty();) {
    const std::string name(base::TakeUntil(rest, " "));
    text += '[' + name + "]\npath = " + (expected[name] = '/' + name) + "\n\xC3 = \xE2\n";
  }
  EXPECT_EQ(PathsOfReader(folder_.Write(kSamba, text)), expected);
  EXPECT_EQ(PathOf("CAF\xE9"), "/caf\xE9");
  for (const char* name : {"\xE9", "a", "\xC1\xA1", "\xE2\x82"}) EXPECT_EQ(PathOf(name), "(none)") << name;
}

TEST_F(ConfigurationTest, WhatCannotBeReadWholeNeverSaysThatAShareIsGone) {
  std::filesystem::create_directories(folder_ / "etc/samba/folder");
  std::filesystem::create_symlink("loop", folder_ / "etc/samba/loop");
  for (const char* elsewhere : {"include = /etc/%m.conf", "include = REGISTRY", "include = folder",
                                "include = loop", "copy = missing", "[global]\nconfig backend = registry",
                                "[global]\nregistry shares = yes", "[global]\nconfig file = /x"}) {
    folder_.Write(kSamba, "[a]\npath=/a\n" + std::string(elsewhere) + '\n');
    EXPECT_EQ(PathOf("a") + PathOf("b"), "/a(failed)") << elsewhere;
  }
  std::string text = "[a]\npath=/" + std::string(1 << 16, 'x') + '\n';
  for (int i = 0; i < 300; ++i) text += "[s" + std::to_string(i) + "]\ncopy=a\n";
  folder_.Write(kSamba, text);
  EXPECT_EQ(PathOf("b"), "(failed)") << "too much is copied";
  folder_.Write("large", "[a]\n" + std::string(100'000, '#'));
  text = "";
  for (int i = 0; i < 100'000; ++i) text += "include=" + folder_ / "large" + "\n";
  folder_.Write(kSamba, text);
  EXPECT_EQ(PathOf("b"), "(failed)") << "too much is read";
}

std::string AnswersOf(platform::host::AccountLookup& of) {
  std::ostringstream text;
  for (uid_t uid = 0; const char* name : {"a", "b", "+nis", "-no", "dup", "", "long", "\xE9", "z", "last"}) {
    platform::host::AccountEntry entry;
    long day = 0;
    text << static_cast<int>(of.FindByUid(uid++, entry)) << entry.name << ' ' << entry.gid << entry.home;
    text << static_cast<int>(of.FindByName(name)) << static_cast<int>(of.FindExpiryDay(name, day)) << day;
  }
  return text.str();
}

long BytesReadSoFar() { return std::stol(tests::ReadFile("/proc/self/io").substr(sizeof "rchar:")); }

TEST_F(ConfigurationTest, AccountsAreThoseOfTheCLibraryAndAreReadOnce) {
  folder_.Write("etc/shadow", "b:*:::::::\ndup:*::::::6:\ndup:*::::::7:\n+nis:*::::::9:\nlast:*::::::8:");
  if (!tests::EnterMountNamespace()) GTEST_SKIP() << "needs root to cover the files of accounts";
  ASSERT_TRUE(tests::Run("mount --bind " + folder_ / "etc /etc"));
  const auto mount = tests::ScopedMount("/etc");
  const std::string many =
      "last:x:4294967302:1::/:\ndup:x:-1:1::/:\na:x:0x:1::/:\n  b:x:1:1::/b:\n#:x:2:2::/:\n+nis:x:2:2::/:\n\0\n"
      "-no:x:3:3::/:\n+\ntorn\n\xE9:x:5:5::/\xE9:\ndup:x:4:1::/1:\nd:x:0:2::/:\n:x:4:9::/:\nlong:x:6:6:"s;
  platform::host::AccountLookup kept{platform::SystemPaths()};
  platform::host::AccountLookup asked{platform::SystemPaths{.account_sources = "/none"}};
  // Each of another length, so that the C library sees the change.
  for (const std::string sources : {"files systemd", "systemd files", "files [SUCCESS=continue] systemd",
                                    "files\npasswd systemd", "files"}) {
    folder_.Write("etc/nsswitch.conf", ("passwd: " + sources).append("\nshadow: " + sources + '\n'));
    for (const auto& file : {""s, many + std::string(2 << 20, 'g'), many + std::string(3000, 'g') + ":/:"}) {
      folder_.Write("etc/passwd", file);
      EXPECT_EQ(AnswersOf(kept), AnswersOf(asked)) << sources << file.size();
    }
  }
  std::vector<std::string> users(100, "long");
  users.insert(users.end(), {"\n", "z", "dup"});
  const std::string old = std::string(3000, 'o') + "\ndup";
  const auto list = folder_.Write("usr/plat/etc/app_privilege/app", old);
  const long before = BytesReadSoFar();
  for (int times = 0; times < 100; ++times) (void)AnswersOf(kept);
  EXPECT_THAT(machine().app_privilege.PLIBAppPrivUserAdd(users, "app"), ::testing::ElementsAre("\n", "z"));
  EXPECT_LT(BytesReadSoFar() - before, 20000);
  EXPECT_EQ(tests::ReadFile(list), old + "\nlong\n");
}

}  // namespace
