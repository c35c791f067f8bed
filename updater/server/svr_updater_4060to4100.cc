// 4060 to 4100: stores the session that committed a version, and lets the log database shrink by itself.
#include "updater/framework/updater_log.h"
#include "updater/framework/views.h"
#include "updater/server/maintenance.h"
#include "updater/server/updaters.h"

namespace updater::server {
namespace {

constexpr const char* kAddCommitter =
    "ALTER TABLE view_db.node_table ADD COLUMN v_committer_sess_id TEXT DEFAULT '';"
    "ALTER TABLE view_db.version_table ADD COLUMN committer_sess_id TEXT DEFAULT '';";

class SvrUpdater4060to4100 final : public ServerUpdater {
 public:
  SvrUpdater4060to4100(const UpdaterContext& context, const PackagePaths& copies)
      : ServerUpdater(context, FolderEdge(4060, 4100, SuccessLine::kSystemLog), copies) {}

 private:
  [[nodiscard]] std::vector<Step> Steps() override {
    return {
        {[this] { return UpdateViews(); }, "failed to update all view db\n"},
        {[this] { return UpdateLogDatabase(); }, "failed to update log db\n"},
        {[this] { return Connect(); }, "failed to connect to databases again\n"},
    };
  }

  [[nodiscard]] bool UpdateViews() {
    if (ViewsAreNew()) return true;
    return ForEachView(db(), [this](ViewId view) {
      return Check(ExecOnView(db(), paths(), view, kAddCommitter), "Failed to update view db for view %llu\n",
                   view);
    });
  }

  // The new vacuum mode takes effect by a VACUUM, which wants the database for itself.
  [[nodiscard]] bool UpdateLogDatabase() {
    Detach();
    return RunMaintenance(paths().log, "PRAGMA auto_vacuum = 1; VACUUM;");
  }
};

}  // namespace

std::unique_ptr<AbstractUpdater> NewSvrUpdater4060to4100(const UpdaterContext& context,
                                                         const PackagePaths& copies) {
  return std::make_unique<SvrUpdater4060to4100>(context, copies);
}

}  // namespace updater::server
