// The key file: header, descriptors, page I/O and the memory image.
#include "engine/key_file.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "engine/key_codec.h"
#include "engine/key_file_damage.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/paths.h"

namespace tqdb::engine {
namespace {

using platform::Fault;

constexpr int64_t kImageGrowth = int64_t{1} << 20;
constexpr int64_t kImageLimit = 60'000'000;
constexpr int64_t kFlushPiece = 32'767;
// Growth of the file mapping that carries the image on past kImageLimit.
constexpr int64_t kMappedGrowth = int64_t{32} << 20;

std::span<const uint8_t> AsBytes(std::string_view Text) {
  return {reinterpret_cast<const uint8_t*>(Text.data()), Text.size()};
}

void DecodeHeader(const uint8_t* Bytes, KeyFileHeader& Header) {
  Header.KeyCount = Bytes[0];
  Header.NodeSize = LoadInt16(Bytes + 1);
  Header.LastRecord = LoadInt32(Bytes + 3);
  Header.DeletedCount = LoadInt32(Bytes + 7);
  Header.DeletedHead = LoadInt32(Bytes + 11);
}

void EncodeHeader(const KeyFileHeader& Header, uint8_t* Bytes) {
  Bytes[0] = Header.KeyCount;
  StoreInt16(Bytes + 1, Header.NodeSize);
  StoreInt32(Bytes + 3, Header.LastRecord);
  StoreInt32(Bytes + 7, Header.DeletedCount);
  StoreInt32(Bytes + 11, Header.DeletedHead);
}

// End of the region pages may occupy: the used part of the image, or the file's length.
int64_t PageAreaEnd(EngineState& Engine, bool AskAgain) {
  if (Engine.ImageMode) return Engine.ImageLastPage + kNodeSize - 1;
  if (AskAgain) RefreshKeyFileLength(Engine);
  return Engine.KeyFileLength;
}

// Our own writes past the end keep the stack's chain as it was.
void NoteWritten(EngineState& Engine, int64_t Position, size_t Count) {
  const int64_t End = Position + static_cast<int64_t>(Count) - 1;
  if (Engine.ImageMode || End <= Engine.KeyFileLength) return;
  if (Engine.StackChainLength == Engine.KeyFileLength) Engine.StackChainLength = End;
  Engine.KeyFileLength = End;
}

// The image's bytes: the string, or the file mapping once the image has moved there.
std::span<uint8_t> ImageBytes(EngineState& Engine) {
  if (Engine.ImageMap.Active()) return Engine.ImageMap.Bytes();
  return {reinterpret_cast<uint8_t*>(Engine.Image.data()), Engine.Image.size()};
}

// Makes the image at least Size bytes long (new bytes are zero).
void GrowImage(EngineState& Engine, size_t Size) {
  if (!Engine.ImageMap.Active()) {
    Engine.Image.resize(Size, '\0');
  } else if (!Engine.ImageMap.Cover(Engine.KeyFileNo, static_cast<int64_t>(Size))) {
    throw Fault(platform::kPathFileAccess);
  }
}

void ReadFromImage(EngineState& Engine, int64_t Position, std::span<uint8_t> Out) {
  const std::span<uint8_t> Image = ImageBytes(Engine);
  const auto Start = static_cast<size_t>(Position - 1);
  const size_t Available = Start < Image.size() ? Image.size() - Start : 0;
  const size_t Count = std::min(Available, Out.size());
  if (Count > 0) std::memcpy(Out.data(), Image.data() + Start, Count);
  std::fill(Out.begin() + static_cast<std::ptrdiff_t>(Count), Out.end(), uint8_t{0});
}

void WriteToImage(EngineState& Engine, int64_t Position, std::span<const uint8_t> Bytes) {
  const auto Start = static_cast<size_t>(Position - 1);
  if (Start + Bytes.size() > ImageBytes(Engine).size()) GrowImage(Engine, Start + Bytes.size());
  std::memcpy(ImageBytes(Engine).data() + Start, Bytes.data(), Bytes.size());
}

// Past its limit the image moves into a writable mapping of the key file and the build
// goes on there: the pages go to the file through the page cache, without a system call
// each, and the process holds no more memory of its own. False when the file cannot be
// mapped so; the image is then flushed and the build goes on with ordinary writes.
bool MoveImageToFile(EngineState& Engine) {
  const size_t Size = Engine.Image.size();
  if (!Engine.ImageMap.Cover(Engine.KeyFileNo, static_cast<int64_t>(Size + kMappedGrowth))) {
    return false;
  }
  std::memcpy(Engine.ImageMap.Bytes().data(), Engine.Image.data(), Size);
  Engine.Image.clear();
  Engine.Image.shrink_to_fit();
  return true;
}

// The page cache of a locked command (EngineState::PageCache): a handful of pages, so a
// short list searched from the newest end does.
constexpr size_t kPageCacheLimit = 64;
constexpr size_t kPageBytes = kNodeSize;

const NodeBuffer* CachedPage(const EngineState& Engine, int64_t Position) {
  for (auto It = Engine.PageCache.rbegin(); It != Engine.PageCache.rend(); ++It) {
    if (It->first == Position) return &It->second;
  }
  return nullptr;
}

void RememberPage(EngineState& Engine, int64_t Position, std::span<const uint8_t> Page) {
  if (Engine.PageCache.size() >= kPageCacheLimit) return;
  auto& Entry = Engine.PageCache.emplace_back();
  Entry.first = Position;
  std::memcpy(Entry.second.data(), Page.data(), kPageBytes);
}

// Brings the cached pages up to date with bytes just written at Position; a whole page
// written is kept as well.
void NoteWrittenInCache(EngineState& Engine, int64_t Position, std::span<const uint8_t> Bytes) {
  const int64_t End = Position + static_cast<int64_t>(Bytes.size());
  bool Kept = false;
  for (auto& [Page, Copy] : Engine.PageCache) {
    const int64_t From = std::max(Page, Position);
    const int64_t To = std::min(Page + kNodeSize, End);
    if (From >= To) continue;
    std::memcpy(Copy.data() + (From - Page), Bytes.data() + (From - Position),
                static_cast<size_t>(To - From));
    Kept = Kept || (Page == Position && Bytes.size() == kPageBytes);
  }
  if (!Kept && Bytes.size() == kPageBytes) RememberPage(Engine, Position, Bytes);
}

void ReadRaw(EngineState& Engine, int64_t Position, std::span<uint8_t> Out) {
  if (Position < 1) throw Fault(platform::kBadRecordNumber);
  if (Engine.ImageMode) {
    ReadFromImage(Engine, Position, Out);
    return;
  }
  const bool WholePage = Engine.PageCacheOn && Out.size() == kPageBytes;
  if (WholePage) {
    if (const NodeBuffer* Copy = CachedPage(Engine, Position)) {
      std::memcpy(Out.data(), Copy->data(), kPageBytes);
      return;
    }
  }
  platform::ReadAt(Engine.KeyFileNo, Position, Out);
  if (WholePage) RememberPage(Engine, Position, Out);
}

void WriteRaw(EngineState& Engine, int64_t Position, std::span<const uint8_t> Bytes) {
  if (Position < 1) throw Fault(platform::kBadRecordNumber);
  if (Engine.ImageMode) {
    WriteToImage(Engine, Position, Bytes);
  } else {
    platform::WriteAt(Engine.KeyFileNo, Position, Bytes);
    NoteWritten(Engine, Position, Bytes.size());
    if (Engine.PageCacheOn) NoteWrittenInCache(Engine, Position, Bytes);
  }
}

// Releases the key file's number after a failed open.
void DropKeyFile(EngineState& Engine) {
  if (Engine.KeyFileNo != 0) platform::ReleaseNumber(Engine.KeyFileNo);
  Engine.KeyFileNo = 0;
}

void ResetCursor(EngineState& Engine) {
  for (auto& Buffer : Engine.Level) Buffer.fill(0);
  Engine.Path = {};
  Engine.LeafLevel = 0;
  Engine.CurKey = 0;
  Engine.CurKeyLength = 0;
}

// Reads the descriptors that follow the header; the header is already in Engine.Header.
void ReadDescriptors(EngineState& Engine) {
  const int Keys = Engine.Header.KeyCount;
  if (Keys > kMaxKeys || Engine.KeyFileLength < FirstPagePosition(Engine) - 1) {
    ThrowDamaged(Engine);
  }
  std::array<uint8_t, kDescriptorSize * kMaxKeys> Bytes{};
  ReadRaw(Engine, 1 + kHeaderSize, std::span(Bytes).first(size_t(kDescriptorSize) * Keys));
  Engine.KeyLen.fill(0);
  Engine.RootPos.fill(0);
  Engine.Capacity.fill(0);
  for (int Key = 1; Key <= Keys; ++Key) {
    const uint8_t* Descriptor = Bytes.data() + kDescriptorSize * (Key - 1);
    if (Descriptor[0] == 0) ThrowDamaged(Engine);
    Engine.KeyLen[Key] = Descriptor[0];
    Engine.RootPos[Key] = LoadInt32(Descriptor + 1);
    Engine.Capacity[Key] = static_cast<int16_t>(NodeCapacity(Descriptor[0]));
    CheckPagePosition(Engine, Engine.RootPos[Key]);
  }
}

}  // namespace

void ThrowDamaged(const EngineState& Engine) {
  throw KeyFileDamaged(platform::ResolvePath(Engine.KeyFilePath));
}

int64_t RefreshKeyFileLength(EngineState& Engine) {
  if (Engine.ImageMode) return Engine.ImageLastPage + kNodeSize - 1;
  if (Engine.PageCacheOn && Engine.LengthKnown) return Engine.KeyFileLength;
  const int64_t Length = platform::Length(Engine.KeyFileNo);
  Engine.LengthKnown = Engine.PageCacheOn;
  if (Length != Engine.KeyFileLength) {
    Engine.StackChainLength = -1;  // another user added pages
    Engine.KeyFileLength = Length;
  }
  return Length;
}

void ReadHeader(EngineState& Engine) {
  if (Engine.ImageMode || (Engine.PageCacheOn && Engine.HeaderKnown)) return;
  std::array<uint8_t, kHeaderSize> Bytes{};
  platform::ReadAt(Engine.KeyFileNo, 1, Bytes);
  const uint8_t KeysBefore = Engine.Header.KeyCount;
  DecodeHeader(Bytes.data(), Engine.Header);
  const KeyFileHeader& Header = Engine.Header;
  if (Header.NodeSize != kNodeSize || Header.KeyCount != KeysBefore || Header.LastRecord < 0 ||
      Header.DeletedCount < 0 || Header.DeletedHead < 0) {
    ThrowDamaged(Engine);
  }
  Engine.HeaderKnown = Engine.PageCacheOn;
}

void WriteHeader(EngineState& Engine) {
  if (Engine.ImageMode) return;
  std::array<uint8_t, kHeaderSize> Bytes{};
  EncodeHeader(Engine.Header, Bytes.data());
  WriteRaw(Engine, 1, Bytes);
  Engine.HeaderKnown = Engine.PageCacheOn;
}

void CheckPagePosition(EngineState& Engine, int64_t Position) {
  if (Position < 1) throw Fault(platform::kBadRecordNumber);
  const int64_t First = FirstPagePosition(Engine);
  if (Position < First || (Position - First) % kNodeSize != 0) ThrowDamaged(Engine);
  const int64_t Last = Position + kNodeSize - 1;
  if (Last > PageAreaEnd(Engine, false) && Last > PageAreaEnd(Engine, true)) {
    ThrowDamaged(Engine);
  }
}

void ReadPage(EngineState& Engine, int64_t Position, NodeBuffer& Out) {
  CheckPagePosition(Engine, Position);
  ReadRaw(Engine, Position, Out);
}

void ReadNodeInto(EngineState& Engine, int64_t Position, NodeBuffer& Out) {
  ReadPage(Engine, Position, Out);
  const int Key = Engine.CurKey;
  const int Capacity = (Key >= 1 && Key <= kMaxKeys) ? Engine.Capacity[Key] : 0;
  const int16_t Count = LoadInt16(Out.data() + 1);
  if (Out[0] > kKindBranch || Count < 0 || Count > Capacity) ThrowDamaged(Engine);
}

void ReadKeyNode(EngineState& Engine, int64_t Position, int Level) {
  // Below the root the position came from a branch entry: a bad one is damage.
  if (Level < 0 || Level >= kLevelBuffers || (Level > 0 && Position < 1)) ThrowDamaged(Engine);
  ReadNodeInto(Engine, Position, Engine.Level[Level]);
}

void WriteKeyNode(EngineState& Engine, int64_t Position, const NodeBuffer& Bytes) {
  WriteRaw(Engine, Position, Bytes);
}

void WriteKeyBytes(EngineState& Engine, int64_t Position, std::span<const uint8_t> Bytes) {
  WriteRaw(Engine, Position, Bytes);
}

std::string ReadKeyBytes(EngineState& Engine, int64_t Position, int64_t Count) {
  if (Count < 0) throw Fault(platform::kInvalidCall);
  std::string Out(static_cast<size_t>(Count), '\0');
  ReadRaw(Engine, Position, {reinterpret_cast<uint8_t*>(Out.data()), Out.size()});
  return Out;
}

int64_t NewPagePosition(EngineState& Engine) {
  if (!Engine.ImageMode) {
    // Just after the last whole page: a fragment at the end (a write cut short by a full
    // disk) is covered by the new page instead of pushing every later page off the
    // page boundaries.
    const int64_t First = FirstPagePosition(Engine);
    const int64_t Length = RefreshKeyFileLength(Engine);
    if (Length < First) return First;
    return First + (Length - First + 1) / kNodeSize * kNodeSize;
  }
  const int64_t Next = Engine.ImageLastPage + kNodeSize;
  const auto Size = static_cast<int64_t>(ImageBytes(Engine).size());
  if (Next + kNodeSize - 1 <= Size) {
    Engine.ImageLastPage = static_cast<int32_t>(Next);
    return Next;
  }
  if (Engine.ImageMap.Active()) {
    GrowImage(Engine, static_cast<size_t>(Size + kMappedGrowth));
  } else if (Size > kImageLimit && !MoveImageToFile(Engine)) {
    FlushKeyFileImage(Engine);
    return platform::Length(Engine.KeyFileNo) + 1;
  } else if (!Engine.ImageMap.Active()) {
    GrowImage(Engine, static_cast<size_t>(Size + kImageGrowth));
  }
  Engine.ImageLastPage = static_cast<int32_t>(Next);
  return Next;
}

void OpenKeyFile(EngineState& Engine, std::string_view Path) {
  Engine.ImageMap.Unmap();
  DropKeyFile(Engine);
  Engine.ImageMode = false;
  Engine.Image.clear();
  const platform::FileNo Number = platform::TakeFreeNumber();
  try {
    platform::Open(Number, Path, platform::OpenMode::Binary);
  } catch (const Fault&) {
    platform::ReleaseNumber(Number);
    Engine.EngineStatus = 26;
    return;
  }
  Engine.KeyFileNo = Number;
  Engine.KeyFilePath = std::string(Path);
  Engine.StackChain.clear();
  Engine.StackChainLength = -1;
  Engine.KeyFileLength = platform::Length(Number);
  if (Engine.KeyFileLength == 0) {
    DropKeyFile(Engine);
    Engine.EngineStatus = 22;
    return;
  }
  try {
    std::array<uint8_t, kHeaderSize> Bytes{};
    platform::ReadAt(Number, 1, Bytes);
    DecodeHeader(Bytes.data(), Engine.Header);
    if (Engine.Header.NodeSize != kNodeSize) ThrowDamaged(Engine);
    ReadDescriptors(Engine);
  } catch (...) {
    DropKeyFile(Engine);
    throw;
  }
  ResetCursor(Engine);
}

void CloseKeyFile(EngineState& Engine) {
  Engine.ImageMap.Unmap();
  DropKeyFile(Engine);
  Engine.ImageMode = false;
  Engine.Image.clear();
}

int32_t CountDeleted(EngineState& Engine) {
  ReadHeader(Engine);
  return Engine.Header.DeletedCount;
}

void CreateEmptyKeyFile(std::string_view Path, std::span<const int> KeyLengths) {
  if (KeyLengths.size() > kMaxKeys) throw Fault(platform::kInvalidCall);
  for (int Length : KeyLengths) {
    if (Length < 1 || Length > 255) throw Fault(platform::kInvalidCall);
  }
  const auto Keys = static_cast<int32_t>(KeyLengths.size());
  const int32_t FirstPage = 1 + kHeaderSize + kDescriptorSize * Keys;
  std::string Bytes(static_cast<size_t>(FirstPage - 1 + kNodeSize * Keys), '\0');
  auto* Raw = reinterpret_cast<uint8_t*>(Bytes.data());
  KeyFileHeader Header;
  Header.KeyCount = static_cast<uint8_t>(Keys);
  Header.NodeSize = kNodeSize;
  EncodeHeader(Header, Raw);
  for (int32_t Key = 0; Key < Keys; ++Key) {
    uint8_t* Descriptor = Raw + kHeaderSize + kDescriptorSize * Key;
    Descriptor[0] = static_cast<uint8_t>(KeyLengths[static_cast<size_t>(Key)]);
    StoreInt32(Descriptor + 1, FirstPage + kNodeSize * Key);  // pages are zero: empty leaves
  }
  const platform::FileNo Number = platform::TakeFreeNumber();
  try {
    platform::Open(Number, Path, platform::OpenMode::Truncate);
    platform::WriteAt(Number, 1, AsBytes(Bytes));
  } catch (...) {
    platform::ReleaseNumber(Number);
    throw;
  }
  platform::ReleaseNumber(Number);
}

LockedPageScope::LockedPageScope(EngineState& Engine) : engine_(Engine) {
  engine_.PageCache.clear();
  engine_.HeaderKnown = false;
  engine_.LengthKnown = false;
  engine_.PageCacheOn = true;
}

LockedPageScope::~LockedPageScope() {
  engine_.PageCacheOn = false;
  engine_.HeaderKnown = false;
  engine_.LengthKnown = false;
  engine_.PageCache.clear();
}

void BeginKeyFileImage(EngineState& Engine) {
  const int64_t Length = platform::Length(Engine.KeyFileNo);
  Engine.Image = platform::ReadAt(Engine.KeyFileNo, 1, Length);
  const int64_t First = FirstPagePosition(Engine);
  const int64_t Pages = Length >= First ? (Length - First + 1) / kNodeSize : 0;
  Engine.ImageLastPage = static_cast<int32_t>(First + (Pages - 1) * kNodeSize);
  Engine.ImageMode = true;
  Engine.StackChain.clear();
}

void FlushKeyFileImage(EngineState& Engine) {
  const auto Used = static_cast<size_t>(Engine.ImageLastPage - 1 + kNodeSize);
  if (Engine.ImageMap.Active()) {
    // The pages are in the file already: the header goes in, the spare room is cut off.
    EncodeHeader(Engine.Header, Engine.ImageMap.Bytes().data());
    Engine.ImageMap.Unmap();
    platform::Open(Engine.KeyFileNo, Engine.KeyFilePath, platform::OpenMode::Binary);
    platform::Truncate(Engine.KeyFileNo, static_cast<int64_t>(Used));
    Engine.ImageMode = false;
    Engine.KeyFileLength = platform::Length(Engine.KeyFileNo);
    Engine.StackChainLength = -1;
    return;
  }
  platform::Open(Engine.KeyFileNo, Engine.KeyFilePath, platform::OpenMode::Binary);
  if (Engine.Image.size() < Used) Engine.Image.resize(Used, '\0');
  EncodeHeader(Engine.Header, reinterpret_cast<uint8_t*>(Engine.Image.data()));
  for (size_t Done = 0; Done < Used;) {
    const size_t Piece = std::min<size_t>(kFlushPiece, Used - Done);
    platform::WriteAt(Engine.KeyFileNo, static_cast<int64_t>(Done) + 1,
                      std::string_view(Engine.Image).substr(Done, Piece));
    Done += Piece;
  }
  Engine.Image.clear();
  Engine.Image.shrink_to_fit();
  Engine.ImageMode = false;
  Engine.KeyFileLength = platform::Length(Engine.KeyFileNo);
  Engine.StackChainLength = -1;
}

}  // namespace tqdb::engine
