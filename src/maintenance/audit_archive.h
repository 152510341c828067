// The audit archive: before a table's file is deleted or replaced, a compressed,
// time-stamped copy of it is kept in the audit folder under the temporary directory,
// <tmp>Brinvale/Auditoria/, as "<file name> yyyy-MM-dd HH mm ss .zip".
//
// Names are Windows-1252 and may use "/" or "\" between directories; files are found
// case-insensitively like every other file of the system.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tqdb {

// Archives the file FullPath and deletes it (ZipAndKill). A non-zero result code is shown
// as the plain message "Error <code> en auditoria"; the caller goes on in either case.
// Never raises.
void ArchiveAndDelete(std::string_view FullPath);

// Archives the file FullPath into the audit folder, then deletes it, whether or not the
// archive was written. Returns 0 on success and when the file does not exist (nothing is
// done then); else the zip library's code or the number of the fault that stopped a step
// (the deletion's fault wins). Never raises.
int16_t ZipAndKill(std::string_view FullPath);

// The full path of Name inside the audit folder, creating the folder (and its missing
// parents) when needed. A Name that begins with a separator is appended as it stands.
std::string AuditPath(std::string_view Name);

// Creates the directory Path and any missing parents. Failures are ignored: a directory
// that cannot be made is left for the next step to report.
void MakeDirTree(std::string_view Path);

}  // namespace tqdb
