// Profiles and what they apply to.
#include "db-util/query.h"
#include "user-mgr/script.h"
#include "user-mgr/user_manager.h"
#include "user-mgr/user_rows.h"

namespace user_mgr {
namespace {

bool ReadProfile(sqlite3_stmt* row, Profile& profile) {
  profile.id = ColumnId(row, 0);
  profile.name = db_util::ColumnText(row, 1);
  profile.context = db_util::ColumnText(row, 2);
  profile.attribute = sqlite3_column_int(row, 3);
  return true;
}

bool ReadApply(sqlite3_stmt* row, ProfileApply& apply) {
  apply.user_id = ColumnUnsigned(row, 0);
  apply.profile_id = ColumnId(row, 1);
  return true;
}

bool ReadUserProfile(sqlite3_stmt* row, UserProfile& entry) {
  entry.profile_id = ColumnId(row, 8);
  return ReadUser(row, entry.user);
}

void AddProfileRows(Script& script, const ProfileChanges& changes) {
  for (const Profile& profile : changes.modified) {
    script.Add(" INSERT OR REPLACE INTO profile_table (id, name, context) VALUES (%llu, %Q, %Q);", profile.id,
               profile.name, profile.context);
  }
  for (const Profile& profile : changes.added) {
    script.Add(" INSERT INTO profile_table (name, context) VALUES (%Q, %Q);", profile.name, profile.context);
  }
  for (const unsigned long long id : changes.removed) {
    script.Add("DELETE FROM profile_table where id = %llu;", id);
    script.Add("DELETE FROM profile_apply_table where profile_id = %llu;", id);
  }
}

void AddApplications(Script& script, const ProfileChanges& changes) {
  for (const ProfileChanges::Apply& apply : changes.applied) {
    script.Add(" DELETE FROM profile_apply_table WHERE profile_id = %llu;", apply.profile_id);
    for (const unsigned user_id : apply.user_ids) {
      script.Add(" INSERT INTO profile_apply_table (profile_id, user_id) VALUES (%llu, %u);",
                 apply.profile_id, user_id);
    }
  }
  for (const ProfileChanges::ViewProfiles& view : changes.views) {
    script.Add("DELETE FROM profile_apply_view_table WHERE view_id = %llu;", view.view_id);
    script.Add(
        "INSERT OR IGNORE INTO profile_apply_view_table (profile_id, view_id) "
        "SELECT id, %llu FROM profile_table WHERE attribute & %d;",
        view.view_id, view.attribute_mask);
  }
}

}  // namespace

int UserManager::EnumProfile(std::list<Profile>& profiles) {
  return ToResult(ReadList<Profile>("EnumProfile", "SELECT id, name, context, attribute FROM profile_table;",
                                    &ReadProfile, profiles));
}

int UserManager::EnumProfileApply(std::list<ProfileApply>& applied) {
  return ToResult(ReadList<ProfileApply>(
      "EnumProfileApply", "SELECT user_id, profile_id FROM profile_apply_table;", &ReadApply, applied));
}

int UserManager::CommitProfile(const ProfileChanges& changes) {
  Script script("BEGIN TRANSACTION;");
  AddProfileRows(script, changes);
  AddApplications(script, changes);
  script.Add("END TRANSACTION;");
  return ToResult(Check(Execute(script.text()), "UserManager::CommitProfile fail\n"));
}

int UserManager::CollectUserData(std::list<UserProfile>& users) {
  constexpr char kByAccount[] =
      "SELECT name, id, view_id, attribute, uid, gid, user_type, watch_path, profile_id "
      "FROM user_table as ut, profile_apply_table as pat where ut.uid = pat.user_id ;";
  constexpr char kByView[] =
      "SELECT ut.name, ut.id, ut.view_id, ut.attribute, ut.uid, ut.gid, ut.user_type, ut.watch_path, pavt.profile_id "
      "FROM user_table as ut, profile_apply_view_table as pavt where ut.view_id = pavt.view_id ;";
  std::list<UserProfile> collected;
  std::list<UserProfile> by_view;
  const bool complete = ReadList<UserProfile>("CollectUserData", kByAccount, &ReadUserProfile, collected) &&
                        ReadList<UserProfile>("CollectUserData", kByView, &ReadUserProfile, by_view);
  if (complete) {
    collected.splice(collected.end(), by_view);
    users.swap(collected);
  }
  return ToResult(complete);
}

}  // namespace user_mgr
