#include "platform/host/mount_table.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <charconv>
#include <string_view>
#include <utility>

#include "base/read_text_file.h"
#include "base/text.h"

namespace platform::host {
namespace {

// The kernel writes a blank, and whatever else would end a field, as a backslash and three octal digits.
std::string Decode(std::string_view field) {
  std::string text;
  for (; !field.empty(); field.remove_prefix(1)) {
    unsigned code = 0;
    if (field.size() >= 4 && field.front() == '\\' &&
        std::from_chars(&field[1], &field[1] + 3, code, 8).ptr == &field[1] + 3) {
      text += static_cast<char>(code);
      field.remove_prefix(3);
    } else {
      text += field.front();
    }
  }
  return text;
}

// One blank ends a field, so that a field may be empty.
std::string_view TakeField(std::string_view& line) { return base::TakeUntil(line, " "); }

template <typename Number>
bool ParseNumber(std::string_view text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc{} && end == text.data() + text.size();
}

bool ParseDevice(std::string_view text, dev_t& device) {
  unsigned major_number = 0;
  unsigned minor_number = 0;
  if (!ParseNumber(base::TakeUntil(text, ":"), major_number) || !ParseNumber(text, minor_number))
    return false;
  device = makedev(major_number, minor_number);
  return true;
}

// "<id> <parent> <device> <root> <mount point> <options> [<tag>...] - <type> <source> <options>"
bool ParseMountInfo(std::string_view line, Mount& mount) {
  if (!ParseNumber(TakeField(line), mount.id) || !ParseNumber(TakeField(line), mount.parent_id) ||
      !ParseDevice(TakeField(line), mount.device_number)) {
    return false;
  }
  (void)TakeField(line);  // the root and the options are not needed
  mount.mount_point = Decode(TakeField(line));
  (void)TakeField(line);
  while (!line.empty() && TakeField(line) != "-") continue;
  mount.file_system = Decode(TakeField(line));
  mount.source = Decode(TakeField(line));
  return mount.mount_point.starts_with('/') && !mount.file_system.empty();
}

// "<source> <mount point> <type> ..."
bool ParseMountPoint(std::string_view line, std::string& mount_point) {
  (void)TakeField(line);
  mount_point = Decode(TakeField(line));
  return mount_point.starts_with('/') && !TakeField(line).empty();
}

template <typename Entry>
int ReadTable(const std::string& path, bool (*parse)(std::string_view, Entry&), std::vector<Entry>& entries) {
  std::string text;
  if (!base::ReadTextFile(path, text).ok()) return -1;
  std::vector<Entry> read;
  for (std::string_view rest = text; !rest.empty();) {
    Entry entry;
    if (parse(base::TakeUntil(rest, "\n"), entry)) read.push_back(std::move(entry));
  }
  if (read.empty()) return -1;
  entries = std::move(read);
  return 0;
}

bool HasParent(const std::vector<Mount>& mounts, const Mount& mount) {
  return std::any_of(mounts.begin(), mounts.end(),
                     [&](const Mount& other) { return other.id == mount.parent_id && other.id != mount.id; });
}

// What is mounted on `mount_point` on top of `current`; without a current mount, what the table begins with.
const Mount* FindNext(const std::vector<Mount>& mounts, const Mount* current, std::string_view mount_point) {
  for (auto mount = mounts.rbegin(); mount != mounts.rend(); ++mount) {
    if (mount->mount_point != mount_point || &*mount == current) continue;
    if (current != nullptr ? mount->parent_id == current->id : !HasParent(mounts, *mount)) return &*mount;
  }
  return nullptr;
}

}  // namespace

int ReadMountInfo(const std::string& path, std::vector<Mount>& mounts) {
  return ReadTable(path, ParseMountInfo, mounts);
}

int ReadMountPoints(const std::string& path, std::vector<std::string>& mount_points) {
  return ReadTable(path, ParseMountPoint, mount_points);
}

const Mount* FindMountOf(const std::vector<Mount>& mounts, const std::string& resolved_path) {
  const std::string_view path = resolved_path;
  const Mount* current = nullptr;
  std::size_t steps = 0;  // counted, so that the walk ends in a table that refers to itself in a circle
  for (std::size_t end = 1; end != std::string::npos && end <= path.size();) {
    const std::string_view folder = path.substr(0, end);
    for (const Mount* next = FindNext(mounts, current, folder); next != nullptr && steps < mounts.size();
         next = FindNext(mounts, current, folder)) {
      current = next;
      ++steps;
    }
    if (end == path.size()) break;
    end = std::min(path.find('/', end + 1), path.size());
  }
  return current;
}

}  // namespace platform::host
