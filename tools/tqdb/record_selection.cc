#include "record_selection.h"

#include <CLI/CLI.hpp>

namespace tqdb::tool {

void AddSelectionOptions(CLI::App& Command, RecordSelection& Selection) {
  Command.add_option("--key", Selection.Key, "walk in the order of this key (1..10)")
      ->check(CLI::Range(1, 10))
      ->capture_default_str();
  Command.add_option("--filter", Selection.Filter,
                     "filter expression, e.g. \"IMPORTE > 1000 AND FECHA >= A40101\"; the "
                     "records come in the order the filter finds them");
  Command.add_option("--sort", Selection.Sort,
                     "sort the records: FIELD, F1+F2, ABS(FIELD), each optionally followed "
                     "by DESC");
  Command.add_option("--limit", Selection.Limit, "write at most this many records");
}

void ApplySelection(TQFile& Object, const RecordSelection& Selection) {
  Object.SetIndex(static_cast<int16_t>(Selection.Key));
  if (!Selection.Filter.empty()) Object.Filter(Selection.Filter);
  if (!Selection.Sort.empty()) Object.Sort(Selection.Sort);
}

int64_t ForEachSelected(TQFile& Object, const RecordSelection& Selection,
                        const std::function<void()>& Visit) {
  int64_t Count = 0;
  Object.MoveFirst();
  while (!Object.Eof() && (Selection.Limit == 0 || Count < Selection.Limit)) {
    if (Object.BookMark() != 0) {
      Visit();
      ++Count;
    }
    Object.MoveNext();
  }
  return Count;
}

}  // namespace tqdb::tool
