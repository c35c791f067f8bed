#include "ctl/log_line.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "logger/log_sink.h"

namespace ctl {
namespace {

using Source = LogLine::Source;

constexpr std::string_view kProgram = "updater-svr";
constexpr std::size_t kBuffer = 64 << 10;
constexpr std::size_t kLongestLine = 1 << 20;
constexpr std::size_t kLongestMessage = 64 << 10;
constexpr double kDay = 24 * 60 * 60;
constexpr int kYearOfNone = 1972;  // of logs that have no years; a leap year, so that every day exists

bool TakeText(std::string_view& text, std::string_view expected) {
  if (!text.starts_with(expected)) return false;
  text.remove_prefix(expected.size());
  return true;
}

// Exactly so many digits; with 0, one or more.
bool TakeNumber(std::string_view& text, std::size_t digits, std::int64_t& number) {
  std::size_t length = 0;
  while (length < text.size() && text[length] >= '0' && text[length] <= '9' && length < 18) ++length;
  if (digits != 0 ? length < digits : length == 0) return false;
  if (digits != 0) length = digits;
  (void)std::from_chars(text.data(), text.data() + length, number);  // digits only, and few enough
  text.remove_prefix(length);
  return true;
}

std::string_view TakeWord(std::string_view& text) {
  const std::string_view word = text.substr(0, text.find(' '));
  text.remove_prefix(std::min(text.size(), word.size() + 1));
  return word;
}

bool TakeClock(std::string_view& text, double& seconds) {
  std::int64_t hour = 0;
  std::int64_t minute = 0;
  std::int64_t second = 0;
  if (!TakeNumber(text, 2, hour) || !TakeText(text, ":") || !TakeNumber(text, 2, minute) ||
      !TakeText(text, ":") || !TakeNumber(text, 2, second)) {
    return false;
  }
  seconds += static_cast<double>(hour * 3600 + minute * 60 + second);
  double unit = 1;
  if (!TakeText(text, ".") && !TakeText(text, ",")) return true;
  for (std::int64_t digit = 0; TakeNumber(text, 1, digit);) {
    unit /= 10;
    seconds += unit * static_cast<double>(digit);
  }
  return true;
}

// The month is one of twelve.
double SecondsOfDay(std::int64_t year, std::int64_t month, std::int64_t day) {
  const std::chrono::year_month_day first(std::chrono::year(static_cast<int>(year)),
                                          std::chrono::month(static_cast<unsigned>(month)),
                                          std::chrono::day(1));
  return static_cast<double>(std::chrono::sys_days{first}.time_since_epoch().count() + day - 1) * kDay;
}

// "+01:00", "+0100", "Z" or nothing.
double TakeZone(std::string_view& text) {
  const bool is_east = text.starts_with('+');
  if (TakeText(text, "Z") || (!is_east && !text.starts_with('-'))) return 0;
  std::int64_t hours = 0;
  std::int64_t minutes = 0;
  text.remove_prefix(1);
  if (!TakeNumber(text, 2, hours)) return 0;
  (void)TakeText(text, ":");           // with or without
  (void)TakeNumber(text, 2, minutes);  // some write the hours only
  const auto seconds = static_cast<double>(hours * 3600 + minutes * 60);
  return is_east ? seconds : -seconds;
}

// "2026-11-22T07:12:01.123456+01:00"
bool TakeIsoTime(std::string_view& text, double& seconds) {
  std::int64_t year = 0;
  std::int64_t month = 0;
  std::int64_t day = 0;
  if (!TakeNumber(text, 4, year) || !TakeText(text, "-") || !TakeNumber(text, 2, month) ||
      !TakeText(text, "-") || !TakeNumber(text, 2, day) || (!TakeText(text, "T") && !TakeText(text, " ")) ||
      month < 1 || month > 12) {
    return false;
  }
  seconds = SecondsOfDay(year, month, day);
  if (!TakeClock(text, seconds)) return false;
  seconds -= TakeZone(text);
  return true;
}

// "Nov 22 07:12:01"
bool TakeTraditionalTime(std::string_view& text, double& seconds) {
  constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
  const std::size_t month = kMonths.find(text.substr(0, 3));
  std::int64_t day = 0;
  if (text.size() < 4 || month == std::string_view::npos || month % 3 != 0 || text[3] != ' ') return false;
  text.remove_prefix(text[4 < text.size() ? 4 : 3] == ' ' ? 5 : 4);
  if (!TakeNumber(text, 0, day) || !TakeText(text, " ")) return false;
  seconds = SecondsOfDay(kYearOfNone, static_cast<std::int64_t>(month / 3 + 1), day);
  return TakeClock(text, seconds);
}

// What is in front of a line's text; on false, `text` and `line` are as they were.
bool TakeTime(std::string_view& text, LogLine& line) {
  double seconds = 0;
  for (const auto take : {TakeIsoTime, TakeTraditionalTime}) {
    std::string_view behind = text;
    if (!take(behind, seconds) || !TakeText(behind, " ")) continue;
    line.time = text.substr(0, text.size() - behind.size() - 1);
    line.seconds = seconds;
    text = behind;
    return true;
  }
  return false;
}

// "updater-svr[123]", as the log or syslog(3) names who wrote.
void SetWriter(std::string_view tag, LogLine& line) {
  const std::string_view name = tag.substr(0, tag.find('['));
  line.source = name == kProgram ? Source::kUpdater : Source::kOther;
  tag.remove_prefix(name.size());
  if (TakeText(tag, "[")) (void)TakeNumber(tag, 0, line.process);  // stays 0 where it is none
}

// "host tag: text", "tag: text", "host facility.level tag: text". Without a tag the log itself speaks.
void TakeTag(std::string_view& text, LogLine& line) {
  constexpr int kMostWords = 3;
  std::string_view behind = text;
  line.source = Source::kOther;
  for (int i = 0; i < kMostWords && !behind.empty(); ++i) {
    std::string_view word = TakeWord(behind);
    if (!word.ends_with(':')) continue;
    word.remove_suffix(1);
    SetWriter(word, line);
    text = behind;
    return;
  }
}

// "host name process message-id structured-data text", behind the time.
void TakeRfc5424Writer(std::string_view& text, LogLine& line) {
  (void)TakeWord(text);  // the host
  const std::string_view name = TakeWord(text);
  SetWriter(std::string(name) + "[" + std::string(TakeWord(text)) + "]", line);
  (void)TakeWord(text);  // the message's id
  if (text.starts_with('[')) {
    const std::size_t end = text.find("] ");
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 2);
  } else {
    (void)TakeWord(text);
  }
  (void)TakeText(text, "\xEF\xBB\xBF");  // says that the text is UTF-8
}

// "... updater-svr[123]: text" behind a head of another form.
bool TakeUnknownHead(std::string_view& text, LogLine& line) {
  constexpr std::size_t kLongestHead = 200;
  const std::string_view head = text.substr(0, kLongestHead);
  for (std::size_t at = head.find(kProgram); at != std::string_view::npos; at = head.find(kProgram, at + 1)) {
    std::string_view behind = text.substr(at);
    const std::string_view tag = TakeWord(behind);
    const bool is_tag = tag.ends_with(':') && (tag.size() == kProgram.size() + 1 || tag.ends_with("]:"));
    if (!is_tag || (at > 0 && text[at - 1] != ' ')) continue;
    SetWriter(tag.substr(0, tag.size() - 1), line);
    text = behind;
    return true;
  }
  return false;
}

std::string TextField(const nlohmann::json& entry, const char* name) {
  const auto field = entry.find(name);
  if (field == entry.end()) return {};
  if (field->is_string()) return field->get<std::string>();
  std::string bytes;  // the journal writes what is no UTF-8 as a list of numbers
  if (!field->is_array()) return {};
  for (const nlohmann::json& byte : *field) {
    if (byte.is_number_unsigned()) bytes += static_cast<char>(byte.get<unsigned>());
  }
  return bytes;
}

std::string UtcText(std::int64_t microseconds) {
  using std::chrono::floor;
  const std::chrono::sys_time<std::chrono::microseconds> time{std::chrono::microseconds(microseconds)};
  const auto day = floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(floor<std::chrono::seconds>(time - day));
  std::array<char, 64> text{};
  (void)std::snprintf(text.data(), text.size(), "%04d-%02u-%02dT%02d:%02d:%02dZ",
                      static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                      static_cast<int>(static_cast<unsigned>(date.day())),
                      static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                      static_cast<int>(clock.seconds().count()));  // is long enough
  return text.data();
}

LogLine ParseJournalEntry(const std::string& text) {
  LogLine line;
  line.source = Source::kOther;  // also where it cannot be read, as one that was cut cannot
  const nlohmann::json entry = nlohmann::json::parse(text, nullptr, false);
  if (!entry.is_object()) return line;
  std::string name = TextField(entry, "SYSLOG_IDENTIFIER");
  if (name.empty()) name = TextField(entry, "_COMM");
  std::string process = TextField(entry, "_PID");
  if (process.empty()) process = TextField(entry, "SYSLOG_PID");
  SetWriter(name + "[" + process + "]", line);
  line.text = TextField(entry, "MESSAGE");
  std::int64_t microseconds = 0;
  const std::string time = TextField(entry, "__REALTIME_TIMESTAMP");
  std::string_view digits = time;
  if (!TakeNumber(digits, 0, microseconds)) return line;
  line.seconds = static_cast<double>(microseconds) / 1e6;
  line.time = UtcText(microseconds);
  return line;
}

// The log writes a message once that came several times: "message repeated 2 times: [ text]".
void TakeRepetition(std::string& text) {
  const std::size_t begin = text.find(": [ ");
  if (!text.starts_with("message repeated ") || begin == std::string::npos || !text.ends_with("]")) return;
  text = text.substr(begin + 4, text.size() - begin - 5);
}

// Logs write control characters in the middle of a message, and some its last line feed, as numbers.
void RemoveEnd(std::string& text) {
  while (text.ends_with("#012") || text.ends_with('\n') || text.ends_with('\r')) {
    text.resize(text.size() - (text.ends_with("#012") ? 4 : 1));
  }
}

// Of what gets too long the beginning and the end are kept: the reason of a failure stands at the end. The
// text stays longer than the limit then, so that it is marked as cut when it is complete.
void Append(std::string_view more, std::size_t limit, std::string& text) {
  text += more;
  if (text.size() > 2 * limit) text.erase(limit / 2, text.size() - limit - 1);
}

}  // namespace

LogLine ParseLogLine(const std::string& whole) {
  LogLine line;
  if (whole.starts_with('{')) {
    line = ParseJournalEntry(whole);
  } else {
    std::string_view text = whole;
    std::int64_t priority = 0;
    std::string_view behind = text;
    if (TakeText(behind, "<") && TakeNumber(behind, 0, priority) && TakeText(behind, ">")) text = behind;
    const bool is_rfc5424 = text.size() < whole.size() && TakeText(text, "1 ");
    if (TakeTime(text, line)) {
      is_rfc5424 ? TakeRfc5424Writer(text, line) : TakeTag(text, line);
    } else if (!TakeUnknownHead(text, line)) {
      text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
      if (text.starts_with("-- ")) line.source = Source::kOther;  // the journal's own: "-- Boot ... --"
    }
    line.text = text;
  }
  RemoveEnd(line.text);
  TakeRepetition(line.text);
  return line;
}

double SecondsBetween(double first, double second) {
  constexpr double kHalfAYear = 180 * kDay;
  const double difference = second - first;
  return difference < -kHalfAYear ? difference + 366 * kDay : difference;
}

bool LogReader::Refill() {
  buffer_.resize(kBuffer);
  in_.read(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
  rest_ = std::string_view{buffer_}.substr(0, static_cast<std::size_t>(in_.gcount()));
  return !rest_.empty();
}

bool LogReader::ReadLine(std::string& line) {
  line.clear();
  bool is_complete = false;
  bool is_any = false;
  while (!is_complete && (!rest_.empty() || Refill())) {
    const std::size_t end = rest_.find('\n');
    Append(rest_.substr(0, end), kLongestLine, line);
    is_any = true;
    is_complete = end != std::string_view::npos;
    rest_.remove_prefix(is_complete ? end + 1 : rest_.size());
  }
  line = logger::CutInTheMiddle(line, kLongestLine);
  return is_any;
}

bool LogReader::Next(LogLine& message) {
  if (pending_) {
    message = *std::move(pending_);
    pending_.reset();
  } else {
    std::string line;
    if (!ReadLine(line)) return false;
    message = ParseLogLine(line);
  }
  is_headed_ |= message.source == Source::kUpdater || message.seconds.has_value();
  std::string line;
  while (is_headed_ && ReadLine(line)) {
    LogLine next = ParseLogLine(line);
    if (next.source != Source::kBare) {
      pending_ = std::move(next);
      break;
    }
    Append("\n" + next.text, kLongestMessage, message.text);
  }
  message.text = logger::CutInTheMiddle(message.text, kLongestMessage);
  return true;
}

}  // namespace ctl
