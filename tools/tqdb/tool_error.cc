#include "tool_error.h"

#include <iostream>
#include <new>

#include "platform/fault.h"
#include "table/TQError.h"

namespace tqdb::tool {
namespace {

void PrintSystemError(int32_t Number, const std::string& Description, const std::string& Source) {
  std::cerr << "tqdb: error " << Number << ": " << OneLine(Description);
  if (!Source.empty()) std::cerr << " (" << Source << ")";
  std::cerr << '\n';
}

}  // namespace

std::string OneLine(std::string Text) {
  std::string Line;
  for (size_t I = 0; I < Text.size(); ++I) {
    if (Text[I] == '\r' || Text[I] == '\n') {
      if (!Line.empty() && Line.back() != ' ') Line += ' ';
      if (Text[I] == '\r' && I + 1 < Text.size() && Text[I + 1] == '\n') ++I;
    } else {
      Line += Text[I];
    }
  }
  return Line;
}

int RunReportingErrors(const std::function<int()>& Command) {
  try {
    return Command();
  } catch (const TQError& Error) {
    PrintSystemError(Error.Number(), Error.Description(), Error.Source());
  } catch (const platform::Fault& Failure) {
    // The tool reads some files below the public interface (info, check); their faults
    // carry the same numbers and descriptions.
    PrintSystemError(Failure.Number(), Failure.Description(), Failure.Source());
  } catch (const ToolError& Error) {
    std::cerr << "tqdb: " << Error.what() << '\n';
    return Error.ExitStatus();
  } catch (const std::bad_alloc&) {
    PrintSystemError(7, "Memoria insuficiente", "");
  } catch (const std::exception& Error) {
    std::cerr << "tqdb: " << Error.what() << '\n';
  }
  return kExitFailure;
}

}  // namespace tqdb::tool
