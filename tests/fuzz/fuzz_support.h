// Shared pieces of the fuzz targets: a scratch directory for the whole run, a small table
// written byte by byte, and the way a target reports a finding.
#pragma once

#include <string>
#include <string_view>

namespace tqdb::fuzz {

// A directory of this run's own (under $TMPDIR or /tmp), with a trailing "/"; removed when
// the process ends. Also points TMPDIR there (rebuild archives land in it) and silences
// the messages the library would show a person.
const std::string& ScratchDir();

void WriteFile(const std::string& Path, std::string_view Bytes);
std::string ReadFile(const std::string& Path);

// Writes the table FUZZT (dictionary and 60 records) into ScratchDir() and returns the
// name OpenFile takes (ScratchDir() + "FUZZT01"). Fields: CODIGO text 6 (key 1), NOMBRE
// text 12 (key 2 = NOMBRE + CODIGO), IMPORTE double, CANT 16-bit integer, FECHA date,
// CLASE 32-bit integer, ESTADO text 4 (no key).
std::string WriteFuzzTable();

// The table's key file as the library names it (found case-insensitively); "" when none.
std::string KeyFilePath(const std::string& Directory, const std::string& UpperName);

// Reports a broken property with the input's context and aborts (libFuzzer keeps the
// input as a crash artifact).
[[noreturn]] void Finding(const std::string& What);

}  // namespace tqdb::fuzz
