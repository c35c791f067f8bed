// The streams of a run that somebody has started by hand, with its progress beside what it prints.
#pragma once

#include <optional>
#include <ostream>
#include <sstream>

#include "updater/progress_line.h"

namespace updater {

// Where `err` is no terminal, the streams of the run are those given, and nobody watches. Otherwise lines go
// to them whole, and the progress line makes room for each.
class TerminalProgress {
 public:
  // The streams are borrowed; `err_file` is the descriptor behind `err`.
  TerminalProgress(std::ostream& out, std::ostream& err, int err_file);

  [[nodiscard]] std::ostream& out() { return beside_ ? beside_->out : out_; }
  [[nodiscard]] std::ostream& err() { return beside_ ? beside_->err : err_; }
  [[nodiscard]] RunObserver* observer() { return beside_ ? &beside_->line : nullptr; }

 private:
  // Holds back what does not end a line yet.
  class LineBuffer : public std::stringbuf {
   public:
    LineBuffer(ProgressLine& line, std::ostream& target) : line_(line), target_(target) {}
    LineBuffer(const LineBuffer&) = delete;
    LineBuffer& operator=(const LineBuffer&) = delete;
    ~LineBuffer() override { (void)LineBuffer::sync(); }  // cannot fail

   protected:
    int sync() override;

   private:
    ProgressLine& line_;
    std::ostream& target_;
  };

  struct Beside {
    Beside(std::ostream& real_out, std::ostream& real_err, int err_file);

    ProgressLine line;
    LineBuffer out_buffer;
    LineBuffer err_buffer;
    std::ostream out;
    std::ostream err;
  };

  std::ostream& out_;
  std::ostream& err_;
  std::optional<Beside> beside_;
};

}  // namespace updater
