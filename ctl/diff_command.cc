#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>

#include "ctl/commands.h"
#include "ctl/database_diff.h"
#include "ctl/diff_source.h"
#include "ctl/look_arguments.h"
#include "ctl/output.h"
#include "ctl/stop_signals.h"
#include "ctl/version_graph.h"

namespace ctl {
namespace {

struct DiffArguments {
  std::string a;
  std::string b;
  int rows = 5;
  bool is_json = false;
};

std::string VersionOr(bool is_there, const std::optional<updater::Version>& version) {
  return is_there ? Printable(TextOf(version)) : "not there";
}

void PrintRows(const char* what, long long count, const std::vector<TableDiff::Row>& rows,
               std::ostream& out) {
  if (count == 0) return;
  out << "    " << what << ": " << Count(static_cast<std::size_t>(count), "row") << "\n";
  for (const TableDiff::Row& row : rows) {
    out << "      " << Printable(row.key) << "\n";
    for (const std::string& column : row.columns) out << "        " << Printable(column) << "\n";
  }
  if (count > static_cast<long long>(rows.size())) out << "      ...\n";
}

void PrintTable(const TableDiff& table, std::ostream& out) {
  out << "  " << Printable(table.table) << ", by " << Printable(table.key) << ": A "
      << Count(static_cast<std::size_t>(table.rows_a), "row") << ", B "
      << Count(static_cast<std::size_t>(table.rows_b), "row") << "\n";
  PrintRows("only in A", table.only_a, table.first_only_a, out);
  PrintRows("only in B", table.only_b, table.first_only_b, out);
  PrintRows("changed, A -> B", table.changed, table.first_changed, out);
}

void PrintDatabase(const DatabaseDiff& diff, std::ostream& out) {
  if (diff.is_equal()) return;
  out << (diff.name.empty() ? "database" : Printable(diff.name));
  const std::string a = VersionOr(diff.is_in_a, diff.version_a);
  const std::string b = VersionOr(diff.is_in_b, diff.version_b);
  out << (a == b ? "  " + a : "  A " + a + ", B " + b) << "\n";
  for (const std::string& error : diff.errors) out << "  cannot be compared: " << Printable(error) << "\n";
  for (const std::string& object : diff.schema) out << "  " << Printable(object) << "\n";
  for (const TableDiff& table : diff.tables) PrintTable(table, out);
}

Json RowJson(const std::vector<TableDiff::Row>& rows) {
  Json list = Json::array();
  for (const TableDiff::Row& row : rows) list.push_back({{"key", row.key}, {"columns", row.columns}});
  return list;
}

Json DatabaseJson(const DatabaseDiff& diff) {
  Json json = {{"name", diff.name},
               {"equal", diff.is_equal()},
               {"in_a", diff.is_in_a},
               {"in_b", diff.is_in_b},
               {"version_a", ToJson(diff.version_a)},
               {"version_b", ToJson(diff.version_b)},
               {"schema", diff.schema},
               {"errors", diff.errors},
               {"tables", Json::array()}};
  for (const TableDiff& table : diff.tables) {
    json["tables"].push_back({{"table", table.table},
                              {"key", table.key},
                              {"rows_a", table.rows_a},
                              {"rows_b", table.rows_b},
                              {"only_a", table.only_a},
                              {"only_b", table.only_b},
                              {"changed", table.changed},
                              {"first_only_a", RowJson(table.first_only_a)},
                              {"first_only_b", RowJson(table.first_only_b)},
                              {"first_changed", RowJson(table.first_changed)}});
  }
  return json;
}

std::string PathIn(const DiffSource& source, const std::string& name) {
  const auto found = source.databases().find(name);
  return found == source.databases().end() ? "" : found->second;
}

int Report(const DiffArguments& arguments, const DiffSource& a, const DiffSource& b, const Streams& streams) {
  std::set<std::string> names;
  for (const DiffSource* source : {&a, &b}) {
    for (const auto& [name, path] : source->databases()) names.insert(name);
  }
  Json json = NewDocument("diff");
  json["a"] = {{"path", arguments.a}, {"kind", a.kind()}};
  json["b"] = {{"path", arguments.b}, {"kind", b.kind()}};
  json["databases"] = Json::array();
  if (!arguments.is_json) {
    streams.out << "A  " << Printable(arguments.a) << ", " << a.kind() << "\n"
                << "B  " << Printable(arguments.b) << ", " << b.kind() << "\n";
  }
  std::size_t equal = 0;
  bool is_compared = true;
  for (const std::string& name : names) {
    const DatabaseDiff diff =
        CompareDatabases(name, PathIn(a, name), PathIn(b, name), static_cast<std::size_t>(arguments.rows));
    if (diff.is_equal()) ++equal;
    is_compared = is_compared && diff.errors.empty();
    if (arguments.is_json) json["databases"].push_back(DatabaseJson(diff));
    if (!arguments.is_json) PrintDatabase(diff, streams.out);
  }
  if (arguments.is_json) PrintJson(json, streams.out);
  if (!arguments.is_json) {
    streams.out << "Equal: " << equal << " of " << Count(names.size(), "database") << "\n";
  }
  if (!is_compared) return TellReason(streams, "not everything could be compared", kRefused);
  return equal == names.size() ? 0 : kFailed;
}

int Compare(const DiffArguments& arguments, const Streams& streams) {
  DiffSource a;
  DiffSource b;
  std::string error;
  if (a.Open(arguments.a, error) < 0 || b.Open(arguments.b, error) < 0) {
    return TellReason(streams, error, kRefused);
  }
  if (a.databases().contains("") == b.databases().contains("")) return Report(arguments, a, b, streams);
  return TellReason(streams, "one database cannot be compared with a whole package", kRefused);
}

}  // namespace

Action DefineDiff(Arguments& command, const Streams& streams) {
  constexpr int kMostRows = 100000;
  const auto arguments = std::make_shared<DiffArguments>();
  command.AddPath("a", arguments->a, "A volume, a save or a database").Require();
  command.AddPath("b", arguments->b, "What it is compared with").Require();
  command
      .AddNumber("--rows", arguments->rows, 0, kMostRows,
                 "How many rows are shown of each kind of difference in a table")
      .ShowDefault();
  command.AddJsonFlag(arguments->is_json);
  command.SetFooter(
      "Exit status: 0 equal, 1 different, 2 could not be compared.\n\n"
      "Examples:\n  updater-ctl diff /mnt/usb/before-upgrade.tar.zst /volume1\n"
      "  updater-ctl diff a/user-db.sqlite b/user-db.sqlite --rows 20");
  return [arguments, streams] {
    const StopSignals stop;
    return Compare(*arguments, streams);
  };
}

}  // namespace ctl
