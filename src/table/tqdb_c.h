/* TQDB's C interface: one opaque handle per open table, over the C++ TQFile object.
 *
 * Usable from C89, C99 and C++. Link libtqdb (with the C++ standard library).
 *
 * Status. Every call that can fail returns an int: TQDB_OK (0) on success, otherwise the
 * number of the error, which is also kept in the handle with its Spanish description
 * (tqdb_error_number, tqdb_error_description). The numbers are the library's own: classic
 * run-time errors (5 invalid argument, 6 overflow, 9 subscript out of range, 13 type
 * mismatch, 53 file not found, 70 permission denied, ...) and the system's errors 50200 to
 * 55000, plus TQDB_ERROR_BUFFER below. Each such call clears the kept error first, so after a
 * success tqdb_error_number reads 0. A NULL handle gives 5 and keeps nothing. No C++
 * exception ever leaves this interface.
 *
 * Engine status. Besides errors, every operation leaves the engine's status in
 * tqdb_status: 0 success, 12 not found, 13 before the first record (Bof), 15 past the
 * last (Eof), 16 no records (both). A seek that finds nothing or a walk that runs off the
 * end is not an error: the call returns TQDB_OK and the status says why.
 *
 * Text is UTF-8 both ways. A field is named by its name ("NOMBRE", any case) or by its
 * number written as text ("2").
 *
 * Pointers handed out (field names, field texts, the special seek key, the error
 * description) point into the handle and stay valid until the next call with the same
 * handle that returns a status (the calls that only read the handle's state change
 * nothing); copy what you keep. tqdb_close frees them all.
 *
 * Threads: a handle is used from one thread at a time.
 */
#ifndef TQDB_C_H
#define TQDB_C_H

#include <stddef.h>
#include <stdint.h>

#include "table/tqdb_export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tqdb_table tqdb_table;

#define TQDB_OK 0
/* The caller's buffer cannot hold the text; the length it needs was stored. */
#define TQDB_ERROR_BUFFER (-1)

/* Seek options: the six ways tqdb_seek can position on the current key. */
enum tqdb_seek_option {
  TQDB_SEEK_FIRST_EQ = 1,   /* the first entry equal to the value */
  TQDB_SEEK_LAST_EQ = 2,    /* the last entry equal to the value */
  TQDB_SEEK_AFTER_EQ = 4,   /* the first entry not below the value */
  TQDB_SEEK_AFTER = 8,      /* the entry after the one a special seek key names */
  TQDB_SEEK_BEFORE_EQ = 16, /* the first equal entry, else the greatest below, else the last */
  TQDB_SEEK_BEFORE = 32     /* the entry before the one a special seek key names */
};

/* Receives the percentage done during a long operation; user_data is the caller's. */
typedef void (*tqdb_progress_fn)(int32_t percentage, void* user_data);

/* --- Opening and closing ------------------------------------------------------------ */

/* Opens the table file_name (directory + table name + suffix, e.g. "datos/CLIEN01");
 * dictionary_dir is the directory of its dictionary, NULL or "" for the "Directory"
 * setting. *table receives a handle even when the open fails, so that the error can be
 * read from it; it is NULL only when there was no memory for it (7). An open that leaves
 * the engine a status other than 0 (26: the key file could not be opened, 23: nor made)
 * fails with that status as its number. Every handle received must be closed. */
TQDB_API int tqdb_open(tqdb_table** table, const char* file_name, const char* dictionary_dir);
/* Closes the table and frees the handle; NULL is accepted. Always frees the handle. */
TQDB_API int tqdb_close(tqdb_table* table);

/* --- The handle's state (these never fail) ---------------------------------------- */

TQDB_API int32_t tqdb_error_number(const tqdb_table* table);
TQDB_API const char* tqdb_error_description(const tqdb_table* table); /* "" when none */
TQDB_API int tqdb_status(const tqdb_table* table);
TQDB_API int tqdb_bof(const tqdb_table* table); /* 1 before the first record, else 0 */
TQDB_API int tqdb_eof(const tqdb_table* table); /* 1 past the last record, else 0 */

/* --- Fields and keys ------------------------------------------------------------------ */

TQDB_API int tqdb_field_count(tqdb_table* table, int32_t* count);
/* Field number (1..count): its name, type code and width in bytes. Type codes: 1 16-bit
 * integer, 4 32-bit integer, 2 and 6 single, 3, 7 and 80..85 double, 5 date, 62 image,
 * 74 and 75 long text, any other text. Any of the out pointers may be NULL. */
TQDB_API int tqdb_field_info(tqdb_table* table, int number, const char** name, int32_t* type,
                             int32_t* width);
TQDB_API int tqdb_key_count(tqdb_table* table, int32_t* count);
/* Chooses the key (1..key count) that navigation and seeks follow. */
TQDB_API int tqdb_set_index(tqdb_table* table, int key);

/* --- Navigation ----------------------------------------------------------------------- */

TQDB_API int tqdb_move_first(tqdb_table* table);
TQDB_API int tqdb_move_last(tqdb_table* table);
TQDB_API int tqdb_move_next(tqdb_table* table);
TQDB_API int tqdb_move_previous(tqdb_table* table);
/* The current record's number (0 when none); setting it makes that record current. */
TQDB_API int tqdb_bookmark(tqdb_table* table, int32_t* record);
TQDB_API int tqdb_set_bookmark(tqdb_table* table, int32_t record);

/* Seeks on the current key. values[0..count-1]: one text for the whole key text, or one
 * value per segment (each padded or cut to its segment; a value for a date segment is
 * written dd/mm/yyyy). Options TQDB_SEEK_AFTER and TQDB_SEEK_BEFORE take one value, a
 * special seek key (tqdb_special_seek_key). *record (may be NULL) receives the record
 * found, which becomes current, or 0 when none (tqdb_status tells why). */
TQDB_API int tqdb_seek(tqdb_table* table, const char* const* values, int count, int option,
                       int32_t* record);
/* The special seek key of the current record on the current key ("" when none). */
TQDB_API int tqdb_special_seek_key(tqdb_table* table, const char** key);

/* --- Reading and writing fields ------------------------------------------------------- */

/* The current record's field as text (during AddNew or Edit: the edit buffer's value).
 * Numbers in plain decimal with '.', a date as dd/mm/yyyy ("" when never written), text
 * with its blank padding. *length (may be NULL) receives its length in bytes; the text is
 * also NUL-terminated. */
TQDB_API int tqdb_field_text(tqdb_table* table, const char* field, const char** text,
                             size_t* length);
/* The same, copied into buffer (size bytes, NUL included). When it does not fit nothing
 * is copied, *length receives the length needed (without the NUL) and the call returns
 * TQDB_ERROR_BUFFER. */
TQDB_API int tqdb_field_copy(tqdb_table* table, const char* field, char* buffer, size_t size,
                             size_t* length);
/* The field as a number: a text that is not a number is error 13; as an integer the value
 * is rounded half to even and may overflow (6). */
TQDB_API int tqdb_field_double(tqdb_table* table, const char* field, double* value);
TQDB_API int tqdb_field_int64(tqdb_table* table, const char* field, int64_t* value);
/* Writes a field of the edit buffer (after tqdb_add_new or tqdb_edit). A date is written
 * dd/mm/yyyy, "" for none. */
TQDB_API int tqdb_set_text(tqdb_table* table, const char* field, const char* value);
TQDB_API int tqdb_set_double(tqdb_table* table, const char* field, double value);
TQDB_API int tqdb_set_int64(tqdb_table* table, const char* field, int64_t value);

/* --- Changing records ----------------------------------------------------------------- */

TQDB_API int tqdb_add_new(tqdb_table* table);
TQDB_API int tqdb_edit(tqdb_table* table);
/* Writes the edit buffer: a new record (which becomes current) or the edited one. */
TQDB_API int tqdb_update(tqdb_table* table);
/* Deletes record bookmark; a walk goes on from where it stood. With a filter in force, -1
 * deletes every record of the filter's result. */
TQDB_API int tqdb_delete(tqdb_table* table, int32_t bookmark);
/* A bulk load (TQFile::BeginBulkLoad): the table is held alone and the key file's changes
 * are kept in memory until tqdb_end_bulk_load (or tqdb_close) writes them. Meanwhile every
 * other open of the table fails with 70; 70 here when another handle has it open. */
TQDB_API int tqdb_begin_bulk_load(tqdb_table* table);
TQDB_API int tqdb_end_bulk_load(tqdb_table* table);

/* --- Query ---------------------------------------------------------------------------- */

/* Restricts navigation to the records a filter expression selects ("SALDO > 0 AND
 * PROVINCIA = Jaén"); "" walks the whole table again. */
TQDB_API int tqdb_filter(tqdb_table* table, const char* expression);
/* Orders the filter's result by fields ("TOTAL DESC, NUMERO"). */
TQDB_API int tqdb_sort(tqdb_table* table, const char* fields);
/* Records of the filter's result, else of the table. */
TQDB_API int tqdb_record_count(tqdb_table* table, int32_t* count);
/* Sum of a numeric field over the filter's result; 0 without a filter. */
TQDB_API int tqdb_sum(tqdb_table* table, const char* field, double* sum);

/* --- Maintenance ---------------------------------------------------------------------- */

/* Build the key file anew (reindex), or rewrite every file of the table without its
 * deleted records, renumbering them (rebuild; the table is opened again afterwards). Both
 * need the table to themselves (70 otherwise) and leave no current record. progress (may
 * be NULL) is called with user_data as the work advances; *minutes (may be NULL)
 * receives the time taken as minutes.seconds. */
TQDB_API int tqdb_reindex(tqdb_table* table, tqdb_progress_fn progress, void* user_data,
                          double* minutes);
TQDB_API int tqdb_rebuild(tqdb_table* table, tqdb_progress_fn progress, void* user_data,
                          double* minutes);

/* --- The engine channel (diagnostics and expert tools) -------------------------------- */

TQDB_API int tqdb_set_command(tqdb_table* table, const char* command);
/* Runs the command; its status is tqdb_status, a failure inside the engine is 55000. */
TQDB_API int tqdb_execute(tqdb_table* table);
TQDB_API int tqdb_engine_result(tqdb_table* table, int32_t* result);
/* The table's data file number, which most engine commands name (F\1\number). */
TQDB_API int tqdb_data_file_no(tqdb_table* table, int32_t* number);

#ifdef __cplusplus
}
#endif

#endif /* TQDB_C_H */
