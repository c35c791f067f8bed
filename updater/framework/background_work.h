// Work of an updater beside the thread that it runs on, where there are several processors.
//
// Such work has connections of its own. What it logs is held back until somebody waits for it, so that lines
// stand in the log in the order of what they tell of, whichever thread was faster.
#pragma once

#include <functional>
#include <future>
#include <vector>

#include "logger/recording_sink.h"

namespace updater {

// What became of work, and what it had to tell.
struct Outcome {
  bool went_well = true;
  std::vector<logger::RecordingSink::Line> lines;
};

// Does the work here and now.
[[nodiscard]] Outcome HoldBack(const std::function<bool()>& work);

// Logs the lines, and returns whether the work went well.
[[nodiscard]] bool Tell(const Outcome& outcome);

// One piece of work at a time. The destructor waits for a thread that is at it, and then nobody is told.
class BackgroundWork {
 public:
  // To be called when the work before is finished. What the work uses outlives this object. Where there can
  // be no more threads, or SQLite is built for one, the work is done by Finish().
  void Start(const std::function<bool()>& work);

  // Waits for the work and logs its lines. Returns whether it went well; also true where none was started.
  [[nodiscard]] bool Finish();

 private:
  std::future<Outcome> outcome_;
};

// How many threads pay: one for each processor, but no more than a few.
[[nodiscard]] std::size_t ThreadCount();

// Does the work for every number from 0 to below `count`, each on a thread of its own, and tells of it in
// their order. Returns false after the first one that did not go well; the work for those behind it is done
// or never done by then, and nothing is told of it.
[[nodiscard]] bool ForEachInBackground(std::size_t count, const std::function<bool(std::size_t)>& work);

}  // namespace updater
