// Opening and closing the manager, and its transactions.
#include <ctime>
#include <random>

#include "user-mgr/access.h"
#include "user-mgr/schema.h"
#include "user-mgr/statement.h"
#include "user-mgr/user_manager.h"

namespace user_mgr {
namespace {

bool OpenUserDatabase(const std::string& path, db_util::Database& opened) {
  // SQLite would open an empty path as a temporary database that nobody else sees.
  const db_util::Status status = path.empty()
                                     ? db_util::StatusOf(SQLITE_CANTOPEN)
                                     : db_util::OpenQuietly(path, opened, db_util::OpenMode::kCreate);
  return Check(status, "sqlite3_open(%s): %s (%d)\n", path, status.message, status.code);
}

bool PrepareUserDatabase(sqlite3* db) {
  (void)sqlite3_busy_timeout(db, db_util::kBusyTimeoutMs);  // fails only without a connection
  return CreateSchema(db) && EnsureDefaultProfile(db);
}

bool OpenLock(const std::string& path, base::FileDescriptor& file) {
  const base::Errno error = OpenLockFile(path, file);
  return Check(error, "UserManager::Initialize: open: %s\n", error.Text());
}

std::string DrawSeed() {
  std::minstd_rand generator(static_cast<std::minstd_rand::result_type>(std::time(nullptr)));
  return std::to_string(generator());
}

// Runs one statement of transaction control; `operation` names it in the message.
bool ControlTransaction(const char* operation, const char* statement) {
  const db_util::Status status = db_util::Execute(Access::db(), statement);
  return Check(status, "UserManager::%s failed: %s (%d)", operation, status.message, status.code);
}

}  // namespace

db_util::Database UserManager::db;
LockFile UserManager::lock;
std::mutex UserManager::mutex;
std::string UserManager::seed;
bool UserManager::g_is_cached = false;
const platform::Platform* UserManager::platform_ = nullptr;
std::string UserManager::lock_path_ = platform::SystemPaths().user_lock;

void UserManager::Configure(const platform::Platform& platform, std::string lock_path) {
  platform_ = &platform;
  lock_path_ = std::move(lock_path);
}

int UserManager::Initialize(const std::string& path) {
  if (db) return 0;
  db_util::Database opened;
  base::FileDescriptor lock_file;
  if (!OpenUserDatabase(path, opened) || !PrepareUserDatabase(opened.get()) ||
      !OpenLock(lock_path_, lock_file)) {
    return -1;
  }
  Begin(std::move(opened), std::move(lock_file));
  return 0;
}

int UserManager::InitializePrivate(db_util::Database opened) {
  if (db) return 0;
  if (!PrepareUserDatabase(opened.get())) return -1;
  Begin(std::move(opened), {});
  return 0;
}

// The manager is open from here on; whatever fails before leaves it closed.
void UserManager::Begin(db_util::Database opened, base::FileDescriptor lock_file) {
  lock = {.file = std::move(lock_file)};
  g_is_cached = false;
  seed = DrawSeed();
  db = std::move(opened);
}

void UserManager::Destroy() {
  if (!db) return;
  {
    const ScopedLock guard;  // whether or not it could be taken, because nothing is written
    db.reset();
    g_is_cached = false;
  }
  (void)lock.file.Close();  // nothing was written
}

int UserManager::BeginTransaction() {
  return ToResult(ControlTransaction("BeginTransaction", "BEGIN TRANSACTION;"));
}

int UserManager::EndTransaction() {
  return ToResult(ControlTransaction("EndTransaction", "END TRANSACTION;"));
}

int UserManager::RollbackTransaction() {
  return ToResult(ControlTransaction("RollbackTransaction", "ROLLBACK TRANSACTION;"));
}

}  // namespace user_mgr
