#include "updater/server/svr_updater_2603to3004.h"

#include "updater/server/sql/version_columns.h"

namespace updater::server {

SvrUpdater2603to3004::SvrUpdater2603to3004(const UpdaterContext& context, const std::string& data,
                                           const std::string& user, const std::string& client)
    : EarlyUpdater(context, {"hos-4.3", 2603}, {kMasterBranch, 3004}, DatabaseSet::kWithoutLog,
                   {.data = data, .log = {}, .user = user, .client = client}) {}

int SvrUpdater2603to3004::UpdateDatabases() {
  return db_util::ExecScript(db(), std::string("BEGIN TRANSACTION; ") + sql::kAddVersionColumns +
                                       sql::kAddClientNodeColumns + "END TRANSACTION; ");
}

}  // namespace updater::server
