// tqdb delete TABLE --key N VALUE... [--all] | --filter EXPR: deletes the record found by
// key value (its first equal entry), with --all every record whose key equals the value,
// or every record a filter selects, through Delete. A deleted record keeps its place,
// marked "ANULADO", until a rebuild.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "commands.h"
#include "key_seek.h"
#include "table_ref.h"
#include "tool_error.h"

namespace tqdb::tool {
namespace {

struct DeleteOptions {
  TableRef Table;
  KeyTarget Target;
  bool All = false;
  std::string Filter;
};

int DeleteByKey(TQFile& Object, const DeleteOptions& Options) {
  int Deleted = 0;
  for (;;) {
    const int32_t Record = SeekTarget(Object, Options.Target);
    if (Record == 0) break;
    Object.Delete(Record);
    std::cout << "deleted record " << Record << '\n';
    ++Deleted;
    if (!Options.All) break;
  }
  if (Deleted == 0) {
    std::cout << "no record: " << StatusText(Object.LastError()) << " (status "
              << Object.LastError() << "); nothing deleted\n";
    return kExitFailure;
  }
  if (Options.All) std::cout << "deleted " << Deleted << " records\n";
  return kExitOk;
}

// Delete(-1) deletes every record of the filtered view, then turns the view off.
int DeleteFiltered(TQFile& Object, const DeleteOptions& Options) {
  Object.Filter(Options.Filter);
  const int32_t Count = Object.RecordCount();
  if (Count == 0) {
    std::cout << "no record matches " << Options.Filter << "; nothing deleted\n";
    return kExitFailure;
  }
  Object.Delete(-1);
  std::cout << "deleted " << Count << " records where " << Options.Filter << '\n';
  return kExitOk;
}

int RunDelete(const DeleteOptions& Options) {
  if (Options.Target.Values.empty() == Options.Filter.empty()) {
    throw ToolError("give either key VALUEs or --filter", kExitUsage);
  }
  TQFile Object;
  OpenTable(Object, Options.Table);
  return Options.Filter.empty() ? DeleteByKey(Object, Options) : DeleteFiltered(Object, Options);
}

}  // namespace

void AddDeleteCommand(CLI::App& App, CommandRun& Run) {
  auto Options = std::make_shared<DeleteOptions>();
  CLI::App* Command = App.add_subcommand(
      "delete",
      "Delete the record found by key value (its first equal entry), or the records a filter "
      "selects");
  AddTableArguments(*Command, Options->Table);
  AddKeyArguments(*Command, Options->Target, false, /*ValuesOptional=*/true);
  Command->add_flag("--all", Options->All, "delete every record whose key equals the value");
  Command->add_option("--filter", Options->Filter,
                      "delete every record this filter selects (instead of key values)");
  Command->callback([Options, &Run] { Run = [Options] { return RunDelete(*Options); }; });
}

}  // namespace tqdb::tool
