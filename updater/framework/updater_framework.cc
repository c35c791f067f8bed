#include "updater/framework/updater_framework.h"

#include <ostream>

#include "updater/framework/stored_version.h"
#include "updater/framework/update_graph.h"

namespace updater {

UpdaterFramework::UpdaterFramework(std::ostream& out, RunObserver* observer)
    : out_(out), observer_(observer) {}

void UpdaterFramework::AddUpdater(std::unique_ptr<AbstractUpdater> updater) {
  updaters_.push_back(std::move(updater));
}

int UpdaterFramework::GetCurrentVersion(const std::string& database_path, Version& out) {
  return ReadStoredVersion(database_path, out);
}

int UpdaterFramework::Run(const Version& current, const Version& target) {
  if (current == target) return 0;
  UpdateGraph graph;
  graph.Build(updaters_);
  std::vector<AbstractUpdater*> path;
  if (graph.ShortestPath(current, target, path) < 0) {
    last_error_ = "GraphError: " + graph.GetLastError();
    return -1;
  }
  StepNumber step = {0, path.size()};
  for (AbstractUpdater* updater : path) {
    ++step.number;
    if (updater == nullptr) return -1;
    updater->SetChain(current, target);
    if (RunOne(*updater, step) < 0) {
      last_error_ = "Error when updating from " + ToString(updater->GetFromVersion()) + " to " +
                    ToString(updater->GetToVersion()) + ": " + updater->GetLastError();
      return -2;
    }
  }
  return 0;
}

int UpdaterFramework::RunOne(AbstractUpdater& updater, StepNumber step) {
  out_ << "updating from " << updater.GetFromVersion() << " to " << updater.GetToVersion() << std::endl;
  if (observer_ != nullptr) observer_->BeforeUpdate(updater, step);
  const int result = updater.Update();
  if (observer_ != nullptr) observer_->AfterUpdate(updater, result);
  return result;
}

}  // namespace updater
