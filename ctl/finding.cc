#include "ctl/finding.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string_view>

namespace ctl {
namespace {

constexpr std::array kSeverities = {Severity::kProblem, Severity::kWarning, Severity::kNote};

struct Look {
  const char* name;
  const char* colour;
};

Look LookOf(Severity severity) {
  switch (severity) {
    case Severity::kProblem:
      return {"problem", "\033[1;31m"};
    case Severity::kWarning:
      return {"warning", "\033[33m"};
    case Severity::kNote:
      break;
  }
  return {"note", ""};
}
constexpr const char* kPlain = "\033[0m";

void PrintFinding(const Finding& finding, const Streams& streams) {
  const auto [name, colour] = LookOf(finding.severity);
  const std::string advice = "    -> ";
  const std::string subject = finding.subject.empty() ? "" : Printable(finding.subject) + ": ";
  const bool is_painted = streams.is_coloured && *colour != '\0';
  streams.out << "  " << (is_painted ? colour : "") << name << ":" << (is_painted ? kPlain : "") << " ";
  PrintWrapped(std::string_view(name).size() + 4, "    ", subject + Printable(finding.text), streams.out);
  if (finding.advice.empty()) return;
  streams.out << advice;
  PrintWrapped(advice.size(), std::string(advice.size(), ' '), Printable(finding.advice), streams.out);
}

}  // namespace

void PrintWrapped(std::size_t column, const std::string& indent, std::string_view text, std::ostream& out) {
  bool is_begin = true;
  while (!text.empty()) {
    const std::string_view word = text.substr(0, text.find(' '));
    text.remove_prefix(std::min(word.size() + 1, text.size()));
    if (!is_begin && column + 1 + word.size() > kLineWidth) {
      out << "\n" << indent;
      column = indent.size();
      is_begin = true;
    }
    out << (is_begin ? "" : " ") << word;
    column += word.size() + (is_begin ? 0 : 1);
    is_begin = false;
  }
  out << "\n";
}

void Append(Findings more, Findings& findings) {
  findings.insert(findings.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
}

bool HasProblem(const Findings& findings) {
  return std::any_of(findings.begin(), findings.end(),
                     [](const Finding& finding) { return finding.severity == Severity::kProblem; });
}

void PrintFindings(const Findings& findings, const Streams& streams) {
  constexpr int kMostOfACode = 10;
  std::map<std::string, int> count;
  for (const Severity severity : kSeverities) {
    for (const Finding& finding : findings) {
      if (finding.severity == severity && ++count[finding.code] <= kMostOfACode)
        PrintFinding(finding, streams);
    }
  }
  for (const auto& [code, number] : count) {
    if (number <= kMostOfACode) continue;
    streams.out << "  and " << number - kMostOfACode << " more of \"" << code << "\"; --json lists all\n";
  }
}

Json ToJson(const Findings& findings) {
  Json list = Json::array();
  for (const Finding& finding : findings) {
    list.push_back({{"severity", LookOf(finding.severity).name},
                    {"code", finding.code},
                    {"subject", finding.subject},
                    {"text", finding.text},
                    {"advice", finding.advice}});
  }
  return list;
}

}  // namespace ctl
