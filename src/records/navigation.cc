// Navigation over a key (engine commands) or over a filter result (FilterList).
#include "records/navigation.h"

#include <algorithm>
#include <string>

#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/numbers.h"
#include "table/channel.h"

namespace tqdb {
namespace {

// The highest element of FilterList in use; 0 for an empty result.
int32_t UpperBound(const TableState& State) {
  return State.FilterList.empty() ? 0 : static_cast<int32_t>(State.FilterList.size()) - 1;
}

// Element Place of FilterList; 0 (no record) for a place outside the list.
int32_t Element(const TableState& State, int32_t Place) {
  if (Place < 0 || Place > UpperBound(State) || State.FilterList.empty()) return 0;
  return State.FilterList[static_cast<size_t>(Place)];
}

std::string FileNoText(const TableState& State) { return std::to_string(State.DataFileNo); }

void FilterMoveTo(TableState& State, int32_t Place) {
  State.FilterPos = Place;
  State.EngineResult = Element(State, Place);
}

}  // namespace

void MoveFirst(TableState& State) {
  State.ResumeFromSaved = false;
  if (State.FilterActive) {
    if (UpperBound(State) >= 1) {
      FilterMoveTo(State, 1);
      State.LastError = 0;
    } else {
      FilterMoveTo(State, 0);
      State.LastError = 16;
    }
    return;
  }
  SendCommand(State, "F\\" + std::to_string(State.Index) + "\\" + FileNoText(State));
  if (State.LastError == 16) {
    State.EngineResult = 0;
  } else if (State.LastError != 0) {
    const int16_t Status = State.LastError;
    throw platform::Fault(Status, "Error Indexados " + std::to_string(Status));
  }
}

void MoveLast(TableState& State) {
  State.ResumeFromSaved = false;
  if (State.FilterActive) {
    FilterMoveTo(State, UpperBound(State));
    State.LastError = State.FilterPos > 0 ? 0 : 16;
    return;
  }
  SendCommand(State, "L\\" + std::to_string(State.Index) + "\\" + FileNoText(State));
}

void MoveNext(TableState& State) {
  if (State.FilterActive) {
    if (State.FilterPos < UpperBound(State)) {
      FilterMoveTo(State, std::max(State.FilterPos, -1) + 1);
    } else {
      State.LastError = 15;
    }
    return;
  }
  if (State.ResumeFromSaved) {
    SendCommand(State, "A\\" + State.PositionText);
    State.ResumeFromSaved = false;
  } else {
    SendCommand(State, "N\\" + FileNoText(State));
  }
}

void MovePrevious(TableState& State) {
  if (State.FilterActive) {
    if (State.FilterPos > 0) {
      FilterMoveTo(State, std::min(State.FilterPos, UpperBound(State) + 1) - 1);
    } else {
      State.LastError = 13;
    }
    return;
  }
  if (State.ResumeFromSaved) {
    SendCommand(State, "E\\" + State.PositionText);
    State.ResumeFromSaved = false;
  } else {
    SendCommand(State, "P\\" + FileNoText(State));
  }
}

int32_t BookMark(const TableState& State) {
  return State.FilterActive ? Element(State, State.FilterPos) : State.EngineResult;
}

void SetBookMark(TableState& State, int32_t Record) {
  if (!State.FilterActive) {
    State.EngineResult = Record;
    return;
  }
  for (int32_t Place = 1; Place <= UpperBound(State); ++Place) {
    if (State.FilterList[static_cast<size_t>(Place)] == Record) {
      State.FilterPos = Place;
      break;
    }
  }
  State.EngineResult = Element(State, State.FilterPos);
}

int32_t Position(const TableState& State) {
  return State.FilterActive ? State.FilterPos : State.EngineResult;
}

void SetPosition(TableState& State, int32_t Place) {
  if (!State.FilterActive) return;
  if (Place > UpperBound(State)) {
    State.EngineResult = 0;
    return;
  }
  if (Place < 0) throw platform::Fault(platform::kSubscript);
  FilterMoveTo(State, Place);
}

int32_t RecordCount(const TableState& State) {
  if (State.FilterActive) return UpperBound(State);
  if (State.RecordLength <= 0 || State.DataFileNo <= 0) return 0;
  if (!platform::IsOpen(State.DataFileNo)) return 0;
  const double Places = static_cast<double>(platform::Length(State.DataFileNo)) /
                        static_cast<double>(State.RecordLength);
  return platform::ToInt32(platform::RoundHalfEven(Places));
}

}  // namespace tqdb
