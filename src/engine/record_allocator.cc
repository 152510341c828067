// The deleted-record stack and the last record number.
#include "engine/record_allocator.h"

#include <limits>
#include <vector>

#include "engine/key_codec.h"
#include "engine/key_file.h"
#include "platform/fault.h"
#include "platform/file_pool.h"

namespace tqdb::engine {
namespace {

// A stack needing more pages than the file holds is damage; the bound also keeps a walk
// along looping links finite. The length is asked again before deciding.
void CheckStackFits(EngineState& Engine, int32_t Steps) {
  auto Pages = [&Engine] {
    const int64_t End =
        Engine.ImageMode ? Engine.ImageLastPage + kNodeSize - 1 : Engine.KeyFileLength;
    return (End - FirstPagePosition(Engine) + 1) / kNodeSize;
  };
  if (Steps < Pages()) return;
  if (!Engine.ImageMode) Engine.KeyFileLength = platform::Length(Engine.KeyFileNo);
  if (Steps >= Pages()) ThrowDamaged(Engine);
}

// True when the chain of stack pages walked before still holds: same head, and the file
// has not grown by another user's pages since (the chain changes only when pages are
// added). Asks the file's length once.
bool ChainHolds(EngineState& Engine) {
  const std::vector<int32_t>& Chain = Engine.StackChain;
  if (Chain.empty() || Chain.front() != Engine.Header.DeletedHead) return false;
  if (Engine.ImageMode) return true;
  return RefreshKeyFileLength(Engine) == Engine.StackChainLength;
}

// Reads into Buffer the page that holds stack element Element and returns its position:
// from the chain walked before when it still holds, else following the links from the
// head (and keeping the chain for next time).
int64_t WalkToPage(EngineState& Engine, int32_t Element, NodeBuffer& Buffer) {
  const int32_t Steps = Element / kSlotsPerPage;
  std::vector<int32_t>& Chain = Engine.StackChain;
  if (ChainHolds(Engine) && Steps < static_cast<int32_t>(Chain.size())) {
    ReadPage(Engine, Chain[static_cast<size_t>(Steps)], Buffer);
    return Chain[static_cast<size_t>(Steps)];
  }
  CheckStackFits(Engine, Steps);
  int64_t Page = Engine.Header.DeletedHead;
  if (Page == 0) ThrowDamaged(Engine);
  Chain.assign(1, static_cast<int32_t>(Page));
  Engine.StackChainLength = Engine.KeyFileLength;
  ReadPage(Engine, Page, Buffer);
  for (int32_t Step = 0; Step < Steps; ++Step) {
    Page = LoadInt32(Buffer.data() + kLinkOffset);
    if (Page == 0) ThrowDamaged(Engine);
    ReadPage(Engine, Page, Buffer);
    Chain.push_back(static_cast<int32_t>(Page));
  }
  return Page;
}

}  // namespace

int32_t AllocateRecordNumber(EngineState& Engine) {
  ReadHeader(Engine);
  KeyFileHeader& Header = Engine.Header;
  int32_t Record;
  if (Engine.Creating || Header.DeletedCount < 1) {
    if (Header.LastRecord == std::numeric_limits<int32_t>::max()) {
      throw platform::Fault(platform::kOverflow);
    }
    Record = Header.LastRecord + 1;
    Header.LastRecord = Record;
    Engine.LastAllocatedReused = false;
  } else {
    const int32_t Element = Header.DeletedCount - 1;
    NodeBuffer& Page = Engine.Level[0];
    WalkToPage(Engine, Element, Page);
    uint8_t* Slot = Page.data() + 4 * (Element % kSlotsPerPage);
    Record = LoadInt32(Slot);
    StoreInt32(Slot, 0);  // dead: it lies beyond the count; the page is not rewritten
    Header.DeletedCount = Element;
    Engine.LastAllocatedReused = true;
  }
  WriteHeader(Engine);
  return Record;
}

void ReleaseRecordNumber(EngineState& Engine, int32_t Record) {
  ReadHeader(Engine);
  KeyFileHeader& Header = Engine.Header;
  const int32_t Element = Header.DeletedCount;
  if (Element == std::numeric_limits<int32_t>::max()) ThrowDamaged(Engine);
  NodeBuffer& Page = Engine.Level[0];
  int64_t Position;
  int64_t FreshPage = 0;
  if (Element == 0) {
    // The stack starts again in the head page; its old link is dropped.
    Page.fill(0);
    if (Header.DeletedHead == 0) {
      Header.DeletedHead = static_cast<int32_t>(NewPagePosition(Engine));
    } else {
      CheckPagePosition(Engine, Header.DeletedHead);
    }
    Position = Header.DeletedHead;
    Engine.StackChain.assign(1, Header.DeletedHead);
    Engine.StackChainLength = RefreshKeyFileLength(Engine);
  } else {
    Position = WalkToPage(Engine, Element, Page);
  }
  const int Slot = Element % kSlotsPerPage;
  StoreInt32(Page.data() + 4 * Slot, Record);
  if (Slot == kSlotsPerPage - 1) {
    const bool ChainToHere =
        Engine.StackChain.size() == static_cast<size_t>(Element / kSlotsPerPage + 1);
    FreshPage = NewPagePosition(Engine);
    StoreInt32(Page.data() + kLinkOffset, static_cast<int32_t>(FreshPage));
    if (ChainToHere) {
      Engine.StackChain.push_back(static_cast<int32_t>(FreshPage));
    } else {
      Engine.StackChainLength = -1;
    }
  }
  Header.DeletedCount = Element + 1;
  WriteHeader(Engine);
  WriteKeyNode(Engine, Position, Page);
  if (FreshPage != 0) {
    const NodeBuffer Zeros{};
    WriteKeyNode(Engine, FreshPage, Zeros);
  }
}

void WriteDeletedStack(EngineState& Engine, std::span<const int32_t> Records) {
  if (Records.empty()) return;
  if (Engine.ImageMode) throw platform::Fault(platform::kInvalidCall);
  ReadHeader(Engine);
  KeyFileHeader& Header = Engine.Header;
  if (Header.DeletedCount != 0 || Header.DeletedHead != 0 ||
      Records.size() >= static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
    throw platform::Fault(platform::kInvalidCall);
  }
  // A page that fills up is linked to a fresh empty one at once, so the last page always
  // has room: floor(count / 255) + 1 pages.
  const size_t Pages = Records.size() / kSlotsPerPage + 1;
  const int64_t First = RefreshKeyFileLength(Engine) + 1;
  if (First + static_cast<int64_t>(Pages * kNodeSize) > std::numeric_limits<int32_t>::max()) {
    throw platform::Fault(platform::kOverflow);
  }
  std::vector<uint8_t> Bytes(Pages * kNodeSize, 0);
  for (size_t Element = 0; Element < Records.size(); ++Element) {
    uint8_t* Page = Bytes.data() + Element / kSlotsPerPage * kNodeSize;
    StoreInt32(Page + 4 * (Element % kSlotsPerPage), Records[Element]);
  }
  for (size_t Page = 0; Page + 1 < Pages; ++Page) {
    StoreInt32(Bytes.data() + Page * kNodeSize + kLinkOffset,
               static_cast<int32_t>(First + static_cast<int64_t>((Page + 1) * kNodeSize)));
  }
  platform::WriteAt(Engine.KeyFileNo, First, Bytes);
  Engine.KeyFileLength = First + static_cast<int64_t>(Bytes.size()) - 1;
  Engine.StackChain.clear();
  Engine.StackChainLength = -1;
  Header.DeletedHead = static_cast<int32_t>(First);
  Header.DeletedCount = static_cast<int32_t>(Records.size());
  WriteHeader(Engine);
}

void CheckReleasable(EngineState& Engine) {
  ReadHeader(Engine);
  const int32_t Element = Engine.Header.DeletedCount;
  if (Element == std::numeric_limits<int32_t>::max()) ThrowDamaged(Engine);
  if (Element == 0) {
    if (Engine.Header.DeletedHead != 0) CheckPagePosition(Engine, Engine.Header.DeletedHead);
    return;
  }
  NodeBuffer Page;
  WalkToPage(Engine, Element, Page);
}

std::vector<int32_t> ListDeletedRecords(EngineState& Engine) {
  ReadHeader(Engine);
  std::vector<int32_t> Out;
  const int32_t Count = Engine.Header.DeletedCount;
  if (Count == 0) return Out;
  CheckStackFits(Engine, (Count - 1) / kSlotsPerPage);
  NodeBuffer Buffer{};
  int64_t Page = Engine.Header.DeletedHead;
  Out.reserve(static_cast<size_t>(Count));
  for (int32_t Element = 0; Element < Count; ++Element) {
    const int Slot = Element % kSlotsPerPage;
    if (Slot == 0) {
      if (Element > 0) Page = LoadInt32(Buffer.data() + kLinkOffset);
      if (Page == 0) ThrowDamaged(Engine);
      ReadPage(Engine, Page, Buffer);
    }
    Out.push_back(LoadInt32(Buffer.data() + 4 * Slot));
  }
  return Out;
}

}  // namespace tqdb::engine
