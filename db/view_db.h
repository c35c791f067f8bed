// A view database of the current layout on SQLite.
#pragma once

#include <memory>
#include <string>

#include "db-util/database.h"
#include "db/manager.h"

namespace db {

class SqliteViewDb : public ViewDBInterface {
 public:
  // For Open(): takes a connection whose layout was checked and whose functions are registered.
  explicit SqliteViewDb(db_util::Database db) : db_(std::move(db)) {}

  // Opens the file; null when it is missing, is no database, or not a view database of the current layout.
  [[nodiscard]] static std::shared_ptr<SqliteViewDb> Open(const std::string& path);

  [[nodiscard]] int DeleteRecordWithUuid(const std::string& uuid) override;

  // Whoever still holds the object gets failures from now on.
  void Close() { db_.reset(); }

 private:
  db_util::Database db_;
};

// True when every one of the tables is there and the stored version is the current one. Logs why not.
[[nodiscard]] bool HasLayout(sqlite3* db, const std::string& path, const std::string& table_names,
                             int table_count);

}  // namespace db
