// Opening, closing and deleting a table.
//
// A table is opened by a file name of the form directory + 5-character table name +
// 2-character suffix (anything after is ignored): the data file is directory + name +
// suffix + ".tqd", the key file the same with ".tqc", the image file (tables with an
// image field) ".tqw", and the dictionary DictionaryDir + name + ".tqa". Names are
// Windows-1252 and may use "/" or "\" between directories; files are found
// case-insensitively. docs/formats.md describes the file set.
//
// Every open table holds the presence lock on its data file, so that exclusive use can be
// checked before its files are deleted or rewritten.
#pragma once

#include <string>
#include <string_view>

#include "table/TableState.h"

namespace tqdb {

// Opens the table FileName (Windows-1252). When TableDirectoryGiven, TableDirectory
// becomes the dictionary directory and is handed to the engine ("T") so that key files
// are built from the same dictionary. An instance that is open already keeps its data
// file number and reads everything again. Returns LastError: 0 on success, 26 when the
// key file exists but cannot be opened (shown as a message; the table stays without a
// usable key file), 23 when it cannot be created (shown as a message).
//
// A missing, unusable or damaged key file is rebuilt silently from the dictionary and the
// data file, raising Progress; so is the key file of a bulk load that did not end (its
// mark is found beside the data file, table/bulk_load.h), which needs the table alone
// (Fault 70 otherwise). A missing data file is created empty.
// Raises: Fault 50999 for a missing dictionary (after its message), the dictionary's
// Faults for a damaged one, Fault 50228 when the key file cannot be rebuilt, Fault 70
// when another table object holds the table for exclusive use, Fault 55000 from the
// engine.
int32_t OpenFile(TableState& State, std::string_view FileName, std::string_view TableDirectory,
                 bool TableDirectoryGiven);

// The open routine: loads the dictionary of State.TableName, then opens the data file
// (DataPath + TableName + TableSuffix + ".tqd", or ExplicitDataPath when not empty, which
// also clears OpenIndexFlag), the image file when the table has an image field, and, when
// OpenIndexFlag is 1, the key file, rebuilding it when it cannot be opened.
// REQUIRES: TableName, DataPath and TableSuffix set; DataFileNo taken (DataFileOpen).
// Failures as OpenFile; LastError tells the outcome.
void OpenRoutine(TableState& State, int OpenIndexFlag, const std::string& ExplicitDataPath);

// Closes the data and image files, sends "K" (closing the key file) and closes every
// linked table. The data file's number is given back (DataFileOpen false); the member
// arrays keep the last dictionary. Harmless on a table that is not open.
void CloseDB(TableState& State);

// When Confirm is true: refuses with Fault 70 while another table object has the table
// open; otherwise closes the data file, sends "K", and hands the data file and then the
// key file to the audit archive, which keeps a compressed copy and deletes them (a
// failure there is shown as a message and the next file goes on). The dictionary and the
// image file stay. When Confirm is false nothing happens.
void KillDB(TableState& State, bool Confirm);

}  // namespace tqdb
