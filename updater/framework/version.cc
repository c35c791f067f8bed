#include "updater/framework/version.h"

#include <ostream>

namespace updater {

std::strong_ordering operator<=>(const Version& a, const Version& b) {
  return a.number != b.number ? a.number <=> b.number : a.branch <=> b.branch;
}

std::string ToString(const Version& version) {
  return "(" + version.branch + ", " + std::to_string(version.number) + ") ";
}

std::ostream& operator<<(std::ostream& out, const Version& version) { return out << ToString(version); }

}  // namespace updater
