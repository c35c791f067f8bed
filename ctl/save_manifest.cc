#include "ctl/save_manifest.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>

#include "base/escape.h"
#include "base/path.h"
#include "ctl/output.h"
#include "db-util/database_files.h"
#include "logger/check.h"
#include "package/layout.h"

namespace ctl {
namespace {

using Kind = SavedItem::Kind;

constexpr int kSchemaVersion = 1;
constexpr std::string_view kSchema = "updater-ctl.manifest";
constexpr std::array kKindNames = {"database", "file", "folder", "link", "marker", "marker-folder"};
constexpr std::size_t kLongestPath = 4000;
constexpr std::size_t kLongestName = 255;
constexpr std::uint32_t kModeBits = 07777;

const char* NameOf(Kind kind) { return kKindNames.at(static_cast<std::size_t>(kind)); }

std::vector<std::string> NamesIn(std::string_view path) {
  std::vector<std::string> names;
  for (;;) {
    const std::size_t slash = path.find('/');
    names.emplace_back(path.substr(0, slash));
    if (slash == std::string_view::npos) return names;
    path.remove_prefix(slash + 1);
  }
}

// Nothing of it leads out of the folder that it is put into.
bool IsPlain(const std::string& path) {
  const std::vector<std::string> names = NamesIn(path);
  return path.size() <= kLongestPath && path.find('\0') == std::string::npos &&
         std::all_of(names.begin(), names.end(), [](const std::string& name) {
           return !name.empty() && name.size() <= kLongestName && name != "." && name != "..";
         });
}

// The path of the live package, as it is below @stratofolder.
std::string Below(const std::string& path) {
  return path.substr(package::VolumePaths("").package_folder.size() + 1);
}

bool IsDatabase(const std::string& path) {
  const package::PackagePaths live = package::VolumePaths("").live;
  for (const std::string& database : {live.data, live.user, live.log, live.client}) {
    if (path == Below(database)) return true;
  }
  const std::string folder = base::FolderOf(path);
  const std::string name = base::NameOf(folder);
  return path == Below(live.ViewDatabase(name)) || path == Below(live.FileDatabase(name));
}

bool IsBelow(const std::string& path, const std::string& folder) {
  return path.starts_with(Below(folder) + "/");
}

// A companion that comes with a database would be replayed into it.
bool IsCompanion(const std::string& path) {
  return std::any_of(
      db_util::kCompanionSuffixes.begin(), db_util::kCompanionSuffixes.end(), [&](std::string_view suffix) {
        return path.ends_with(suffix) && IsDatabase(path.substr(0, path.size() - suffix.size()));
      });
}

bool IsFolderOfParts(const std::string& path) {
  const package::PackagePaths live = package::VolumePaths("").live;
  return path == Below(live.view_folder) || path == Below(live.file_folder) ||
         path == Below(live.ViewFolder(base::NameOf(path))) || IsBelow(path, live.file_folder);
}

bool IsPlaceFor(const SavedItem& item) {
  const package::PackagePaths live = package::VolumePaths("").live;
  switch (item.kind) {
    case Kind::kDatabase:
      return IsDatabase(item.path);
    case Kind::kFile:
    case Kind::kLink:
      return IsBelow(item.path, live.file_folder) && !IsDatabase(item.path) && !IsCompanion(item.path);
    case Kind::kFolder:
      return IsFolderOfParts(item.path);
    case Kind::kMarker:
    case Kind::kMarkerFolder:
      break;
  }
  return IsMarker(item.path, item.kind == Kind::kMarkerFolder);
}

// Views and volumes are put into folders that the save brings, too.
bool HasFolder(const SavedItem& item, const std::set<std::string>& folders) {
  const package::PackagePaths live = package::VolumePaths("").live;
  const bool needs_folder = IsBelow(item.path, live.view_folder) || IsBelow(item.path, live.file_folder);
  return !needs_folder || folders.contains(base::FolderOf(item.path));
}

std::string OctalText(std::uint32_t mode) {
  std::array<char, 16> text{};
  (void)std::snprintf(text.data(), text.size(), "%04o", mode);  // is long enough
  return text.data();
}

Json ToJson(const SavedItem& item) {
  Json json = {{"kind", NameOf(item.kind)}, {"path", base::Escape(item.path)}};
  if (item.kind == Kind::kDatabase) {
    json["branch"] = item.version ? Json(item.version->branch) : Json();
    json["version"] = item.version ? Json(item.version->number) : Json();
  }
  if (item.has_content()) {
    json["bytes"] = item.bytes;
    json["sha256"] = item.sha256;
  }
  if (item.kind == Kind::kLink) json["target"] = base::Escape(item.target);
  json["mode"] = OctalText(item.mode);
  json["owner"] = item.owner;
  json["group"] = item.group;
  json["modified"] = item.modified;
  json["modified_ns"] = item.modified_ns;
  return json;
}

// Of an owner or a group; the last number is none, but leaves a file to whom it belongs.
std::uint32_t ParseId(const Json& json) {
  const auto id = json.get<std::int64_t>();
  if (id < 0 || id >= std::numeric_limits<std::uint32_t>::max()) {
    throw std::invalid_argument("an owner or group is damaged");
  }
  return static_cast<std::uint32_t>(id);
}

std::uint32_t ParseMode(const std::string& text) {
  std::uint32_t mode = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), mode, 8);
  if (error != std::errc{} || end != text.data() + text.size() || mode > kModeBits) {
    throw std::invalid_argument("a mode is damaged");
  }
  return mode;
}

std::string ParsePath(const Json& json, const char* key) {
  const std::optional<std::string> path = base::Unescape(json.at(key).get<std::string>());
  if (!path) throw std::invalid_argument("a path is damaged");
  return *path;
}

SavedItem ParseItem(const Json& json) {
  const auto kind = std::find(kKindNames.begin(), kKindNames.end(), json.at("kind").get<std::string>());
  if (kind == kKindNames.end()) throw std::invalid_argument("it names what this program does not know");
  SavedItem item = {.kind = static_cast<Kind>(kind - kKindNames.begin()), .path = ParsePath(json, "path")};
  if (item.kind == Kind::kDatabase && json.at("version").is_number()) {
    item.version = updater::Version{json.at("branch").get<std::string>(), json.at("version").get<int>()};
  }
  if (item.has_content()) {
    item.bytes = json.at("bytes").get<std::int64_t>();
    item.sha256 = json.at("sha256").get<std::string>();
  }
  if (item.kind == Kind::kLink) item.target = ParsePath(json, "target");
  item.mode = ParseMode(json.at("mode").get<std::string>());
  item.owner = ParseId(json.at("owner"));
  item.group = ParseId(json.at("group"));
  item.modified = json.at("modified").get<std::int64_t>();
  item.modified_ns = json.at("modified_ns").get<std::int64_t>();
  return item;
}

// What a text of so many bytes makes is many times as large: nothing but brackets would take gigabytes. The
// library's own hook would take time with the square of the items.
Json ParseBounded(const std::string& text) {
  constexpr int kDeepest = 4;
  constexpr std::size_t kBytesPerValue = 8;
  std::size_t values = 0;
  int depth = 0;
  bool is_quoted = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    if (c == '"') is_quoted = !is_quoted;
    if (is_quoted && c == '\\') ++at;  // what follows is no end
    if (is_quoted) continue;
    if (c == '{' || c == '[') ++depth;
    if (c == '}' || c == ']') --depth;
    if (c == '{' || c == '[' || c == ',') ++values;
    if (depth > kDeepest || values > text.size() / kBytesPerValue + 1) {
      throw std::invalid_argument("it is no manifest");
    }
  }
  return Json::parse(text);
}

constexpr std::int64_t kNanoseconds = 1'000'000'000;

void CheckItems(const SaveManifest& manifest) {
  std::set<std::string> seen;
  std::set<std::string> folders;
  for (const SavedItem& item : manifest.items) {
    const bool is_size = item.bytes >= 0 && item.bytes <= (std::int64_t{1} << 48);
    const bool is_time = item.modified_ns >= 0 && item.modified_ns < kNanoseconds;
    if (!is_size || !is_time || !IsPlain(item.path) || !IsPlaceFor(item) || !HasFolder(item, folders) ||
        !seen.insert(item.path).second) {
      throw std::invalid_argument("it names what no save holds: " + Printable(item.path));
    }
    if (item.kind == Kind::kFolder || item.kind == Kind::kMarkerFolder) folders.insert(item.path);
  }
  if (!seen.contains(Below(package::VolumePaths("").live.data))) {
    throw std::invalid_argument("it has no data database");
  }
}

}  // namespace

std::int64_t SaveManifest::bytes() const {
  std::int64_t sum = 0;
  for (const SavedItem& item : items) sum += item.bytes;
  return sum;
}

std::optional<updater::Version> SaveManifest::version() const {
  const std::string data = Below(package::VolumePaths("").live.data);
  const auto found =
      std::find_if(items.begin(), items.end(), [&](const SavedItem& item) { return item.path == data; });
  return found == items.end() ? std::nullopt : found->version;
}

std::string FormatManifest(const SaveManifest& manifest) {
  Json json = NewDocument("manifest");
  json["made"] = manifest.made;
  json["volume"] = base::Escape(manifest.volume);
  json["uuid"] = manifest.uuid;
  json["items"] = Json::array();
  for (const SavedItem& item : manifest.items) json["items"].push_back(ToJson(item));
  return json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

int ParseManifest(const std::string& text, SaveManifest& manifest, std::string& error) {
  if (text.size() > kLongestManifest) {
    error = "its manifest is too long: there are too many files and folders in it";
    return -1;
  }
  try {
    const Json json = ParseBounded(text);
    if (json.at("schema").get<std::string>() != kSchema) throw std::invalid_argument("it is no manifest");
    if (json.at("schema_version").get<int>() != kSchemaVersion) {
      throw std::invalid_argument("a later program has made it");
    }
    SaveManifest parsed = {.volume = ParsePath(json, "volume"), .uuid = json.at("uuid").get<std::string>()};
    parsed.made = json.at("made").get<std::int64_t>();
    for (const Json& item : json.at("items")) parsed.items.push_back(ParseItem(item));
    CheckItems(parsed);
    manifest = std::move(parsed);
    return 0;
  } catch (const Json::exception&) {
    error = "its manifest is damaged";
  } catch (const std::invalid_argument& reason) {
    error = std::string("its manifest is not to be trusted: ") + reason.what();
  }
  return -1;
}

bool IsMarker(const std::string& path, bool is_folder) {
  const package::PackagePaths live = package::VolumePaths("").live;
  const std::string sync = Below(live.sync_folder);
  const auto is_one_of = [&](const auto& paths) {
    return std::any_of(paths.begin(), paths.end(), [&](const char* name) { return path == sync + name; });
  };
  const std::string sign = is_folder ? path : base::FolderOf(path);
  const std::string view = base::NameOf(base::FolderOf(sign));
  const bool is_sign = sign == Below(live.ViewFolder(view)) + "/sign";
  if (!is_folder) {
    const bool is_name = base::NameOf(path) == ".0";
    return (is_sign && is_name) || is_one_of(kMarkers);
  }
  return is_sign || path == Below(base::FolderOf(live.client)) || is_one_of(kMarkerFolders);
}

}  // namespace ctl
