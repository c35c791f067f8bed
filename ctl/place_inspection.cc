#include "ctl/place_inspection.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>

#include <cerrno>

#include "base/errno.h"
#include "base/file_descriptor.h"
#include "file-op/file_op.h"
#include "updater/framework/server_updater.h"
#include "updater/free_space.h"
#include "updater/service_status.h"

namespace ctl {
namespace {

using Kind = DatabaseSurvey::Kind;

constexpr int kLastWithoutMarkers = 2603;  // the updaters from there on expect the folders of the markers

bool IsFolder(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool IsLink(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

void NeedFolder(const std::string& path, Findings& findings) {
  if (IsFolder(path)) return;
  findings.push_back(
      {Severity::kProblem, "missing-folder", path, "this folder is missing: an upgrade would fail",
       "restore it from a backup; where nothing was in it, make it, with the owner and mode of "
       "the folder around it"});
}

void InspectMounts(const package::VolumePaths& paths, const platform::Platform& platform,
                   Findings& findings) {
  std::vector<std::string> mounts;
  if (platform.volumes.ListMountPoints(mounts) < 0) return;
  for (const std::string& mount : mounts) {
    if (mount != paths.package_folder && !mount.starts_with(paths.package_folder + "/")) continue;
    findings.push_back(
        {Severity::kProblem, "mount-point", mount,
         "something is mounted here: what is below it cannot be replaced, the upgrade would fail",
         "unmount it for the upgrade, with its content put in its place"});
  }
}

void InspectReplaceable(const std::string& path, Findings& findings) {
  if (IsLink(path)) {
    findings.push_back({Severity::kWarning, "link", path, "is a link",
                        "a linked folder is left out by an upgrade: put the folder itself in its place"});
  }
  if (file_op::CheckMovable(file_op::At(path)) == 0) return;
  const base::Errno error = base::Errno::Last();
  if (error.number() == EBUSY) return;  // told of as a mount point
  findings.push_back({Severity::kProblem, "cannot-be-replaced", path, "cannot be replaced: " + error.Text(),
                      "lsattr tells whether it is immutable or append-only; chattr changes that"});
}

// What a killed process would have given back; a daemon that lives holds it.
bool IsHeld(const std::string& lock) {
  const base::FileDescriptor file(open(lock.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  return file.is_open() && flock(file.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

// Where copies need no room of their own at first. To try it, as a rehearsal does, is to write.
bool CanShareBlocks(const std::string& folder) {
  struct statfs status {};
  return statfs(folder.c_str(), &status) == 0 &&
         (status.f_type == BTRFS_SUPER_MAGIC || status.f_type == XFS_SUPER_MAGIC);
}

}  // namespace

Findings InspectStart(const ServiceState& service, const package::VolumePaths& paths,
                      const platform::SystemPaths& system, const platform::Platform& platform) {
  Findings findings;
  platform::VolumeInfo info;
  if (platform.volumes.PLATMountVolInfoGet(paths.volume, info) < 0) {
    findings.push_back(
        {Severity::kProblem, "not-mounted", paths.volume, "is not a mounted volume",
         "give the mount point itself; updater-ctl rehearse --recorded and run take any folder"});
  }
  if (!service.is_enabled) {
    findings.push_back({Severity::kProblem, "not-enabled", system.package_enabled,
                        "the package is not enabled: a run would end at once", "enable the package"});
  } else if (service.status != updater::status::kInitializing) {
    findings.push_back({Severity::kProblem, "wrong-status", system.service_status,
                        "the status is \"" + service.status + "\": a run would end in \"upgradefail\"",
                        "the start-up scripts set it to \"initializing\"; by hand: sed -i "
                        "'s/^status=.*/status=\"initializing\"/' " +
                            system.service_status});
  }
  return findings;
}

Findings InspectNeededFolders(const package::PackagePaths& live, int version) {
  Findings findings;
  if (version <= kLastWithoutMarkers) {
    NeedFolder(live.sync_folder + package::kFilesFolder, findings);
    NeedFolder(live.sync_folder + package::kDeltasFolder, findings);
  }
  if (version >= updater::kSplitVersion) {
    NeedFolder(live.view_folder, findings);
    NeedFolder(live.file_folder, findings);
  } else {
    NeedFolder(live.sync_folder + package::kRemovalFolder, findings);
  }
  return findings;
}

Findings InspectFolders(const VolumeSurvey& survey, const package::VolumePaths& paths, int version,
                        const platform::Platform& platform) {
  Findings findings = InspectNeededFolders(paths.live, version);
  if (version < updater::kSplitVersion && file_op::FSExists(paths.live.view_folder)) {
    findings.push_back(
        {Severity::kProblem, "early-view-folder", paths.live.view_folder,
         "stands there before any updater makes one: views that have no folder in it would be lost",
         "move it away before the upgrade"});
  }
  InspectMounts(paths, platform, findings);
  struct statvfs space {};
  if (statvfs(paths.live.sync_folder.c_str(), &space) == 0 && (space.f_flag & ST_RDONLY) != 0) {
    findings.push_back({Severity::kProblem, "read-only", paths.volume, "the file system is read-only",
                        "look into the kernel's log for the reason, and mount it for writing"});
  }
  for (const std::string* folder :
       {&paths.live.sync_folder, &paths.live.view_folder, &paths.live.file_folder}) {
    InspectReplaceable(*folder, findings);
  }
  for (const DatabaseSurvey& database : survey.databases) {
    if (database.kind == Kind::kView) InspectReplaceable(paths.live.ViewFolder(database.name), findings);
    InspectReplaceable(database.path, findings);
  }
  return findings;
}

Findings InspectUse(const VolumeSurvey& survey, const platform::SystemPaths& system) {
  Findings findings;
  std::size_t with_logs = 0;
  for (const DatabaseSurvey& database : survey.databases) {
    if (database.user) {
      const std::string process =
          *database.user > 0 ? "process " + std::to_string(*database.user) : "a process";
      findings.push_back({Severity::kProblem, "in-use", database.path, process + " uses it",
                          "end it: an upgrade takes no lock against the package's daemons"});
      continue;
    }
    for (const auto& [suffix, bytes] : database.companions) {
      if (suffix != "-shm" && bytes > 0) ++with_logs;
    }
  }
  if (with_logs > 0) {
    findings.push_back({Severity::kNote, "logs-left", "",
                        "killed processes have left " + Count(with_logs, "log or journal") +
                            " at the databases; an upgrade takes in what they hold",
                        ""});
  }
  if (IsHeld(system.user_lock)) {
    findings.push_back(
        {Severity::kProblem, "lock-held", system.user_lock,
         "a process holds this lock: the check after an upgrade would wait five minutes and fail",
         "lslocks tells which one it is; end it"});
  }
  return findings;
}

Findings InspectSpace(const package::VolumePaths& paths) {
  const std::optional<updater::Space> space = updater::MeasureSpace(paths, paths.live.sync_folder);
  if (!space) {
    return {{Severity::kWarning, "unknown-space", paths.volume,
             "the free space is not told: " + base::Errno::Last().Text(), ""}};
  }
  const std::string text = "an upgrade needs about " + Bytes(static_cast<long long>(space->needed)) + ", " +
                           Bytes(static_cast<long long>(space->free)) + " are free";
  if (space->free >= space->needed) return {{Severity::kNote, "space", "", text, ""}};
  const bool has_no_room = space->free < space->databases && !CanShareBlocks(paths.live.sync_folder);
  return {{has_no_room ? Severity::kProblem : Severity::kWarning, "little-space", paths.volume, text,
           "make space; on btrfs the copies share their blocks, so that less may do"}};
}

}  // namespace ctl
