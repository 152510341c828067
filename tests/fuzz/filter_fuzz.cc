// Fuzz target: the filter expression parser and evaluator, on a small fixed table. Each
// input is a filter text. The filter runs through the public interface; then the view is
// walked, summed and sorted, and the filter removed. The pieces of the language are also
// called one by one on the same text.
//
// Properties beyond "no crash, no hang": only TQErrors leave the interface, each with a
// number and a description; a filter that succeeds leaves a view whose records are live
// records of the table.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

#include "fuzz_support.h"
#include "platform/codepage.h"
#include "platform/fault.h"
#include "query/filter_parser.h"
#include "query/like_pattern.h"
#include "records/record_codecs.h"
#include "table/TQError.h"
#include "table/TQFile.h"
#include "table/TableState.h"

namespace {

using namespace tqdb;

TQFile& Table() {
  static TQFile* const T = [] {
    auto* Opened = new TQFile;
    Opened->OpenFile(fuzz::WriteFuzzTable(), fuzz::ScratchDir());
    return Opened;
  }();
  return *T;
}

template <typename F>
void Public(const char* What, F&& Work) {
  try {
    Work();
  } catch (const TQError& Error) {
    if (Error.Number() == 0 || Error.Description().empty()) {
      fuzz::Finding(std::string(What) + ": TQError without number or description");
    }
  } catch (const std::exception& Error) {
    fuzz::Finding(std::string(What) + ": foreign exception " + Error.what());
  }
}

void Pieces(const TableState& State, std::string_view Text) {
  const std::string Upper = platform::UpperCase(Text);
  query::SplitCondition(Upper);
  query::StripQuotes(Upper);
  query::PatternKeyPrefix(Upper);
  query::PatternLiteralHead(Upper);
  query::ParseNumberText(Upper);
  query::IsGroupedFilter(Upper);
  // Pattern against text: the first half of the input against the second; a text with
  // no wildcard matches itself, and "*" matches anything.
  const std::string_view Pattern = std::string_view(Upper).substr(0, Upper.size() / 2);
  const std::string_view Subject = std::string_view(Upper).substr(Upper.size() / 2);
  query::MatchesPattern(Subject, Pattern);
  if (Subject.find_first_of("*?") == std::string_view::npos &&
      !query::MatchesPattern(Subject, Subject)) {
    fuzz::Finding("a text without wildcards does not match itself");
  }
  if (!query::MatchesPattern(Subject, "*")) fuzz::Finding("\"*\" does not match a text");
  try {
    query::ConnectorCode(Upper);
  } catch (const platform::Fault&) {
  }
  try {
    query::ParseCondition(State, Upper);
  } catch (const platform::Fault&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Data, size_t Size) {
  TQFile& T = Table();
  const std::string Text(reinterpret_cast<const char*>(Data), Size);
  Pieces(T.State(), platform::Utf8ToCp1252(Text));
  bool Filtered = false;
  Public("Filter", [&] {
    T.Filter(Text);
    Filtered = true;
  });
  if (Filtered) {
    const TableState& State = T.State();
    for (size_t I = 1; I < State.FilterList.size(); ++I) {
      const int32_t Record = State.FilterList[I];
      if (Record < 1 || Record > 60 || IsAnulado(State, Record)) {
        fuzz::Finding("the view holds record " + std::to_string(Record));
      }
    }
  }
  Public("MoveFirst", [&] { T.MoveFirst(); });
  for (int Step = 0; Step < 200 && !T.Eof(); ++Step) {
    Public("Fields", [&] { T.Fields("NOMBRE"); });
    Public("MoveNext", [&] { T.MoveNext(); });
  }
  Public("Sum", [&] { T.Sum("IMPORTE"); });
  Public("Sum", [&] { T.Sum("CLASE"); });
  if (Size % 3 == 0) Public("Sort", [&] { T.Sort(Text.substr(0, 40)); });
  Public("MoveLast", [&] { T.MoveLast(); });
  Public("RecordCount", [&] { T.RecordCount(); });
  Public("Filter", [&] { T.Filter("CLEAN"); });
  Public("Filter", [&] { T.Filter(""); });
  return 0;
}
