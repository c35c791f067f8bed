// An empty folder that goes away with everything in it.
#pragma once

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace tests {

// Writes a file, with its parent folders; returns its path.
inline std::string WriteFile(const std::string& path, const std::string& text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "updater-test.XXXXXX").string();
    if (::mkdtemp(name.data()) != nullptr) path_ = name;
  }
  ~TemporaryFolder() {
    std::error_code ignored;  // a leftover folder fails no test
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  [[nodiscard]] std::string operator/(const std::string& name) const { return path_ + '/' + name; }
  [[nodiscard]] const std::string& path() const { return path_; }

  std::string Write(const std::string& name, const std::string& text) const {
    return WriteFile(*this / name, text);
  }

 private:
  std::string path_;
};

// Of the file itself, should it be a link; of one that is missing, zeros.
[[nodiscard]] inline struct stat StatusOf(const std::string& path) {
  struct stat status {};
  (void)::lstat(path.c_str(), &status);  // told by the zeros
  return status;
}

[[nodiscard]] inline std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return (std::ostringstream() << file.rdbuf()).str();
}

}  // namespace tests
