#include <unistd.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>

#include "base/errno.h"
#include "base/path.h"
#include "base/write_all.h"
#include "ctl/commands.h"
#include "ctl/html_page.h"
#include "ctl/look_arguments.h"
#include "ctl/new_file.h"
#include "ctl/rehearsal.h"
#include "ctl/rehearsal_report.h"
#include "ctl/volume_folder.h"

namespace ctl {
namespace {

struct RehearseArguments {
  std::shared_ptr<LookArguments> look;
  std::optional<std::string> into;
  std::optional<std::string> html;
  bool is_recorded = false;
};

// The page is written when all is done, never over the package's own, and over nothing else but a page.
// Returns 0, or -1 with the reason in `error`.
int CheckPage(const RehearsalPlace& place, std::optional<std::string>& page, std::string& error) {
  if (!page) return 0;
  if (FindStateFolder(*page, place.volume, *page, error) < 0) return -1;
  const std::string folder = base::FolderOf(*page);
  if (access(folder.c_str(), W_OK) == 0) return NewFile::Check(*page, kPageBegin, error);
  error = "cannot write into " + folder + ": " + base::Errno::Last().Text();
  return -1;
}

int WritePage(const std::string& path, const std::string& page, const Streams& streams) {
  NewFile file;
  std::string error;
  if (file.Make(path, error, kPageBegin) < 0) return TellReason(streams, error, kRefused);
  const base::Errno written = base::WriteAll(file.file(), page);
  if (!written.ok()) return TellReason(streams, "cannot write " + path + ": " + written.Text(), kRefused);
  return file.Publish(error) < 0 ? TellReason(streams, error, kRefused) : 0;
}

int ShowRehearsal(RehearseArguments arguments, const Streams& streams) {
  const platform::SystemPaths system = SystemOf(*arguments.look);
  RehearsalPlace place;
  std::string error;
  if (TakeRehearsalPlace(arguments.look->volume, arguments.into, system, place, error) < 0 ||
      CheckPage(place, arguments.html, error) < 0) {
    return TellReason(streams, error, kRefused);
  }
  // Made after the place: that forks, and this begins a thread.
  std::optional<updater::ProgressLine> progress;
  progress.emplace(streams.err, streams.err_terminal, "updater-ctl: ");
  Rehearsal rehearsal(&*progress);
  const Machine machine = arguments.is_recorded ? Machine::kRecorded : Machine::kThis;
  const int result = Rehearse(place, system, machine, *progress, rehearsal, error);
  progress.reset();
  if (result < 0) return TellReason(streams, error, kRefused);
  const bool is_kept = arguments.into.has_value();
  const std::string folder = place.folder.path();
  if (is_kept) place.folder.Keep();
  if (!place.folder.Remove()) {
    rehearsal.findings.push_back({Severity::kWarning, "copies-left", folder,
                                  "the copies of the rehearsal could not be removed", "remove the folder"});
  }
  const Json document = ToJson(place, rehearsal, is_kept ? folder : "");
  if (arguments.look->is_json) {
    PrintJson(document, streams.out);
  } else {
    PrintRehearsal(place, rehearsal, is_kept ? folder : "", streams);
  }
  if (arguments.html && WritePage(*arguments.html, HtmlPageOf(document), streams) != 0) {
    return kRefused;
  }
  return HasProblem(rehearsal.findings) ? kFailed : 0;
}

}  // namespace

Action DefineRehearse(Arguments& command, const Streams& streams) {
  const auto arguments = std::make_shared<RehearseArguments>();
  arguments->look = AddLookArguments(command);
  command.AddPath("--into", arguments->into,
                  "Make the copies in this new or empty folder and keep them (default: a folder on the "
                  "volume, removed again)");
  command.AddFlag("--recorded", arguments->is_recorded,
                  "Take accounts, shares and volumes for what the databases record: for samples and for "
                  "data of another machine");
  command.AddPath("--html", arguments->html, "Write a page with the result to this file, too");
  command.SetFooter(
      "Examples:\n  updater-ctl rehearse /volume1\n  updater-ctl rehearse /volume1 --html page.html\n"
      "  updater-ctl rehearse /volume1 --json > rehearsal.json\n"
      "  updater-ctl rehearse /tmp/sample --recorded --into /tmp/copies");
  return [arguments, streams] { return ShowRehearsal(*arguments, streams); };
}

}  // namespace ctl
