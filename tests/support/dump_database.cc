#include <cctype>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "db-util/database.h"
#include "db-util/query.h"
#include "tests/support/fixtures.h"

namespace tests {
namespace {

namespace fs = std::filesystem;

// Blanks outside quotes say nothing: one between words, none beside punctuation.
std::string NormalizeSql(std::string_view sql) {
  constexpr std::string_view kPunctuation = "(),;|=!<>";
  std::string text;
  bool quoted = false;
  bool blank = false;
  for (const char letter : sql) {
    if (!quoted && std::isspace(static_cast<unsigned char>(letter)) != 0) {
      blank = true;
      continue;
    }
    const bool joins = text.empty() || kPunctuation.find(text.back()) != std::string_view::npos ||
                       kPunctuation.find(letter) != std::string_view::npos;
    if (blank && !joins) text += ' ';
    blank = false;
    if (letter == '\'') quoted = !quoted;
    text += letter;
  }
  return text;
}

template <typename... Args>
std::string Sql(const logger::SqlFormat<Args...>& format, const Args&... args) {
  std::string text;
  if (!db_util::FormatSql<Args...>(text, format, args...))
    throw std::runtime_error("cannot make a statement");
  return text;
}

class Dumper {
 public:
  explicit Dumper(const std::string& path) : path_(path) {
    // Read-write: a read-only connection to a database with a write-ahead log would leave the log behind.
    if (db_util::OpenQuietly(path, db_, db_util::OpenMode::kReadWrite) != SQLITE_OK) {
      throw std::runtime_error("cannot open " + path);
    }
  }

  std::string Dump() {
    List("journal mode ", "PRAGMA journal_mode");
    List("auto_vacuum ", "PRAGMA auto_vacuum");
    List("integrity ", "PRAGMA integrity_check");
    for (const std::string& table : Rows("SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT "
                                         "LIKE 'sqlite@_%' ESCAPE '@' ORDER BY name")) {
      DumpTable(table);
    }
    if (Has("sqlite_sequence"))
      List("sequence ", "SELECT name || ' ' || seq FROM sqlite_sequence WHERE seq > 0 ORDER BY 1");
    if (Has("sqlite_stat1"))
      List("analysed ", "SELECT DISTINCT tbl || ' ' || coalesce(idx, '') FROM sqlite_stat1 ORDER BY 1");
    return out_;
  }

 private:
  std::vector<std::string> Rows(const std::string& sql) {
    std::vector<std::string> rows;
    const db_util::QueryResult result = db_util::ForEachRow(db_.get(), sql, [&](sqlite3_stmt* row) {
      rows.push_back(db_util::ColumnText(row, 0));
      return true;
    });
    if (!result.ok()) throw std::runtime_error(path_ + ": " + result.message + ": " + sql);
    return rows;
  }

  bool Has(const std::string& table) {
    return !Rows(Sql("SELECT 1 FROM sqlite_master WHERE name = %Q", table)).empty();
  }

  void List(const std::string& head, const std::string& sql) {
    for (const std::string& row : Rows(sql)) out_ += head + NormalizeSql(row) + '\n';
  }

  void DumpTable(const std::string& table) {
    out_ += "table " + table + '\n';
    List(" column ",
         Sql("SELECT name || ' ' || type || ' not null ' || \"notnull\" || ' key ' || pk || ' default ' || "
             "coalesce(dflt_value, 'none') FROM pragma_table_xinfo(%Q)",
             table));
    DumpClauses(table);
    List(
        " reference ",
        Sql("SELECT \"from\" || ' to ' || \"table\" || '.' || \"to\" FROM pragma_foreign_key_list(%Q) ORDER BY 1",
            table));
    List(
        " index ",
        Sql("SELECT CASE origin WHEN 'c' THEN name ELSE origin END || ' unique ' || \"unique\" || ' partial ' || "
            "partial || ':' || (SELECT group_concat(' ' || coalesce(name, '-') || ' ' || coll || ' ' || desc) "
            "FROM pragma_index_xinfo(list.name) WHERE key = 1) FROM pragma_index_list(%Q) AS list ORDER BY 1",
            table));
    List(" ",
         Sql("SELECT sql FROM sqlite_master WHERE type = 'trigger' AND tbl_name = %Q ORDER BY name", table));
    DumpRows(table);
  }

  // No pragma tells what a column does on a conflict, how it compares and that it counts on: the text of the
  // column does.
  void DumpClauses(const std::string& table) {
    const std::string sql =
        NormalizeSql(Rows(Sql("SELECT upper(sql) FROM sqlite_master WHERE name = %Q", table)).front());
    for (const char* clause : {" ON CONFLICT ", ")ON CONFLICT ", " COLLATE ", " AUTOINCREMENT"}) {
      for (std::size_t at = sql.find(clause); at != std::string::npos; at = sql.find(clause, at + 1)) {
        const std::size_t start = sql.find_last_of("(,", at) + 1;
        out_ += " clause " + sql.substr(start, sql.find_first_of(",)", at + 1) - start) + '\n';
      }
    }
  }

  // quote() tells the types apart: 1, '1', 1.0 and X'31'.
  void DumpRows(const std::string& table) {
    std::string row = "''";
    for (const std::string& column : Rows(Sql("SELECT name FROM pragma_table_xinfo(%Q)", table))) {
      row += Sql(" || '%q=' || quote(\"%s\") || ' '", column, column);
    }
    List(" row ", Sql("SELECT %s FROM %Q ORDER BY 1", row, table));
  }

  std::string path_;
  db_util::Database db_;
  std::string out_;
};

}  // namespace

Dumps DumpPackage(const updater::server::WorkingCopies& where) {
  std::map<std::string, std::string> paths = {
      {"data", where.data}, {"log", where.log}, {"user", where.user}, {"client", where.client}};
  if (!fs::exists(where.log)) paths.erase("log");
  const auto add = [&paths](const std::string& folder, const std::string& head, const char* database) {
    if (!fs::exists(folder)) return;
    for (const auto& entry : fs::directory_iterator(folder)) {
      paths[head + entry.path().filename().string()] = entry.path() / database;
    }
  };
  add(where.view_folder, "view/", "view-db.sqlite");
  add(where.file_folder, "file/", "file-db.sqlite");
  Dumps dumps;
  for (const auto& [name, path] : paths) dumps[name] = Dumper(path).Dump();
  return dumps;
}

}  // namespace tests
