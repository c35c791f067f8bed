#include "platform/host/samba_configuration.h"

#include <algorithm>
#include <utility>

#include "base/path.h"
#include "base/read_text_file.h"
#include "base/text.h"
#include "platform/host/samba_names.h"

namespace platform::host {
namespace {

// How deep files may include files; the file server's own limit.
constexpr std::size_t kMaxDepth = 100;
// How many files are read: a few that include each other twice would take for ever to reach that depth.
constexpr std::size_t kMaxFiles = 100'000;
// How much may have been read when another file is included, and how much is copied from section to section,
// in bytes: a short file can ask for hours of reading and for more than fits into memory.
constexpr std::size_t kMaxRead = std::size_t{1} << 20;
constexpr std::size_t kMaxCopied = std::size_t{16} << 20;
// What an option takes besides its text, about.
constexpr std::size_t kOptionOverhead = 64;

bool IsBlank(char character) { return base::kBlanks.find(character) != std::string_view::npos; }

// Takes the next line, with those that continue it, off the front of `rest`. A comment becomes an empty line.
std::string TakeLine(std::string_view& rest) {
  while (!rest.empty() && IsBlank(rest.front())) rest.remove_prefix(1);
  const bool is_comment = rest.starts_with('#') || rest.starts_with(';');  // no backslash continues it
  std::string line;
  for (bool goes_on = true; goes_on;) {
    const std::size_t size = rest.size();
    const std::string_view part = base::TakeUntil(rest, "\n");
    const std::size_t last = part.find_last_not_of(base::kBlanks);
    goes_on = !is_comment && size > part.size() && last != std::string_view::npos && part[last] == '\\';
    line += goes_on ? part.substr(0, last) : part;
  }
  if (is_comment) return {};
  line.erase(std::min(line.find('\0'), line.size()));
  const auto both_blank = [](char left, char right) { return IsBlank(left) && IsBlank(right); };
  line.erase(std::unique(line.begin(), line.end(), both_blank), line.end());
  return line;
}

class Reader {
 public:
  Reader(const std::string& path, SambaConfiguration& configuration)
      : folder_(base::FolderOf(path) + '/'), configuration_(configuration) {}

  // The two halves of reading one file. An included file that cannot be loaded is no failure, one that cannot
  // be applied is.
  base::Errno Load(const std::string& path, std::string& text) {
    if (++files_ > kMaxFiles || read_ > kMaxRead) return base::Errno(ELOOP);
    configuration_.files.try_emplace(path, SignatureOf(path));
    const base::Errno error = base::ReadTextFile(path, text);
    read_ += text.size();
    return error;
  }
  base::Errno Apply(std::string_view text) {
    base::Errno error;
    while (error.ok() && !text.empty()) {
      error = copied_ > kMaxCopied ? base::Errno(EFBIG) : ApplyLine(TakeLine(text));
    }
    return error;
  }

 private:
  base::Errno ApplyLine(std::string_view line) {
    const bool is_section = line.starts_with('[');
    const std::size_t end = line.find(is_section ? ']' : '=');
    if (end == std::string_view::npos) return base::Errno(is_section ? EINVAL : 0);
    const std::string_view name = is_section ? line.substr(1, end - 1) : line.substr(0, end);
    if (name.empty()) return base::Errno(EINVAL);
    if (!is_section) return SetParameter(FoldSambaWord(name), std::string(base::Trim(line.substr(end + 1))));
    OpenSection(name);
    return {};
  }

  void OpenSection(std::string_view name) {
    section_ = nullptr;
    if (const std::string word = FoldSambaWord(name); word == "global" || word == "globals") return;
    const auto [section, is_new] = configuration_.sections.try_emplace(FoldShareName(name));
    section_ = &section->second;
    section_->options.clear();
    if (is_new) section_->name = name;
    if (is_new) section_->path = default_path_;
    copied_ += default_path_.size();
  }

  base::Errno SetParameter(const std::string& parameter, const std::string& value) {
    if (parameter == "include") return Include(value);
    if (parameter == "copy") {
      Copy(value);
    } else if (section_ == nullptr) {
      SetGlobalParameter(parameter, value);
    } else if (parameter == "path" || parameter == "directory") {
      section_->path = value;
      section_->has_own_path = true;
    } else if (parameter.find(':') != std::string::npos) {
      section_->options[parameter] = value;
    }
    return {};
  }

  void SetGlobalParameter(const std::string& parameter, const std::string& value) {
    if (parameter == "path" || parameter == "directory") default_path_ = value;
    // These say that shares stand elsewhere: in another file in place of this one, or in the registry.
    if (parameter == "configfile" || (parameter == "configbackend" && FoldSambaWord(value) != "file") ||
        (parameter == "registryshares" && IsSambaYes(value))) {
      configuration_.is_complete = false;
    }
  }

  void Copy(const std::string& name) {
    const auto found = configuration_.sections.find(FoldShareName(name));
    if (section_ == nullptr || found == configuration_.sections.end() || &found->second == section_) {
      configuration_.is_complete = false;  // the file server does not start with such a line
      return;
    }
    if (!section_->has_own_path) section_->path = found->second.path;
    copied_ += found->second.path.size();
    for (const auto& [option, value] : found->second.options) {
      copied_ += option.size() + value.size() + kOptionOverhead;
      section_->options[option] = value;
    }
  }

  base::Errno Include(const std::string& name) {
    if (depth_ == kMaxDepth) return base::Errno(ELOOP);  // even for an empty name: keep it so
    if (name.empty()) return {};
    std::string text;
    const bool is_out_of_reach = FoldShareName(name) == "registry" || name.find('%') != std::string::npos;
    const base::Errno unread =
        is_out_of_reach ? base::Errno(EREMOTE) : Load(name.starts_with('/') ? name : folder_ + name, text);
    if (unread.ok()) {
      ++depth_;
      const base::Errno error = Apply(text);
      --depth_;
      return error;
    }
    // The file server passes over a name that is not there, or is a device's.
    const int reason = unread.number();
    if (reason != ENOENT && reason != ENOTDIR && reason != EINVAL) configuration_.is_complete = false;
    return {};
  }

  std::string folder_;  // that relative names of included files begin in
  SambaConfiguration& configuration_;
  SambaSection* section_ = nullptr;  // the one that is open; none: [global]
  std::string default_path_;
  std::size_t depth_ = 0;
  std::size_t files_ = 0;
  std::size_t read_ = 0;
  std::size_t copied_ = 0;
};

}  // namespace

std::string_view SambaSection::Option(const std::string& folded_name) const {
  const auto found = options.find(folded_name);
  if (found == options.end()) return {};
  return found->second;
}

bool SambaConfiguration::IsCurrent() const {
  return !files.empty() && std::all_of(files.begin(), files.end(), [](const auto& file) {
    return SignatureOf(file.first) == file.second;
  });
}

base::Errno ReadSambaConfiguration(const std::string& path, SambaConfiguration& configuration) {
  SambaConfiguration read;
  Reader reader(path, read);
  std::string text;
  base::Errno error = reader.Load(path, text);
  if (error.ok()) error = reader.Apply(text);
  if (error.ok()) configuration = std::move(read);
  return error;
}

}  // namespace platform::host
