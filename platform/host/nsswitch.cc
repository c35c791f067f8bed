#include "platform/host/nsswitch.h"

#include "base/read_text_file.h"
#include "base/text.h"

namespace platform::host {

bool ReadSources(const std::string& nsswitch, const std::string& database, std::vector<SourceLine>& lines) {
  std::string text;
  if (!base::ReadTextFile(nsswitch, text).ok()) return false;
  for (std::string_view rest = text; !rest.empty();) {
    std::string_view line = base::TakeUntil(rest, "\n");
    line = base::Trim(line.substr(0, line.find('#')));
    // The C library takes a blank for the colon.
    if (base::TakeUntil(line, std::string(base::kBlanks) + ':') != database) continue;
    SourceLine& words = lines.emplace_back();
    while (!line.empty()) {
      const std::string_view word = base::TakeUntil(line, base::kBlanks);
      if (!word.empty()) words.emplace_back(word);
    }
  }
  return true;
}

}  // namespace platform::host
