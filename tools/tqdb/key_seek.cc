#include "key_seek.h"

#include <CLI/CLI.hpp>
#include <map>

#include "tool_error.h"

namespace tqdb::tool {
namespace {

const std::map<std::string, int32_t>& SeekOptions() {
  static const std::map<std::string, int32_t> Options = {
      {"first", adseekfirsteq},      {"last", adSeekLastEQ}, {"after-eq", adSeekAfterEQ},
      {"before-eq", adSeekBeforeEQ}, {"after", adSeekAfter}, {"before", adSeekBefore},
  };
  return Options;
}

Variant KeyValues(const std::vector<std::string>& Values) {
  if (Values.size() == 1) return Variant(Values[0]);
  std::vector<Variant> Elements(Values.begin(), Values.end());
  return Variant(std::move(Elements));
}

}  // namespace

void AddKeyArguments(CLI::App& Command, KeyTarget& Target, bool WithOption, bool ValuesOptional) {
  Command.add_option("--key", Target.Key, "key number (1..10)")
      ->check(CLI::Range(1, 10))
      ->capture_default_str();
  Command
      .add_option("VALUE", Target.Values,
                  "key value: one text for the whole key, or one value per segment")
      ->required(!ValuesOptional);
  if (!WithOption) return;
  Command
      .add_option("--option", Target.Option,
                  "first: first entry equal to VALUE; last: last equal entry; after-eq: "
                  "first entry not below VALUE; before-eq: VALUE's first equal entry or the "
                  "greatest below it; after / before: the entry after / before the first "
                  "entry equal to VALUE")
      ->check(CLI::IsMember({"first", "last", "after-eq", "before-eq", "after", "before"}))
      ->capture_default_str();
}

int32_t SeekTarget(TQFile& Object, const KeyTarget& Target) {
  Object.SetIndex(static_cast<int16_t>(Target.Key));
  const int32_t Option = SeekOptions().at(Target.Option);
  int32_t Record = 0;
  if (Option == adSeekAfter || Option == adSeekBefore) {
    // These two start from one exact entry: the first one equal to the value.
    if (Object.SeekKey(KeyValues(Target.Values), adseekfirsteq) == 0) return 0;
    Record = Object.SeekKey(Variant(Object.GetSpecialSeekKeys()), Option);
  } else {
    Record = Object.SeekKey(KeyValues(Target.Values), Option);
  }
  if (Record != 0) Object.SetBookMark(Record);
  return Record;
}

int32_t NextInKey(TQFile& Object) {
  const std::string Position = Object.GetSpecialSeekKeys();
  if (Position.empty()) return 0;
  const int32_t Record = Object.SeekKey(Variant(Position), adSeekAfter);
  if (Record != 0) Object.SetBookMark(Record);
  return Record;
}

std::string StatusText(int16_t Status) {
  switch (Status) {
    case 0:
      return "ok";
    case 12:
      return "not found";
    case 13:
      return "before the first entry";
    case 15:
      return "after the last entry";
    case 16:
      return "the key has no entries";
    default:
      return "status " + std::to_string(Status);
  }
}

}  // namespace tqdb::tool
