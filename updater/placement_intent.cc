#include "updater/placement_intent.h"

#include <algorithm>
#include <charconv>

#include "base/escape.h"
#include "base/fnv.h"
#include "base/text.h"

namespace updater {
namespace {

constexpr std::string_view kHead = "updater-svr placement 1";
constexpr std::string_view kChecksumKey = "checksum ";
constexpr std::string_view kViewPrefix = "view/";
constexpr std::string_view kGoesPrefix = "no/";  // of a part that goes

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
  item.goes = line.starts_with(kGoesPrefix);
  if (item.goes) line.remove_prefix(kGoesPrefix.size());
  const std::optional<std::string> part = base::Unescape(base::TakeUntil(line, " "));
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

bool IntentItem::is_folder() const { return part == kViewsPart || part == kFilesPart || (goes && is_view()); }

std::string ViewPart(const std::string& view) { return std::string(kViewPrefix) + view; }

std::string FormatIntent(const Intent& intent) {
  std::string text = std::string(kHead) + "\n";
  for (const IntentItem& item : intent) {
    text += item.goes ? kGoesPrefix : "";
    text +=
        base::Escape(item.part) + " " + FormatIdentity(item.copy) + " " + FormatIdentity(item.live) + "\n";
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
