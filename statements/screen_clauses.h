// The clause parsers that screen statements and section headers share: positions, colours, the
// review-area check and alphanumeric texts.
#pragma once

#include <cstdint>
#include <string>

#include "diag/diag.h"

namespace tav {

class Parser;

// @ row, column: two operand values at dest and dest + 3 (the @ already read). A missing column
// is error 34.
void read_position(Parser& p, uint32_t dest);

// The coordinates of a screen or window position, the @ already read. `screen` (the position of
// something shown on the screen) allows fractions and checks literals against the section's
// window; a window corner takes whole numbers only. A literal row or column outside 1 to 255 is
// error 3. Returns false when the statement was abandoned.
bool read_coordinates(Parser& p, uint32_t dest, bool screen);

// One coordinate as an operand value at dest: a literal must lie in 1 to `highest` (error 3), and
// one that cannot be an immediate (a fraction) needs table version 7. Returns the literal, or -1.
int32_t read_coordinate(Parser& p, uint32_t dest, bool screen, int32_t highest);

// PICTURE [IS] p, the word after the clause word: the picture text, read as one raw word so that
// "9(5)v99" stays whole (keywords are still recognised in raw mode, which lets IS come first).
std::string read_raw_picture(Parser& p);

// [IS] foreground [ON background]: colour operand values, no checks.
void read_colour(Parser& p, uint32_t foreground, uint32_t background);

// How a colour clause ended.
enum class ColourEnd { read, on_key };

// [IS] foreground [ON background] with the colour checks: an immediate colour must be 0 or have
// bit 15 set; `background` 0 allows no background; equal immediates are an error unless
// `same_allowed`. With `key_words`, an ON followed by a key word (HELP-KEY, ERROR, INDEX, an
// arrow) ends the colour clause: the ON is taken and the key word left to be read next, for the
// caller to read the ON clause it starts.
ColourEnd read_colours(Parser& p, uint32_t foreground, uint32_t background, bool same_allowed, bool key_words);

// The review-area check of a position in the DETAIL of a REVIEW section: an expression row is
// error 111; the first literal row starts the review area, and later rows inside its second and
// further entries are error 67 (and error 142 without `in_field`). A currency column on a plain
// REVIEW screen is warned about.
void check_review_area(Parser& p, uint32_t position, bool in_field);

// An expression list that must be alphanumeric (error 51); a single literal text becomes a text
// item of `kind` (0: none).
void alpha_list(Parser& p, uint32_t dest, char kind);

// Whether the next token can start another expression of a list: commas are read as blanks, so a
// list goes on until a clause keyword or the next statement.
bool expression_follows(Parser& p);

// The display width of a value of this format word and type letter.
uint16_t display_length(uint16_t format, char type);

// TAG [IS] n: a numeric literal 0 to 65535 stored as 16 bits at dest (error 10 otherwise).
// Returns whether it was stored.
bool read_tag(Parser& p, uint32_t dest);

// What a title clause filled.
struct TitleRead {
  bool text = false;
  bool position = false;
};

// TITLE, PROMPT or COLUMN-TITLE [IS] [text] [@ r,c], the clause word current: the text as an
// alphanumeric list at `text` (a literal as a text item of kind 'D'), the position at
// `position`. A COLUMN-TITLE outside the DETAIL of a DATA-GRID is warned about and, like any
// title after NO-TITLE (`discard`), compiled and thrown away; `quiet` leaves the warning out (a
// title of a field's dictionary validation text).
TitleRead read_title(Parser& p, uint32_t text, uint32_t position, bool discard, bool quiet = false);

// The statements of a block inside an input statement (BEFORE-ACCEPT, VALIDATIONS, an ON key,
// BEFORE-CHECK-BOX ...) up to `end_word` (taken; with `end_too` END is taken as well), on a level
// of their own, with `head` as the ACCEPT chain while they are compiled. A missing end word is
// reported with `missing`. Returns the block's op list.
uint32_t compile_input_block(Parser& p, uint32_t head, uint32_t end_word, bool end_too, txt::Text missing);
// The same, with a numbered message for the missing end word.
uint32_t compile_input_block(Parser& p, uint32_t head, uint32_t end_word, msg::Code missing);

}  // namespace tav
