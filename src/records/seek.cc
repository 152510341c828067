// Seeking on the current key and the special seek key.
#include "records/seek.h"

#include <algorithm>
#include <string>
#include <vector>

#include "platform/codepage.h"
#include "platform/fault.h"
#include "records/edit_values.h"
#include "records/key_text.h"
#include "records/record_codecs.h"
#include "table/channel.h"

namespace tqdb {
namespace {

constexpr int16_t kFound = 0;
constexpr int16_t kNotFound = 12;
constexpr int16_t kBeforeFirst = 13;
constexpr int16_t kAfterLast = 15;

void CheckKey(int16_t Key) {
  if (Key < 1 || Key > kMaxKeys) throw platform::Fault(platform::kSubscript);
}

// The length of key Key's text: the plain sum of its segment lengths.
size_t KeyTextLength(const TableState& State, int16_t Key) {
  CheckKey(Key);
  size_t Length = 0;
  for (int S = 1; S <= State.KeySegCount[Key] && S <= kMaxSegments; ++S) {
    Length += static_cast<size_t>(std::max<int16_t>(State.KeySegLength[Key][S], 0));
  }
  return Length;
}

std::string Fit(std::string Text, size_t Width) {
  Text.resize(Width, ' ');
  return Text;
}

// The text one array element gives segment Segment of key Key, before it is fitted to
// the segment's length.
std::string SegmentText(const TableState& State, int16_t Key, int Segment, const Variant& Value) {
  const int16_t Field = State.KeySegField[Key][Segment];
  const bool OnField = Field >= 1 && Field <= State.NumFields &&
                       static_cast<size_t>(Field) < State.FieldTypes.size();
  if (OnField && IsBinaryType(State.FieldTypes[static_cast<size_t>(Field)])) {
    const int16_t Type = State.FieldTypes[static_cast<size_t>(Field)];
    const std::string Stored = EncodeBinaryField(Type, NumberFromBuffer(Value, Type));
    const size_t From =
        static_cast<size_t>(std::max<int16_t>(State.KeySegStart[Key][Segment], 1) - 1);
    return From < Stored.size() ? Stored.substr(From) : std::string();
  }
  return KeyTextFromValues({Value});
}

std::string SpecialSeekKeyArgument(const Variant& KeyValues) {
  return platform::Utf8ToCp1252(KeyValues.ToString());
}

std::string FileNoText(const TableState& State) { return std::to_string(State.DataFileNo); }

void Search(TableState& State, const std::string& Value) {
  SendCommand(State, "S\\" + std::to_string(State.Index) + "\\" + FileNoText(State) + "\\" + Value);
}

void Next(TableState& State) { SendCommand(State, "N\\" + FileNoText(State)); }

// adSeekLastEQ: from the first equal entry on, step while the entries still equal Value.
// The record returned is the last equal one, with status 0.
void SeekLastEqual(TableState& State, const std::string& Value) {
  Search(State, Value);
  if (State.LastError != kFound) return;
  const std::string Wanted = platform::UpperCase(Value);
  int32_t Last = State.EngineResult;
  for (;;) {
    Next(State);
    if (State.LastError != kFound) break;
    if (platform::UpperCase(RecordKeyText(State, State.Index, State.EngineResult)) != Wanted) {
      break;
    }
    Last = State.EngineResult;
  }
  State.EngineResult = Last;
  State.LastError = kFound;
}

}  // namespace

std::string RecordKeyText(const TableState& State, int16_t Key, int32_t Record) {
  CheckKey(Key);
  return KeyTextFromRecord(State, Key, GetFullReg(State, Record, State.DataFileNo), false);
}

std::string GetSpecialSeekKeys(const TableState& State, std::string& Bytes) {
  Bytes.clear();
  if (State.EngineResult <= 0) return "";
  CheckKey(State.Index);
  Bytes = GetFullReg(State, State.EngineResult, State.DataFileNo);
  return std::to_string(State.Index) + "\\" + std::to_string(State.EngineResult) + "\\" +
         FileNoText(State) + "\\" + KeyTextFromRecord(State, State.Index, Bytes, false);
}

std::string GetSpecialSeekKeys(const TableState& State) {
  std::string Bytes;
  return GetSpecialSeekKeys(State, Bytes);
}

std::string SeekValue(const TableState& State, int16_t Key, const Variant& KeyValues) {
  const size_t Length = KeyTextLength(State, Key);
  if (KeyValues.Type() != VarType::Array) return Fit(TextFromBuffer(KeyValues), Length);
  const std::vector<Variant>& Elements = KeyValues.Elements();
  std::string Value;
  for (int S = 1; S <= State.KeySegCount[Key] && S <= kMaxSegments; ++S) {
    if (static_cast<size_t>(S) > Elements.size()) break;
    const size_t SegmentLength =
        static_cast<size_t>(std::max<int16_t>(State.KeySegLength[Key][S], 0));
    Value += Fit(SegmentText(State, Key, S, Elements[static_cast<size_t>(S) - 1]), SegmentLength);
  }
  return Fit(std::move(Value), Length);
}

int32_t SeekKey(TableState& State, const Variant& KeyValues, int32_t SeekOption) {
  switch (SeekOption) {
    case 1:
    case 2:
    case 4:
    case 8:
    case 16:
    case 32:
      break;
    default:
      return 0;
  }
  State.ResumeFromSaved = false;
  if (SeekOption == 8) {
    SendCommand(State, "A\\" + SpecialSeekKeyArgument(KeyValues));
  } else if (SeekOption == 32) {
    SendCommand(State, "E\\" + SpecialSeekKeyArgument(KeyValues));
  } else {
    const std::string Value = SeekValue(State, State.Index, KeyValues);
    switch (SeekOption) {
      case 1:
        Search(State, Value);
        break;
      case 2:
        SeekLastEqual(State, Value);
        break;
      case 4:
        Search(State, Value);
        if (State.LastError == kNotFound) Next(State);
        if (State.LastError == kBeforeFirst) State.LastError = kFound;
        break;
      default:  // 16
        Search(State, Value);
        if (State.LastError == kNotFound || State.LastError == kAfterLast) State.LastError = kFound;
        break;
    }
  }
  if (State.LastError != kFound) State.EngineResult = 0;
  return State.EngineResult;
}

}  // namespace tqdb
