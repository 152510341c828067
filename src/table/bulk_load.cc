// Bulk load: the mark, the exclusive use and the engine's memory image (see bulk_load.h).
#include "table/bulk_load.h"

#include <memory>

#include "engine/key_file.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/paths.h"
#include "platform/scoped_file_number.h"
#include "table/exclusive_use.h"

namespace tqdb {
namespace {

// The mark holds one byte, so that writing it is a change to a file like any other.
void WriteMark(const std::string& Path) {
  const platform::ScopedFileNumber Mark(Path, platform::OpenMode::Truncate);
  platform::WriteAt(Mark.get(), 1, std::string_view("B"));
  platform::Sync(Mark.get());
}

void DeleteMark(const std::string& Path) {
  if (platform::FileExists(Path)) platform::DeleteFile(Path);
}

}  // namespace

std::string BulkLoadMarkPath(const TableState& State) {
  return State.DataPath + State.TableName + State.TableSuffix + ".tqb";
}

void BeginBulkLoad(TableState& State) {
  EngineState& Engine = State.Engine;
  if (!State.DataFileOpen || State.DataFileNo <= 0 || Engine.KeyFileNo == 0) {
    throw platform::Fault(platform::kBadFileNumber);
  }
  if (State.BulkLoadHold || State.EditState != 0) throw platform::Fault(platform::kInvalidCall);
  auto Hold = std::make_unique<ExclusiveUse>(State.DataFileNo);
  const std::string Mark = BulkLoadMarkPath(State);
  WriteMark(Mark);
  try {
    // The header as it is on disk now; in image mode the copy in memory is the truth.
    engine::ReadHeader(Engine);
    engine::BeginKeyFileImage(Engine);
    platform::BeginWriteBehind(State.DataFileNo);
  } catch (...) {
    Engine.ImageMode = false;
    Engine.Image.clear();
    DeleteMark(Mark);
    throw;
  }
  Engine.Alone = true;
  State.BulkLoadHold = std::move(Hold);
}

void EndBulkLoad(TableState& State) {
  if (!State.BulkLoadHold) return;
  const std::unique_ptr<ExclusiveUse> Hold = std::move(State.BulkLoadHold);
  EngineState& Engine = State.Engine;
  Engine.Alone = false;
  try {
    // The records first: a key written for a record whose bytes were lost would name a
    // record that is not there.
    platform::EndWriteBehind(State.DataFileNo);
    if (Engine.ImageMode) engine::FlushKeyFileImage(Engine);
    platform::Sync(Engine.KeyFileNo);
  } catch (...) {
    // What the image held is lost: without a key file the table is unusable until it is
    // opened again, and that open rebuilds the key file because the mark stays.
    engine::CloseKeyFile(Engine);
    throw;
  }
  DeleteMark(BulkLoadMarkPath(State));
}

void EndBulkLoadQuietly(TableState& State) noexcept {
  try {
    EndBulkLoad(State);
  } catch (...) {
  }
}

void ClearBulkLoadMark(const TableState& State) { DeleteMark(BulkLoadMarkPath(State)); }

}  // namespace tqdb
