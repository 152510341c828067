// tqdb update TABLE --key N VALUE... --set FIELD=VALUE...: finds a record by key value
// (the first equal entry) and changes fields of it through Edit, Fields and Update. The
// values are checked as import checks them. Prints the record as it is afterwards.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "commands.h"
#include "import_values.h"
#include "key_seek.h"
#include "platform/codepage.h"
#include "record_output.h"
#include "table_ref.h"
#include "tool_error.h"

namespace tqdb::tool {
namespace {

struct UpdateOptions {
  TableRef Table;
  KeyTarget Target;
  std::vector<std::string> Assignments;
  OutputOptions Output;
};

struct Assignment {
  int16_t Field = 0;
  Variant Value;
};

int16_t FieldNumber(TQFile& Object, const std::string& Name) {
  const std::string Wanted = platform::UpperCase(platform::Utf8ToCp1252(Name));
  for (int32_t F = 1; F <= Object.FieldCount(); ++F) {
    const auto Number = static_cast<int16_t>(F);
    if (platform::Utf8ToCp1252(Object.FieldName(Number)) == Wanted) return Number;
  }
  throw TQError(50234, "Campo " + platform::Cp1252ToUtf8(Wanted) + " no existe");
}

std::vector<Assignment> ParseAssignments(TQFile& Object, const std::vector<std::string>& Texts) {
  std::vector<Assignment> Result;
  for (const std::string& Text : Texts) {
    const size_t Equals = Text.find('=');
    if (Equals == std::string::npos || Equals == 0) {
      throw ToolError("--set " + Text + ": expected FIELD=VALUE", kExitUsage);
    }
    const int16_t Field = FieldNumber(Object, Text.substr(0, Equals));
    std::string Problem;
    std::optional<Variant> Value =
        ImportValue(ShapeOf(Object, Field), Text.substr(Equals + 1), Problem);
    if (!Value) throw ToolError(Problem);
    Result.push_back({Field, std::move(*Value)});
  }
  return Result;
}

int RunUpdate(const UpdateOptions& Options) {
  TQFile Object;
  OpenTable(Object, Options.Table);
  const std::vector<Assignment> Changes = ParseAssignments(Object, Options.Assignments);
  const int32_t Record = SeekTarget(Object, Options.Target);
  if (Record == 0) {
    std::cout << "no record: " << StatusText(Object.LastError()) << " (status "
              << Object.LastError() << "); nothing changed\n";
    return kExitFailure;
  }
  Object.Edit();
  for (const Assignment& Change : Changes) Object.SetFields(Variant(Change.Field), Change.Value);
  Object.Update();
  Object.SetBookMark(Record);
  std::cout << "updated record " << Record << '\n';
  RecordWriter Writer(Object, SelectColumns(Object, Options.Output),
                      ParseFormat(Options.Output.Format), std::cout);
  Writer.Add();
  Writer.Finish();
  return kExitOk;
}

}  // namespace

void AddUpdateCommand(CLI::App& App, CommandRun& Run) {
  auto Options = std::make_shared<UpdateOptions>();
  CLI::App* Command = App.add_subcommand(
      "update", "Change fields of the record found by key value (its first equal entry)");
  AddTableArguments(*Command, Options->Table);
  AddKeyArguments(*Command, Options->Target, false);
  Command
      ->add_option("--set", Options->Assignments,
                   "FIELD=VALUE (repeatable); an empty VALUE empties the field")
      ->required();
  AddOutputOptions(*Command, Options->Output, "text");
  Command->callback([Options, &Run] { Run = [Options] { return RunUpdate(*Options); }; });
}

}  // namespace tqdb::tool
