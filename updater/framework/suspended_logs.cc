#include "updater/framework/suspended_logs.h"

#include <cerrno>
#include <string>

#include "db-util/log_mode.h"
#include "logger/log_sink.h"
#include "updater/framework/views.h"

namespace updater {
namespace {

bool Resume(const std::string& database) {
  base::Errno error = db_util::ResumeLog(database);
  if (error.number() == ENOENT) error = {};
  return logger::CheckOrLog(error, "cannot write %s: %s (%d)\n", database, error.Text(), error.number());
}

}  // namespace

bool ResumeLogs(const package::PackagePaths& paths) {
  return Resume(paths.data) && Resume(paths.user) && Resume(paths.log) && Resume(paths.client) &&
         ForEachFolderDatabase(paths, Resume);
}

}  // namespace updater
