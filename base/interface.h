// What all interfaces have in common.
#pragma once

namespace base {

// Borrowed by reference, never copied, and destroyed through this class where somebody owns it.
class Interface {
 public:
  Interface() = default;
  Interface(const Interface&) = delete;
  Interface& operator=(const Interface&) = delete;
  virtual ~Interface() = default;
};

}  // namespace base
