#include "platform/host/samba_configuration.h"

// The library's header brings its definitions only on request, and needs one of its converters to be named
// although plain characters are never converted. Nothing of the converter is linked.
#define SI_IMPLEMENTATION
#define SI_CONVERT_ICU
#include <SimpleIni.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <clocale>
#include <cstring>
#include <cwctype>
#include <utility>

#include "base/read_text_file.h"
#include "base/text.h"

namespace platform::host {
namespace {

using namespace std::string_view_literals;

constexpr std::size_t kMaxFiles = 100;  // include chains that come back to themselves end here

struct ExactOrder {
  bool operator()(const char* left, const char* right) const { return std::strcmp(left, right) < 0; }
};
using IniFile = CSimpleIniTempl<char, ExactOrder, SI_ConvertA<char>>;

// One section head (empty name) or parameter, in the order of the file.
struct IniLine {
  int order;
  std::string section;
  std::string name;
  std::string value;
};

std::string_view Unquote(std::string_view text) {
  return text.size() >= 2 && text.front() == '"' && text.back() == '"' ? text.substr(1, text.size() - 2)
                                                                       : text;
}

bool IsWellFormed(std::string_view line) {
  if (line.find_first_of("\0\r"sv) != std::string_view::npos) return false;
  if (line.front() == '[') {
    const std::size_t end = line.find(']');
    return end != std::string_view::npos && !base::Trim(line.substr(1, end - 1)).empty();
  }
  return line.front() != '=' && line.find('=') != std::string_view::npos;
}

// Brings continued lines together and leaves comments out. The library skips lines that it does not
// understand without a word, so they are found here; false then.
bool NormaliseLines(std::string_view text, std::string& normal) {
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  while (!text.empty()) {
    std::string line(base::Trim(base::TakeUntil(text, "\n")));
    if (line.empty() || line.front() == '#' || line.front() == ';') continue;
    while (line.back() == '\\') {
      line.pop_back();
      line += base::Trim(base::TakeUntil(text, "\n"));
      if (line.empty()) break;
    }
    if (line.empty()) continue;
    if (!IsWellFormed(line)) return false;
    normal += line + '\n';
  }
  return true;
}

bool ParseLines(std::string_view text, std::vector<IniLine>& lines) {
  std::string normal;
  IniFile ini(/*a_bIsUtf8=*/true, /*a_bMultiKey=*/true);
  if (!NormaliseLines(text, normal) || ini.LoadData(normal.data(), normal.size()) < 0) return false;

  IniFile::TNamesDepend sections;
  ini.GetAllSections(sections);
  for (const IniFile::Entry& section : sections) {
    lines.push_back({section.nOrder, section.pItem, "", ""});
    for (const auto& [key, value] : *ini.GetSection(section.pItem)) {
      lines.push_back({key.nOrder, section.pItem, key.pItem, std::string(Unquote(value))});
    }
  }
  std::sort(lines.begin(), lines.end(),
            [](const IniLine& left, const IniLine& right) { return left.order < right.order; });
  return true;
}

class Reader {
 public:
  explicit Reader(SambaConfiguration& configuration) : configuration_(configuration) {}

  // Reads one file into the section that is named; returns 0 or an errno.
  int Read(const std::string& path, const std::string& outer_section) {
    if (configuration_.files.size() >= kMaxFiles) return ELOOP;
    configuration_.files.push_back(FileSignature::Of(path));
    std::string text;
    if (const int error = base::ReadTextFile(path, text); error != 0) return error;
    std::vector<IniLine> lines;
    if (!ParseLines(text, lines)) return EINVAL;
    for (const IniLine& line : lines) {
      const std::string& section = line.section.empty() ? outer_section : line.section;
      if (const int error = Apply(section, line.name, line.value); error != 0) return error;
    }
    return 0;
  }

 private:
  int Apply(const std::string& section_name, const std::string& name, const std::string& value) {
    const std::string folded_section = FoldSambaName(section_name);
    SambaSection& section = configuration_.sections[folded_section];
    if (section.name.empty()) section.name = section_name;

    const std::string parameter = FoldSambaName(name);
    if (parameter == "include") return Include(section_name, value);
    if (parameter == "configbackend" && FoldSambaName(value) != "file") configuration_.is_complete = false;
    if (parameter == "copy") {
      const auto source = configuration_.sections.find(FoldSambaName(value));
      if (source != configuration_.sections.end())
        section.parameters.insert(source->second.parameters.begin(), source->second.parameters.end());
    } else if (!parameter.empty()) {
      section.parameters[parameter] = value;
    }
    return 0;
  }

  int Include(const std::string& section_name, const std::string& path) {
    if (path == "registry" || path.find('%') != std::string::npos) {
      configuration_.is_complete = false;
      return 0;
    }
    const std::string& main_file = configuration_.files.front().path;
    const bool is_absolute = path.starts_with('/');
    const int error =
        Read(is_absolute ? path : main_file.substr(0, main_file.rfind('/') + 1) + path, section_name);
    return error == ENOENT ? 0 : error;
  }

  SambaConfiguration& configuration_;
};

// Lower case of any alphabet, whatever the locale of the process is.
class CaseTable {
 public:
  CaseTable() : locale_(::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)) {}
  ~CaseTable() {
    if (locale_ != nullptr) ::freelocale(locale_);
  }
  CaseTable(const CaseTable&) = delete;
  CaseTable& operator=(const CaseTable&) = delete;

  [[nodiscard]] std::string ToLower(std::string_view text) const {
    std::string lower;
    const locale_t before = locale_ != nullptr ? ::uselocale(locale_) : nullptr;
    while (!text.empty()) text.remove_prefix(AppendLower(text, lower));
    if (locale_ != nullptr) (void)::uselocale(before);  // a locale that was in use is valid
    return lower;
  }

 private:
  // Appends the first character in lower case, a byte that is none as it is; returns its length.
  static std::size_t AppendLower(std::string_view text, std::string& lower) {
    std::mbstate_t state{};
    wchar_t character = 0;
    const std::size_t length = std::mbrtowc(&character, text.data(), text.size(), &state);
    std::array<char, 16> bytes{};
    std::mbstate_t out_state{};
    const std::size_t out_length =
        length == 0 || length > text.size()
            ? text.size() + 1
            : std::wcrtomb(bytes.data(), static_cast<wchar_t>(std::towlower(static_cast<wint_t>(character))),
                           &out_state);
    if (out_length > bytes.size()) {
      lower += text.front();
      return 1;
    }
    lower.append(bytes.data(), out_length);
    return length;
  }

  locale_t locale_;
};

std::int64_t Nanoseconds(const timespec& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

std::string FoldSambaName(std::string_view name) {
  static const CaseTable table;
  std::string folded = table.ToLower(name);
  std::erase_if(folded,
                [](char character) { return base::kBlanks.find(character) != std::string_view::npos; });
  return folded;
}

bool IsSambaYes(std::string_view value) {
  const std::string folded = FoldSambaName(value);
  return folded == "yes" || folded == "true" || folded == "on" || folded == "1";
}

FileSignature FileSignature::Of(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return {.path = path, .error = errno};
  return {.path = path,
          .device = status.st_dev,
          .inode = status.st_ino,
          .size = status.st_size,
          .modified_ns = Nanoseconds(status.st_mtim),
          .changed_ns = Nanoseconds(status.st_ctim)};
}

std::string_view SambaSection::Get(const std::string& folded_name) const {
  const auto found = parameters.find(folded_name);
  if (found == parameters.end()) return {};
  return found->second;
}

bool SambaConfiguration::IsCurrent() const {
  return !files.empty() && std::all_of(files.begin(), files.end(), [](const FileSignature& file) {
    return FileSignature::Of(file.path) == file;
  });
}

int ReadSambaConfiguration(const std::string& path, SambaConfiguration& configuration) {
  SambaConfiguration read;
  // Parameters before the first section belong to the global one.
  if (const int error = Reader(read).Read(path, "global"); error != 0) return error;
  configuration = std::move(read);
  return 0;
}

}  // namespace platform::host
