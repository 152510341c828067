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
  std::puts("install_check: ok");
  return 0;
}
