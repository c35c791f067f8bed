#include "updater/server/marker_files.h"

#include "base/errno.h"
#include "file-op/file_op.h"
#include "package/layout.h"
#include "updater/framework/updater_log.h"

namespace updater::server {

int CreateEmptyFile(const std::string& path) {
  if (file_op::FSMakeEmptyFile(path) == 0) return 0;
  UpdaterLog("failed to open file(%s): %s\n", path, base::Errno::Last().Text());
  return -1;
}

std::string GetParentDir(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash != std::string::npos) return path.substr(0, slash);
  UpdaterLog("invalid path %s\n", path);
  return {};
}

bool CreateMarkerFiles(const std::string& data_database) {
  const std::string folder = GetParentDir(data_database);
  return Check(CreateEmptyFile(folder + package::kFilesFolder + "/.0"), "failed to create empty file\n") &&
         Check(CreateEmptyFile(folder + package::kDeltasFolder + "/.0"), "failed to create empty file\n");
}

}  // namespace updater::server
