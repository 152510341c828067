// Helpers shared by the image and long-text routines (see side_files.h).
#include "records/side_files.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace tqdb {
namespace {

constexpr int64_t kZeroChunk = 1 << 16;

}  // namespace

void WriteZeros(platform::FileNo File, int64_t Position, int64_t Count) {
  const std::string Zeros(static_cast<size_t>(std::clamp<int64_t>(Count, 0, kZeroChunk)), '\0');
  while (Count > 0) {
    const int64_t Part = std::min(Count, kZeroChunk);
    platform::WriteAt(File, Position, std::string_view(Zeros).substr(0, Part));
    Position += Part;
    Count -= Part;
  }
}

}  // namespace tqdb
