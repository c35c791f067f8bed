// 3450 to 4000: sessions with a client type, backup tasks, rotation settings in the user database, removed
// files queued as rows, btrfs uuids in their new form, and the application privilege for every user.
#pragma once

#include <string>
#include <vector>

#include "updater/server/folder_updater.h"

namespace updater::server {

class SvrUpdater3450to4000 : public FolderUpdater {
 public:
  SvrUpdater3450to4000(const UpdaterContext& context, const std::string& data, const std::string& log,
                       const std::string& user, const std::string& client, const std::string& view_folder,
                       const std::string& file_folder);

 protected:
  [[nodiscard]] std::vector<Step> Steps() override;

 private:
  [[nodiscard]] int UpdateUserSchema() const;
  [[nodiscard]] int UpdateViewSchemas();
  [[nodiscard]] int UpdateRotation();
  [[nodiscard]] int RemoveSharedRotation() const;
  [[nodiscard]] int UpdateBtrfsUuids();
  [[nodiscard]] int UpdatePrivileges() const;
};

}  // namespace updater::server
