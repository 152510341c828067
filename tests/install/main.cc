// Builds against the installed headers and library only.
#include <cstdio>

#include "table/TQFile.h"

int main() {
  tqdb::TQFile Table;
  if (Table.Index() != 1 || Table.LastError() != 0) {
    std::puts("install_check: a new table object is not in its initial state");
    return 1;
  }
  Table.SetEngineCommand("k");
  Table.ExecuteCommand();
  if (Table.EngineCommand() != "K" || Table.LastError() != 0) {
    std::puts("install_check: the engine channel did not answer");
    return 1;
  }
  try {  // the error type must cross the library's boundary as itself
    tqdb::Variant("abc").ToDouble();
    std::puts("install_check: a text that is not a number converted");
    return 1;
  } catch (const tqdb::TQError& Error) {
    if (Error.Number() != 13) return 1;
  }
  std::puts("install_check: ok");
  return 0;
}
