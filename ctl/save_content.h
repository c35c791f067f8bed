// What of a volume belongs into a save, and its bytes.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/file_descriptor.h"
#include "ctl/save_manifest.h"
#include "db-util/image.h"
#include "package/layout.h"

namespace ctl {

// Lists it: the databases, the folders of views and volumes, and what upgrades have made beside them. Of the
// content neither size nor digest are told yet. `left_out` gets a line for each thing that is not followed.
// Returns 0, or -1 with the reason in `error`. Only looks.
[[nodiscard]] int ListContent(const package::VolumePaths& paths, SaveManifest& manifest,
                              std::vector<std::string>& left_out, std::string& error);

// The bytes of one item that has content, a database as it would be with its companions taken in.
class SavedContent {
 public:
  // Returns 0, or -1 with the reason in `error`.
  [[nodiscard]] int Open(const package::VolumePaths& paths, const SavedItem& item, std::string& error);

  [[nodiscard]] std::int64_t size() const { return size_; }
  [[nodiscard]] std::optional<updater::Version> ReadVersion() const;

  // Gives everything to `use` in pieces, until that returns false. Returns 0, or -1 with the reason in
  // `error`, which `use` sets where it was the one that failed.
  using Use = std::function<bool(const char* bytes, std::size_t length)>;
  [[nodiscard]] int Read(const Use& use, std::string& error) const;

 private:
  std::string path_;
  bool is_database_ = false;
  db_util::DatabaseImage image_;
  base::FileDescriptor file_;
  std::int64_t size_ = 0;
};

// Reads all content once, and completes the manifest with sizes, digests and versions. Results as above.
[[nodiscard]] int DigestContent(const package::VolumePaths& paths, SaveManifest& manifest,
                                std::string& error);

}  // namespace ctl
