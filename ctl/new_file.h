// A file that is there whole, or not at all.
#pragma once

#include <string>

#include "base/file_descriptor.h"

namespace ctl {

// Written under another name beside its own, which it gets when it is on the disk. Without Publish() nothing
// of it is left. Operations return 0, or -1 with the reason in `error`.
class NewFile {
 public:
  NewFile() = default;
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  ~NewFile();

  // Nothing may be at `path` yet, but for a file that begins with `replaceable`, if that is not empty. Nobody
  // but this process's user can read the file.
  [[nodiscard]] int Make(const std::string& path, std::string& error, const std::string& replaceable = "");

  // Whether Make() would find nothing in its way. Only looks.
  [[nodiscard]] static int Check(const std::string& path, const std::string& replaceable, std::string& error);
  [[nodiscard]] int file() const { return file_.get(); }
  // Nobody has made something of that name since, unless it may be replaced.
  [[nodiscard]] int Publish(std::string& error);

 private:
  std::string path_;
  std::string temporary_;  // empty: there is none
  bool may_replace_ = false;
  base::FileDescriptor file_;
};

}  // namespace ctl
