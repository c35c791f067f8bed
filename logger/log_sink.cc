#include "logger/log_sink.h"

#include <sys/socket.h>
#include <syslog.h>

#include <algorithm>

#include "base/errno.h"
#include "base/file_descriptor.h"

namespace logger {
namespace {

constexpr std::string_view kCutMark = " [...] ";

// No log is known to refuse a line of this length.
constexpr std::size_t kSafeLine = 1024;

// What syslog(3) puts in front of a message: priority, time and the program's name, which is a file name.
constexpr std::size_t kLineHead = 512;

// The longest message that fits into one datagram to the log. syslog(3) uses a socket with the buffer size
// that every new socket has, and drops a longer message without telling anybody.
std::size_t LongestLine() {
  const base::FileDescriptor probe(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  int buffer = 0;
  socklen_t size = sizeof(buffer);
  if (getsockopt(probe.get(), SOL_SOCKET, SO_SNDBUF, &buffer, &size) < 0 || buffer < 0) return kSafeLine;
  return std::max(static_cast<std::size_t>(buffer), kSafeLine + kLineHead) - kLineHead;
}

bool IsInsideCharacter(std::string_view text, std::size_t position) {
  return position < text.size() && (static_cast<unsigned char>(text[position]) & 0xC0U) == 0x80U;
}

class SystemLogSink : public LogSink {
 public:
  void Write(int priority, std::string_view text) override {
    const std::string line = CutInTheMiddle(text, text.size() <= kSafeLine ? kSafeLine : LongestLine());
    // The text is never the format, because paths and names in it may hold percent signs.
    syslog(priority, "%s", line.c_str());
  }
};

LogSink*& CurrentSink() {
  static SystemLogSink system_log;
  static thread_local LogSink* current = &system_log;
  return current;
}

}  // namespace

std::string CutInTheMiddle(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return std::string(text);
  const std::size_t kept = limit - kCutMark.size();
  std::size_t head = kept / 2;
  std::size_t tail = text.size() - (kept - head);
  // A character has at most three bytes behind its first; text that is no UTF-8 is cut anywhere.
  for (int i = 0; i < 3 && head > 0 && IsInsideCharacter(text, head); ++i) --head;
  for (int i = 0; i < 3 && IsInsideCharacter(text, tail); ++i) ++tail;
  return std::string(text.substr(0, head)).append(kCutMark).append(text.substr(tail));
}

void WriteToSink(int priority, std::string_view text) { CurrentSink()->Write(priority, text); }

bool CheckErrno(int result, const PrintfFormat<std::string, std::string, int>& failure,
                const std::string& path) {
  const base::Errno error = base::Errno::Last();
  return CheckOrLog<int, std::string, std::string, int>(result, failure, path, error.Text(), error.number());
}

ScopedSink::ScopedSink(LogSink& sink) : before_(CurrentSink()) { CurrentSink() = &sink; }
ScopedSink::~ScopedSink() { CurrentSink() = before_; }

}  // namespace logger
