// The machine as a rehearsal sees it: the real one, read only, but that the copies take the place of the
// volume.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "platform/host/host_accounts.h"
#include "platform/host/host_services.h"
#include "platform/host/host_shares.h"
#include "platform/host/host_state_files.h"
#include "platform/host/host_volumes.h"
#include "platform/memory/memory_platform.h"
#include "platform/platform.h"
#include "platform/system_paths.h"

namespace ctl {

// Answers for every path at or below `copies` what the machine answers for the one at or below `volume`.
class RehearsalVolumes : public platform::Volumes {
 public:
  RehearsalVolumes(const platform::SystemPaths& system, std::string volume, std::string copies)
      : host_(system), volume_(std::move(volume)), copies_(std::move(copies)) {}

  [[nodiscard]] int PLATMountVolInfoGet(const std::string& path, platform::VolumeInfo& info) override;
  [[nodiscard]] int GetShareBinPath(const std::string& path, std::string& bin_path) override;
  [[nodiscard]] int GetFileSystemType(const std::string& path, platform::FileSystemType& type) override;
  [[nodiscard]] int GetBtrfsUuid(const std::string& path, platform::FileSystemUuid& uuid) override;
  [[nodiscard]] int ReadBtrfsSuperblock(const std::string& path,
                                        platform::BtrfsSuperblock& superblock) override;
  [[nodiscard]] int GetExtUuid(const std::string& path, std::string& uuid) override;
  [[nodiscard]] int ListMountPoints(std::vector<std::string>& mount_points) override;

 private:
  [[nodiscard]] std::string Real(const std::string& path) const;

  platform::host::HostVolumes host_;
  std::string volume_;
  std::string copies_;
};

// Nobody is allowed the application: it is only noted who would be.
class RehearsalMachine {
 public:
  // `system` has the real machine's paths.
  RehearsalMachine(const platform::SystemPaths& system, const std::string& volume, const std::string& copies)
      : volumes_(system, volume, copies), accounts_(system), services_(system), shares_(system) {}

  [[nodiscard]] platform::Platform& platform() { return platform_; }
  [[nodiscard]] const std::set<std::string>& allowed() const { return app_privilege_.allowed; }

 private:
  RehearsalVolumes volumes_;
  platform::host::HostStateFiles state_files_;
  platform::memory::MemoryAppPrivilege app_privilege_;
  platform::host::HostAccounts accounts_;
  platform::host::HostServices services_;
  platform::host::HostShares shares_;
  platform::Platform platform_{volumes_, state_files_, app_privilege_, accounts_, services_, shares_};
};

}  // namespace ctl
