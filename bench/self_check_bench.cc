// What the machine's users cost per user, and whether that grows with their number: the self-check, and on
// the real machine the application privilege as well.
//
//   self-check-bench [--host] [<users>...]     default: 1000 10000 100000
//
// Makes a user database of each size in a temporary folder: of ten users, seven are unchanged, one was
// renamed, one lost its account, one is a share user whose folder moved; every user has two sessions with a
// task each. View ids run against the order of the table. Prints one line a size; every ratio is the one to
// the first size.
//
// Without --host the machine answers at once. With --host, as root, it is the real one: the bench makes files
// of as many local accounts and a file server's configuration, and puts them in the place of the machine's
// own in a mount namespace of its own, in three ways: with all accounts there, and without every tenth where
// nsswitch.conf names the files alone or another source behind them. Only ratios can be compared between
// runs.
#include <stdlib.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "db-util/database.h"
#include "db-util/execute.h"
#include "db-util/query.h"
#include "platform/host/host_platform.h"
#include "platform/sdk/app_privilege.h"
#include "tests/support/fake_platform.h"
#include "tests/support/mount_namespace.h"
#include "user-mgr/user_manager.h"

namespace {

namespace fs = std::filesystem;
using user_mgr::UserManager;

constexpr unsigned kRenamed = 7;
constexpr unsigned kGone = 8;
constexpr unsigned kShare = 9;

std::string AccountName(unsigned uid) {
  return (uid % 10 == kRenamed ? "new" : "user") + std::to_string(uid);
}

// Answers at once, whatever the number of users.
class Accounts : public platform::Accounts {
 public:
  platform::Lookup FindByUid(uid_t uid, platform::Account& account) override {
    if (uid % 10 == kGone) return platform::Lookup::kNotFound;
    account.name = AccountName(uid);
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

// A machine that users can be put into.
class Machine {
 public:
  Machine() = default;
  virtual ~Machine() = default;
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;
  virtual bool Fill(unsigned /*users*/) { return true; }
  virtual platform::Platform platform() = 0;
};

class QuickMachine : public Machine {
 public:
  platform::Platform platform() override {
    return {fake_.volumes, fake_.state_files, fake_.app_privilege, accounts_, fake_.services, shares_};
  }

 private:
  tests::FakePlatform fake_;
  Accounts accounts_;
  Shares shares_;
};

class RealMachine : public Machine {
 public:
  // `sources` as in nsswitch.conf.
  RealMachine(const std::string& folder, bool all_are_there, std::string sources)
      : root_(folder + "/root"),
        all_are_there_(all_are_there),
        sources_(std::move(sources)),
        host_(platform::SystemPaths::Under(root_)) {
    std::printf("%s, nsswitch.conf: %s\n",
                all_are_there ? "all accounts are there" : "every tenth account is gone", sources_.c_str());
    fs::create_directories(root_ + "/etc/samba");
    fs::create_directories(root_ + "/usr/plat/etc");
  }

  bool Fill(unsigned users) override {
    fs::remove_all(root_ + "/usr/plat/etc/app_privilege");
    std::ofstream passwd(root_ + "/passwd");
    std::ofstream shadow(root_ + "/shadow");
    std::ofstream shares(root_ + "/etc/samba/smb.conf");
    passwd << "root:x:0:0::/root:/bin/sh\n";
    shares << "[homes]\n";
    for (unsigned uid = 1; uid <= users; ++uid) {
      const std::string home = root_ + "/homes/" + AccountName(uid);
      if (uid % 10 == kShare) {
        const std::string name = "share" + std::to_string(uid);  // in a file of its own, as some keep them
        shares << "include = " << name << '\n';
        std::ofstream(root_ + "/etc/samba/" + name) << '[' << name << "]\npath = " << home << '\n';
      } else if (all_are_there_ || uid % 10 != kGone) {
        fs::create_directories(home);
        passwd << AccountName(uid) << ":x:" << uid << ":100::" << home << ":/bin/false\n";
        shadow << AccountName(uid) << ":*:19000:0:99999:7:::\n";
      }
    }
    std::ofstream(root_ + "/nsswitch.conf") << "passwd: " << sources_ << "\nshadow: " << sources_ << '\n';
    passwd.close();
    shadow.close();
    return Cover("passwd") && Cover("shadow") && Cover("nsswitch.conf");
  }

  platform::Platform platform() override { return host_.platform(); }

 private:
  bool Cover(const std::string& name) const {
    return tests::EnterMountNamespace() && tests::Run("mount --bind " + root_ + "/" + name + " /etc/" + name);
  }

  std::string root_;
  bool all_are_there_;
  std::string sources_;
  platform::host::HostPlatform host_;
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

double MicrosecondsPerUser(unsigned users, const std::function<bool()>& work) {
  const auto begin = std::chrono::steady_clock::now();
  const bool done = work();
  const std::chrono::duration<double, std::micro> spent = std::chrono::steady_clock::now() - begin;
  return done ? spent.count() / users : -1;
}

// Negative on failure.
double MeasureCheck(unsigned users, const std::string& path, bool all_are_there) {
  if (UserManager::Initialize(path) < 0) return -1;
  db_util::Database db;
  if (db_util::OpenDatabase(path, db) < 0 || !db_util::Execute(db.get(), Data(users)).ok()) return -1;
  db.reset();
  std::list<user_mgr::ViewId> removed;
  const double spent = MicrosecondsPerUser(
      users, [&] { return UserManager::SelfCheck(removed) >= 0 && removed.empty() == all_are_there; });
  UserManager::Destroy();
  return spent;
}

double MeasurePrivilege(unsigned users, platform::AppPrivilege& privilege) {
  std::vector<std::string> names;
  for (unsigned uid = 1; uid <= users; ++uid) {
    if (uid % 10 != kGone && uid % 10 != kShare) names.push_back(AccountName(uid));
  }
  return MicrosecondsPerUser(users, [&] {
    platform::sdk::AllowApplication(privilege, names);
    return true;
  });
}

int MeasureAll(const std::vector<unsigned>& sizes, const std::string& folder, Machine& machine,
               bool all_are_there = false) {
  const platform::Platform platform = machine.platform();
  double first_check = 0;
  double first_privilege = 0;
  UserManager::Configure(platform, folder + "/lock");
  std::printf("%10s %14s %8s %18s %8s %9s\n", "users", "check us/user", "ratio", "privilege us/user", "ratio",
              "peak MiB");
  for (const unsigned users : sizes) {
    if (!machine.Fill(users)) {
      std::fprintf(stderr, "only root can put accounts into the machine\n");
      return EXIT_FAILURE;
    }
    const std::string path = folder + "/user-db.sqlite." + std::to_string(users);
    const double check = MeasureCheck(users, path, all_are_there);
    fs::remove(path);
    if (check < 0) return EXIT_FAILURE;
    const double privilege = MeasurePrivilege(users, platform.app_privilege);
    if (first_check == 0) first_check = check;
    if (first_privilege == 0) first_privilege = privilege;
    struct rusage usage {};
    (void)::getrusage(RUSAGE_SELF, &usage);  // cannot fail
    std::printf("%10u %14.2f %8.2f %18.2f %8.2f %9ld\n", users, check, check / first_check, privilege,
                privilege / first_privilege, usage.ru_maxrss / 1024);
  }
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<unsigned> sizes;
  const bool on_host = argc > 1 && std::string_view(argv[1]) == "--host";
  for (int i = on_host ? 2 : 1; i < argc; ++i) {
    char* end = nullptr;
    const unsigned long users = std::strtoul(argv[i], &end, 10);
    if (*end != '\0' || users < 10 || users > 10'000'000) {
      std::fprintf(stderr, "usage: %s [--host] [<users, 10 to 10000000>...]\n", argv[0]);
      return EXIT_FAILURE;
    }
    sizes.push_back(static_cast<unsigned>(users));
  }
  if (sizes.empty()) sizes = {1'000, 10'000, 100'000};

  std::string folder = (fs::temp_directory_path() / "self-check-bench-XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) {
    std::perror("mkdtemp");
    return EXIT_FAILURE;
  }
  int result = EXIT_SUCCESS;
  if (!on_host) {
    QuickMachine machine;
    result = MeasureAll(sizes, folder, machine);
  } else {
    for (const auto& [all_are_there, sources] :
         {std::pair(true, "files systemd"), {false, "files"}, {false, "files systemd"}}) {
      RealMachine machine(folder, all_are_there, sources);
      if (result == EXIT_SUCCESS) result = MeasureAll(sizes, folder, machine, all_are_there);
    }
  }
  std::error_code ignored;  // what is left lies in the temporary folder
  fs::remove_all(folder, ignored);
  return result;
}
