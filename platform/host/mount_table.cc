#include "platform/host/mount_table.h"

#include <libmount/libmount.h>

#include <algorithm>
#include <memory>
#include <string_view>

namespace platform::host {
namespace {

struct Releaser {
  void operator()(libmnt_table* table) const { mnt_unref_table(table); }
  void operator()(libmnt_iter* iterator) const { mnt_free_iter(iterator); }
};

std::string TextOf(const char* text) { return text == nullptr ? std::string() : text; }

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

int ReadMountTable(const std::string& path, std::vector<Mount>& mounts) {
  const std::unique_ptr<libmnt_table, Releaser> table(mnt_new_table());
  const std::unique_ptr<libmnt_iter, Releaser> iterator(mnt_new_iter(MNT_ITER_FORWARD));
  if (!table || !iterator || mnt_table_parse_file(table.get(), path.c_str()) != 0) return -1;
  std::vector<Mount> read;
  libmnt_fs* entry = nullptr;
  while (mnt_table_next_fs(table.get(), iterator.get(), &entry) == 0) {
    read.push_back({.id = mnt_fs_get_id(entry),
                    .parent_id = mnt_fs_get_parent_id(entry),
                    .device_number = mnt_fs_get_devno(entry),
                    .mount_point = TextOf(mnt_fs_get_target(entry)),
                    .source = TextOf(mnt_fs_get_source(entry)),
                    .file_system = TextOf(mnt_fs_get_fstype(entry))});
  }
  mounts = std::move(read);
  return 0;
}

const Mount* FindMountOf(const std::vector<Mount>& mounts, const std::string& resolved_path) {
  const std::string_view path = resolved_path;
  const Mount* current = nullptr;
  std::size_t steps = 0;  // a table that refers to itself in a circle ends the walk
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
