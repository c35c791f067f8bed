#include "file-op/file_op.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "base/file_descriptor.h"
#include "file-op/tree_walk.h"
#include "logger/recording_sink.h"

namespace file_op {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

const std::string kLongName(255, 'n');

class FileOpTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ = fs::path(::testing::TempDir()) / ("file-op-" + std::to_string(getpid()));
    fs::create_directories(folder_);
  }
  void TearDown() override {
    for (const std::string& mounted : mounts_) EXPECT_EQ(umount2(mounted.c_str(), MNT_DETACH), 0);
    EXPECT_EQ(FSRemoveTree(folder_, 0), 0);
  }

  std::string Path(const std::string& name) const { return (folder_ / name).string(); }
  std::string Make(const std::string& name, const std::string& content) const {
    fs::create_directories(fs::path(Path(name)).parent_path());
    std::ofstream(Path(name), std::ios::binary) << content;
    return Path(name);
  }
  static std::string Read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  static struct stat Status(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
  }

  // Mounts a file system of its own for this process; false where that is not allowed.
  bool Mount(const std::string& name, const char* options) {
    if (mounts_.empty() &&
        (unshare(CLONE_NEWNS) < 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) < 0)) {
      return false;
    }
    fs::create_directories(Path(name));
    if (mount("tmpfs", Path(name).c_str(), "tmpfs", 0, options) < 0) return false;
    mounts_.push_back(Path(name));
    return true;
  }

  fs::path folder_;
  std::vector<std::string> mounts_;
  logger::RecordingSink sink_;
  logger::ScopedSink scope_{sink_};
};

TEST_F(FileOpTest, CopyTakesEveryByteAndReplacesTheTarget) {
  std::string content(kCopyBufferSize + 12345, '\0');
  for (std::size_t i = 0; i < content.size(); i += 97) content[i] = static_cast<char>(i);
  const std::string source = Make("source", content);
  const std::string target = Make("target", content + "longer");
  EXPECT_EQ(FSCopy(source, target, 0), 0);
  EXPECT_TRUE(Read(target) == content);
  EXPECT_EQ(FSCopy(Make("empty", ""), target, 1), 0);
  EXPECT_EQ(Read(target), "");
  EXPECT_FALSE(FSExists(Path("empty")));
  EXPECT_TRUE(sink_.lines().empty());
}

TEST_F(FileOpTest, CopyNamesTheStepThatFailed) {
  const std::string source = Make("source", "data");
  const std::string pipe = Path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  ASSERT_EQ(link(source.c_str(), Path("same").c_str()), 0);
  EXPECT_EQ(FSCopy(Path("none"), Path("target"), 0), -1);
  EXPECT_EQ(FSCopy(pipe, Path("target"), 0), -1);
  EXPECT_EQ(FSCopy("/dev/zero", Path("target"), 0), -1);
  EXPECT_FALSE(FSExists(Path("target")));
  EXPECT_EQ(FSCopy(source, pipe, 0), -1);
  EXPECT_EQ(FSCopy(source, Path("same"), 0), -1);
  EXPECT_EQ(FSCopy(folder_, Path("target"), 0), -1);
  EXPECT_EQ(FSCopy(source, "/dev/full", 1), kCopyDiskFull);
  EXPECT_EQ(Read(source), "data");
  const std::string head = "[ERROR] file-op(N): CopyFile: ";
  EXPECT_THAT(sink_.Texts(), ElementsAre(head + "open(" + Path("none") + "): No such file or directory (2)\n",
                                         head + "open(" + pipe + "): Invalid argument (22)\n",
                                         head + "open(/dev/zero): Invalid argument (22)\n",
                                         head + "open(" + pipe + "): No such device or address (6)\n",
                                         head + "open(" + Path("same") + "): Invalid argument (22)\n",
                                         head + "read: Is a directory (21)\n",
                                         head + "write: No space left on device (28)\n"));
}

TEST_F(FileOpTest, CopyOntoAFullDiskLeavesThePartialTarget) {
  if (!Mount("small", "size=64k")) GTEST_SKIP() << "cannot mount a tmpfs";
  EXPECT_EQ(FSCopy(Make("source", std::string(1 << 20, 'x')), Path("small/target"), 1), kCopyDiskFull);
  EXPECT_EQ(Status(Path("small/target")).st_size, 65536);
  EXPECT_TRUE(FSExists(Path("source")));
  EXPECT_EQ(sink_.Count("[ERROR] file-op(N): CopyFile: write: No space left on device (28)\n"), 1);
}

TEST_F(FileOpTest, MoveResultValues) {
  const std::string source = Make("source", "data");
  EXPECT_EQ(FSMove("", source, true), -1);
  EXPECT_EQ(FSMove(source, "", true), -1);
  EXPECT_EQ(FSMove(Path("none"), Path("target"), true), kMoveNoSource);
  EXPECT_EQ(FSMove(source, Path(kLongName + "n"), true), kMoveNameTooLong);
  EXPECT_EQ(FSMove(source, Path("none/target"), true), kMoveFailed);
  EXPECT_EQ(Read(source), "data");
  ASSERT_EQ(symlink("nowhere", Path("link").c_str()), 0);
  EXPECT_EQ(FSMove(Path("link"), source, false), 0);
  EXPECT_EQ(fs::read_symlink(source), "nowhere");
}

TEST_F(FileOpTest, MoveAcrossFileSystemsKeepsRegularFilesAtTheSource) {
  if (!Mount("a", "") || !Mount("b", "")) GTEST_SKIP() << "cannot mount a tmpfs";
  ASSERT_EQ(chmod(Make("a/file", "data").c_str(), 0640), 0);
  EXPECT_EQ(FSMove(Path("a/file"), Path("b/file"), true), 0);
  EXPECT_EQ(Read(Path("a/file")) + Read(Path("b/file")), "datadata");
  EXPECT_EQ(Status(Path("b/file")).st_mode, S_IFREG | 0640U);

  fs::create_directories(Path("a/tree/inner"));
  EXPECT_EQ(FSMove(Path("a/tree"), Path("b/tree"), true), 0);
  EXPECT_FALSE(FSExists(Path("a/tree")));
  EXPECT_TRUE(FSExists(Path("b/tree/inner")));

  ASSERT_EQ(symlink("file", Path("a/link").c_str()), 0);
  EXPECT_EQ(FSMove(Path("a/link"), Path("b/link"), true), 0);
  EXPECT_TRUE(FSExists(Path("a/link")));
  EXPECT_FALSE(FSExists(Path("b/link")));

  Make("a/full/file", "data");
  EXPECT_EQ(FSMove(Path("a/full"), Path("b/full"), true), kMoveFailed);
  EXPECT_EQ(Read(Path("b/full/file")), "data");
  EXPECT_EQ(FSMove(Path("a/file"), Path("b/full"), true), kMoveFailed);
}

TEST_F(FileOpTest, TreesAreCopiedAndRemovedWithoutFollowingLinks) {
  const std::string outside = Make("outside/file", "precious");
  ASSERT_EQ(chmod(Make("tree/a/" + kLongName, "data").c_str(), 0604), 0);
  ASSERT_EQ(mkfifo(Path("tree/pipe").c_str(), 0600), 0);
  for (const char* name : {"tree/folder", "tree/a/folder"}) {
    ASSERT_EQ(symlink(Path("outside").c_str(), Path(name).c_str()), 0);
  }
  ASSERT_EQ(chmod(Path("tree/a").c_str(), 0750), 0);
  if (geteuid() == 0) {
    ASSERT_EQ(lchown(Path("tree/a/folder").c_str(), 1234, 5678), 0);
  }
  ASSERT_EQ(FSCopyTree(Path("tree"), Path("copy")), 0);
  EXPECT_EQ(Read(Path("copy/a/" + kLongName)), "data");
  EXPECT_EQ(Status(Path("copy/a/" + kLongName)).st_mode, S_IFREG | 0604U);
  EXPECT_EQ(Status(Path("copy/a")).st_mode, S_IFDIR | 0750U);
  EXPECT_EQ(fs::read_symlink(Path("copy/a/folder")), Path("outside"));
  if (geteuid() == 0) {
    EXPECT_EQ(Status(Path("copy/a/folder")).st_gid, 5678U);
  }
  EXPECT_FALSE(FSExists(Path("copy/pipe")));
  EXPECT_EQ(FSCopyTree(Path("tree"), Path("copy")), -1);          // it is there already
  EXPECT_EQ(FSCopyTree(Path("tree/folder"), Path("other")), -1);  // a link
  EXPECT_EQ(FSRemoveTree(Path("tree/folder"), 0), 0);
  EXPECT_EQ(FSRemoveTree(Path("copy"), 0), 0);
  EXPECT_EQ(FSRemoveTree(Path("copy"), 0), 0);
  EXPECT_FALSE(FSExists(Path("copy")));
  EXPECT_EQ(Read(outside), "precious");
}

TEST_F(FileOpTest, TreesDeeperThanAPathOrTheDescriptorsReach) {
  constexpr int kDepth = 300;  // 300 names of 255 bytes
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit few = {64, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  fs::create_directories(Path("deep"));
  base::FileDescriptor here(open(Path("deep").c_str(), O_RDONLY | O_DIRECTORY));
  for (int i = 0; i < kDepth; ++i) {
    ASSERT_EQ(mkdirat(here.get(), kLongName.c_str(), 0755), 0);
    here = base::FileDescriptor(openat(here.get(), kLongName.c_str(), O_RDONLY | O_DIRECTORY));
  }
  ASSERT_TRUE(base::FileDescriptor(openat(here.get(), "file", O_WRONLY | O_CREAT, 0600)).is_open());
  ASSERT_EQ(FSCopyTree(Path("deep"), Path("copy")), 0);
  FolderCursor cursor;
  ASSERT_EQ(cursor.OpenTop(Path("copy")), 0);
  for (int i = 0; i < kDepth; ++i) ASSERT_EQ(cursor.Enter(kLongName), 0) << i;
  EXPECT_EQ(faccessat(cursor.fd(), "file", F_OK, 0), 0);
  EXPECT_EQ(FSRemoveTree(Path("copy"), 0), 0);
  EXPECT_EQ(FSRemoveTree(Path("deep"), 0), 0);
  EXPECT_FALSE(FSExists(Path("deep")));
  EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST_F(FileOpTest, WalkRefusesToLeaveAFolderThatWasMovedAway) {
  Make("tree/inner/file", "");
  fs::create_directories(Path("elsewhere"));
  FolderCursor cursor;
  ASSERT_EQ(cursor.OpenTop(Path("tree")), 0);
  ASSERT_EQ(cursor.Enter("inner"), 0);
  fs::rename(Path("tree/inner"), Path("elsewhere/inner"));
  EXPECT_EQ(cursor.Leave(), -1);
  EXPECT_EQ(errno, ESTALE);
}

TEST_F(FileOpTest, FoldersAreMadeWithTheirParentsAndListed) {
  const std::string file = Make("list/file", "");
  EXPECT_EQ(FSMKDir(Path("list/x/y"), false), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(FSMKDir(Path("list/x/y/"), true), 0);
  EXPECT_EQ(FSMKDir(Path("list/x"), false), 0);
  EXPECT_EQ(FSMKDir(file, true), -1);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(FSMKDir("", true), -1);
  ASSERT_EQ(symlink(Path("list/x").c_str(), Path("list/link").c_str()), 0);
  std::vector<std::string> names = {"old"};
  EXPECT_EQ(ListFolders(Path("list"), names), 0);
  EXPECT_THAT(names, ElementsAre("x"));
  EXPECT_EQ(ListFolders(file, names), -1);
  EXPECT_EQ(errno, ENOTDIR);
}

// ext4 made without the "filetype" feature tells no entry types.
TEST_F(FileOpTest, EntriesOfUnknownTypeAreAskedFor) {
  if (!Mount("m", "")) GTEST_SKIP() << "cannot mount";
  const std::string image = Path("m/image");
  const std::string make = "truncate -s 4M " + image + " && mkfs.ext4 -q -O ^filetype,^has_journal " + image +
                           " && mkdir " + Path("m/v") + " && mount -o loop " + image + " " + Path("m/v");
  if (std::system(make.c_str()) != 0) GTEST_SKIP() << "cannot mount an ext4 image";
  mounts_.insert(mounts_.begin(), Path("m/v"));
  Make("m/v/tree/7/file", "data");
  ASSERT_EQ(symlink("7", Path("m/v/tree/link").c_str()), 0);
  std::vector<std::string> names;
  EXPECT_EQ(ListFolders(Path("m/v/tree"), names), 0);
  EXPECT_THAT(names, ElementsAre("7"));
  EXPECT_EQ(FSCopyTree(Path("m/v/tree"), Path("copy")), 0);
  EXPECT_EQ(Read(Path("copy/7/file")), "data");
  EXPECT_EQ(FSRemoveTree(Path("m/v/tree"), 0), 0);
  EXPECT_FALSE(FSExists(Path("m/v/tree")));
}

}  // namespace
}  // namespace file_op
