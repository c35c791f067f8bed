#include <memory>
#include <nlohmann/json.hpp>

#include "ctl/commands.h"
#include "ctl/look_arguments.h"
#include "ctl/output.h"
#include "ctl/quiet_package.h"
#include "ctl/restoration.h"
#include "ctl/stop_signals.h"
#include "ctl/version_graph.h"
#include "ctl/volume_folder.h"
#include "logger/recording_sink.h"
#include "updater/intent_file.h"
#include "updater/placement.h"

namespace ctl {
namespace {

struct RestoreArguments {
  std::shared_ptr<LookArguments> look;
  std::string file;
  bool may_be_other_volume = false;
};

std::string UuidText(const std::string& uuid) { return uuid.empty() ? "no uuid" : uuid; }

int CheckVolume(const SaveManifest& manifest, const std::string& volume, const RestoreArguments& arguments,
                std::string& error) {
  const std::string uuid = ReadVolumeUuid(volume);
  if (arguments.may_be_other_volume || uuid == manifest.uuid) return 0;
  error = arguments.file + " is a save of another volume: of " + manifest.volume + " with " +
          UuidText(manifest.uuid) + ", while " + volume + " has " + UuidText(uuid) +
          "; --force-other-volume restores it all the same";
  return -1;
}

// What can be told without changing anything. The whole save is read for it.
int CheckSave(const RestoreArguments& arguments, const std::string& volume, SaveReader& reader,
              std::string& error) {
  const package::VolumePaths paths(volume);
  return reader.Open(arguments.file, error) == 0 &&
                 CheckVolume(reader.manifest(), volume, arguments, error) == 0 &&
                 CheckSpace(paths, reader.manifest(), error) == 0 &&
                 CheckNobodyWorks(paths, SystemOf(*arguments.look), error) == 0 &&
                 reader.ReadThrough(nullptr, error) == 0
             ? 0
             : -1;
}

// What a run or restore was putting in place when it was stopped. One that is damaged is set aside, and what
// it was about is replaced now.
int FinishFormer(const package::VolumePaths& paths, std::string& error) {
  logger::RecordingSink log;
  const logger::ScopedSink scope(log);
  updater::Intent intent;
  updater::IntentFound found{};
  if (updater::FinishFormerPlacement(paths) == 0) return 0;
  if (updater::ReadIntent(paths, found, intent) && found == updater::IntentFound::kNone) return 0;
  const std::string reason = log.lines().empty() ? "" : log.lines().front().text;
  error = "what a stopped run was putting in place cannot be finished: " + WithoutLineEnd(reason) +
          "; delete " + paths.intent + " to have everything replaced by the save";
  return -1;
}

void PrintRestore(const RestoreArguments& arguments, const std::string& volume, const SaveManifest& manifest,
                  const Streams& streams) {
  if (arguments.look->is_json) {
    Json json = NewDocument("restore");
    json["volume"] = volume;
    json["file"] = arguments.file;
    json["version"] = ToJson(manifest.version());
    json["bytes"] = manifest.bytes();
    PrintJson(json, streams.out);
    return;
  }
  streams.out << "Volume    " << Printable(volume) << "\n"
              << "Version   " << Printable(TextOf(manifest.version())) << "\n"
              << "Restored  " << Bytes(manifest.bytes()) << " from " << Printable(arguments.file) << "\n";
}

int RestoreVolume(const RestoreArguments& arguments, const Streams& streams) {
  std::string volume;
  std::string error;
  base::FileDescriptor lock;
  SaveReader save;
  const UpgradeWatch watch(SystemOf(*arguments.look));
  if (FindPackage(arguments.look->volume, volume, error) < 0 || LockFolder(volume, lock, error) < 0 ||
      CheckSave(arguments, volume, save, error) < 0) {
    return TellReason(streams, error, kRefused);
  }
  const package::VolumePaths paths(volume);
  if (watch.Check(error) < 0) return TellReason(streams, error, kRefused);
  if (FinishFormer(paths, error) < 0) return TellReason(streams, error, kFailed);
  switch (Restore(paths, save, watch, error)) {
    case Restored::kYes:
      break;
    case Restored::kNo:
      return TellReason(streams, "nothing was restored: " + error, kFailed);
    case Restored::kCommitted:
      return TellReason(streams,
                        "not everything could be put in place: " + error +
                            "; remove the cause and restore again, and start no daemon before",
                        kFailed);
  }
  RestoreMarkers(paths, save.manifest());
  PrintRestore(arguments, volume, save.manifest(), streams);
  return 0;
}

}  // namespace

Action DefineRestore(Arguments& command, const Streams& streams) {
  const auto arguments = std::make_shared<RestoreArguments>();
  arguments->look = AddLookArguments(command);
  command.AddPath("file", arguments->file, "The save, made by updater-ctl save").Require();
  command.AddFlag("--force-other-volume", arguments->may_be_other_volume,
                  "Restore a save of a volume with another uuid. The databases go on naming that volume: "
                  "the check after an upgrade removes the records of what this machine no longer has");
  command.SetFooter("Examples:\n  updater-ctl restore /volume1 /mnt/usb/before-upgrade.tar.zst");
  return [arguments, streams] {
    const StopSignals stop;
    return RestoreVolume(*arguments, streams);
  };
}

}  // namespace ctl
