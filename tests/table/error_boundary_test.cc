// The error boundary: whatever a member's work raises leaves as a TQError.
#include "table/error_boundary.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <string>

#include "platform/fault.h"
#include "table/TQError.h"

namespace tqdb {
namespace {

TEST(GuardTest, TurnsEveryExceptionIntoATQError) {
  struct Case {
    std::function<void()> Work;
    int32_t Number;
    std::string Description, Source;
  };
  const std::vector<Case> Cases = {
      {[] { throw TQError(50999, "La tabla X no existe", "OpenFile"); }, 50999,
       "La tabla X no existe", "OpenFile"},
      // The system's own errors carry no source.
      {[] { throw platform::Fault(50234, "Campo X no existe"); }, 50234, "Campo X no existe", ""},
      {[] { throw platform::Fault(platform::kBadFileNumber); }, 52, platform::FaultDescription(52),
       "Member"},
      {[] { throw platform::Fault(70, "Permiso denegado", "LockRange"); }, 70, "Permiso denegado",
       "LockRange"},
      {[] { throw std::bad_alloc(); }, 7, "Memoria insuficiente", "Member"},
      {[] { throw std::out_of_range("vector"); }, 5, platform::FaultDescription(5), "Member"},
      {[] { throw 3; }, 5, platform::FaultDescription(5), "Member"},
  };
  EXPECT_EQ(Guard("Member", [] { return std::string("texto"); }), "texto");
  for (const Case& C : Cases) {
    try {
      Guard("Member", C.Work);
      ADD_FAILURE() << "nothing was raised for " << C.Number;
    } catch (const TQError& Error) {
      EXPECT_EQ(Error.Number(), C.Number);
      EXPECT_EQ(Error.Description(), C.Description) << C.Number;
      EXPECT_EQ(Error.Source(), C.Source) << C.Number;
    } catch (...) {
      ADD_FAILURE() << "an exception other than TQError escaped for " << C.Number;
    }
  }
}

}  // namespace
}  // namespace tqdb
