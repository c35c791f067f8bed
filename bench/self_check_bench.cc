// What the self-check costs per user, and whether that grows with their number.
//
//   self-check-bench [<users>...]     default: 1000 10000 100000
//
// Makes a user database of each size in a temporary folder: of ten users, seven are unchanged, one was
// renamed, one lost its account, one is a share user whose folder moved; every user has two sessions with a
// task each. View ids run against the order of the table. Prints one line a size, the last column being the
// ratio to the first size.
#include <stdlib.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "db-util/database.h"
#include "db-util/execute.h"
#include "tests/support/fake_platform.h"
#include "user-mgr/user_manager.h"

namespace {

using user_mgr::UserManager;

// Answers at once, whatever the number of users.
class Accounts : public platform::Accounts {
 public:
  platform::Lookup FindByUid(uid_t uid, platform::Account& account) override {
    if (uid % 10 == 8) return platform::Lookup::kNotFound;
    account.name = (uid % 10 == 7 ? "new" : "user") + std::to_string(uid);
    account.uid = uid;
    account.gid = 100;
    account.home = "/volume1/homes/" + account.name;
    return platform::Lookup::kFound;
  }
};

class Shares : public platform::Shares {
 public:
  platform::Lookup Open(const std::string& name, platform::Share& share) override {
    share.name = name;
    share.path = "/volume1/" + name;
    return platform::Lookup::kFound;
  }
};

std::string Data(unsigned users) {
  const std::string count = std::to_string(users);
  return "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " + count + ") " +
         "INSERT INTO user_table (id, view_id, attribute, name, uid, gid, user_type, watch_path) SELECT i, " +
         count +
         " - i, 0, CASE i % 10 WHEN 9 THEN '@share' ELSE 'user' END || i, i, 100, i % 10 = 9, '' FROM n;"
         "INSERT INTO session_table (uid, sess_id) SELECT id, 'a' || id FROM user_table;"
         "INSERT INTO session_table (uid, sess_id) SELECT id, 'b' || id FROM user_table;"
         "INSERT INTO backup_task_table (session, view_id) SELECT sess_id, uid FROM session_table;";
}

// Microseconds per user; negative on failure.
double Measure(unsigned users, const std::string& path) {
  if (UserManager::Initialize(path) < 0) return -1;
  db_util::Database db;
  if (db_util::OpenDatabase(path, db) < 0 || !db_util::Execute(db.get(), Data(users)).ok()) return -1;
  db.reset();
  std::list<user_mgr::ViewId> removed;
  const auto begin = std::chrono::steady_clock::now();
  const int result = UserManager::SelfCheck(removed);
  const std::chrono::duration<double, std::micro> spent = std::chrono::steady_clock::now() - begin;
  UserManager::Destroy();
  return result < 0 || removed.empty() ? -1 : spent.count() / users;
}

int MeasureAll(const std::vector<unsigned>& sizes, const std::string& folder) {
  tests::FakePlatform fake;
  Accounts accounts;
  Shares shares;
  const platform::Platform machine{fake.volumes, fake.state_files, fake.app_privilege,
                                   accounts,     fake.services,    shares};
  double first = 0;
  UserManager::Configure(machine, folder + "/lock");
  std::printf("%10s %14s %8s\n", "users", "us per user", "ratio");
  for (const unsigned users : sizes) {
    const double cost = Measure(users, folder + "/user-db.sqlite." + std::to_string(users));
    if (cost < 0) return EXIT_FAILURE;
    if (first == 0) first = cost;
    std::printf("%10u %14.2f %8.2f\n", users, cost, cost / first);
  }
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<unsigned> sizes;
  for (int i = 1; i < argc; ++i) {
    char* end = nullptr;
    const unsigned long users = std::strtoul(argv[i], &end, 10);
    if (*end != '\0' || users < 10 || users > 10'000'000) {
      std::fprintf(stderr, "usage: %s [<users, 10 to 10000000>...]\n", argv[0]);
      return EXIT_FAILURE;
    }
    sizes.push_back(static_cast<unsigned>(users));
  }
  if (sizes.empty()) sizes = {1'000, 10'000, 100'000};

  std::string folder = (std::filesystem::temp_directory_path() / "self-check-bench-XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) {
    std::perror("mkdtemp");
    return EXIT_FAILURE;
  }
  const int result = MeasureAll(sizes, folder);
  std::error_code ignored;  // what is left lies in the temporary folder
  std::filesystem::remove_all(folder, ignored);
  return result;
}
