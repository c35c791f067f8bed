#include "updater/server/svr_updater_2577to2603.h"

#include "updater/server/sql/version_columns.h"

namespace updater::server {

SvrUpdater2577to2603::SvrUpdater2577to2603(const UpdaterContext& context, const std::string& data,
                                           const std::string& user, const std::string& client)
    : EarlyUpdater(context, {"", 2577}, {"hos-4.3", 2603}, DatabaseSet::kWithoutLog,
                   {.data = data, .log = {}, .user = user, .client = client}) {}

int SvrUpdater2577to2603::UpdateDatabases() {
  if (CreateMarkerFiles() < 0) return -1;
  return db_util::ExecScript(
      db(), std::string("BEGIN TRANSACTION; ") + sql::kRenameServerClient + "END TRANSACTION; ");
}

}  // namespace updater::server
