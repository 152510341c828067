// The Progress event of long filter steps.
//
// For a step over Total items (records of the data file, or entries of a collection):
// when Total is above 2000 the step size is Total x 0.01 rounded, and whenever the running
// 1-based index is a multiple of it Progress is raised with index / step rounded (about 1
// to 100). With 2000 items or fewer nothing is raised.
#pragma once

#include <cstdint>

#include "platform/numbers.h"
#include "table/TableState.h"

namespace tqdb::query {

inline constexpr int64_t kProgressThreshold = 2000;

class ProgressCounter {
 public:
  ProgressCounter(const TableState& State, int64_t Total) : state_(State) {
    if (Total > kProgressThreshold) {
      step_ = static_cast<int64_t>(platform::RoundHalfEven(static_cast<double>(Total) * 0.01));
    }
  }

  // Counts one item.
  void Tick() {
    ++index_;
    if (step_ > 0 && index_ % step_ == 0) {
      state_.RaiseProgress(static_cast<int32_t>(
          platform::RoundHalfEven(static_cast<double>(index_) / static_cast<double>(step_))));
    }
  }

 private:
  const TableState& state_;
  int64_t step_ = 0;  // 0: no progress reported
  int64_t index_ = 0;
};

}  // namespace tqdb::query
