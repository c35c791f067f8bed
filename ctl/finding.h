// What a command has found that a person should know of.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "ctl/output.h"
#include "ctl/streams.h"

namespace ctl {

enum class Severity {
  kNote,     // good to know
  kWarning,  // may be what nobody wants
  kProblem,  // something is wrong, or an upgrade would fail or lose something
};

struct Finding {
  Severity severity;
  std::string code;     // a name that stays: "unreadable-database"
  std::string subject;  // mostly a path; may be empty
  std::string text;     // what is found, in one sentence
  std::string advice;   // what to do about it; may be empty
};
using Findings = std::vector<Finding>;

void Append(Findings more, Findings& findings);

[[nodiscard]] bool HasProblem(const Findings& findings);

// The worst first, each with what to do about it, in lines of at most 80 columns where names allow it.
void PrintFindings(const Findings& findings, const Streams& streams);

// Breaks the text between words into lines of at most 80 columns where they allow it. `column` is where the
// first line stands already; the others begin with the indent.
void PrintWrapped(std::size_t column, const std::string& indent, std::string_view text, std::ostream& out);

[[nodiscard]] Json ToJson(const Findings& findings);

}  // namespace ctl
