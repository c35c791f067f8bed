#include "updater/framework/updater_framework.h"

#include <cstdlib>
#include <ostream>

#include "db-util/database.h"
#include "db-util/query.h"
#include "updater/framework/update_graph.h"

namespace updater {
namespace {

// Every row overwrites the value, so the last one wins; without a row it keeps what it held.
bool ReadConfigValue(sqlite3* db, const std::string& query, std::string& value) {
  return db_util::ForEachRow(db, query,
                             [&value](sqlite3_stmt* row) {
                               value = db_util::ColumnText(row, 0);
                               return true;
                             })
      .ok();
}

}  // namespace

UpdaterFramework::UpdaterFramework(std::ostream& out, RunObserver* observer)
    : out_(out), observer_(observer) {}

void UpdaterFramework::AddUpdater(std::unique_ptr<AbstractUpdater> updater) {
  updaters_.push_back(std::move(updater));
}

int UpdaterFramework::GetCurrentVersion(const std::string& database_path, Version& out) {
  db_util::Database db;
  if (db_util::OpenQuietly(database_path, db, db_util::OpenMode::kReadOnly) != SQLITE_OK) return -1;
  std::string value;
  if (!ReadConfigValue(db.get(), "SELECT value FROM config_table WHERE key = 'branch';", value)) return -1;
  const std::string branch = value;
  // The value is not cleared in between: without a version row the branch is what gets parsed, and yields 0.
  if (!ReadConfigValue(db.get(), "SELECT value FROM config_table WHERE key = 'version';", value)) return -1;
  const int number = static_cast<int>(std::strtol(value.c_str(), nullptr, 10));
  if (number == 0) return -1;
  out = {branch, number};
  return 0;
}

int UpdaterFramework::Run(const Version& current, const Version& target) {
  if (current == target) return 0;
  UpdateGraph graph;
  graph.Build(updaters_);
  std::vector<AbstractUpdater*> path;
  if (graph.ShortestPath(current, target, path) < 0) {
    last_error_ = "GraphError: " + graph.GetLastError();
    return -1;
  }
  for (AbstractUpdater* updater : path) {
    if (updater == nullptr) return -1;
    if (RunUpdater(*updater) < 0) {
      last_error_ = "Error when updating from " + ToString(updater->GetFromVersion()) + " to " +
                    ToString(updater->GetToVersion()) + ": " + updater->GetLastError();
      return -2;
    }
  }
  return 0;
}

int UpdaterFramework::RunUpdater(AbstractUpdater& updater) {
  out_ << "updating from " << updater.GetFromVersion() << " to " << updater.GetToVersion() << std::endl;
  if (observer_ != nullptr) observer_->BeforeUpdate(updater);
  const int result = updater.Update();
  if (observer_ != nullptr) observer_->AfterUpdate(updater, result);
  return result;
}

}  // namespace updater
