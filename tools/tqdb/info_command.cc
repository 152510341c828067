// tqdb info TABLE: what a table is made of, read straight from its files without opening
// it (so that nothing is built or repaired): description, fields, keys, record places,
// deleted records and the shape of each key's tree.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <memory>

#include "commands.h"
#include "engine/tree_checker.h"
#include "field_types.h"
#include "platform/codepage.h"
#include "table_files.h"
#include "table_ref.h"
#include "tool_error.h"

namespace tqdb::tool {
namespace {

struct InfoOptions {
  TableRef Table;
};

std::string Utf8(std::string_view Text) { return platform::Cp1252ToUtf8(Text); }

// printf-style formatting into a string, for the aligned tables below.
template <typename... Args>
std::string Format(const char* Pattern, Args... Values) {
  char Line[512];
  std::snprintf(Line, sizeof Line, Pattern, Values...);
  return Line;
}

// "NOMBRE[1,20] + CLIENTE[1,6]"
std::string SegmentsText(const Dictionary& Dict, int Key) {
  std::string Text;
  for (int S = 1; S <= Dict.KeySegCount[Key]; ++S) {
    const int Field = Dict.KeySegField[Key][S];
    if (S > 1) Text += " + ";
    Text += Utf8(Dict.FieldNames[static_cast<size_t>(Field)]) + "[" +
            std::to_string(Dict.KeySegStart[Key][S]) + "," +
            std::to_string(Dict.KeySegLength[Key][S]) + "]";
  }
  return Text;
}

void PrintFields(const Dictionary& Dict) {
  std::cout << "\nfields\n"
            << "   #  name                     type            declared  width  offset  id\n";
  for (int F = 1; F <= Dict.NumFields; ++F) {
    const auto I = static_cast<size_t>(F);
    int Id = 0;
    for (int Candidate = 1; Candidate <= kMaxFields; ++Candidate) {
      if (Dict.FieldById[static_cast<size_t>(Candidate)] == F) Id = Candidate;
    }
    const std::string Type =
        std::to_string(Dict.FieldTypes[I]) + " " + TypeName(Dict.FieldTypes[I]);
    std::cout << Format("  %2d  %-23s  %-14s  %8d  %5d  %6d  %2d\n", F,
                        Utf8(Dict.FieldNames[I]).c_str(), Type.c_str(), Dict.FieldLengthDecl[I],
                        Dict.FieldWidth[I], Dict.FieldOffset[I], Id);
  }
}

void PrintKeys(const Dictionary& Dict, KeyFileReader& Keys) {
  std::cout << "\nkeys\n";
  for (int K = 1; K <= Dict.KeyCount; ++K) {
    std::string Shape = "key file: not readable";
    if (Keys.IsOpen() && K <= Keys.Engine.Header.KeyCount) {
      const size_t Entries = engine::ListKeyEntries(Keys.Engine, K).size();
      Shape =
          "depth " + std::to_string(Keys.Depth(K)) + ", " + std::to_string(Entries) + " entries";
    }
    std::cout << Format("  %2d  %-44s length %3d  %s\n", K, SegmentsText(Dict, K).c_str(),
                        Dict.KeyTextLength(K), Shape.c_str());
  }
  if (Dict.KeyCount == 0) std::cout << "  (none)\n";
}

int RunInfo(const InfoOptions& Options) {
  const TableRef& Table = Options.Table;
  const TableFiles Files = ReadTableFiles(Table);
  const Dictionary& Dict = Files.Dict;
  int32_t Deleted = 0;
  for (int32_t R = 1; R <= Files.Places(); ++R) Deleted += Files.IsDeleted(R) ? 1 : 0;

  std::cout << "table " << Table.Name() << Table.Suffix() << ": " << Utf8(Dict.TableDescripcion)
            << "\n"
            << "  dictionary  " << Table.DictionaryPath() << "\n"
            << "  data file   " << Table.DataPath() << ": " << Files.Data.size() << " bytes, "
            << Files.Places() << " record places of " << Dict.RecordLength << " bytes, "
            << Files.Places() - Deleted << " live, " << Deleted << " deleted\n";
  KeyFileReader Keys(Table);
  if (Keys.IsOpen()) {
    const KeyFileHeader& Header = Keys.Engine.Header;
    std::cout << "  key file    " << Table.KeyPath() << ": " << int{Header.KeyCount}
              << " keys, last record number " << Header.LastRecord << ", " << Header.DeletedCount
              << (Header.DeletedCount == 1 ? " number" : " numbers")
              << " on the deleted-record stack\n";
  } else {
    std::cout << "  key file    " << Keys.Problem() << " (it is built when the table is opened)\n";
  }
  PrintFields(Dict);
  PrintKeys(Dict, Keys);
  return kExitOk;
}

}  // namespace

void AddInfoCommand(CLI::App& App, CommandRun& Run) {
  auto Options = std::make_shared<InfoOptions>();
  CLI::App* Command = App.add_subcommand(
      "info", "Describe a table: fields, keys, record places, deleted records, key-file depth");
  AddTableArguments(*Command, Options->Table);
  Command->callback([Options, &Run] { Run = [Options] { return RunInfo(*Options); }; });
}

}  // namespace tqdb::tool
