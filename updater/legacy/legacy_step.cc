#include "updater/legacy/legacy_step.h"

#include <algorithm>

#include "db-util/checkpoint.h"
#include "db-util/log_mode.h"
#include "file-op/file_op.h"
#include "updater/framework/attached_database.h"
#include "updater/framework/exec_sql.h"
#include "updater/framework/updater_log.h"

namespace updater::legacy {
namespace {

using package::PackagePaths;

const std::string& PathOf(const PackagePaths& copies, Database database) {
  if (database == Database::kData) return copies.data;
  return database == Database::kUser ? copies.user : copies.client;
}

// Attaches it so that what is done can be undone.
db_util::Status AttachWithJournal(sqlite3* db, Database database, const std::string& path) {
  const char* const schema = SchemaOf(database);
  db_util::Status status = AttachQuietly(db, schema, path);
  // A log that could not be suspended undoes by itself, and the mode must stay in the file.
  if (!status.ok() || db_util::LogModeOf(db, schema) == db_util::LogMode::kInUse) return status;
  return db_util::Execute(db, std::string("PRAGMA ") + schema + ".journal_mode = DELETE;");
}

}  // namespace

int LegacyStep::Run(const PackagePaths& copies) const {
  const ScopedUpdaterName name("V" + std::to_string(number()));
  Judgements judgements;
  for (const Database database : kDatabases) {
    const std::string& path = PathOf(copies, database);
    if (!row_.Gets(database) || file_op::Find(file_op::At(path)) == 0) continue;
    // Whoever only looks at it has to roll it back in memory, each time anew. If that fails, so does the
    // look.
    if (file_op::Find(file_op::At(path + "-journal")) != 0) (void)db_util::CheckpointDatabase(path);
    judgements[database] = JudgeFile(path, database, number());
  }
  return logger::ToResult(Accept(copies, judgements) && Change(copies, judgements));
}

bool LegacyStep::Refuse(const std::string& path, const std::string& reason) const {
  constexpr std::size_t kLongestPart = 400;  // so that the line is not cut where the reason stands
  return Check(false, "V%d: database %s cannot be brought to 2577: %s\n", number(),
               logger::CutInTheMiddle(path, kLongestPart), logger::CutInTheMiddle(reason, kLongestPart));
}

bool LegacyStep::Accept(const PackagePaths& copies, const Judgements& judgements) const {
  const auto below =
      std::ranges::find_if(judgements, [](const auto& found) { return found.second.IsBelow(); });
  for (const auto& [database, judgement] : judgements) {
    if (!judgement.refusal.empty()) return Refuse(PathOf(copies, database), judgement.refusal);
  }
  for (const auto& [database, judgement] : judgements) {
    if (below != judgements.end() && judgement.version > kLayoutVersion) {
      return Refuse(PathOf(copies, below->first),
                    "it is at version " + std::to_string(below->second.version) + " beside a " +
                        SchemaOf(database) + " at " + std::to_string(judgement.version));
    }
  }
  for (const Database database : {Database::kData, Database::kUser}) {
    if (below == judgements.end() || !row_.Gets(database) || judgements.contains(database)) continue;
    return Refuse(PathOf(copies, database), "there is no such file");
  }
  const auto data = judgements.find(Database::kData);
  const auto user = judgements.find(Database::kUser);
  if (data == judgements.end() || user == judgements.end()) return true;
  const std::string reason = RefusalOfBoth(data->second, user->second);
  return reason.empty() || Refuse(copies.user, reason);
}

bool LegacyStep::Change(const PackagePaths& copies, const Judgements& judgements) const {
  const bool is_complete =
      std::ranges::all_of(judgements, [](const auto& found) { return found.second.script.empty(); });
  if (is_complete) return true;
  db_util::Database db;
  if (!CheckScript(OpenEmpty(db), "open")) return false;
  const bool is_changed = ChangeAttached(db.get(), copies, judgements);
  const bool is_open = sqlite3_get_autocommit(db.get()) == 0;
  // What cannot be rolled back here is when the connection is closed.
  if (is_open && !is_changed) (void)db_util::Execute(db.get(), "ROLLBACK;");
  return is_changed;
}

// Judged again, now that nobody else can change them, and once more when that is done.
bool LegacyStep::ChangeAttached(sqlite3* db, const PackagePaths& copies, const Judgements& judgements) const {
  for (const auto& [database, judgement] : judgements) {
    if (judgement.script.empty()) continue;
    const std::string& path = PathOf(copies, database);
    if (!CheckScript(AttachWithJournal(db, database, path), AttachStatement(SchemaOf(database), path)))
      return false;
  }
  if (ExecScript(db, "BEGIN IMMEDIATE TRANSACTION;") < 0) return false;
  std::string changed;
  for (const auto& [database, before] : judgements) {
    if (before.script.empty()) continue;
    const std::string& path = PathOf(copies, database);
    const Judgement now = Judge(db, SchemaOf(database), database, number());
    if (!now.refusal.empty()) return Refuse(path, now.refusal);
    if (ExecScript(db, now.script) < 0) return false;
    const Judgement after = Judge(db, SchemaOf(database), database, number());
    if (!after.refusal.empty()) return Refuse(path, after.refusal);
    if (!after.script.empty()) return Refuse(path, "it has not taken its change");
    changed += (changed.empty() ? "" : ", ") + path;
  }
  db_util::Status end = db_util::Execute(db, "END TRANSACTION;");
  end.database = changed;  // SQLite does not tell which one
  return CheckScript(end, "END TRANSACTION;");
}

}  // namespace updater::legacy
