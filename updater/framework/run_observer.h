// Telling whoever watches a run how far it is. Nothing here changes what a run does, and nobody need watch.
#pragma once

#include <atomic>
#include <cstddef>

#include "base/interface.h"
#include "updater/framework/abstract_updater.h"

namespace updater {

// What a run does one after the other, once its databases are found to be upgradable.
enum class Phase { kCopies, kUpdaters, kPlacing, kChecking };

// Which updater of a chain is at work; the first one is 1.
struct StepNumber {
  std::size_t number;
  std::size_t of;
};

// How far the run is with its views or databases. None of none: it works on all of them at once.
struct Parts {
  const char* name = "";  // of one: "view"
  std::size_t done = 0;
  std::size_t of = 0;
};

// Borrowed by the run. Nothing that it does may fail.
class RunObserver : public base::Interface {
 public:
  virtual void BeginPhase(Phase phase) = 0;
  virtual void BeforeUpdate(const AbstractUpdater& updater, StepNumber step) = 0;
  virtual void AfterUpdate(const AbstractUpdater& updater, int result) = 0;
  // Called by any thread, also by several at a time, and often: it has to be quick.
  virtual void OnParts(const Parts& parts) = 0;
};

// Lets the observer, which may be null, watch what this process does for its own lifetime.
class ScopedObserver {
 public:
  explicit ScopedObserver(RunObserver* observer);
  ~ScopedObserver();
  ScopedObserver(const ScopedObserver&) = delete;
  ScopedObserver& operator=(const ScopedObserver&) = delete;

 private:
  RunObserver* before_;
};

// Tells the observer, if somebody watches.
void BeginPhase(Phase phase);

// Counts the views or databases of one loop for whoever watches.
class PartCounter {
 public:
  // `name` is that of one part. Each of the `parts` is done when Next() was called `calls` times for it.
  PartCounter(const char* name, std::size_t parts, std::size_t calls = 1);
  // Ends the counting, also where not all was done.
  ~PartCounter();
  PartCounter(const PartCounter&) = delete;
  PartCounter& operator=(const PartCounter&) = delete;

  // Any thread may call it.
  void Next();

 private:
  RunObserver* observer_;
  const char* name_;
  std::size_t parts_;
  std::size_t calls_;
  std::atomic<std::size_t> called_ = 0;
};

}  // namespace updater
