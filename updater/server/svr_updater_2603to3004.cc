// 2603 to 3004: from the side branch back to master. Markers and client names are there already.
#include "updater/framework/exec_sql.h"
#include "updater/server/sql/version_columns.h"
#include "updater/server/updaters.h"

namespace updater::server {
namespace {

class SvrUpdater2603to3004 final : public ServerUpdater {
 public:
  SvrUpdater2603to3004(const UpdaterContext& context, const PackagePaths& copies)
      : ServerUpdater(context, EarlyEdge({"hos-4.3", 2603}, {kMasterBranch, 3004}, DatabaseSet::kWithoutLog),
                      copies) {}

 private:
  [[nodiscard]] std::vector<Step> Steps() override {
    return {{[this] { return UpdateDatabases(); }, "failed to update databases\n"}};
  }

  [[nodiscard]] bool UpdateDatabases() {
    return ExecScript(db(), std::string("BEGIN TRANSACTION; ") + sql::kAddVersionColumns + sql::kSetModes +
                                sql::kAddClientNodeColumns + "END TRANSACTION; ") == 0;
  }
};

}  // namespace

std::unique_ptr<AbstractUpdater> NewSvrUpdater2603to3004(const UpdaterContext& context,
                                                         const PackagePaths& copies) {
  return std::make_unique<SvrUpdater2603to3004>(context, copies);
}

}  // namespace updater::server
