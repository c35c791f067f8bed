#include "ctl/html_page.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <vector>

#include "ctl/html_text.h"

namespace ctl {
namespace {

std::string Text(const Json& value) { return value.is_string() ? value.get<std::string>() : "-"; }

std::string Time(double milliseconds) {
  constexpr double kSecond = 1000;
  std::array<char, 32> text{};
  const bool is_short = milliseconds < kSecond;
  (void)std::snprintf(text.data(), text.size(), is_short ? "%.1f ms" : "%.2f s",
                      is_short ? milliseconds : milliseconds / kSecond);  // is long enough
  return text.data();
}

std::string Version(const Json& holder) {
  if (holder["version"].is_null()) return "?";
  return "(" + Text(holder["branch"]) + ", " + std::to_string(holder["version"].get<long long>()) + ")";
}

std::string Section(const std::string& title, const std::string& content) {
  return "<section>\n<h2>" + title + "</h2>\n" + content + "</section>\n";
}

// One line of the time line: what, how long, and when.
std::string TimeRow(const std::string& name, const Json& time, double all, bool is_step,
                    const char* css_class) {
  const auto start = time["start"].get<double>();
  const auto milliseconds = time["milliseconds"].get<double>();
  return std::string("<div class=\"step") + (is_step ? " sub" : "") + "\"><span>" + Escaped(name) +
         "</span><span>" + Time(milliseconds) + "</span>" + Bar(start / all, milliseconds / all, css_class) +
         "</div>\n";
}

std::string TimeLine(const Json& run) {
  const double all = std::max(run["milliseconds"].get<double>(), 1.0);
  std::string rows;
  for (const Json& phase : run["phases"]) {
    rows += TimeRow(Text(phase["name"]), phase, all, false, "before");
    if (phase["name"] != "updaters") continue;
    for (const Json& step : run["steps"]) {
      const bool has_failed = step["failed"].get<bool>();
      rows += TimeRow(Version(step["from"]) + " → " + Version(step["to"]) + (has_failed ? " failed" : ""),
                      step, all, true, has_failed ? "bad" : "after");
    }
  }
  return rows + "<p class=\"dim\">All: " + Time(run["milliseconds"].get<double>()) + "</p>\n";
}

// A database or table before and after; either may be missing.
struct Pair {
  const Json* before = nullptr;
  const Json* after = nullptr;
};

std::string NameOf(const Json& database) {
  const std::string kind = Text(database["kind"]);
  const std::string name = Text(database["name"]);
  return kind == name ? name : kind + " " + name;
}

// In the order in which they stand in the document.
std::vector<std::pair<std::string, Pair>> PairsOf(const Json& document) {
  std::vector<std::pair<std::string, Pair>> pairs;
  std::map<std::string, std::size_t> places;
  const auto add = [&](const Json& databases, const Json* Pair::*member) {
    for (const Json& database : databases) {
      const auto [place, is_new] = places.emplace(NameOf(database), pairs.size());
      if (is_new) pairs.emplace_back(place->first, Pair());
      pairs[place->second].second.*member = &database;
    }
  };
  add(document["before"], &Pair::before);
  add(document["after"], &Pair::after);
  return pairs;
}

long long BytesOf(const Json* database) {
  return database == nullptr ? 0 : (*database)["bytes"].get<long long>();
}

long long RowsOf(const Json& database) {
  long long sum = 0;
  for (const auto& [table, rows] : database["rows"].items()) sum += rows.get<long long>();
  return sum;
}

std::string Change(const Pair& pair, const std::function<std::string(const Json&)>& text) {
  const auto show = [&](const Json* database) { return database == nullptr ? "-" : text(*database); };
  return show(pair.before) + " → " + show(pair.after);
}

std::string NamedCell(const std::string& name, const std::string& text) {
  return "<td class=\"n\" data-name=\"" + name + "\">" + Escaped(text) + "</td>";
}

std::string DatabaseRow(const std::string& name, const Pair& pair, double largest) {
  const auto bar = [&](const Json* database, const char* css_class) {
    return database == nullptr ? "" : Bar(0, static_cast<double>(BytesOf(database)) / largest, css_class);
  };
  return "<tr>" + Cell(name) + NamedCell("version", Change(pair, Version)) +
         NamedCell("size", Change(pair, [](const Json& database) { return Bytes(BytesOf(&database)); })) +
         NamedCell("rows",
                   Change(pair, [](const Json& database) { return std::to_string(RowsOf(database)); })) +
         "<td class=\"pictures\">" + bar(pair.before, "before") + bar(pair.after, "after") + "</td></tr>\n";
}

std::string Databases(const std::vector<std::pair<std::string, Pair>>& pairs) {
  constexpr std::size_t kMostListed = 200;
  double largest = 1;
  for (const auto& [name, pair] : pairs) {
    largest = std::max(largest, static_cast<double>(std::max(BytesOf(pair.before), BytesOf(pair.after))));
  }
  std::string table =
      "<p class=\"dim\">Size: <span class=\"key before\"></span>before <span class=\"key after\"></span>after</p>\n"
      "<table class=\"wide\"><thead><tr><th>Database</th><th class=\"n\">Version</th>"
      "<th class=\"n\">Size</th><th class=\"n\">Rows</th><th style=\"width:25%\"></th></tr></thead><tbody>\n";
  for (std::size_t i = 0; i < std::min(pairs.size(), kMostListed); ++i) {
    table += DatabaseRow(pairs[i].first, pairs[i].second, largest);
  }
  table += "</tbody></table>\n";
  if (pairs.size() > kMostListed) {
    table += "<p class=\"dim\">and " + Count(pairs.size() - kMostListed, "more database") +
             ", which the report of --json lists</p>\n";
  }
  return table;
}

std::string Signed(long long change) {
  return change == 0 ? "" : (change > 0 ? "+" : "") + std::to_string(change);
}

// All views taken together, and all file databases.
using TableRows = std::map<std::pair<std::string, std::string>, std::array<long long, 2>>;

void AddTables(const Json& databases, std::size_t when, TableRows& tables) {
  for (const Json& database : databases) {
    for (const auto& [table, rows] : database["rows"].items()) {
      tables[{Text(database["kind"]), table}].at(when) += rows.get<long long>();
    }
  }
}

std::string Tables(const Json& document) {
  TableRows tables;
  AddTables(document["before"], 0, tables);
  AddTables(document["after"], 1, tables);
  std::string html =
      "<table><thead><tr><th>Table</th><th class=\"n\">before</th><th class=\"n\">after</th>"
      "<th class=\"n\">change</th></tr></thead>"
      "<tbody>\n";
  for (const auto& [key, rows] : tables) {
    html += "<tr>" + Cell(key.first + ": " + key.second) + Cell(std::to_string(rows[0]), "n") +
            Cell(std::to_string(rows[1]), "n") + Cell(Signed(rows[1] - rows[0]), "n") + "</tr>\n";
  }
  return html + "</tbody></table>\n";
}

std::string FindingList(const Json& findings) {
  if (findings.empty()) return "<p class=\"good\">Nothing was found that a person should know of.</p>\n";
  std::string list = "<ul>\n";
  for (const Json& finding : findings) {
    const std::string severity = Text(finding["severity"]);
    const char* const css_class = severity == "problem" ? "bad" : severity == "warning" ? "warn" : "dim";
    const std::string subject = Text(finding["subject"]);
    list += "<li><strong class=\"" + std::string(css_class) + "\">" + Escaped(severity) + "</strong> " +
            Escaped((subject.empty() ? "" : subject + ": ") + Text(finding["text"])) +
            "<br><span class=\"dim\">" + Escaped(Text(finding["advice"])) + "</span></li>\n";
  }
  return list + "</ul>\n";
}

std::string Lines(std::string text) {
  std::replace(text.begin(), text.end(), '\t', ' ');  // of the statements in messages
  std::string lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines += Escaped(line) + "\n";
  return lines;
}

std::string Log(const Json& document) {
  constexpr std::size_t kMostAtAnEnd = 1000;
  const Json& log = document["log"];
  const std::size_t left_out = log.size() - std::min(log.size(), 2 * kMostAtAnEnd);
  std::string lines;
  for (std::size_t i = 0; i < log.size(); ++i) {
    if (left_out > 0 && i == kMostAtAnEnd) {
      lines += "... and " + Count(left_out, "more line") + ", which the report of --json has\n";
      i += left_out;
    }
    lines += Lines(log[i]["text"].get_ref<const std::string&>());
  }
  const char* const is_open = document["succeeds"].get<bool>() ? "" : " open";
  return std::string("<details") + is_open + "><summary>" + Count(log.size(), "line") +
         " of the system log</summary><pre>" + lines + "</pre></details>\n";
}

std::string Head(const Json& document) {
  const bool succeeds = document["succeeds"].get<bool>();
  return "<h1>Rehearsal of an upgrade</h1>\n<p class=\"dim\">" + Escaped(Text(document["volume"])) + ", " +
         Escaped(Text(document["started"])) + ", updater-ctl " + Escaped(Text(document["program_version"])) +
         "</p>\n<p class=\"verdict " + (succeeds ? "good\">" : "bad\">") +
         (succeeds ? "The upgrade would succeed" : "The upgrade would fail") + ": status &quot;" +
         Escaped(Text(document["status"])) + "&quot;</p>\n";
}

}  // namespace

std::string HtmlPageOf(const Json& document) {
  const std::string title = Escaped("Rehearsal of " + Text(document["volume"]));
  return std::string(kPageBegin) +
         "<head>\n<meta charset=\"utf-8\">\n"
         "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
         "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
         "'unsafe-inline'\">\n<title>" +
         title + "</title>\n<style>" + kHtmlStyle + "</style>\n</head>\n<body>\n" + Head(document) +
         Section("Findings", FindingList(document["findings"])) + Section("Time", TimeLine(document["run"])) +
         Section("Databases", Databases(PairsOf(document))) + Section("Rows by table", Tables(document)) +
         Section("Log", Log(document)) + "</body>\n</html>\n";
}

}  // namespace ctl
