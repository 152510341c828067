// Translation of internal faults into the public error type.
#include "table/error_boundary.h"

#include <exception>
#include <new>
#include <string>

#include "platform/fault.h"
#include "table/TQError.h"

namespace tqdb {
namespace {

constexpr int32_t kFirstOwnError = 50000;

}  // namespace

void RethrowAsTQError(const char* Source) {
  const std::string Member = Source != nullptr ? Source : "";
  try {
    throw;
  } catch (const TQError&) {
    throw;
  } catch (const platform::Fault& Fault) {
    // The system's own errors (50000 and up) carry their number and description only.
    const bool OwnError = Fault.Number() >= kFirstOwnError;
    throw TQError(Fault.Number(), Fault.Description(),
                  OwnError ? "" : (Fault.Source().empty() ? Member : Fault.Source()));
  } catch (const std::bad_alloc&) {
    throw TQError(7, platform::FaultDescription(7), Member);  // "Memoria insuficiente"
  } catch (...) {
    // Another standard or foreign exception: a failure the library did not classify.
    throw TQError(platform::kInvalidCall, platform::FaultDescription(platform::kInvalidCall),
                  Member);
  }
}

}  // namespace tqdb
