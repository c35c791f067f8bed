#include "platform/host/host_volumes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "platform/sdk/volume_uuid.h"
#include "tests/support/mount_namespace.h"
#include "tests/support/temporary_folder.h"

namespace {

using platform::FileSystemType;
using platform::host::HostVolumes;
using platform::host::Mount;

std::string Output(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), &::pclose);
  std::array<char, 256> line{};
  if (!pipe || std::fgets(line.data(), line.size(), pipe.get()) == nullptr) return {};
  std::string text = line.data();
  if (text.ends_with('\n')) text.pop_back();
  return text;
}

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

class HostVolumesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!tests::EnterMountNamespace()) GTEST_SKIP() << "needs the right to mount";
    std::filesystem::create_directories(folder_ / "my volume");
    mount_point_ = folder_ / "my volume";
  }

  // Makes a file system in an image and mounts it; a loop device is let go with its mount.
  void MountNew(const std::string& type) {
    const std::string image = folder_ / "image";
    if (!tests::Run("truncate -s 128M " + image + " && mkfs." + type + " -q " + image + " && mount -t " +
                    type + " -o loop " + image + " '" + mount_point_ + "'")) {
      GTEST_SKIP() << "cannot make and mount " << type;
    }
    mount_ = std::make_unique<tests::ScopedMount>(mount_point_);
    expected_uuid_ = Output("blkid -p -o value -s UUID " + image);
    ASSERT_EQ(expected_uuid_.size(), 36U);
    std::filesystem::create_directory(mount_point_ + "/sub");
  }

  FileSystemType TypeOf(const std::string& path) {
    FileSystemType type = FileSystemType::kOther;
    EXPECT_EQ(volumes_.GetFileSystemType(path, type), 0);
    return type;
  }
  std::string UuidOf(const std::string& path) {
    std::string uuid;
    return platform::sdk::GetVolumeUuid(volumes_, path, uuid) == 0 ? uuid : "(failed)";
  }

  tests::TemporaryFolder folder_;
  std::string mount_point_;
  std::string expected_uuid_;
  std::unique_ptr<tests::ScopedMount> mount_;  // goes before the folder
  HostVolumes volumes_{platform::SystemPaths{}};
};

TEST_F(HostVolumesTest, AMountPointIsAVolumeAndAFolderOnItIsNot) {
  MountNew("ext4");
  if (IsSkipped()) return;
  std::filesystem::create_symlink(mount_point_, folder_ / "link");
  platform::VolumeInfo info;
  for (const std::string& path :
       {mount_point_, mount_point_ + "/", folder_ / "link", mount_point_ + "/sub/.."}) {
    ASSERT_EQ(volumes_.PLATMountVolInfoGet(path, info), 0) << path;
    EXPECT_EQ(info.mount_point, mount_point_);
    EXPECT_EQ(info.file_system, "ext4");
    EXPECT_TRUE(info.device.starts_with("/dev/loop")) << info.device;
  }
  for (const std::string& path :
       {mount_point_ + "/sub", folder_.path(), folder_ / "missing", std::string()}) {
    EXPECT_LT(volumes_.PLATMountVolInfoGet(path, info), 0) << path;
  }
  std::vector<std::string> mount_points;
  ASSERT_EQ(volumes_.ListMountPoints(mount_points), 0);
  EXPECT_EQ(std::count(mount_points.begin(), mount_points.end(), mount_point_), 1);  // its blank decoded
}

TEST_F(HostVolumesTest, AnExt4VolumeHasTheUuidThatItsDeviceHas) {
  MountNew("ext4");
  if (IsSkipped()) return;
  EXPECT_EQ(TypeOf(mount_point_ + "/sub"), FileSystemType::kExt4);
  EXPECT_EQ(UuidOf(mount_point_ + "/sub"), expected_uuid_);
  EXPECT_EQ(UuidOf(mount_point_ + "/gone"), "(failed)");
  platform::FileSystemUuid uuid{};
  EXPECT_LT(volumes_.GetBtrfsUuid(mount_point_, uuid), 0);

  // Without a device path in the table, the device is found by its number.
  const std::string table = folder_ / "mountinfo";
  ASSERT_TRUE(tests::Run("sed -n 's,/dev/loop[0-9]*,/dev/root,w " + table + "' /proc/self/mountinfo"));
  platform::SystemPaths paths;
  paths.mount_info = table;
  HostVolumes renamed(paths);
  std::string text;
  EXPECT_EQ(renamed.GetExtUuid(mount_point_, text), 0);
  EXPECT_EQ(text, expected_uuid_);
}

TEST_F(HostVolumesTest, Ext2IsNotTakenForExt4) {
  MountNew("ext2");
  if (IsSkipped()) return;
  EXPECT_EQ(TypeOf(mount_point_), FileSystemType::kOther);
  EXPECT_EQ(UuidOf(mount_point_), "(failed)");
}

TEST_F(HostVolumesTest, Ext3HasATypeOfItsOwn) {
  MountNew("ext3");
  if (IsSkipped()) return;
  EXPECT_EQ(TypeOf(mount_point_), FileSystemType::kExt3);
  EXPECT_EQ(UuidOf(mount_point_), expected_uuid_);
}

TEST_F(HostVolumesTest, ABtrfsVolumeHasTwoFormsOfOneUuid) {
  MountNew("btrfs");
  if (IsSkipped()) return;
  const std::string path = mount_point_ + "/sub";
  std::string new_form;
  std::string old_form;
  EXPECT_EQ(UuidOf(path), expected_uuid_);
  EXPECT_EQ(platform::sdk::GetNewBtrfsUuid(volumes_, path, new_form), 0);
  EXPECT_EQ(new_form, expected_uuid_);
  ASSERT_EQ(platform::sdk::GetOldBtrfsUuid(volumes_, path, old_form), 0);
  const auto& e = expected_uuid_;  // "aabbccdd-eeff-gghh-..." becomes "ddccbbaa-ffee-hhgg-..."
  EXPECT_EQ(old_form, e.substr(6, 2) + e.substr(4, 2) + e.substr(2, 2) + e.substr(0, 2) + '-' +
                          e.substr(11, 2) + e.substr(9, 2) + '-' + e.substr(16, 2) + e.substr(14, 2) +
                          e.substr(18));
  std::string unchanged = "x";
  EXPECT_LT(volumes_.GetExtUuid(path, unchanged), 0);
  EXPECT_EQ(unchanged, "x");
}

}  // namespace
