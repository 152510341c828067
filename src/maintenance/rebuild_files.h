// The files of a rebuild and how the rebuilt ones take the place of the old ones.
//
// A rebuild never writes into the table's own files. It builds a complete new file set
// beside them, under the table name with the suffix "ZZ" (data, key, image and long-text
// files), each synced to disk when complete, and only then commits:
//
//   1. the commit mark (the name + "ZZ" + ".zzz", holding the suffix of the table being
//      rebuilt) is written and synced: from here on the new set is complete and wins;
//   2. the old data, image and long-text files are copied into the audit archive;
//   3. the old key file is deleted, then the new data, image and long-text files are
//      renamed over the old ones (each rename replaces its target at once), then the new
//      key file is renamed in;
//   4. the mark is deleted.
//
// A crash before the mark leaves the old files untouched; the leftovers are deleted by
// the next rebuild. A crash after it is completed by the next rebuild (RecoverRebuild),
// which renames in what is still waiting. In between, an ordinary open sees either the
// old set or the new data file without a key file (which the open builds again from that
// data file); only in the instants between the data file's rename and the image and
// long-text files' renames does it see new records with the old image or long-text file.
#pragma once

#include <string>
#include <string_view>
#include <thread>

#include "table/TableState.h"

namespace tqdb {

struct RebuildFiles {
  std::string Live;    // DataPath + BaseName + TableSuffix: the table's own files
  std::string Staged;  // DataPath + BaseName + "ZZ": the new files while they are built
  std::string Suffix;  // TableSuffix

  std::string LiveData() const { return Live + ".tqd"; }
  std::string LiveKey() const { return Live + ".tqc"; }
  std::string LiveImage() const { return Live + ".tqw"; }
  std::string LiveText() const { return Live + ".tqy"; }
  std::string StagedData() const { return Staged + ".tqd"; }
  std::string StagedKey() const { return Staged + ".tqc"; }
  std::string StagedImage() const { return Staged + ".tqw"; }
  std::string StagedText() const { return Staged + ".tqy"; }
  // The work file through which the image and long-text files are compacted.
  std::string Work() const { return Live + ".zzz"; }
  // The commit mark.
  std::string Mark() const { return Staged + ".zzz"; }
};

RebuildFiles RebuildFilesOf(const TableState& State);
// The same for a table not (yet) fully open: its directory, name and suffix.
RebuildFiles RebuildFilesOf(std::string_view DataPath, std::string_view Name,
                            std::string_view Suffix);

// Deletes whatever a rebuild that stopped before its commit left behind (staged files,
// work file). Faults are ignored: a file that cannot be deleted is truncated or
// overwritten later.
void DiscardStaged(const RebuildFiles& Files);

// Called before a rebuild starts: when the commit mark of this table is found, completes
// the commit it belongs to and returns true (the table's files have changed); otherwise
// discards the leftovers of an unfinished rebuild and returns false. A mark left by a
// rebuild of the same table name with another suffix is not ours to finish: Fault 75.
bool RecoverRebuild(const RebuildFiles& Files);

// The old data file's archive, compressed on a second thread while the new files are
// built: the table is held alone, so the file does not change meanwhile, and the
// compression no longer adds to the rebuild's time on a machine with a core to spare. The
// archive is written under a name of its own in the audit folder (with the process id,
// so that two rebuilds of same-named tables do not meet); the commit renames it to the
// name it gives every archive. A crash leaves at most that pending file behind.
class EarlyDataArchive {
 public:
  // Starts the compression when the table's data file exists and is not empty.
  explicit EarlyDataArchive(const RebuildFiles& Files);
  // Waits for the thread and deletes the pending archive if nobody took it.
  ~EarlyDataArchive();
  EarlyDataArchive(const EarlyDataArchive&) = delete;
  EarlyDataArchive& operator=(const EarlyDataArchive&) = delete;

  // Waits for the thread. The path of the complete archive, or "" when there is none (the
  // compression failed, or there was nothing to compress).
  std::string Finish();

 private:
  std::string pending_;
  std::thread thread_;
  int16_t code_ = -1;
};

// Commits a complete staged set (see above). REQUIRES: every staged file written and
// synced; the caller holds the table alone. PreparedDataArchive, when not empty, is the
// archive of the old data file made by EarlyDataArchive: it is moved into place instead
// of compressing the file again.
void CommitRebuild(const RebuildFiles& Files, const std::string& PreparedDataArchive = "");

// Copies the file Path into the audit archive as "<name> yyyy-MM-dd HH mm ss .zip",
// leaving it in place. A failure is shown as "Error <code> en auditoria"; never raises.
// A missing file is skipped.
void ArchiveCopy(std::string_view Path);

// Syncs a file by name (it must exist) so that it survives a crash of the machine.
void SyncFile(std::string_view Path);

}  // namespace tqdb
