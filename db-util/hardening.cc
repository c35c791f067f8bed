#include "db-util/hardening.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "db-util/argument_text.h"
#include "logger/log_sink.h"

namespace db_util {
namespace {

struct Setting {
  int option;
  int value;
};
constexpr std::array<Setting, 4> kSettings = {{{SQLITE_DBCONFIG_DEFENSIVE, 1},
                                               {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},
                                               {SQLITE_DBCONFIG_ENABLE_VIEW, 0},
                                               {SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0}}};

// Well above what the databases and the statements of this program need.
constexpr std::array<Setting, 10> kLimits = {{{SQLITE_LIMIT_LENGTH, 64 << 20},
                                              {SQLITE_LIMIT_SQL_LENGTH, 16 << 20},
                                              {SQLITE_LIMIT_COLUMN, 200},
                                              {SQLITE_LIMIT_EXPR_DEPTH, 200},
                                              {SQLITE_LIMIT_COMPOUND_SELECT, 50},
                                              {SQLITE_LIMIT_FUNCTION_ARG, 16},
                                              {SQLITE_LIMIT_ATTACHED, 7},
                                              {SQLITE_LIMIT_LIKE_PATTERN_LENGTH, 100},
                                              {SQLITE_LIMIT_TRIGGER_DEPTH, 10},
                                              {SQLITE_LIMIT_WORKER_THREADS, 0}}};

// The page caches of all databases that are attached at once fit into it. When it is full, SQLite reuses
// pages before it gives up.
constexpr sqlite3_int64 kHeapLimit = sqlite3_int64{384} << 20;

// The package's trigger calls functions with this name in front, which the package registers.
constexpr std::string_view kPackageFunction = "get_mac_attr_";

constexpr int kInstructionsBetweenLooks = 1000;
// Many times what a slow appliance needs for a statement that looks at every row and makes indexes, also with
// a bad plan. A statement that never ends is still stopped soon in a small database, and some day in a large
// one.
constexpr int kSeconds = 2;
constexpr double kSecondsPerByte = 20.0 / (1 << 20);

WorkLimit*& Innermost() {
  static thread_local WorkLimit* innermost = nullptr;
  return innermost;
}

// By this thread, of the processor.
double UsedSeconds() {
  constexpr double kNanoseconds = 1e-9;
  timespec used{};
  (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);  // cannot fail for the own thread
  return static_cast<double>(used.tv_sec) + kNanoseconds * static_cast<double>(used.tv_nsec);
}

void Refuse(sqlite3_context* context, int /*count*/, sqlite3_value** /*values*/) {
  sqlite3_result_error(context, "this function is not used here", -1);
}

// What SQLite's own does.
void Replace(sqlite3_context* context, int /*count*/, sqlite3_value** values) {
  for (int i = 0; i < 3; ++i) {
    if (sqlite3_value_type(values[i]) == SQLITE_NULL) return;  // the result is NULL
  }
  const std::string_view pattern = ArgumentText(values[1]);
  if (pattern.empty()) return sqlite3_result_value(context, values[0]);
  const std::string_view replacement = ArgumentText(values[2]);
  std::string text(ArgumentText(values[0]));
  for (std::size_t at = 0; (at = text.find(pattern, at)) != std::string::npos; at += replacement.size()) {
    text.replace(at, pattern.size(), replacement);
  }
  sqlite3_result_text64(context, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

// One call can take hours: the time grows with the product of the lengths of both arguments. Others take a
// second, and an expression may have thousands; nobody looks at the clock before its end. No statement of
// this program uses them, but one.
bool IsEndless(std::string_view name, int arguments) {
  return name == "instr" || name == "randomblob" || name.starts_with("json") || name.starts_with("->") ||
         (name.ends_with("trim") && arguments == 2);
}
constexpr int kReplaceArguments = 3;

using Call = void (*)(sqlite3_context*, int, sqlite3_value**);

// A schema cannot call the function. What is not deterministic SQLite lets a CHECK call all the same.
int KeepFromSchemas(sqlite3* db, const char* name, int arguments, Call call) {
  constexpr int kFlags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_DIRECTONLY;
  return sqlite3_create_function(db, name, arguments, kFlags, nullptr, call, nullptr, nullptr);
}

int KeepEndlessFunctionsFromSchemas(sqlite3* db) {
  int code = KeepFromSchemas(db, "replace", kReplaceArguments, Replace);
  std::vector<std::pair<std::string, int>> functions;
  const auto add = [](void* list, int /*count*/, char** row, char** /*names*/) {
    const auto arguments = static_cast<int>(std::strtol(row[4], nullptr, 10));
    if (IsEndless(row[0], arguments))
      static_cast<decltype(functions)*>(list)->emplace_back(row[0], arguments);
    return 0;
  };
  // The pragma, because a table of that name would make SQLite read the schema.
  if (code == SQLITE_OK) code = sqlite3_exec(db, "PRAGMA function_list;", add, &functions, nullptr);
  for (const auto& [name, arguments] : functions) {
    if (code == SQLITE_OK) code = KeepFromSchemas(db, name.c_str(), arguments, Refuse);
  }
  return code;
}

int Authorize(void* /*unused*/, int action, const char* /*unused*/, const char* function,
              const char* /*schema*/, const char* trigger) {
  const bool is_call = action == SQLITE_FUNCTION && trigger != nullptr;
  return is_call && !std::string_view(function).starts_with(kPackageFunction) ? SQLITE_DENY : SQLITE_OK;
}

template <typename Use>
void ForEachFile(sqlite3* db, const Use& use) {
  const char* schema = nullptr;
  for (int i = 0; (schema = sqlite3_db_name(db, i)) != nullptr; ++i) {
    const char* const path = sqlite3_db_filename(db, schema);
    if (path != nullptr && *path != '\0') use(path);
  }
}

// A hole counts nothing: it costs whoever made it nothing either.
double OccupiedBytes(const std::string& path) {
  constexpr blkcnt_t kBlock = 512;
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return 0;
  return static_cast<double>(std::min<off_t>(status.st_size, status.st_blocks * kBlock));
}

struct Measurement {
  sqlite3* db = nullptr;
  std::vector<const char*> files;
  std::chrono::steady_clock::time_point taken;
  double bytes = 0;
};

Measurement& LastMeasurement() {
  static thread_local Measurement last;
  return last;
}

// Most statements are short, and many follow each other. What is written while a measurement is valid is
// worked on in less time than is allowed without any.
double OccupiedBytes(sqlite3* db) {
  constexpr std::chrono::milliseconds kValid(100);
  Measurement now = {.db = db, .files = {}, .taken = std::chrono::steady_clock::now()};
  ForEachFile(db, [&now](const char* path) { now.files.push_back(path); });
  Measurement& last = LastMeasurement();
  if (last.db == db && last.files == now.files && now.taken - last.taken < kValid) return last.bytes;
  for (const std::string path : now.files) now.bytes += OccupiedBytes(path) + OccupiedBytes(path + "-wal");
  last = std::move(now);
  return last.bytes;
}

}  // namespace

WorkLimit::WorkLimit()
    : outer_(Innermost()),
      allowed_seconds_(kSeconds),
      unlimited_until_(std::chrono::steady_clock::now() + std::chrono::seconds(kSeconds)),
      start_(UsedSeconds()) {
  Innermost() = this;
}

void WorkLimit::AllowForRows(sqlite3* db) { allowed_seconds_ += kSecondsPerByte * OccupiedBytes(db); }

WorkLimit::~WorkLimit() { Innermost() = outer_; }

// The clock on the wall is asked first, because that is cheaper; on a slow disk it runs while nothing is
// done.
int WorkLimit::OnProgress(void* connection) {
  WorkLimit* const limit = Innermost();
  if (limit == nullptr || std::chrono::steady_clock::now() < limit->unlimited_until_) return 0;
  const double used = UsedSeconds() - limit->start_;
  if (used < limit->allowed_seconds_) return 0;
  std::string files;
  ForEachFile(static_cast<sqlite3*>(connection),
              [&files](const char* path) { files += std::string(" ") + path; });
  constexpr std::size_t kLongestPart = 800;  // the line may not be cut itself
  logger::SystemLog("a statement is stopped after %d seconds of work on%s\n", static_cast<int>(used),
                    logger::CutInTheMiddle(files, kLongestPart));
  return 1;
}

int Harden(sqlite3* db) {
  LastMeasurement() = {};  // of a connection that may have been at the same place
  (void)sqlite3_hard_heap_limit64(kHeapLimit);
  for (const auto& [option, value] : kSettings) {
    const int code = sqlite3_db_config(db, option, value, nullptr);
    if (code != SQLITE_OK) return code;
  }
  for (const auto& [limit, value] : kLimits) (void)sqlite3_limit(db, limit, value);
  int code = KeepEndlessFunctionsFromSchemas(db);
  sqlite3_progress_handler(db, kInstructionsBetweenLooks, WorkLimit::OnProgress, db);
  if (code == SQLITE_OK) code = sqlite3_set_authorizer(db, Authorize, nullptr);
  if (code == SQLITE_OK) code = sqlite3_drop_modules(db, nullptr);
  if (code == SQLITE_OK) code = sqlite3_exec(db, "PRAGMA cell_size_check = ON;", nullptr, nullptr, nullptr);
  return code;
}

}  // namespace db_util
