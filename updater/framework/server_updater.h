// The frame of every server updater.
//
// An updater works on all databases of the package through one connection: the frame opens a scratch
// database, attaches the working copies under fixed schema names (data_db, log_db, user_db, client_db),
// checks that they agree on their version and that it is the one the unit starts from, runs the unit's steps
// in order, writes the new version and branch into every database, and disconnects. A unit holds its edge,
// its SQL and its steps; it neither opens, checks, nor closes anything of the frame's.
//
// Results are 0 or -1; every failure is logged where it happens, and the frame adds the line of the step that
// failed. On failure the working copies stay as the last statement left them; a transaction that a script
// left open is rolled back. A database whose version cannot be read is named, with the reason.
//
// How to add an updater:
//  1. Make updater/server/svr_updater_<from>to<to>.{h,cc} with a class SvrUpdater<from>to<to> that is a
//     ServerUpdater.
//  2. Give its Edge to the constructor: the versions, the database set, how far the version write
//     reaches, and where success is reported.
//  3. Put its SQL at the top of the .cc, one statement per source line; what another unit uses too goes to
//     updater/server/sql/.
//  4. Return its steps, with the text each one logs when it fails, from Steps().
//  5. Add it to the table in updater/server/registration.cc and to updater/server/CMakeLists.txt.
//  6. Write tests/data/<to>/ by hand, and a test beside the unit with rows that would show a wrong statement.
#pragma once

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "db-util/database.h"
#include "logger/updater_log.h"
#include "platform/platform.h"
#include "updater/framework/abstract_updater.h"

namespace updater {

// The working copies that an updater changes. Empty where its database set has none.
struct DatabasePaths {
  std::string data;
  std::string log;
  std::string user;
  std::string client;
};

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

struct Edge {
  Version from;
  Version to;
  DatabaseSet databases;
  VersionScope scope;
  SuccessLine success;
};

class ServerUpdater : public AbstractUpdater {
 public:
  [[nodiscard]] int Update() final;
  [[nodiscard]] Version GetFromVersion() const final { return edge_.from; }
  [[nodiscard]] Version GetToVersion() const final { return edge_.to; }

 protected:
  // A text that a failing step logs, with the source line on which it is written down.
  using FailureText = logger::PrintfFormat<>;

  struct Step {
    std::function<int()> run;
    FailureText failure;
  };

  ServerUpdater(const UpdaterContext& context, Edge edge, DatabasePaths paths);

  // The unit's own steps, between the version check and the version write.
  [[nodiscard]] virtual std::vector<Step> Steps() = 0;
  // Called after the connection is closed and before the paths are emptied, also after a failed run.
  virtual void AfterDisconnect() {}
  // Writes the new version into the view and file databases; only with VersionScope::kAll. Logs its failures.
  [[nodiscard]] virtual int UpdateFolderVersions() { return 0; }
  // Lists what UpdateFolderVersions() writes to, before the first version is written. Logs its failures.
  [[nodiscard]] virtual int ListVersionFolders() { return 0; }

  // Runs steps in order; the first failure logs its text and ends with -1.
  [[nodiscard]] static int RunSteps(const std::vector<Step>& steps);

  // Opens the scratch database and attaches the working copies.
  [[nodiscard]] int Connect();
  // Rolls back what a failed script left open, detaches, closes, removes the scratch database; does nothing
  // when not connected. Keeps the paths.
  void Detach();

  [[nodiscard]] sqlite3* db() const { return db_.get(); }
  [[nodiscard]] const DatabasePaths& paths() const { return paths_; }
  [[nodiscard]] platform::Platform& platform() const { return context_.platform; }

  // Makes or truncates an empty file; its folder must exist, and a link in its place is not followed: the
  // folders belong to the service, and this runs as root. On failure logs
  // "failed to open file(%s): %s\n" and returns -1.
  [[nodiscard]] static int CreateEmptyFile(const std::string& path);
  // The text before the last "/" of the path; logs "invalid path %s\n" and returns empty text when there is
  // none.
  [[nodiscard]] static std::string GetParentDir(const std::string& path);

 private:
  struct Versions {
    Version data;
    Version user;
    Version client;
  };

  [[nodiscard]] int AttachDatabases();
  void Disconnect();
  [[nodiscard]] int RunConnected();
  [[nodiscard]] int CheckVersions();
  [[nodiscard]] int GetDatabaseVersions(Versions& versions) const;
  // Logs which databases have no version that can be read, and why.
  void NameUnreadableDatabases() const;
  [[nodiscard]] int UpdateDatabaseVersions();
  void ReportSuccess() const;

  UpdaterContext context_;
  Edge edge_;
  DatabasePaths paths_;
  db_util::Database db_;
  std::vector<std::string> missing_;  // the files that attaching made
};

}  // namespace updater
