#include "ctl/sample_content.h"

#include <array>

#include "base/fnv.h"
#include "logger/format.h"

namespace ctl {
namespace {

constexpr int kEntriesOfAFolder = 4;
constexpr int kFirstUid = 1000;
constexpr int kRemoved = 1;
constexpr int kFolder = 2;
constexpr int kSizes = 1000000;

std::string Repeated(const char* text, int count) {
  std::string repeated;
  for (int i = 0; i < count; ++i) repeated += text;
  return repeated;
}

// Names that break whoever forgets to quote, escape or measure. Two of them are 255 bytes long, which is the
// longest that file systems take.
const std::vector<std::string>& AwkwardNames() {
  static const std::vector<std::string> names = {
      "it's 100% \"done\" %s.txt",
      Repeated("é", 126) + ".md",
      "Größe 漢字 🙂.txt",
      "a;b -- '); DROP TABLE node_table.sql",
      "%d%n%llu%Q",
      Repeated("x", 251) + ".bin",
      " blanks around ",
      "back\\slash\ttab.TXT",
  };
  return names;
}

}  // namespace

SampleUser UserOfView(int view) {
  static const std::vector<SampleUser> first_users = {
      {.name = "alice", .watch_path = "/volume1/homes/alice/StratoFolder"},
      {.name = "O'Brien", .attribute = 2, .watch_path = "/volume1/homes/O'Brien/StratoFolder"},
      {.name = "@team \"50%\"", .type = 1, .attribute = 8, .watch_path = "/volume1/team \"50%\""},
      {.name = kGoneUser, .watch_path = "/volume1/homes/left.the.company/StratoFolder"},
      {.name = "größe.ldap", .type = 2, .watch_path = ""},
      {.name = "DOM\\bob 100%", .type = 3, .attribute = 1, .watch_path = ""},
  };
  SampleUser user;
  if (view <= static_cast<int>(first_users.size())) {
    user = first_users[static_cast<std::size_t>(view) - 1];
  } else if (view % 5 == 0) {
    user = {.name = "@share" + std::to_string(view),
            .type = 1,
            .watch_path = "/volume1/share" + std::to_string(view)};
  } else {
    user.name = "user" + std::to_string(view);
    user.watch_path = "/volume1/homes/" + user.name + "/StratoFolder";
  }
  user.uid = kFirstUid + view;
  user.gid = 100;
  return user;
}

// Every seventh node of a view has no version; of the others, every second one takes all versions beyond the
// first.
SampleContent::SampleContent(const SampleSize& size)
    : size_(size),
      latest_version_(static_cast<std::size_t>(size.nodes)),
      version_count_(static_cast<std::size_t>(size.nodes)) {
  std::vector<int> once;
  std::vector<int> often;
  for (int node = 0; node < size.nodes; ++node) {
    const int position = node / size.views;
    if (position % 7 == 6) continue;
    once.push_back(node);
    if (position % 2 == 1) often.push_back(node);
  }
  if (often.empty()) often = once;
  for (int version = 0; version < size.versions && !once.empty(); ++version) {
    const auto turn = static_cast<std::size_t>(version);
    const int node = turn < once.size()
                         ? once[turn]
                         : often[(turn - once.size() + Shift(version, often.size())) % often.size()];
    const auto at = static_cast<std::size_t>(node);
    node_of_version_.push_back(node);
    previous_version_.push_back(latest_version_[at]);
    latest_version_[at] = version + 1;
    ++version_count_[at];
  }
}

std::size_t SampleContent::Shift(int index, std::size_t end) const {
  if (size_.seed == 0) return 0;
  return static_cast<std::size_t>(base::Fnv1a(std::to_string(size_.seed) + "/" + std::to_string(index)) %
                                  end);
}

int SampleContent::CountInView(int view) const {
  return size_.nodes / size_.views + (view < size_.nodes % size_.views ? 1 : 0);
}

long long SampleContent::IdAt(int view, int position) const {
  return 1LL + static_cast<long long>(position) * size_.views + view;
}

int SampleContent::AttributeAt(int index) const {
  const int position = index / size_.views;
  const bool has_entries = kEntriesOfAFolder * position + 1 < CountInView(index % size_.views);
  if (position == 0 || has_entries) return kFolder;
  if (position % 9 == 8) return kFolder | kRemoved;
  return position % 11 == 7 ? kRemoved : 0;
}

std::string SampleContent::NameAt(int view, int position) const {
  if (position == 0) return "";
  if (position % 8 == 5) {
    const std::vector<std::string>& names = AwkwardNames();
    const auto place = static_cast<std::size_t>(position) / 8;
    return names[(place + static_cast<std::size_t>(view) +
                  Shift(position * size_.views + view, names.size())) %
                 names.size()];
  }
  const bool is_folder = (AttributeAt(position * size_.views + view) & kFolder) != 0;
  return (is_folder ? "Ordner für Pläne " : "document ") + std::to_string(position);
}

std::string SampleContent::PathAt(int view, int position) const {
  std::string path;
  for (int at = position; at > 0; at = (at - 1) / kEntriesOfAFolder) {
    path.insert(0, "/" + NameAt(view, at));
  }
  return path.empty() ? "/" : path;
}

SampleContent::Node SampleContent::NodeAt(int index) const {
  const int view = index % size_.views;
  const int position = index / size_.views;
  const auto at = static_cast<std::size_t>(index);
  Node node = {.id = IdAt(view, position),
               .parent_id = position == 0 ? 0 : IdAt(view, (position - 1) / kEntriesOfAFolder),
               .view = view + 1,
               .attribute = AttributeAt(index),
               .name = NameAt(view, position),
               .path = PathAt(view, position),
               .data = {},
               .latest_version = latest_version_[at],
               .version_count = version_count_[at],
               .ancestors = {}};
  if (index % 5 == 3) node.data = index % 2 == 0 ? "" : "100% of 'it'";
  for (int ancestor = position; ancestor > 0;) {
    ancestor = (ancestor - 1) / kEntriesOfAFolder;
    node.ancestors.push_back(IdAt(view, ancestor));
  }
  return node;
}

SampleContent::FileVersion SampleContent::VersionAt(int index) const {
  static constexpr std::array kClients = {"admin@StorageHost", "O'Brien's \"laptop\"", "phone 100%",
                                          "localhost"};
  const auto at = static_cast<std::size_t>(index);
  const int node = node_of_version_[at];
  const long long id = index + 1LL;
  const bool is_latest = latest_version_[static_cast<std::size_t>(node)] == id;
  const int attribute = is_latest ? AttributeAt(node) : AttributeAt(node) & kFolder;
  const bool is_stored = (attribute & kFolder) == 0 && index % 13 != 12;
  const long long shift = static_cast<long long>(Shift(index, kSizes));
  FileVersion version = {
      .id = id,
      .node_id = IdAt(node % size_.views, node / size_.views),
      .view = node % size_.views + 1,
      .attribute = attribute,
      .previous = previous_version_[at],
      .file_id = is_stored ? id : 0,
      .file_size = is_stored ? (id % 50 == 0 ? 5000000000LL : (id * 7919 + shift) % kSizes) : 0,
      .file_hash = is_stored ? logger::FormatText<unsigned long long>(
                                   "da39a3ee5e6b4b0d3255bfef%llu",
                                   1000000000000000ULL + at * 7919 + Shift(index, kSizes))
                             : "",
      .client_id = kClients[(at + Shift(index, kClients.size())) % kClients.size()],
      .mac_attr = {}};
  if (index % 3 == 1) version.mac_attr = "";
  if (index % 3 == 2) version.mac_attr = "file_id=" + std::to_string(id) + "&name=O'Brien 100%";
  return version;
}

}  // namespace ctl
