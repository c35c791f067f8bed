#include "db-util/image.h"

#include "db-util/look.h"
#include "db-util/query.h"

namespace db_util {
namespace {

const auto kIgnoreRow = [](sqlite3_stmt* /*row*/) { return true; };

// Takes the log in. The connection that looks keeps what it writes to itself, and who else looks at the
// database meanwhile is not disturbed.
Status TakeLogIn(sqlite3* db) {
  bool is_busy = false;
  Status status = ForEachRow(db, "PRAGMA wal_checkpoint(TRUNCATE);", [&is_busy](sqlite3_stmt* row) {
    is_busy = sqlite3_column_int(row, 0) != 0;
    return true;
  });
  return status.ok() && is_busy ? StatusOf(SQLITE_BUSY) : status;
}

}  // namespace

Status DatabaseImage::Open(const std::string& path) {
  Status status = OpenToLook(path, db_);
  // The first page that is read has the journal rolled back, and the lock stays until the end.
  if (status.ok()) status = ForEachRow(db_.get(), "PRAGMA schema_version;", kIgnoreRow);
  if (status.ok()) status = TakeLogIn(db_.get());
  if (!status.ok()) return status;
  const int code = sqlite3_file_control(db_.get(), "main", SQLITE_FCNTL_FILE_POINTER, &file_);
  return StatusOf(code != SQLITE_OK ? code : file_->pMethods->xFileSize(file_, &size_));
}

bool DatabaseImage::Read(void* out, int length, sqlite3_int64 at) const {
  return file_->pMethods->xRead(file_, out, length, at) == SQLITE_OK;
}

}  // namespace db_util
