// Construction and destruction of a table object's member state.
#include "table/TableState.h"

#include "platform/file_pool.h"
#include "table/TQFile.h"
#include "table/exclusive_use.h"

namespace tqdb {
namespace {

// Frees one file number taken by this table. Destruction must not throw, so a failure
// to close (an I/O error, a number already gone) is dropped: there is nobody to tell.
void ReleaseQuietly(int32_t Number) noexcept {
  if (Number <= 0) return;
  try {
    platform::ReleaseNumber(static_cast<platform::FileNo>(Number));
  } catch (...) {
  }
}

}  // namespace

// Index starts at key 1; every other member keeps its empty, zero or false default.
TableState::TableState() { Index = 1; }

// Closes and frees the data, image and key files' numbers. Nothing is written: an edit in
// progress is dropped. Linked tables are destroyed with the array that owns them.
TableState::~TableState() {
  BulkLoadHold.reset();
  ReleaseQuietly(DataFileNo);
  DataFileNo = 0;
  DataFileOpen = false;
  ReleaseQuietly(ImageFileNo);
  ImageFileNo = 0;
  ReleaseQuietly(Engine.KeyFileNo);
  Engine.KeyFileNo = 0;
}

}  // namespace tqdb
