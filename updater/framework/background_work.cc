#include "updater/framework/background_work.h"

#include <sqlite3.h>

#include <algorithm>
#include <thread>

#include "logger/log_sink.h"

namespace updater {
namespace {

// Each may sort for an index at the same time, in memory.
constexpr unsigned kMostThreads = 4;

}  // namespace

Outcome HoldBack(const std::function<bool()>& work) {
  logger::RecordingSink held;
  const logger::ScopedSink scope(held);
  const bool went_well = work();
  return {.went_well = went_well, .lines = held.lines()};
}

bool Tell(const Outcome& outcome) {
  for (const auto& [priority, text] : outcome.lines) logger::WriteToSink(priority, text);
  return outcome.went_well;
}

void BackgroundWork::Start(const std::function<bool()>& work) {
  // With both policies the library takes the second one where it cannot make a thread.
  const auto policy =
      std::launch::deferred | (sqlite3_threadsafe() != 0 ? std::launch::async : std::launch{});
  outcome_ = std::async(policy, HoldBack, work);
}

bool BackgroundWork::Finish() { return !outcome_.valid() || Tell(outcome_.get()); }

std::size_t ThreadCount() { return std::clamp(std::thread::hardware_concurrency(), 1U, kMostThreads); }

bool ForEachInBackground(std::size_t count, const std::function<bool(std::size_t)>& work) {
  std::vector<BackgroundWork> threads(count);
  for (std::size_t i = 0; i < count; ++i) threads[i].Start([&work, i] { return work(i); });
  return std::all_of(threads.begin(), threads.end(), [](BackgroundWork& thread) { return thread.Finish(); });
}

}  // namespace updater
