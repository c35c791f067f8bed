#include "updater/framework/updater_log.h"

#include <utility>

namespace updater {
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

void WriteUpdaterLine(int source_line, const std::string& text) {
  logger::SystemLog("Strato Folder Updater(%d): %s", source_line, text);
}

}  // namespace updater
