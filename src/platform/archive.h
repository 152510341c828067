// Zip archiving of one file (the compression component of the audit archive).
#pragma once

#include <cstdint>
#include <string_view>

namespace tqdb::platform {

// Compresses the file SourceName into a new zip archive ArchiveName holding that one file
// under its own file name (replacing an archive of the same name). Names are
// Windows-1252 and resolved like every other file name. Returns 0 on success, else a
// non-zero 16-bit code (libzip's error code, or a fault number).
int16_t ZipOneFile(std::string_view SourceName, std::string_view ArchiveName);

}  // namespace tqdb::platform
