#include <set>

#include "user-mgr/user_manager_fixture.h"

namespace user_mgr {
namespace {

class Operations : public UserManagerFixture {
 protected:
  void SetUp() override {
    UserManagerFixture::SetUp();
    ASSERT_EQ(UserManager::Initialize(File()), 0);
    Write(R"(INSERT INTO user_table (id, view_id, attribute, name, uid, gid, user_type, watch_path) VALUES
             (1, 11, 0, 'ann', 1001, 101, 0, '/h/ann'), (2, 12, 8, '@m', 0, 0, 1, '/s/m'), (3, 13, 1, 'ldap', 2001, 201, 2, '/h/ldap'),
             (4, 14, 0, 'D\bob', 3001, 301, 3, '/h/d'), (5, 15, 4, '@k', 0, 0, 1, '/s/k'), (6, 16, 0, 'bob', 1002, 102, 0, '/h/bob');
             UPDATE config_table SET value = '20' WHERE key = 'view_id';
             INSERT INTO session_table (uid, sess_id, client, ip, group_id, ctime, client_type) VALUES
             (1, 's1', 'c1', 'ip5', 1, 101, 1), (2, 's2', 'c2', 'ip4', 1, 102, 2), (3, 's3', 'c3', 'ip3', 1, 103, 3),
             (4, 's4', 'c4', 'ip2', 1, 104, 4), (1, 's5', 'c5', 'ip1', 1, 105, 5), (NULL, 's9', 'c9', '', 1, 106, 6);
             INSERT INTO backup_task_table (session, view_id, relative_path) SELECT sess_id, uid + 10, '/' || client FROM session_table;)");
  }

  // Everything that an operation may have changed: users with attributes, sessions, sessions that have tasks.
  std::string After(int result) const {
    return (result == 0 ? "" : "failed ") +
           Read("SELECT group_concat(name || attribute, ' ') FROM user_table WHERE length(name) < 99") +
           " / " + Read("SELECT group_concat(sess_id, ' ') FROM session_table") + " / " +
           Read("SELECT group_concat(session, ' ') FROM backup_task_table");
  }
  // One member of every record.
  template <class Record, class Member>
  static std::string Join(const std::list<Record>& records, Member Record::*member) {
    std::string line;
    for (const Record& record : records) line += record.*member + ",";
    return line;
  }
};

constexpr char kStart[] = "ann0 @m8 ldap1 D\\bob0 @k4 bob0 / s1 s2 s3 s4 s5 s9 / s1 s2 s3 s4 s5 s9";
constexpr char kSessionsStay[] = " / s1 s2 s3 s4 s5 s9 / s1 s2 s3 s4 s5 s9";

TEST_F(Operations, AddUserHandsOutTheNextViewIdOnlyToANewUser) {
  ASSERT_EQ(UserManager::AddUser({"o'neil %s", 0, 0, 3, 4000000000U, 77, UserType::kNormal, "/h/o'n %d"}), 0);
  ASSERT_EQ(UserManager::AddUser({"ANN", 0, 0, 0, 5, 5, UserType::kNormal, ""}), 0);
  ASSERT_EQ(UserManager::AddUser({"photo", 0, 0, 0, 5, 6, UserType::kShare, "/s"}), 0);
  EXPECT_EQ(
      Read("SELECT view_id, attribute, name, uid, gid, user_type, watch_path FROM user_table WHERE id > 6"),
      "20|3|o'neil %s|4000000000|77|0|/h/o'n %d,21|0|@photo|5|6|1|/s");
  EXPECT_EQ(Read("SELECT value FROM config_table"), "4150,master,22");
}

TEST_F(Operations, RemovalTakesWhatBelongsToTheUser) {
  ASSERT_EQ(UserManager::SetRotateSetting({{12, 1, "a"}, {15, 2, "b"}, {16, 3, "it's"}}), 0);
  for (const char* share : {"k", "bob"}) {  // the second is none
    EXPECT_EQ(After(UserManager::RemoveShareUser(share)),
              std::string("ann0 @m8 ldap1 D\\bob0 bob0") + kSessionsStay);
  }
  EXPECT_EQ(Read("SELECT * FROM rotate_setting_table"), "0|32|fifo,12|1|a,16|3|it's");
  EXPECT_EQ(After(UserManager::RemoveUser("ann")), "@m8 ldap1 D\\bob0 bob0 / s2 s3 s4 s9 / s2 s3 s4 s9");
  EXPECT_EQ(After(UserManager::DeleteUserByUserType(UserType::kDomain)),
            "@m8 ldap1 bob0 / s2 s3 s9 / s2 s3 s9");
  // Under its stored name a share user keeps its row, but not its sessions.
  EXPECT_EQ(After(UserManager::RemoveUser("@m")), "@m8 ldap1 bob0 / s3 s9 / s3 s9");
}

TEST_F(Operations, NamesAndAttributesOfOneUserChange) {
  constexpr auto kLdap = UserType::kLdap;
  constexpr auto kDomain = UserType::kDomain;
  const auto expect_users = [this](int result, const std::string& users) {
    EXPECT_EQ(After(result), users + kSessionsStay);
  };
  expect_users(UserManager::RenameUser("bob", "rob"), "ann0 @m8 ldap1 D\\bob0 @k4 rob0");
  expect_users(UserManager::RenameUser("rob", "Ann"), "failed ann0 @m8 ldap1 D\\bob0 @k4 rob0");
  EXPECT_EQ(sink_.Count("[ERROR] user-mgr(N): UserManager::RenameUser fail to rename user 'rob' to 'Ann'\n"),
            1);
  expect_users(UserManager::SetUserAttribute("rob", 42), "ann0 @m8 ldap1 D\\bob0 @k4 rob42");
  expect_users(UserManager::DisableUser("@k", 9), "ann0 @m8 ldap1 D\\bob0 @k13 rob42");
  expect_users(UserManager::EnableUser("@k", 5), "ann0 @m8 ldap1 D\\bob0 @k8 rob42");
  expect_users(UserManager::DisableUser("ann", 1, kLdap, kDomain), "ann0 @m8 ldap1 D\\bob0 @k8 rob42");
  expect_users(UserManager::DisableUser("ldap", 4, kLdap, kDomain), "ann0 @m8 ldap5 D\\bob0 @k8 rob42");
  expect_users(UserManager::DisableUser("D\\bob", 4, kLdap, kDomain), "ann0 @m8 ldap5 D\\bob4 @k8 rob42");
  expect_users(UserManager::EnableUser("@k", 8, kLdap, kDomain), "ann0 @m8 ldap5 D\\bob4 @k8 rob42");
  expect_users(UserManager::EnableUser("ldap", 1, kLdap, kDomain), "ann0 @m8 ldap4 D\\bob4 @k8 rob42");
  expect_users(UserManager::EnableUser("D\\bob", 4, kLdap, kDomain), "ann0 @m8 ldap4 D\\bob0 @k8 rob42");
}

TEST_F(Operations, QueriesFindTheRightUsers) {
  UserRecord user;
  ASSERT_EQ(UserManager::GetUserByViewId(15, user), 0);
  EXPECT_TRUE(user.name == "k" && user.id == 5 && user.attribute == 4 && user.user_type == UserType::kShare);
  ASSERT_EQ(UserManager::GetShareUser("m", user), 0);
  EXPECT_EQ(user.watch_path, "/s/m");
  ASSERT_EQ(UserManager::GetUser("LDAP", user), 0);
  EXPECT_EQ(UserManager::GetUser("@k", user), -1);
  EXPECT_EQ(UserManager::GetShareUser("ann", user), -1);
  EXPECT_EQ(UserManager::GetUserByViewId(1, user), -1);
  EXPECT_EQ(sink_.Count("[INFO] user-mgr(N): UserManager::GetUserByViewId: there is no user of view '1'\n"),
            1);
  EXPECT_TRUE(user.view_id == 13 && user.uid == 2001 && user.gid == 201 && user.watch_path == "/h/ldap");

  UserList users;
  EXPECT_EQ(UserManager::EnumShareUser(false, users), 0);
  EXPECT_EQ(Join(users, &UserRecord::name), "m,k,");
  EXPECT_EQ(UserManager::EnumShareUser(true, users), 0);
  EXPECT_EQ(Join(users, &UserRecord::name), "k,m,");
  EXPECT_EQ(UserManager::EnumUserByType(UserType::kNormal, users), 0);
  EXPECT_EQ(Join(users, &UserRecord::name), "ann,bob,");
  int count = 0;
  EXPECT_EQ(UserManager::CountEnabledUser(UserType::kShare, count), 0);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(UserManager::CountEnabledUserExcept(UserType::kShare, count), 0);
  EXPECT_EQ(count, 3);
}

TEST_F(Operations, SessionsAreMadeReadAndPaged) {
  ASSERT_EQ(UserManager::CreateSession("bob", {"n'1", "PC %s", 5, "win"}, "::1"), 0);
  EXPECT_EQ(UserManager::CreateSession("bob", {"s1", "", 0, ""}, ""), -1);
  EXPECT_EQ(
      Read(
          "SELECT uid, attribute, group_id, client, ip, client_type, client_platform, abs(ctime - strftime('%s', 'now')) < 100 FROM session_table WHERE sess_id = 'n''1'"),
      "6|0|1|PC %s|::1|5|win|1");
  SessionRecord s;
  ASSERT_EQ(UserManager::GetSession("s3", s), 0);
  EXPECT_EQ(s.name + s.client + s.ip + s.sess_id + s.watch_path + s.client_platform,
            "ldapc3ip3s3/h/ldapUnknown");
  EXPECT_TRUE(s.view_id == 13 && s.attribute == 1 && s.ctime == 103 && s.group_id == 1 && s.uid == 2001 &&
              s.gid == 201 && s.user_type == UserType::kLdap && s.client_type == 3);
  EXPECT_EQ(UserManager::GetSession("s9", s), -1);
  EXPECT_EQ(sink_.Count("[INFO] user-mgr(N): UserManager::GetSession:: cannot file record for session s9\n"),
            1);

  std::list<SessionRecord> sessions;
  EXPECT_EQ(UserManager::EnumSession({SessionOrder::kIp, Direction::kAscending, 2, 2}, sessions), 0);
  EXPECT_EQ(Join(sessions, &SessionRecord::sess_id), "s4,s3,");
  EXPECT_EQ(UserManager::EnumSession({SessionOrder::kCreationTime, Direction::kDescending, 3, 2}, sessions),
            0);
  EXPECT_EQ(Join(sessions, &SessionRecord::sess_id), "s4,s3,s2,");
  EXPECT_EQ(UserManager::EnumSession("ann", {SessionOrder::kIp, Direction::kAscending, 9, 0}, sessions), 0);
  EXPECT_EQ(Join(sessions, &SessionRecord::sess_id), "s5,s1,");
  int count = 0;
  EXPECT_EQ(UserManager::CountSession(count), 0);
  EXPECT_EQ(count, 7);
  EXPECT_EQ(UserManager::CountSession("ann", count), 0);
  EXPECT_EQ(count, 2);
}

TEST_F(Operations, SessionsChangeAndGoOneByOne) {
  const std::string users = "ann0 @m8 ldap1 D\\bob0 @k4 bob0 / ";
  EXPECT_EQ(After(UserManager::UpdateClient("s3", {"it's", "phone", 9, "ios"})),
            users + "it's s1 s2 s4 s5 s9 / it's s1 s2 s4 s5 s9");
  // An id that is taken: nothing changes, and no transaction stays open.
  EXPECT_EQ(After(UserManager::UpdateClient("s4", {"s1", "", 0, ""})),
            "failed " + users + "it's s1 s2 s4 s5 s9 / it's s1 s2 s4 s5 s9");
  EXPECT_EQ(After(UserManager::RemoveSession("s4")), users + "it's s1 s2 s5 s9 / it's s1 s2 s5 s9");
  EXPECT_EQ(UserManager::UpdateClientType("s2", 77), 0);
  EXPECT_EQ(Read("SELECT client, client_type, client_platform FROM session_table ORDER BY rowid"),
            "c1|1|Unknown,c2|77|Unknown,phone|9|ios,c5|5|Unknown,c9|6|Unknown");
  EXPECT_EQ(After(UserManager::ClearSession()), users + " / ");
}

TEST_F(Operations, BackupTasksBelongToTheirSession) {
  const std::string path(2000, '\'');  // longer than the statement buffer: these have no bound
  EXPECT_EQ(UserManager::SetBackupTask("s1", {{12, "", path, 1}, {13, "", "/b", 0}}), 0);
  std::list<BackupTask> tasks;
  ASSERT_EQ(UserManager::EnumBackupTask("s1", tasks), 0);
  ASSERT_EQ(tasks.size(), 2U);
  const BackupTask& task = tasks.front();
  EXPECT_TRUE(task.view_id == 12 && task.session == "s1" && task.relative_path == path &&
              task.is_readonly == 1);
  EXPECT_EQ(UserManager::EnumBackupTask(tasks), 0);
  EXPECT_EQ(tasks.size(), 7U);
  std::list<std::string> paths;
  EXPECT_EQ(UserManager::EnumConflictPath("s1", 12, paths), 0);
  EXPECT_EQ(paths, std::list<std::string>{"/c2"});
  EXPECT_EQ(UserManager::EnumConflictPath("", 12, paths), 0);
  EXPECT_EQ(paths, (std::list<std::string>{"/c2", path}));
  EXPECT_EQ(UserManager::SetBackupTask("s1", {}), 0);
  EXPECT_EQ(Read("SELECT group_concat(session) FROM backup_task_table"), "s2,s3,s4,s5,s9");
}

TEST_F(Operations, RotationSettingsAreReplacedByView) {
  EXPECT_EQ(UserManager::SetRotateSetting({}), 0);
  EXPECT_EQ(UserManager::SetRotateSetting({{7, 1, "fifo"}, {8, 2, "smart"}}), 0);
  EXPECT_EQ(UserManager::SetRotateSetting({{7, 9, "it's"}}), 0);
  EXPECT_EQ(Read("SELECT * FROM rotate_setting_table"), "0|32|fifo,7|9|it's,8|2|smart");
  RotateSetting setting;
  EXPECT_EQ(UserManager::GetRotateSetting(8, setting), 0);
  EXPECT_EQ(UserManager::GetRotateSetting(9, setting), -1);
  EXPECT_EQ(sink_.Count("[INFO] user-mgr(N): UserManager::GetRotateSetting: view 9 has no setting\n"), 1);
  EXPECT_TRUE(setting.view_id == 8 && setting.rotate_cnt == 2 && setting.rotate_policy == "smart");
}

TEST_F(Operations, ProfilesAreCommittedTogether) {
  const std::string context = "{\"a\":\"" + std::string(2000, '\'') + "\"}";
  ProfileChanges changes;
  changes.added = {{0, "two", context, 0}, {0, "three", "{}", 0}, {0, "four", "{}", 0}};
  changes.applied = {{2, {1001, 1002}}, {3, {1001}}, {4, {2001}}};
  changes.views = {{11, 2}, {12, 1}};
  ASSERT_EQ(UserManager::CommitProfile(changes), 0);
  changes = {};
  changes.modified = {{2, "2nd", context, 0}};
  changes.removed = {3};
  changes.applied = {{2, {2001}}};
  changes.views = {{12, 64}};
  ASSERT_EQ(UserManager::CommitProfile(changes), 0);
  EXPECT_EQ(Read("SELECT id, name, length(context), attribute FROM profile_table"),
            "1|internal for enc share|32|7,2|2nd|2008|0,4|four|2|0");
  EXPECT_EQ(Read("SELECT profile_id, view_id FROM profile_apply_view_table"), "1|11");

  std::list<Profile> profiles;
  ASSERT_EQ(UserManager::EnumProfile(profiles), 0);
  const Profile& last = profiles.back();
  EXPECT_TRUE(profiles.size() == 3 && last.id == 4 && last.name == "four" && last.context == "{}" &&
              profiles.front().attribute == 7);
  std::list<ProfileApply> applied;
  ASSERT_EQ(UserManager::EnumProfileApply(applied), 0);
  std::set<std::string> lines;
  for (const auto& row : applied)
    lines.insert(std::to_string(row.user_id) + "-" + std::to_string(row.profile_id));
  std::list<UserProfile> users;
  ASSERT_EQ(UserManager::CollectUserData(users), 0);
  for (const auto& entry : users) lines.insert(entry.user.name + "-" + std::to_string(entry.profile_id));
  EXPECT_EQ(lines, (std::set<std::string>{"2001-2", "2001-4", "ldap-2", "ldap-4", "ann-1"}));

  Write("CREATE TRIGGER t BEFORE DELETE ON profile_apply_table BEGIN SELECT raise(ABORT, 'no'); END;");
  changes = {};
  changes.removed = {2};
  EXPECT_EQ(UserManager::CommitProfile(changes), -1);
  EXPECT_EQ(Read("SELECT count(*) FROM profile_table"), "3");
}

TEST_F(Operations, AStatementThatDoesNotFitIsNotExecuted) {
  const std::string name(389, 'n');
  const std::string path(1000, 'p');
  ASSERT_EQ(UserManager::AddUser({name, 0, 0, 0, 1, 1, UserType::kNormal, "/n"}), 0);
  int count = 0;
  UserRecord user;
  for (const int result :
       {UserManager::RemoveUser(name), UserManager::RemoveShareUser(path), UserManager::RemoveSession(path),
        UserManager::AddUser({"new", 0, 0, 0, 1, 1, UserType::kNormal, path}),
        UserManager::RenameUser(path, "x"), UserManager::SetUserAttribute(path, 1),
        UserManager::UpdateClientType(path, 1), UserManager::GetUser(path, user),
        UserManager::CountSession(path, count)}) {
    EXPECT_EQ(After(result), std::string("failed ") + kStart);
  }
  EXPECT_EQ(Read("SELECT attribute FROM user_table WHERE id = 7"), "0");

  // The buffer's last byte ends the text.
  constexpr std::size_t kAround = sizeof("UPDATE user_table SET name = '' WHERE name = 'bob';") - 1;
  EXPECT_EQ(UserManager::RenameUser("bob", std::string(1024 - kAround, 'n')), -1);
  EXPECT_EQ(UserManager::RenameUser("bob", std::string(1023 - kAround, 'n')), 0);
}

}  // namespace
}  // namespace user_mgr
