#pragma once

/* Marks the declarations that make up the library's public interface (the C++ classes and
 * functions of TQFile.h and the C functions of tqdb_c.h). A shared build compiles everything
 * else with hidden visibility, so only these names are exported from libtqdb.so; in a static
 * build the mark changes nothing. The header works for C and C++ alike. */
#if defined(__GNUC__) || defined(__clang__)
#define TQDB_API __attribute__((visibility("default")))
#else
#define TQDB_API
#endif
