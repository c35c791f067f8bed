// What a run is about to put in place, written to the disk before the first move.
//
// The moves of a placement are not one action: a run can be killed between two of them. Once the intent is on
// the disk, all of them will be made, by this run or by the next one. It names parts of the package, not
// paths: the folder that it lies in belongs to the service, so whoever writes it there must not be able to
// make root move anything else.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace updater {

// Tells whether a file or folder is still the one that was meant, and whether somebody has written to it
// since.
struct FileIdentity {
  std::uint64_t inode = 0;       // 0: there is nothing
  std::int64_t size = 0;         // of a folder: the number of files in its tree
  std::int64_t modified_ns = 0;  // of a folder: a digest of the identities of these files

  [[nodiscard]] bool exists() const { return inode != 0; }
  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

// The parts that are one database, in the order in which they are moved; the whole view folder, where there
// is no live one; and the file folder.
inline constexpr std::array<std::string_view, 4> kDatabaseParts = {"user", "data", "log", "client"};
inline constexpr std::string_view kViewsPart = "view";
inline constexpr std::string_view kFilesPart = "file";

enum class PlacementKind {
  kUpgrade,  // a part without a working copy stays as it is, but a view of which only the folder has one
  kRestore,  // what has no working copy goes, and a view may be in the copies alone
};

struct IntentItem {
  std::string part;        // one of these, or "view/<name>"
  FileIdentity copy = {};  // nothing: the live database of a view goes
  FileIdentity live = {};  // what is replaced
  // The live part goes without one in its place, of a view the whole folder. Only a restore does that.
  bool goes = false;

  // Whether the item is the database of one view, or its folder that goes.
  [[nodiscard]] bool is_view() const;
  // Whether the part is a folder with all that is in it.
  [[nodiscard]] bool is_folder() const;
  friend bool operator==(const IntentItem&, const IntentItem&) = default;
};
using Intent = std::vector<IntentItem>;

// The part that is the database of one view.
[[nodiscard]] std::string ViewPart(const std::string& view);

// The intent as text, with its version and a checksum; and back, the last one of several texts behind each
// other. Nothing for a text that is damaged, of another version, or names what is no part; of one behind it
// that is, the one before counts.
[[nodiscard]] std::string FormatIntent(const Intent& intent);
[[nodiscard]] std::optional<Intent> ParseIntent(std::string_view text);

}  // namespace updater
