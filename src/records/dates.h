// Conversions of dates between their stored and displayed forms.
//
// A date field stores six characters yymmdd. For a year 20yy the first year digit is
// stored 17 code points higher (0 becomes "A", 9 becomes "J"), so that plain byte order of
// stored dates is date order across the change of century: "991231" is 31/12/1999,
// "A50102" is 02/01/2005. A date never written holds six zero bytes.
//
// Both routines dispatch on the length of their input and never fail: a length outside
// 6..10 gives "ERROR". Texts are Windows-1252; the slashes are literal "/".
#pragma once

#include <string>
#include <string_view>

namespace tqdb {

// Two-digit-year forms:
//   6 stored yymmdd -> dd/mm/yy (a letter first unfolds; a zero first byte gives 00/00/00)
//   7 d/mm/yy       -> yymm0d, unfolded
//   8 dd/mm/yy      -> stored form, folded when yy < "60" (string comparison)
//   9 dd?mm?yy?     -> mm/dd/CCyy, CC the century of the current system date
//   10 dd/mm/yyyy   -> mm/dd/yy
std::string DateToText(std::string_view Text);

// Four-digit-year forms:
//   6 stored yymmdd -> dd/mm/yyyy (a letter gives 20L; digits give 20yy below 60, else 19yy)
//   7 d/mm/yy       -> yymm0d, unfolded
//   8 dd/mm/yy      -> yymmdd, unfolded
//   9               -> as DateToText
//   10 dd/mm/yyyy   -> stored form: 19yy plain, 20yy folded, any other century ""
std::string DateToLongText(std::string_view Text);

// The two-digit century of the current system date ("20" in 2024).
std::string CurrentCentury();

}  // namespace tqdb
