// The runs of updater-svr that a log tells of.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ctl/failure_causes.h"
#include "ctl/finding.h"
#include "ctl/log_line.h"

namespace ctl {

// A line as it is shown.
struct ShownLine {
  std::string time;
  std::string text;
};

// With its time in front, if it has one.
[[nodiscard]] std::string TextOf(const ShownLine& line);

// All lines of one cause, or all that are not known.
struct SeenCause {
  const FailureCause* row;  // null for lines that are not known
  ShownLine first;
  std::size_t count = 1;
};

struct LoggedStep {
  std::string from;  // "(master, 4000)"; empty where the log does not tell
  std::string to;
  std::string time;               // of its last line
  std::optional<double> seconds;  // from the step before it, or the begin
  enum class State { kBegun, kDone, kFailure } state = State::kBegun;
};

// How a run has ended, as far as its lines tell.
enum class Outcome { kDone, kUpgraded, kNotStarted, kNewer, kFailure, kCheckFailure, kStopped, kUntold };

struct LoggedRun {
  std::int64_t process = 0;
  std::string volume;
  std::string stored_status;  // as "updater-ctl run" prints it
  ShownLine first;
  std::string last_time;
  std::optional<double> begin;
  std::optional<double> end;
  std::optional<double> mark;  // where the step at work began
  std::size_t lines = 0;
  std::optional<unsigned long long> needed_bytes;
  std::optional<unsigned long long> free_bytes;
  std::vector<LoggedStep> steps;
  std::vector<SeenCause> seen;           // in the order of their first lines
  std::optional<ShownLine> first_error;  // what stands behind it mostly follows from it
  Ending ending = Ending::kOpen;
  bool has_begun = false;  // it has passed the point where it names the volume
  bool is_closed = false;  // no line of it can follow
};

// Puts the lines of a log together. What is kept of each run is bounded.
class LogRuns {
 public:
  // Keeps the last `most` runs.
  explicit LogRuns(std::size_t most) : most_(most) {}

  void Add(const LogLine& line);

  [[nodiscard]] const std::deque<LoggedRun>& runs() const { return runs_; }
  [[nodiscard]] std::size_t found() const { return found_; }  // with those that are not kept

 private:
  LoggedRun& RunOf(const LogLine& line, const FailureCause* row);
  LoggedRun& StartRun(const LogLine& line);
  void AddSystemLine(const LogLine& line);

  std::size_t most_;
  std::size_t found_ = 0;
  std::deque<LoggedRun> runs_;
  std::vector<LogLine> between_;  // of others, behind the last line of a run
};

[[nodiscard]] Outcome OutcomeOf(const LoggedRun& run);

// The line that tells best why the run did not end well; null where it did, or where no line tells.
[[nodiscard]] const SeenCause* ProbableCause(const LoggedRun& run);

// What else somebody should know, news left out. `cause` is told already.
[[nodiscard]] Findings FurtherFindings(const LoggedRun& run, const SeenCause* cause);

// The finding of one cause: the line, what it means, and what to do.
[[nodiscard]] Finding FindingOf(const SeenCause& seen, Severity severity);

}  // namespace ctl
