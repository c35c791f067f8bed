// The errno of a system call as a value, so that no number has to be guessed at.
#pragma once

#include <cerrno>
#include <cstring>
#include <string>

namespace base {

class [[nodiscard]] Errno {
 public:
  constexpr Errno() = default;  // success
  explicit constexpr Errno(int number) : number_(number) {}

  // Of the call that has just failed.
  static Errno Last() { return Errno(errno); }
  // Of a call that returns a negative number when it fails.
  static Errno Of(int result) { return result < 0 ? Last() : Errno(); }

  [[nodiscard]] constexpr bool ok() const { return number_ == 0; }
  [[nodiscard]] constexpr int number() const { return number_; }
  [[nodiscard]] std::string Text() const { return std::strerror(number_); }

  friend constexpr bool operator==(const Errno&, const Errno&) = default;

 private:
  int number_ = 0;
};

}  // namespace base
