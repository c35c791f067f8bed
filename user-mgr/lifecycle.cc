// Opening and closing the manager, and its transactions.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <random>

#include "user-mgr/access.h"
#include "user-mgr/schema.h"
#include "user-mgr/statement.h"
#include "user-mgr/user_manager.h"

namespace user_mgr {
namespace {

int OpenUserDatabase(const std::string& path, db_util::Database& opened) {
  // An empty path would be a database in memory, good for nothing.
  const db_util::Status status = path.empty()
                                     ? db_util::StatusOf(SQLITE_CANTOPEN)
                                     : db_util::OpenQuietly(path, opened, db_util::OpenMode::kCreate);
  if (status.ok()) return 0;
  logger::ComponentError(kComponent, "sqlite3_open(%s): %s (%d)\n", path, status.message, status.code);
  return -1;
}

std::string DrawSeed() {
  std::minstd_rand generator(static_cast<std::minstd_rand::result_type>(std::time(nullptr)));
  return std::to_string(generator());
}

// Runs one statement of transaction control; `operation` names it in the message.
int ControlTransaction(const char* operation, const char* statement) {
  const db_util::Status status = db_util::Execute(Access::db(), statement);
  if (status.ok()) return 0;
  logger::ComponentError(kComponent, "UserManager::%s failed: %s (%d)", operation, status.message,
                         status.code);
  return -1;
}

}  // namespace

db_util::Database UserManager::db;
int UserManager::lock = -1;
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
  if (OpenUserDatabase(path, opened) < 0) return -1;
  (void)sqlite3_busy_timeout(opened.get(), db_util::kBusyTimeoutMs);  // fails only without a connection
  if (CreateSchema(opened.get()) < 0 || EnsureDefaultProfile(opened.get()) < 0) return -1;

  const int descriptor = OpenLockFile(lock_path_);
  if (descriptor < 0) {
    logger::ComponentError(kComponent, "UserManager::Initialize: open: %s\n", std::strerror(errno));
    return -1;
  }
  // Only now is the manager open: whatever fails above leaves it closed.
  lock = descriptor;
  g_is_cached = false;
  seed = DrawSeed();
  db = std::move(opened);
  return 0;
}

void UserManager::Destroy() {
  if (!db) return;
  {
    const ScopedLock guard;
    db.reset();
    g_is_cached = false;
  }
  (void)close(lock);  // nothing was written
  lock = -1;
}

int UserManager::BeginTransaction() { return ControlTransaction("BeginTransaction", "BEGIN TRANSACTION;"); }

int UserManager::EndTransaction() { return ControlTransaction("EndTransaction", "END TRANSACTION;"); }

int UserManager::RollbackTransaction() {
  return ControlTransaction("RollbackTransaction", "ROLLBACK TRANSACTION;");
}

}  // namespace user_mgr
