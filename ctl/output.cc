#include "ctl/output.h"

#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <ostream>

#include "ctl/program_version.h"

namespace ctl {
namespace {

constexpr int kSchemaVersion = 1;

// How many bytes at the front of the text are one printable character; 0 for none.
std::size_t PrintableLength(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  if (byte(0) < 0x80) return byte(0) >= 0x20 && byte(0) != 0x7F ? 1 : 0;
  const std::size_t length = byte(0) >= 0xF0 ? 4 : byte(0) >= 0xE0 ? 3 : 2;
  if (byte(0) < 0xC2 || byte(0) > 0xF4 || text.size() < length) return 0;
  unsigned code = byte(0) & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0U) != 0x80) return 0;
    code = code << 6U | (byte(i) & 0x3FU);
  }
  const bool is_shortest = code >= (length == 4 ? 0x10000U : length == 3 ? 0x800U : 0x80U);
  const bool is_control = code < 0xA0 || (code >= 0x200B && code <= 0x200F) ||  // the latter: directions
                          (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
  const bool is_character = code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
  return is_shortest && is_character && !is_control ? length : 0;
}

}  // namespace

std::string Printable(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string shown;
  while (!text.empty()) {
    const std::size_t length = PrintableLength(text);
    const auto byte = static_cast<unsigned char>(text.front());
    if (length > 0) shown += text.substr(0, length);
    if (length == 0) shown.append({'\\', 'x', kDigits[byte >> 4U], kDigits[byte & 15U]});
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return shown;
}

Json NewDocument(const std::string& command) {
  return {{"schema", "updater-ctl." + command},
          {"schema_version", kSchemaVersion},
          {"program_version", ProgramVersion()}};
}

void PrintJson(const Json& document, std::ostream& out) {
  out << document.dump(2, ' ', true, Json::error_handler_t::replace) << "\n";
}

std::string WithoutLineEnd(const std::string& message) {
  return message.substr(0, message.find_last_not_of('\n') + 1);
}

std::string TextOf(const logger::RecordingSink& sink) {
  std::string text;
  for (const logger::RecordingSink::Line& line : sink.lines()) {
    text += (text.empty() ? "" : "; ") + WithoutLineEnd(line.text);
  }
  return text;
}

std::string Join(std::initializer_list<std::string_view> parts) {
  std::string text;
  for (const std::string_view part : parts) text += part;
  return text;
}

std::string Count(std::size_t number, const std::string& thing) {
  return std::to_string(number) + " " + thing + (number == 1 ? "" : "s");
}

std::string Bytes(long long bytes) {
  constexpr double kStep = 1024;
  constexpr std::array kUnits = {"KiB", "MiB", "GiB", "TiB"};
  if (bytes < 1024) return std::to_string(bytes) + " B";
  double size = static_cast<double>(bytes) / kStep;
  std::size_t unit = 0;
  for (; size >= kStep && unit + 1 < kUnits.size(); ++unit) size /= kStep;
  std::array<char, 32> text{};
  (void)std::snprintf(text.data(), text.size(), "%.1f %s", size, kUnits[unit]);  // is long enough
  return text.data();
}

}  // namespace ctl
