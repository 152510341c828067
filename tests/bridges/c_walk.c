/* Walks the sample client table (examples/data/CLIEN) through the C interface, as a C
 * program would: fields, keys, walks, seeks, filter, sort, sum, a record added, edited and
 * deleted, errors, the engine channel, reindex and rebuild with progress.
 *
 *   c_walk DIRECTORY   (holding CLIEN01 and its dictionary, made by tqdb create + import)
 */
#include <stdio.h>
#include <string.h>

#include "table/tqdb_c.h"

static int failures = 0;

static void fail(int line, const char* condition) {
  fprintf(stderr, "c_walk.c:%d: failed: %s\n", line, condition);
  ++failures;
}
#define CHECK(condition) ((condition) ? (void)0 : fail(__LINE__, #condition))
#define OK(call) CHECK((call) == TQDB_OK)

static const char* text(tqdb_table* t, const char* field) {
  const char* value = "?";
  OK(tqdb_field_text(t, field, &value, NULL));
  return value;
}

static int starts(const char* value, const char* prefix) {
  return strncmp(value, prefix, strlen(prefix)) == 0;
}

static int32_t seek(tqdb_table* t, const char* value, int option) {
  int32_t record = -1;
  OK(tqdb_seek(t, &value, 1, option, &record));
  return record;
}

static void count_progress(int32_t percentage, void* calls) {
  (void)percentage;
  ++*(int*)calls;
}

int main(int argc, char** argv) {
  char path[4096];
  tqdb_table* t = NULL;
  int32_t count = 0, type = 0, width = 0, record = 0, walked = 0;
  const char* name = NULL;
  double sum = 0, walked_sum = 0, value = 0;
  int64_t limit = 0;
  char small[4];
  size_t length = 0;
  int progress_calls = 0;
  const char* segments[2] = {"Jaén", "Peña Hernández, Rocío"};

  if (argc != 2) return 2;
  snprintf(path, sizeof path, "%s/CLIEN01", argv[1]);
  OK(tqdb_open(&t, path, argv[1]));

  /* Fields and keys. */
  OK(tqdb_field_count(t, &count));
  CHECK(count == 8);
  OK(tqdb_field_info(t, 2, &name, &type, &width));
  CHECK(strcmp(name, "NOMBRE") == 0 && type == 10 && width == 40);
  OK(tqdb_field_info(t, 6, NULL, &type, NULL));
  CHECK(type == 5);
  OK(tqdb_key_count(t, &count));
  CHECK(count == 3);

  /* A walk on key 1 meets every client once, in code order. */
  OK(tqdb_set_index(t, 1));
  for (OK(tqdb_move_first(t)); !tqdb_eof(t); OK(tqdb_move_next(t))) {
    if (++walked == 1) {
      CHECK(strcmp(text(t, "CLIENTE"), "000001") == 0);
      CHECK(starts(text(t, "nombre"), "Cañete Romero, Joaquín  "));
      CHECK(strcmp(text(t, "ALTA"), "11/10/2020") == 0);
      OK(tqdb_field_int64(t, "LIMITE", &limit));
      CHECK(limit == 7000);
    }
    OK(tqdb_field_double(t, "7", &value));
    walked_sum += value;
  }
  CHECK(walked == 200 && tqdb_status(t) == 15);
  CHECK(walked_sum > 367210.09 && walked_sum < 367210.11);
  OK(tqdb_sum(t, "SALDO", &sum));
  CHECK(sum == 0); /* without a filter */
  OK(tqdb_move_last(t));
  CHECK(strcmp(text(t, "CLIENTE"), "000200") == 0);
  OK(tqdb_move_previous(t));
  CHECK(strcmp(text(t, "CLIENTE"), "000199") == 0);

  /* Seeks: on key 2 by a name's beginning, on key 3 by its two segments, on key 1 the
   * entry after an exact one, and a value that is not there. */
  OK(tqdb_set_index(t, 2));
  CHECK(seek(t, "GARC", TQDB_SEEK_AFTER_EQ) > 0 &&
        starts(text(t, "NOMBRE"), "García Muñoz, Jesús"));
  OK(tqdb_set_index(t, 3));
  OK(tqdb_seek(t, segments, 2, TQDB_SEEK_FIRST_EQ, &record));
  CHECK(record > 0 && strcmp(text(t, "CLIENTE"), "000002") == 0);
  OK(tqdb_set_index(t, 1));
  CHECK(seek(t, "000041", TQDB_SEEK_FIRST_EQ) == 41);
  OK(tqdb_special_seek_key(t, &name));
  CHECK(seek(t, name, TQDB_SEEK_AFTER) == 42);
  CHECK(seek(t, "00004A", TQDB_SEEK_FIRST_EQ) == 0);
  CHECK(tqdb_status(t) == 12);

  /* Filter and sort. */
  OK(tqdb_filter(t, "SALDO > 10000"));
  OK(tqdb_record_count(t, &count));
  OK(tqdb_sum(t, "SALDO", &sum));
  CHECK(count == 5 && sum > 63557.92 && sum < 63557.94);
  OK(tqdb_sort(t, "SALDO DESC"));
  OK(tqdb_move_first(t));
  CHECK(strcmp(text(t, "CLIENTE"), "000001") == 0);
  OK(tqdb_filter(t, ""));

  /* A record added (in a bulk load), read back, edited and deleted. */
  OK(tqdb_begin_bulk_load(t));
  OK(tqdb_add_new(t));
  OK(tqdb_set_text(t, "CLIENTE", "000999"));
  OK(tqdb_set_text(t, "NOMBRE", "Ibáñez Núñez, Íñigo"));
  OK(tqdb_set_text(t, "ALTA", "29/02/2064"));
  OK(tqdb_set_double(t, "SALDO", 12.5));
  OK(tqdb_set_int64(t, "LIMITE", 5000));
  OK(tqdb_update(t));
  OK(tqdb_end_bulk_load(t));
  OK(tqdb_bookmark(t, &record));
  CHECK(record == 201);
  CHECK(seek(t, "000999", TQDB_SEEK_FIRST_EQ) == 201);
  CHECK(starts(text(t, "NOMBRE"), "Ibáñez Núñez, Íñigo ") &&
        strcmp(text(t, "ALTA"), "29/02/2064") == 0);
  OK(tqdb_edit(t));
  OK(tqdb_set_double(t, "SALDO", 0.25));
  OK(tqdb_update(t));
  OK(tqdb_field_double(t, "SALDO", &value));
  CHECK(value == 0.25);
  OK(tqdb_delete(t, 201));
  CHECK(seek(t, "000999", TQDB_SEEK_FIRST_EQ) == 0);

  /* Errors: number and Spanish description, kept until the next call. */
  CHECK(tqdb_field_text(t, "SALDOS", &name, NULL) == 50234 && tqdb_error_number(t) == 50234);
  CHECK(strcmp(tqdb_error_description(t), "Campo SALDOS no existe") == 0);
  CHECK(tqdb_set_index(t, 4) == 9 && tqdb_set_index(t, 1) == TQDB_OK && tqdb_error_number(t) == 0);
  CHECK(tqdb_field_count(t, NULL) == 5 && tqdb_field_count(NULL, &count) == 5);
  CHECK(seek(t, "000002", TQDB_SEEK_FIRST_EQ) == 2);
  CHECK(tqdb_field_copy(t, "CLIENTE", small, sizeof small, &length) == TQDB_ERROR_BUFFER &&
        length == 6);
  CHECK(tqdb_set_text(t, "SALDO", "1") == 50200); /* no AddNew or Edit */

  /* The engine channel: the first entry of key 1. */
  OK(tqdb_data_file_no(t, &count));
  snprintf(path, sizeof path, "F\\1\\%d", (int)count);
  OK(tqdb_set_command(t, path));
  OK(tqdb_execute(t));
  OK(tqdb_engine_result(t, &record));
  CHECK(record == 1 && tqdb_status(t) == 0);

  /* Reindex and rebuild report progress and keep every record. */
  OK(tqdb_reindex(t, count_progress, &progress_calls, &value));
  CHECK(progress_calls > 0);
  progress_calls = 0;
  OK(tqdb_rebuild(t, count_progress, &progress_calls, NULL));
  CHECK(progress_calls > 0);
  OK(tqdb_record_count(t, &count));
  CHECK(count == 200);
  OK(tqdb_close(t));

  /* A table that is not there: the error is read from the handle the open gave. */
  snprintf(path, sizeof path, "%s/NOHAY01", argv[1]);
  CHECK(tqdb_open(&t, path, argv[1]) == 50999 && tqdb_error_number(t) == 50999);
  tqdb_close(t);

  printf("c_walk: %d failures\n", failures);
  return failures == 0 ? 0 : 1;
}
