// What a sample volume holds: pure functions of a node's, version's or view's number and of the seed, so that
// the same sizes and seed always give the same volume. The shape of the trees depends on the sizes alone.
//
// The nodes of all views are interleaved, as they are on a volume that several people fill at the same time:
// node i (from 0) is the (i / views)-th node of view 1 + i % views. Within a view every folder has up to four
// entries: the entries of its j-th node are 4j+1 to 4j+4.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace ctl {

struct SampleSize {
  int nodes = 72;
  int versions = 180;
  int views = 6;
  int seed = 0;
};

struct SampleUser {
  std::string name;  // as the user table holds it: a share user's begins with "@"
  int uid = 0;
  int gid = 0;
  int type = 0;  // 0 normal, 1 share, 2 LDAP, 3 domain
  int attribute = 0;
  std::string watch_path;
};

// The user whose account has gone from the machine since: what the check after an upgrade is there to find.
inline constexpr const char* kGoneUser = "left.the.company";

// The owner of the view (from 1).
[[nodiscard]] SampleUser UserOfView(int view);

class SampleContent {
 public:
  explicit SampleContent(const SampleSize& size);

  struct Node {
    long long id;
    long long parent_id;  // 0 for the root of a view
    int view;
    int attribute;  // bit 0: removed, bit 1: folder
    std::string name;
    std::string path;
    std::optional<std::string> data;
    long long latest_version;  // 0: none
    int version_count;
    std::vector<long long> ancestors;  // nearest first
  };

  struct FileVersion {
    long long id;
    long long node_id;
    int view;
    int attribute;
    long long previous;  // the version of the same node before this one; 0: none
    long long file_id;   // 0: nothing stored
    long long file_size;
    std::string file_hash;
    std::string client_id;
    std::optional<std::string> mac_attr;
  };

  [[nodiscard]] const SampleSize& size() const { return size_; }
  [[nodiscard]] Node NodeAt(int index) const;
  [[nodiscard]] FileVersion VersionAt(int index) const;

 private:
  // A number below `end` that depends on the seed, and is 0 for the seed 0.
  [[nodiscard]] std::size_t Shift(int index, std::size_t end) const;
  [[nodiscard]] int CountInView(int view) const;
  [[nodiscard]] int AttributeAt(int index) const;
  [[nodiscard]] std::string NameAt(int view, int position) const;
  [[nodiscard]] std::string PathAt(int view, int position) const;
  [[nodiscard]] long long IdAt(int view, int position) const;

  SampleSize size_;
  std::vector<int> node_of_version_;
  std::vector<int> previous_version_;  // 1 + index of the version; 0: none
  std::vector<int> latest_version_;    // by node, likewise
  std::vector<int> version_count_;     // by node
};

}  // namespace ctl
