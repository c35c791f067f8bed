#include "updater/framework/suspended_logs.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "db-util/log_mode.h"
#include "file-op/file_op.h"
#include "logger/log_sink.h"

namespace updater {
namespace {

using package::PackagePaths;

bool Resume(const std::string& database) {
  base::Errno error = db_util::ResumeLog(database);
  if (error.number() == ENOENT) error = {};
  return logger::CheckOrLog(error, "cannot write %s: %s (%d)\n", database, error.Text(), error.number());
}

bool ResumeIn(const PackagePaths& paths, const std::string& folder,
              std::string (PackagePaths::*database)(const std::string&) const) {
  std::vector<std::string> names;
  const int listed = file_op::ListFolders(folder, names);
  if (listed < 0 && errno == ENOENT) return true;
  return logger::CheckErrno(listed, "cannot list %s: %s (%d)\n", folder) &&
         std::all_of(names.begin(), names.end(),
                     [&](const std::string& name) { return Resume((paths.*database)(name)); });
}

}  // namespace

bool ResumeLogs(const PackagePaths& paths) {
  return Resume(paths.data) && Resume(paths.user) && Resume(paths.log) && Resume(paths.client) &&
         ResumeIn(paths, paths.view_folder, &PackagePaths::ViewDatabase) &&
         ResumeIn(paths, paths.file_folder, &PackagePaths::FileDatabase);
}

}  // namespace updater
