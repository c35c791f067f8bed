// Printf-like formats that are checked against their arguments by the compiler.
//
// A format is a string literal. Its constructor runs at compile time and refuses a conversion that does not
// fit its argument, so a bare "strftime('%s')" in SQL or an int given to %llu does not build. Text that was
// put together at run time can never be a format.
//
// Conversions: %d int, %u unsigned int, %llu and %llx unsigned long long, %lld long long, %zu size_t,
// %s text (const char*, std::string), %% a percent sign; in SQL also %q (escaped) and %Q (quoted) text.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <type_traits>

namespace logger {

enum class Dialect { kPrintf, kSql };

namespace internal {

// Not constexpr on purpose: reaching it while a format is checked stops the compilation.
inline void FormatDoesNotFitItsArguments() {}

template <typename Arg>
constexpr bool IsText() {
  using Plain = std::decay_t<Arg>;
  return std::is_same_v<Plain, const char*> || std::is_same_v<Plain, char*> ||
         std::is_same_v<Plain, std::string>;
}

// Reads one conversion at `text` (just behind the percent sign); returns its length, 0 when it is not one
// that takes an `Arg`.
template <Dialect kDialect, typename Arg>
constexpr std::size_t ConversionLength(const char* text) {
  using Plain = std::decay_t<Arg>;
  if (*text == 's' || (kDialect == Dialect::kSql && (*text == 'q' || *text == 'Q'))) {
    return IsText<Arg>() ? 1 : 0;
  }
  if (*text == 'd') return std::is_same_v<Plain, int> ? 1 : 0;
  if (*text == 'u') return std::is_same_v<Plain, unsigned> ? 1 : 0;
  if (text[0] == 'z' && text[1] == 'u') return std::is_same_v<Plain, std::size_t> ? 2 : 0;
  if (text[0] == 'l' && text[1] == 'l') {
    if (text[2] == 'u' || text[2] == 'x') return std::is_same_v<Plain, unsigned long long> ? 3 : 0;
    if (text[2] == 'd') return std::is_same_v<Plain, long long> ? 3 : 0;
  }
  return 0;
}

// Moves `text` to just behind the percent sign of its next conversion, or to its end.
constexpr const char* NextConversion(const char* text) {
  while (*text != '\0') {
    if (*text++ != '%') continue;
    if (*text != '%') return *text == '\0' ? "%" : text;  // a lone sign at the end fits nothing
    ++text;
  }
  return text;
}

// Takes the next conversion for an `Arg` and moves `text` behind it; false when there is none that fits.
template <Dialect kDialect, typename Arg>
constexpr bool TakeConversion(const char*& text) {
  text = NextConversion(text);
  const std::size_t length = *text == '\0' ? 0 : ConversionLength<kDialect, Arg>(text);
  text += length;
  return length != 0;
}

template <Dialect kDialect, typename... Args>
constexpr bool FormatFits(const char* text) {
  return (TakeConversion<kDialect, Args>(text) && ...) && *NextConversion(text) == '\0';
}

}  // namespace internal

// A format and the source line on which it was written. Borrowed text: a literal, so it lives for ever.
template <Dialect kDialect, typename... Args>
class CheckedFormat {
 public:
  // Implicit on purpose: the caller writes the literal where the format is wanted.
  // NOLINTNEXTLINE(google-explicit-constructor)
  consteval CheckedFormat(const char* text, int line = __builtin_LINE()) : text_(text), line_(line) {
    if (!internal::FormatFits<kDialect, Args...>(text)) internal::FormatDoesNotFitItsArguments();
  }

  [[nodiscard]] const char* text() const { return text_; }
  [[nodiscard]] int line() const { return line_; }

 private:
  const char* text_;
  int line_;
};

template <typename... Args>
using PrintfFormat = CheckedFormat<Dialect::kPrintf, std::type_identity_t<Args>...>;
template <typename... Args>
using SqlFormat = CheckedFormat<Dialect::kSql, std::type_identity_t<Args>...>;

// What a variadic C function takes for an argument of a checked format.
template <typename Arg>
auto VariadicArgument(const Arg& value) {
  if constexpr (std::is_same_v<Arg, std::string>) {
    return value.c_str();
  } else {
    return static_cast<std::decay_t<const Arg>>(value);
  }
}

// The formatted text. The only place where a checked format meets the C library's own formatting.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
template <typename... Args>
[[nodiscard]] std::string FormatText(const PrintfFormat<Args...>& format, const Args&... args) {
  const int length = std::snprintf(nullptr, 0, format.text(), VariadicArgument(args)...);
  if (length < 0) return {};
  std::string text(static_cast<std::size_t>(length), '\0');
  (void)std::snprintf(text.data(), text.size() + 1, format.text(),
                      VariadicArgument(args)...);  // length is known
  return text;
}
#pragma GCC diagnostic pop

}  // namespace logger
