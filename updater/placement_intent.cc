#include "updater/placement_intent.h"

#include <algorithm>
#include <charconv>

#include "base/fnv.h"
#include "base/text.h"

namespace updater {
namespace {

constexpr std::string_view kHead = "updater-svr placement 1";
constexpr std::string_view kChecksumKey = "checksum ";
constexpr std::string_view kViewPrefix = "view/";

constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_./";
constexpr std::string_view kHexDigits = "0123456789abcdef";

// A view's folder may have any name: what could be taken for something else is written as "%" and two digits.
std::string Escape(std::string_view text) {
  std::string escaped;
  for (const char character : text) {
    if (kPlain.find(character) != std::string_view::npos) {
      escaped += character;
      continue;
    }
    const auto byte = static_cast<unsigned char>(character);
    escaped.append({'%', kHexDigits[byte >> 4U], kHexDigits[byte & 15U]});
  }
  return escaped;
}

std::optional<std::string> Unescape(std::string_view text) {
  std::string plain;
  while (!text.empty()) {
    const bool is_escape = text.front() == '%';
    unsigned byte = static_cast<unsigned char>(text.front());
    if (is_escape) {
      if (text.size() < 3) return std::nullopt;
      const auto [end, error] = std::from_chars(text.data() + 1, text.data() + 3, byte, 16);
      if (error != std::errc{} || end != text.data() + 3) return std::nullopt;
    }
    plain += static_cast<char>(byte);
    text.remove_prefix(is_escape ? 3 : 1);
  }
  return plain;
}

bool IsPart(std::string_view part) {
  if (part == kViewsPart || part == kFilesPart) return true;
  if (std::find(kDatabaseParts.begin(), kDatabaseParts.end(), part) != kDatabaseParts.end()) return true;
  if (!part.starts_with(kViewPrefix)) return false;
  const std::string_view name = part.substr(kViewPrefix.size());
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos &&
         name.find('\0') == std::string_view::npos;
}

std::string FormatIdentity(const FileIdentity& identity) {
  return std::to_string(identity.inode) + ":" + std::to_string(identity.size) + ":" +
         std::to_string(identity.modified_ns);
}

template <typename Number>
bool ParseNumber(std::string_view text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc{} && end == text.data() + text.size();
}

bool ParseIdentity(std::string_view text, FileIdentity& identity) {
  return ParseNumber(base::TakeUntil(text, ":"), identity.inode) &&
         ParseNumber(base::TakeUntil(text, ":"), identity.size) && ParseNumber(text, identity.modified_ns);
}

std::optional<IntentItem> ParseItem(std::string_view line) {
  IntentItem item;
  const std::optional<std::string> part = Unescape(base::TakeUntil(line, " "));
  if (!part || !IsPart(*part) || !ParseIdentity(base::TakeUntil(line, " "), item.copy) ||
      !ParseIdentity(line, item.live)) {
    return std::nullopt;
  }
  item.part = *part;
  return item;
}

std::optional<Intent> ParseBody(std::string_view text) {
  if (base::TakeUntil(text, "\n") != kHead) return std::nullopt;
  Intent intent;
  while (!text.empty()) {
    std::optional<IntentItem> item = ParseItem(base::TakeUntil(text, "\n"));
    if (!item) return std::nullopt;
    intent.push_back(*std::move(item));
  }
  return intent;
}

// It finds what a disk damages. Nobody is kept from writing another intent by it.
std::string Checksum(std::string_view text) { return std::to_string(base::Fnv1a(text)); }

}  // namespace

bool IntentItem::is_view() const { return part.starts_with(kViewPrefix); }

std::string ViewPart(const std::string& view) { return std::string(kViewPrefix) + view; }

std::string FormatIntent(const Intent& intent) {
  std::string text = std::string(kHead) + "\n";
  for (const IntentItem& item : intent) {
    text += Escape(item.part) + " " + FormatIdentity(item.copy) + " " + FormatIdentity(item.live) + "\n";
  }
  return text + std::string(kChecksumKey) + Checksum(text) + "\n";
}

std::optional<Intent> ParseIntent(std::string_view text) {
  std::optional<Intent> last;
  for (;;) {
    const std::string_view body = text.substr(0, text.find("\n" + std::string(kChecksumKey)) + 1);
    const std::string end = std::string(kChecksumKey) + Checksum(body) + "\n";
    std::optional<Intent> intent = ParseBody(body);
    if (!intent || !text.substr(body.size()).starts_with(end)) return last;
    last = std::move(intent);
    text.remove_prefix(body.size() + end.size());
  }
}

}  // namespace updater
