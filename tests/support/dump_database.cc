#include <algorithm>
#include <cctype>
#include <filesystem>
#include <sstream>
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
  const auto is_blank = [](char letter) { return std::isspace(static_cast<unsigned char>(letter)) != 0; };
  std::string text;
  bool quoted = false;
  bool blank = false;
  for (const char letter : sql) {
    if (!quoted && is_blank(letter)) {
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
    for (const std::string& table :
         Query("SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite@_%' ESCAPE '@' "
               "ORDER BY name")) {
      DumpTable(table);
    }
    if (Has("sqlite_sequence"))
      List("sequence ", "SELECT name || ' ' || seq FROM sqlite_sequence WHERE seq > 0 ORDER BY 1");
    if (Has("sqlite_stat1")) {
      List("analysed ", "SELECT DISTINCT tbl || ' ' || coalesce(idx, '') FROM sqlite_stat1 ORDER BY 1");
    }
    return out_.str();
  }

 private:
  std::vector<std::string> Query(const std::string& sql) {
    std::vector<std::string> rows;
    const db_util::QueryResult result = db_util::ForEachRow(db_.get(), sql, [&](sqlite3_stmt* row) {
      rows.push_back(db_util::ColumnText(row, 0));
      return true;
    });
    if (!result.ok()) throw std::runtime_error(path_ + ": " + result.message + ": " + sql);
    return rows;
  }

  bool Has(const std::string& table) {
    return !Query(Sql("SELECT 1 FROM sqlite_master WHERE name = %Q", table)).empty();
  }

  void List(const std::string& head, const std::string& sql) {
    for (const std::string& row : Query(sql)) out_ << head << row << '\n';
  }

  void DumpTable(const std::string& table) {
    out_ << "table " << table << '\n';
    const std::vector<std::string> columns = Query(Sql("SELECT name FROM pragma_table_xinfo(%Q)", table));
    DumpColumns(table, columns);
    List(
        " reference ",
        Sql("SELECT \"from\" || ' to ' || \"table\" || '.' || \"to\" FROM pragma_foreign_key_list(%Q) ORDER BY 1",
            table));
    DumpConflictClauses(table);
    List(
        " index ",
        Sql("SELECT CASE origin WHEN 'c' THEN name ELSE origin END || ' unique ' || \"unique\" || ' partial ' || "
            "partial || ':' || (SELECT group_concat(' ' || coalesce(name, '-') || ' ' || coll || ' ' || desc) "
            "FROM pragma_index_xinfo(list.name) WHERE key = 1) FROM pragma_index_list(%Q) AS list ORDER BY 1",
            table));
    for (const std::string& trigger :
         Query(Sql("SELECT sql FROM sqlite_master WHERE type = 'trigger' AND tbl_name = %Q ORDER BY name",
                   table))) {
      out_ << " " << NormalizeSql(trigger) << '\n';
    }
    DumpRows(table, columns);
  }

  void DumpColumns(const std::string& table, const std::vector<std::string>& columns) {
    for (const std::string& column : columns) {
      const char* type = nullptr;
      const char* collation = nullptr;
      int not_null = 0;
      int primary = 0;
      int autoincrement = 0;
      if (sqlite3_table_column_metadata(db_.get(), "main", table.c_str(), column.c_str(), &type, &collation,
                                        &not_null, &primary, &autoincrement) != SQLITE_OK) {
        throw std::runtime_error(path_ + ": no column " + column);
      }
      const std::string initial =
          Query(Sql("SELECT coalesce(dflt_value, 'none') FROM pragma_table_xinfo(%Q) WHERE name = %Q", table,
                    column))
              .front();
      out_ << " column " << column << ' ' << type << " collate " << collation << " not null " << not_null
           << " key " << primary << " autoincrement " << autoincrement << " default " << NormalizeSql(initial)
           << '\n';
    }
  }

  // No pragma tells what a column does on a conflict.
  void DumpConflictClauses(const std::string& table) {
    constexpr std::string_view kClause = "ON CONFLICT ";
    const std::string sql =
        NormalizeSql(Query(Sql("SELECT upper(sql) FROM sqlite_master WHERE name = %Q", table)).front());
    for (std::size_t at = sql.find(kClause); at != std::string::npos; at = sql.find(kClause, at + 1)) {
      const std::size_t action = at + kClause.size();
      out_ << " on conflict " << sql.substr(action, sql.find_first_of(" ,)", action) - action) << '\n';
    }
  }

  // quote() tells the types apart: 1, '1', 1.0 and X'31'.
  void DumpRows(const std::string& table, const std::vector<std::string>& columns) {
    std::string row = "''";
    for (const std::string& column : columns) {
      row += Sql(" || '%q=' || quote(\"%s\") || ' '", column, column);
    }
    List(" row ", Sql("SELECT %s FROM %Q ORDER BY 1", row, table));
  }

  std::string path_;
  db_util::Database db_;
  std::ostringstream out_;
};

void DumpFolders(const std::string& folder, const std::string& database, const std::string& head,
                 std::map<std::string, std::string>& dumps) {
  if (!fs::exists(folder)) return;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    dumps[head + entry.path().filename().string()] = DumpDatabase(entry.path() / database);
  }
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

::testing::AssertionResult SameText(const std::string& name, const std::string& expected,
                                    const std::string& actual) {
  const std::vector<std::string> wanted = Lines(expected);
  const std::vector<std::string> found = Lines(actual);
  for (std::size_t line = 0; line < std::max(wanted.size(), found.size()); ++line) {
    const std::string want = line < wanted.size() ? wanted[line] : "(end)";
    const std::string have = line < found.size() ? found[line] : "(end)";
    if (want != have) {
      return ::testing::AssertionFailure()
             << "database " << name << ", line " << line + 1 << " of its text:\n"
             << "  expected: " << want << "\n  actual:   " << have;
    }
  }
  return ::testing::AssertionSuccess();
}

}  // namespace

std::string DumpDatabase(const std::string& path) { return Dumper(path).Dump(); }

std::map<std::string, std::string> DumpPackage(const updater::server::WorkingCopies& where) {
  std::map<std::string, std::string> dumps = {{"data", DumpDatabase(where.data)},
                                              {"user", DumpDatabase(where.user)},
                                              {"client", DumpDatabase(where.client)}};
  if (fs::exists(where.log)) dumps["log"] = DumpDatabase(where.log);
  DumpFolders(where.view_folder, "view-db.sqlite", "view/", dumps);
  DumpFolders(where.file_folder, "file-db.sqlite", "file/", dumps);
  return dumps;
}

::testing::AssertionResult SamePackage(const std::map<std::string, std::string>& expected,
                                       const std::map<std::string, std::string>& actual) {
  for (const auto& [name, text] : actual) {
    if (!expected.contains(name)) return ::testing::AssertionFailure() << "unexpected database " << name;
  }
  for (const auto& [name, text] : expected) {
    const auto found = actual.find(name);
    if (found == actual.end()) return ::testing::AssertionFailure() << "missing database " << name;
    if (::testing::AssertionResult same = SameText(name, text, found->second); !same) return same;
  }
  return ::testing::AssertionSuccess();
}

}  // namespace tests
