// ReIndex: building a table's key file anew from its dictionary and its data file.
#pragma once

#include "table/TableState.h"

namespace tqdb {

// Closes the key file ("K"), deletes it and builds it again from the data file with the
// engine's create command ("/C/"), raising Progress as the records are entered. Returns
// the time it took as minutes.seconds (150 seconds give 2.3); a run across midnight gives
// a negative value.
//
// REQUIRES: an open table. Raises Fault 70 before anything is touched when another table
// object has the table open (the rebuild needs it alone). When the new key file cannot be
// created (status 23) the key file path or the fault is shown (critical icon) and the
// table is left without a key file; any other refusal raises Fault 50228
// "Error indexados: " + Str(status) + command. The data file is opened again afterwards,
// as an open does after building a key file.
double ReIndex(TableState& State);

}  // namespace tqdb
