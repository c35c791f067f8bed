#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/sdk/volume_uuid.h"
#include "tests/support/fake_platform.h"
#include "tests/support/recording_sink.h"

namespace {

using ::testing::ElementsAre;

TEST(Sdk, EveryFailureLeavesTheUuidAsItWas) {
  tests::RecordingSink sink;
  const logger::ScopedSink scope(sink);
  tests::FakePlatform fake;
  std::string uuid = "(unchanged)";
  const auto expect_failure = [&](platform::FileSystemType type, const std::string& failing_call) {
    fake.volumes.own.type = type;
    fake.volumes.failing_calls = {failing_call};
    EXPECT_EQ(platform::sdk::GetVolumeUuid(fake.volumes, "/100%s", uuid), -1) << failing_call;
  };
  expect_failure(platform::FileSystemType::kEcryptfs, "");
  expect_failure(platform::FileSystemType::kExt4, "GetFileSystemType");
  expect_failure(platform::FileSystemType::kExt4, "GetShareBinPath");
  expect_failure(platform::FileSystemType::kExt4, "GetExtUuid");
  expect_failure(platform::FileSystemType::kBtrfs, "GetBtrfsUuid");
  fake.volumes.own.btrfs_magic = 0xABCULL;
  EXPECT_EQ(platform::sdk::GetOldBtrfsUuid(fake.volumes, "/100%s", uuid), -1);  // no real superblock
  EXPECT_EQ(uuid, "(unchanged)");
  EXPECT_THAT(sink.Texts(),
              ElementsAre("[ERROR] sdk-cpp(N): Unknow file system type: 3 ('/100%s')\n",
                          "[ERROR] sdk-cpp(N): Failed to get file system property from '/100%s'\n",
                          "[ERROR] sdk-cpp(N): Failed to get sharebin path of '/100%s'\n",
                          "[ERROR] btrfs/btrfs-old(N): Magic mismatch abc:4d5f53665248425f\n"));
}

}  // namespace
