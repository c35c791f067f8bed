#include "updater/server/svr_updater_4060to4100.h"

#include "updater/server/maintenance.h"

namespace updater::server {
namespace {

using logger::Succeeded;

constexpr const char* kAddCommitter =
    "ALTER TABLE view_db.node_table ADD COLUMN v_committer_sess_id TEXT DEFAULT '';"
    "ALTER TABLE view_db.version_table ADD COLUMN committer_sess_id TEXT DEFAULT '';";

}  // namespace

SvrUpdater4060to4100::SvrUpdater4060to4100(const UpdaterContext& context, const std::string& data,
                                           const std::string& log, const std::string& user,
                                           const std::string& client, const std::string& view_folder,
                                           const std::string& file_folder)
    : FolderUpdater(context, 4060, 4100, SuccessLine::kSystemLog,
                    {.data = data, .log = log, .user = user, .client = client}, {view_folder, file_folder}) {}

std::vector<ServerUpdater::Step> SvrUpdater4060to4100::Steps() {
  return {
      {[this] { return UpdateViews(); }, "failed to update all view db\n"},
      {[this] { return UpdateLogDatabase(); }, "failed to update log db\n"},
      {[this] { return Connect(); }, "failed to connect to databases again\n"},
  };
}

int SvrUpdater4060to4100::UpdateViews() {
  return ForEachView([this](ViewId view) {
    return Succeeded(ExecOnView(view, kAddCommitter), "Failed to update view db for view %llu\n", view) ? 0
                                                                                                        : -1;
  });
}

// The new vacuum mode takes effect by a VACUUM, which wants the database for itself.
int SvrUpdater4060to4100::UpdateLogDatabase() {
  Detach();
  return RunMaintenance(paths().log, "PRAGMA auto_vacuum = 1; VACUUM;");
}

}  // namespace updater::server
