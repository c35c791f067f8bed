#include "platform/host/host_volumes.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <memory>

#include "platform/sdk/volume_uuid.h"
#include "tests/support/mount_namespace.h"
#include "tests/support/temporary_folder.h"

namespace {

using platform::FileSystemType;
using platform::host::HostVolumes;
using platform::host::Mount;

constexpr char kUuid[] = "a0b1c2d3-e4f5-4607-8899-aabbccddeeff";

TEST(MountTable, IsWalkedLikeThePathItself) {
  const tests::TemporaryFolder folder;
  const std::string table =
      folder.Write("mountinfo",
                   "20 1 8:1 / / rw - ext4 /dev/root rw\n"
                   "21 20 0:31 / /a\\040b\\134 rw shared:1 - btrfs /dev/sdb rw,subvol=/\n"
                   "this line is not in the form\n\n22 21 8:3\n22 21 8:x / /x rw - ext4 /dev/sdx rw\n"
                   "22 21 8:3 / /a\\040b\\134/c rw - ext4 /dev/sdc rw\n"
                   "23 20 8:4 / /m rw - ext3 /dev/sdd rw\n"
                   "24 23 8:5 / /m/n rw - ext4 /dev/sde rw\n"
                   "25 23 8:6 / /m rw - ext2 /dev/sdf rw\n"
                   "26 20 0:7 / /s\\011\\012\\043\\x\\04\\ rw - tmpfs  rw\n"
                   "27 20 8:8 //deleted /d\\040(deleted) rw - ext4 - rw");
  std::vector<Mount> mounts;
  ASSERT_EQ(platform::host::ReadMountInfo(table, mounts), 0);
  ASSERT_EQ(mounts.size(), 8U);
  const auto source_of = [&](const std::string& path) {
    return platform::host::FindMountOf(mounts, path)->source;
  };
  EXPECT_EQ(source_of("/ab"), "/dev/root");
  EXPECT_EQ(source_of("/a b\\/x"), "/dev/sdb");
  EXPECT_EQ(source_of("/a b\\/c"), "/dev/sdc");
  EXPECT_EQ(source_of("/m"), "/dev/sdf");      // the last one mounted is on top
  EXPECT_EQ(source_of("/m/n/x"), "/dev/sdf");  // and hides what lay below the one before
  EXPECT_EQ(source_of("/s\t\n#\\x\\04\\"), "");
  EXPECT_EQ(source_of("/d (deleted)"), "-");
  EXPECT_EQ(platform::host::FindMountOf({}, "/m"), nullptr);

  std::vector<std::string> points;
  const std::string text =
      " /srv/x tmpfs rw 0 0\n#a /b\\040c ext4 a b 0 0\nno line\n /\xE9 t\n/dev/a relative t";
  ASSERT_EQ(platform::host::ReadMountPoints(folder.Write("mounts", text), points), 0);
  EXPECT_EQ(points, (std::vector<std::string>{"/srv/x", "/b c", "/\xE9"}));
  for (const std::string& bad : {folder / "missing", folder.Write("empty", ""), folder.path()}) {
    EXPECT_LT(platform::host::ReadMountInfo(bad, mounts), 0) << bad;
    EXPECT_LT(platform::host::ReadMountPoints(bad, points), 0) << bad;
  }
}

// Volumes with that UUID.
class HostVolumesTest : public ::testing::Test {
 protected:
  // Makes a file system in an image and mounts it; a loop device is let go with its mount.
  bool MountNew(const std::string& type) {
    mount_.reset();
    const std::string image = folder_ / type;
    std::filesystem::create_directories(sub_);
    if (!tests::EnterMountNamespace() ||
        !tests::Run("truncate -s 128M " + image + " && mkfs." + type + " -q -U " + kUuid + " " + image +
                    " && mount -t " + type + " -o loop " + image + " '" + mount_point_ + "'")) {
      return false;
    }
    mount_ = std::make_unique<tests::ScopedMount>(mount_point_);
    return std::filesystem::create_directory(sub_);
  }
  std::string UuidOf(const std::string& path) {
    std::string uuid;
    return platform::sdk::GetVolumeUuid(volumes_, path, uuid) == 0 ? uuid : "(failed)";
  }

  tests::TemporaryFolder folder_;
  std::string mount_point_ = folder_ / "my volume";
  std::string sub_ = mount_point_ + "/sub";
  std::unique_ptr<tests::ScopedMount> mount_;  // goes before the folder
  HostVolumes volumes_{platform::SystemPaths{}};
};

TEST_F(HostVolumesTest, ADeviceWithoutAPathInTheTableIsFoundByItsNumber) {
  if (!MountNew("ext4")) GTEST_SKIP() << "cannot make and mount ext4";
  platform::SystemPaths paths;
  paths.mount_info = folder_ / "mountinfo";
  ASSERT_TRUE(
      tests::Run("sed -n 's,/dev/loop[0-9]*,/dev/root,w " + paths.mount_info + "' /proc/self/mountinfo"));
  std::string uuid;
  EXPECT_EQ(HostVolumes(paths).GetExtUuid(mount_point_, uuid), 0);
  EXPECT_EQ(uuid, kUuid);
  platform::VolumeInfo info;  // through a link it is a volume, a folder on it is none
  std::filesystem::create_symlink(mount_point_, folder_ / "link");
  EXPECT_EQ(volumes_.PLATMountVolInfoGet(folder_ / "link", info), 0);
  EXPECT_LT(volumes_.PLATMountVolInfoGet(sub_, info), 0);
  ASSERT_TRUE(tests::Run("mount --bind /dev/null " + info.device));
  const tests::ScopedMount hidden(info.device);
  const int asked = volumes_.GetExtUuid(sub_, uuid = "");  // without a device the kernel is asked
  if (asked != 0 && errno == ENOTTY) GTEST_SKIP() << "this kernel does not tell the uuid of an ext4";
  EXPECT_EQ(uuid, kUuid);
}

TEST_F(HostVolumesTest, TypeAndUuidOfEachFileSystem) {
  struct Case {
    const char* name;
    FileSystemType type;
    const char* uuid;
  };
  for (const Case& c :
       {Case{"ext4", FileSystemType::kExt4, kUuid}, Case{"ext3", FileSystemType::kExt3, kUuid},
        Case{"ext2", FileSystemType::kOther, "(failed)"}, Case{"btrfs", FileSystemType::kBtrfs, kUuid}}) {
    if (!MountNew(c.name)) GTEST_SKIP() << "cannot make and mount " << c.name;
    FileSystemType type = FileSystemType::kEcryptfs;
    EXPECT_EQ(volumes_.GetFileSystemType(sub_, type), 0);
    EXPECT_EQ(type, c.type) << c.name;
    EXPECT_EQ(UuidOf(sub_), c.uuid) << c.name;
    std::string old_form;
    const bool has_old_form = platform::sdk::GetOldBtrfsUuid(volumes_, sub_, old_form) == 0;
    EXPECT_EQ(has_old_form, c.type == FileSystemType::kBtrfs) << c.name;
    EXPECT_EQ(old_form, has_old_form ? "d3c2b1a0-f5e4-0746-8899-aabbccddeeff" : "");
  }
}

}  // namespace
