#include "ctl/diff_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "base/errno.h"
#include "base/path.h"
#include "base/write_all.h"
#include "ctl/look_arguments.h"
#include "ctl/save_archive.h"
#include "ctl/save_content.h"
#include "file-op/file_op.h"
#include "package/layout.h"

namespace ctl {
namespace {

// The databases of a package by what they are to people.
std::string NameOf(const package::VolumePaths& paths, const std::string& path) {
  const package::PackagePaths& live = paths.live;
  if (path == live.data) return "data";
  if (path == live.user) return "user";
  if (path == live.log) return "log";
  if (path == live.client) return "client";
  const std::string folder = base::FolderOf(path);
  return (base::FolderOf(folder) == live.view_folder ? "view " : "file ") + base::NameOf(folder);
}

// Puts the databases of a save into one folder, under numbers.
class Unpacker : public SaveTarget {
 public:
  Unpacker(const std::string& folder, std::map<std::string, std::string>& databases)
      : folder_(folder), databases_(databases) {}

  int BeginItem(const SavedItem& item, std::string& error) override {
    file_ = base::FileDescriptor();
    if (item.kind != SavedItem::Kind::kDatabase) return 0;
    const package::VolumePaths paths("");
    path_ = folder_ + "/" + std::to_string(databases_.size());
    file_ = base::FileDescriptor(
        open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    databases_[NameOf(paths, paths.package_folder + "/" + item.path)] = path_;
    return file_.is_open() ? 0 : Fail(base::Errno::Last(), error);
  }
  int AddPiece(const char* bytes, std::size_t length, std::string& error) override {
    const base::Errno result = file_.is_open() ? base::WriteAll(file_.get(), {bytes, length}) : base::Errno();
    return result.ok() ? 0 : Fail(result, error);
  }
  int EndItem(const SavedItem& /*item*/, std::string& error) override {
    return file_.Close() == 0 ? 0 : Fail(base::Errno::Last(), error);
  }

 private:
  int Fail(base::Errno reason, std::string& error) const {
    error = "cannot write " + path_ + ": " + reason.Text();
    return -1;
  }

  const std::string& folder_;
  std::map<std::string, std::string>& databases_;
  std::string path_;
  base::FileDescriptor file_;
};

// Whatever begins like a save is taken for one: a damaged database is to be called a database.
bool IsCompressed(const std::string& path) {
  constexpr std::array<unsigned char, 4> kZstd = {0x28, 0xB5, 0x2F, 0xFD};
  std::array<unsigned char, 4> begin{};
  const base::FileDescriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  return file.is_open() && pread(file.get(), begin.data(), begin.size(), 0) == 4 && begin == kZstd;
}

}  // namespace

DiffSource::~DiffSource() {
  if (!unpacked_.empty()) (void)file_op::FSRemoveTree(unpacked_, 0);  // a folder for temporary files
}

int DiffSource::OpenVolume(const std::string& path, std::string& error) {
  std::string volume;
  if (FindPackage(path, volume, error) < 0) return -1;
  const package::VolumePaths paths(volume);
  SaveManifest content;
  std::vector<std::string> left_out;
  if (ListContent(paths, content, left_out, error) < 0) return -1;
  for (const SavedItem& item : content.items) {
    const std::string database = paths.package_folder + "/" + item.path;
    if (item.kind == SavedItem::Kind::kDatabase) databases_[NameOf(paths, database)] = database;
  }
  kind_ = "volume";
  return 0;
}

int DiffSource::OpenSave(const std::string& path, std::string& error) {
  std::error_code failure;
  std::string folder = std::filesystem::temp_directory_path(failure).string();
  if (failure) {
    error = "TMPDIR, where a save is unpacked, is no folder: " + base::Errno(failure.value()).Text();
    return -1;
  }
  folder += "/updater-ctl.XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) {
    error = "cannot make the folder " + folder + ": " + base::Errno::Last().Text();
    return -1;
  }
  unpacked_ = folder;
  SaveReader save;
  Unpacker unpacker(unpacked_, databases_);
  kind_ = "save";
  return save.Open(path, error) == 0 ? save.ReadThrough(&unpacker, error) : -1;
}

int DiffSource::Open(const std::string& path, std::string& error) {
  struct stat status {};
  if (stat(path.c_str(), &status) < 0) {
    error = "cannot look at " + path + ": " + base::Errno::Last().Text();
    return -1;
  }
  if (S_ISDIR(status.st_mode)) return OpenVolume(path, error);
  if (IsCompressed(path)) return OpenSave(path, error);
  if (S_ISREG(status.st_mode) && access(path.c_str(), R_OK) == 0) {
    kind_ = "database";
    databases_[""] = path;
    return 0;
  }
  error = path + (S_ISREG(status.st_mode) ? " cannot be read" : " is no volume, save or database");
  return -1;
}

}  // namespace ctl
