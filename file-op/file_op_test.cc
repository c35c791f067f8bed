#include "file-op/file_op.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/file_descriptor.h"
#include "file-op/tree_walk.h"
#include "tests/support/logged_test.h"
#include "tests/support/mount_namespace.h"

namespace file_op {
namespace {

// Callers outside of this tree compare with the numbers.
static_assert(file_op::kCopyDiskFull == -2 && file_op::kMoveNoSource == -2 && file_op::kMoveFailed == -3 &&
              file_op::kMoveNameTooLong == -100);

namespace fs = std::filesystem;
using ::tests::ReadFile;
using ::tests::StatusOf;

const std::string kLongName(255, 'n');

class FileOpTest : public tests::LoggedTest {
 protected:
  std::string Path(const std::string& name) const { return folder_ / name; }
};

TEST_F(FileOpTest, CopyTakesEveryByteReplacesTheTargetAndNamesTheStepThatFailed) {
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

  const std::string holes = folder_.Write("holes", "");
  fs::resize_file(holes, 1 << 20);
  std::ofstream(holes, std::ios::app) << "data";
  fs::resize_file(holes, 64 << 20);
  EXPECT_TRUE(FSCopy(holes, target, 0) == 0 && ReadFile(target) == ReadFile(holes));
  EXPECT_LT(StatusOf(target).st_blocks, 100) << "what was a hole takes no room";

  const std::string same = Path("same");
  const std::string pipe = Path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  fs::create_hard_link(source, same);
  const std::string cases[][3] = {
      {Path("none"), target, "open(" + Path("none") + "): No such file or directory (2)\n"},
      {"/dev/zero", target, "open(/dev/zero): Invalid argument (22)\n"},
      {source, pipe, "open(" + pipe + "): No such device or address (6)\n"},
      {source, same, "open(" + same + "): Invalid argument (22)\n"}};
  for (const auto& [from, to, line] : cases) {
    EXPECT_EQ(FSCopy(from, to, 0), -1);
    EXPECT_EQ(sink_.Texts().back(), "[ERROR] file-op(N): CopyFile: " + line);
  }
  EXPECT_EQ(FSCopy(source, "/dev/full", 1), kCopyDiskFull);
  EXPECT_EQ(sink_.Texts().back(), "[ERROR] file-op(N): CopyFile: write: No space left on device (28)\n");
  EXPECT_TRUE(ReadFile(source) == content);
}

TEST_F(FileOpTest, MoveResultValues) {
  const std::string source = folder_.Write("source", "data");
  EXPECT_EQ(FSMove("", source, true), -1);
  EXPECT_EQ(FSMove(Path("none"), Path("target"), true), kMoveNoSource);
  EXPECT_EQ(FSMove(source, Path(kLongName + "n"), true), kMoveNameTooLong);
  EXPECT_EQ(FSMove(source, Path("none/target"), true), kMoveFailed);
  EXPECT_EQ(ReadFile(source), "data");
  fs::create_symlink("nowhere", Path("link"));
  EXPECT_EQ(FSMove(Path("link"), source, false), 0);
  EXPECT_EQ(fs::read_symlink(source), "nowhere");
}

// ext4 made without the "filetype" feature tells no entry types.
TEST_F(FileOpTest, AnotherFileSystemTellsNoTypesAndMovesOutOfItLeaveRegularFilesThere) {
  const std::string image = Path("image");
  fs::create_directories(Path("v"));
  if (!tests::EnterMountNamespace() ||
      !tests::Run("truncate -s 4M " + image + " && mkfs.ext4 -q -O ^filetype,^has_journal " + image +
                  " && mount -o loop " + image + " " + Path("v"))) {
    GTEST_SKIP() << "cannot mount an ext4 image";
  }
  const auto mount = tests::ScopedMount(Path("v"));
  folder_.Write("v/types/7/file", "data");
  fs::create_symlink("7", Path("v/types/link"));
  std::vector<std::string> names;
  EXPECT_EQ(ListFolders(Path("v/types"), names), 0);
  EXPECT_EQ(names, std::vector<std::string>{"7"});
  EXPECT_EQ(FSCopyTree(Path("v/types"), Path("copy")), 0);
  EXPECT_EQ(ReadFile(Path("copy/7/file")), "data");
  EXPECT_EQ(FSRemoveTree(Path("v/types"), 0), 0);
  EXPECT_FALSE(FSExists(Path("v/types")));

  ASSERT_EQ(chmod(folder_.Write("v/file", "data").c_str(), 0640), 0);
  fs::create_symlink(folder_.Write("outside", "precious"), Path("file"));
  EXPECT_EQ(FSMove(Path("v/file"), Path("file"), true), 0);
  EXPECT_EQ(ReadFile(Path("v/file")) + ReadFile(Path("file")), "datadata");
  EXPECT_EQ(ReadFile(Path("outside")), "precious");
  EXPECT_EQ(StatusOf(Path("file")).st_mode, S_IFREG | 0640U);

  fs::create_directories(Path("v/tree/inner"));
  EXPECT_EQ(FSMove(Path("v/tree"), Path("tree"), true), 0);
  EXPECT_TRUE(FSExists(Path("tree/inner")) && !FSExists(Path("v/tree")));

  fs::create_symlink("file", Path("v/link"));
  EXPECT_EQ(FSMove(Path("v/link"), Path("link"), true), 0);
  EXPECT_TRUE(FSExists(Path("v/link")) && !FSExists(Path("link")));
  folder_.Write("v/full/file", "data");
  EXPECT_EQ(FSMove(Path("v/full"), Path("full"), true), kMoveFailed);
  EXPECT_EQ(ReadFile(Path("full/file")), "data");
  EXPECT_EQ(FSMove(Path("v/file"), Path("full"), true), kMoveFailed);
}

// Whoever can write in the folder must not lead this process elsewhere.
TEST_F(FileOpTest, NewThingsAreMadeOnlyWhereNothingIsAndPrivate) {
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
  ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
  for (const char* marker : {"marker", "pipe"}) EXPECT_EQ(FSMakeEmptyFile(Path(marker)), -1);
  EXPECT_EQ(ReadFile(outside), "precious");
  EXPECT_FALSE(FSExists(Path("outside/none")));
  EXPECT_EQ(FSMKDir(Path("a//b/c//"), true) + Folder().Make(Path("a/b/c/private")), 0);
  EXPECT_EQ(StatusOf(Path("a/b/c/private")).st_mode, S_IFDIR | 0700U);
}

TEST_F(FileOpTest, TreesAreCopiedAndRemovedWithoutFollowingLinks) {
  const std::string outside = folder_.Write("outside/file", "precious");
  folder_.Write("tree/a/" + kLongName, "data");
  ASSERT_EQ(mkfifo(Path("tree/pipe").c_str(), 0600), 0);
  for (const char* name : {"tree/folder", "tree/a/folder"}) fs::create_symlink(Path("outside"), Path(name));
  const gid_t group = geteuid() == 0 ? 5678 : getegid();
  ASSERT_EQ(lchown(Path("tree/a/folder").c_str(), geteuid(), group), 0);
  ASSERT_EQ(FSCopyTree(Path("tree"), Path("copy")), 0);
  EXPECT_EQ(ReadFile(Path("copy/a/" + kLongName)), "data");
  EXPECT_EQ(fs::read_symlink(Path("copy/a/folder")), Path("outside"));
  EXPECT_EQ(StatusOf(Path("copy/a/folder")).st_gid, group);
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
  EXPECT_EQ(StatusOf(Path("shared")).st_mode, S_IFDIR | 01777U);
}

TEST_F(FileOpTest, TreesDeeperThanAPathOrTheDescriptorsReach) {
  constexpr int kDepth = 300;  // 300 names of 255 bytes
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit few = {64, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  fs::create_directories(Path("deep"));
  FolderCursor cursor;
  ASSERT_EQ(cursor.OpenTop(At(Path("deep"))), 0);
  for (int i = 0; i < kDepth; ++i) {
    ASSERT_EQ(mkdirat(cursor.fd(), kLongName.c_str(), 0755) + cursor.Enter(kLongName), 0) << i;
  }
  ASSERT_EQ(mknodat(cursor.fd(), "file", S_IFREG | 0600, 0), 0);
  ASSERT_EQ(FSCopyTree(Path("deep"), Path("copy")), 0);
  ASSERT_EQ(cursor.OpenTop(At(Path("copy"))), 0);
  for (int i = 0; i < kDepth; ++i) ASSERT_EQ(cursor.Enter(kLongName), 0) << i;
  EXPECT_EQ(faccessat(cursor.fd(), "file", F_OK, 0), 0);
  for (const char* tree : {"copy", "deep"}) EXPECT_EQ(FSRemoveTree(Path(tree), 0), 0);
  EXPECT_FALSE(FSExists(Path("deep")));
  EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST_F(FileOpTest, WalkRefusesToLeaveAFolderThatWasMovedAway) {
  fs::create_directories(Path("tree/inner"));
  FolderCursor cursor;
  ASSERT_EQ(cursor.OpenTop(At(Path("tree"))), 0);
  ASSERT_EQ(cursor.Enter("inner"), 0);
  fs::rename(Path("tree/inner"), Path("inner"));
  EXPECT_EQ(cursor.Leave(), -1);
  EXPECT_EQ(errno, ESTALE);
}

}  // namespace
}  // namespace file_op
