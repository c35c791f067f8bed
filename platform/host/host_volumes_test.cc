#include "platform/host/host_volumes.h"

#include <gtest/gtest.h>

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
                   "this line is not in the form\n"
                   "22 21 8:3 / /a\\040b\\134/c rw - ext4 /dev/sdc rw\n"
                   "23 20 8:4 / /m rw - ext3 /dev/sdd rw\n"
                   "24 23 8:5 / /m/n rw - ext4 /dev/sde rw\n"
                   "25 23 8:6 / /m rw - ext2 /dev/sdf rw\n");
  std::vector<Mount> mounts;
  ASSERT_EQ(platform::host::ReadMountTable(table, mounts), 0);
  ASSERT_EQ(mounts.size(), 6U);
  const auto source_of = [&](const std::string& path) {
    return platform::host::FindMountOf(mounts, path)->source;
  };
  EXPECT_EQ(source_of("/ab"), "/dev/root");
  EXPECT_EQ(source_of("/a b\\/x"), "/dev/sdb");
  EXPECT_EQ(source_of("/a b\\/c"), "/dev/sdc");
  EXPECT_EQ(source_of("/m"), "/dev/sdf");      // the last one mounted is on top
  EXPECT_EQ(source_of("/m/n/x"), "/dev/sdf");  // and hides what lay below the one before
  EXPECT_EQ(platform::host::FindMountOf({}, "/m"), nullptr);
  EXPECT_LT(platform::host::ReadMountTable(folder / "missing", mounts), 0);
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
