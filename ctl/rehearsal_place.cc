#include "ctl/rehearsal_place.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <filesystem>

#include "base/errno.h"
#include "base/path.h"
#include "ctl/look_arguments.h"
#include "ctl/quiet_package.h"
#include "ctl/refuse.h"
#include "ctl/volume_folder.h"
#include "file-op/file_op.h"
#include "logger/recording_sink.h"
#include "updater/working_copies.h"

namespace ctl {
namespace {

using package::PackagePaths;

constexpr const char* kPrefix = "@updater-ctl-rehearsal-";

bool SharesBlocks(const std::string& file, const std::string& folder) {
  const base::FileDescriptor source(open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  const base::FileDescriptor target(open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR));
  return source.is_open() && target.is_open() && ioctl(target.get(), FICLONE, source.get()) == 0;
}

int CheckRoom(const package::VolumePaths& from, const std::string& folder, Room& room, std::string& error) {
  const std::optional<updater::Space> space = updater::MeasureSpace(from, folder);
  if (!space) {
    return Refuse(error, "cannot tell the free space of " + folder + ": " + base::Errno::Last().Text());
  }
  room = {.space = *space, .shares_blocks = SharesBlocks(from.live.data, folder)};
  if (room.Needed() <= room.space.free) return 0;
  return Refuse(error, "too little room in " + base::FolderOf(folder) + ": about " +
                           Bytes(static_cast<long long>(room.Needed())) + " are needed, " +
                           Bytes(static_cast<long long>(room.space.free)) +
                           " are free; --into takes a folder elsewhere");
}

// Makes the folder `to` with the owner and mode of `from`.
bool MakeLike(const std::string& from, const std::string& to, std::string& error) {
  file_op::Folder model;
  file_op::Folder made;
  if (model.Open(file_op::At(from), 0) == 0 && made.Make(to) == 0 && made.TakeOwnerAndMode(model) == 0) {
    return true;
  }
  error = "cannot make " + to + " like " + from + ": " + base::Errno::Last().Text();
  return false;
}

bool IsDatabaseFolder(const std::string& path, const PackagePaths& paths) {
  return path == paths.view_folder || path == paths.file_folder;
}

// The updaters make marker files in folders that have to be there. What the folders hold is of no use here.
bool MakeFolderBeside(const std::filesystem::directory_entry& entry, const std::string& to,
                      Findings& findings, std::string& error) {
  const std::string from = entry.path().string();
  std::error_code failure;
  if (!entry.is_directory(failure)) return true;
  if (entry.is_symlink(failure)) {
    findings.push_back({Severity::kNote, "linked-folder", from,
                        "it is a link; the rehearsal has an empty folder in its place", ""});
  }
  const std::filesystem::path marker = entry.path() / ".0";
  if (!MakeLike(from, to, error)) return false;
  if (std::filesystem::is_symlink(marker, failure)) {  // is refused, and not followed
    std::filesystem::copy_symlink(marker, to + "/.0", failure);
  } else if (std::filesystem::exists(marker, failure)) {
    (void)file_op::FSMakeEmptyFile(to + "/.0");  // one that is missing changes nothing
  }
  return true;
}

bool MakeFoldersBeside(const PackagePaths& from, const PackagePaths& to, Findings& findings,
                       std::string& error) {
  std::error_code failure;
  for (std::filesystem::directory_iterator entry(from.sync_folder, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    const std::string name = entry->path().filename().string();
    const bool is_copied = IsDatabaseFolder(entry->path().string(), from) || name.ends_with(".bak");
    if (!is_copied && !MakeFolderBeside(*entry, to.sync_folder + "/" + name, findings, error)) return false;
  }
  if (failure) error = "cannot list " + from.sync_folder + ": " + failure.message();
  return !failure;
}

bool CopyDatabases(const PackagePaths& from, const PackagePaths& to) {
  const auto copy_folder = [&](auto copy, const std::string& source, const std::string& target) {
    return file_op::Find(file_op::At(source)) == 0 || copy(source, target) == 0;
  };
  return updater::BackupDatabaseFile(from.user, to.user) == 0 &&
         updater::BackupDatabaseFile(from.data, to.data) == 0 &&
         updater::BackupDatabaseFile(from.log, to.log) == 0 &&
         copy_folder(updater::BackupViewFolder, from.view_folder, to.view_folder) &&
         updater::BackupDatabaseFile(from.client, to.client) == 0 &&
         copy_folder(updater::BackupFileFolder, from.file_folder, to.file_folder);
}

}  // namespace

int TakeRehearsalPlace(const std::string& volume, const std::optional<std::string>& into,
                       const platform::SystemPaths& system, RehearsalPlace& place, std::string& error) {
  if (FindPackage(volume, place.volume, error) < 0) return -1;
  const package::VolumePaths paths(place.volume);
  std::string target;
  if (into && FindStateFolder(*into, place.volume, target, error) < 0) return -1;
  if (LockFolder(place.volume, place.lock, error) < 0 || CheckNoUpgrade(system, error) < 0 ||
      CheckNoCommit(paths, error) < 0 ||
      (into ? place.folder.Take(target, error) : place.folder.MakeIn(place.volume, kPrefix, error)) < 0 ||
      CheckRoom(paths, place.folder.path(), place.room, error) < 0) {
    return -1;
  }
  place.paths = platform::SystemPaths::Under(place.folder.path() + "/@updater-ctl");
  return 0;
}

int CopyPackage(const package::VolumePaths& from, const package::VolumePaths& to, Findings& findings,
                std::string& error) {
  logger::RecordingSink log;
  const logger::ScopedSink sink(log);
  const std::string client = base::FolderOf(from.live.client);
  if (!MakeLike(from.package_folder, to.package_folder, error) ||
      !MakeLike(from.live.sync_folder, to.live.sync_folder, error) ||
      (file_op::FSExists(client) && !MakeLike(client, base::FolderOf(to.live.client), error)) ||
      !MakeFoldersBeside(from.live, to.live, findings, error)) {
    return -1;
  }
  if (!CopyDatabases(from.live, to.live)) {
    error = "the databases cannot be copied: " + TextOf(log);
    return -1;
  }
  // What is passed over here would be by an upgrade.
  for (const auto& [priority, text] : log.lines()) {
    findings.push_back({Severity::kWarning, "copy-warning", "", text.substr(0, text.find('\n')), ""});
  }
  return 0;
}

}  // namespace ctl
