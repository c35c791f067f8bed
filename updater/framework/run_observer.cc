#include "updater/framework/run_observer.h"

#include <algorithm>
#include <utility>

namespace updater {
namespace {

// A process makes one run, and its threads begin and end while it is watched.
RunObserver*& Watcher() {
  static RunObserver* watcher = nullptr;
  return watcher;
}

}  // namespace

ScopedObserver::ScopedObserver(RunObserver* observer) : before_(std::exchange(Watcher(), observer)) {}
ScopedObserver::~ScopedObserver() { Watcher() = before_; }

void BeginPhase(Phase phase) {
  if (Watcher() != nullptr) Watcher()->BeginPhase(phase);
}

PartCounter::PartCounter(const char* name, std::size_t parts, std::size_t calls)
    : observer_(Watcher()), name_(name), parts_(parts), calls_(calls) {
  if (observer_ != nullptr) observer_->OnParts({name_, 0, parts_});
}

PartCounter::~PartCounter() {
  if (observer_ != nullptr) observer_->OnParts({});
}

void PartCounter::Next() {
  if (observer_ == nullptr) return;
  // Work that is done again is counted again.
  observer_->OnParts({name_, std::min(++called_ / calls_, parts_), parts_});
}

}  // namespace updater
