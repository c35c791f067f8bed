#include "ctl/html_text.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "ctl/output.h"

namespace ctl {

const char* const kHtmlStyle = R"(
:root { color-scheme: light dark; --ink: #1c2330; --dim: #5b6576; --paper: #fff; --line: #d5dae2;
  --track: #edf0f4; --before: #8896aa; --after: #2463c4; --good: #14713a; --bad: #b3201d; --warn: #8a5800; }
@media (prefers-color-scheme: dark) { :root { --ink: #e6eaf1; --dim: #a3aebf; --paper: #14181f;
  --line: #38404d; --track: #222932; --before: #8593a8; --after: #6fa4f5; --good: #5cc98a; --bad: #ff8079;
  --warn: #e0b050; } }
* { box-sizing: border-box; }
body { margin: 0 auto; padding: 1rem; max-width: 62rem; color: var(--ink); background: var(--paper);
  font: 1rem/1.45 system-ui, sans-serif; overflow-wrap: anywhere; }
h1 { font-size: 1.4rem; margin: 0 0 .2rem; } h2 { font-size: 1.1rem; margin: 1.6rem 0 .5rem; }
.dim, th { color: var(--dim); } .good { color: var(--good); } .bad { color: var(--bad); }
.warn { color: var(--warn); } .verdict { font-size: 1.2rem; font-weight: 600; }
table { border-collapse: collapse; width: 100%; font-size: .9rem; }
th { text-align: left; font-weight: 500; } th.n, td.n { text-align: right; white-space: nowrap;
  font-variant-numeric: tabular-nums; }
th, td { padding: .25rem .8rem .25rem 0; border-bottom: 1px solid var(--line); vertical-align: top; }
td:first-child { min-width: 6rem; overflow-wrap: break-word; }
.step { display: grid; grid-template-columns: 1fr auto; gap: 0 1rem; margin: 0 0 .4rem; font-size: .9rem; }
.step span:nth-child(2) { text-align: right; font-variant-numeric: tabular-nums; }
.step.sub span:first-child { padding-left: 1rem; }
.step svg, td svg { display: block; width: 100%; height: .6rem; margin: .15rem 0; }
.step svg { grid-column: 1 / 3; background: var(--track); }
@media (min-width: 36rem), print { .step { grid-template-columns: 20rem 1fr 5rem; align-items: center; }
  .step svg { grid-area: 1 / 2; } .step span:nth-child(2) { grid-area: 1 / 3; } }
rect.before { fill: var(--before); } rect.after { fill: var(--after); } rect.bad { fill: var(--bad); }
li { margin: 0 0 .5rem; } ul { padding-left: 1.2rem; }
.key { display: inline-block; width: .7rem; height: .7rem; margin: 0 .3rem 0 0; }
.key.before { background: var(--before); } .key.after { background: var(--after); margin-left: .8rem; }
pre { white-space: pre-wrap; font-size: .8rem; border: 1px solid var(--line); padding: .6rem; margin: .4rem 0; }
summary { cursor: pointer; }
@media (max-width: 36rem) { table.wide thead { display: none; }
  table.wide tr { display: grid; grid-template-columns: 1fr; border-bottom: 1px solid var(--line);
    padding: .4rem 0; } table.wide td { border: 0; padding: 0 .6rem .1rem 0; text-align: left; }
  table.wide td:first-child { font-weight: 600; }
  table.wide td[data-name]::before { content: attr(data-name) ": "; color: var(--dim); } }
@media print { :root { color-scheme: light; --ink: #000; --dim: #333; --paper: #fff; --line: #999;
  --track: #eee; --before: #aaa; --after: #345; --good: #000; --bad: #000; --warn: #000; }
  body { padding: 0; font-size: .8rem; } details > *, details::details-content { display: block; }
  details::details-content { content-visibility: visible; } h2 { break-after: avoid; }
  tr, li, .step { break-inside: avoid; } svg, .key { print-color-adjust: exact; } }
)";

std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char c : Printable(text)) {
    const std::string_view special = "&<>\"'";
    constexpr std::array kNames = {"&amp;", "&lt;", "&gt;", "&quot;", "&#39;"};
    const std::size_t found = special.find(c);
    if (found == std::string_view::npos) {
      escaped += c;
    } else {
      escaped += kNames[found];
    }
  }
  return escaped;
}

std::string Cell(std::string_view text, std::string_view css_class) {
  const std::string opening = css_class.empty() ? "<td>" : "<td class=\"" + std::string(css_class) + "\">";
  return opening + Escaped(text) + "</td>";
}

std::string Bar(double start, double length, std::string_view css_class) {
  constexpr double kLeast = 0.4;  // so that one sees it
  constexpr double kAll = 100;
  const double width = std::clamp(length * kAll, kLeast, kAll);
  const double x = std::clamp(start * kAll, 0.0, kAll - width);
  std::array<char, 128> rect{};
  (void)std::snprintf(rect.data(), rect.size(), "<rect x=\"%.2f\" width=\"%.2f\" height=\"1\" class=\"", x,
                      width);  // is long enough
  return "<svg viewBox=\"0 0 100 1\" preserveAspectRatio=\"none\" aria-hidden=\"true\">" +
         std::string(rect.data()) + std::string(css_class) + "\"/></svg>";
}

}  // namespace ctl
