#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>

#include "base/errno.h"
#include "ctl/commands.h"
#include "ctl/finding.h"
#include "ctl/log_runs.h"
#include "ctl/look_arguments.h"
#include "logger/log_sink.h"

namespace ctl {
namespace {

constexpr std::size_t kMostRuns = 100;

struct ReportArguments {
  std::string file = "-";
  bool is_all = false;
  bool is_json = false;
};

struct OutcomeWords {
  const char* name;    // as in JSON
  const char* status;  // the word that the run leaves, as far as its lines tell
  const char* text;
};

OutcomeWords WordsOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::kDone:
      return {"done", "done", "The upgrade has succeeded."};
    case Outcome::kUpgraded:
      return {
          "upgraded", "",
          "Every updater that was needed has succeeded. What follows, putting in place and the check, logs only its "
          "failures: the status must be \"done\" by now."};
    case Outcome::kNotStarted:
      return {"not-started", "upgradefail", "The run did not begin. The databases are as they were."};
    case Outcome::kNewer:
      return {"newer", "dbnewer", "Nothing was upgraded. The databases are as they were."};
    case Outcome::kFailure:
      return {"failed", "upgradefail",
              "The upgrade failed. The live databases are as they were, unless a line tells of moves."};
    case Outcome::kCheckFailure:
      return {"check-failed", "upgradefail",
              "The databases are upgraded and in place; the check behind that failed."};
    case Outcome::kStopped:
      return {"stopped", "", "The log ends in mid-run: it was killed, lost its power, or is still at work."};
    case Outcome::kUntold:
      break;
  }
  return {
      "untold", "",
      "The log does not tell the end: there was nothing to upgrade, or the run was stopped or is still at "
      "work."};
}

// A run whose end the log does not tell is a reason to look, too.
Findings FindingsOf(const LoggedRun& run) {
  const Outcome outcome = OutcomeOf(run);
  const SeenCause* const cause = ProbableCause(run);
  Findings findings;
  if (cause != nullptr) findings.push_back(FindingOf(*cause, Severity::kProblem));
  if (cause == nullptr && outcome != Outcome::kDone && outcome != Outcome::kUpgraded) {
    findings.push_back(
        {outcome == Outcome::kUntold || outcome == Outcome::kStopped ? Severity::kWarning
                                                                     : Severity::kProblem,
         "no-end-in-log", "", WordsOf(outcome).text,
         "See the status word and the versions: updater-ctl status VOLUME. If no updater-svr lives "
         "and the word is \"error\", set the status back and start again."});
  }
  for (Finding& further : FurtherFindings(run, cause)) findings.push_back(std::move(further));
  return findings;
}

bool IsToKnow(const Findings& findings) {
  return std::any_of(findings.begin(), findings.end(),
                     [](const Finding& finding) { return finding.severity != Severity::kNote; });
}

std::string Seconds(double seconds) {
  std::array<char, 32> text{};
  (void)std::snprintf(text.data(), text.size(), "%.1f s", seconds);  // a huge number is only cut
  return text.data();
}

void PrintStep(const LoggedStep& step, std::ostream& out) {
  const char* const from = step.from.empty() ? "..." : step.from.c_str();
  out << "  " << std::left << std::setw(16) << Printable(from) << " -> " << std::setw(16)
      << Printable(step.to) << std::right << std::setw(10) << (step.seconds ? Seconds(*step.seconds) : "");
  if (step.state == LoggedStep::State::kFailure) out << "  FAILED";
  if (step.state == LoggedStep::State::kBegun) out << "  its end is not in the log";
  if (!step.time.empty()) out << "  " << Printable(step.time);
  out << "\n";
}

void PrintHead(const LoggedRun& run, std::ostream& out) {
  const OutcomeWords outcome = WordsOf(OutcomeOf(run));
  out << "Volume    " << (run.volume.empty() ? "not told" : Printable(run.volume)) << "\n";
  if (!run.first.time.empty()) {
    out << "Time      " << Printable(run.first.time) << " to " << Printable(run.last_time);
    if (run.begin && run.end) out << " (" << Seconds(SecondsBetween(*run.begin, *run.end)) << ")";
    out << "\n";
  }
  if (run.process != 0) out << "Process   " << run.process << "\n";
  if (run.needed_bytes && run.free_bytes) {
    out << "Space     about " << Bytes(static_cast<long long>(*run.needed_bytes)) << " needed, "
        << Bytes(static_cast<long long>(*run.free_bytes)) << " free\n";
  }
  out << "Outcome   " << outcome.name;
  if (!run.stored_status.empty()) out << ", status \"" << Printable(run.stored_status) << "\"";
  if (run.stored_status.empty() && *outcome.status != '\0') out << ", status \"" << outcome.status << "\"";
  out << "\n          ";
  PrintWrapped(10, "          ", outcome.text, out);
}

// Statements are long, and the reason stands at the end.
std::string Shown(const std::string& line) {
  constexpr std::size_t kLongest = 320;
  return logger::CutInTheMiddle(line, kLongest);
}

void PrintRun(const LoggedRun& run, const Streams& streams) {
  PrintHead(run, streams.out);
  if (!run.steps.empty()) streams.out << "\nSteps\n";
  for (const LoggedStep& step : run.steps) PrintStep(step, streams.out);
  if (run.first_error) {
    streams.out << "\nFirst error\n  ";
    PrintWrapped(2, "    ", Printable(Shown(TextOf(*run.first_error))), streams.out);
  }
  Findings findings = FindingsOf(run);
  for (Finding& finding : findings) {  // for people, what a line means comes before the line
    const bool is_shown = run.first_error && finding.subject == TextOf(*run.first_error);
    if (!is_shown && !finding.subject.empty()) finding.text += " The line: " + Shown(finding.subject);
    finding.subject.clear();
  }
  streams.out << (findings.empty() ? "\nNothing else in the log is to be known.\n"
                                   : "\nWhat the lines mean\n");
  PrintFindings(findings, streams);
}

Json StepJson(const LoggedStep& step) {
  using State = LoggedStep::State;
  const char* const state = step.state == State::kDone      ? "done"
                            : step.state == State::kFailure ? "failed"
                                                            : "begun";
  Json json = {
      {"from", step.from}, {"to", step.to}, {"time", step.time}, {"state", state}, {"seconds", nullptr}};
  if (step.seconds) json["seconds"] = *step.seconds;
  return json;
}

Json RunJson(const LoggedRun& run) {
  const OutcomeWords outcome = WordsOf(OutcomeOf(run));
  const SeenCause* const cause = ProbableCause(run);
  Json json = {
      {"outcome", outcome.name}, {"status", run.stored_status.empty() ? outcome.status : run.stored_status},
      {"volume", run.volume},    {"process", run.process},
      {"begin", run.first.time}, {"end", run.last_time},
      {"seconds", nullptr},      {"needed_bytes", nullptr},
      {"free_bytes", nullptr},   {"lines", run.lines},
      {"steps", Json::array()},  {"first_error", nullptr},
      {"cause", nullptr},        {"findings", ToJson(FindingsOf(run))}};
  if (run.begin && run.end) json["seconds"] = SecondsBetween(*run.begin, *run.end);
  if (run.needed_bytes) json["needed_bytes"] = *run.needed_bytes;
  if (run.free_bytes) json["free_bytes"] = *run.free_bytes;
  for (const LoggedStep& step : run.steps) json["steps"].push_back(StepJson(step));
  if (run.first_error)
    json["first_error"] = {{"time", run.first_error->time}, {"text", run.first_error->text}};
  if (cause != nullptr) json["cause"] = FindingOf(*cause, Severity::kProblem).code;
  return json;
}

void PrintRuns(const LogRuns& runs, const ReportArguments& arguments, const Streams& streams) {
  const std::size_t first = arguments.is_all ? 0 : runs.runs().size() - 1;
  if (arguments.is_json) {
    Json document = NewDocument("report");
    document["runs_found"] = runs.found();
    document["runs"] = Json::array();
    for (std::size_t i = first; i < runs.runs().size(); ++i)
      document["runs"].push_back(RunJson(runs.runs()[i]));
    PrintJson(document, streams.out);
    return;
  }
  const std::size_t shown = runs.runs().size() - first;
  if (shown < runs.found()) {
    streams.out << "The last " << (shown == 1 ? "" : std::to_string(shown) + " ") << "of "
                << Count(runs.found(), "run") << (arguments.is_all ? "" : " (--all shows every one)")
                << "\n\n";
  }
  for (std::size_t i = first; i < runs.runs().size(); ++i) {
    if (i > first) streams.out << "\n----\n\n";
    PrintRun(runs.runs()[i], streams);
  }
}

// Returns 0, or -1 with the reason in `error`.
int ReadRuns(const std::string& name, LogRuns& runs, std::string& error) {
  std::ifstream file;
  errno = 0;
  if (name != "-") file.open(name, std::ios::binary);
  LogReader reader(name == "-" ? std::cin : file);
  bool is_read = name == "-" || file.is_open();
  for (LogLine line; is_read && reader.Next(line);) runs.Add(line);
  is_read = is_read && !reader.has_failed();
  if (!is_read)
    error = "cannot read " + (name == "-" ? "standard input" : name) + ": " + base::Errno::Last().Text();
  return is_read ? 0 : -1;
}

int Report(const ReportArguments& arguments, const Streams& streams) {
  // Two runs at once, or one and a start that was refused, need more than the last one.
  constexpr std::size_t kRunsAtOnce = 8;
  LogRuns runs(arguments.is_all ? kMostRuns : kRunsAtOnce);
  std::string error;
  if (ReadRuns(arguments.file, runs, error) < 0) return TellReason(streams, error, kRefused);
  if (runs.runs().empty()) {
    return TellReason(streams, "no line of a run of updater-svr is in this log", kRefused);
  }
  PrintRuns(runs, arguments, streams);
  const auto is_bad = [](const LoggedRun& run) { return IsToKnow(FindingsOf(run)); };
  const bool is_any_bad =
      std::any_of(arguments.is_all ? runs.runs().begin() : runs.runs().end() - 1, runs.runs().end(), is_bad);
  return is_any_bad ? kFailed : 0;
}

}  // namespace

Action DefineReport(Arguments& command, const Streams& streams) {
  const auto arguments = std::make_shared<ReportArguments>();
  command.AddPath("file", arguments->file, "The log; standard input where it is absent or -");
  command.AddFlag("--all", arguments->is_all, "Report every run in the log, not only the last one");
  command.AddJsonFlag(arguments->is_json);
  command.SetFooter(
      "Exit status: 0 no problem, 1 the run failed or there is something to know,\n"
      "2 no run was found.\n\n"
      "Examples:\n  updater-ctl report /var/log/syslog\n"
      "  journalctl -t updater-svr -t kernel -o json | updater-ctl report\n"
      "  zcat /var/log/messages.*.gz | updater-ctl report --all --json");
  return [arguments, streams] { return Report(*arguments, streams); };
}

}  // namespace ctl
