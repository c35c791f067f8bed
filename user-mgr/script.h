// Scripts of any length, for the values that have no bound: contexts of profiles, paths of tasks, lists.
#pragma once

#include <string>

#include "db-util/execute.h"

namespace user_mgr {

class Script {
 public:
  explicit Script(std::string text) : text_(std::move(text)) {}

  // Appends one piece. SQLite fails to make a piece when memory is short. The whole script is unusable then,
  // because without the piece it would do something else.
  template <typename... Args>
  void Add(const logger::SqlFormat<Args...>& format, const Args&... args) {
    std::string piece;
    complete_ = complete_ && db_util::FormatSql<Args...>(piece, format, args...);
    text_ += piece;
  }

  // The script; when a piece is missing, a text that SQLite refuses.
  [[nodiscard]] const std::string& text() const {
    static const std::string incomplete = "out of memory";
    return complete_ ? text_ : incomplete;
  }

 private:
  std::string text_;
  bool complete_ = true;
};

}  // namespace user_mgr
