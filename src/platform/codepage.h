// Single-byte text in Windows-1252.
//
// Inside the library text is kept as Windows-1252 bytes in std::string (what goes to
// files, keys and engine commands). The public interface speaks UTF-8; conversion happens
// at the boundary. Ordering and upper-casing work on the characters the bytes stand for,
// not on the raw bytes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tqdb::platform {

// The Unicode code point of a Windows-1252 byte. The five bytes Windows-1252 leaves
// undefined (0x81, 0x8D, 0x8F, 0x90, 0x9D) map to the C1 control of the same value.
char32_t Cp1252ToCodePoint(uint8_t Byte);

// UTF-8 to Windows-1252; a character with no Windows-1252 form (or a malformed UTF-8
// sequence) becomes "?".
std::string Utf8ToCp1252(std::string_view Utf8);
// Windows-1252 to UTF-8.
std::string Cp1252ToUtf8(std::string_view Text);

// Upper case of one byte: the Unicode upper case of its character where that exists in
// Windows-1252 ("ñ" to "Ñ", "é" to "É", "ÿ" to "Ÿ", "š" to "Š"), else the byte itself.
uint8_t UpperByte(uint8_t Byte);
std::string UpperCase(std::string_view Text);
void UpperCaseInPlace(std::string& Text);

// Ordinal comparison of two Windows-1252 texts by code point, character by character;
// a proper prefix is lower. Returns <0, 0 or >0. "€" (0x80, U+20AC) sorts after "ñ".
int CompareText(std::string_view A, std::string_view B);

// The rank of a byte in code-point order (0..255): CompareText(a, b) equals the
// lexicographic comparison of the ranks. Lets hot loops compare without decoding.
uint8_t CodePointRank(uint8_t Byte);

// Trimming of blanks (0x20 only), as the system's Trim, LTrim and RTrim do.
std::string_view Trim(std::string_view Text);
std::string_view TrimLeft(std::string_view Text);
std::string_view TrimRight(std::string_view Text);

}  // namespace tqdb::platform
