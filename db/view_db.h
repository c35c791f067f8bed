// A view database of the current layout on SQLite.
#pragma once

#include <memory>
#include <string>

#include "db-util/database.h"
#include "db/view_db_interface.h"

namespace db {

class SqliteViewDb : public ViewDBInterface {
 public:
  // For Open(): takes a connection whose layout was checked and whose functions are registered.
  explicit SqliteViewDb(db_util::Database db) : db_(std::move(db)) {}

  // Opens the file. Returns null, after logging, when it is missing, is no database, or not a view database
  // of the current layout.
  [[nodiscard]] static std::shared_ptr<SqliteViewDb> Open(const std::string& path);

  [[nodiscard]] int DeleteRecordWithUuid(const std::string& uuid) override;

  // Whoever still holds the object gets failures from now on.
  void Close() { db_.reset(); }

 private:
  db_util::Database db_;
};

}  // namespace db
