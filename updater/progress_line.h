// How far a run is, for the person who waits for it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>

#include "updater/framework/run_observer.h"

namespace updater {

// On a terminal one line that is drawn anew, ten times a second at most, and cleared at the end:
//   [#######.............] step 4 of 8 (3300 to 3400), view 12 of 2000, 0:42
// Elsewhere a line every few seconds, without the bar.
//
// A thread of its own writes, so whoever tells of progress never waits for the terminal. A process in the
// background of a terminal draws nothing: it could be stopped for that.
class ProgressLine : public RunObserver {
 public:
  static constexpr int kNoTerminal = -1;

  // `out` is borrowed. `terminal` is the descriptor of the terminal behind it. `head` begins each line where
  // there is none.
  ProgressLine(std::ostream& out, int terminal, std::string head = {});
  ~ProgressLine() override;
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  void BeginPhase(Phase phase) override;
  void BeforeUpdate(const AbstractUpdater& updater, StepNumber step) override;
  void AfterUpdate(const AbstractUpdater& updater, int result) override;
  void OnParts(const Parts& parts) override;

  // What is done besides the phases of a run.
  void Show(std::string work);

  // Clears the line, and passes the text on to another stream, which may be on the same terminal.
  void WriteBeside(std::ostream& target, const std::string& text);

 private:
  [[nodiscard]] std::string Text(std::size_t room) const;
  void Tick();
  void Draw();
  void Clear();

  std::ostream& out_;
  const int terminal_;
  const std::string head_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();

  mutable std::mutex state_;  // for what follows; never held while something is written
  std::condition_variable wake_;
  bool ends_ = false;
  std::string work_;
  StepNumber step_ = {0, 0};
  Parts parts_;

  std::mutex drawing_;  // for what follows, and for writing
  std::size_t drawn_ = 0;

  std::thread thread_;
};

}  // namespace updater
