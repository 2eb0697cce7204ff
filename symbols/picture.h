// The picture parser shared by field definitions and by display and print pictures.
//
// A picture is read left to right, element by element.  Each element adds to a category mask
// (digit positions, numeric editing, date elements, time elements, alphanumeric positions), to
// the display width and to a normalised picture text; the mask decides at the end what the
// picture describes:
//   digits only                   -> zoned numeric, a plain storage picture
//   digits with numeric editing   -> zoned numeric, edited
//   date elements                 -> the date format word 0x2080, edited
//   time (and date) elements      -> the date-time format word 0x2100, edited
//   x positions only              -> an alphanumeric length, a plain storage picture
// Any other mix, an unknown character or a repeated once-only element is invalid.
//
// The normalised text keeps one character per edited position ("9", "z", "*", "$" for every
// currency sign, "-" for floating signs, "." or "t" for the decimal point, insertion characters,
// "(" and ")", "c" and "d" for CR and DR) and one letter per date or time element: "D" day,
// "M" month, "m" month name, "Y" two-digit year, "y" four-digit year, "H" hour ("h" on a 12-hour
// clock), "I" minutes, "S" seconds, "P" the am/pm marker.  Alphanumeric positions add nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tav {

enum class PictureKind : int8_t {
  invalid = -1,
  plain = 0,   // a storage picture: digits (with sign and decimal point) or x positions
  edited = 1,  // numeric editing, dates and times: for display and print only
};

inline constexpr size_t kPictureTextMax = 50;

struct PictureResult {
  PictureKind kind = PictureKind::invalid;
  uint16_t format = 0;  // the format word; 0 when invalid
  uint32_t width = 0;   // display width in characters
  std::string text;     // normalised picture, at most kPictureTextMax characters
  std::string problem;  // why an invalid picture is invalid (which character, which limit)
};

// Parses a picture as the tokenizer delivers it (lower case).  Pure: reports nothing.
PictureResult parse_picture(std::string_view picture);

// A storage picture of a format word: x(n) for a length, digits, sign and decimals for a number.
std::string storage_picture(uint16_t format);

// The display picture of a numeric format word that shows a zero value as blanks
// (BLANK-WHEN-ZERO: every digit position suppressed) or shows zero decimals as blanks
// (BLANK-DECIMALS-WHEN-ZERO: the units digit always shown).
PictureResult blank_zero_picture(uint16_t format, bool decimals_only);

}  // namespace tav
