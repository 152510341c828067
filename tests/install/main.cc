// Builds against the installed headers and library only: a new table object, the engine
// channel, and the error type crossing the library's boundary as itself.
#include <cstdio>

#include "table/TQFile.h"

int main() {
  tqdb::TQFile Table;
  Table.SetEngineCommand("k");
  Table.ExecuteCommand();
  int Failed = Table.Index() != 1 || Table.EngineCommand() != "K" || Table.LastError() != 0;
  try {
    tqdb::Variant("abc").ToDouble();
    Failed = 1;
  } catch (const tqdb::TQError& Error) {
    Failed |= Error.Number() != 13;
  }
  std::puts(Failed ? "install_check: FAILED" : "install_check: ok");
  return Failed;
}
