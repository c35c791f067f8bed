// The version of a database layout: a branch and a number.
#pragma once

#include <compare>
#include <iosfwd>
#include <string>

namespace updater {

struct Version {
  std::string branch;  // empty for versions before there were branches
  int number = -1;

  friend bool operator==(const Version&, const Version&) = default;
  // By number, then by branch as byte strings: the key order of the version graph.
  friend std::strong_ordering operator<=>(const Version& a, const Version& b);
};

// "(branch, number) ", with the blank behind the parenthesis that every message depends on.
[[nodiscard]] std::string ToString(const Version& version);
std::ostream& operator<<(std::ostream& out, const Version& version);

}  // namespace updater
