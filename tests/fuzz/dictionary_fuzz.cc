// Fuzz target: the dictionary loader. Each input is a dictionary file's bytes. Parsing
// either raises a Fault (subscript 9 or overflow 6, with a description) or gives a
// dictionary whose every count, width, offset and key segment lies inside its record,
// which is then applied to a table's state and used to cut key texts from a record.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz_support.h"
#include "platform/fault.h"
#include "records/key_text.h"
#include "table/TableState.h"
#include "table/dictionary.h"

namespace {

using namespace tqdb;

void CheckShape(const Dictionary& D) {
  if (D.NumFields < 0 || D.NumFields > kMaxFields) fuzz::Finding("field count out of range");
  const size_t N = static_cast<size_t>(D.NumFields);
  if (D.FieldWidth.size() < N + 1 || D.FieldTypes.size() < N + 1 || D.FieldOffset.size() < N + 2) {
    fuzz::Finding("per-field arrays shorter than the field count");
  }
  int32_t Sum = 0;
  for (size_t F = 1; F <= N; ++F) {
    if (D.FieldWidth[F] < 0) fuzz::Finding("negative field width");
    if (D.FieldOffset[F] != Sum) fuzz::Finding("field offset is not the sum of the widths");
    Sum += D.FieldWidth[F];
  }
  if (Sum != D.RecordLength || D.RecordLength > 32766) fuzz::Finding("record length");
  if (D.KeyCount < 0 || D.KeyCount > kMaxKeys) fuzz::Finding("key count out of range");
  for (int K = 1; K <= D.KeyCount; ++K) {
    if (D.KeySegCount[K] < 0 || D.KeySegCount[K] > kMaxSegments) fuzz::Finding("segment count");
    if (D.KeyTextLength(K) > 255) fuzz::Finding("key text longer than 255");
    for (int S = 1; S <= D.KeySegCount[K]; ++S) {
      const int Field = D.KeySegField[K][S];
      if (Field < 1 || Field > D.NumFields) fuzz::Finding("segment of a field that is not there");
      if (D.KeySegStart[K][S] < 1 || D.KeySegLength[K][S] < 1 ||
          D.FieldOffset[Field] + D.KeySegStart[K][S] - 1 + D.KeySegLength[K][S] > D.RecordLength) {
        fuzz::Finding("segment outside the record");
      }
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Data, size_t Size) {
  const std::string_view Bytes(reinterpret_cast<const char*>(Data), Size);
  Dictionary Dict;
  try {
    Dict = ParseDictionary(Bytes);
  } catch (const platform::Fault& Fault) {
    if (Fault.Description().empty()) fuzz::Finding("fault without a description");
    return 0;
  }
  CheckShape(Dict);
  TableState State;
  ApplyDictionary(State, Dict);
  KeyShape(State);
  const std::string Record(static_cast<size_t>(Dict.RecordLength), 'x');
  for (int16_t K = 1; K <= Dict.KeyCount; ++K) {
    if (KeyTextFromRecord(State, K, Record, true).size() !=
        static_cast<size_t>(Dict.KeyTextLength(K))) {
      fuzz::Finding("key text length differs from the key's length");
    }
  }
  return 0;
}
