#include "symbols/types.h"

#include "lexer/verbs.h"

namespace tav {

const TypeWordRow* find_type_word(std::string_view word) {
  if (word.empty()) return nullptr;
  for (const TypeWordRow& row : kTypeWords)
    if (compare_keyword(word, row.word) == 0) return &row;
  return nullptr;
}

const TypeLetterRow* find_type_letter(char letter) {
  for (const TypeLetterRow& row : kTypeLetters)
    if (row.letter == letter) return &row;
  return nullptr;
}

bool type_accepts(char letter, uint16_t format) {
  const TypeLetterRow* row = find_type_letter(letter);
  if (row == nullptr) return false;
  switch (row->accepts) {
    case TypeAccepts::non_numeric:
      return !conv::fmt_numeric(format);
    case TypeAccepts::exactly:
      return format == row->format;
    case TypeAccepts::class_bit:
      return (format & row->format) != 0;
  }
  return false;
}

uint16_t default_format(char letter) {
  const TypeLetterRow* row = find_type_letter(letter);
  return row == nullptr ? 0 : row->default_format;
}

uint16_t storage_format(uint16_t format) {
  if (!conv::fmt_numeric(format)) return format;
  return static_cast<uint16_t>((format & ~(conv::kFmtZoned | conv::kFmtFloat)) | conv::kFmtBinary);
}

uint16_t apply_type_class(char letter, uint16_t format) {
  const TypeLetterRow* row = find_type_letter(letter);
  if (row == nullptr || !row->forces_class || !conv::fmt_numeric(format)) return format;
  return static_cast<uint16_t>((format & ~conv::kFmtClassMask) | row->format);
}

SettledType settle_type(char letter, bool has_format, uint16_t format) {
  if (letter == 0) return {letter_of_format(format), format, true};
  if (!has_format) return {letter, default_format(letter), find_type_letter(letter) != nullptr};
  uint16_t settled = apply_type_class(letter, format);
  return {letter, settled, type_accepts(letter, settled)};
}

}  // namespace tav
