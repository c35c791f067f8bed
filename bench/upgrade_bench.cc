// Measures a whole upgrade of a sample volume from 2577 to the current version: the time of every updater and
// of what stands around the chain (copies before it, moves and the check after it), bytes written, peak
// memory.
//
//   upgrade-bench [--nodes N] [--versions N] [--views N] [--folder F]
//
// The volume is made in the folder (default: a new one in the current folder) and removed afterwards. Times
// depend on the machine and its load: compare the shares of one run, or two builds run in turn.

#include <sys/resource.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "ctl/demo_platform.h"
#include "ctl/demo_state.h"
#include "ctl/run_report.h"
#include "ctl/sample_volume.h"
#include "logger/recording_sink.h"
#include "updater/database_check.h"
#include "updater/run_updater.h"
#include "updater/service_status.h"

namespace {

using Clock = std::chrono::steady_clock;

double MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// The bytes that this process has handed to the file systems so far; 0 where the kernel does not count them.
unsigned long long BytesWritten() {
  std::ifstream counters("/proc/self/io");
  std::string name;
  for (unsigned long long value = 0; counters >> name >> value;) {
    if (name == "wchar:") return value;
  }
  return 0;
}

struct StepRow {
  std::string name;
  double milliseconds;
  double megabytes;
};

double MegabytesSince(unsigned long long before) {
  return static_cast<double>(BytesWritten() - before) / 1e6;
}

// One row for every updater, and one for the time between it and what came before.
class StepMeter : public updater::RunObserver {
 public:
  void Start() {
    mark_ = Clock::now();
    bytes_ = BytesWritten();
  }
  void BeforeUpdate(const updater::AbstractUpdater& /*updater*/) override {
    if (rows_.empty()) Close("working copies");
    Start();
  }
  void AfterUpdate(const updater::AbstractUpdater& updater, int /*result*/) override {
    Close(std::to_string(updater.GetFromVersion().number) + " -> " +
          std::to_string(updater.GetToVersion().number));
    Start();
  }
  void Close(const std::string& name) {
    rows_.push_back({name, MillisecondsSince(mark_), MegabytesSince(bytes_)});
  }

  [[nodiscard]] const std::vector<StepRow>& rows() const { return rows_; }

 private:
  Clock::time_point mark_;
  unsigned long long bytes_ = 0;
  std::vector<StepRow> rows_;
};

// Runs the driver; returns the status word that it ends with.
std::string RunUpgrade(const std::string& volume, StepMeter& meter) {
  const platform::SystemPaths paths = platform::SystemPaths::Under(ctl::DefaultStateFolder(volume));
  ctl::DemoPlatform demo(package::VolumePaths(volume).live.user, ctl::MadeUpIdentity(), {});
  ctl::MadeFolders made;
  std::string status;
  if (ctl::PrepareState(paths, demo.platform().state_files, made, status) < 0) return status;
  updater::legacy::NoLegacySteps legacy;
  updater::DatabaseCheck check(paths, demo.platform());
  std::ostringstream ignored;
  logger::RecordingSink log;
  const logger::ScopedSink scope(log);
  const char* const arguments[] = {volume.c_str()};
  meter.Start();
  (void)updater::RunUpdater(arguments, {.paths = paths,
                                        .platform = demo.platform(),
                                        .legacy = legacy,
                                        .check = check,
                                        .out = ignored,
                                        .err = ignored,
                                        .observer = &meter});  // the status tells
  meter.Close("put in place, check");
  (void)updater::ServiceStatus(paths, demo.platform().state_files).GetServiceStatus(status);  // always 0
  return status;
}

void Print(const std::vector<StepRow>& rows) {
  double milliseconds = 0;
  double megabytes = 0;
  for (const StepRow& row : rows) {
    milliseconds += row.milliseconds;
    megabytes += row.megabytes;
  }
  std::printf("%-22s %10s %7s %12s\n", "step", "ms", "share", "MB written");
  for (const StepRow& row : rows) {
    std::printf("%-22s %10.1f %6.1f%% %12.1f\n", row.name.c_str(), row.milliseconds,
                100 * row.milliseconds / milliseconds, row.megabytes);
  }
  std::printf("%-22s %10.1f %6.1f%% %12.1f\n", "all", milliseconds, 100.0, megabytes);
  struct rusage usage {};
  (void)getrusage(RUSAGE_SELF, &usage);  // cannot fail with these arguments
  std::printf("peak memory: %.1f MB (making the sample included)\n",
              static_cast<double>(usage.ru_maxrss) / 1e3);
}

}  // namespace

int main(int argc, char** argv) {
  ctl::SampleSize size = {.nodes = 100000, .versions = 200000, .views = 50};
  std::string folder = "upgrade-bench." + std::to_string(getpid());
  CLI::App app("Measures a whole upgrade of a sample volume.");
  app.add_option("--nodes", size.nodes, "Nodes of all views together")->capture_default_str();
  app.add_option("--versions", size.versions, "Versions of all nodes together")->capture_default_str();
  app.add_option("--views", size.views, "Views, one user each")->capture_default_str();
  app.add_option("--folder", folder, "Where the volume is made; must not exist");
  CLI11_PARSE(app, argc, argv);

  const std::string volume = std::filesystem::absolute(folder).string();
  if (std::filesystem::exists(volume)) {
    std::fprintf(stderr, "upgrade-bench: %s exists\n", volume.c_str());
    return 1;
  }
  ctl::MadeFolders made;
  std::string error;
  if (ctl::MakeSampleVolume(volume, size, made, error) < 0) {
    std::fprintf(stderr, "upgrade-bench: %s\n", error.c_str());
    return 1;
  }
  StepMeter meter;
  const std::string status = RunUpgrade(volume, meter);
  std::filesystem::remove_all(volume);
  std::printf("%d nodes, %d versions, %d views: %s\n", size.nodes, size.versions, size.views, status.c_str());
  Print(meter.rows());
  return status == updater::status::kDone ? 0 : 1;
}
