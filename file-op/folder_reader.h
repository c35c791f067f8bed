// Reading the entries of one folder.
#pragma once

#include <dirent.h>

#include <memory>
#include <string>
#include <vector>

namespace file_op {

struct Entry {
  enum class Type { kFolder, kFile, kLink, kOther };
  std::string name;
  Type type = Type::kOther;
};

class FolderReader {
 public:
  // Begins with the first entry of an open folder, which stays the caller's. Returns 0, or -1 with errno set.
  [[nodiscard]] int Open(int folder);

  // Reads the next entry other than "." and "..", in directory order. An entry whose type the file system
  // does not tell is asked for; one that has gone by then is passed over. Returns 1, 0 at the end, or -1 with
  // errno set.
  [[nodiscard]] int Next(Entry& entry);

 private:
  struct CloseFolder {
    void operator()(DIR* folder) const noexcept;
  };
  std::unique_ptr<DIR, CloseFolder> folder_;
};

// Adds every entry of an open folder to `entries`. Returns 0, or -1 with errno set.
[[nodiscard]] int ListEntries(int folder, std::vector<Entry>& entries);

}  // namespace file_op
