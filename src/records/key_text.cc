// Building key texts from values and from raw records.
#include "records/key_text.h"

#include <algorithm>

#include "platform/codepage.h"
#include "platform/fault.h"
#include "records/dates.h"

namespace tqdb {
namespace {

// The last two decimal digits of a number, as "dd", "MM" and "yy" format them.
std::string TwoDigitText(int Number) {
  const int Last = ((Number % 100) + 100) % 100;
  return std::string{static_cast<char>('0' + Last / 10), static_cast<char>('0' + Last % 10)};
}

// A Date value's text in the stored form the keys hold.
std::string DateKeyText(const Variant& Value) {
  const std::string Text = Value.ToString();
  if (Text.size() == 10) return DateToLongText(Text);
  if (Text.size() == 8) return DateToText(Text);
  const Date& D = Value.AsDate();
  const std::string Short =
      TwoDigitText(D.Day) + "/" + TwoDigitText(D.Month) + "/" + TwoDigitText(D.Year);
  return DateToText(Short);
}

// Works on any member set with the dictionary's field and key arrays.
template <typename Layout>
void FromRecordInto(const Layout& L, int16_t Key, std::string_view Record, std::string& Text) {
  if (Key < 1 || Key > kMaxKeys) throw platform::Fault(platform::kSubscript);
  Text.clear();
  for (int S = 1; S <= L.KeySegCount[Key] && S <= kMaxSegments; ++S) {
    const int Field = L.KeySegField[Key][S];
    if (Field < 1 || static_cast<size_t>(Field) >= L.FieldOffset.size()) {
      throw platform::Fault(platform::kSubscript);
    }
    const int64_t From = int64_t{L.FieldOffset[Field]} + L.KeySegStart[Key][S] - 1;
    const int64_t Count = std::max<int64_t>(L.KeySegLength[Key][S], 0);
    // Bytes before the record's start or past its end read as blanks.
    const int64_t Lead = std::clamp<int64_t>(-From, 0, Count);
    const int64_t Avail =
        std::clamp<int64_t>(static_cast<int64_t>(Record.size()) - (From + Lead), 0, Count - Lead);
    Text.append(static_cast<size_t>(Lead), ' ');
    if (Avail > 0)
      Text.append(Record.substr(static_cast<size_t>(From + Lead), static_cast<size_t>(Avail)));
    Text.append(static_cast<size_t>(Count - Lead - Avail), ' ');
  }
  if (L.KeySegCount[Key] == 0 && Key <= L.KeyCount)
    Text.assign(1, ' ');  // a key number left unused
}

template <typename Layout>
std::string FromRecord(const Layout& L, int16_t Key, std::string_view Record, bool Upper) {
  std::string Text;
  FromRecordInto(L, Key, Record, Text);
  if (Upper) platform::UpperCaseInPlace(Text);
  return Text;
}

template <typename Layout>
int KeyLengthOf(const Layout& L, int16_t Key) {
  if (Key < 1 || Key > kMaxKeys) throw platform::Fault(platform::kSubscript);
  int Length = 0;
  for (int S = 1; S <= L.KeySegCount[Key] && S <= kMaxSegments; ++S) {
    Length += L.KeySegLength[Key][S];
  }
  return L.KeySegCount[Key] == 0 ? 1 : Length;
}

}  // namespace

std::string KeyTextFromValues(const std::vector<Variant>& Values) {
  std::string Text;
  for (const Variant& Value : Values) {
    if (Value.Type() == VarType::Date) {
      Text += DateKeyText(Value);
    } else {
      Text += platform::Utf8ToCp1252(Value.ToString());
    }
  }
  return Text;
}

std::string KeyTextFromRecord(const TableState& State, int16_t Key, std::string_view Record,
                              bool Upper) {
  return FromRecord(State, Key, Record, Upper);
}

void KeyTextFromRecordInto(const TableState& State, int16_t Key, std::string_view Record,
                           std::string& Text) {
  FromRecordInto(State, Key, Record, Text);
}

void KeyTextFromRecordInto(const Dictionary& Dict, int16_t Key, std::string_view Record,
                           std::string& Text) {
  FromRecordInto(Dict, Key, Record, Text);
}

std::string KeyTextFromRecord(const Dictionary& Dict, int16_t Key, std::string_view Record,
                              bool Upper) {
  return FromRecord(Dict, Key, Record, Upper);
}

int KeyFileKeyLength(const TableState& State, int16_t Key) { return KeyLengthOf(State, Key); }

int KeyFileKeyLength(const Dictionary& Dict, int16_t Key) { return KeyLengthOf(Dict, Key); }

}  // namespace tqdb
