#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>

#include "base/errno.h"
#include "base/path.h"
#include "ctl/commands.h"
#include "ctl/inspection.h"
#include "ctl/look_arguments.h"
#include "ctl/new_file.h"
#include "ctl/output.h"
#include "ctl/package_state.h"
#include "ctl/quiet_package.h"
#include "ctl/save_archive.h"
#include "ctl/save_content.h"
#include "ctl/sha256.h"
#include "ctl/stop_signals.h"
#include "ctl/version_graph.h"
#include "ctl/volume_folder.h"

namespace ctl {
namespace {

struct SaveArguments {
  std::shared_ptr<LookArguments> look;
  std::string file;
};

// What is saved while nobody else of this program works on the volume.
struct Source {
  std::string volume;
  base::FileDescriptor lock;
};

int TakeSource(const SaveArguments& arguments, Source& source, std::string& error) {
  if (FindPackage(arguments.look->volume, source.volume, error) < 0 ||
      LockFolder(source.volume, source.lock, error) < 0) {
    return -1;
  }
  const package::VolumePaths paths(source.volume);
  if (CheckNobodyWorks(paths, SystemOf(*arguments.look), error) < 0) return -1;
  return CheckNoCommit(paths, error);
}

// Every byte is read a second time and compared with the first, so all of them are of the one moment between.
int WriteContent(const package::VolumePaths& paths, const SavedItem& item, SaveWriter& writer,
                 std::string& error) {
  SavedContent content;
  Sha256 digest;
  if (content.Open(paths, item, error) < 0) return -1;
  const std::string changed = paths.package_folder + "/" + item.path +
                              " was changed while it was saved: stop the package's daemons first";
  if (content.size() != item.bytes) {
    error = changed;
    return -1;
  }
  const auto add = [&](const char* bytes, std::size_t length) {
    digest.Add(bytes, length);
    return writer.Add(bytes, length, error) == 0;
  };
  if (writer.BeginEntry(item.path, item.bytes, item, error) < 0 || content.Read(add, error) < 0) return -1;
  if (digest.Finish() == item.sha256) return 0;
  error = changed;
  return -1;
}

int WriteSave(const package::VolumePaths& paths, const SaveManifest& manifest, int file, std::string& error) {
  constexpr std::uint32_t kPrivate = 0600;
  const std::string text = FormatManifest(manifest);
  Sha256 digest;
  digest.Add(text.data(), text.size());
  const SavedItem like = {.path = {}, .mode = kPrivate, .modified = manifest.made};
  SaveWriter writer;
  if (writer.Begin(file, error) < 0 || writer.AddText(kManifestName, text, like, error) < 0) return -1;
  for (const SavedItem& item : manifest.items) {
    if (item.has_content() && WriteContent(paths, item, writer, error) < 0) return -1;
  }
  return writer.AddText(kManifestDigestName, digest.Finish() + "\n", like, error) == 0 ? writer.Finish(error)
                                                                                       : -1;
}

void PrintSave(const SaveArguments& arguments, const SaveManifest& manifest, std::int64_t file_bytes,
               const std::vector<std::string>& left_out, const Findings& findings, const Streams& streams) {
  std::size_t databases = 0;
  for (const SavedItem& item : manifest.items) databases += item.kind == SavedItem::Kind::kDatabase ? 1 : 0;
  if (arguments.look->is_json) {
    Json json = NewDocument("save");
    json["volume"] = manifest.volume;
    json["uuid"] = manifest.uuid;
    json["file"] = arguments.file;
    json["file_bytes"] = file_bytes;
    json["version"] = ToJson(manifest.version());
    json["databases"] = databases;
    json["bytes"] = manifest.bytes();
    json["left_out"] = left_out;
    json["findings"] = ToJson(findings);
    PrintJson(json, streams.out);
    return;
  }
  streams.out << "Volume    " << Printable(manifest.volume) << "\n"
              << "Version   " << Printable(TextOf(manifest.version())) << "\n"
              << "Saved     " << Count(databases, "database") << ", " << Bytes(manifest.bytes()) << "\n"
              << "File      " << Printable(arguments.file) << ", " << Bytes(file_bytes) << "\n";
  for (const std::string& path : left_out) {
    streams.out << "Left out  " << Printable(path) << ", a link or no database\n";
  }
  PrintFindings(findings, streams);
  streams.out << "Back with updater-ctl restore " << Printable(manifest.volume) << " "
              << Printable(arguments.file) << "\n";
}

// Restores and upgrades remove what lies there.
bool IsInPackage(const package::VolumePaths& paths, const std::string& file) {
  std::error_code failure;
  const std::string folder = std::filesystem::canonical(base::FolderOf(file), failure).string();
  return !failure && (folder + "/").starts_with(paths.package_folder + "/");
}

int SaveVolume(const SaveArguments& arguments, const Streams& streams) {
  Source source;
  std::string error;
  if (TakeSource(arguments, source, error) < 0) return TellReason(streams, error, kRefused);
  const package::VolumePaths paths(source.volume);
  if (access(paths.live.data.c_str(), F_OK) < 0) {
    return TellReason(streams, paths.live.data + ": " + base::Errno::Last().Text() + ", so nothing is saved",
                      kRefused);
  }
  NewFile file;
  if (IsInPackage(paths, arguments.file)) {
    return TellReason(streams, arguments.file + " is in the folder that is to be saved", kRefused);
  }
  if (file.Make(arguments.file, error) < 0) return TellReason(streams, error, kRefused);
  SaveManifest manifest = {.volume = source.volume,
                           .uuid = ReadVolumeUuid(source.volume),
                           .made = std::time(nullptr),
                           .items = {}};
  std::vector<std::string> left_out;
  std::string damaged;
  SaveManifest again;
  if (ListContent(paths, manifest, left_out, error) < 0 || DigestContent(paths, manifest, error) < 0) {
    return TellReason(streams, error, kRefused);
  }
  // What could not be restored is no save.
  if (ParseManifest(FormatManifest(manifest), again, damaged) < 0) {
    return TellReason(streams, source.volume + " cannot be saved: " + damaged, kRefused);
  }
  if (WriteSave(paths, manifest, file.file(), error) < 0) {
    return TellReason(streams, "cannot write " + arguments.file + ": " + error, kFailed);
  }
  const off_t bytes = lseek(file.file(), 0, SEEK_END);
  if (file.Publish(error) < 0) return TellReason(streams, error, kFailed);
  // It is saved as it is, for nobody may have a better one.
  const VolumeSurvey survey = SurveyVolume(paths.live, SurveyDepth::kVersions);
  Findings findings = InspectIntegrity(survey, Integrity::kQuick);
  for (const DatabaseSurvey& database : survey.databases) {
    if (database.bytes > 0) continue;  // for SQLite, an empty file is a whole database
    findings.push_back({Severity::kProblem, "unreadable-database", database.path, database.error,
                        "restore it from a backup, if there is one"});
  }
  PrintSave(arguments, manifest, bytes, left_out, findings, streams);
  return HasProblem(findings) ? kFailed : 0;
}

}  // namespace

Action DefineSave(Arguments& command, const Streams& streams) {
  const auto arguments = std::make_shared<SaveArguments>();
  arguments->look = AddLookArguments(command);
  command.AddPath("file", arguments->file, "Where the save is written; nothing may be there yet").Require();
  command.SetFooter(
      "Examples:\n  updater-ctl save /volume1 /mnt/usb/before-upgrade.tar.zst\n"
      "  updater-ctl restore /volume1 /mnt/usb/before-upgrade.tar.zst");
  return [arguments, streams] {
    const StopSignals stop;
    return SaveVolume(*arguments, streams);
  };
}

}  // namespace ctl
