// Links to related tables: reading one field of the record of a related table that
// matches this table's current record, without the caller opening that table.
//
// The related tables are opened on first use and kept, up to 11 of them, in the table's
// LinkedTables cache for the life of the table object (CloseDB closes them). A table is
// found in the cache by its name exactly as given (case-sensitive: "clien" and "CLIEN"
// are two entries, though both open the same files). A new entry opens DataPath + name +
// TableSuffix + ".tqd" with this table's dictionary directory when one was given to
// OpenFile, and finds the link fields: the linked field is the first segment's field of
// the linked table's key 1, this table's field the one with the same name.
//
// The link filter is: linked field name + " = " + the value + " And " + Filter for
// LinkChild (also when Filter is empty: the trailing " And " selects nothing more), and
// without the " And " part for LinkParent. The value is this table's link field of its
// current record (as stored, not the edit buffer) in its text form with trailing blanks
// removed, not quoted: a value containing " AND " or " OR " splits the filter there. The
// linked table keeps that filter in force afterwards.
//
// Texts here are UTF-8 (they go to the linked table's public members). Failures: a twelfth
// distinct name fails with Fault 91; errors of the linked table (opening, filtering,
// reading) reach the caller unchanged; Fault 50234 when this table has no field named as
// the linked field; Fault 9 when the linked table has no key 1.
#pragma once

#include <string_view>

#include "table/TableState.h"
#include "table/Variant.h"

namespace tqdb::query {

// The cache entry for Table, opening the table on first use; nullptr when all 11 entries
// hold other tables. A table that fails to open leaves its entry free.
LinkedTable* GetLinkedTable(TableState& State, std::string_view Table);

// Field FieldN (as Fields takes it) of the first record of Table that matches this
// table's current record and the extra condition Filter.
Variant LinkChild(TableState& State, std::string_view Table, std::string_view Filter,
                  const Variant& FieldN);
Variant LinkParent(TableState& State, std::string_view Table, const Variant& FieldN);

}  // namespace tqdb::query
