// Tells what is in databases, so that two volumes can be compared.
//
//   volume-digest <database>...
//
// One line for every table of each: its rows and a digest that does not depend on their order. One line for
// every entry of the schema, and for every setting that the file keeps.
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>

#include "db-util/database.h"
#include "db-util/query.h"

namespace {

constexpr std::array kSettings = {"journal_mode", "auto_vacuum",    "page_size",
                                  "encoding",     "application_id", "user_version"};

// Two halves of 64 bits, each with a start of its own: rows that differ have different digests.
struct Digest {
  std::uint64_t low = 0;
  std::uint64_t high = 0;
};

class RowHash {
 public:
  void Add(std::string_view bytes) {
    AddNumber(bytes.size());
    for (const char byte : bytes) Mix(static_cast<unsigned char>(byte));
  }
  void AddNumber(std::uint64_t number) {
    for (int i = 0; i < 8; ++i) Mix(static_cast<unsigned char>(number >> (8 * i)));
  }
  [[nodiscard]] Digest value() const { return {Spread(low_), Spread(high_)}; }

 private:
  void Mix(unsigned char byte) {
    low_ = (low_ ^ byte) * 0x100000001b3ULL;
    high_ = (high_ + byte) * 0x9e3779b97f4a7c15ULL;
    high_ ^= high_ >> 29;
  }
  // Sums of values whose upper bits hardly differ would cancel out.
  static std::uint64_t Spread(std::uint64_t value) {
    value = (value ^ (value >> 33)) * 0xff51afd7ed558ccdULL;
    return value ^ (value >> 33);
  }

  std::uint64_t low_ = 0xcbf29ce484222325ULL;
  std::uint64_t high_ = 0x243f6a8885a308d3ULL;
};

std::string_view Bytes(sqlite3_stmt* row, int column) {
  const void* const bytes = sqlite3_column_blob(row, column);
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(row, column));
  return bytes == nullptr ? std::string_view() : std::string_view(static_cast<const char*>(bytes), size);
}

Digest DigestOf(sqlite3_stmt* row) {
  RowHash hash;
  for (int column = 0; column < sqlite3_column_count(row); ++column) {
    const int type = sqlite3_column_type(row, column);
    hash.AddNumber(static_cast<std::uint64_t>(type));
    if (type == SQLITE_INTEGER) {
      hash.AddNumber(static_cast<std::uint64_t>(sqlite3_column_int64(row, column)));
    } else {
      hash.Add(Bytes(row, column));
    }
  }
  return hash.value();
}

// One database. Whatever fails ends the program: half a digest is none.
class Reader {
 public:
  explicit Reader(const std::string& path) : path_(path) {
    sqlite3* db = nullptr;
    const int code = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
    db_.reset(db);
    if (code != SQLITE_OK) Fail();
  }

  void Print() {
    std::map<std::string, std::string> tables;  // by name, with the schema's text
    std::map<std::string, std::string> others;
    ForEach("SELECT name, type, ifnull(sql, '') FROM sqlite_schema;", [&](sqlite3_stmt* row) {
      auto& entries = Bytes(row, 1) == "table" ? tables : others;
      entries[std::string(Bytes(row, 0))] = Bytes(row, 2);
    });
    for (const auto& [name, sql] : tables) PrintTable(name, sql);
    for (const auto& [name, sql] : others) PrintLine(name, sql);
    for (const char* setting : kSettings) {
      ForEach(std::string("PRAGMA ") + setting + ";",
              [&](sqlite3_stmt* row) { PrintLine(setting, std::string(Bytes(row, 0))); });
    }
  }

 private:
  void PrintTable(const std::string& name, const std::string& sql) {
    unsigned long long rows = 0;
    Digest sum;
    ForEach("SELECT * FROM \"" + name + "\";", [&](sqlite3_stmt* row) {
      const Digest digest = DigestOf(row);
      sum.low += digest.low;
      sum.high += digest.high;
      ++rows;
    });
    std::printf("%s\t%s\t%llu rows\t%016llx%016llx\n", path_.c_str(), name.c_str(), rows,
                static_cast<unsigned long long>(sum.low), static_cast<unsigned long long>(sum.high));
    PrintLine(name, sql);
  }

  void PrintLine(const std::string& name, const std::string& text) {
    std::string line = text;
    for (char& character : line) {
      if (character == '\n') character = ' ';
    }
    std::printf("%s\t%s\t%s\n", path_.c_str(), name.c_str(), line.c_str());
  }

  template <typename Take>
  void ForEach(const std::string& sql, Take take) {
    sqlite3_stmt* prepared = nullptr;
    if (sqlite3_prepare_v2(db_.get(), sql.c_str(), -1, &prepared, nullptr) != SQLITE_OK) Fail();
    const db_util::Statement statement(prepared);
    int code = SQLITE_OK;
    while ((code = sqlite3_step(prepared)) == SQLITE_ROW) take(prepared);
    if (code != SQLITE_DONE) Fail();
  }

  [[noreturn]] void Fail() {
    std::fprintf(stderr, "volume-digest: %s: %s\n", path_.c_str(), sqlite3_errmsg(db_.get()));
    std::exit(EXIT_FAILURE);
  }

  std::string path_;
  db_util::Database db_;
};

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) Reader(argv[i]).Print();
  return EXIT_SUCCESS;
}
