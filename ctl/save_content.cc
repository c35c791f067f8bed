#include "ctl/save_content.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "base/errno.h"
#include "base/path.h"
#include "base/retry.h"
#include "ctl/sha256.h"
#include "ctl/stop_signals.h"
#include "db-util/database_files.h"
#include "db-util/guarded_files.h"
#include "file-op/file_op.h"
#include "file-op/tree_walk.h"
#include "updater/framework/stored_version.h"

namespace ctl {
namespace {

using file_op::Entry;
using file_op::FilePlace;
using file_op::FolderCursor;
using package::VolumePaths;
using Kind = SavedItem::Kind;

constexpr int kPiece = 1 << 20;

class Lister {
 public:
  Lister(const VolumePaths& paths, SaveManifest& manifest, std::vector<std::string>& left_out)
      : paths_(paths), manifest_(manifest), left_out_(left_out) {}

  // What is not there is success, of everything that follows. Otherwise they return 0, or -1 with errno set
  // and the path in failed().
  int Add(Kind kind, const std::string& path) { return AddAt(kind, file_op::At(path)); }
  int AddAt(Kind kind, const FilePlace& place);
  int AddViews();
  int AddFiles();
  int AddMarkers();

  [[nodiscard]] const std::string& failed() const { return failed_; }

 private:
  int Fail(const std::string& path) {
    failed_ = path;
    return -1;
  }
  int AddView(const std::string& view);
  // The folders behind links are somebody else's.
  void LeaveLinksOut(const std::string& folder);

  const VolumePaths& paths_;
  SaveManifest& manifest_;
  std::vector<std::string>& left_out_;
  std::string failed_;
};

int Lister::AddAt(Kind kind, const FilePlace& place) {
  // Where its owner has put a database is his business, and upgrades follow a link to the views.
  const bool is_followed = kind == Kind::kDatabase || place.path == paths_.live.view_folder;
  const int flags = is_followed ? 0 : AT_SYMLINK_NOFOLLOW;
  struct stat status {};
  if (fstatat(place.at, place.name.c_str(), &status, flags) < 0) {
    if (errno != ENOENT && errno != ENOTDIR) return Fail(place.path);
    if (file_op::Find(place) == 1) left_out_.push_back(place.path);  // a link to nowhere
    return 0;
  }
  const mode_t type = status.st_mode & S_IFMT;
  const bool is_folder = kind == Kind::kFolder || kind == Kind::kMarkerFolder;
  if (kind != Kind::kLink && type != (is_folder ? S_IFDIR : S_IFREG)) {
    left_out_.push_back(place.path);
    return 0;
  }
  SavedItem item = {.kind = kind, .path = place.path.substr(paths_.package_folder.size() + 1)};
  if (kind == Kind::kLink) {
    std::array<char, PATH_MAX> target{};
    const ssize_t length = readlinkat(place.at, place.name.c_str(), target.data(), target.size());
    if (length < 0) return Fail(place.path);
    item.target.assign(target.data(), static_cast<std::size_t>(length));
  }
  item.mode = status.st_mode & ALLPERMS;
  item.owner = status.st_uid;
  item.group = status.st_gid;
  item.modified = status.st_mtim.tv_sec;
  item.modified_ns = status.st_mtim.tv_nsec;
  manifest_.items.push_back(std::move(item));
  return 0;
}

void Lister::LeaveLinksOut(const std::string& folder) {
  file_op::Folder opened;
  std::vector<std::string> links;
  if (opened.Open(file_op::At(folder), 0) < 0 || file_op::ListLinkedFolders(opened, links) < 0) return;
  for (const std::string& name : links) left_out_.emplace_back(folder).append("/").append(name);
}

int Lister::AddView(const std::string& view) {
  const std::string folder = paths_.live.ViewFolder(view);
  const bool is_listed =
      Add(Kind::kFolder, folder) == 0 && Add(Kind::kDatabase, paths_.live.ViewDatabase(view)) == 0 &&
      Add(Kind::kMarkerFolder, folder + "/sign") == 0 && Add(Kind::kMarker, folder + "/sign/.0") == 0;
  return is_listed ? 0 : -1;
}

int Lister::AddViews() {
  const std::string& folder = paths_.live.view_folder;
  std::vector<std::string> views;
  if (file_op::Find(file_op::At(folder)) == 0) return 0;
  if (Add(Kind::kFolder, folder) < 0 || file_op::ListFolders(folder, views) < 0) return Fail(folder);
  LeaveLinksOut(folder);
  std::sort(views.begin(), views.end());
  for (const std::string& view : views) {
    if (AddView(view) < 0) return -1;
  }
  return 0;
}

// The folder of files, with everything in it: a restore puts it in place as a whole.
class FileLister : public file_op::TraverseHandler {
 public:
  FileLister(Lister& lister, const package::PackagePaths& live) : lister_(lister), live_(live) {}

  int OnEntry(const FolderCursor& folder, const Entry& entry) override {
    const FilePlace place = folder.here().In(entry.name);
    if (entry.type == Entry::Type::kFolder) return lister_.AddAt(Kind::kFolder, place);
    const std::string database = live_.FileDatabase(base::NameOf(folder.path()));
    if (place.path == database) return lister_.AddAt(Kind::kDatabase, place);
    const auto files = db_util::DatabaseFiles(database);
    if (std::find(files.begin(), files.end(), place.path) != files.end()) return 0;  // taken in
    // A pipe or socket is left out.
    return lister_.AddAt(entry.type == Entry::Type::kLink ? Kind::kLink : Kind::kFile, place);
  }

 private:
  Lister& lister_;
  const package::PackagePaths& live_;
};

int Lister::AddFiles() {
  const std::string& folder = paths_.live.file_folder;
  if (file_op::Find(file_op::At(folder)) == 0) return 0;
  if (Add(Kind::kFolder, folder) < 0) return -1;
  FolderCursor cursor;
  FileLister handler(*this, paths_.live);
  return cursor.OpenTop(file_op::At(folder)) < 0 || WalkTree(cursor, handler) < 0 ? Fail(folder) : 0;
}

int Lister::AddMarkers() {
  const std::string& sync = paths_.live.sync_folder;
  if (Add(Kind::kMarkerFolder, base::FolderOf(paths_.live.client)) < 0) return -1;
  for (const char* folder : kMarkerFolders) {
    if (Add(Kind::kMarkerFolder, sync + folder) < 0) return -1;
  }
  for (const char* file : kMarkers) {
    if (Add(Kind::kMarker, sync + file) < 0) return -1;
  }
  return 0;
}

}  // namespace

int ListContent(const VolumePaths& paths, SaveManifest& manifest, std::vector<std::string>& left_out,
                std::string& error) {
  Lister lister(paths, manifest, left_out);
  const bool is_listed = lister.Add(Kind::kDatabase, paths.live.data) == 0 &&
                         lister.Add(Kind::kDatabase, paths.live.user) == 0 &&
                         lister.Add(Kind::kDatabase, paths.live.log) == 0 &&
                         lister.Add(Kind::kDatabase, paths.live.client) == 0 && lister.AddMarkers() == 0 &&
                         lister.AddViews() == 0 && lister.AddFiles() == 0;
  if (is_listed) return 0;
  error = "cannot read " + lister.failed() + ": " + base::Errno::Last().Text();
  return -1;
}

int SavedContent::Open(const VolumePaths& paths, const SavedItem& item, std::string& error) {
  path_ = paths.package_folder + "/" + item.path;
  is_database_ = item.kind == Kind::kDatabase;
  if (is_database_) {
    const db_util::Status status = image_.Open(path_);
    error = "cannot read " + path_ + ": " + status.message;
    if (status.code == SQLITE_FULL) error += "; what lies in its journal or log is too much to be looked at";
    size_ = image_.size();
    return status.ok() ? 0 : -1;
  }
  struct stat status {};
  file_ = base::FileDescriptor(db_util::OpenGuardedFile(path_, O_RDONLY, true));
  if (file_.is_open() && fstat(file_.get(), &status) == 0) {
    size_ = status.st_size;
    return 0;
  }
  error = "cannot read " + path_ + ": " + base::Errno::Last().Text();
  return -1;
}

std::optional<updater::Version> SavedContent::ReadVersion() const {
  updater::Version version;
  if (!is_database_ || !updater::ReadVersionFrom(image_.db(), version).empty()) return std::nullopt;
  return version;
}

int SavedContent::Read(const Use& use, std::string& error) const {
  std::vector<char> piece(kPiece);
  for (std::int64_t at = 0; at < size_;) {
    if (CheckStop(error) < 0) return -1;
    const int length = static_cast<int>(std::min<std::int64_t>(kPiece, size_ - at));
    const bool is_read =
        is_database_ ? image_.Read(piece.data(), length, at)
                     : base::RetryInterrupted([&] {
                         return pread(file_.get(), piece.data(), static_cast<std::size_t>(length), at);
                       }) == length;
    if (!is_read) {
      error = "cannot read " + path_ + " to its end";
      return -1;
    }
    if (!use(piece.data(), static_cast<std::size_t>(length))) return -1;
    at += length;
  }
  return 0;
}

int DigestContent(const VolumePaths& paths, SaveManifest& manifest, std::string& error) {
  for (SavedItem& item : manifest.items) {
    if (!item.has_content()) continue;
    SavedContent content;
    Sha256 digest;
    const auto add = [&digest](const char* bytes, std::size_t length) {
      digest.Add(bytes, length);
      return true;
    };
    if (content.Open(paths, item, error) < 0 || content.Read(add, error) < 0) return -1;
    item.bytes = content.size();
    item.version = content.ReadVersion();
    item.sha256 = digest.Finish();
  }
  return 0;
}

}  // namespace ctl
