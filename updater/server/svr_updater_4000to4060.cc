// 4000 to 4060: gives every view database the rotation policy of its settings row.
#include "updater/server/updaters.h"
#include "updater/server/view_rotations.h"

namespace updater::server {
namespace {

constexpr const char* kInsertRotatePolicy =
    "INSERT OR IGNORE INTO view_db.config_table (key, value) VALUES \t('rotate_policy', "
    "\t(SELECT rotate_policy FROM user_db.rotate_setting_table WHERE view_id = %lld));";

class SvrUpdater4000to4060 final : public ServerUpdater {
 public:
  SvrUpdater4000to4060(const UpdaterContext& context, const PackagePaths& copies)
      : ServerUpdater(context, FolderEdge(4000, 4060, SuccessLine::kSystemLog), copies) {}

 private:
  [[nodiscard]] std::vector<Step> Steps() override {
    return {{[this] { return UpdateViewRotations(db(), paths(), kInsertRotatePolicy); },
             "failed to update all rotate_cnt\n"}};
  }
};

}  // namespace

std::unique_ptr<AbstractUpdater> NewSvrUpdater4000to4060(const UpdaterContext& context,
                                                         const PackagePaths& copies) {
  return std::make_unique<SvrUpdater4000to4060>(context, copies);
}

}  // namespace updater::server
