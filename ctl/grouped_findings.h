// Findings about databases of which there may be thousands.
#pragma once

#include <algorithm>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "ctl/finding.h"
#include "ctl/volume_survey.h"

namespace ctl {

// Those that are the same for many databases become one, which names the first few of these.
class Grouped {
 public:
  void Add(Severity severity, const std::string& code, const std::string& text, const std::string& advice,
           const DatabaseSurvey& database) {
    Group& group = groups_[{severity, code, text, advice}];
    if (group.shown.size() < kShown) group.shown.push_back(Label(database));
    ++group.all;
  }

  [[nodiscard]] Findings Get() const {
    Findings findings;
    for (const auto& [finding, group] : groups_) {
      const auto& [severity, code, text, advice] = finding;
      std::string subject;
      for (const std::string& name : group.shown) subject += (subject.empty() ? "" : ", ") + name;
      if (group.all > group.shown.size()) {
        subject += " and " + std::to_string(group.all - group.shown.size()) + " more";
      }
      findings.push_back({severity, code, subject, text, advice});
    }
    return findings;
  }

 private:
  static constexpr std::size_t kShown = 5;
  struct Group {
    std::vector<std::string> shown;
    std::size_t all = 0;
  };
  std::map<std::tuple<Severity, std::string, std::string, std::string>, Group> groups_;
};

}  // namespace ctl
