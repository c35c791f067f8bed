// The access layer of the user database: users, sessions, backup tasks, rotation settings and profiles.
//
// There is one manager per process, and all of its state is static. A program calls Configure, Initialize,
// any operations, and Destroy, in this order. Every operation returns 0 on success and -1 on failure, after
// logging the reason under "user_mgr_debug", unless it says otherwise. An operation that fails changes
// nothing in the database, and leaves its out argument as it was. Operations on a closed manager fail.
//
// Operations run under the lock: a mutex for the threads of the process, and an exclusive flock of the lock
// file for the processes of the package. BeginTransaction, EndTransaction and RollbackTransaction do not take
// it. From Initialize to Destroy, other processes are waited for altogether as long as SQLite waits for the
// lock of a database; then the operations fail.
//
// The "stored name" of a share user is "@" and the name of the share; that of anybody else is the account's.
// Names compare without regard to (ASCII) case.
#pragma once

#include <chrono>
#include <list>
#include <mutex>
#include <string>

#include "base/file_descriptor.h"
#include "db-util/database.h"
#include "platform/platform.h"
#include "platform/system_paths.h"
#include "user-mgr/records.h"

namespace user_mgr {

// Whoever may open the lock file, and that is everybody, can keep it locked.
struct LockFile {
  base::FileDescriptor file;                                    // not open when the manager is closed
  std::chrono::milliseconds patience{db_util::kBusyTimeoutMs};  // what is left of it
};

class UserManager {
 public:
  UserManager() = delete;

  // Sets the machine that SelfCheck asks, borrowed until another one is configured, and the lock file that
  // Initialize opens.
  static void Configure(const platform::Platform& platform,
                        std::string lock_path = platform::SystemPaths().user_lock);

  // Opens the user database, creating it or whatever its schema lacks. A manager that is open already stays
  // as it is, whatever the path (0). After a failure the manager is closed.
  [[nodiscard]] static int Initialize(const std::string& path);

  // The same with a connection that nobody else shares the database with, and without a lock file: for a
  // copy, and for one that forgets what is written to it.
  [[nodiscard]] static int InitializePrivate(db_util::Database opened);

  // Closes the database, which rolls an open transaction back, and the lock file. No effect when closed.
  static void Destroy();

  // Brings the users in line with the accounts, shares and services of the machine. The view ids of the users
  // that were removed because their account or share is gone are appended to `removed_views`, in the order of
  // the table; the views of users removed because their service is off are not. A view that several rows name
  // is appended with the last of them, and not at all while one remains. Damaged rows (see Damage), their
  // sessions and the backup tasks of these stay as they are.
  //
  // Warnings: one for each damaged row, one for each removed user with the reason, one for each user whose
  // view is kept for another row.
  //
  // After a failure the transaction of the check stays open: close the manager, or end the process.
  [[nodiscard]] static int SelfCheck(std::list<ViewId>& removed_views);

  [[nodiscard]] static int BeginTransaction();
  [[nodiscard]] static int EndTransaction();
  [[nodiscard]] static int RollbackTransaction();

  // --- Users ---

  // Adds a user with the next view id; `id` and `view_id` of the record are not used. A stored name that is
  // taken already is success and changes nothing, the next view id included.
  [[nodiscard]] static int AddUser(const UserRecord& user);
  // Removes a user that is not a share user, with its sessions and their backup tasks. A name that no row
  // has is success, here and in the other operations that remove or change rows.
  [[nodiscard]] static int RemoveUser(const std::string& name);
  // Removes the user of a share, with the rotation setting of its view. `share_name` is without "@". Sessions
  // and backup tasks stay. The two statements have no transaction: when the second one fails, what the first
  // one did stays.
  [[nodiscard]] static int RemoveShareUser(const std::string& share_name);
  // Removes all users of a type, with their sessions and backup tasks.
  [[nodiscard]] static int DeleteUserByUserType(UserType type);
  // Both are stored names. A new name that is taken already is a failure.
  [[nodiscard]] static int RenameUser(const std::string& name, const std::string& new_name);

  // Find one user. When there is none, the result is -1, with a line at level info.
  [[nodiscard]] static int GetUserByViewId(ViewId view_id, UserRecord& user);
  [[nodiscard]] static int GetUser(const std::string& name, UserRecord& user);  // never a share user
  [[nodiscard]] static int GetShareUser(const std::string& share_name, UserRecord& user);

  // Replace what `users` held. EnumAllUser lists the users in the order of the table. Damaged rows are listed
  // as well, and their records say so.
  [[nodiscard]] static int EnumAllUser(UserList& users);
  [[nodiscard]] static int EnumShareUser(bool ordered_by_name, UserList& users);
  [[nodiscard]] static int EnumUserByType(UserType type, UserList& users);

  // Count the users that are neither disabled nor suspended, of a type or of all other types.
  [[nodiscard]] static int CountEnabledUser(UserType type, int& count);
  [[nodiscard]] static int CountEnabledUserExcept(UserType type, int& count);

  // Disabling sets the bits of `mask` in the attribute, enabling clears them. The longer forms touch the user
  // only if it is of one of the two types.
  [[nodiscard]] static int DisableUser(const std::string& stored_name, int mask);
  [[nodiscard]] static int DisableUser(const std::string& stored_name, int mask, UserType type,
                                       UserType other);
  [[nodiscard]] static int EnableUser(const std::string& stored_name, int mask);
  [[nodiscard]] static int EnableUser(const std::string& stored_name, int mask, UserType type,
                                      UserType other);
  [[nodiscard]] static int SetUserAttribute(const std::string& stored_name, int attribute);

  // --- Sessions ---

  // Adds a session of the user, or of nobody when there is no such user. A session id that is taken is a
  // failure.
  [[nodiscard]] static int CreateSession(const std::string& stored_name, const ClientInfo& client,
                                         const std::string& ip);
  // When there is no such session, the result is -1, with a line at level info. A session of nobody is never
  // found, neither here nor by EnumSession.
  [[nodiscard]] static int GetSession(const std::string& sess_id, SessionRecord& session);
  [[nodiscard]] static int EnumSession(const SessionPage& page, std::list<SessionRecord>& sessions);
  [[nodiscard]] static int EnumSession(const std::string& stored_name, const SessionPage& page,
                                       std::list<SessionRecord>& sessions);
  [[nodiscard]] static int CountSession(int& count);
  [[nodiscard]] static int CountSession(const std::string& stored_name, int& count);
  // Removes a session with its backup tasks.
  [[nodiscard]] static int RemoveSession(const std::string& sess_id);
  // Gives the session a new client, id included; its backup tasks follow to the new id.
  [[nodiscard]] static int UpdateClient(const std::string& sess_id, const ClientInfo& client);
  [[nodiscard]] static int UpdateClientType(const std::string& sess_id, int client_type);
  // Removes every session and every backup task.
  [[nodiscard]] static int ClearSession();

  // --- Backup tasks ---

  [[nodiscard]] static int EnumBackupTask(std::list<BackupTask>& tasks);
  [[nodiscard]] static int EnumBackupTask(const std::string& session, std::list<BackupTask>& tasks);
  // Puts `tasks` in place of the session's tasks; the session named in them is not used.
  [[nodiscard]] static int SetBackupTask(const std::string& session, const std::list<BackupTask>& tasks);
  // Lists the folders of a view that backup tasks of other sessions use; of all sessions when `session` is
  // empty.
  [[nodiscard]] static int EnumConflictPath(const std::string& session, ViewId view_id,
                                            std::list<std::string>& relative_paths);

  // --- Rotation settings ---

  // Writes all of them or none. No settings is success.
  [[nodiscard]] static int SetRotateSetting(const std::list<RotateSetting>& settings);
  // Reads the view's own row. When there is none, the result is -1, with a line at level info.
  [[nodiscard]] static int GetRotateSetting(ViewId view_id, RotateSetting& setting);

  // --- Profiles ---

  [[nodiscard]] static int EnumProfile(std::list<Profile>& profiles);
  [[nodiscard]] static int EnumProfileApply(std::list<ProfileApply>& applied);
  // Makes all changes in one transaction.
  [[nodiscard]] static int CommitProfile(const ProfileChanges& changes);
  // Lists every user with every profile that applies to its account, then every user with every profile that
  // applies to its view.
  [[nodiscard]] static int CollectUserData(std::list<UserProfile>& users);

 private:
  friend class Access;      // gives the layer's own files the connection
  friend class ScopedLock;  // takes the mutex and the lock file

  static void Begin(db_util::Database opened, base::FileDescriptor lock_file);

  static db_util::Database db;  // null when closed
  static LockFile lock;
  // Destroy leaves the mutex as it is, so that a caller who comes too late can lock it and fail.
  static std::mutex mutex;
  static std::string seed;  // a random number in decimal digits, for other operations of the package
  static bool g_is_cached;  // set by other operations of the package

  static const platform::Platform* platform_;
  static std::string lock_path_;
};

}  // namespace user_mgr
