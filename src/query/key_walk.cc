#include "query/key_walk.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>

#include "engine/key_codec.h"
#include "platform/codepage.h"
#include "platform/fault.h"
#include "query/condition_match.h"
#include "query/like_pattern.h"
#include "records/record_codecs.h"
#include "table/channel.h"

namespace tqdb::query {
namespace {

using platform::CompareText;

constexpr int16_t kBeforeFirst = 13;
constexpr int16_t kNotFound = 12;
constexpr int16_t kPastLast = 15;
constexpr int16_t kEmptyKey = 16;

// The key text of the entry under the engine's cursor, read from its leaf buffer.
std::string_view CurrentKeyText(TableState& State) {
  EngineState& Engine = State.Engine;
  const int Leaf = Engine.LeafLevel;
  if (Leaf < 0 || Leaf >= kLevelBuffers || Engine.CurKeyLength <= 0) {
    throw platform::Fault(platform::kSubscript);
  }
  const engine::NodeView Node(Engine.Level[Leaf], Engine.CurKeyLength);
  const int Entry = Engine.Path[Leaf].Entry;
  if (Entry < 0 || Entry >= Node.Count()) throw platform::Fault(platform::kSubscript);
  return Node.KeyText(Entry);
}

// The field's own part of the current key text, without trailing blanks.
std::string_view CurrentSegment(TableState& State, size_t SegmentLength) {
  return platform::TrimRight(CurrentKeyText(State).substr(0, SegmentLength));
}

std::string FileNo(const TableState& State) { return std::to_string(State.DataFileNo); }

// Positions on the first entry whose key begins with Value ("G"), or on the first entry
// of the key when Value is empty ("F"). Leaves the status in LastError.
void Position(TableState& State, int16_t Key, std::string_view Value) {
  const std::string Head = std::to_string(Key) + "\\" + FileNo(State);
  if (Value.empty()) {
    SendCommand(State, "F\\" + Head);
  } else {
    SendCommand(State, "G\\" + Head + "\\" + std::string(Value));
  }
}

void Step(TableState& State, bool Forward) {
  SendCommand(State, (Forward ? "N\\" : "P\\") + FileNo(State));
}

bool RangePasses(FilterOp Op, std::string_view Segment, std::string_view Value) {
  const int Order = CompareText(Segment, Value);
  switch (Op) {
    case kOpGreaterEq:
      return Order >= 0;
    case kOpGreater:
      return Order > 0;
    case kOpLessEq:
      return Order <= 0;
    default:
      return Order < 0;
  }
}

// The first key (FieldKeyNo first) whose first segment is the whole of Field; 0 when none.
int16_t KeyOverField(const TableState& State, int16_t Field) {
  if (State.Engine.KeyFileNo == 0 || Field < 1 || Field > State.NumFields) return 0;
  const auto Qualifies = [&](int Key) {
    return Key >= 1 && Key <= State.KeyCount && Key <= kMaxKeys && State.KeySegCount[Key] >= 1 &&
           State.KeySegField[Key][1] == Field && State.KeySegStart[Key][1] == 1 &&
           State.KeySegLength[Key][1] >= State.FieldWidth[Field] &&
           State.Engine.KeyLen[Key] >= State.FieldWidth[Field];
  };
  const int First =
      static_cast<size_t>(Field) < State.FieldKeyNo.size() ? State.FieldKeyNo[Field] : 0;
  if (Qualifies(First)) return static_cast<int16_t>(First);
  for (int Key = 1; Key <= State.KeyCount && Key <= kMaxKeys; ++Key) {
    if (Qualifies(Key)) return static_cast<int16_t>(Key);
  }
  return 0;
}

// The one stored form of a field of binary Type that equals Value as the file pass compares
// them (condition_match.h); none when no stored form does, or when several do: 0 and -0
// in floating point, V and -V for a double under ABS.
std::optional<std::string> SoleStoredForm(const TableState& State, int16_t Type, double Value) {
  const auto Whole = [&](double Low, double High) {
    return Value == std::trunc(Value) && Value >= Low && Value <= High;
  };
  switch (Type) {
    case 1:
      if (!Whole(INT16_MIN, INT16_MAX)) return std::nullopt;
      break;
    case 4:
      if (!Whole(INT32_MIN, INT32_MAX)) return std::nullopt;
      break;
    case 2:
    case 6:
      if (!std::isfinite(Value) || std::fabs(Value) > FLT_MAX) return std::nullopt;
      Value = static_cast<float>(Value);  // fields are compared with the value as a single
      if (Value == 0) return std::nullopt;
      break;
    default:
      if (State.AbsMode || !std::isfinite(Value) || Value == 0) return std::nullopt;
  }
  return EncodeBinaryField(Type, Value);
}

// Walks the entries from the first whose key begins with Head (the first of the key when
// Head is empty) while they do, and adds each record that satisfies every condition of
// List, in list order (LIKE matching the upper-cased field text). Entries whose field
// part Fits rejects are not read.
template <typename Predicate>
void WalkFrom(TableState& State, int16_t Key, std::string_view Head, Predicate Fits,
              std::span<const FilterCondition> List, std::vector<int32_t>& Records,
              ProgressCounter& Progress) {
  Position(State, Key, Head);
  if (State.LastError == kNotFound) Step(State, true);
  if (State.LastError == kBeforeFirst) State.LastError = 0;
  while (State.LastError == 0) {
    const std::string_view KeyText = CurrentKeyText(State);
    if (KeyText.substr(0, Head.size()) != Head) break;
    const int32_t Record = State.EngineResult;
    const bool All = Fits(KeyText) && std::all_of(List.begin(), List.end(), [&](const auto& Each) {
                       return RecordMatches(State, Record, Each, true);
                     });
    if (All) Records.push_back(Record);
    Progress.Tick();
    Step(State, true);
  }
}

}  // namespace

int16_t WalkableKey(const TableState& State, int16_t Field) {
  if (Field < 1 || Field > State.NumFields) return 0;
  const int16_t Type = State.FieldTypes[Field];
  if (IsNumericFilterType(Type) || Type == 62 || Type == 74 || Type == 75) return 0;
  return KeyOverField(State, Field);
}

void WalkRange(TableState& State, int16_t Key, const FilterCondition& Condition,
               std::vector<int32_t>& Records, ProgressCounter& Progress) {
  const size_t Width = static_cast<size_t>(State.FieldWidth[Condition.Field]);
  const std::string_view Value = Condition.Text;
  const bool Forward = Condition.Op == kOpGreaterEq || Condition.Op == kOpGreater;
  Position(State, Key, Value.substr(0, Width));
  const int16_t Status = State.LastError;
  if (Status == kEmptyKey || Status == (Forward ? kPastLast : kBeforeFirst)) return;
  if (!Forward) {
    // Past every entry equal to the value first, so that the walk back misses none.
    while (RangePasses(kOpLessEq, CurrentSegment(State, Width), Value)) {
      Step(State, true);
      if (State.LastError != 0) break;
    }
  }
  while (true) {
    if (RangePasses(Condition.Op, CurrentSegment(State, Width), Value)) {
      Records.push_back(State.EngineResult);
    }
    Progress.Tick();
    Step(State, Forward);
    if (State.LastError != 0) break;
  }
}

void WalkEqual(TableState& State, int16_t Key, std::span<const FilterCondition> List,
               std::vector<int32_t>& Records, ProgressCounter& Progress) {
  const FilterCondition& Walked = List.front();
  const size_t Width = static_cast<size_t>(State.FieldWidth[Walked.Field]);
  const bool Like = Walked.Op == kOpLike;
  const std::string_view Head = Like ? PatternLiteralHead(Walked.Text) : Walked.Text;
  if (Head.size() > Width) return;  // a longer text is in no field
  // The key holds the field upper-cased, as the walk matches it: the key decides alone
  // which entries are worth reading.
  const auto Fits = [&](std::string_view KeyText) {
    const std::string_view Segment = platform::TrimRight(KeyText.substr(0, Width));
    return Like ? MatchesPattern(Segment, Walked.Text) : Segment == Walked.Text;
  };
  WalkFrom(State, Key, Head, Fits, List, Records, Progress);
}

bool WalkStoredNumber(TableState& State, const FilterCondition& Condition,
                      std::vector<int32_t>& Records, ProgressCounter& Progress) {
  const int16_t Key = KeyOverField(State, Condition.Field);
  if (Key == 0 || Condition.Op != kOpEqual) return false;
  const std::optional<std::string> Stored =
      SoleStoredForm(State, State.FieldTypes[Condition.Field], Condition.Number);
  if (!Stored) return false;
  // Key texts are upper-cased whole, stored bytes too: other numbers may share the text,
  // so every record is read and compared by its value.
  const std::string Head = platform::UpperCase(*Stored);
  const size_t First = Records.size();
  WalkFrom(
      State, Key, Head, [](std::string_view) { return true; }, std::span(&Condition, 1), Records,
      Progress);
  // Equal texts follow in the order of the key's later segments: record order, as a pass.
  std::sort(Records.begin() + static_cast<std::ptrdiff_t>(First), Records.end());
  return true;
}

void WalkDirect(TableState& State, std::string_view Text, std::vector<int32_t>& Records,
                ProgressCounter& Progress) {
  const auto IsDigit = [](char C) { return C >= '0' && C <= '9'; };
  if (Text.size() < 3 || !IsDigit(Text[1]) || !IsDigit(Text[2])) {
    RaiseFilterError(kFilterConnectorError, Text);
  }
  const int16_t Key = static_cast<int16_t>((Text[1] - '0') * 10 + (Text[2] - '0'));
  if (Key < 1 || Key > State.KeyCount || Key > kMaxKeys || State.Engine.KeyFileNo == 0) {
    RaiseFilterError(kFilterConnectorError, Text);
  }
  const std::string_view Value = Text.substr(3);
  Position(State, Key, Value);
  if (State.LastError == kNotFound) {
    Step(State, true);
  } else if (State.LastError == kBeforeFirst) {
    Step(State, false);
  } else if (State.LastError != kPastLast && State.LastError != kEmptyKey) {
    State.LastError = 0;
  }
  while (State.LastError == 0) {
    if (CurrentKeyText(State).substr(0, Value.size()) != Value) break;
    Records.push_back(State.EngineResult);
    Progress.Tick();
    Step(State, true);
  }
}

}  // namespace tqdb::query
