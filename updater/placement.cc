#include "updater/placement.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <tuple>
#include <vector>

#include "base/path.h"
#include "db-util/checkpoint.h"
#include "db-util/database_files.h"
#include "file-op/file_op.h"
#include "logger/log_sink.h"
#include "updater/framework/stored_version.h"
#include "updater/framework/suspended_logs.h"
#include "updater/framework/views.h"
#include "updater/intent_file.h"
#include "updater/placement_items.h"
#include "updater/placement_targets.h"
#include "updater/working_copies.h"

namespace updater {
namespace {

using logger::CheckErrno;
using package::PackagePaths;
using package::VolumePaths;

constexpr std::array<PartPath, 6> kAllParts = {&PackagePaths::data,        &PackagePaths::user,
                                               &PackagePaths::log,         &PackagePaths::client,
                                               &PackagePaths::view_folder, &PackagePaths::file_folder};

// A file without companions is the whole database as it is, and there may be thousands of them: it is not
// opened. Those of a live database behind a link lie beside the file itself.
bool IsWhole(const std::string& database, db_util::Links links) {
  if (db_util::HasCompanions(database)) return false;
  if (links == db_util::Links::kTrusted) return true;
  std::error_code unknown;
  const std::filesystem::path file = std::filesystem::canonical(database, unknown);
  return unknown || !db_util::HasCompanions(file);
}

using CheckpointOperation = int (*)(const std::string&, db_util::Links);

// `paths` are those of the copies, or the live ones that they replace.
bool CheckpointAll(CheckpointOperation checkpoint, const PackagePaths& paths, const PackagePaths& copies,
                   db_util::Links links) {
  const auto make_whole = [&](const std::string& database) {
    return IsWhole(database, links) || checkpoint(database, links) == 0;
  };
  return std::all_of(kDatabases.begin(), kDatabases.end(),
                     [&](PartPath database) {
                       return file_op::Find(file_op::At(copies.*database)) == 0 ||
                              make_whole(paths.*database);
                     }) &&
         ForEachFolderDatabase(paths, make_whole);
}

bool CheckpointCopies(const PackagePaths& copies) {
  return CheckpointAll(db_util::CheckpointDatabase, copies, copies, db_util::Links::kTrusted);
}

// A loss of power must find each of them with its log or with what was in it, and there may be thousands, so
// they are flushed together.
bool CheckpointLive(const VolumePaths& paths, const FileSystems& file_systems, PlacementKind kind) {
  const PackagePaths& replaced = kind == PlacementKind::kRestore ? paths.live : paths.copies;
  const auto checkpoint_all = [&](CheckpointOperation checkpoint) {
    return CheckpointAll(checkpoint, paths.live, replaced, db_util::Links::kAny);
  };
  return file_systems.Flush() && checkpoint_all(db_util::WriteBackLog) && file_systems.Flush() &&
         checkpoint_all(db_util::CheckpointDatabase) && file_systems.Flush();
}

int PlaceDatabase(const std::string& copy, const std::string& live) {
  if (MoveIntoPlace(copy, live) < 0) return -1;  // logged; or there is no copy
  // The checkpoints have left no companions, so there are some only if somebody opened a database since. One
  // that cannot be removed has to stay: the database is in place by now.
  (void)db_util::RemoveCompanions(live);
  (void)db_util::RemoveCompanions(copy);
  return 0;
}

// A folder is renamed first: a part of one would be taken for somebody else's change. What stays of it by the
// name of the copy is removed by the next who makes copies.
int RemoveLive(const std::string& copy, const std::string& live, bool is_folder) {
  const bool is_removed =
      is_folder ? std::rename(live.c_str(), copy.c_str()) == 0 : RemoveDatabaseFiles(live) == 0;
  if (!CheckErrno(is_removed ? 0 : -1, "cannot remove %s: %s (%d)\n", live)) return -1;
  if (is_folder) (void)file_op::FSRemoveTree(copy, 0);
  return 0;
}

int PlaceItem(const VolumePaths& paths, const IntentItem& item) {
  const auto [copy, live] = PathsOf(paths, item);
  if (item.goes) return RemoveLive(copy, live, item.is_folder());
  if (item.is_view()) {
    return RestoreView(paths.copies.view_folder, paths.live.view_folder, base::NameOf(item.part));
  }
  // The view folder was not there, but may be by now.
  const bool is_folder = item.part == kViewsPart || item.part == kFilesPart;
  if (is_folder) return RestoreFileFolder(copy, live);
  // Nobody has written to the live database, so a journal beside it has nothing to give back. After the move
  // it would be the new database's, should this run be killed, too.
  return CheckErrno(db_util::RemoveCompanions(live), "cannot remove companion files of %s: %s (%d)\n", live)
             ? PlaceDatabase(copy, live)
             : -1;
}

struct Progress {
  std::vector<IntentItem> pending;
  std::size_t moved = 0;
  std::vector<IntentItem> changed;

  // Nothing was moved, and by now it must not be.
  [[nodiscard]] bool is_obsolete() const { return moved == 0 && (pending.empty() || !changed.empty()); }
};

bool GetProgress(const VolumePaths& paths, const Intent& intent, Progress& progress) {
  return std::all_of(intent.begin(), intent.end(), [&](const IntentItem& item) {
    ItemState state{};
    if (!GetItemState(paths, item, state)) return false;
    if (state == ItemState::kPending) progress.pending.push_back(item);
    if (state == ItemState::kChanged) progress.changed.push_back(item);
    if (state == ItemState::kDone && (item.copy.exists() || item.goes)) ++progress.moved;
    return true;
  });
}

// One that cannot be placed does not keep the others back.
bool PlaceItems(const VolumePaths& paths, const std::vector<IntentItem>& items) {
  bool placed = true;
  for (const IntentItem& item : items) placed = PlaceItem(paths, item) == 0 && placed;
  return placed;
}

bool Finish(const VolumePaths& paths, const Progress& progress) {
  for (const IntentItem& item : progress.changed) {
    logger::SystemLog("%s was changed after a run was stopped that replaced it, and is left as it is\n",
                      PathsOf(paths, item).live);
  }
  const bool placed = PlaceItems(paths, progress.pending);
  const std::size_t all = progress.pending.size() + progress.moved + progress.changed.size();
  // Parts of two versions are for somebody to look at, and need what there is of both.
  if (!placed || !progress.changed.empty()) {
    logger::SystemLog("cannot finish what a former run was putting in place\n");
    return false;
  }
  logger::SystemLog("finished what a former run was putting in place: %d of %d parts were left\n",
                    static_cast<int>(progress.pending.size()), static_cast<int>(all));
  return true;
}

constexpr int kMostSetAside = 100;

// What a damaged intent told of may be all that there is of some parts, and the rest is of another version.
// Returns whether there were any, after logging each of them.
bool SetCopiesAside(const VolumePaths& paths) {
  bool any = false;
  for (const PartPath part : kAllParts) {
    const std::string& copy = paths.copies.*part;
    if (file_op::Find(file_op::At(copy)) == 0) continue;
    std::string target = copy + ".set-aside";
    // What was set aside before may be the only one, too.
    for (int i = 2; file_op::Find(file_op::At(target)) != 0 && i < kMostSetAside; ++i) {
      target = copy + ".set-aside." + std::to_string(i);
    }
    const bool moved =
        file_op::Find(file_op::At(target)) == 0 && std::rename(copy.c_str(), target.c_str()) == 0;
    logger::SystemLog("%s may be the only copy of its part and is %s\n", copy,
                      moved ? "set aside as " + target : "left where it is");
    any = true;
  }
  return any;
}

// The moves make databases of the current version, whichever of them are made first.
bool IsNothingMoved(const PackagePaths& live) {
  return std::none_of(kDatabases.begin(), kDatabases.end(), [&](PartPath database) {
    Version version;
    return file_op::Find(file_op::At(live.*database)) != 0 &&
           (ReadStoredVersion(live.*database, version) < 0 || version.number == package::kCurrentVersion);
  });
}

}  // namespace

int PreparePlacement(const VolumePaths& paths, const FileSystems& file_systems, PlacementKind kind) {
  Intent intent;
  // The first flush of those for the live databases is the one that brings the copies to the disk, the last
  // one is for the logs: one that comes back after a power failure would be taken for a later change. The
  // list is made again because they are other files now.
  return logger::ToResult(CheckpointCopies(paths.copies) && ResumeLogs(paths.copies) &&
                          ListItems(paths, kind, intent) && CanReplaceTargets(paths, intent) &&
                          CheckpointLive(paths, file_systems, kind) && ListItems(paths, kind, intent) &&
                          WriteIntent(paths, intent));
}

void PlaceWorkingCopies(const VolumePaths& paths, const FileSystems& file_systems) {
  const auto& [live, copies] = std::tie(paths.live, paths.copies);
  // All of them log their failures; the rest goes in place all the same.
  for (const PartPath database : kDatabases) (void)PlaceDatabase(copies.*database, live.*database);
  (void)RestoreViewFolder(copies.view_folder, live.view_folder);
  (void)RestoreFileFolder(copies.file_folder, live.file_folder);
  Intent intent;
  IntentFound found{};
  Progress progress;
  if (!ReadIntent(paths, found, intent) || found != IntentFound::kValid ||
      !GetProgress(paths, intent, progress)) {
    return;
  }
  // A move that has failed is tried once more: the check after this writes to what is live, and a later run
  // would take that for somebody else's. What is covered by a mount now is there again when that is gone.
  if (!PlaceItems(paths, progress.pending) || !progress.changed.empty()) return;
  // What no view has taken; the next run removes what stays.
  (void)file_op::FSRemoveTree(copies.view_folder, 0);
  if (file_systems.Flush()) RemoveIntent(paths);
}

int FinishFormerPlacement(const VolumePaths& paths) {
  Intent intent;
  IntentFound found{};
  Progress progress;
  if (!ReadIntent(paths, found, intent)) return -1;
  if (found == IntentFound::kNone) return 0;
  if (found == IntentFound::kValid && !GetProgress(paths, intent, progress)) return -1;
  if (found == IntentFound::kUnusable || progress.is_obsolete()) {
    SetIntentAside(paths);
    return logger::ToResult(found == IntentFound::kValid || IsNothingMoved(paths.live) ||
                            !SetCopiesAside(paths));
  }
  FileSystems file_systems;
  file_systems.Open(paths);
  if (!Finish(paths, progress) || !file_systems.Flush()) return -1;
  RemoveIntent(paths);
  return 0;
}

void AcceptLiveChanges(const VolumePaths& paths) {
  Intent intent;
  IntentFound found{};
  if (!ReadIntent(paths, found, intent) || found != IntentFound::kValid) return;
  bool is_changed = false;
  for (IntentItem& item : intent) {
    bool is_other = false;
    if (!AcceptLive(paths, item, is_other)) return;
    is_changed |= is_other;
  }
  if (is_changed) (void)AppendIntent(paths, intent);  // logged; the one before counts
}

int RemoveStaleCopies(const VolumePaths& paths) {
  for (const PartPath part : kAllParts) {
    if (RemoveStaleCopy(paths.live.*part, paths.copies.*part) < 0) return -1;
  }
  return 0;
}

int RemoveAllCopies(const VolumePaths& paths) {
  const std::string nothing;
  for (const PartPath part : kAllParts) {
    if (RemoveStaleCopy(nothing, paths.copies.*part) < 0) return -1;
  }
  return 0;
}

}  // namespace updater
