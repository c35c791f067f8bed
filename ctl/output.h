// How commands write what they have found: as text for people, or as JSON for programs.
#pragma once

#include <initializer_list>
#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "logger/recording_sink.h"

namespace ctl {

using Json = nlohmann::ordered_json;

// Longer lines of text are wrapped.
inline constexpr std::size_t kLineWidth = 80;

// The text for a terminal: what is no printable UTF-8 is shown as \xHH, so that a name in a database can
// neither move the cursor nor break a line.
[[nodiscard]] std::string Printable(std::string_view text);

// The first fields of every document: its schema ("updater-ctl.status"), the version of that schema, which
// grows when a field changes its meaning or goes, and the program's version.
[[nodiscard]] Json NewDocument(const std::string& command);

// In ASCII, so that no name can steer a terminal; bytes that are no UTF-8 are replaced.
void PrintJson(const Json& document, std::ostream& out);

// A message of the system log as part of a sentence.
[[nodiscard]] std::string WithoutLineEnd(const std::string& message);

// All of its messages in one sentence.
[[nodiscard]] std::string TextOf(const logger::RecordingSink& sink);

// One text of several.
[[nodiscard]] std::string Join(std::initializer_list<std::string_view> parts);

// "1 view", "2 views".
[[nodiscard]] std::string Count(std::size_t number, const std::string& thing);

// "812 B", "36.0 KiB", "1.2 GiB".
[[nodiscard]] std::string Bytes(long long bytes);

}  // namespace ctl
