#include "logger/updater_log.h"

#include <utility>

namespace logger {
namespace {

constexpr const char* kNone = "no updater";

std::string& Name() {
  static std::string name = kNone;
  return name;
}

}  // namespace

ScopedUpdaterName::ScopedUpdaterName(std::string name) { Name() = std::move(name); }
ScopedUpdaterName::~ScopedUpdaterName() { Name() = kNone; }

const std::string& UpdaterAtWork() { return Name(); }

}  // namespace logger
