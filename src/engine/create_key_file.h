// Building a key file from a table's dictionary and data file: the engine letter C.
#pragma once

#include <cstdint>
#include <string>

#include "engine/EngineState.h"
#include "platform/fault.h"

namespace tqdb::engine {

// Builds the key file BasePath + ".TQC" from the dictionary found through
// Engine.EngineDir and the data file BasePath + ".TQD", with every key of every live
// record and every deleted record's number on the deleted-record stack. The dispatcher
// sets Engine.Creating around the call and opens the new file afterwards.
//
// FileNo is the key file's number when one is open, else the number the command carried.
// A key file that cannot be created raises KeyFileNotCreated (status 23); other failures
// raise faults (the dispatcher reports them as status 105). A fault numbered 55000 is
// retried by the dispatcher without end, so a lasting failure must not use it.
void CreateKeyFile(EngineState& Engine, int16_t FileNo, const std::string& BasePath);

// The key file could not be created (a read-only directory or file, a full disk, ...);
// the description is the platform fault's.
class KeyFileNotCreated : public platform::Fault {
 public:
  explicit KeyFileNotCreated(const platform::Fault& Cause)
      : Fault(Cause.Number(), Cause.Description()) {}
};

}  // namespace tqdb::engine
