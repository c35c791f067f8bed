// One side of a comparison: a volume, a save or a database.
#pragma once

#include <map>
#include <string>

namespace ctl {

class DiffSource {
 public:
  DiffSource() = default;
  DiffSource(const DiffSource&) = delete;
  DiffSource& operator=(const DiffSource&) = delete;
  // Removes what a save was unpacked into.
  ~DiffSource();

  // Finds the databases; those of a save are unpacked into a folder for temporary files, and compared with
  // its manifest. Returns 0, or -1 with the reason in `error`. Changes nothing else.
  [[nodiscard]] int Open(const std::string& path, std::string& error);

  // "volume", "save" or "database".
  [[nodiscard]] const char* kind() const { return kind_; }
  // Name -> path: "data", "view 17"; that of a database alone is empty.
  [[nodiscard]] const std::map<std::string, std::string>& databases() const { return databases_; }

 private:
  [[nodiscard]] int OpenVolume(const std::string& path, std::string& error);
  [[nodiscard]] int OpenSave(const std::string& path, std::string& error);

  const char* kind_ = "";
  std::string unpacked_;
  std::map<std::string, std::string> databases_;
};

}  // namespace ctl
