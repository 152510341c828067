#include "query/data_scan.h"

#include <algorithm>
#include <limits>
#include <string>

#include "platform/file_pool.h"
#include "records/record_codecs.h"

namespace tqdb::query {
namespace {

constexpr int64_t kChunkBytes = 64 * 1024;

}  // namespace

int64_t DataRecordCount(const TableState& State) {
  if (State.RecordLength <= 0) return 0;
  const int64_t Count = platform::Length(State.DataFileNo) / State.RecordLength;
  return std::min<int64_t>(Count, std::numeric_limits<int32_t>::max());
}

void ForEachLiveRecord(const TableState& State,
                       const std::function<void(int32_t, std::string_view)>& Visit,
                       ProgressCounter* Progress) {
  const int64_t Count = DataRecordCount(State);
  const int64_t Length = State.RecordLength;
  // A record shorter than the mark cannot hold it whole; ask the record layer instead.
  const bool ShortRecords = Length < static_cast<int64_t>(kDeletedMark.size());
  const int64_t PerChunk = std::max<int64_t>(1, kChunkBytes / std::max<int64_t>(1, Length));
  for (int64_t First = 1; First <= Count; First += PerChunk) {
    const int64_t InChunk = std::min(PerChunk, Count - First + 1);
    const std::string Block = platform::ReadAt(
        State.DataFileNo, RecordPosition(State, static_cast<int32_t>(First)), InChunk * Length);
    for (int64_t K = 0; K < InChunk; ++K) {
      const auto Record = static_cast<int32_t>(First + K);
      const std::string_view Bytes = std::string_view(Block).substr(K * Length, Length);
      if (Progress != nullptr) Progress->Tick();
      const bool Deleted = ShortRecords ? IsAnulado(State, Record)
                                        : Bytes.substr(0, kDeletedMark.size()) == kDeletedMark;
      if (!Deleted) Visit(Record, Bytes);
    }
  }
}

}  // namespace tqdb::query
