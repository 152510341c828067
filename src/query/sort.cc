#include "query/sort.h"

#include <cmath>
#include <mutex>
#include <numeric>
#include <string>
#include <vector>

#include "platform/codepage.h"
#include "platform/fault.h"
#include "query/data_scan.h"
#include "query/filter_parser.h"
#include "query/quicksort.h"
#include "records/field_access.h"
#include "records/navigation.h"
#include "records/record_codecs.h"

namespace tqdb::query {
namespace {

using platform::Trim;

// The process-wide work arrays: keys (text sorts), values (number sorts) and the order
// array that the quicksort permutes.
struct SortWork {
  std::mutex Mutex;
  std::vector<std::string> SortKeys;
  std::vector<double> SortValues;
  std::vector<int32_t> SortOrder;

  void Release() {
    std::vector<std::string>().swap(SortKeys);
    std::vector<double>().swap(SortValues);
    std::vector<int32_t>().swap(SortOrder);
  }
};

SortWork& Work() {
  static SortWork Shared;
  return Shared;
}

struct SortPlan {
  std::vector<int16_t> Fields;
  bool Descending = false;
  bool Absolute = false;
  bool ByNumber = false;
};

int16_t LookUpField(const TableState& State, std::string_view Name) {
  const std::string Utf8 = platform::Cp1252ToUtf8(Name);
  const int16_t Field = FieldNumber(State, Variant(Utf8));
  if (Field < 1 || Field > State.NumFields) {
    throw platform::Fault(50234, "Campo " + Utf8 + " no existe");
  }
  return Field;
}

SortPlan MakePlan(const TableState& State, std::string_view SortFields) {
  SortPlan Plan;
  std::string Spec(SortFields);
  if (Spec.size() >= 4 && platform::UpperCase(Spec.substr(Spec.size() - 4)) == "DESC") {
    Plan.Descending = true;
    Spec = std::string(Trim(std::string_view(Spec).substr(0, Spec.size() - 4)));
  }
  if (Spec.find('+') != std::string::npos) {
    size_t Start = 0;
    while (true) {
      const size_t Plus = Spec.find('+', Start);
      Plan.Fields.push_back(LookUpField(
          State, Trim(std::string_view(Spec).substr(
                     Start, Plus == std::string::npos ? std::string::npos : Plus - Start))));
      if (Plus == std::string::npos) break;
      Start = Plus + 1;
    }
    return Plan;
  }
  std::string_view Name = Spec;
  if (platform::UpperCase(Name.substr(0, 3)) == "ABS") {
    // "ABS(" and the last character go.
    Plan.Absolute = true;
    Name = Name.size() > 5 ? Name.substr(4, Name.size() - 5) : std::string_view();
  }
  Plan.Fields.push_back(LookUpField(State, Name));
  Plan.ByNumber = IsNumericFilterType(State.FieldTypes[Plan.Fields.front()]);
  return Plan;
}

// The view of every live record, in file order.
void MakeViewOfAllRecords(TableState& State) {
  std::vector<int32_t> List{0};
  ForEachLiveRecord(State, [&](int32_t Record, std::string_view) { List.push_back(Record); });
  State.FilterList = std::move(List);
  State.FilterPos = 0;
  State.FilterActive = true;
}

double NumberKey(const TableState& State, int32_t Record, int16_t Field, bool Absolute) {
  if (Record <= 0) return 0;
  double Value = 0;
  switch (State.FieldTypes[Field]) {
    case 1:
      Value = GetInteger(State, Record, Field);
      break;
    case 2:
    case 6:
      Value = GetSingle(State, Record, Field);
      break;
    case 4:
      Value = GetLong(State, Record, Field);
      break;
    default:
      Value = GetDouble(State, Record, Field);
  }
  return Absolute ? std::fabs(Value) : Value;
}

std::string TextKey(const TableState& State, int32_t Record, const std::vector<int16_t>& Fields) {
  std::string Key;
  if (Record <= 0) return Key;
  for (int16_t Field : Fields) Key += GetField(State, Record, Field, false);
  return Key;
}

// Reads each record's key once into the work arrays and sorts the order array.
void SortOrderOf(const TableState& State, const SortPlan& Plan, SortWork& Work) {
  const std::vector<int32_t>& List = State.FilterList;
  const auto Count = static_cast<int32_t>(List.size() - 1);
  Work.SortOrder.resize(Count);
  std::iota(Work.SortOrder.begin(), Work.SortOrder.end(), 0);
  if (Plan.ByNumber) {
    Work.SortValues.resize(Count);
    for (int32_t I = 0; I < Count; ++I) {
      Work.SortValues[I] = NumberKey(State, List[I + 1], Plan.Fields.front(), Plan.Absolute);
    }
    const std::vector<double>& Values = Work.SortValues;
    QuickSortOrder(Work.SortOrder, 0, Count - 1, [&](int32_t A, int32_t B) {
      return (Values[A] > Values[B]) - (Values[A] < Values[B]);
    });
  } else {
    Work.SortKeys.resize(Count);
    for (int32_t I = 0; I < Count; ++I) Work.SortKeys[I] = TextKey(State, List[I + 1], Plan.Fields);
    const std::vector<std::string>& Keys = Work.SortKeys;
    QuickSortOrder(Work.SortOrder, 0, Count - 1,
                   [&](int32_t A, int32_t B) { return platform::CompareText(Keys[A], Keys[B]); });
  }
}

}  // namespace

// The view of all records comes first: a field name that is not found leaves it on, and
// an empty view never looks the names up.
void Sort(TableState& State, std::string_view SortFields) {
  if (!State.FilterActive) MakeViewOfAllRecords(State);
  if (State.FilterList.size() < 2) {
    State.FilterPos = 0;
    return;
  }
  const SortPlan Plan = MakePlan(State, SortFields);
  SortWork& Shared = Work();
  std::lock_guard Lock(Shared.Mutex);
  struct ReleaseOnExit {
    SortWork& Work;
    ~ReleaseOnExit() { Work.Release(); }
  } Release{Shared};
  SortOrderOf(State, Plan, Shared);
  const std::vector<int32_t> Old = State.FilterList;
  const size_t Count = Old.size() - 1;
  for (size_t K = 0; K < Count; ++K) {
    const size_t From = Plan.Descending ? Count - 1 - K : K;
    State.FilterList[K + 1] = Old[static_cast<size_t>(Shared.SortOrder[From]) + 1];
  }
  MoveFirst(State);
}

}  // namespace tqdb::query
