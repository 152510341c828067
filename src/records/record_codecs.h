// The data file's record layout and the routines that read and write one field, one
// record or the deletion mark.
//
// The data file (".tqd") has no header: record n (1-based) starts at byte
// (n - 1) * RecordLength, and field f of it at FieldOffset[f] within the record. Binary
// numbers are little-endian (16/32-bit two's complement, IEEE single and double); text is
// Windows-1252, left-justified and blank-padded to the field's width. A deleted record is
// "ANULADO" followed by zero bytes. docs/formats.md has the details.
//
// Every routine here works on an open table (DataFileNo open, dictionary loaded) with
// positioned reads and writes; none keeps a copy of the record and none checks a record
// number against the file's length. On any failure a routine raises a platform::Fault
// whose source is the routine's own name ("GetInteger", ..., "Put It", "LockField",
// "unLockField"): Fault 9 for a field number outside 1..NumFields, Fault 6 when a byte
// position leaves the 32-bit range of the format, and the file layer's fault for a failed
// read, write or lock. A failed write leaves on disk what it had not yet changed.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "table/TableState.h"

namespace tqdb {

inline constexpr std::string_view kDeletedMark = "ANULADO";

// 1-based byte position of field Field of record Record in the data file:
// (Record - 1) * RecordLength + 1 + FieldOffset[Field], each step checked for overflow of
// the 32-bit positions (Fault 6). Fault 9 for a field outside 1..NumFields.
int64_t FieldPosition(const TableState& State, int32_t Record, int16_t Field);
// 1-based byte position of the first byte of Record (Fault 6 on overflow).
int64_t RecordPosition(const TableState& State, int32_t Record);

int16_t GetInteger(const TableState& State, int32_t Record, int16_t Field);
int32_t GetLong(const TableState& State, int32_t Record, int16_t Field);
float GetSingle(const TableState& State, int32_t Record, int16_t Field);
// The absolute value of what is stored while State.AbsMode is on.
double GetDouble(const TableState& State, int32_t Record, int16_t Field);
// As many bytes as the field's FieldBuffer is long, padding included; upper-cased when
// Upper is set.
std::string GetField(const TableState& State, int32_t Record, int16_t Field, bool Upper);
// RecordLength bytes from the start of Record, read from file FileNo.
std::string GetFullReg(const TableState& State, int32_t Record, int16_t FileNo);
// True for record 0 (without reading) and for a record whose first seven bytes are
// "ANULADO".
bool IsAnulado(const TableState& State, int32_t Record);

void PutInteger(const TableState& State, int32_t Record, int16_t Field, int16_t Value);
void PutLong(const TableState& State, int32_t Record, int16_t Field, int32_t Value);
void PutSingle(const TableState& State, int32_t Record, int16_t Field, float Value);
void PutDouble(const TableState& State, int32_t Record, int16_t Field, double Value);
// Left-justifies Value (Windows-1252) into FieldBuffer[Field] (blank-padded, cut to the
// buffer's width) and writes the buffer at the field.
void PutField(TableState& State, int32_t Record, int16_t Field, std::string_view Value);
// "Put It": writes every field 1..NumFields of Record from its FieldBuffer text. Codes 1
// and 4 take the text's numeric value (leading-number rule, "." as decimal point) rounded
// to a 16-bit or 32-bit integer, 2 and 6 as a single, 3, 7 and 80..85 as a double; any
// other code writes the buffer itself. A value that does not fit raises Fault 6 after the
// fields before it have been written.
void PutIt(const TableState& State, int32_t Record);
// Overwrites Record with "ANULADO" followed by zero bytes, RecordLength bytes in all (the
// mark is cut when the record is shorter than seven bytes), in one write.
void MarkDeleted(const TableState& State, int32_t Record);

// The 1-based inclusive byte range of fields First..Last of Record: First 0 means the
// whole record (fields 1..NumFields), Last 0 means field First alone. It runs from the
// first byte of field First to the last byte of field Last (start + width - 1).
std::pair<int64_t, int64_t> FieldLockRange(const TableState& State, int32_t Record, int16_t First,
                                           int16_t Last);
// Locks (exclusively, without waiting) or unlocks that range of the data file. A range
// held by another open table fails at once with Fault 70.
void LockField(const TableState& State, int32_t Record, int16_t First, int16_t Last);
void unLockField(const TableState& State, int32_t Record, int16_t First, int16_t Last);

// Binary numeric field types (1, 2, 3, 4, 6, 7, 80..85): stored as numbers, not text.
bool IsBinaryType(int16_t Type);
// Binary types stored as a double (3, 7, 80..85).
bool IsDoubleType(int16_t Type);
// The stored bytes of Value in a binary field of type Type (2, 4 or 8 bytes, rounded
// halves to even for the integer types; Fault 6 when it does not fit). An empty string
// for any other type.
std::string EncodeBinaryField(int16_t Type, double Value);

}  // namespace tqdb
