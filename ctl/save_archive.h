// The archive of a save as a file: see save_manifest.h for what is in it.
#pragma once

#include <archive.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "base/file_descriptor.h"
#include "base/interface.h"
#include "ctl/save_manifest.h"

namespace ctl {

// Every operation returns 0, or -1 with the reason in `error`.
class SaveWriter {
 public:
  // Writes to an open file, which stays the caller's.
  [[nodiscard]] int Begin(int file, std::string& error);
  // An entry that is exactly as long as Add() is given bytes for it. `like` tells owner, mode and time.
  [[nodiscard]] int BeginEntry(const std::string& name, std::int64_t bytes, const SavedItem& like,
                               std::string& error);
  [[nodiscard]] int Add(const char* bytes, std::size_t length, std::string& error);
  [[nodiscard]] int AddText(const std::string& name, const std::string& text, const SavedItem& like,
                            std::string& error);
  [[nodiscard]] int Finish(std::string& error);

 private:
  struct Free {
    void operator()(archive* writer) const noexcept { (void)archive_write_free(writer); }
  };
  int Fail(std::string& error);
  std::unique_ptr<archive, Free> archive_;
};

// Takes the content of a save while it is read through.
class SaveTarget : public base::Interface {
 public:
  // 0, or -1 with the reason in `error`. The pieces of an item come between its begin and its end; its digest
  // was right when its end comes.
  [[nodiscard]] virtual int BeginItem(const SavedItem& item, std::string& error) = 0;
  [[nodiscard]] virtual int AddPiece(const char* bytes, std::size_t length, std::string& error) = 0;
  [[nodiscard]] virtual int EndItem(const SavedItem& item, std::string& error) = 0;
};

class SaveReader {
 public:
  // Opens the file and reads the manifest. Returns 0, or -1 with the reason in `error`.
  [[nodiscard]] int Open(const std::string& path, std::string& error);
  // Begins again, where the manifest must be the same still. Result as above.
  [[nodiscard]] int Rewind(std::string& error);
  [[nodiscard]] const SaveManifest& manifest() const { return manifest_; }

  // Reads everything that follows, and compares it with the manifest: the order, the sizes, the digests, the
  // end. What it has read goes to `target`, which may be null. Memory does not depend on sizes. To be called
  // once after each of them. Results as above.
  [[nodiscard]] int ReadThrough(SaveTarget* target, std::string& error);

 private:
  struct Free {
    void operator()(archive* reader) const noexcept { (void)archive_read_free(reader); }
  };
  int Refuse(const std::string& reason, std::string& error) const;
  int RefuseArchive(std::string& error) const;
  [[nodiscard]] int Begin(std::string& error);
  [[nodiscard]] int NextEntry(const std::string& name, std::int64_t& bytes, std::string& error);
  [[nodiscard]] int ReadText(std::int64_t bytes, std::string& text, std::string& error);
  [[nodiscard]] int ReadItem(const SavedItem& item, SaveTarget* target, std::string& error);

  std::string path_;
  base::FileDescriptor file_;
  std::unique_ptr<archive, Free> archive_;
  SaveManifest manifest_;
  std::string manifest_digest_;
};

}  // namespace ctl
