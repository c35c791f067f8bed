// 2577 to 2603, a side branch: only the markers of the folders of stored files, and the name of the server
// client.
#include "updater/framework/exec_sql.h"
#include "updater/server/marker_files.h"
#include "updater/server/sql/version_columns.h"
#include "updater/server/updaters.h"

namespace updater::server {
namespace {

class SvrUpdater2577to2603 final : public ServerUpdater {
 public:
  SvrUpdater2577to2603(const UpdaterContext& context, const PackagePaths& copies)
      : ServerUpdater(context, EarlyEdge({"", 2577}, {"hos-4.3", 2603}, DatabaseSet::kWithoutLog), copies) {}

 private:
  [[nodiscard]] std::vector<Step> Steps() override {
    return {{[this] { return UpdateDatabases(); }, "failed to update databases\n"}};
  }

  [[nodiscard]] bool UpdateDatabases() {
    return CreateMarkerFiles(paths().data) &&
           ExecScript(db(), std::string("BEGIN TRANSACTION; ") + sql::kRenameServerClient +
                                "END TRANSACTION; ") == 0;
  }
};

}  // namespace

std::unique_ptr<AbstractUpdater> NewSvrUpdater2577to2603(const UpdaterContext& context,
                                                         const PackagePaths& copies) {
  return std::make_unique<SvrUpdater2577to2603>(context, copies);
}

}  // namespace updater::server
