// What a CREATE statement declares, told apart from how it is written.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace updater::legacy {

// A CREATE INDEX with one blank between its tokens, without comments, quotes around names, capitals (but in
// texts) and a last semicolon.
[[nodiscard]] std::string WithoutStyle(std::string_view create_index);

// A statement without comments and without the semicolon at its end, so that another one can follow it. Empty
// where something follows already.
[[nodiscard]] std::string OneStatement(std::string_view text);

struct Column {
  std::string name;         // in small letters, without quotes
  std::string declaration;  // its type and constraints, in the same way; a last "DEFAULT NULL" says nothing
};

struct Declaration {
  std::string name;  // of the table, as those of columns; empty where the statement makes no ordinary table
  std::vector<Column> columns;
  std::string rest;  // what stands behind the columns
};

// Of "CREATE TABLE <name> (<column>, ...)". A constraint of the table is told as if it were a column. Names
// in the declarations keep their quotes, because "NOT" is none of the words that mean something.
[[nodiscard]] Declaration ReadDeclaration(std::string_view create_table);

}  // namespace updater::legacy
