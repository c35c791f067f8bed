// A sink for tests that compare whole lines.
#pragma once

#include <algorithm>
#include <regex>
#include <string>
#include <vector>

#include "logger/recording_sink.h"

namespace tests {

class LineRecorder : public logger::RecordingSink {
 public:
  // The messages, with "N" in place of the source line in the three kinds of heads: an updater's, the
  // driver's and a component's. Other numbers belong to the message.
  [[nodiscard]] std::vector<std::string> Texts() const {
    static const std::regex head(R"(^(Strato Folder Updater\(|updater-svr:|\[[^(]*\()\d+)");
    std::vector<std::string> texts;
    for (const Line& line : lines()) texts.push_back(std::regex_replace(line.text, head, "$01N"));
    return texts;
  }
  // How many of them equal `text`.
  [[nodiscard]] int Count(const std::string& text) const {
    return static_cast<int>(std::ranges::count(Texts(), text));
  }
  void Clear() { lines_.clear(); }
};

}  // namespace tests
