#include "ctl/log_runs.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "logger/log_sink.h"
#include "package/layout.h"

namespace ctl {
namespace {

using Source = LogLine::Source;
using State = LoggedStep::State;

constexpr std::size_t kLongestShownLine = 1000;
constexpr std::size_t kMostSteps = 100;
constexpr std::size_t kMostBetween = 20;
constexpr std::string_view kBegin = "database is located at '";
constexpr std::string_view kChainStart = "update from (";
constexpr std::string_view kSpace = "little-space";
constexpr std::string_view kStatus = "Status: ";

ShownLine Show(const LogLine& line) {
  return {line.time, logger::CutInTheMiddle(line.text, kLongestShownLine)};
}

// "(master, 4000)", from the first parenthesis on; takes it from the text. Empty where there is none.
std::string TakeVersion(std::string_view& text) {
  constexpr std::size_t kLongest = 100;
  const std::size_t begin = text.find('(');
  const std::size_t end = text.find(')', begin);
  if (begin == std::string_view::npos || end == std::string_view::npos || end - begin > kLongest) return {};
  std::string version(text.substr(begin, end - begin + 1));
  text.remove_prefix(end + 1);
  return version;
}

std::optional<unsigned long long> TakeBytes(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_of("0123456789"), text.size()));
  unsigned long long bytes = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), bytes);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return bytes;
}

std::string CurrentVersionText() {
  return std::string("(") + package::kCurrentBranch + ", " + std::to_string(package::kCurrentVersion) + ")";
}

LoggedStep* FindStep(LoggedRun& run, const std::string& to) {
  const auto step = std::find_if(run.steps.begin(), run.steps.end(),
                                 [&](const LoggedStep& other) { return other.to == to; });
  if (step != run.steps.end()) return &*step;
  if (to.empty() || run.steps.size() >= kMostSteps) return nullptr;
  const bool is_next = !run.steps.empty() && run.steps.back().state == State::kDone;
  run.steps.push_back({.from = is_next ? run.steps.back().to : "", .to = to, .time = {}, .seconds = {}});
  return &run.steps.back();
}

void NoteStep(LoggedRun& run, const LogLine& line, const std::string& from, const std::string& to,
              State state) {
  LoggedStep* const step = FindStep(run, to);
  if (step == nullptr) return;
  if (!from.empty()) step->from = from;
  if (state != State::kBegun && line.seconds && run.mark)
    step->seconds = SecondsBetween(*run.mark, *line.seconds);
  run.mark = line.seconds;
  if (!line.time.empty()) step->time = line.time;
  if (step->state == State::kBegun) step->state = state;
}

// "(, 2577)         -> (master, 3004)       12.3 ms  FAILED", a line of the chain that "updater-ctl run"
// shows.
void NoteShownStep(LoggedRun& run, std::string_view text) {
  const std::string from = TakeVersion(text);
  const std::string to = TakeVersion(text);
  const std::size_t number = text.find_first_not_of(' ');
  if (to.empty() || number == std::string_view::npos || text.find(" ms") == std::string_view::npos) return;
  double milliseconds = 0;
  const auto [end, error] = std::from_chars(text.data() + number, text.data() + text.size(), milliseconds);
  LoggedStep* const step = FindStep(run, to);
  if (error != std::errc() || step == nullptr) return;
  step->from = from;
  step->seconds = milliseconds / 1000;
  step->state = text.ends_with("FAILED") ? State::kFailure : State::kDone;
}

// What the line tells of the run besides its cause.
void NoteProgress(LoggedRun& run, const LogLine& line) {
  constexpr std::string_view kError = "Error when updating from ";
  std::string_view text = line.text;
  if (const std::size_t error = text.find(kError); error != std::string_view::npos) {
    text.remove_prefix(error);
    const std::string from = TakeVersion(text);
    NoteStep(run, line, from, TakeVersion(text), State::kFailure);
  } else if (text.starts_with("updating from (")) {
    const std::string from = TakeVersion(text);
    NoteStep(run, line, from, TakeVersion(text), State::kBegun);
  } else if (text.find("Upgrade to ") != std::string_view::npos &&
             text.find(" successfully") != std::string_view::npos) {
    text.remove_prefix(text.find("Upgrade to "));
    NoteStep(run, line, "", TakeVersion(text), State::kDone);
  } else if (text.starts_with("(") && text.find(" -> (") != std::string_view::npos) {
    NoteShownStep(run, text);
  } else if (text.starts_with(kBegin)) {
    run.has_begun = true;
    run.volume = text.substr(kBegin.size(), text.rfind('\'') - kBegin.size());
  } else if (text.starts_with("the upgrade needs about ")) {
    run.needed_bytes = TakeBytes(text);
    run.free_bytes = TakeBytes(text);
  } else if (line.source == Source::kBare && text.starts_with(kStatus)) {
    run.stored_status = text.substr(kStatus.size());
    run.is_closed = true;
  }
}

// Lines of the program that are not known: news if they say so, else an error.
Weight WeightOf(const FailureCause* row, std::string_view text) {
  if (row != nullptr) return row->weight;
  if (text.starts_with("[INFO]") || text.starts_with("[DEBUG]")) return Weight::kNews;
  return text.starts_with("[WARNING]") ? Weight::kWarning : Weight::kStep;
}

// Between other lines, does this one look like the program's?
bool HasOwnHead(std::string_view text) {
  constexpr std::array<std::string_view, 8> kHeads = {
      "Strato Folder Updater(", "[ERROR] ",        "[WARNING] ",  "UpdaterFramework: ",
      "update from (",          "updating from (", "Upgrade to ", "updater-svr:"};
  return std::any_of(kHeads.begin(), kHeads.end(),
                     [&](std::string_view head) { return text.starts_with(head); });
}

bool IsProgress(const LogLine& line) {
  return line.source == Source::kBare && (line.text.starts_with(kStatus) || line.text.starts_with("("));
}

void NoteCause(LoggedRun& run, const LogLine& line, const FailureCause* row) {
  const Weight weight = WeightOf(row, line.text);
  if (weight >= Weight::kStep && !run.first_error) run.first_error = Show(line);
  // What ends the run is told by the line that tells most: after a refused start nothing else is logged.
  if (row != nullptr && row->ending != Ending::kOpen) run.ending = std::max(run.ending, row->ending);
  if (row == nullptr && weight == Weight::kNews) return;
  const auto same = std::find_if(run.seen.begin(), run.seen.end(), [&](const SeenCause& seen) {
    return row == nullptr || seen.row == nullptr
               ? seen.row == row
               : seen.row->code == row->code && seen.row->weight == row->weight;
  });
  if (same != run.seen.end()) {
    ++same->count;
  } else {
    run.seen.push_back({row, Show(line)});
  }
}

// News of the program that are not known are not kept.
Weight WeightOf(const SeenCause& seen) { return WeightOf(seen.row, seen.first.text); }

const SeenCause* FindSeen(const LoggedRun& run, std::string_view code) {
  const auto found = std::find_if(run.seen.begin(), run.seen.end(), [&](const SeenCause& seen) {
    return seen.row != nullptr && seen.row->code == code;
  });
  return found == run.seen.end() ? nullptr : &*found;
}

bool IsShortOfSpace(const LoggedRun& run) {
  return run.needed_bytes && run.free_bytes && *run.needed_bytes > *run.free_bytes;
}

bool IsRefusal(const FailureCause* row) { return row != nullptr && row->ending == Ending::kNoStart; }

// What the program writes before it names the volume.
bool IsPrelude(const FailureCause* row) {
  return IsRefusal(row) ||
         (row != nullptr && (row->code == "no-status-file" || row->code == "unreadable-status"));
}

bool Begins(const LoggedRun& run, const LogLine& line, const FailureCause* row) {
  if (line.text.starts_with(kBegin)) return run.has_begun;
  if (line.text.starts_with(kChainStart)) return !run.steps.empty();
  return IsPrelude(row) && run.has_begun;
}

}  // namespace

std::string TextOf(const ShownLine& line) {
  return line.time.empty() ? line.text : line.time + " " + line.text;
}

LoggedRun& LogRuns::StartRun(const LogLine& line) {
  runs_.emplace_back();
  runs_.back().process = line.process;
  runs_.back().first = Show(line);
  runs_.back().begin = runs_.back().mark = line.seconds;
  ++found_;
  if (runs_.size() > most_) runs_.pop_front();
  return runs_.back();
}

// Two runs at once are told apart by their process; without it, a start that was refused closes its run, and
// the one before goes on.
LoggedRun& LogRuns::RunOf(const LogLine& line, const FailureCause* row) {
  LoggedRun* last = nullptr;
  for (LoggedRun& run : runs_) {
    const bool is_same = run.process == line.process;
    if (is_same && (last == nullptr || last->is_closed || !run.is_closed)) last = &run;
  }
  const bool is_new = last == nullptr || Begins(*last, line, row) ||
                      (last->is_closed && (line.text.starts_with(kBegin) ||
                                           line.text.starts_with(kChainStart) || IsPrelude(row)));
  return is_new ? StartRun(line) : *last;
}

void LogRuns::AddSystemLine(const LogLine& line) {
  const FailureCause* const row = FindFailureCause(line.text, Writer::kSystem);
  if (row == nullptr || runs_.empty()) return;
  // One about the program itself may be the last of a run. Any other is of interest only within one.
  if (row->weight == Weight::kCause) {
    NoteCause(runs_.back(), line, row);
  } else if (between_.size() < kMostBetween) {
    between_.push_back(line);
  }
}

void LogRuns::Add(const LogLine& line) {
  if (line.source == Source::kOther) return AddSystemLine(line);
  const FailureCause* const row = FindFailureCause(line.text, Writer::kUpdater);
  const bool is_own = line.source == Source::kUpdater || row != nullptr || HasOwnHead(line.text);
  if (!is_own && (!IsProgress(line) || runs_.empty())) return;
  const std::size_t before = found_;
  LoggedRun& run = RunOf(line, row);
  if (before == found_) {
    for (const LogLine& other : between_)
      NoteCause(run, other, FindFailureCause(other.text, Writer::kSystem));
  }
  between_.clear();
  NoteProgress(run, line);
  const bool is_told = line.text.starts_with(kChainStart) || line.text.starts_with("updating from (");
  if (is_own && !is_told) NoteCause(run, line, row);
  run.is_closed |= IsRefusal(row);
  run.end = line.seconds;
  run.last_time = line.time;
  ++run.lines;
}

Outcome OutcomeOf(const LoggedRun& run) {
  switch (run.ending) {
    case Ending::kNoStart:
      return Outcome::kNotStarted;
    case Ending::kNewer:
      return Outcome::kNewer;
    case Ending::kFailure:
      return Outcome::kFailure;
    case Ending::kCheckFailure:
      return Outcome::kCheckFailure;
    case Ending::kOpen:
    case Ending::kChecked:
      break;
  }
  if (run.stored_status == "done") return Outcome::kDone;
  if (!run.stored_status.empty()) return Outcome::kFailure;
  const bool was_killed = std::any_of(run.seen.begin(), run.seen.end(), [](const SeenCause& seen) {
    return seen.row != nullptr && seen.row->writer == Writer::kSystem && seen.row->weight == Weight::kCause;
  });
  if (was_killed) return Outcome::kStopped;
  if (run.ending == Ending::kChecked) return Outcome::kUpgraded;
  if (run.steps.empty()) return Outcome::kUntold;
  const LoggedStep& last = run.steps.back();
  return last.to == CurrentVersionText() && last.state == State::kDone ? Outcome::kUpgraded
                                                                       : Outcome::kStopped;
}

const SeenCause* ProbableCause(const LoggedRun& run) {
  const Outcome outcome = OutcomeOf(run);
  if (outcome == Outcome::kDone || outcome == Outcome::kUpgraded) return nullptr;
  const SeenCause* best = nullptr;
  for (const SeenCause& seen : run.seen) {
    if (WeightOf(seen) >= Weight::kStep && (best == nullptr || WeightOf(seen) > WeightOf(*best)))
      best = &seen;
  }
  // Not every write that fails says why.
  const bool is_guess = best != nullptr && WeightOf(*best) < Weight::kCause;
  return is_guess && IsShortOfSpace(run) ? FindSeen(run, kSpace) : best;
}

Finding FindingOf(const SeenCause& seen, Severity severity) {
  const std::string times = seen.count > 1 ? " (" + std::to_string(seen.count) + " such lines)" : "";
  if (seen.row == nullptr) {
    return {severity, "unknown-line", TextOf(seen.first),
            "This line is not known; what stands behind its last colon is mostly the reason" + times + ".",
            "Look at the lines around it, and with updater-ctl check and status at the volume."};
  }
  return {severity, std::string(seen.row->code), TextOf(seen.first), std::string(seen.row->cause) + times,
          std::string(seen.row->advice)};
}

Findings FurtherFindings(const LoggedRun& run, const SeenCause* cause) {
  Findings findings;
  for (const SeenCause& seen : run.seen) {
    const bool is_known = seen.row != nullptr;
    // What only guesses, or tells of a step, follows from the cause.
    const bool is_consequence =
        cause != nullptr && WeightOf(seen) >= Weight::kStep && WeightOf(seen) < Weight::kCause;
    const bool is_finished = is_known && seen.row->code == "finished";
    const bool is_short = is_known && seen.row->code == kSpace && IsShortOfSpace(run);
    const bool is_news = WeightOf(seen) == Weight::kNews && !is_finished && !is_short;
    if (&seen == cause || is_consequence || is_news) continue;
    const bool is_loss = WeightOf(seen) == Weight::kLoss;
    findings.push_back(FindingOf(seen, is_finished ? Severity::kNote
                                       : is_loss   ? Severity::kProblem
                                                   : Severity::kWarning));
  }
  return findings;
}

}  // namespace ctl
