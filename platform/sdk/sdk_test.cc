#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logger/recording_sink.h"
#include "platform/sdk/app_privilege.h"
#include "platform/sdk/volume_uuid.h"
#include "tests/support/fake_platform.h"

namespace {

using platform::FileSystemType;
using ::testing::ElementsAre;

class SdkTest : public ::testing::Test {
 protected:
  std::string UuidOf(const std::string& path) {
    std::string uuid = "(unchanged)";
    const int result = platform::sdk::GetVolumeUuid(fake_.volumes, path, uuid);
    EXPECT_EQ(result, uuid == "(unchanged)" ? -1 : 0);
    return uuid;
  }

  logger::RecordingSink sink_;
  logger::ScopedSink scope_{sink_};
  tests::FakePlatform fake_;
};

TEST_F(SdkTest, TheOldFormSwapsTheBytesOfTheFirstThreeGroups) {
  const platform::FileSystemUuid uuid = {0xA0, 0x01, 2, 3, 0xB4, 5, 0xC6, 7, 8, 9, 10, 11, 12, 13, 14, 0xFF};
  EXPECT_EQ(platform::sdk::BtrfsUuidToNewForm(uuid), "a0010203-b405-c607-0809-0a0b0c0d0eff");
  EXPECT_EQ(platform::sdk::BtrfsUuidToOldForm(uuid), "030201a0-05b4-07c6-0809-0a0b0c0d0eff");
}

TEST_F(SdkTest, TheUuidOfAVolumeDependsOnItsFileSystem) {
  fake_.volumes.volumes["/volume2"].type = FileSystemType::kBtrfs;
  fake_.volumes.volumes["/volume3"].type = FileSystemType::kExt3;
  fake_.volumes.volumes["/volume4"].type = FileSystemType::kEcryptfs;
  fake_.volumes.volumes["/volume5"].type = FileSystemType::kOther;
  EXPECT_EQ(UuidOf("/volume1"), fake_.volumes.everywhere.ext_uuid);
  EXPECT_EQ(UuidOf("/volume2/share"), "00010203-0405-0607-0809-0a0b0c0d0e0f");
  EXPECT_EQ(UuidOf("/volume3"), fake_.volumes.everywhere.ext_uuid);
  EXPECT_THAT(sink_.Texts(), ElementsAre());
  EXPECT_EQ(UuidOf("/volume4"), "(unchanged)");
  EXPECT_EQ(UuidOf("/volume5"), "(unchanged)");
  fake_.volumes.failing_calls = {"GetFileSystemType"};
  EXPECT_EQ(UuidOf("/100%s"), "(unchanged)");
  fake_.volumes.failing_calls = {"GetShareBinPath"};
  EXPECT_EQ(UuidOf("/volume1"), "(unchanged)");
  EXPECT_THAT(sink_.Texts(),
              ElementsAre("[ERROR] sdk-cpp(N): Unknow file system type: 3 ('/volume4')\n",
                          "[ERROR] sdk-cpp(N): Unknow file system type: 0 ('/volume5')\n",
                          "[ERROR] sdk-cpp(N): Failed to get file system property from '/100%s'\n",
                          "[ERROR] sdk-cpp(N): Failed to get sharebin path of '/volume1'\n"));
  fake_.volumes.failing_calls = {"GetBtrfsUuid", "GetExtUuid"};
  EXPECT_EQ(UuidOf("/volume1"), "(unchanged)");
  EXPECT_EQ(UuidOf("/volume2"), "(unchanged)");
}

TEST_F(SdkTest, TheOldUuidIsReadOnlyFromARealSuperblock) {
  std::string uuid = "(unchanged)";
  fake_.volumes.everywhere.btrfs_magic = 0xABCULL;
  EXPECT_LT(platform::sdk::GetOldBtrfsUuid(fake_.volumes, "/volume1", uuid), 0);
  EXPECT_EQ(uuid, "(unchanged)");
  EXPECT_THAT(sink_.Texts(),
              ElementsAre("[ERROR] btrfs/btrfs-old(N): Magic mismatch abc:4d5f53665248425f\n"));
  fake_.volumes.everywhere.btrfs_magic = platform::kBtrfsMagic;
  EXPECT_EQ(platform::sdk::GetOldBtrfsUuid(fake_.volumes, "/volume1", uuid), 0);
  EXPECT_EQ(uuid, "03020100-0504-0706-0809-0a0b0c0d0e0f");
}

TEST_F(SdkTest, ARefusedUserIsLoggedAndTheOthersAreAllowed) {
  fake_.app_privilege.refused = {"gone"};
  for (const char* user : {"mary", "gone", "joe"}) platform::sdk::AllowApplication(fake_.app_privilege, user);
  EXPECT_THAT(fake_.app_privilege.allowed, ElementsAre(std::pair("mary", "PLAT.HDS.STFD.Instance"),
                                                       std::pair("joe", "PLAT.HDS.STFD.Instance")));
  EXPECT_THAT(sink_.Texts(), ElementsAre("[ERROR] sdk-impl-6-0(N): Fail to allow user 'gone'\n"));
}

}  // namespace
