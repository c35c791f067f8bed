#include "updater/legacy/declaration.h"

#include <algorithm>
#include <cctype>

namespace updater::legacy {
namespace {

using Tokens = std::vector<std::string>;

bool IsBlank(char c) { return std::string_view(" \t\r\n\f").find(c) != std::string_view::npos; }

// Of a name, a keyword or a number.
bool IsWordPart(char c) {
  constexpr unsigned char kFirstBeyondAscii = 0x80;
  const auto byte = static_cast<unsigned char>(c);
  return std::isalnum(byte) != 0 || c == '_' || c == '$' || byte >= kFirstBeyondAscii;
}

// Only the letters that SQLite takes for equal.
std::string InSmallLetters(std::string_view text) {
  std::string small(text);
  for (char& c : small) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return small;
}

// The length of what `text` begins with: a comment, a text or name in quotes, a word, or one character. What
// is not closed goes to the end.
std::size_t NextLength(std::string_view text) {
  const auto behind = [text](std::string_view end, std::size_t from) {
    const std::size_t found = text.find(end, from);
    return found == std::string_view::npos ? text.size() : found + end.size();
  };
  const char first = text.front();
  if (text.starts_with("--")) return behind("\n", 2);
  if (text.starts_with("/*")) return behind("*/", 2);
  if (first == '[') return behind("]", 1);
  if (std::string_view("\"'`").find(first) != std::string_view::npos) {
    std::size_t length = behind({&first, 1}, 1);
    while (length < text.size() && text[length] == first)
      length = behind({&first, 1}, length + 1);  // doubled
    return length;
  }
  std::size_t length = 0;
  while (length < text.size() && IsWordPart(text[length])) ++length;
  return std::max<std::size_t>(length, 1);
}

bool IsComment(std::string_view token) { return token.starts_with("--") || token.starts_with("/*"); }

bool IsNameInQuotes(std::string_view token) {
  return std::string_view("\"`[").find(token.front()) != std::string_view::npos;
}

// A keyword in quotes is a name, so the quotes are taken away only where a name is expected. One within stays
// doubled: no name of the layout has any.
std::string WithoutQuotes(const std::string& token) {
  const bool is_quoted = token.size() > 1 && (token.front() == '"' || token.front() == '\'');
  return is_quoted ? InSmallLetters(token.substr(1, token.size() - 2)) : token;
}

// All quotes of names become those of the standard.
Tokens TokensOf(std::string_view text) {
  Tokens tokens;
  for (; !text.empty(); text.remove_prefix(NextLength(text))) {
    std::string token(text.substr(0, NextLength(text)));
    if (IsBlank(token.front()) || IsComment(token)) continue;
    if (IsNameInQuotes(token)) token.front() = token.back() = '"';
    tokens.push_back(token.front() == '\'' ? token : InSmallLetters(token));
  }
  if (!tokens.empty() && tokens.back() == ";") tokens.pop_back();
  return tokens;
}

using Place = Tokens::const_iterator;

std::string Join(Place begin, Place end) {
  std::string text;
  for (Place token = begin; token != end; ++token) text += (text.empty() ? "" : " ") + *token;
  return text;
}

Column ReadColumn(Tokens tokens) {
  if (tokens.empty()) return {};
  for (std::size_t i = 1; i < tokens.size(); ++i) {
    if (tokens[i - 1] == "references") tokens[i] = WithoutQuotes(tokens[i]);
  }
  std::string declaration = Join(tokens.begin() + 1, tokens.end());
  constexpr std::string_view kNoDefault = " default null";
  if (declaration.ends_with(kNoDefault)) declaration.resize(declaration.size() - kNoDefault.size());
  return {WithoutQuotes(tokens.front()), declaration};
}

}  // namespace

std::string WithoutStyle(std::string_view create_index) {
  Tokens tokens = TokensOf(create_index);
  for (std::string& token : tokens) token = WithoutQuotes(token);
  return Join(tokens.begin(), tokens.end());
}

std::string OneStatement(std::string_view text) {
  std::string statement;
  bool has_ended = false;
  for (; !text.empty(); text.remove_prefix(NextLength(text))) {
    const std::string_view token = text.substr(0, NextLength(text));
    const bool is_empty = IsBlank(token.front()) || IsComment(token);
    if (has_ended && !is_empty) return {};
    has_ended |= token == ";" || token.front() == '\0';  // where SQLite stops
    if (!has_ended) statement += is_empty ? " " : token;
  }
  return statement;
}

Declaration ReadDeclaration(std::string_view create_table) {
  constexpr std::size_t kName = 2;  // "create table <name> ( ..."
  const Tokens tokens = TokensOf(create_table);
  if (tokens.size() <= kName + 1 || tokens[0] != "create" || tokens[1] != "table" || tokens[kName + 1] != "(")
    return {};
  Declaration declaration = {.name = WithoutQuotes(tokens[kName]), .columns = {}, .rest = {}};
  int depth = 1;
  Place column = tokens.begin() + kName + 2;
  for (Place token = column; token != tokens.end() && depth > 0; ++token) {
    if (*token == "(") ++depth;
    if (*token == ")") --depth;
    if (depth > 1 || (depth == 1 && *token != ",")) continue;
    declaration.columns.push_back(ReadColumn(Tokens(column, token)));
    column = token + 1;
  }
  declaration.rest = Join(column, tokens.end());
  return declaration;
}

}  // namespace updater::legacy
