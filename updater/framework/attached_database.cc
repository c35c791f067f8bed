#include "updater/framework/attached_database.h"

#include <unistd.h>

#include <algorithm>
#include <string_view>

#include "db-util/log_mode.h"
#include "file-op/file_op.h"
#include "logger/check.h"
#include "updater/framework/exec_sql.h"

namespace updater {
namespace {

constexpr long long kLeastCacheKiB = 16LL * 1024;
constexpr long long kLargestCacheKiB = 96LL * 1024;
constexpr long long kShareOfMemory = 16;

// Rows of the data database are looked up, and the connection's own database tells how much is sorted at once
// for an index; the others are read and written from the first page to the last.
int CacheKiB(std::string_view schema) {
  if (schema == "data_db") return DataCacheKiB();
  return schema == "main" ? DataCacheKiB() / 3 : DataCacheKiB() / 12;
}

}  // namespace

int DataCacheKiB() {
  const long long memory_kib = sysconf(_SC_PHYS_PAGES) * (sysconf(_SC_PAGESIZE) / 1024LL);
  return static_cast<int>(std::clamp(memory_kib / kShareOfMemory, kLeastCacheKiB, kLargestCacheKiB));
}

db_util::Status Tune(sqlite3* db, const char* schema) {
  const std::string pragma = std::string("PRAGMA ") + schema + ".";
  if (db_util::LogModeOf(db, schema) != db_util::LogMode::kInUse) db_util::UseNoJournal(db, schema);
  return db_util::Execute(db, pragma + "synchronous = OFF;" + pragma + "secure_delete = OFF;" + pragma +
                                  "cache_size = -" + std::to_string(CacheKiB(schema)) + ";");
}

db_util::Status OpenEmpty(db_util::Database& out) {
  db_util::Status status = db_util::OpenQuietly(":memory:", out, db_util::OpenMode::kReadWrite);
  if (!status.ok()) return status;
  db_util::UseAlone(out.get());
  return Tune(out.get(), "main");
}

db_util::Status OpenReader(const std::string& path, int cache_kib, db_util::Database& out) {
  db_util::Status status = OpenEmpty(out);
  if (status.ok()) status = AttachQuietly(out.get(), "data_db", path);
  const std::string cache = "PRAGMA data_db.cache_size = -" + std::to_string(cache_kib) +
                            ";PRAGMA main.cache_size = -" + std::to_string(cache_kib / 3) + ";";
  return status.ok() ? db_util::Execute(out.get(), cache) : status;
}

bool MakeIfMissing(const std::string& path, const std::string& like) {
  if (file_op::FSExists(path)) return false;
  file_op::Folder above;
  std::string name;
  base::FileDescriptor made;
  if (file_op::OpenAround(path, above, name) == 0) (void)file_op::MakeFileLike(above.In(name), like, made);
  return true;
}

std::string AttachStatement(const char* schema, const std::string& path) {
  std::string attach;
  (void)db_util::FormatSql(attach, "ATTACH DATABASE %Q AS %s;", path, schema);  // else it stays empty
  return attach;
}

db_util::Status AttachQuietly(sqlite3* db, const char* schema, const std::string& path) {
  const std::string attach = AttachStatement(schema, path);
  if (attach.empty()) return db_util::StatusOf(SQLITE_NOMEM);
  db_util::Status status = db_util::Execute(db, attach);
  if (status.ok() && db_util::LogModeOf(db, schema) == db_util::LogMode::kInUse) {
    // Whoever is the last to leave a log moves it into the database, and need not wait for the disk.
    status = db_util::Execute(
        db, std::string("PRAGMA ") + schema + ".synchronous = OFF; DETACH DATABASE " + schema + ";");
    (void)db_util::SuspendLog(path);  // with its log it only takes longer
    if (status.ok()) status = db_util::Execute(db, attach);
  }
  return status.ok() ? Tune(db, schema) : status;
}

int AttachDatabase(sqlite3* db, const char* schema, const std::string& path) {
  return logger::ToResult(CheckScript(AttachQuietly(db, schema, path), AttachStatement(schema, path)));
}

std::string AttachedScript(const char* schema, const std::string& path, const std::string& body) {
  return AttachStatement(schema, path) + body + "DETACH DATABASE " + schema + ";";
}

db_util::Status ExecAttachedQuietly(sqlite3* db, const char* schema, const std::string& path,
                                    const std::string& body) {
  const char* const data = sqlite3_db_filename(db, "data_db");
  if (data != nullptr) (void)MakeIfMissing(path, data);
  const db_util::Status status = AttachQuietly(db, schema, path);
  return status.ok() ? db_util::Execute(db, body + "DETACH DATABASE " + schema + ";") : status;
}

int ExecAttached(sqlite3* db, const char* schema, const std::string& path, const std::string& body) {
  const db_util::Status status = ExecAttachedQuietly(db, schema, path, body);
  return logger::ToResult(status.ok() || CheckScript(status, AttachedScript(schema, path, body)));
}

}  // namespace updater
