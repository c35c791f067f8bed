// What the lines of a run's log mean: symptom, probable cause, and what to do. docs/operations.md shows the
// same rows to people.
#pragma once

#include <span>
#include <string_view>

namespace ctl {

// How much a line tells of what went wrong.
enum class Weight {
  kNews,     // nothing went wrong
  kWarning,  // runs that end well write it too, but somebody should know
  kLoss,     // and so do these, which tell that something was removed
  kStep,     // only which step failed; another line tells why
  kSymptom,  // what failed, from which the cause can be guessed
  kCause,    // the cause
};

// What becomes of the run that writes the line.
enum class Ending {
  kOpen,          // that is for other lines to tell
  kChecked,       // the databases are in place, and the check goes on
  kNoStart,       // it ends before it has looked at the volume
  kNewer,         // "dbnewer"
  kFailure,       // "upgradefail" before the copies were put in place, or in their midst
  kCheckFailure,  // "upgradefail" behind that
};

enum class Writer { kUpdater, kSystem };

struct FailureCause {
  std::string_view code;     // a name that stays: "not-mounted"
  std::string_view pattern;  // parts of the message, with "*" for what differs
  Weight weight;
  Ending ending;
  std::string_view cause;   // in one sentence
  std::string_view advice;  // empty where nothing is to be done
  Writer writer = Writer::kUpdater;
};

// In the order in which they are tried.
[[nodiscard]] std::span<const FailureCause> AllFailureCauses();

// The first row whose pattern stands somewhere in the message; null for a message that is not known.
[[nodiscard]] const FailureCause* FindFailureCause(std::string_view message, Writer writer);

}  // namespace ctl
