#include "updater/server/svr_updater_4000to4060.h"

namespace updater::server {
namespace {

constexpr const char* kInsertRotatePolicy =
    "INSERT OR IGNORE INTO view_db.config_table (key, value) VALUES \t('rotate_policy', "
    "\t(SELECT rotate_policy FROM user_db.rotate_setting_table WHERE view_id = %lld));";

}  // namespace

SvrUpdater4000to4060::SvrUpdater4000to4060(const UpdaterContext& context, const std::string& data,
                                           const std::string& log, const std::string& user,
                                           const std::string& client, const std::string& view_folder,
                                           const std::string& file_folder)
    : FolderUpdater(context, 4000, 4060, SuccessLine::kSystemLog,
                    {.data = data, .log = log, .user = user, .client = client}, {view_folder, file_folder}) {}

std::vector<ServerUpdater::Step> SvrUpdater4000to4060::Steps() {
  return {{[this] { return UpdateViewRotations(kInsertRotatePolicy); }, "failed to update all rotate_cnt\n"}};
}

}  // namespace updater::server
