#include "progress_bar.h"

#include <unistd.h>

#include <algorithm>
#include <iomanip>
#include <iostream>

namespace tqdb::tool {
namespace {
constexpr int kBarWidth = 40;
}

ProgressBar::ProgressBar(std::string Label, bool TerminalOnly)
    : label_(std::move(Label)),
      terminal_(isatty(STDOUT_FILENO) == 1),
      silent_(TerminalOnly && !terminal_) {}

ProgressBar::~ProgressBar() { Finish(); }

void ProgressBar::Update(int32_t Percentage) {
  Percentage = std::clamp<int32_t>(Percentage, 0, 100);
  if (silent_ || Percentage == last_) return;
  last_ = Percentage;
  if (!terminal_) {
    // Plain lines: the first value, then steps of at least ten points, and the end.
    if (printed_ >= 0 && Percentage < printed_ + 10 && Percentage != 100) return;
    printed_ = Percentage;
    std::cout << label_ << ": " << Percentage << "%\n" << std::flush;
    return;
  }
  const int Filled = Percentage * kBarWidth / 100;
  std::cout << '\r' << label_ << " [" << std::string(static_cast<size_t>(Filled), '#')
            << std::string(static_cast<size_t>(kBarWidth - Filled), '-') << "] " << std::setw(3)
            << Percentage << "%" << std::flush;
  drawn_ = true;
}

void ProgressBar::Finish() {
  if (drawn_) std::cout << '\n' << std::flush;
  drawn_ = false;
  last_ = -1;
  printed_ = -1;
}

}  // namespace tqdb::tool
