// Type letters, TYPE words and the rules that tie a field's type to its format word.
//
// A field carries a type letter (A, S, B, D, J, L, T, X, N, F, P, Z) beside its 16-bit format
// word.  Two tables below are the only place these facts are written down: the TYPE words a
// program may write, and for each type letter the format words it accepts and the format word a
// field of that type gets when no PICTURE is given.  Every function here is derived from them.
#pragma once

#include <cstdint>
#include <string_view>

#include "codegen/convert.h"

namespace tav {

// A TYPE word and the letter it gives.  `format` is the format word the word sets at once
// (COLOUR and COLOR), 0 when the type word leaves the format to the other clauses.
struct TypeWordRow {
  std::string_view word;  // lower case, underscores where the program writes hyphens
  char letter;
  uint16_t format;
};

inline constexpr TypeWordRow kTypeWords[] = {
    {"alpha", 'A', 0},
    {"string", 'S', 0},
    {"boolean", 'B', 0},
    {"date", 'D', 0},
    {"time", 'T', 0},
    {"date_time", 'J', 0},
    {"gmt_date_time", 'J', 0},
    {"local_date_time", 'L', 0},
    {"blob", 'X', 0},
    {"binary_large_object", 'X', 0},
    {"float", 'F', 0},
    {"floating", 'F', 0},
    {"packed", 'P', 0},
    {"zoned", 'Z', 0},
    {"decimal", 'N', 0},
    {"number", 'N', 0},
    {"numeric", 'N', 0},
    {"money", 'N', 0},
    {"colour", 'N', 0x20A0},
    {"color", 'N', 0x20A0},
};

// The row of a TYPE word as the tokenizer delivers it (lower case, hyphens kept; hyphens and
// underscores are matched as for keywords), or nullptr for an unknown word.
const TypeWordRow* find_type_word(std::string_view word);

// How a type letter tests a format word.
enum class TypeAccepts : uint8_t {
  non_numeric,  // any non-numeric word (a length)
  exactly,      // exactly `format`
  class_bit,    // any word that has the class bit `format`
};

struct TypeLetterRow {
  char letter;
  TypeAccepts accepts;
  uint16_t format;          // the exact word or the class bit, per `accepts`
  uint16_t default_format;  // the format word of a field with this TYPE and no PICTURE
  bool forces_class;        // a PICTURE given with this TYPE takes this type's class bit
};

inline constexpr TypeLetterRow kTypeLetters[] = {
    {'A', TypeAccepts::non_numeric, 0, 0x0028, false},
    {'S', TypeAccepts::non_numeric, 0, 0x0028, false},
    {'B', TypeAccepts::exactly, 0x1020, 0x1020, false},
    {'D', TypeAccepts::exactly, conv::kFmtDate, conv::kFmtDate, false},
    {'J', TypeAccepts::exactly, conv::kFmtTime, conv::kFmtTime, false},
    {'L', TypeAccepts::exactly, conv::kFmtTime, conv::kFmtTime, false},
    {'T', TypeAccepts::exactly, conv::kFmtTime, conv::kFmtTime, false},
    {'X', TypeAccepts::exactly, 0x0001, 0x0001, false},
    {'N', TypeAccepts::class_bit, conv::kFmtBinary, 0x25C4, false},
    {'F', TypeAccepts::class_bit, conv::kFmtFloat, 0x45C4, true},
    {'P', TypeAccepts::class_bit, conv::kFmtPacked, 0x0DC4, true},
    {'Z', TypeAccepts::class_bit, conv::kFmtZoned, 0x15C4, true},
};

// The row of a type letter, or nullptr for a letter that is not a type.
const TypeLetterRow* find_type_letter(char letter);

// True when a field of type `letter` may have the format word `format` (TYPE and PICTURE are
// compatible).  A letter that is not a type accepts nothing.
bool type_accepts(char letter, uint16_t format);

// The format word of a field with TYPE `letter` and no PICTURE; 0 for a letter that is not a type.
uint16_t default_format(char letter);

// The type letter of a field that has a format word but no TYPE: N when numeric, else A.
constexpr char letter_of_format(uint16_t format) { return conv::fmt_numeric(format) ? 'N' : 'A'; }

// A numeric PICTURE stored in a field is binary decimal: the zoned and floating class bits are
// cleared and the binary decimal bit set; packed, sign, ROUNDED and the digit counts are kept.
// A non-numeric word is returned unchanged.
uint16_t storage_format(uint16_t format);

// For the types that fix the storage class (zoned, floating, packed), a numeric PICTURE given with
// the TYPE takes that class instead of its own; ROUNDED, the sign and the digit counts are kept.
// Any other pair is returned unchanged.
uint16_t apply_type_class(char letter, uint16_t format);

// The type and format word of a field once all its clauses are read.
struct SettledType {
  char letter;
  uint16_t format;
  bool compatible;  // false: PICTURE and TYPE do not go together
};

// Settles a field's type letter (0 when no TYPE was given) with its format word (`has_format`
// false when no PICTURE set one):
//  - no TYPE: the letter follows from the format word (a field with neither is alphanumeric with
//    an empty format word; the caller reports the missing PICTURE/TYPE);
//  - TYPE alone: the type's default format word;
//  - both: the type's class is applied and the pair must pass type_accepts.
SettledType settle_type(char letter, bool has_format, uint16_t format);

}  // namespace tav
