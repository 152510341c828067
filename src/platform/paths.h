// File names of the system and their mapping onto the Linux file system.
//
// A name may use "/" or "\" between directories; the directory part ends at the last of
// either. Names are Windows-1252 bytes. Every file is found case-insensitively, directory
// by directory: an exact match first, else the first entry whose upper-cased name matches.
// A file that does not exist is created with the name as it was given.
#pragma once

#include <string>
#include <string_view>

namespace tqdb::platform {

// The directory part of a name, up to and including its last "/" or "\"; "" when none.
std::string DirectoryPart(std::string_view Name);
// The part after the last "/" or "\".
std::string FilePart(std::string_view Name);

// The Linux path (UTF-8, "/" separators) for a name. Existing directories and files are
// matched case-insensitively as described above; components that do not exist are kept
// as given. A relative name stays relative to the working directory.
std::string ResolvePath(std::string_view Name);

bool FileExists(std::string_view Name);       // a regular file
bool DirectoryExists(std::string_view Name);  // a directory
// Deletes a file; raises Fault 53 when it does not exist, else a Fault from errno.
void DeleteFile(std::string_view Name);
// Renames a file (replacing the target); raises a Fault on failure.
void RenameFile(std::string_view From, std::string_view To);
// Creates one directory; raises a Fault on failure (75 when the name exists already, as a
// file or a directory; 76 when its parent is missing).
void MakeDirectory(std::string_view Name);
// Length in bytes of a file by name; raises Fault 53 when it does not exist.
int64_t FileLengthByName(std::string_view Name);

}  // namespace tqdb::platform
