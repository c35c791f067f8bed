#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logger/recording_sink.h"
#include "platform/sdk/volume_uuid.h"
#include "tests/support/fake_platform.h"

namespace {

using ::testing::ElementsAre;

TEST(Sdk, EveryFailureLeavesTheUuidAsItWas) {
  logger::RecordingSink sink;
  const logger::ScopedSink scope(sink);
  tests::FakePlatform fake;
  std::string uuid = "(unchanged)";
  const auto expect_failure = [&](const std::string& path, const std::vector<std::string>& failing_calls) {
    fake.volumes.failing_calls = {failing_calls.begin(), failing_calls.end()};
    EXPECT_EQ(platform::sdk::GetVolumeUuid(fake.volumes, path, uuid), -1) << path;
  };
  fake.volumes.volumes["/volume2"].type = platform::FileSystemType::kBtrfs;
  fake.volumes.volumes["/volume4"].type = platform::FileSystemType::kEcryptfs;
  fake.volumes.everywhere.btrfs_magic = 0xABCULL;
  expect_failure("/volume4", {});
  expect_failure("/100%s", {"GetFileSystemType"});
  expect_failure("/volume1", {"GetShareBinPath"});
  expect_failure("/volume1", {"GetExtUuid"});
  expect_failure("/volume2", {"GetBtrfsUuid"});
  EXPECT_EQ(platform::sdk::GetOldBtrfsUuid(fake.volumes, "/volume1", uuid), -1);  // no real superblock
  EXPECT_EQ(uuid, "(unchanged)");
  EXPECT_THAT(sink.Texts(),
              ElementsAre("[ERROR] sdk-cpp(N): Unknow file system type: 3 ('/volume4')\n",
                          "[ERROR] sdk-cpp(N): Failed to get file system property from '/100%s'\n",
                          "[ERROR] sdk-cpp(N): Failed to get sharebin path of '/volume1'\n",
                          "[ERROR] btrfs/btrfs-old(N): Magic mismatch abc:4d5f53665248425f\n"));
}

}  // namespace
