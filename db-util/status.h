// How a call into SQLite ended.
#pragma once

#include <sqlite3.h>

#include <string>

namespace db_util {

struct [[nodiscard]] Status {
  enum class Call { kOther, kPrepare, kStep };

  int code = SQLITE_OK;
  std::string message = {};   // SQLite's words for the failure; empty after a success
  Call call = Call::kOther;   // the one that failed
  std::string database = {};  // of a script: what the failing statement works on, "data_db (/path)"

  [[nodiscard]] bool ok() const { return code == SQLITE_OK; }
  // Somebody else has a lock. Extended codes tell more in their upper bytes.
  [[nodiscard]] bool IsBusy() const { return (static_cast<unsigned>(code) & 0xFFU) == SQLITE_BUSY; }
  // "sqlite3_prepare_v2" or "sqlite3_step", for messages about queries.
  [[nodiscard]] const char* FailedCall() const {
    return call == Call::kPrepare ? "sqlite3_prepare_v2" : "sqlite3_step";
  }
};

// The status of a code, with SQLite's general words for it.
inline Status StatusOf(int code) {
  return {.code = code, .message = code == SQLITE_OK ? std::string() : sqlite3_errstr(code)};
}

// The status of a call that has just failed on the connection, with what this one says of it.
inline Status FailureOf(sqlite3* db, int code, Status::Call call) {
  return {.code = code, .message = sqlite3_errmsg(db), .call = call};
}

}  // namespace db_util
