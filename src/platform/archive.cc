// Zip archiving of one file through libzip.
#include "platform/archive.h"

#include <zip.h>

#include <new>

#include "platform/fault.h"
#include "platform/paths.h"

namespace tqdb::platform {
namespace {

constexpr zip_uint32_t kDeflateLevel = 1;

int16_t ArchiveErrorCode(zip_t* Archive) {
  const int Code = zip_error_code_zip(zip_get_error(Archive));
  zip_discard(Archive);
  return static_cast<int16_t>(Code != 0 ? Code : ZIP_ER_INTERNAL);
}

int16_t Compress(std::string_view SourceName, std::string_view ArchiveName) {
  if (!FileExists(SourceName)) return static_cast<int16_t>(kFileNotFound);
  const std::string SourcePath = ResolvePath(SourceName);
  const std::string ArchivePath = ResolvePath(ArchiveName);
  int OpenError = 0;
  zip_t* Archive = zip_open(ArchivePath.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &OpenError);
  if (Archive == nullptr) return static_cast<int16_t>(OpenError != 0 ? OpenError : ZIP_ER_OPEN);

  zip_source_t* Source = zip_source_file(Archive, SourcePath.c_str(), 0, -1);
  if (Source == nullptr) return ArchiveErrorCode(Archive);
  // The entry takes the name the file has on disk (found case-insensitively).
  const std::string EntryName = FilePart(SourcePath);
  const zip_int64_t Index =
      zip_file_add(Archive, EntryName.c_str(), Source, ZIP_FL_ENC_UTF_8 | ZIP_FL_OVERWRITE);
  if (Index < 0) {
    zip_source_free(Source);
    return ArchiveErrorCode(Archive);
  }
  // Deflate at its fastest level: libzip would otherwise use the slowest, and archiving a
  // large data file is most of the time a rebuild takes. Any unzip tool reads it alike.
  if (zip_set_file_compression(Archive, static_cast<zip_uint64_t>(Index), ZIP_CM_DEFLATE,
                               kDeflateLevel) != 0) {
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
