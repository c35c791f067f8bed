// The pieces that a page is made of.
#pragma once

#include <string>
#include <string_view>

namespace ctl {

// The style sheet of a page.
extern const char* const kHtmlStyle;

// The text as the content of an element or of a quoted attribute; what is not printable as \xHH.
[[nodiscard]] std::string Escaped(std::string_view text);

// "<td class=n>12</td>"; `text` is escaped.
[[nodiscard]] std::string Cell(std::string_view text, std::string_view css_class = {});

// A bar of an inline SVG picture as wide as what is around it. `start` and `length` are parts of 1.
[[nodiscard]] std::string Bar(double start, double length, std::string_view css_class);

}  // namespace ctl
