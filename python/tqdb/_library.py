"""Loading libtqdb and declaring the functions of its C interface (table/tqdb_c.h)."""

import ctypes
import ctypes.util
import os

_handle = ctypes.c_void_p
_int32_out = ctypes.POINTER(ctypes.c_int32)
_double_out = ctypes.POINTER(ctypes.c_double)
_text = ctypes.c_char_p

# Every function returns an int status unless named otherwise; name: argument types.
_FUNCTIONS = {
    "open": [ctypes.POINTER(_handle), _text, _text],
    "close": [_handle],
    "field_count": [_handle, _int32_out],
    "field_info": [_handle, ctypes.c_int, ctypes.POINTER(_text), _int32_out, _int32_out],
    "key_count": [_handle, _int32_out],
    "set_index": [_handle, ctypes.c_int],
    "move_first": [_handle],
    "move_next": [_handle],
    "bookmark": [_handle, _int32_out],
    "set_bookmark": [_handle, ctypes.c_int32],
    "seek": [_handle, ctypes.POINTER(_text), ctypes.c_int, ctypes.c_int, _int32_out],
    "special_seek_key": [_handle, ctypes.POINTER(_text)],
    # The text is read by its length: an image field may hold NUL bytes.
    "field_text": [_handle, _text, ctypes.POINTER(ctypes.c_void_p),
                   ctypes.POINTER(ctypes.c_size_t)],
    "field_double": [_handle, _text, _double_out],
    "field_int64": [_handle, _text, ctypes.POINTER(ctypes.c_int64)],
    "set_text": [_handle, _text, _text],
    "set_double": [_handle, _text, ctypes.c_double],
    "set_int64": [_handle, _text, ctypes.c_int64],
    "add_new": [_handle],
    "edit": [_handle],
    "update": [_handle],
    "delete": [_handle, ctypes.c_int32],
    "begin_bulk_load": [_handle],
    "end_bulk_load": [_handle],
    "filter": [_handle, _text],
    "sort": [_handle, _text],
    "sum": [_handle, _text, _double_out],
}
_RESULTS = {"error_number": ctypes.c_int32, "error_description": _text, "eof": ctypes.c_int}


def _candidates():
    """Where the library is looked for: $TQDB_LIBRARY alone when set, else beside the
    package, else the system's library path."""
    chosen = os.environ.get("TQDB_LIBRARY")
    if chosen:
        return [chosen]
    here = os.path.dirname(os.path.abspath(__file__))
    beside = [os.path.join(here, name) for name in ("libtqdb.so.0", "libtqdb.so")]
    found = ctypes.util.find_library("tqdb")
    return [p for p in beside if os.path.exists(p)] + ([found] if found else []) + ["libtqdb.so.0"]


def load():
    tried = []
    for path in _candidates():
        try:
            library = ctypes.CDLL(path)
            break
        except OSError as error:
            tried.append(f"{path}: {error}")
    else:
        raise ImportError("libtqdb not found (set TQDB_LIBRARY to its path); tried:\n  "
                          + "\n  ".join(tried))
    for name, arguments in _FUNCTIONS.items():
        function = getattr(library, "tqdb_" + name)
        function.argtypes, function.restype = arguments, ctypes.c_int
    for name, result in _RESULTS.items():
        function = getattr(library, "tqdb_" + name)
        function.argtypes, function.restype = [_handle], result
    return library
