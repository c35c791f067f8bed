// Counts the flushes of the program that it is loaded into (LD_PRELOAD). The count lies in a file that all
// processes of a measurement share, so that it can be read while they run.
//
//   BENCH_FLUSHES       the file; its first eight bytes are the count
//   BENCH_SKIP_FLUSHES  if set, nothing is flushed: for volumes that are only made to be measured later
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

namespace {

using Counter = std::atomic<unsigned long long>;

Counter* OpenCounter() {
  const char* const path = std::getenv("BENCH_FLUSHES");
  const int file = path == nullptr ? -1 : open(path, O_RDWR | O_CLOEXEC);
  if (file < 0) return nullptr;
  void* const mapped = mmap(nullptr, sizeof(Counter), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  (void)close(file);  // the mapping stays
  return mapped == MAP_FAILED ? nullptr : static_cast<Counter*>(mapped);
}

int Flush(long number, int file) {
  static Counter* const counter = OpenCounter();
  static const bool skip = std::getenv("BENCH_SKIP_FLUSHES") != nullptr;
  if (counter != nullptr) ++*counter;
  return skip ? 0 : static_cast<int>(syscall(number, file));
}

}  // namespace

extern "C" {
// The C library declares them.
int fsync(int file) { return Flush(SYS_fsync, file); }
int fdatasync(int file) { return Flush(SYS_fdatasync, file); }
int syncfs(int file) noexcept { return Flush(SYS_syncfs, file); }
}
