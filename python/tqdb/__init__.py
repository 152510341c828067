"""TQDB tables from Python: the C interface of libtqdb through ctypes, standard library only.

    import tqdb
    with tqdb.open("datos/CLIEN01", "datos/") as clients:
        for row in clients.rows(key=2, filter="SALDO > 10000"):
            print(row["NOMBRE"], row["SALDO"])

Fields come as str (text without its blank padding), int (integer fields), float (single
and double fields) and datetime.date (date fields; None for a date never written). Every
failure raises tqdb.Error with the library's number and Spanish description.

The library is $TQDB_LIBRARY when set, else libtqdb.so.0 beside this package, else the one
on the system's library path. A Table is used from one thread at a time.
"""

import contextlib
import ctypes
import datetime
from collections.abc import Mapping
from typing import NamedTuple

from . import _library

_lib = _library.load()

SEEK_OPTIONS = {"first": 1, "last": 2, "after-eq": 4, "after": 8, "before-eq": 16, "before": 32}
_INTEGER_TYPES = {1, 4}
_REAL_TYPES = {2, 3, 6, 7, *range(80, 86)}
_DATE_TYPE = 5


class Error(Exception):
    """A failure of the library: number and Spanish description."""

    def __init__(self, number, description):
        super().__init__(f"{number}: {description}")
        self.number = number
        self.description = description


class Field(NamedTuple):
    name: str
    type: int  # the library's type code
    width: int  # bytes in the record


def _bytes(text):
    return str(text).encode("utf-8")


def _date_text(value):
    return f"{value.day:02}/{value.month:02}/{value.year:04}"


def _value_text(value):
    """A seek value's text: dates as dd/mm/yyyy, numbers and text as they print."""
    return _date_text(value) if isinstance(value, datetime.date) else str(value)


def open(path, dictionary_dir=None):  # noqa: A001 - tqdb.open as gzip.open
    """Opens the table path ("datos/CLIEN01"); dictionary_dir is the directory of its
    dictionary, None for the library's "Directory" setting. Use it in a with statement."""
    return Table(path, dictionary_dir)


class Table:
    """One open table (tqdb.open). Fields: fields (name, type code, width), key_count."""

    def __init__(self, path, dictionary_dir=None):
        self._handle = ctypes.c_void_p()
        status = _lib.tqdb_open(ctypes.byref(self._handle), _bytes(path),
                                _bytes(dictionary_dir) if dictionary_dir else None)
        if status:
            error = self._error()
            self.close()
            raise error
        self.fields = [self._field(number) for number in range(1, self._int32("field_count") + 1)]
        self.key_count = self._int32("key_count")
        self._types = {field.name: field.type for field in self.fields}

    def close(self):
        if self._handle:
            _lib.tqdb_close(self._handle)
            self._handle = ctypes.c_void_p()

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        self.close()

    def __del__(self):
        if getattr(self, "_handle", None):
            self.close()

    def __iter__(self):
        return self.rows()

    def rows(self, key=None, filter=None, sort=None):  # noqa: A002 - the library's word
        """Yields the records in the order of key (default: the current key, at first 1).
        With a filter expression, only the records it selects, in the order it finds them
        (which need not be the key's), or ordered by sort (field names, DESC for
        descending)."""
        if key is not None:
            self._call("set_index", key)
        self._call("filter", _bytes(filter or ""))
        if sort:
            self._call("sort", _bytes(sort))
        self._call("move_first")
        while not _lib.tqdb_eof(self._handle):
            if self._int32("bookmark"):  # a record deleted from a filter's result reads 0
                yield self._row()
            self._call("move_next")

    def seek(self, value, key=None, option="first"):
        """The record of key (default: the current key) found for value with an option of
        SEEK_OPTIONS, or None. value is one key value, or a tuple with one per segment;
        "after" and "before" take the entry after or before value's first equal one."""
        if key is not None:
            self._call("set_index", key)
        values = value if isinstance(value, (tuple, list)) else [value]
        parts = [_bytes(_value_text(part)) for part in values]
        code = SEEK_OPTIONS[option] if isinstance(option, str) else option
        if code in (SEEK_OPTIONS["after"], SEEK_OPTIONS["before"]):
            if not self._seek(parts, SEEK_OPTIONS["first"]):
                return None
            entry = ctypes.c_char_p()
            self._call("special_seek_key", ctypes.byref(entry))
            parts = [entry.value]
        return self._row() if self._seek(parts, code) else None

    def add(self, values):
        """Adds a record with the fields of values (a mapping of field names) and returns it."""
        self._call("add_new")
        self._write(values)
        return self._row()

    @contextlib.contextmanager
    def bulk_load(self):
        """with table.bulk_load(): ... adds many records at once. The table is held alone
        meanwhile (other opens fail with 70) and its keys are written once at the end."""
        self._call("begin_bulk_load")
        try:
            yield self
        finally:
            self._call("end_bulk_load")

    def sum(self, field, filter):  # noqa: A002
        """The total of a numeric field over the records the filter selects."""
        self._call("filter", _bytes(filter))
        total = ctypes.c_double()
        self._call("sum", _bytes(field), ctypes.byref(total))
        return total.value

    # --- Helpers for Row ---------------------------------------------------------------

    def _edit(self, record, values):
        self._call("set_bookmark", record)
        self._call("edit")
        self._write(values)
        return self._row()

    def _delete(self, record):
        self._call("delete", record)

    # --- Calls into the library --------------------------------------------------------

    def _error(self):
        description = _lib.tqdb_error_description(self._handle) or b""
        return Error(_lib.tqdb_error_number(self._handle), description.decode("utf-8", "replace"))

    def _call(self, name, *arguments):
        if not self._handle:
            raise Error(5, "Llamada a procedimiento o argumento no válidos")  # a closed table
        if getattr(_lib, "tqdb_" + name)(self._handle, *arguments):
            raise self._error()

    def _int32(self, name):
        value = ctypes.c_int32()
        self._call(name, ctypes.byref(value))
        return value.value

    def _field(self, number):
        name, kind, width = ctypes.c_char_p(), ctypes.c_int32(), ctypes.c_int32()
        self._call("field_info", number, *map(ctypes.byref, (name, kind, width)))
        return Field(name.value.decode("utf-8"), kind.value, width.value)

    def _seek(self, parts, option):
        record = ctypes.c_int32()
        texts = (ctypes.c_char_p * len(parts))(*parts)
        self._call("seek", texts, len(parts), option, ctypes.byref(record))
        return record.value

    def _read(self, name):
        kind, field = self._types[name], _bytes(name)
        if kind in _INTEGER_TYPES:
            value = ctypes.c_int64()
            self._call("field_int64", field, ctypes.byref(value))
            return value.value
        if kind in _REAL_TYPES:
            value = ctypes.c_double()
            self._call("field_double", field, ctypes.byref(value))
            return value.value
        text, length = ctypes.c_void_p(), ctypes.c_size_t()
        self._call("field_text", field, ctypes.byref(text), ctypes.byref(length))
        value = ctypes.string_at(text, length.value).decode("utf-8")
        if kind != _DATE_TYPE:
            return value.rstrip(" ")
        if not value:
            return None
        day, month, year = (int(part) for part in value.split("/"))
        return datetime.date(year, month, day)

    def _row(self):
        values = {field.name: self._read(field.name) for field in self.fields}
        return Row(self, self._int32("bookmark"), values)

    def _write(self, values):
        for name, value in values.items():
            field = _bytes(name)
            if value is None:
                self._call("set_text", field, b"")
            elif isinstance(value, (bool, int)):
                self._call("set_int64", field, int(value))
            elif isinstance(value, float):
                self._call("set_double", field, value)
            elif isinstance(value, (str, datetime.date)):
                self._call("set_text", field, _bytes(_value_text(value)))
            else:
                raise TypeError(f"{name}: cannot write a {type(value).__name__}")
        self._call("update")


class Row(Mapping):
    """One record as it was read: field name -> value. bookmark is its record number."""

    def __init__(self, table, bookmark, values):
        self._table, self.bookmark, self._values = table, bookmark, values

    def __getitem__(self, name):
        return self._values[name]

    def __iter__(self):
        return iter(self._values)

    def __len__(self):
        return len(self._values)

    def __repr__(self):
        return f"Row({self.bookmark}, {self._values!r})"

    def update(self, values):
        """Writes the fields of values (a mapping of field names) into this record."""
        self._values = self._table._edit(self.bookmark, values)._values

    def delete(self):
        """Deletes this record; a walk over the table goes on with the next one."""
        self._table._delete(self.bookmark)
