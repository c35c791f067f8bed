#include "ctl/demo_platform.h"

#include "ctl/sample_content.h"
#include "db-util/database.h"
#include "db-util/query.h"
#include "user-mgr/records.h"

namespace ctl {
namespace {

constexpr std::string_view kWatchedFolder = "/StratoFolder";
constexpr int kNormalUser = static_cast<int>(user_mgr::UserType::kNormal);
constexpr int kShareUser = static_cast<int>(user_mgr::UserType::kShare);

std::string HomeAbove(const std::string& watch_path) {
  const std::size_t end = watch_path.rfind(kWatchedFolder);
  return end == std::string::npos ? "" : watch_path.substr(0, end);
}

}  // namespace

DemoPlatform::DemoPlatform(const std::string& user_database, const VolumeIdentity& own,
                           const RecordedVolumes& recorded) {
  TellVolumes(own, recorded, machine_.volumes);
  ReadUsers(user_database);
}

void DemoPlatform::ReadUsers(const std::string& user_database) {
  db_util::Database db;
  if (!db_util::OpenQuietly(user_database, db, db_util::OpenMode::kReadWrite).ok()) return;
  // What cannot be read is no user of this machine; the run itself says what is wrong with the database.
  (void)db_util::ForEachRow(
      db.get(), "SELECT name, uid, gid, user_type, attribute, watch_path FROM user_table;",
      [this](sqlite3_stmt* row) {
        const std::string name = db_util::ColumnText(row, 0);
        const int type = sqlite3_column_int(row, 3);
        const std::string watch_path = db_util::ColumnText(row, 5);
        if (type == kShareUser && !name.empty()) {
          machine_.shares.shares.push_back(
              {.name = name.substr(1), .path = watch_path, .is_replica = false, .flags = {}});
        } else if (type == kNormalUser && name != kGoneUser) {
          const auto uid = static_cast<uid_t>(sqlite3_column_int64(row, 1));
          machine_.accounts.accounts[uid] = {
              .name = name,
              .uid = uid,
              .gid = static_cast<gid_t>(sqlite3_column_int64(row, 2)),
              .home = HomeAbove(watch_path),
              .expired = (sqlite3_column_int(row, 4) & user_mgr::kExpired) != 0};
        }
        return true;
      });
}

}  // namespace ctl
