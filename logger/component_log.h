// The component logger: what the package's shared code writes through.
//
// A message is one line in the system log, "[ERROR] user-mgr(123): text": the level in brackets, the source's
// name, the source line. Every component has a level of its own, named by its key in the debug configuration
// file:
//
//   user_mgr_debug=debug
//   file_op_debug="warning"
//
// with one of error, warning, info and debug. Messages below the component's level are dropped. The default
// level is info. A file that is missing, unreadable, not a regular file or not in this form leaves the
// defaults.
#pragma once

#include <cerrno>
#include <string>

#include "base/errno.h"
#include "logger/check.h"
#include "logger/format.h"

namespace logger {

enum class Level { kError, kWarning, kInfo, kDebug };

// A source of messages. Meant to be a constant of the source file.
struct Component {
  const char* key;   // its name in the debug configuration file, "user_mgr_debug"
  const char* name;  // its name in the messages, "user-mgr"
};

// Reads the levels from the debug configuration file; levels that were read before are forgotten.
void SetUpComponentLog(const std::string& configuration_path);

// True when a message of that level is written.
[[nodiscard]] bool IsLogged(const Component& component, Level level);

// Writes one already formatted message, with its head, if its level is logged.
void WriteComponentLine(const Component& component, Level level, int source_line, const std::string& text);

// Formats and writes one message. `format` is the text behind the head.
template <typename... Args>
void ComponentLog(const Component& component, Level level, const PrintfFormat<Args...>& format,
                  const Args&... args) {
  if (!IsLogged(component, level)) return;
  WriteComponentLine(component, level, format.line(), FormatText<Args...>(format, args...));
}

// Passes on whether a step went well, and logs `failure` at level error if not.
template <typename Outcome, typename... Args>
[[nodiscard]] bool CheckOrLog(const Component& component, const Outcome& outcome,
                              const PrintfFormat<Args...>& failure, const Args&... args) {
  const auto write = [&component](int source_line, const std::string& text) {
    WriteComponentLine(component, Level::kError, source_line, text);
  };
  return CheckOr<decltype(write), Outcome, Args...>(write, outcome, failure, args...);
}

// The same as ComponentLog at level error, which is nearly all of them.
template <typename... Args>
void ComponentError(const Component& component, const PrintfFormat<Args...>& format, const Args&... args) {
  ComponentLog<Args...>(component, Level::kError, format, args...);
}

// The same for a system call that failed: the format ends with the text and the number of `error`. Leaves
// that number in errno, which the caller of a failed operation reads.
template <typename... Args>
void ComponentErrno(const Component& component, base::Errno error,
                    const PrintfFormat<Args..., std::string, int>& format, const Args&... args) {
  ComponentError<Args..., std::string, int>(component, format, args..., error.Text(), error.number());
  errno = error.number();
}

}  // namespace logger
