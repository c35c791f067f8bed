#include "logger/component_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <map>
#include <optional>
#include <sstream>
#include <string_view>

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
constexpr std::size_t kLargestConfiguration = 65536;  // anything larger is not a debug configuration

const LevelRow& RowOf(Level level) { return kLevels[static_cast<std::size_t>(level)]; }

std::map<std::string, Level, std::less<>>& Levels() {
  static std::map<std::string, Level, std::less<>> levels;
  return levels;
}

std::string_view Trim(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::optional<Level> ParseLevel(std::string_view word) {
  if (word.size() >= 2 && word.front() == '"' && word.back() == '"') word = word.substr(1, word.size() - 2);
  for (const LevelRow& row : kLevels) {
    if (word == row.word) return row.level;
  }
  return std::nullopt;
}

// The whole file; empty when there is none or it cannot be one. O_NONBLOCK: a FIFO there must not stop the
// run.
std::string ReadSmallFile(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return {};
  std::string text;
  struct stat status {};
  if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode) &&
      static_cast<unsigned long long>(status.st_size) <= kLargestConfiguration) {
    text.resize(static_cast<std::size_t>(status.st_size));
    const ssize_t length = read(fd, text.data(), text.size());
    text.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
  }
  (void)close(fd);  // only read from
  return text;
}

}  // namespace

void SetUpComponentLog(const std::string& configuration_path) {
  Levels().clear();
  std::istringstream lines(ReadSmallFile(configuration_path));
  for (std::string line; std::getline(lines, line);) {
    const std::string_view text = Trim(line);
    const std::size_t sign = text.find('=');
    if (text.starts_with('#') || sign == std::string_view::npos) continue;
    const std::optional<Level> level = ParseLevel(Trim(text.substr(sign + 1)));
    if (level) Levels().insert_or_assign(std::string(Trim(text.substr(0, sign))), *level);
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
