// What a save of a volume holds, as told by its first entry.
//
// A save is a tar archive, compressed with zstd. Its entries are manifest.json, then every file that has
// content, and at the end manifest.sha256 with the digest of the manifest, which a save that was cut off does
// not have. Paths are those below @stratofolder; in a path every byte that is no plain character is written
// as "%" and two digits. Folders, links and marker files stand in the manifest alone.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "updater/framework/version.h"

namespace ctl {

inline constexpr const char* kManifestName = "manifest.json";
inline constexpr const char* kManifestDigestName = "manifest.sha256";
// Of some 50,000 files and folders. A text that is longer is refused, also by who would write it.
inline constexpr std::size_t kLongestManifest = std::size_t{16} << 20;

// What upgrades make in the sync folder outside of the databases. The folders of views have a folder "sign"
// with an empty file besides.
inline constexpr std::array kMarkerFolders = {"/node_delta",    "/rm/file",       "/rm/delta",
                                              "/rm/node_delta", "/rm/deref_file", "/rm/rotate_node",
                                              "/rm/rotate_base"};
inline constexpr std::array kMarkers = {"/repo/.0", "/delta/.0", "/node_delta/.0"};

struct SavedItem {
  enum class Kind {
    kDatabase,  // one file, without companions
    kFile,
    kFolder,
    kLink,
    kMarker,        // an empty file, or
    kMarkerFolder,  // a folder, that upgrades make and that is no part of the databases
  };

  Kind kind = Kind::kFile;
  std::string path;                              // below @stratofolder, not escaped
  std::optional<updater::Version> version = {};  // of a database; nothing where it has none that can be read
  std::int64_t bytes = 0;                        // of a database or file
  std::string sha256 = {};                       // the same
  std::string target = {};                       // of a link
  std::uint32_t mode = 0;
  std::uint32_t owner = 0;
  std::uint32_t group = 0;
  std::int64_t modified = 0;  // in seconds
  std::int64_t modified_ns = 0;

  // Whether the archive has an entry for it.
  [[nodiscard]] bool has_content() const { return kind == Kind::kDatabase || kind == Kind::kFile; }
};

struct SaveManifest {
  std::string volume;                 // where it was
  std::string uuid;                   // of its file system; empty where that has none
  std::int64_t made = 0;              // when, in seconds
  std::vector<SavedItem> items = {};  // a folder before what is in it

  [[nodiscard]] std::int64_t bytes() const;  // of all content
  // That of the data database.
  [[nodiscard]] std::optional<updater::Version> version() const;
};

[[nodiscard]] std::string FormatManifest(const SaveManifest& manifest);

// Returns 0, or -1 with the reason in `error`: the text is no manifest, is one of a later program, or names
// what a save does not hold, such as a path that leads elsewhere.
[[nodiscard]] int ParseManifest(const std::string& text, SaveManifest& manifest, std::string& error);

// Whether an upgrade makes such a file, or folder, outside of the databases.
[[nodiscard]] bool IsMarker(const std::string& path, bool is_folder);

}  // namespace ctl
