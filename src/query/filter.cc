#include "query/filter.h"

#include <algorithm>
#include <string>
#include <utility>

#include "platform/codepage.h"
#include "query/filter_eval.h"
#include "query/filter_parser.h"

namespace tqdb::query {
namespace {

constexpr int16_t kNoRecords = 16;

// Keeps the entries above 0 in order; the place stays inside the list.
void CleanFilterList(TableState& State) {
  std::vector<int32_t> Kept{0};
  for (size_t I = 1; I < State.FilterList.size(); ++I) {
    if (State.FilterList[I] > 0) Kept.push_back(State.FilterList[I]);
  }
  State.FilterList = std::move(Kept);
  const auto Count = static_cast<int32_t>(State.FilterList.size() - 1);
  State.FilterPos = std::clamp(State.FilterPos, 0, Count);
}

// Turns AbsMode off however the evaluation ends.
class AbsModeScope {
 public:
  explicit AbsModeScope(TableState& State) : state_(State) {}
  ~AbsModeScope() { state_.AbsMode = false; }
  AbsModeScope(const AbsModeScope&) = delete;
  AbsModeScope& operator=(const AbsModeScope&) = delete;

 private:
  TableState& state_;
};

RecordList Evaluate(TableState& State, std::string& Text) {
  RecordList Records;
  if (Text.front() == '\\') {
    ScanCondition(State, Text, Records);
    return Records;
  }
  if (Text.starts_with("ABS")) {
    // "ABS(" and the closing ")" go: ABS(IMPORTE > 100) is IMPORTE > 100.
    State.AbsMode = true;
    Text.pop_back();
    Text.erase(0, std::min<size_t>(4, Text.size()));
  }
  if (IsGroupedFilter(Text)) {
    EvalGroupedFilter(State, Text, Records);
  } else {
    EvalFlatFilter(State, Text, Records, 0);
  }
  return Records;
}

}  // namespace

void Filter(TableState& State, std::string_view Parameters) {
  State.LastError = 0;
  if (Parameters.empty()) {
    State.FilterActive = false;
    return;
  }
  std::string Text = platform::UpperCase(Parameters);
  if (Text == "CLEAN") {
    CleanFilterList(State);
    return;
  }
  RecordList Records;
  {
    AbsModeScope Abs(State);
    Records = Evaluate(State, Text);
  }
  State.FilterActive = true;
  State.FilterList.assign(1, 0);
  State.FilterList.insert(State.FilterList.end(), Records.begin(), Records.end());
  if (Records.empty()) {
    State.EngineResult = 0;
    State.FilterPos = 0;
    State.LastError = kNoRecords;
  } else {
    State.EngineResult = State.FilterList[1];
    State.FilterPos = 1;
    State.LastError = 0;
  }
}

}  // namespace tqdb::query
