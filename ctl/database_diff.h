// What two databases differ in.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "updater/framework/version.h"

namespace ctl {

struct TableDiff {
  struct Row {
    std::string key;                   // "id = 5"
    std::vector<std::string> columns;  // "name: 'old' -> 'new'"; of a row in one of them alone its values
  };

  std::string table;
  std::string key;  // the columns by which rows are the same; "rowid" where the table has no key
  long long rows_a = 0;
  long long rows_b = 0;
  long long only_a = 0;
  long long only_b = 0;
  long long changed = 0;
  // The first ones of each, as many as were asked for.
  std::vector<Row> first_only_a = {};
  std::vector<Row> first_only_b = {};
  std::vector<Row> first_changed = {};

  [[nodiscard]] bool is_equal() const { return only_a == 0 && only_b == 0 && changed == 0; }
};

struct DatabaseDiff {
  std::string name;
  bool is_in_a = false;
  bool is_in_b = false;
  std::optional<updater::Version> version_a = {};  // nothing where it cannot be read
  std::optional<updater::Version> version_b = {};
  std::vector<std::string> schema = {};  // "index x: only in A"
  std::vector<TableDiff> tables = {};    // those of both that differ
  std::vector<std::string> errors = {};  // what could not be compared

  [[nodiscard]] bool is_equal() const {
    return is_in_a == is_in_b && version_a == version_b && schema.empty() && tables.empty() && errors.empty();
  }
};

// Compares two databases by walking through both in the order of their keys; memory does not depend on sizes.
// Nothing is changed. A path that is empty stands for a database that is not there.
[[nodiscard]] DatabaseDiff CompareDatabases(const std::string& name, const std::string& a,
                                            const std::string& b, std::size_t rows_shown);

}  // namespace ctl
