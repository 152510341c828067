// Reading the fields of an engine command text.
//
// A command is a letter followed by fields, each introduced by the separator ("\", or "/"
// for commands that carry paths). Field 1 starts after the first separator of the text,
// field k + 1 after the first separator found from the start of field k; when no
// separator is found the field starts at the beginning of the text (so a missing field
// reads the whole command, and as a number gives what the letter gives: nothing).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/EngineState.h"

namespace tqdb::engine {

class CommandFields {
 public:
  CommandFields(std::string_view Command, char Separator)
      : command_(Command), separator_(Separator) {}

  // 0-based index where field Number (1-based) starts.
  size_t Start(int Number) const;
  // The field read as a number by the leading-number rule (the rest of the text is
  // ignored), rounded halves-to-even; Fault 6 when it does not fit.
  int16_t Int16(int Number) const;
  int32_t Int32(int Number) const;
  // The field up to the next separator, or to the end of the text.
  std::string_view Text(int Number) const;
  std::string_view TextToEnd(int Number) const;

  // The key texts of D and I, starting at field First: taken by each key's length when
  // the text holds every key at full length with a separator between them (key texts
  // over binary fields may hold the separator byte), else split at every separator.
  std::vector<std::string> KeyTexts(const EngineState& Engine, int First) const;
  // The old and new key texts of R (fields 4 and 5), by the same rule for one key.
  void OldAndNew(const EngineState& Engine, int Key, std::string_view& Old,
                 std::string_view& New) const;

 private:
  std::string_view command_;
  char separator_;
};

}  // namespace tqdb::engine
