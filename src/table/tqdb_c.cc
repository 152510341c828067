// The C interface (tqdb_c.h) over TQFile. Every entry point runs its work through Call,
// which clears the handle's error, keeps the number and description of whatever the work
// raises and lets no exception out.
#include "table/tqdb_c.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/numbers.h"
#include "records/dates.h"
#include "records/field_access.h"
#include "records/record_codecs.h"
#include "table/TQFile.h"
#include "table/TableState.h"
#include "table/error_boundary.h"

struct tqdb_table {
  tqdb::TQFile File;
  std::string FileName, DictionaryDir;  // as opened, for the open after a rebuild
  std::string Text;                     // what the last call handed out by pointer
  int32_t ErrorNumber = 0;
  std::string ErrorDescription;
};

namespace {

using tqdb::TQFile;
using tqdb::Variant;
using tqdb::platform::Fault;
namespace platform = tqdb::platform;

int Fail(tqdb_table& T, int32_t Number, std::string_view Description) noexcept {
  T.ErrorNumber = Number != 0 ? Number : platform::kInvalidCall;
  try {
    T.ErrorDescription.assign(Description);
  } catch (...) {
    T.ErrorDescription.clear();
  }
  return T.ErrorNumber;
}

// Runs Work(T) and turns whatever it raises into the handle's error (see error_boundary.h
// for how foreign exceptions are classified).
template <typename F>
int Call(tqdb_table* T, F&& Work) noexcept {
  if (T == nullptr) return platform::kInvalidCall;
  T->ErrorNumber = 0;
  T->ErrorDescription.clear();
  try {
    try {
      Work(*T);
    } catch (...) {
      tqdb::RethrowAsTQError("");
    }
  } catch (const tqdb::TQError& Error) {
    return Fail(*T, Error.Number(), Error.Description());
  } catch (...) {  // memory ran out while the error was being translated
    return Fail(*T, 7, "Memoria insuficiente");
  }
  return TQDB_OK;
}

template <typename P>
P* Need(P* Pointer) {
  if (Pointer == nullptr) throw Fault(platform::kInvalidCall);
  return Pointer;
}

template <typename T, typename V>
void Put(T* Out, V Value) {
  if (Out != nullptr) *Out = static_cast<T>(Value);
}

Variant FieldId(const char* Field) { return Variant(std::string(Need(Field))); }

bool IsDateField(tqdb_table& T, int16_t Field) {
  return Field >= 1 && Field <= T.File.FieldCount() && T.File.FieldType(Field) == 5;
}

// "dd/mm/yyyy" as a Date; false for any other text.
bool ParseDate(std::string_view Text, tqdb::Date& Out) {
  if (Text.size() != 10 || Text[2] != '/' || Text[5] != '/') return false;
  int Parts[3] = {0, 0, 0};
  const size_t Starts[3] = {0, 3, 6}, Lengths[3] = {2, 2, 4};
  for (int P = 0; P < 3; ++P) {
    for (size_t I = Starts[P]; I < Starts[P] + Lengths[P]; ++I) {
      if (Text[I] < '0' || Text[I] > '9') return false;
      Parts[P] = Parts[P] * 10 + (Text[I] - '0');
    }
  }
  Out = {Parts[2], Parts[1], Parts[0]};
  return true;
}

// A date field's text with its four-digit year. Read from the record's stored form when
// there is one (the field's own text has a two-digit year); a value of the edit buffer
// goes through the same rule its write would.
std::string DateText(tqdb_table& T, int16_t Field, const Variant& Value) {
  const tqdb::TableState& State = T.File.State();
  std::string Stored;
  if (State.EditState == 0) {
    if (State.EngineResult <= 0) return "";
    Stored = tqdb::GetField(State, State.EngineResult, Field, false);
  } else {
    const std::string Shown = platform::Utf8ToCp1252(Value.ToString());
    if (Shown.size() != 8) return Value.ToString();
    Stored = tqdb::DateToText(Shown);
  }
  if (platform::Trim(Stored).empty() || Stored[0] == '\0') return "";
  return platform::Cp1252ToUtf8(tqdb::DateToLongText(Stored));
}

// Reads a field into the handle's text.
void ReadText(tqdb_table& T, const char* Field) {
  const Variant Id = FieldId(Field);
  const Variant Value = T.File.Fields(Id);
  const int16_t Number = tqdb::FieldNumber(T.File.State(), Id);
  T.Text = IsDateField(T, Number) ? DateText(T, Number, Value) : Value.ToString();
}

// The key's segment values for SeekKey: a text on a date segment that reads dd/mm/yyyy
// becomes a Date, so that it takes the stored form the key holds.
Variant SeekValues(tqdb_table& T, const char* const* Values, int Count) {
  const tqdb::TableState& State = T.File.State();
  const int16_t Key = T.File.Index();
  if (Key < 1 || Key > tqdb::kMaxKeys || Count < 1) throw Fault(platform::kInvalidCall);
  std::vector<Variant> Elements;
  for (int S = 0; S < Count; ++S) {
    const std::string Text = Need(Need(Values)[S]);
    tqdb::Date Day{};
    const bool OnSegment = S < State.KeySegCount[Key] && S < tqdb::kMaxSegments;
    const int16_t Field = OnSegment ? State.KeySegField[Key][S + 1] : 0;
    Elements.push_back(IsDateField(T, Field) && ParseDate(Text, Day) ? Variant(Day)
                                                                     : Variant(Text));
  }
  return Variant(std::move(Elements));
}

// Runs a maintenance member with the caller's progress callback in place.
int Maintain(tqdb_table* Table, tqdb_progress_fn Progress, void* UserData, double* Minutes,
             double (TQFile::*Member)()) {
  return Call(Table, [&](tqdb_table& T) {
    struct Restore {
      TQFile& File;
      ~Restore() {
        try {
          File.OnProgress(nullptr);
        } catch (...) {
        }
      }
    } Restore{T.File};
    if (Progress != nullptr) {
      T.File.OnProgress(
          [Progress, UserData](int32_t Percentage) { Progress(Percentage, UserData); });
    }
    Put(Minutes, (T.File.*Member)());
  });
}

}  // namespace

extern "C" {

int tqdb_open(tqdb_table** Table, const char* FileName, const char* DictionaryDir) {
  if (Table == nullptr) return platform::kInvalidCall;
  *Table = nullptr;
  try {
    *Table = std::make_unique<tqdb_table>().release();
  } catch (...) {
    return 7;
  }
  return Call(*Table, [&](tqdb_table& T) {
    T.FileName = Need(FileName);
    T.DictionaryDir = DictionaryDir != nullptr ? DictionaryDir : "";
    // A key file that could not be opened (26) or made (23) leaves the table unusable.
    const int32_t Status = T.File.OpenFile(T.FileName, T.DictionaryDir);
    if (Status != 0) throw tqdb::TQError(Status, "Error indexados " + std::to_string(Status));
  });
}

int tqdb_close(tqdb_table* Table) {
  if (Table == nullptr) return TQDB_OK;
  const int Status = Call(Table, [](tqdb_table& T) { T.File.CloseDB(); });
  std::unique_ptr<tqdb_table> Owned(Table);
  return Status;
}

int32_t tqdb_error_number(const tqdb_table* Table) {
  return Table != nullptr ? Table->ErrorNumber : 0;
}
const char* tqdb_error_description(const tqdb_table* Table) {
  return Table != nullptr ? Table->ErrorDescription.c_str() : "";
}
int tqdb_status(const tqdb_table* Table) { return Table != nullptr ? Table->File.LastError() : 0; }
int tqdb_bof(const tqdb_table* Table) { return Table != nullptr && Table->File.Bof(); }
int tqdb_eof(const tqdb_table* Table) { return Table != nullptr && Table->File.Eof(); }

int tqdb_field_count(tqdb_table* Table, int32_t* Count) {
  return Call(Table, [&](tqdb_table& T) { *Need(Count) = T.File.FieldCount(); });
}

int tqdb_field_info(tqdb_table* Table, int Number, const char** Name, int32_t* Type,
                    int32_t* Width) {
  return Call(Table, [&](tqdb_table& T) {
    if (Number < 1 || Number > T.File.FieldCount()) throw Fault(platform::kSubscript);
    const auto Field = static_cast<int16_t>(Number);
    T.Text = T.File.FieldName(Field);
    Put(Name, T.Text.c_str());
    Put(Type, T.File.FieldType(Field));
    Put(Width, T.File.FieldLength(Field));
  });
}

int tqdb_key_count(tqdb_table* Table, int32_t* Count) {
  return Call(Table, [&](tqdb_table& T) { *Need(Count) = T.File.State().KeyCount; });
}

int tqdb_set_index(tqdb_table* Table, int Key) {
  return Call(Table, [&](tqdb_table& T) {
    if (Key < 1 || Key > T.File.State().KeyCount) throw Fault(platform::kSubscript);
    T.File.SetIndex(static_cast<int16_t>(Key));
  });
}

int tqdb_move_first(tqdb_table* Table) {
  return Call(Table, [](tqdb_table& T) { T.File.MoveFirst(); });
}
int tqdb_move_last(tqdb_table* Table) {
  return Call(Table, [](tqdb_table& T) { T.File.MoveLast(); });
}
int tqdb_move_next(tqdb_table* Table) {
  return Call(Table, [](tqdb_table& T) { T.File.MoveNext(); });
}
int tqdb_move_previous(tqdb_table* Table) {
  return Call(Table, [](tqdb_table& T) { T.File.MovePrevious(); });
}

int tqdb_bookmark(tqdb_table* Table, int32_t* Record) {
  return Call(Table, [&](tqdb_table& T) { *Need(Record) = T.File.BookMark(); });
}
int tqdb_set_bookmark(tqdb_table* Table, int32_t Record) {
  return Call(Table, [&](tqdb_table& T) { T.File.SetBookMark(Record); });
}

int tqdb_seek(tqdb_table* Table, const char* const* Values, int Count, int Option,
              int32_t* Record) {
  return Call(Table, [&](tqdb_table& T) {
    Put(Record, 0);
    if (Option < 1 || Option > 32 || (Option & (Option - 1)) != 0) {
      throw Fault(platform::kInvalidCall);  // not one of the six options
    }
    const bool FromEntry = Option == TQDB_SEEK_AFTER || Option == TQDB_SEEK_BEFORE;
    const Variant Value =
        FromEntry ? Variant(std::string(Need(Need(Values)[0]))) : SeekValues(T, Values, Count);
    const int32_t Found = T.File.SeekKey(Value, Option);
    if (Found != 0) T.File.SetBookMark(Found);
    Put(Record, Found);
  });
}

int tqdb_special_seek_key(tqdb_table* Table, const char** Key) {
  return Call(Table, [&](tqdb_table& T) {
    T.Text = T.File.GetSpecialSeekKeys();
    *Need(Key) = T.Text.c_str();
  });
}

int tqdb_field_text(tqdb_table* Table, const char* Field, const char** Text, size_t* Length) {
  return Call(Table, [&](tqdb_table& T) {
    ReadText(T, Field);
    *Need(Text) = T.Text.c_str();
    Put(Length, T.Text.size());
  });
}

int tqdb_field_copy(tqdb_table* Table, const char* Field, char* Buffer, size_t Size,
                    size_t* Length) {
  return Call(Table, [&](tqdb_table& T) {
    ReadText(T, Field);
    Put(Length, T.Text.size());
    if (T.Text.size() >= Size) {
      throw tqdb::TQError(TQDB_ERROR_BUFFER, "El texto no cabe en el espacio dado");
    }
    std::memcpy(Need(Buffer), T.Text.c_str(), T.Text.size() + 1);
  });
}

int tqdb_field_double(tqdb_table* Table, const char* Field, double* Value) {
  return Call(Table,
              [&](tqdb_table& T) { *Need(Value) = T.File.Fields(FieldId(Field)).ToDouble(); });
}

int tqdb_field_int64(tqdb_table* Table, const char* Field, int64_t* Value) {
  return Call(Table, [&](tqdb_table& T) {
    const Variant V = T.File.Fields(FieldId(Field));
    if (V.Type() == tqdb::VarType::Integer || V.Type() == tqdb::VarType::Long) {
      *Need(Value) = V.AsInteger();
      return;
    }
    const double Rounded = platform::RoundHalfEven(V.ToDouble());
    // 2^63 is the first value out of range on either side of the cast.
    if (!(std::fabs(Rounded) < 9223372036854775808.0)) throw Fault(platform::kOverflow);
    *Need(Value) = static_cast<int64_t>(Rounded);
  });
}

int tqdb_set_text(tqdb_table* Table, const char* Field, const char* Value) {
  return Call(Table, [&](tqdb_table& T) {
    T.File.SetFields(FieldId(Field), Variant(std::string(Need(Value))));
  });
}
int tqdb_set_double(tqdb_table* Table, const char* Field, double Value) {
  return Call(Table, [&](tqdb_table& T) { T.File.SetFields(FieldId(Field), Variant(Value)); });
}
int tqdb_set_int64(tqdb_table* Table, const char* Field, int64_t Value) {
  return Call(Table, [&](tqdb_table& T) {
    const bool Fits = Value >= INT32_MIN && Value <= INT32_MAX;
    T.File.SetFields(FieldId(Field), Fits ? Variant(static_cast<int32_t>(Value))
                                          : Variant(static_cast<double>(Value)));
  });
}

int tqdb_add_new(tqdb_table* Table) {
  return Call(Table, [](tqdb_table& T) { T.File.AddNew(); });
}
int tqdb_edit(tqdb_table* Table) {
  return Call(Table, [](tqdb_table& T) { T.File.Edit(); });
}
int tqdb_update(tqdb_table* Table) {
  return Call(Table, [](tqdb_table& T) { T.File.Update(); });
}
int tqdb_delete(tqdb_table* Table, int32_t BookMark) {
  return Call(Table, [&](tqdb_table& T) { T.File.Delete(BookMark); });
}
int tqdb_begin_bulk_load(tqdb_table* Table) {
  return Call(Table, [](tqdb_table& T) { T.File.BeginBulkLoad(); });
}
int tqdb_end_bulk_load(tqdb_table* Table) {
  return Call(Table, [](tqdb_table& T) { T.File.EndBulkLoad(); });
}

int tqdb_filter(tqdb_table* Table, const char* Expression) {
  return Call(Table, [&](tqdb_table& T) { T.File.Filter(Need(Expression)); });
}
int tqdb_sort(tqdb_table* Table, const char* Fields) {
  return Call(Table, [&](tqdb_table& T) { T.File.Sort(Need(Fields)); });
}
int tqdb_record_count(tqdb_table* Table, int32_t* Count) {
  return Call(Table, [&](tqdb_table& T) { *Need(Count) = T.File.RecordCount(); });
}
int tqdb_sum(tqdb_table* Table, const char* Field, double* Sum) {
  return Call(Table, [&](tqdb_table& T) { *Need(Sum) = T.File.Sum(FieldId(Field)); });
}

int tqdb_reindex(tqdb_table* Table, tqdb_progress_fn Progress, void* UserData, double* Minutes) {
  return Maintain(Table, Progress, UserData, Minutes, &TQFile::ReIndex);
}
int tqdb_rebuild(tqdb_table* Table, tqdb_progress_fn Progress, void* UserData, double* Minutes) {
  const int Status = Maintain(Table, Progress, UserData, Minutes, &TQFile::Rebuild);
  if (Status != TQDB_OK) return Status;
  // A rebuild leaves every file of the table closed.
  return Call(Table, [](tqdb_table& T) { T.File.OpenFile(T.FileName, T.DictionaryDir); });
}

int tqdb_set_command(tqdb_table* Table, const char* Command) {
  return Call(Table, [&](tqdb_table& T) { T.File.SetEngineCommand(Need(Command)); });
}
int tqdb_execute(tqdb_table* Table) {
  return Call(Table, [](tqdb_table& T) { T.File.ExecuteCommand(); });
}
int tqdb_engine_result(tqdb_table* Table, int32_t* Result) {
  return Call(Table, [&](tqdb_table& T) { *Need(Result) = T.File.EngineResult(); });
}

int tqdb_data_file_no(tqdb_table* Table, int32_t* Number) {
  return Call(Table, [&](tqdb_table& T) { *Need(Number) = T.File.DataFileNo(); });
}

}  // extern "C"
