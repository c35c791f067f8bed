#include "updater/server/svr_updater_2577to3004.h"

#include "updater/server/sql/version_columns.h"

namespace updater::server {

SvrUpdater2577to3004::SvrUpdater2577to3004(const UpdaterContext& context, const std::string& data,
                                           const std::string& user, const std::string& client)
    : EarlyUpdater(context, {"", 2577}, {kMasterBranch, 3004}, DatabaseSet::kWithoutLog,
                   {.data = data, .log = {}, .user = user, .client = client}) {}

int SvrUpdater2577to3004::UpdateDatabases() {
  if (CreateMarkerFiles() < 0) return -1;
  return db_util::ExecScript(db(), std::string("BEGIN TRANSACTION; ") + sql::kAddVersionColumns +
                                       sql::kRenameServerClient + sql::kAddClientNodeColumns +
                                       "END TRANSACTION; ");
}

}  // namespace updater::server
