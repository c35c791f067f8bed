#include "platform/host/host_volumes.h"

#include <unistd.h>

#include <cerrno>
#include <memory>
#include <tuple>

#include "platform/sdk/volume_uuid.h"
#include "tests/support/logged_test.h"
#include "tests/support/mount_namespace.h"

namespace {

using platform::FileSystemType;
using platform::host::HostVolumes;

// Of this process alone, because the kernel gives a second btrfs of one uuid another one.
const std::string kUuid = "a0b1c2d3-e4f5-4607-8899-aab" + std::to_string(100'000'000 + ::getpid());

using HostVolumesTest = tests::LoggedTest;

TEST_F(HostVolumesTest, MountTableIsWalkedLikeThePathItself) {
  const std::string table =
      folder_.Write("mountinfo",
                    "20 1 8:1 / / rw - ext4 /dev/root rw\n"
                    "21 20 0:31 / /a\\040b\\134 rw shared:1 - btrfs /dev/sdb rw,subvol=/\n"
                    "this line is not in the form\n\n22 21 8:3\n22 21 8:x / /x rw - ext4 /dev/sdx rw\n"
                    "22 21 8:3 / /a\\040b\\134/c rw - ext4 /dev/sdc rw\n"
                    "23 20 8:4 / /m rw - ext3 /dev/sdd rw\n"
                    "24 23 8:5 / /m/n rw - ext4 /dev/sde rw\n"
                    "25 23 8:6 / /m rw - ext2 /dev/sdf rw\n"
                    "26 20 0:7 / /s\\011\\012\\043\\x\\04\\ rw - tmpfs  rw\n"
                    "27 20 8:8 //deleted /d\\040(deleted) rw - ext4 - rw");
  std::vector<platform::host::Mount> mounts;
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
  ASSERT_EQ(platform::host::ReadMountPoints(folder_.Write("mounts", text), points), 0);
  EXPECT_EQ(points, (std::vector<std::string>{"/srv/x", "/b c", "/\xE9"}));
  for (const std::string& bad : {folder_ / "missing", folder_.Write("empty", ""), folder_.path()}) {
    EXPECT_LT(platform::host::ReadMountInfo(bad, mounts), 0) << bad;
    EXPECT_LT(platform::host::ReadMountPoints(bad, points), 0) << bad;
  }
}

TEST_F(HostVolumesTest, TypeAndUuidOfEachFileSystemAlsoWithoutThePathOfItsDevice) {
  const std::string volume = folder_ / "my volume";
  const std::string sub = volume + "/sub";
  std::filesystem::create_directory(volume);
  HostVolumes volumes{platform::SystemPaths{}};
  std::shared_ptr<void> mount;  // goes before the folder
  std::string uuid;
  const std::tuple<std::string, FileSystemType, std::string> cases[] = {
      {"ext2", FileSystemType::kOther, "(failed)"}, {"ext3", FileSystemType::kExt3, kUuid}};
  for (const auto& [name, type, expected] : cases) {
    mount.reset();
    const std::string image = folder_ / name;  // a loop device is let go with its mount
    if (!tests::EnterMountNamespace() ||
        !tests::Run("truncate -s 128M " + image + " && mkfs." + name + " -q -U " + kUuid + " " + image +
                    " && mount -o loop " + image + " '" + volume + "'")) {
      GTEST_SKIP() << "cannot make and mount " << name;
    }
    mount = tests::ScopedMount(volume);
    std::filesystem::create_directory(sub);
    FileSystemType found = FileSystemType::kEcryptfs;
    EXPECT_EQ(volumes.GetFileSystemType(sub, found), 0);
    EXPECT_EQ(found, type) << name;
    if (platform::sdk::GetVolumeUuid(volumes, sub, uuid = "") != 0) uuid = "(failed)";
    EXPECT_EQ(uuid, expected) << name;
  }
  platform::SystemPaths paths;  // of the last one, the ext4
  paths.mount_info = folder_ / "mountinfo";
  ASSERT_TRUE(
      tests::Run("sed -n 's,/dev/loop[0-9]*,/dev/root,w " + paths.mount_info + "' /proc/self/mountinfo"));
  EXPECT_EQ(HostVolumes(paths).GetExtUuid(volume, uuid = ""), 0);  // found by the number of its device
  EXPECT_EQ(uuid, kUuid);
  platform::VolumeInfo info;  // through a link it is a volume
  std::filesystem::create_symlink(volume, folder_ / "link");
  EXPECT_EQ(volumes.PLATMountVolInfoGet(folder_ / "link", info), 0);
  ASSERT_TRUE(tests::Run("mount --bind /dev/null " + info.device));
  const auto hidden = tests::ScopedMount(info.device);
  const int asked = volumes.GetExtUuid(sub, uuid = "");  // without a device the kernel is asked
  if (asked != 0 && errno == ENOTTY) GTEST_SKIP() << "this kernel does not tell the uuid of an ext4";
  EXPECT_EQ(uuid, kUuid);
}

}  // namespace
