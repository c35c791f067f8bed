// Working copies out of a save.
#pragma once

#include <string>

#include "base/file_descriptor.h"
#include "ctl/save_archive.h"
#include "file-op/folder.h"
#include "package/layout.h"

namespace ctl {

// Makes everything where nothing is, and nobody else can enter a folder before all is in it. Operations
// return 0, or -1 with the reason in `error`; what was made stays.
class WorkingCopyMaker : public SaveTarget {
 public:
  explicit WorkingCopyMaker(const package::VolumePaths& paths) : paths_(paths) {}

  // The folders and links, before the content comes.
  [[nodiscard]] int Begin(const SaveManifest& manifest, std::string& error);
  [[nodiscard]] int BeginItem(const SavedItem& item, std::string& error) override;
  [[nodiscard]] int AddPiece(const char* bytes, std::size_t length, std::string& error) override;
  [[nodiscard]] int EndItem(const SavedItem& item, std::string& error) override;
  // Owners, modes and times of the folders, when all content is there.
  [[nodiscard]] int Finish(const SaveManifest& manifest, std::string& error);

 private:
  [[nodiscard]] std::string CopyOf(const SavedItem& item) const;
  [[nodiscard]] int MakeLink(const SavedItem& item, std::string& error) const;

  const package::VolumePaths& paths_;
  std::string path_;  // of the file that is being written
  base::FileDescriptor file_;
};

// Gives an open file or folder the owner, mode and time of the item. Returns 0, or -1 with errno set.
[[nodiscard]] int ApplyAttributes(int fd, const SavedItem& item);

// Makes a new folder at a path, which nobody else can look into. Returns 0, or -1 with errno set.
[[nodiscard]] int MakeNewFolder(const std::string& path, file_op::Folder& folder);

}  // namespace ctl
