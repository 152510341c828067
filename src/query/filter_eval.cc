#include "query/filter_eval.h"

#include <algorithm>
#include <string>
#include <unordered_set>

#include "platform/codepage.h"
#include "platform/fault.h"
#include "query/condition_match.h"
#include "query/data_scan.h"
#include "query/filter_parser.h"
#include "query/key_walk.h"
#include "query/progress_counter.h"

namespace tqdb::query {
namespace {

using platform::Trim;
constexpr size_t kNone = std::string::npos;

// One pass over the data file in record order, skipping deleted records.
void FilePass(TableState& State, const FilterCondition& Condition, RecordList& Records) {
  ProgressCounter Progress(State, DataRecordCount(State));
  if (Condition.Op == kOpNone) return;
  const int64_t Offset = State.FieldOffset[Condition.Field];
  const int64_t Width = State.FieldWidth[Condition.Field];
  if (Offset < 0 || Width < 0 || Offset + Width > State.RecordLength) {
    throw platform::Fault(platform::kSubscript);
  }
  ForEachLiveRecord(
      State,
      [&](int32_t Record, std::string_view Bytes) {
        if (FieldBytesMatch(State, Condition, Bytes.substr(Offset, Width))) {
          Records.push_back(Record);
        }
      },
      &Progress);
}

// Conditions joined by " AND " only, as the flat evaluator would split them.
std::vector<std::string> SplitAtAnd(std::string Text) {
  std::vector<std::string> Parts;
  for (size_t At = Text.find(" AND "); At != kNone; At = Text.find(" AND ")) {
    Parts.emplace_back(Trim(std::string_view(Text).substr(0, At)));
    Text = std::string(Trim(std::string_view(Text).substr(At + 4)));
  }
  if (!Text.empty()) Parts.push_back(Text);
  return Parts;
}

// OR appends the group's records; AND keeps the members that the group also holds.
void Combine(RecordList& Records, const RecordList& Group, int Mode) {
  if (Mode == 0) {
    Records.insert(Records.end(), Group.begin(), Group.end());
    return;
  }
  const std::unordered_set<int32_t> Held(Group.begin(), Group.end());
  std::erase_if(Records, [&](int32_t Record) { return !Held.contains(Record); });
}

// The text up to the first blank (all of it when there is none) and the trimmed rest.
std::pair<std::string, std::string> FirstWord(std::string_view Text) {
  const size_t Blank = Text.find(' ');
  if (Blank == kNone) return {std::string(Text), ""};
  return {std::string(Text.substr(0, Blank)), std::string(Trim(Text.substr(Blank + 1)))};
}

// The text before the last blank (trimmed) and the word after it.
std::pair<std::string, std::string> LastWord(std::string_view Text) {
  const size_t Blank = Text.rfind(' ');
  if (Blank == kNone) return {"", std::string(Text)};
  return {std::string(Trim(Text.substr(0, Blank))), std::string(Text.substr(Blank + 1))};
}

}  // namespace

void ScanCondition(TableState& State, std::string_view Condition, RecordList& Records,
                   std::string* Rest) {
  if (!Condition.empty() && Condition.front() == '\\') {
    ProgressCounter Progress(State, DataRecordCount(State));
    WalkDirect(State, Condition, Records, Progress);
    return;
  }
  const FilterCondition Parsed = ParseCondition(State, Condition);
  if (Parsed.Op == kOpNone) return;
  // A number's key orders its stored bytes, not its value: only "=" may walk it, and
  // later conditions are left to the narrowing step, as after a pass.
  if (Parsed.Numeric && Parsed.Op == kOpEqual) {
    ProgressCounter Progress(State, DataRecordCount(State));
    if (WalkStoredNumber(State, Parsed, Records, Progress)) return;
  }
  const int16_t Key = Parsed.Op == kOpNotEqual ? 0 : WalkableKey(State, Parsed.Field);
  const bool Equal = Parsed.Op == kOpEqual || Parsed.Op == kOpLike;
  // A LIKE without a literal head walks the whole key; an empty "=" value takes the pass.
  if (Key == 0 || Parsed.Op == kOpDirectKey || (Parsed.Op == kOpEqual && Parsed.Text.empty())) {
    FilePass(State, Parsed, Records);
    return;
  }
  ProgressCounter Progress(State, DataRecordCount(State));
  if (!Equal) {
    WalkRange(State, Key, Parsed, Records, Progress);
    return;
  }
  std::vector<FilterCondition> List{Parsed};
  if (Rest != nullptr && Rest->find(" OR ") == kNone) {
    for (const std::string& Each : SplitAtAnd(*Rest)) List.push_back(ParseCondition(State, Each));
    Rest->clear();
  }
  WalkEqual(State, Key, List, Records, Progress);
}

RecordList NarrowByCondition(TableState& State, std::string_view Condition,
                             const RecordList& Records) {
  const FilterCondition Parsed = ParseCondition(State, Condition);
  ProgressCounter Progress(State, static_cast<int64_t>(Records.size()));
  RecordList Kept;
  for (int32_t Record : Records) {
    if (RecordMatches(State, Record, Parsed)) Kept.push_back(Record);
    Progress.Tick();
  }
  return Kept;
}

void EvalFlatFilter(TableState& State, std::string_view Expr, RecordList& Records, int Mode) {
  std::string Text(Expr);
  bool First = true;
  const auto Apply = [&](std::string_view Condition, std::string* Rest) {
    if (Mode == 0) {
      ScanCondition(State, Condition, Records, Rest);
    } else {
      Records = NarrowByCondition(State, Condition, Records);
    }
  };
  while (true) {
    const size_t And = Text.find(" AND ");
    const size_t Or = Text.find(" OR ");
    if (And == kNone && Or == kNone) break;
    const bool IsAnd = And < Or;
    const size_t At = IsAnd ? And : Or;
    const std::string Condition(Trim(std::string_view(Text).substr(0, At)));
    std::string Rest(Trim(std::string_view(Text).substr(At + (IsAnd ? 4 : 3))));
    // Later conditions join a key walk only when they cannot change its meaning: the walk
    // is the first union into an empty collection and only ANDs follow.
    const bool MayFold = First && Mode == 0 && Records.empty() && IsAnd;
    Apply(Condition, MayFold ? &Rest : nullptr);
    First = false;
    Mode = IsAnd ? 1 : 0;
    Text = std::move(Rest);
  }
  if (!Text.empty()) Apply(Text, nullptr);
}

void EvalGroupedFilter(TableState& State, std::string_view Expr, RecordList& Records) {
  std::string Text(Trim(Expr));
  int Mode = 0;
  if (!Text.empty() && Text.front() == '(') {
    Text.erase(0, 1);
  } else {
    const size_t Open = Text.find('(');
    if (Open == kNone) {
      EvalFlatFilter(State, Text, Records, 0);
      return;
    }
    const std::string Head(Trim(std::string_view(Text).substr(0, Open)));
    Mode = ConnectorCode(
        std::string_view(Head).substr(Head.size() - std::min<size_t>(3, Head.size())));
    EvalFlatFilter(State, LastWord(Head).first, Records, 0);
    Text.erase(0, Open + 1);
  }
  while (true) {
    const size_t Close = Text.find(')');
    if (Close == kNone) break;
    RecordList Group;
    EvalFlatFilter(State, std::string_view(Text).substr(0, Close), Group, 0);
    Combine(Records, Group, Mode);
    Text = std::string(Trim(std::string_view(Text).substr(Close + 1)));
    if (Text.empty()) break;
    const size_t Open = Text.find('(');
    const std::string Between(Trim(std::string_view(Text).substr(0, Open)));
    Mode = ConnectorCode(std::string_view(Between).substr(0, 3));
    const std::string Middle = FirstWord(Between).second;
    if (Open == kNone) {
      Text = Middle;  // conditions after the last group
      break;
    }
    if (!Middle.empty()) {
      // Conditions between two groups, then the connector that joins the next group.
      const auto [Conditions, Connector] = LastWord(Middle);
      const int Next = ConnectorCode(Connector);
      EvalFlatFilter(State, Conditions, Records, Mode);
      Mode = Next;
    }
    Text.erase(0, Open + 1);
    if (Text.find(')') == kNone) RaiseFilterError(kFilterGroupError, Text);
  }
  if (!Text.empty()) EvalFlatFilter(State, Text, Records, Mode);
}

}  // namespace tqdb::query
