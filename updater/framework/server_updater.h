// The frame of every server updater.
//
// An updater works on all databases of the package through one connection: the frame opens a scratch
// database, attaches the working copies under fixed schema names (data_db, log_db, user_db, client_db),
// checks that they agree on their version and that it is the one the unit starts from, runs the unit's steps
// in order, writes the new version and branch into every database, looks whether they are there, and
// disconnects. A unit holds its edge, its SQL and its steps; it neither opens, checks, nor closes anything of
// the frame's.
//
// Steps tell with true that they went well; Update() makes 0 or -1 of it. Every failure is logged where it
// happens, and the frame adds the line of the step that failed. On failure the working copies may be damaged:
// they have no journal. A database whose version cannot be read is named, with the reason.
//
// How to add an updater: docs/adding-an-updater.md.
#pragma once

#include <functional>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "db-util/database.h"
#include "logger/format.h"
#include "package/layout.h"
#include "platform/platform.h"
#include "updater/framework/abstract_updater.h"
#include "updater/framework/version_writing.h"

namespace updater {

using package::kMasterBranch;
using package::PackagePaths;

// What every updater is given besides its paths. Borrowed; outlives the updater.
struct UpdaterContext {
  std::string scratch_database;
  std::ostream& out;  // the progress lines of the run
  platform::Platform& platform;
};

enum class DatabaseSet { kWithoutLog, kWithLog };

// Which databases get the new version and branch.
enum class VersionScope {
  kThree,  // data, user, client
  kFour,   // data, user, client, log
  kAll,    // the four, then every view and file database found in the folders
};

enum class SuccessLine { kStandardOutput, kSystemLog };

// The updater to this version moves the activity log to a database of its own.
inline constexpr int kLogVersion = 3300;
// The updater to this version replaces the data database by a database for each view and others.
inline constexpr int kSplitVersion = 3400;
// The updater to this version replaces the tables of nodes and versions of every view. The number stays when
// the current version is raised; keep it so.
inline constexpr int kRebuiltViewsVersion = 4150;

struct Edge {
  Version from;
  Version to;
  DatabaseSet databases;
  VersionScope scope;
  SuccessLine success;
};

// The edge of a layout whose whole file tree is in the data database.
[[nodiscard]] inline Edge EarlyEdge(Version from, Version to, DatabaseSet databases) {
  return {std::move(from), std::move(to), databases, VersionScope::kThree, SuccessLine::kStandardOutput};
}

// The edge of a layout with a database for each view and each volume, which all get the new version.
[[nodiscard]] inline Edge FolderEdge(int from, int to, SuccessLine success) {
  return {{kMasterBranch, from}, {kMasterBranch, to}, DatabaseSet::kWithLog, VersionScope::kAll, success};
}

class ServerUpdater : public AbstractUpdater {
 public:
  [[nodiscard]] int Update() final;
  void SetChain(const Version& start, const Version& end) final {
    chain_start_ = start.number;
    chain_end_ = end.number;
  }
  [[nodiscard]] Version GetFromVersion() const final { return edge_.from; }
  [[nodiscard]] Version GetToVersion() const final { return edge_.to; }

 protected:
  // One step, and the text that it logs when it fails, with the source line on which that is written down.
  struct Step {
    std::function<bool()> run;
    logger::PrintfFormat<> failure;
  };

  // `paths` are those of the working copies.
  ServerUpdater(const UpdaterContext& context, Edge edge, const PackagePaths& paths);

  // The unit's own steps in order, between the version check and the version write.
  [[nodiscard]] virtual std::vector<Step> Steps() = 0;
  // Called after the connection is closed and before the paths are emptied, also after a failed run. The run
  // fails where it returns false, after logging why.
  [[nodiscard]] virtual bool AfterDisconnect() { return true; }

  // Opens the scratch database and attaches the working copies.
  [[nodiscard]] bool Connect();
  // Ends the transaction that a failed script left open, detaches, closes, removes the scratch database; does
  // nothing when not connected. Keeps the paths.
  void Detach();

  // Whether the split is still to come in this run, or is this updater. An updater alone leads to its own
  // version and no further.
  [[nodiscard]] bool SplitFollows() const {
    return edge_.from.number < kSplitVersion && chain_end_ >= kSplitVersion;
  }
  // Whether the split of this run makes all view databases, with the tables that 4100 to 4150 would make of
  // theirs. Only for updaters up to that one.
  [[nodiscard]] bool ViewsAreNew() const {
    return chain_start_ < kSplitVersion && chain_end_ >= kRebuiltViewsVersion;
  }

  [[nodiscard]] sqlite3* db() const { return db_.get(); }
  [[nodiscard]] const PackagePaths& paths() const { return paths_; }
  [[nodiscard]] platform::Platform& platform() const { return context_.platform; }

 private:
  struct Versions {
    Version data;
    Version user;
    Version client;
  };

  [[nodiscard]] bool AttachDatabases();
  [[nodiscard]] bool Disconnect();
  [[nodiscard]] bool RunConnected();
  [[nodiscard]] bool RunSteps();
  [[nodiscard]] bool ForgetStatistics();
  [[nodiscard]] bool CheckVersions();
  [[nodiscard]] bool HaveNewVersions();
  [[nodiscard]] bool ReadVersions(Versions& versions);
  [[nodiscard]] bool GetDatabaseVersions(Versions& versions) const;
  // Logs which databases have no version that can be read, and why.
  void NameUnreadableDatabases() const;
  [[nodiscard]] bool UpdateDatabaseVersions() const;
  [[nodiscard]] bool WritesFolderVersions() const;
  [[nodiscard]] bool WriteVersions(const std::vector<const char*>& schemas) const;
  void ReportSuccess() const;

  UpdaterContext context_;
  Edge edge_;
  PackagePaths paths_;
  int chain_start_ = edge_.from.number;
  int chain_end_ = edge_.to.number;
  db_util::Database db_;
  std::vector<std::string> missing_;  // the files that attaching made
  bool names_unreadable_ = false;
};

}  // namespace updater
