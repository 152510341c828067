// Zip archiving of one file: libzip writes the archive, ISA-L's deflate compresses.
//
// libzip would compress with zlib, which at its fastest level takes most of the time a
// rebuild of a large table needs. ISA-L's level 1 writes an ordinary deflate stream
// (any unzip tool reads it) several times faster. The entry's data therefore reaches
// libzip already compressed, through a source of our own that reports the deflate
// method: libzip then copies the bytes as they come, and asks the source for the CRC and
// the sizes once it has read them all.
#include "platform/archive.h"

#include <isa-l/crc.h>
#include <isa-l/igzip_lib.h>
#include <sys/stat.h>
#include <zip.h>

#include <algorithm>
#include <new>
#include <string>
#include <vector>

#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/paths.h"
#include "platform/scoped_file_number.h"

namespace tqdb::platform {
namespace {

constexpr size_t kInputChunk = 1 << 20;

// The deflated contents of one file, produced as libzip reads them.
class DeflatingSource {
 public:
  explicit DeflatingSource(const std::string& Path)
      : file_(Path, OpenMode::ReadOnly),
        size_(static_cast<uint64_t>(Length(file_.get()))),
        reader_(file_.get()),
        level_buffer_(ISAL_DEF_LVL1_DEFAULT) {
    zip_error_init(&error_);
    struct stat Info {};
    if (::stat(Path.c_str(), &Info) == 0) mtime_ = Info.st_mtime;
  }
  ~DeflatingSource() { zip_error_fini(&error_); }
  DeflatingSource(const DeflatingSource&) = delete;
  DeflatingSource& operator=(const DeflatingSource&) = delete;

  static zip_int64_t Callback(void* User, void* Data, zip_uint64_t Length, zip_source_cmd_t Cmd) {
    return static_cast<DeflatingSource*>(User)->Handle(Data, Length, Cmd);
  }

 private:
  zip_int64_t Handle(void* Data, zip_uint64_t Length, zip_source_cmd_t Cmd) {
    switch (Cmd) {
      case ZIP_SOURCE_OPEN:
        return Open();
      case ZIP_SOURCE_READ:
        return Read(static_cast<uint8_t*>(Data), Length);
      case ZIP_SOURCE_CLOSE:
      case ZIP_SOURCE_FREE:
        return 0;
      case ZIP_SOURCE_STAT:
        return Stat(Data, Length);
      case ZIP_SOURCE_ERROR:
        return zip_error_to_data(&error_, Data, Length);
      case ZIP_SOURCE_SUPPORTS:
        return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE,
                                              ZIP_SOURCE_STAT, ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE,
                                              -1);
      default:
        zip_error_set(&error_, ZIP_ER_OPNOTSUPP, 0);
        return -1;
    }
  }

  zip_int64_t Open() {
    isal_deflate_init(&stream_);
    stream_.level = 1;
    stream_.level_buf = level_buffer_.data();
    stream_.level_buf_size = static_cast<uint32_t>(level_buffer_.size());
    stream_.gzip_flag = IGZIP_DEFLATE;
    stream_.avail_in = 0;
    crc_ = 0;
    read_ = written_ = 0;
    finished_ = false;
    return 0;
  }

  zip_int64_t Read(uint8_t* Out, zip_uint64_t Length) {
    stream_.next_out = Out;
    stream_.avail_out = static_cast<uint32_t>(std::min<zip_uint64_t>(Length, UINT32_MAX));
    while (stream_.avail_out > 0 && !finished_) {
      if (stream_.avail_in == 0 && !stream_.end_of_stream && !FillInput()) return -1;
      if (isal_deflate(&stream_) != COMP_OK) return Failed(ZIP_ER_INTERNAL);
      finished_ = stream_.internal_state.state == ZSTATE_END;
    }
    const auto Produced = static_cast<zip_int64_t>(stream_.next_out - Out);
    written_ += static_cast<uint64_t>(Produced);
    return Produced;
  }

  // The file is read up to the length it had when the source was made.
  bool FillInput() {
    const auto Got = static_cast<uint32_t>(std::min<uint64_t>(kInputChunk, size_ - read_));
    std::span<const uint8_t> Input;
    try {
      Input = reader_.Read(static_cast<int64_t>(read_) + 1, Got);
    } catch (const Fault&) {
      Failed(ZIP_ER_READ);
      return false;
    }
    crc_ = crc32_gzip_refl(crc_, Input.data(), Got);
    read_ += Got;
    stream_.next_in = const_cast<uint8_t*>(Input.data());  // the deflater only reads it
    stream_.avail_in = Got;
    stream_.end_of_stream = read_ >= size_ ? 1 : 0;
    return true;
  }

  // Before the data is read only the method, the size and the time are known; afterwards
  // the CRC and the compressed size too.
  zip_int64_t Stat(void* Data, zip_uint64_t Length) {
    auto* St = ZIP_SOURCE_GET_ARGS(zip_stat_t, Data, Length, &error_);
    if (St == nullptr) return -1;
    zip_stat_init(St);
    St->valid = ZIP_STAT_COMP_METHOD | ZIP_STAT_MTIME;
    St->comp_method = ZIP_CM_DEFLATE;
    St->mtime = mtime_;
    if (finished_) {
      St->valid |= ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE | ZIP_STAT_CRC;
      St->size = read_;
      St->comp_size = written_;
      St->crc = crc_;
    }
    return sizeof(zip_stat_t);
  }

  zip_int64_t Failed(int Code) {
    zip_error_set(&error_, Code, 0);
    return -1;
  }

  ScopedFileNumber file_;
  uint64_t size_;
  SequentialReader reader_;
  std::vector<uint8_t> level_buffer_;
  isal_zstream stream_{};
  zip_error_t error_{};
  uint64_t read_ = 0, written_ = 0;
  uint32_t crc_ = 0;
  time_t mtime_ = 0;
  bool finished_ = false;
};

int16_t ArchiveErrorCode(zip_t* Archive) {
  const int Code = zip_error_code_zip(zip_get_error(Archive));
  zip_discard(Archive);
  return static_cast<int16_t>(Code != 0 ? Code : ZIP_ER_INTERNAL);
}

int16_t Compress(std::string_view SourceName, std::string_view ArchiveName) {
  if (!FileExists(SourceName)) return static_cast<int16_t>(kFileNotFound);
  const std::string SourcePath = ResolvePath(SourceName);
  const std::string ArchivePath = ResolvePath(ArchiveName);
  DeflatingSource Contents(SourcePath);
  int OpenError = 0;
  zip_t* Archive = zip_open(ArchivePath.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &OpenError);
  if (Archive == nullptr) return static_cast<int16_t>(OpenError != 0 ? OpenError : ZIP_ER_OPEN);

  zip_source_t* Source = zip_source_function(Archive, DeflatingSource::Callback, &Contents);
  if (Source == nullptr) return ArchiveErrorCode(Archive);
  // The entry takes the name the file has on disk (found case-insensitively).
  const std::string EntryName = FilePart(SourcePath);
  if (zip_file_add(Archive, EntryName.c_str(), Source, ZIP_FL_ENC_UTF_8 | ZIP_FL_OVERWRITE) < 0) {
    zip_source_free(Source);
    return ArchiveErrorCode(Archive);
  }
  if (zip_close(Archive) != 0) return ArchiveErrorCode(Archive);
  return 0;
}

}  // namespace

int16_t ZipOneFile(std::string_view SourceName, std::string_view ArchiveName) {
  try {
    return Compress(SourceName, ArchiveName);
  } catch (const Fault& F) {
    return static_cast<int16_t>(F.Number());
  } catch (const std::bad_alloc&) {
    return 7;  // out of memory
  } catch (...) {
    return static_cast<int16_t>(kPathFileAccess);
  }
}

}  // namespace tqdb::platform
