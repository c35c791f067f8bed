#include "db/mac_attribute.h"

#include <charconv>

namespace db {
namespace {

constexpr std::string_view kUuidKey = "uuid";
constexpr std::string_view kFileIdKey = "file_id";

std::string_view TextOf(sqlite3_value* value) {
  const void* text = sqlite3_value_text(value);  // NULL for NULL; the order of these two calls matters
  const int length = sqlite3_value_bytes(value);
  return text == nullptr ? std::string_view()
                         : std::string_view(static_cast<const char*>(text), static_cast<std::size_t>(length));
}

void GetUuid(sqlite3_context* context, int /*count*/, sqlite3_value** values) {
  const std::string_view uuid = MacAttributeValue(TextOf(values[0]), kUuidKey);
  // A null pointer would make the result NULL, which is not what "none" is.
  const char* text = uuid.empty() ? "" : uuid.data();
  sqlite3_result_text64(context, text, uuid.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

void GetFileId(sqlite3_context* context, int /*count*/, sqlite3_value** values) {
  const std::string_view text = MacAttributeValue(TextOf(values[0]), kFileIdKey);
  sqlite3_int64 id = 0;
  (void)std::from_chars(text.data(), text.data() + text.size(), id);  // no number is 0, as for none
  sqlite3_result_int64(context, id);
}

}  // namespace

std::string_view MacAttributeValue(std::string_view attribute, std::string_view key) {
  while (!attribute.empty()) {
    const std::size_t end = attribute.find('&');
    const std::string_view pair = attribute.substr(0, end);
    if (pair.starts_with(key) && pair.size() > key.size() && pair[key.size()] == '=') {
      return pair.substr(key.size() + 1);
    }
    attribute = end == std::string_view::npos ? std::string_view() : attribute.substr(end + 1);
  }
  return {};
}

db_util::Status RegisterMacAttributeFunctions(sqlite3* db) {
  constexpr int kFlags = SQLITE_UTF8 | SQLITE_DETERMINISTIC;
  const int code =
      sqlite3_create_function(db, "get_mac_attr_uuid", 1, kFlags, nullptr, GetUuid, nullptr, nullptr);
  if (code != SQLITE_OK) return db_util::StatusOf(code);
  return db_util::StatusOf(
      sqlite3_create_function(db, "get_mac_attr_file_id", 1, kFlags, nullptr, GetFileId, nullptr, nullptr));
}

}  // namespace db
