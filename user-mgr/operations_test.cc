// One case or more for every operation on the rows.
#include <fcntl.h>
#include <sys/file.h>

#include <future>
#include <set>
#include <sstream>

#include "base/file_descriptor.h"
#include "user-mgr/access.h"
#include "user-mgr/user_manager_fixture.h"

namespace user_mgr {
namespace {

using M = UserManager;
using enum UserType;

constexpr char kRows[] = R"(
  INSERT INTO user_table (id, view_id, attribute, name, uid, gid, user_type, watch_path) VALUES
    (1, 11, 0, 'ann', 1001, 101, 0, '/h/ann'), (2, 12, 8, '@m', 0, 0, 1, '/s/m'), (3, 13, 1, 'ldap', 2001, 201, 2, '/h/l'),
    (4, 14, 0, 'D\bob', 3001, 301, 3, '/h/d'), (5, 15, 4, '@k', 0, 0, 1, '/s/k'), (6, 16, 0, 'bob', 1002, 102, 0, '/h/b');
  INSERT INTO session_table (uid, sess_id, client, ip, group_id, ctime, client_type, client_platform) VALUES
    (1, 's1', 'c3', 'ip5', 1, 101, 2, 'e'), (2, 's2', 'c1', 'ip4', 1, 102, 3, 'a'), (3, 's3', 'c5', 'ip3', 1, 103, 1, 'd'),
    (4, 's4', 'c2', 'ip2', 1, 104, 5, 'b'), (1, 's5', 'c4', 'ip1', 1, 105, 4, 'c'), (NULL, 's9', 'c9', '', 1, 106, 6, 'f');
  INSERT INTO backup_task_table SELECT sess_id, uid + 10, '/' || client, 1 FROM session_table;
  INSERT INTO rotate_setting_table VALUES (12, 1, 'a'), (15, 2, 'b'), (16, 3, 'c');
  INSERT INTO profile_table VALUES (2, 'two', '{}', 4), (3, 'three', '{}', 64);
  INSERT INTO profile_apply_table VALUES (2, 1001), (3, 1001), (3, 2001);
  INSERT INTO profile_apply_view_table VALUES (1, 12), (2, 12), (2, 14);)";

// Every row, its key in front.
constexpr char kState[] = R"(
  SELECT printf('%s %d %d %u %u %d %s', name, view_id, attribute, uid, gid, user_type, watch_path) FROM user_table
  UNION ALL SELECT printf('%s %d %d %s %s %d %s %d %d', sess_id, uid, group_id, client, ip, client_type, client_platform,
    attribute, abs(ctime - strftime('%s', 'now')) < 100) FROM session_table
  UNION ALL SELECT printf('task/%s %d %s %d', session, view_id, relative_path, is_readonly) FROM backup_task_table
  UNION ALL SELECT printf('rotate/%d %d %s', view_id, rotate_cnt, rotate_policy) FROM rotate_setting_table
  UNION ALL SELECT printf('profile/%d %s %s %d', id, name, context, attribute) FROM profile_table
  UNION ALL SELECT printf('applied/%d/%d', profile_id, user_id) FROM profile_apply_table
  UNION ALL SELECT printf('view/%d/%d', profile_id, view_id) FROM profile_apply_view_table
  UNION ALL SELECT printf('%s %s', key, value) FROM config_table)";

class Operations : public UserManagerFixture {
 protected:
  void SetUp() override {
    UserManagerFixture::SetUp();
    ASSERT_EQ(M::Initialize(File()), 0);
    Write(kRows);
    (void)Changes(0);  // only takes down what there is
  }
  // What an operation with that result has done since the last call: the keys of the rows that went, the rows
  // that came.
  std::string Changes(int result) {
    std::istringstream lines(tests::Query(File(), kState, "\n"));
    std::set<std::string> now;
    for (std::string row; std::getline(lines, row);) now.insert(row);
    std::string text = result == 0 ? "" : "failed ";
    for (const std::string& row : rows_)
      text += now.contains(row) ? "" : "-" + row.substr(0, row.find(' ')) + " ";
    for (const std::string& row : now) text += rows_.contains(row) ? "" : "+" + row + " ";
    rows_ = std::move(now);
    return text;
  }
  void ExpectLine(const std::string& line) const { EXPECT_EQ(sink_.Count(line), 1) << line; }

  std::set<std::string> rows_;
};

TEST_F(Operations, ChangeUsers) {
  EXPECT_EQ(Changes(M::AddUser({"o'n %s", 0, 0, 3, 4000000000U, 77, kNormal, "/%d"})),
            "-view_id +o'n %s 1 3 4000000000 77 0 /%d +view_id 2 ");
  EXPECT_EQ(Changes(M::AddUser({"ANN", 0, 0, 0, 5, 5, kNormal, ""})), "");
  EXPECT_EQ(Changes(M::AddUser({"photo", 0, 0, 0, 5, 6, kShare, "/s"})),
            "-view_id +@photo 2 0 5 6 1 /s +view_id 3 ");
  EXPECT_EQ(Changes(M::RenameUser("bob", "Ann")), "failed ");
  ExpectLine("[ERROR] user-mgr(N): UserManager::RenameUser fail to rename user 'bob' to 'Ann'\n");
  EXPECT_EQ(Changes(M::RenameUser("bob", "rob")), "-bob +rob 16 0 1002 102 0 /h/b ");
  EXPECT_EQ(Changes(M::SetUserAttribute("rob", 42)), "-rob +rob 16 42 1002 102 0 /h/b ");
  EXPECT_EQ(Changes(M::DisableUser("@k", 9)), "-@k +@k 15 13 0 0 1 /s/k ");
  EXPECT_EQ(Changes(M::EnableUser("@k", 5)), "-@k +@k 15 8 0 0 1 /s/k ");
  EXPECT_EQ(Changes(M::DisableUser("@k", 1, kLdap, kDomain)), "");
  EXPECT_EQ(Changes(M::DisableUser("ldap", 4, kLdap, kDomain)), "-ldap +ldap 13 5 2001 201 2 /h/l ");
  EXPECT_EQ(Changes(M::DisableUser("D\\bob", 4, kLdap, kDomain)), "-D\\bob +D\\bob 14 4 3001 301 3 /h/d ");
  EXPECT_EQ(Changes(M::EnableUser("@k", 8, kLdap, kDomain)), "");
  EXPECT_EQ(Changes(M::EnableUser("ldap", 1, kLdap, kDomain)), "-ldap +ldap 13 4 2001 201 2 /h/l ");
  EXPECT_EQ(Changes(M::EnableUser("D\\bob", 4, kLdap, kDomain)), "-D\\bob +D\\bob 14 0 3001 301 3 /h/d ");
  EXPECT_EQ(Changes(M::RemoveUser("ann")), "-ann -s1 -s5 -task/s1 -task/s5 ");
  // A share user keeps its row, but not its sessions.
  EXPECT_EQ(Changes(M::RemoveUser("@m")), "-s2 -task/s2 ");
  EXPECT_EQ(Changes(M::RemoveShareUser("k")), "-@k -rotate/15 ");
  EXPECT_EQ(Changes(M::RemoveShareUser("rob")), "");
  EXPECT_EQ(Changes(M::DeleteUserByUserType(kDomain)), "-D\\bob -s4 -task/s4 ");
}

TEST_F(Operations, ChangeWhatBelongsToUsers) {
  EXPECT_EQ(Changes(M::CreateSession("bob", {"n'1", "PC %s", 5, "win"}, "::1")),
            "+n'1 6 1 PC %s ::1 5 win 0 1 ");
  EXPECT_EQ(Changes(M::CreateSession("bob", {"s1", "", 0, ""}, "")), "failed ");
  EXPECT_EQ(Changes(M::UpdateClient("s4", {"s1", "", 0, ""})), "failed ");
  EXPECT_EQ(Changes(M::UpdateClient("s3", {"it's", "phone", 9, "ios"})),
            "-s3 -task/s3 +it's 3 1 phone ip3 9 ios 0 0 +task/it's 13 /c5 1 ");
  EXPECT_EQ(Changes(M::UpdateClientType("s2", 77)), "-s2 +s2 2 1 c1 ip4 77 a 0 0 ");
  EXPECT_EQ(Changes(M::SetBackupTask("s1", {{12, "", "/it's", 1}, {13, "", "/b", 0}})),
            "-task/s1 +task/s1 12 /it's 1 +task/s1 13 /b 0 ");
  EXPECT_EQ(Changes(M::SetBackupTask("s2", {})), "-task/s2 ");
  EXPECT_EQ(Changes(M::RemoveSession("s4")), "-s4 -task/s4 ");
  EXPECT_EQ(Changes(M::ClearSession()),
            "-it's -n'1 -s1 -s2 -s5 -s9 -task/it's -task/s1 -task/s1 -task/s5 -task/s9 ");
  EXPECT_EQ(Changes(M::SetRotateSetting({})), "");
  EXPECT_EQ(Changes(M::SetRotateSetting({{7, 1, "it's"}, {16, 9, "smart"}})),
            "-rotate/16 +rotate/16 9 smart +rotate/7 1 it's ");
  ProfileChanges changes;
  changes.modified = {{2, "2nd", "'", 0}};
  changes.added = {{0, "new", "{'}", 9}};
  changes.removed = {3};
  changes.applied = {{2, {1002, 2001}}};
  changes.views = {{12, 65}, {11, 2}};
  EXPECT_EQ(Changes(M::CommitProfile(changes)),
            "-applied/2/1001 -applied/3/1001 -applied/3/2001 -profile/2 -profile/3 -view/2/12 "
            "+applied/2/1002 +applied/2/2001 +profile/2 2nd ' 0 +profile/4 new {'} 0 +view/1/11 ");
  Write("CREATE TRIGGER t BEFORE DELETE ON profile_apply_table BEGIN SELECT raise(ABORT, 'no'); END;");
  EXPECT_EQ(Changes(M::CommitProfile(changes)), "failed ");
}

// A record as text.
template <class... Values>
std::string Text(const Values&... values) {
  std::ostringstream text;
  ((text << values << ' '), ...);
  return text.str();
}
std::string Text(const UserRecord& u) {
  return Text(u.name, u.id, u.view_id, u.attribute, u.uid, u.gid, static_cast<int>(u.user_type),
              u.watch_path);
}
std::string Text(const SessionRecord& s) {
  return Text(s.sess_id, s.view_id, s.name, s.attribute, s.ctime, s.client, s.ip, s.group_id, s.uid, s.gid,
              static_cast<int>(s.user_type), s.watch_path, s.client_type, s.client_platform);
}
std::string Text(const BackupTask& t) { return Text(t.session, t.view_id, t.relative_path, t.is_readonly); }
std::string Text(const RotateSetting& s) { return Text(s.view_id, s.rotate_cnt, s.rotate_policy); }
std::string Text(const Profile& p) { return Text(p.id, p.name, p.context, p.attribute); }
std::string Text(const ProfileApply& a) { return Text(a.profile_id, a.user_id); }
std::string Text(const UserProfile& u) { return Text(u.profile_id, u.user.name); }
template <class Record>
std::string Text(const std::list<Record>& records) {
  std::string text;
  for (const Record& record : records) text += Text(record);
  return text;
}

// What a query finds.
template <class Found, class Query, class... Arguments>
std::string Get(Query query, const Arguments&... arguments) {
  Found found{};
  return query(arguments..., found) == 0 ? Text(found) : "failed";
}

TEST_F(Operations, QueriesFindTheRightRows) {
  EXPECT_EQ(Get<UserRecord>(M::GetUserByViewId, 15U), "k 5 15 4 0 0 1 /s/k ");
  EXPECT_EQ(Get<UserRecord>(M::GetUserByViewId, 1U), "failed");
  ExpectLine("[INFO] user-mgr(N): UserManager::GetUserByViewId: there is no user of view '1'\n");
  EXPECT_EQ(Get<UserRecord>(M::GetUser, "LDAP"), "ldap 3 13 1 2001 201 2 /h/l ");
  EXPECT_EQ(Get<UserRecord>(M::GetUser, "@k"), "failed");
  EXPECT_EQ(Get<UserRecord>(M::GetShareUser, "m"), "m 2 12 8 0 0 1 /s/m ");
  EXPECT_EQ(Get<UserRecord>(M::GetShareUser, "ann"), "failed");
  EXPECT_EQ(Get<UserList>(M::EnumShareUser, false), "m 2 12 8 0 0 1 /s/m k 5 15 4 0 0 1 /s/k ");
  EXPECT_EQ(Get<UserList>(M::EnumShareUser, true), "k 5 15 4 0 0 1 /s/k m 2 12 8 0 0 1 /s/m ");
  EXPECT_EQ(Get<UserList>(M::EnumUserByType, kLdap), "ldap 3 13 1 2001 201 2 /h/l ");
  EXPECT_EQ(Get<int>(M::CountEnabledUser, kShare) + Get<int>(M::CountEnabledUserExcept, kShare), "1 3 ");
  EXPECT_EQ(Get<SessionRecord>(M::GetSession, "s3"), "s3 13 ldap 1 103 c5 ip3 1 2001 201 2 /h/l 1 d ");
  EXPECT_EQ(Get<SessionRecord>(M::GetSession, "s9"), "failed");  // nobody's
  ExpectLine("[INFO] user-mgr(N): UserManager::GetSession:: cannot file record for session s9\n");
  int count = 0;
  EXPECT_TRUE(M::CountSession(count) == 0 && count == 6 && M::CountSession("ANN", count) == 0 && count == 2);
  std::list<BackupTask> tasks;
  EXPECT_TRUE(M::EnumBackupTask(tasks) == 0 && tasks.size() == 6);
  EXPECT_TRUE(M::EnumBackupTask("s2", tasks) == 0 && Text(tasks) == "s2 12 /c1 1 ");
  EXPECT_EQ(Get<std::list<std::string>>(M::EnumConflictPath, "s1", 11U), "/c4 ");
  EXPECT_EQ(Get<std::list<std::string>>(M::EnumConflictPath, "", 11U), "/c3 /c4 ");
  EXPECT_EQ(Get<RotateSetting>(M::GetRotateSetting, 15U), "15 2 b ");
  EXPECT_EQ(Get<RotateSetting>(M::GetRotateSetting, 9U), "failed");
  ExpectLine("[INFO] user-mgr(N): UserManager::GetRotateSetting: view 9 has no setting\n");
  EXPECT_EQ(Get<std::list<Profile>>(M::EnumProfile),
            "1 internal for enc share {\"filtered_max_name_length\":143} 7 2 two {} 4 3 three {} 64 ");
  EXPECT_EQ(Get<std::list<ProfileApply>>(M::EnumProfileApply), "2 1001 3 1001 3 2001 ");
  EXPECT_EQ(Get<std::list<UserProfile>>(M::CollectUserData), "2 ann 3 ann 3 ldap 1 m 2 m 2 D\\bob ");
}

TEST_F(Operations, SessionsAreSortedAndPaged) {
  using enum SessionOrder;
  using enum Direction;
  std::list<SessionRecord> found;
  const auto ids = [&found](int result) {
    std::string text = result == 0 ? "" : "failed";
    for (const SessionRecord& session : found) text += session.sess_id.back();
    return text;
  };
  EXPECT_EQ(ids(M::EnumSession("ann", {kIp, kAscending, 9, 0}, found)), "51");
  EXPECT_EQ(ids(M::EnumSession("ann", {kIp, kDescending, 9, 1}, found)), "5");
  Write("DELETE FROM session_table WHERE sess_id = 's5';");  // the second one of a user
  const std::map<SessionOrder, std::string> sorted_by = {{kUserName, "2143"},   {kClient, "2413"},
                                                         {kIp, "4321"},         {kCreationTime, "1234"},
                                                         {kClientType, "3124"}, {kClientPlatform, "2431"}};
  for (const auto& [order, sorted] : sorted_by) {
    EXPECT_EQ(ids(M::EnumSession({order, kAscending, 9, 0}, found)), sorted);
    EXPECT_EQ(ids(M::EnumSession({order, kDescending, 2, 1}, found)), (std::string{sorted[2], sorted[1]}));
  }
}

TEST_F(Operations, WaitForTheLockUnlessTheyControlTransactions) {
  const base::FileDescriptor other(open(Path("lock").c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(flock(other.get(), LOCK_EX), 0);
  auto waiting = std::async(std::launch::async, M::ClearSession);
  EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
  ASSERT_EQ(flock(other.get(), LOCK_UN), 0);
  EXPECT_EQ(waiting.get(), 0);
  Access::lock().patience = std::chrono::milliseconds(20);
  ASSERT_EQ(flock(other.get(), LOCK_EX), 0);
  UserList users;
  EXPECT_EQ(M::ClearSession() + M::EnumAllUser(users) + M::RemoveUser("none"), -3)
      << "and Destroy does not wait either";
  EXPECT_EQ(sink_.Count("[ERROR] user-mgr(N): UserManager: flock: Resource temporarily unavailable\n"), 3);
  EXPECT_EQ(M::BeginTransaction() + M::EndTransaction(), 0);
  EXPECT_EQ(M::BeginTransaction() + M::RollbackTransaction(), 0);
}

TEST_F(Operations, AStatementThatDoesNotFitIsNotExecuted) {
  const std::string name(389, 'n');
  const std::string path(1000, 'p');
  EXPECT_EQ(M::AddUser({name, 0, 0, 0, 1, 1, kNormal, "/n"}), 0);
  (void)Changes(0);
  for (const int result : {M::RemoveUser(name), M::RemoveShareUser(path), M::RemoveSession(path),
                           M::RenameUser(path, "x"), M::AddUser({"new", 0, 0, 0, 1, 1, kNormal, path}),
                           M::SetUserAttribute(path, 1), M::UpdateClientType(path, 1)}) {
    EXPECT_EQ(Changes(result), "failed ");
  }
  EXPECT_EQ(Get<UserRecord>(M::GetUser, path), "failed");
  EXPECT_EQ(M::SetBackupTask("s1", {{12, "", path + path, 1}}), 0) << "this one has no bound";
  // The buffer's last byte ends the text.
  constexpr std::size_t kAround = sizeof("UPDATE user_table SET name = '' WHERE name = 'bob';") - 1;
  EXPECT_EQ(M::RenameUser("bob", std::string(1024 - kAround, 'n')), -1);
  EXPECT_EQ(M::RenameUser("bob", std::string(1023 - kAround, 'n')), 0);
}

}  // namespace
}  // namespace user_mgr
