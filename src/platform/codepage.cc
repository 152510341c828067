// Windows-1252 conversion, upper-casing and ordering.
//
// Everything here runs on fixed 256-entry tables built at compile time: the key engine
// compares and upper-cases texts on its hot path, so nothing allocates except the
// conversions that return a new string.
#include "platform/codepage.h"

#include <array>
#include <cstddef>

namespace tqdb::platform {
namespace {

// Code points of 0x80..0x9F; the five undefined bytes keep their C1 control.
constexpr std::array<char32_t, 32> kHighControls = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,  // 80..87
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,  // 88..8F
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,  // 90..97
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,  // 98..9F
};

constexpr char32_t CodePointOf(unsigned Byte) {
  return (Byte >= 0x80 && Byte <= 0x9F) ? kHighControls[Byte - 0x80] : char32_t(Byte);
}

constexpr std::array<uint8_t, 256> BuildUpper() {
  std::array<uint8_t, 256> Table{};
  for (unsigned B = 0; B < 256; ++B) Table[B] = static_cast<uint8_t>(B);
  for (unsigned B = 'a'; B <= 'z'; ++B) Table[B] = static_cast<uint8_t>(B - 0x20);
  // à..þ to À..Þ, except ÷ (0xF7), which has no case; ß (0xDF) and µ (0xB5) have no
  // upper case in Windows-1252 and stay.
  for (unsigned B = 0xE0; B <= 0xFE; ++B) {
    if (B != 0xF7) Table[B] = static_cast<uint8_t>(B - 0x20);
  }
  Table[0x9A] = 0x8A;  // š to Š
  Table[0x9C] = 0x8C;  // œ to Œ
  Table[0x9E] = 0x8E;  // ž to Ž
  Table[0xFF] = 0x9F;  // ÿ to Ÿ
  return Table;
}

// Rank of each byte when the 256 bytes are sorted by code point (all code points differ).
constexpr std::array<uint8_t, 256> BuildRanks() {
  std::array<uint8_t, 256> Table{};
  for (unsigned B = 0; B < 256; ++B) {
    unsigned Below = 0;
    for (unsigned Other = 0; Other < 256; ++Other) {
      if (CodePointOf(Other) < CodePointOf(B)) ++Below;
    }
    Table[B] = static_cast<uint8_t>(Below);
  }
  return Table;
}

constexpr std::array<uint8_t, 256> kUpper = BuildUpper();
constexpr std::array<uint8_t, 256> kRank = BuildRanks();

// The Windows-1252 byte for a code point, or '?' when there is none.
char ByteForCodePoint(char32_t Cp) {
  if (Cp < 0x80 || (Cp >= 0xA0 && Cp <= 0xFF)) return static_cast<char>(Cp);
  for (unsigned I = 0; I < kHighControls.size(); ++I) {
    if (kHighControls[I] == Cp) return static_cast<char>(0x80 + I);
  }
  return '?';
}

// Decodes one UTF-8 sequence at Text[Pos]; advances Pos. Returns false (having consumed
// the lead byte and any valid continuation bytes) for a malformed sequence.
bool DecodeUtf8(std::string_view Text, size_t& Pos, char32_t& Cp) {
  const auto Lead = static_cast<uint8_t>(Text[Pos++]);
  if (Lead < 0x80) {
    Cp = Lead;
    return true;
  }
  int Extra;
  char32_t Min;
  if (Lead >= 0xC2 && Lead <= 0xDF) {
    Extra = 1, Min = 0x80, Cp = Lead & 0x1F;
  } else if (Lead >= 0xE0 && Lead <= 0xEF) {
    Extra = 2, Min = 0x800, Cp = Lead & 0x0F;
  } else if (Lead >= 0xF0 && Lead <= 0xF4) {
    Extra = 3, Min = 0x10000, Cp = Lead & 0x07;
  } else {
    return false;
  }
  for (int I = 0; I < Extra; ++I) {
    if (Pos >= Text.size()) return false;
    const auto Next = static_cast<uint8_t>(Text[Pos]);
    if ((Next & 0xC0) != 0x80) return false;
    Cp = (Cp << 6) | (Next & 0x3F);
    ++Pos;
  }
  return Cp >= Min && Cp <= 0x10FFFF && !(Cp >= 0xD800 && Cp <= 0xDFFF);
}

void AppendUtf8(std::string& Out, char32_t Cp) {
  if (Cp < 0x80) {
    Out += static_cast<char>(Cp);
  } else if (Cp < 0x800) {
    Out += static_cast<char>(0xC0 | (Cp >> 6));
    Out += static_cast<char>(0x80 | (Cp & 0x3F));
  } else {
    Out += static_cast<char>(0xE0 | (Cp >> 12));
    Out += static_cast<char>(0x80 | ((Cp >> 6) & 0x3F));
    Out += static_cast<char>(0x80 | (Cp & 0x3F));
  }
}

}  // namespace

char32_t Cp1252ToCodePoint(uint8_t Byte) { return CodePointOf(Byte); }

std::string Utf8ToCp1252(std::string_view Utf8) {
  std::string Out;
  Out.reserve(Utf8.size());
  size_t Pos = 0;
  while (Pos < Utf8.size()) {
    char32_t Cp = 0;
    Out += DecodeUtf8(Utf8, Pos, Cp) ? ByteForCodePoint(Cp) : '?';
  }
  return Out;
}

std::string Cp1252ToUtf8(std::string_view Text) {
  std::string Out;
  Out.reserve(Text.size() + Text.size() / 4);
  for (char C : Text) AppendUtf8(Out, CodePointOf(static_cast<uint8_t>(C)));
  return Out;
}

uint8_t UpperByte(uint8_t Byte) { return kUpper[Byte]; }

std::string UpperCase(std::string_view Text) {
  std::string Out(Text);
  UpperCaseInPlace(Out);
  return Out;
}

void UpperCaseInPlace(std::string& Text) {
  for (char& C : Text) C = static_cast<char>(kUpper[static_cast<uint8_t>(C)]);
}

int CompareText(std::string_view A, std::string_view B) {
  const size_t Common = A.size() < B.size() ? A.size() : B.size();
  for (size_t I = 0; I < Common; ++I) {
    if (A[I] != B[I]) {
      return int(kRank[static_cast<uint8_t>(A[I])]) - int(kRank[static_cast<uint8_t>(B[I])]);
    }
  }
  if (A.size() == B.size()) return 0;
  return A.size() < B.size() ? -1 : 1;
}

uint8_t CodePointRank(uint8_t Byte) { return kRank[Byte]; }

std::string_view TrimLeft(std::string_view Text) {
  size_t First = 0;
  while (First < Text.size() && Text[First] == ' ') ++First;
  return Text.substr(First);
}

std::string_view TrimRight(std::string_view Text) {
  size_t End = Text.size();
  while (End > 0 && Text[End - 1] == ' ') --End;
  return Text.substr(0, End);
}

std::string_view Trim(std::string_view Text) { return TrimRight(TrimLeft(Text)); }

}  // namespace tqdb::platform
