// 2577 to 3004: versions get access rights and share privileges, and the folders of stored files their
// markers.
#include "updater/framework/exec_sql.h"
#include "updater/server/marker_files.h"
#include "updater/server/sql/version_columns.h"
#include "updater/server/updaters.h"

namespace updater::server {
namespace {

class SvrUpdater2577to3004 final : public ServerUpdater {
 public:
  SvrUpdater2577to3004(const UpdaterContext& context, const PackagePaths& copies)
      : ServerUpdater(context, EarlyEdge({"", 2577}, {kMasterBranch, 3004}, DatabaseSet::kWithoutLog),
                      copies) {}

 private:
  [[nodiscard]] std::vector<Step> Steps() override {
    return {{[this] { return UpdateDatabases(); }, "failed to update databases\n"}};
  }

  [[nodiscard]] bool UpdateDatabases() {
    return CreateMarkerFiles(paths().data) &&
           ExecScriptAs(db(), Script(sql::kSetModesAndRenameServerClient),
                        Script(std::string(sql::kSetModes) + sql::kRenameServerClient)) == 0;
  }
  [[nodiscard]] static std::string Script(const std::string& change_versions) {
    return std::string("BEGIN TRANSACTION; ") + sql::kAddVersionColumns + change_versions +
           sql::kAddClientNodeColumns + "END TRANSACTION; ";
  }
};

}  // namespace

std::unique_ptr<AbstractUpdater> NewSvrUpdater2577to3004(const UpdaterContext& context,
                                                         const PackagePaths& copies) {
  return std::make_unique<SvrUpdater2577to3004>(context, copies);
}

}  // namespace updater::server
