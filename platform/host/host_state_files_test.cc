#include "platform/host/host_state_files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "base/file_descriptor.h"
#include "platform/host/text_file.h"
#include "tests/support/logged_test.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using tests::StatusOf;

class StateFilesTest : public tests::LoggedTest {
 protected:
  StateFilesTest() { (void)::umask(077); }  // a mode that is promised holds under any mask

  int Set(const std::string& path, const std::string& value) {
    return files_.PLIBCFileSetKeyValue(path, "status", value, 0);
  }

  platform::host::HostStateFiles files_;
};

TEST_F(StateFilesTest, ReadsTheFirstLineWithTheKeyWithOrWithoutQuotesAndBlanks) {
  const std::pair<const char*, const char*> cases[] = {
      {"a=b\n  status \t= \"in work\" # x\r\n", "in work"},
      {"status=done  \r\n", "done"},
      {"#status=\"old\"\nstatus=\"a=b\"\nstatus=\"later\"", "a=b"},
      {"xstatus=\"no\"\nstatusx=no\nstatus\n", "(failed)"},
      {"status=\"\"\n", "(failed)"},
      {"status=\"torn", "torn"}};
  for (const auto& [text, value] : cases) {
    std::array<char, 32> buffer{};
    const int length = files_.PLIBCFileGetKeyValue(folder_.Write("file", text), "status", buffer, 0);
    EXPECT_EQ(length < 1 ? "(failed)" : std::string(buffer.data(), static_cast<std::size_t>(length)), value)
        << text;
  }
}

TEST_F(StateFilesTest, RefusesWhatCouldNotBeReadBackAndLeavesNothingBehind) {
  const std::string path = folder_.Write("file", "status=\"old\"\n");
  for (const std::string& value : {"a\nb"s, "a\"b"s, "a\0b"s}) EXPECT_LT(Set(path, value), 0);
  EXPECT_LT(files_.PLIBCFileSetKeyValue(path, "a=b", "1", 0), 0);
  folder_.Write(".new-text.killed", "status=");
  const base::FileDescriptor writer(::open(folder_.Write(".new-text.living", "status=").c_str(), O_RDONLY));
  ASSERT_EQ(::flock(writer.get(), LOCK_EX), 0);
  fs::create_directory(folder_ / "sub");
  EXPECT_LT(Set(folder_ / "sub", "done"), 0);
  EXPECT_EQ(tests::ReadFile(path), "status=\"old\"\n");
  EXPECT_FALSE(fs::exists(folder_ / ".new-text.killed"));  // whoever wrote it is gone
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path()), {}), 3);
}

TEST_F(StateFilesTest, ALinkToTheFileStaysALinkUnlessItIsBrokenOrAStrangersOne) {
  folder_.Write("real/file", "status=\"old\"\n");
  fs::create_symlink("real/file", folder_ / "link");
  EXPECT_EQ(Set(folder_ / "link", "set"), 0);
  fs::create_symlink("nowhere", folder_ / "broken");
  EXPECT_LT(Set(folder_ / "broken", "new"), 0);
  EXPECT_FALSE(fs::exists(folder_ / "nowhere"));
  const std::string outside = folder_.Write("outside/file", "old");
  const base::Errno swapped = platform::host::EditTextFile(folder_ / "link", {}, [&](std::string& text) {
    fs::rename(folder_ / "real", folder_ / "aside");
    fs::create_directory_symlink("outside", folder_ / "real");
    text = "status=\"new\"\n";
  });
  EXPECT_TRUE(swapped.ok() && tests::ReadFile(outside) == "old");

  if (::geteuid() != 0) GTEST_SKIP() << "needs root to give a link to another user";
  ASSERT_EQ(::lchown((folder_ / "link").c_str(), 1234, 1234), 0);
  EXPECT_LT(Set(folder_ / "link", "bad"), 0);
  EXPECT_EQ(files_.PLIBCErrGet(), ELOOP);
  EXPECT_EQ(tests::ReadFile(folder_ / "aside/file"), "status=\"new\"\n");
}

TEST_F(StateFilesTest, APidFileIsAlwaysNewAndHoldsOneWholeNumberAboveZero) {
  const std::string path = folder_ / "pid";
  EXPECT_EQ(files_.PLIBCProcPidFileCreate(path), 0);
  EXPECT_EQ(tests::ReadFile(path), std::to_string(::getpid()) + "\n");
  EXPECT_EQ(StatusOf(path).st_mode, S_IFREG | 0644U);
  EXPECT_NE(files_.PLIBCProcPidFileCreate(path), 0);
  EXPECT_EQ(errno, EEXIST);
  fs::create_symlink("planted", folder_ / "link");
  EXPECT_NE(files_.PLIBCProcPidFileCreate(folder_ / "link"), 0);
  EXPECT_FALSE(fs::exists(folder_ / "planted"));
  const std::pair<const char*, pid_t> cases[] = {{" 12 \nmore\n", 12}, {"12", 12},  {"12x\n", -1},
                                                 {"-12\n", -1},        {"0\n", -1}, {"99999999999\n", -1}};
  for (const auto& [text, pid] : cases) {
    EXPECT_EQ(files_.PLIBCReadPidFile(folder_.Write("pid", text)), pid) << text;
  }
}

}  // namespace
