// The error a piece of work raises, as the tests compare it.
#pragma once

#include <functional>
#include <string>
#include <utility>

#include "platform/fault.h"
#include "table/TQError.h"

namespace tqdb::testing {

// The number and description of the TQError or fault Work raises; (0, "") when none.
inline std::pair<int32_t, std::string> ErrorOf(const std::function<void()>& Work) {
  try {
    Work();
  } catch (const TQError& Error) {
    return {Error.Number(), Error.Description()};
  } catch (const platform::Fault& Failure) {
    return {Failure.Number(), Failure.Description()};
  }
  return {0, ""};
}

inline int32_t FaultOf(const std::function<void()>& Work) { return ErrorOf(Work).first; }

}  // namespace tqdb::testing
