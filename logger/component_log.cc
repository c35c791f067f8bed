#include "logger/component_log.h"

#include <syslog.h>

#include <array>
#include <map>
#include <optional>
#include <string_view>

#include "base/read_text_file.h"
#include "base/text.h"
#include "logger/log_sink.h"

namespace logger {
namespace {

struct LevelRow {
  Level level;
  const char* word;  // in the configuration file
  const char* tag;   // in the message
  int priority;      // in the system log
};

constexpr std::array kLevels = {
    LevelRow{Level::kError, "error", "ERROR", LOG_ERR},
    LevelRow{Level::kWarning, "warning", "WARNING", LOG_WARNING},
    LevelRow{Level::kInfo, "info", "INFO", LOG_INFO},
    LevelRow{Level::kDebug, "debug", "DEBUG", LOG_DEBUG},
};

constexpr Level kDefaultLevel = Level::kInfo;
constexpr std::size_t kMaxKeys = 1000;

const LevelRow& RowOf(Level level) { return kLevels[static_cast<std::size_t>(level)]; }

std::map<std::string, Level, std::less<>>& Levels() {
  static std::map<std::string, Level, std::less<>> levels;
  return levels;
}

std::optional<Level> ParseLevel(std::string_view word) {
  if (word.size() >= 2 && word.front() == '"' && word.back() == '"') word = word.substr(1, word.size() - 2);
  for (const LevelRow& row : kLevels) {
    if (word == row.word) return row.level;
  }
  return std::nullopt;
}

}  // namespace

void SetUpComponentLog(const std::string& configuration_path) {
  Levels().clear();
  std::string configuration;
  if (!base::ReadTextFile(configuration_path, configuration).ok()) return;
  for (std::string_view rest = configuration; !rest.empty();) {
    // A comment sets the level of a key that no component has.
    const std::optional<base::KeyValue> line = base::SplitKeyValue(base::TakeUntil(rest, "\n"));
    const std::optional<Level> level = line ? ParseLevel(line->value) : std::nullopt;
    const bool has_room = Levels().size() < kMaxKeys;  // a file of millions of keys is no configuration
    if (level && (has_room || Levels().contains(line->key)))
      Levels().insert_or_assign(std::string(line->key), *level);
  }
}

bool IsLogged(const Component& component, Level level) {
  const auto found = Levels().find(std::string_view(component.key));
  return level <= (found == Levels().end() ? kDefaultLevel : found->second);
}

void WriteComponentLine(const Component& component, Level level, int source_line, const std::string& text) {
  if (!IsLogged(component, level)) return;
  const LevelRow& row = RowOf(level);
  WriteToSink(row.priority, FormatText<const char*, const char*, int, std::string>(
                                "[%s] %s(%d): %s", row.tag, component.name, source_line, text));
}

}  // namespace logger
