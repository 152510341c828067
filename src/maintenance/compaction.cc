// Image and long-text compaction (see compaction.h).
#include "maintenance/compaction.h"

#include <utility>

#include "maintenance/rebuild_files.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/paths.h"
#include "platform/scoped_file_number.h"
#include "records/external_text.h"
#include "records/images.h"
#include "records/record_codecs.h"

namespace tqdb {
namespace {

constexpr int16_t kImageType = 62;
constexpr int16_t kLongTextTypes[] = {74, 75};

// Makes Number the table's image file for the life of the object, so that the image
// routines write into it; the old number comes back on every way out.
class ImageFileSwap {
 public:
  ImageFileSwap(TableState& State, platform::FileNo Number)
      : state_(State), saved_(std::exchange(State.ImageFileNo, Number)) {}
  ~ImageFileSwap() { state_.ImageFileNo = saved_; }
  ImageFileSwap(const ImageFileSwap&) = delete;
  ImageFileSwap& operator=(const ImageFileSwap&) = delete;

 private:
  TableState& state_;
  int32_t saved_;
};

}  // namespace

std::vector<int16_t> ImageFields(const TableState& State) {
  std::vector<int16_t> Fields;
  for (int16_t F = 1; F <= State.NumFields && static_cast<size_t>(F) < State.FieldTypes.size();
       ++F) {
    if (State.FieldTypes[static_cast<size_t>(F)] == kImageType) Fields.push_back(F);
  }
  return Fields;
}

std::vector<int16_t> LongTextFields(const TableState& State) {
  std::vector<int16_t> Fields;
  for (int16_t F = 1; F <= State.NumFields && static_cast<size_t>(F) < State.FieldTypes.size();
       ++F) {
    const int16_t Type = State.FieldTypes[static_cast<size_t>(F)];
    const bool LongText = Type == kLongTextTypes[0] || Type == kLongTextTypes[1];
    if (LongText && State.FieldWidth[static_cast<size_t>(F)] >= kExternalTextPlaceSize) {
      Fields.push_back(F);
    }
  }
  return Fields;
}

void CompactImages(TableState& Work, int32_t Records, const std::string& WorkPath) {
  const std::vector<int16_t> Fields = ImageFields(Work);
  const platform::ScopedFileNumber Out(WorkPath, platform::OpenMode::Truncate);
  for (int32_t Record = 1; Record <= Records; ++Record) {
    for (int16_t Field : Fields) {
      const std::string Image = GetImage(Work, Record, Field);
      if (Image.empty()) {
        PutLong(Work, Record, Field, 0);
        continue;
      }
      const ImageFileSwap Swap(Work, Out.get());
      PutImage(Work, Record, Field, Image);
    }
  }
  platform::Sync(Out.get());
}

void CompactLongTexts(TableState& Work, int32_t Records, const std::string& WorkPath) {
  const std::vector<int16_t> Fields = LongTextFields(Work);
  const bool OldFileExists = platform::FileExists(ExternalTextPath(Work));
  const platform::ScopedFileNumber Out(WorkPath, platform::OpenMode::Truncate);
  int64_t End = 0;
  for (int32_t Record = 1; Record <= Records; ++Record) {
    for (int16_t Field : Fields) {
      const std::string Text = OldFileExists ? GetExternalText(Work, Record, Field) : "";
      if (Text.empty()) {
        SetExternalTextPlace(Work, Record, Field, {});
        continue;
      }
      platform::WriteAt(Out.get(), End + 1, Text);
      SetExternalTextPlace(Work, Record, Field,
                           {static_cast<double>(End + 1), static_cast<int32_t>(Text.size())});
      End += static_cast<int64_t>(Text.size());
    }
  }
  platform::Sync(Out.get());
}

}  // namespace tqdb
