#include "db/mac_attribute.h"

#include <charconv>
#include <string_view>

#include "base/text.h"
#include "db-util/argument_text.h"

namespace db {
namespace {

constexpr std::string_view kUuidKey = "uuid=";
constexpr std::string_view kFileIdKey = "file_id=";

// The value of the first pair in the list that begins with `key`; empty when there is none.
std::string_view ValueOf(std::string_view attribute, std::string_view key) {
  while (!attribute.empty()) {
    const std::string_view pair = base::TakeUntil(attribute, "&");
    if (pair.starts_with(key)) return pair.substr(key.size());
  }
  return {};
}

void GetUuid(sqlite3_context* context, int /*count*/, sqlite3_value** values) {
  const std::string_view uuid = ValueOf(db_util::ArgumentText(values[0]), kUuidKey);
  // The result must be an empty text, and SQLite makes NULL of a null pointer.
  const char* text = uuid.empty() ? "" : uuid.data();
  sqlite3_result_text64(context, text, uuid.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

void GetFileId(sqlite3_context* context, int /*count*/, sqlite3_value** values) {
  const std::string_view text = ValueOf(db_util::ArgumentText(values[0]), kFileIdKey);
  sqlite3_int64 id = 0;
  (void)std::from_chars(text.data(), text.data() + text.size(), id);  // what is no number leaves 0
  sqlite3_result_int64(context, id);
}

}  // namespace

db_util::Status RegisterMacAttributeFunctions(sqlite3* db) {
  constexpr int kFlags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;  // for the trigger
  const int code =
      sqlite3_create_function(db, "get_mac_attr_uuid", 1, kFlags, nullptr, GetUuid, nullptr, nullptr);
  if (code != SQLITE_OK) return db_util::StatusOf(code);
  return db_util::StatusOf(
      sqlite3_create_function(db, "get_mac_attr_file_id", 1, kFlags, nullptr, GetFileId, nullptr, nullptr));
}

}  // namespace db
