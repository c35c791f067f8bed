#include "ctl/working_copy_maker.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "base/errno.h"
#include "base/path.h"
#include "base/retry.h"
#include "base/write_all.h"
#include "file-op/file_op.h"

namespace ctl {
namespace {

using file_op::Folder;
using Kind = SavedItem::Kind;

int Fail(const std::string& path, base::Errno reason, std::string& error) {
  error = "cannot write " + path + ": " + reason.Text();
  return -1;
}

std::array<timespec, 2> TimesOf(const SavedItem& item) {
  const timespec modified = {static_cast<time_t>(item.modified), static_cast<long>(item.modified_ns)};
  return {modified, modified};
}

}  // namespace

int ApplyAttributes(int fd, const SavedItem& item) {
  struct stat like {};
  like.st_mode = static_cast<mode_t>(item.mode);
  like.st_uid = item.owner;
  like.st_gid = item.group;
  return file_op::ApplyOwnerAndMode(fd, like) < 0 ? -1 : futimens(fd, TimesOf(item).data());
}

int MakeNewFolder(const std::string& path, Folder& folder) {
  Folder above;
  std::string name;
  return file_op::OpenAround(path, above, name) < 0 ? -1 : folder.Make(above.In(name));
}

std::string WorkingCopyMaker::CopyOf(const SavedItem& item) const {
  std::string path = paths_.package_folder + "/" + item.path;
  const package::PackagePaths& live = paths_.live;
  const package::PackagePaths& copies = paths_.copies;
  for (const auto& [from, to] : {std::pair(&live.data, &copies.data),
                                 {&live.user, &copies.user},
                                 {&live.log, &copies.log},
                                 {&live.client, &copies.client},
                                 {&live.view_folder, &copies.view_folder},
                                 {&live.file_folder, &copies.file_folder}}) {
    if (path == *from || path.starts_with(*from + "/")) return *to + path.substr(from->size());
  }
  return path;  // of no part: there is none
}

int WorkingCopyMaker::Begin(const SaveManifest& manifest, std::string& error) {
  for (const SavedItem& item : manifest.items) {
    Folder folder;
    const std::string path = CopyOf(item);
    if (item.kind == Kind::kFolder && MakeNewFolder(path, folder) < 0) {
      return Fail(path, base::Errno::Last(), error);
    }
    if (item.kind == Kind::kLink && MakeLink(item, error) < 0) return -1;
  }
  return 0;
}

int WorkingCopyMaker::MakeLink(const SavedItem& item, std::string& error) const {
  Folder above;
  std::string name;
  const std::string path = CopyOf(item);
  const bool is_made =
      file_op::OpenAround(path, above, name) == 0 &&
      symlinkat(item.target.c_str(), above.fd(), name.c_str()) == 0 &&
      (fchownat(above.fd(), name.c_str(), item.owner, item.group, AT_SYMLINK_NOFOLLOW) == 0 ||
       errno == EPERM) &&
      utimensat(above.fd(), name.c_str(), TimesOf(item).data(), AT_SYMLINK_NOFOLLOW) == 0;
  return is_made ? 0 : Fail(path, base::Errno::Last(), error);
}

int WorkingCopyMaker::BeginItem(const SavedItem& item, std::string& error) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  Folder above;
  std::string name;
  path_ = CopyOf(item);
  if (file_op::OpenAround(path_, above, name) < 0) return Fail(path_, base::Errno::Last(), error);
  file_ = base::FileDescriptor(
      base::RetryInterrupted([&] { return openat(above.fd(), name.c_str(), kFlags, S_IRUSR | S_IWUSR); }));
  return file_.is_open() ? 0 : Fail(path_, base::Errno::Last(), error);
}

int WorkingCopyMaker::AddPiece(const char* bytes, std::size_t length, std::string& error) {
  const base::Errno result = base::WriteAll(file_.get(), {bytes, length});
  return result.ok() ? 0 : Fail(path_, result, error);
}

int WorkingCopyMaker::EndItem(const SavedItem& item, std::string& error) {
  const bool is_done = ApplyAttributes(file_.get(), item) == 0 && file_.Close() == 0;
  return is_done ? 0 : Fail(path_, base::Errno::Last(), error);
}

int WorkingCopyMaker::Finish(const SaveManifest& manifest, std::string& error) {
  // What is in a folder comes behind it.
  for (auto item = manifest.items.rbegin(); item != manifest.items.rend(); ++item) {
    if (item->kind != Kind::kFolder) continue;
    Folder above;
    Folder folder;
    std::string name;
    const std::string path = CopyOf(*item);
    if (file_op::OpenAround(path, above, name) < 0 || folder.Open(above.In(name)) < 0 ||
        ApplyAttributes(folder.fd(), *item) < 0) {
      return Fail(path, base::Errno::Last(), error);
    }
  }
  return 0;
}

}  // namespace ctl
