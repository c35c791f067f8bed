// The fuzz targets. The program does what its name says, which is one of those in `kTargets`.
#include <sys/wait.h>
#include <unistd.h>

#include <cassert>
#include <cerrno>

#include "base/fnv.h"
#include "base/text.h"
#include "db/manager.h"
#include "platform/host/host_platform.h"
#include "platform/host/key_value_text.h"
#include "platform/host/mount_table.h"
#include "tests/support/fake_platform.h"
#include "tests/support/fixtures.h"
#include "tests/support/line_recorder.h"
#include "tests/support/temporary_folder.h"
#include "updater/database_check.h"
#include "updater/framework/stored_version.h"
#include "updater/placement_items.h"
#include "updater/run_updater.h"
#include "user-mgr/user_manager.h"

extern "C" int LLVMFuzzerTestOneInput(const char* data, std::size_t size);

namespace {

namespace fs = std::filesystem;
using base::TakeUntil;
using namespace platform::host;

const tests::TemporaryFolder folder;

// A number that is read stands in the text.
void VersionText(std::string_view input) {
  const std::optional<int> number = updater::ParseVersionNumber(std::string(input));
  assert(!number || input.find(std::to_string(std::abs(long{*number}))) != std::string::npos);
}

// A value that may be set is found, and others are as they were.
void KeyValueFile(std::string_view input) {
  const std::string_view key = TakeUntil(input, "\n");
  const std::string_view value = TakeUntil(input, "\n");
  std::string text(input);
  if (!IsKeyValuePair(key, value)) return;
  SetValue(text, key, value);
  assert(FindValue(text, key) == value);
  assert(key == "status" || FindValue(text, "status") == FindValue(input, "status"));
}

// What is found lies above what was asked for.
void MountTable(std::string_view input) {
  const std::string path = folder.Write("mounts", std::string(input));
  std::vector<std::string> points;
  (void)ReadMountPoints(path, points);  // most inputs are no tables
  std::vector<Mount> mounts;
  (void)ReadMountInfo(path, mounts);
  for (const Mount& mount : mounts) {
    const std::string asked = mount.mount_point + "/x";
    const Mount* const found = FindMountOf(mounts, asked);
    assert(found == nullptr || asked.starts_with(found->mount_point));
  }
}

// The input is files with '\1' in between, which include each other by their number. A section that is read
// can be asked for.
void SambaFiles(std::string_view input) {
  platform::SystemPaths paths;
  paths.samba = folder / "0";
  for (int i = 0; i < 20; ++i) (void)folder.Write(std::to_string(i), std::string(TakeUntil(input, "\1")));
  SambaConfiguration read;
  if (!ReadSambaConfiguration(paths.samba, read).ok() || !read.is_complete) return;
  HostShares shares(paths);
  platform::Share share;
  for (const auto& [folded, section] : read.sections) {
    assert(shares.Open(section.name, share) != platform::Lookup::kFailed);
  }
}

// What other lines say takes no source away, and a comment says nothing.
void Nsswitch(std::string_view input) {
  platform::SystemPaths paths;
  paths.nsswitch = folder / "nsswitch";
  HostServices services(paths);
  const auto answers = [&services](const std::string& text) {
    (void)folder.Write("nsswitch", text);
    return std::pair(services.IsLdapEnabled(), services.IsDomainEnabled());
  };
  const std::string text(input);
  assert(answers("passwd: sss winbind\n" + text) == std::pair(true, true));
  assert(answers(text + "\n#\npasswd: # sss winbind") == answers(text));
}

// The input is an intent without its last line, which keeps nobody from writing another. What is accepted is
// inside the package, and only with its own checksum and whole.
void Intent(std::string_view input) {
  const std::string text = std::string(input) + "checksum ";
  const std::uint64_t checksum = base::Fnv1a(input);
  const auto intent = updater::ParseIntent(text + std::to_string(checksum) + "\n");
  if (!intent) return;
  assert(updater::ParseIntent(text + std::to_string(checksum + 1) + "\n") == updater::ParseIntent(input));
  assert(updater::ParseIntent(updater::FormatIntent(*intent)) == intent);
  for (const updater::IntentItem& item : *intent) {
    const fs::path path = updater::PathsOf(package::VolumePaths("/v"), item).live;
    assert(path.lexically_normal() == path && path.native().find('\0') == std::string::npos);
    assert(path.native().starts_with("/v/@stratofolder/@sync/") || item.part == "client");
  }
}

// Takes a letter or any other byte off a line: 'a' is 0.
std::size_t Take(std::string_view& line) {
  const char first = line.empty() ? 'a' : line.front();
  line = line.substr(line.empty() ? 0 : 1);
  return static_cast<unsigned char>(first - 'a');
}

// Executes statements in a process that then ends as if it were killed: a transaction that they leave open
// becomes a hot journal, and what they write to a write-ahead log stays there.
void ExecuteAndDie(const std::string& path, const std::string& sql) {
  if (const pid_t child = fork(); child != 0) return (void)waitpid(child, nullptr, 0);
  (void)signal(SIGALRM, SIG_DFL);
  (void)alarm(1);  // some statements have no end
  sqlite3* db = nullptr;
  (void)sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
  (void)sqlite3_limit(db, SQLITE_LIMIT_ATTACHED, 0);
  (void)sqlite3_limit(db, SQLITE_LIMIT_LENGTH, 1 << 20);
  (void)sqlite3_exec(db, ("PRAGMA writable_schema = ON;" + sql).c_str(), nullptr, nullptr, nullptr);
  (void)sqlite3_db_cacheflush(db);
  _exit(0);
}

// The letters of a line tell what is done, to which page, and where in the page. What follows them is written
// there, or executed.
void Mutate(std::string path, std::string_view line) {
  static constexpr std::array kSuffixes = {"", "", "-wal", "-journal"};
  const std::size_t kind = Take(line) % 5;
  if (kind == 4) return ExecuteAndDie(path, std::string(line));
  path += kSuffixes.at(kind);
  std::string bytes = tests::ReadFile(path);
  const std::size_t page = Take(line) * 4096;
  const std::size_t place = Take(line);  // the head and the pointers of a page begin it, cells end it
  bytes.replace(std::min(kind == 1 ? page + 4095 - place : page + place, bytes.size()), line.size(), line);
  (void)tests::WriteFile(path, bytes);
}

// What a database says; 0 for one that is damaged or says nothing.
int VersionIn(const std::string& path) try {
  updater::Version read;
  const bool is_sound = tests::Query(path, "PRAGMA integrity_check") == "ok ";
  return is_sound && updater::ReadStoredVersion(path, read) == 0 ? read.number : 0;
} catch (const std::exception&) {
  return 0;
}

// A run on mutated databases. The first letter tells their version, each line after it is a mutation: a
// letter for the database, and what Mutate() takes.
void WholeRun(std::string_view input) try {
  const std::string run = folder / "run";
  const auto system = platform::SystemPaths::Under(run + "/system");
  const package::VolumePaths volume(run + "/volume");
  const int start = tests::kVersions.at(Take(input) % tests::kVersions.size());
  const std::string made = folder / std::to_string(start);
  tests::FakePlatform machine;
  machine.accounts.Add("O'Brien", 1026);
  fs::remove_all(run);
  fs::create_directory(run);
  if (!fs::exists(made)) {
    tests::WriteFixture(start, machine.volumes.own.uuid, "rights activity own-rotation", volume.live);
    fs::rename(volume.volume, made);
  }
  fs::copy(made, volume.volume, fs::copy_options::recursive);
  const auto databases = tests::DatabasesOf(volume.live);
  for ((void)TakeUntil(input, "\n"); !input.empty();) {
    std::string_view line = TakeUntil(input, "\n");
    Mutate(std::next(databases.begin(), static_cast<int>(Take(line) % databases.size()))->second, line);
  }
  fs::copy(volume.package_folder, run + "/source", fs::copy_options::recursive);
  std::map<std::string, int> versions;
  for (const auto& [name, path] : tests::DatabasesOf(tests::PackageIn(run + "/source"))) {
    versions[name] = VersionIn(path);
  }
  for (const std::string& file : {system.package_enabled, system.upgrading_mark, system.user_lock}) {
    (void)tests::WriteFile(file, "");
  }
  (void)tests::WriteFile(system.service_status, "status=initializing\n");
  const auto before = tests::ReadTree(run);

  std::ostringstream out;
  updater::legacy::LegacySteps legacy;
  updater::DatabaseCheck check(system, machine.platform());
  const updater::RunDependencies machinery = {system, machine.platform(), legacy, check, out, out};
  const char* const argument = volume.volume.c_str();
  (void)updater::RunUpdater({&argument, 1}, machinery);  // the status tells
  db::Manager::Destroy(false);
  user_mgr::UserManager::Destroy();

  // The databases are the old ones, or each of them that was sound is now the sound new one.
  const std::string status = tests::ReadFile(system.service_status);
  const bool is_done = status == "status=\"done\"\n";
  auto after = tests::ReadTree(run);
  bool is_old = !fs::exists(system.scratch_database) && !fs::exists(volume.intent);
  assert(is_old);
  for (const auto& [name, text] : before) {
    const bool is_same = after[name] == text || name.ends_with("-shm") || name.ends_with("/enable_status");
    is_old = is_old && is_same;
    assert(is_same || name.starts_with("volume/@strato"));
  }
  assert(is_done || status == "status=\"upgradefail\"\n" || (is_old && status == "status=\"dbnewer\"\n"));
  const bool is_upgraded = out.str().find("updating from") != std::string::npos;
  auto placed = tests::DatabasesOf(volume.live);
  for (const auto& [name, path] : placed) versions.try_emplace(name, package::kCurrentVersion);
  for (const auto& [name, version] : versions) {
    if ((is_old && !is_done) || versions["data"] == 0 || version == 0) continue;
    if (name.starts_with("view/") && !placed.contains(name)) continue;
    assert(VersionIn(placed[name]) == (is_upgraded ? package::kCurrentVersion : version));
  }
} catch (const fs::filesystem_error& error) {
  if (error.code() != std::errc::interrupted) throw;  // by the fuzzer's clock
}

const std::map<std::string_view, void (*)(std::string_view)> kTargets = {
    {"version-text", VersionText}, {"key-value-file", KeyValueFile}, {"mount-table", MountTable},
    {"smb-conf", SambaFiles},      {"nsswitch", Nsswitch},           {"intent", Intent},
    {"whole-run", WholeRun}};

}  // namespace

int LLVMFuzzerTestOneInput(const char* data, std::size_t size) {
  tests::LineRecorder sink;  // keeps the system's log free of it
  const logger::ScopedSink scope(sink);
  kTargets.at(program_invocation_short_name)({data, size});
  return 0;
}
