// Shows the Progress event of long operations on stdout: a bar redrawn in place on a
// terminal, plain "label: N%" lines when stdout is a file or a pipe (the first value, then
// one line per ten points at most, and 100).
#pragma once

#include <cstdint>
#include <string>

namespace tqdb::tool {

class ProgressBar {
 public:
  // TerminalOnly: show nothing when stdout is not a terminal.
  explicit ProgressBar(std::string Label, bool TerminalOnly = false);
  ~ProgressBar();  // ends the bar's line
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  // Shows Percentage (clamped to 0..100). Repeated values are not shown again.
  void Update(int32_t Percentage);
  // Ends the bar's line on a terminal; later updates start a new one.
  void Finish();

 private:
  std::string label_;
  bool terminal_;
  bool silent_;
  bool drawn_ = false;
  int32_t last_ = -1;
  int32_t printed_ = -1;  // last value printed as a plain line
};

}  // namespace tqdb::tool
