#include "ctl/save_archive.h"

#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "base/errno.h"
#include "base/escape.h"
#include "base/retry.h"
#include "ctl/sha256.h"
#include "ctl/stop_signals.h"

namespace ctl {
namespace {

constexpr std::size_t kPiece = std::size_t{1} << 20;
constexpr const char* kDamaged = "it is cut off, or was altered since it was made";

struct FreeEntry {
  void operator()(archive_entry* entry) const noexcept { archive_entry_free(entry); }
};

std::string DigestOf(const std::string& text) {
  Sha256 digest;
  digest.Add(text.data(), text.size());
  return digest.Finish();
}

}  // namespace

// The library says little more than that it has failed.
int SaveWriter::Fail(std::string& error) {
  const int number = archive_errno(archive_.get());
  const char* const reason = archive_error_string(archive_.get());
  error = number > 0 ? base::Errno(number).Text() : reason != nullptr ? reason : "out of memory";
  return -1;
}

int SaveWriter::Begin(int file, std::string& error) {
  archive_.reset(archive_write_new());
  archive* const writer = archive_.get();
  const bool is_ready = writer != nullptr && archive_write_add_filter_zstd(writer) == ARCHIVE_OK &&
                        archive_write_set_format_gnutar(writer) == ARCHIVE_OK &&
                        archive_write_set_bytes_in_last_block(writer, 1) == ARCHIVE_OK &&
                        archive_write_open_fd(writer, file) == ARCHIVE_OK;
  if (is_ready) return 0;
  error = writer == nullptr ? "out of memory" : "";
  return writer == nullptr ? -1 : Fail(error);
}

int SaveWriter::BeginEntry(const std::string& name, std::int64_t bytes, const SavedItem& like,
                           std::string& error) {
  const std::unique_ptr<archive_entry, FreeEntry> entry(archive_entry_new());
  if (!entry) return Fail(error);
  archive_entry_set_pathname(entry.get(), base::Escape(name).c_str());
  archive_entry_set_filetype(entry.get(), AE_IFREG);
  archive_entry_set_size(entry.get(), bytes);
  archive_entry_set_perm(entry.get(), static_cast<mode_t>(like.mode));
  archive_entry_set_uid(entry.get(), like.owner);
  archive_entry_set_gid(entry.get(), like.group);
  // On 32 bits the library may have been built with another time_t. A restore takes times from the manifest.
  if constexpr (sizeof(long) == sizeof(time_t)) {
    archive_entry_set_mtime(entry.get(), static_cast<time_t>(like.modified), 0);
  }
  return archive_write_header(archive_.get(), entry.get()) == ARCHIVE_OK ? 0 : Fail(error);
}

int SaveWriter::Add(const char* bytes, std::size_t length, std::string& error) {
  while (length > 0) {
    const la_ssize_t written = archive_write_data(archive_.get(), bytes, length);
    if (written <= 0) return Fail(error);
    bytes += written;
    length -= static_cast<std::size_t>(written);
  }
  return 0;
}

int SaveWriter::AddText(const std::string& name, const std::string& text, const SavedItem& like,
                        std::string& error) {
  if (BeginEntry(name, static_cast<std::int64_t>(text.size()), like, error) < 0) return -1;
  return Add(text.data(), text.size(), error);
}

int SaveWriter::Finish(std::string& error) {
  return archive_write_close(archive_.get()) == ARCHIVE_OK ? 0 : Fail(error);
}

int SaveReader::Refuse(const std::string& reason, std::string& error) const {
  error = path_ + " is no save to restore: " + reason;
  return -1;
}

// A reason of the system is worth more than what the library makes of it.
int SaveReader::RefuseArchive(std::string& error) const {
  const int number = archive_errno(archive_.get());
  return Refuse(number == EIO || number == ENOMEM ? base::Errno(number).Text() : kDamaged, error);
}

int SaveReader::Open(const std::string& path, std::string& error) {
  path_ = path;
  file_ = base::FileDescriptor(
      base::RetryInterrupted([&] { return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }));
  struct stat status {};
  if (!file_.is_open() || fstat(file_.get(), &status) < 0) {
    error = "cannot read " + path + ": " + base::Errno::Last().Text();
    return -1;
  }
  return S_ISREG(status.st_mode) ? Begin(error) : Refuse("it is no file", error);
}

int SaveReader::Rewind(std::string& error) {
  const std::string digest = manifest_digest_;
  if (lseek(file_.get(), 0, SEEK_SET) < 0 || Begin(error) < 0) return Refuse(kDamaged, error);
  return manifest_digest_ == digest ? 0 : Refuse(kDamaged, error);
}

int SaveReader::Begin(std::string& error) {
  archive_.reset(archive_read_new());
  archive* const reader = archive_.get();
  if (reader == nullptr || archive_read_support_filter_zstd(reader) != ARCHIVE_OK ||
      archive_read_support_format_tar(reader) != ARCHIVE_OK ||
      archive_read_open_fd(reader, file_.get(), kPiece) != ARCHIVE_OK) {
    return Refuse("it is cut off, or no archive of updater-ctl", error);
  }
  std::string text;
  std::string reason;
  std::int64_t bytes = 0;
  if (NextEntry(kManifestName, bytes, error) < 0 || ReadText(bytes, text, error) < 0) return -1;
  if (ParseManifest(text, manifest_, reason) < 0) return Refuse(reason, error);
  manifest_digest_ = DigestOf(text);
  return 0;
}

int SaveReader::NextEntry(const std::string& name, std::int64_t& bytes, std::string& error) {
  archive_entry* entry = nullptr;
  if (archive_read_next_header(archive_.get(), &entry) != ARCHIVE_OK) return RefuseArchive(error);
  const char* const found = archive_entry_pathname(entry);
  if (found == nullptr || base::Escape(name) != found || archive_entry_filetype(entry) != AE_IFREG ||
      archive_entry_hardlink(entry) != nullptr || archive_entry_size_is_set(entry) == 0) {
    return Refuse(kDamaged, error);
  }
  bytes = archive_entry_size(entry);
  return 0;
}

int SaveReader::ReadText(std::int64_t bytes, std::string& text, std::string& error) {
  if (bytes < 0 || bytes > static_cast<std::int64_t>(kLongestManifest)) return Refuse(kDamaged, error);
  text.resize(static_cast<std::size_t>(bytes));
  return archive_read_data(archive_.get(), text.data(), text.size()) == bytes ? 0 : RefuseArchive(error);
}

int SaveReader::ReadItem(const SavedItem& item, SaveTarget* target, std::string& error) {
  std::int64_t bytes = 0;
  if (NextEntry(item.path, bytes, error) < 0) return -1;
  if (bytes != item.bytes) return Refuse(kDamaged, error);
  if (target != nullptr && target->BeginItem(item, error) < 0) return -1;
  std::vector<char> piece(kPiece);
  Sha256 digest;
  for (;;) {
    if (CheckStop(error) < 0) return -1;
    const la_ssize_t length = archive_read_data(archive_.get(), piece.data(), piece.size());
    if (length < 0) return RefuseArchive(error);
    if (length == 0) break;
    bytes -= length;
    digest.Add(piece.data(), static_cast<std::size_t>(length));
    if (target != nullptr && target->AddPiece(piece.data(), static_cast<std::size_t>(length), error) < 0) {
      return -1;
    }
  }
  if (bytes != 0 || digest.Finish() != item.sha256) return Refuse(kDamaged, error);
  return target == nullptr ? 0 : target->EndItem(item, error);
}

int SaveReader::ReadThrough(SaveTarget* target, std::string& error) {
  for (const SavedItem& item : manifest_.items) {
    if (item.has_content() && ReadItem(item, target, error) < 0) return -1;
  }
  std::string text;
  std::int64_t bytes = 0;
  if (NextEntry(kManifestDigestName, bytes, error) < 0 || ReadText(bytes, text, error) < 0) return -1;
  archive_entry* entry = nullptr;
  const bool is_end =
      text == manifest_digest_ + "\n" && archive_read_next_header(archive_.get(), &entry) == ARCHIVE_EOF;
  return is_end ? 0 : Refuse(kDamaged, error);
}

}  // namespace ctl
