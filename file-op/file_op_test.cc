#include "file-op/file_op.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <list>

#include "base/file_descriptor.h"
#include "file-op/tree_walk.h"
#include "logger/recording_sink.h"
#include "tests/support/mount_namespace.h"
#include "tests/support/temporary_folder.h"

namespace file_op {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::tests::ReadFile;

const std::string kLongName(255, 'n');

class FileOpTest : public ::testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_ / name; }
  static struct stat Status(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
  }
  // Mounts a file system of its own for this process; false where that is not allowed.
  bool Mount(const std::string& name, const std::string& type_and_options) {
    fs::create_directories(Path(name));
    if (!tests::EnterMountNamespace() || !tests::Run("mount -t " + type_and_options + " " + Path(name))) {
      return false;
    }
    mounts_.emplace_front(Path(name));
    return true;
  }

  tests::TemporaryFolder folder_;
  std::list<tests::ScopedMount> mounts_;  // the last one goes first, and all before the folder
  logger::RecordingSink sink_;
  logger::ScopedSink scope_{sink_};
};

TEST_F(FileOpTest, CopyTakesEveryByteAndReplacesTheTarget) {
  std::string content(kCopyBufferSize + 12345, '\0');
  for (std::size_t i = 0; i < content.size(); i += 97) content[i] = static_cast<char>(i);
  const std::string source = folder_.Write("source", content);
  const std::string target = folder_.Write("target", content + "longer");
  EXPECT_EQ(FSCopy(source, target, 0), 0);
  EXPECT_TRUE(ReadFile(target) == content);
  EXPECT_EQ(FSCopy(folder_.Write("empty", ""), target, 1), 0);
  EXPECT_EQ(ReadFile(target), "");
  EXPECT_FALSE(FSExists(Path("empty")));
  EXPECT_TRUE(sink_.lines().empty());
}

TEST_F(FileOpTest, CopyNamesTheStepThatFailed) {
  const std::string source = folder_.Write("source", "data");
  const std::string target = Path("target");
  const std::string same = Path("same");
  const std::string pipe = Path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  fs::create_hard_link(source, same);
  const std::string cases[][3] = {
      {Path("none"), target, "open(" + Path("none") + "): No such file or directory (2)\n"},
      {"/dev/zero", target, "open(/dev/zero): Invalid argument (22)\n"},
      {source, pipe, "open(" + pipe + "): No such device or address (6)\n"},
      {source, same, "open(" + same + "): Invalid argument (22)\n"},
      {folder_.path(), target, "read: Is a directory (21)\n"}};
  for (const auto& [from, to, line] : cases) {
    EXPECT_EQ(FSCopy(from, to, 0), -1);
    EXPECT_EQ(sink_.Texts().back(), "[ERROR] file-op(N): CopyFile: " + line);
  }
  EXPECT_EQ(FSCopy(source, "/dev/full", 1), kCopyDiskFull);
  EXPECT_EQ(sink_.Texts().back(), "[ERROR] file-op(N): CopyFile: write: No space left on device (28)\n");
  EXPECT_EQ(ReadFile(source), "data");
}

TEST_F(FileOpTest, MoveResultValues) {
  const std::string source = folder_.Write("source", "data");
  EXPECT_EQ(FSMove("", source, true), -1);
  EXPECT_EQ(FSMove(Path("none"), Path("target"), true), kMoveNoSource);
  EXPECT_EQ(FSMove(source, Path(kLongName + "n"), true), kMoveNameTooLong);
  EXPECT_EQ(FSMove(source, Path("none/target"), true), kMoveFailed);
  EXPECT_EQ(ReadFile(source), "data");
  ASSERT_EQ(symlink("nowhere", Path("link").c_str()), 0);
  EXPECT_EQ(FSMove(Path("link"), source, false), 0);
  EXPECT_EQ(fs::read_symlink(source), "nowhere");
}

TEST_F(FileOpTest, MoveAcrossFileSystemsKeepsRegularFilesAtTheSource) {
  if (!Mount("a", "tmpfs none") || !Mount("b", "tmpfs none")) GTEST_SKIP() << "cannot mount a tmpfs";
  ASSERT_EQ(chmod(folder_.Write("a/file", "data").c_str(), 0640), 0);
  fs::create_symlink(folder_.Write("outside", "precious"), Path("b/file"));
  EXPECT_EQ(FSMove(Path("a/file"), Path("b/file"), true), 0);
  EXPECT_EQ(ReadFile(Path("a/file")) + ReadFile(Path("b/file")), "datadata");
  EXPECT_EQ(ReadFile(Path("outside")), "precious");
  EXPECT_EQ(Status(Path("b/file")).st_mode, S_IFREG | 0640U);

  fs::create_directories(Path("a/tree/inner"));
  EXPECT_EQ(FSMove(Path("a/tree"), Path("b/tree"), true), 0);
  EXPECT_FALSE(FSExists(Path("a/tree")));
  EXPECT_TRUE(FSExists(Path("b/tree/inner")));

  ASSERT_EQ(symlink("file", Path("a/link").c_str()), 0);
  EXPECT_EQ(FSMove(Path("a/link"), Path("b/link"), true), 0);
  EXPECT_TRUE(FSExists(Path("a/link")));
  EXPECT_FALSE(FSExists(Path("b/link")));

  folder_.Write("a/full/file", "data");
  EXPECT_EQ(FSMove(Path("a/full"), Path("b/full"), true), kMoveFailed);
  EXPECT_EQ(ReadFile(Path("b/full/file")), "data");
  EXPECT_EQ(FSMove(Path("a/file"), Path("b/full"), true), kMoveFailed);
}

// Whoever can write in the folder must not lead this process elsewhere.
TEST_F(FileOpTest, NewThingsAreMadeOnlyWhereNothingIs) {
  const std::string source = folder_.Write("source", "new");
  const std::string outside = folder_.Write("outside/file", "precious");
  for (const char* planted : {"outside/file", "outside/none", "outside"}) {
    const std::string link = Path(planted) + ".link";
    fs::create_symlink(Path(planted), link);
    base::FileDescriptor file;
    EXPECT_EQ(CopyKeepingOwner(At(source), At(link)), -1);
    EXPECT_EQ(MakeFileLike(At(link), source, file), -1);
    EXPECT_EQ(Folder().Make(link), -1);
    EXPECT_EQ(FSMakeEmptyFile(link), -1);
  }
  fs::create_hard_link(outside, Path("marker"));
  EXPECT_EQ(FSMakeEmptyFile(Path("marker")), -1);
  EXPECT_EQ(ReadFile(outside), "precious");
  EXPECT_FALSE(FSExists(Path("outside/none")));
}

TEST_F(FileOpTest, TreesAreCopiedAndRemovedWithoutFollowingLinks) {
  const std::string outside = folder_.Write("outside/file", "precious");
  ASSERT_EQ(chmod(folder_.Write("tree/a/" + kLongName, "data").c_str(), 0604), 0);
  ASSERT_EQ(mkfifo(Path("tree/pipe").c_str(), 0600), 0);
  for (const char* name : {"tree/folder", "tree/a/folder"}) {
    ASSERT_EQ(symlink(Path("outside").c_str(), Path(name).c_str()), 0);
  }
  ASSERT_EQ(chmod(Path("tree/a").c_str(), 0750), 0);
  const gid_t group = geteuid() == 0 ? 5678 : getegid();
  ASSERT_EQ(lchown(Path("tree/a/folder").c_str(), geteuid(), group), 0);
  ASSERT_EQ(FSCopyTree(Path("tree"), Path("copy")), 0);
  EXPECT_EQ(ReadFile(Path("copy/a/" + kLongName)), "data");
  EXPECT_EQ(Status(Path("copy/a/" + kLongName)).st_mode, S_IFREG | 0604U);
  EXPECT_EQ(Status(Path("copy/a")).st_mode, S_IFDIR | 0750U);
  EXPECT_EQ(fs::read_symlink(Path("copy/a/folder")), Path("outside"));
  EXPECT_EQ(Status(Path("copy/a/folder")).st_gid, group);
  EXPECT_FALSE(FSExists(Path("copy/pipe")));
  EXPECT_EQ(FSCopyTree(Path("tree"), Path("copy")), -1);          // it is there already
  EXPECT_EQ(FSCopyTree(Path("tree/folder"), Path("other")), -1);  // a link
  EXPECT_EQ(FSRemoveTree(Path("tree/folder"), 0), 0);
  for (int times = 0; times < 2; ++times) EXPECT_EQ(FSRemoveTree(Path("copy"), 0), 0);
  EXPECT_FALSE(FSExists(Path("copy")));
  EXPECT_EQ(ReadFile(outside), "precious");
}

TEST_F(FileOpTest, WhatEverybodyMayDoTheGroupMayToo) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a folder of somebody else";
  ASSERT_EQ(chown(folder_.path().c_str(), 0, 5678) + chmod(folder_.path().c_str(), 0777), 0);
  ASSERT_EQ(seteuid(65534), 0);
  EXPECT_EQ(FSMKDir(Path("shared"), false, 01777), 0);
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_EQ(Status(Path("shared")).st_mode, S_IFDIR | 01777U);
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
  ASSERT_EQ(cursor.OpenTop(At(Path("copy"))), 0);
  for (int i = 0; i < kDepth; ++i) ASSERT_EQ(cursor.Enter(kLongName), 0) << i;
  EXPECT_EQ(faccessat(cursor.fd(), "file", F_OK, 0), 0);
  EXPECT_EQ(FSRemoveTree(Path("copy"), 0), 0);
  EXPECT_EQ(FSRemoveTree(Path("deep"), 0), 0);
  EXPECT_FALSE(FSExists(Path("deep")));
  EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST_F(FileOpTest, WalkRefusesToLeaveAFolderThatWasMovedAway) {
  folder_.Write("tree/inner/file", "");
  fs::create_directories(Path("elsewhere"));
  FolderCursor cursor;
  ASSERT_EQ(cursor.OpenTop(At(Path("tree"))), 0);
  ASSERT_EQ(cursor.Enter("inner"), 0);
  fs::rename(Path("tree/inner"), Path("elsewhere/inner"));
  EXPECT_EQ(cursor.Leave(), -1);
  EXPECT_EQ(errno, ESTALE);
}

// ext4 made without the "filetype" feature tells no entry types.
TEST_F(FileOpTest, EntriesOfUnknownTypeAreAskedFor) {
  const std::string image = Path("image");
  if (!tests::Run("truncate -s 4M " + image + " && mkfs.ext4 -q -O ^filetype,^has_journal " + image) ||
      !Mount("v", "ext4 -o loop " + image)) {
    GTEST_SKIP() << "cannot mount an ext4 image";
  }
  folder_.Write("v/tree/7/file", "data");
  ASSERT_EQ(symlink("7", Path("v/tree/link").c_str()), 0);
  std::vector<std::string> names;
  EXPECT_EQ(ListFolders(Path("v/tree"), names), 0);
  EXPECT_THAT(names, ElementsAre("7"));
  EXPECT_EQ(FSCopyTree(Path("v/tree"), Path("copy")), 0);
  EXPECT_EQ(ReadFile(Path("copy/7/file")), "data");
  EXPECT_EQ(FSRemoveTree(Path("v/tree"), 0), 0);
  EXPECT_FALSE(FSExists(Path("v/tree")));
}

}  // namespace
}  // namespace file_op
