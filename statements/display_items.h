// The item layer DISPLAY and PRINT share: one value with its clauses, read into a display item
// (statements/records.def, `ditem`).
#pragma once

#include <cstdint>

namespace tav {

class Parser;

// Item flags (`di_flags`). Several bits mean one thing in a DISPLAY and another in a PRINT.
namespace item {
inline constexpr uint16_t long_form = 0x0001, right = 0x0004, right_coordinate = 0x0006, centre = 0x0008;
inline constexpr uint16_t centre_coordinate = 0x000a, left = 0x000c, italic = 0x0010, bold = 0x0020;
inline constexpr uint16_t blink = 0x0040, new_line = 0x0040, underline = 0x0080, inverse = 0x0100;
inline constexpr uint16_t dim = 0x0200, fixed_font = 0x0800, prompt = 0x1000, print_static = 0x1000;
inline constexpr uint16_t data = 0x2000, super_script = 0x2000, sunken = 0x2400, placed_after_before = 0x4000;
inline constexpr uint16_t sub_script = 0x4000, bell = 0x8000;
}  // namespace item

// The display item lengths: a DISPLAY item in its short and long form, every PRINT item.
inline constexpr uint32_t kShortItem = 18, kLongItem = 38, kPrintItem = 48;

enum class ItemStatement { display, print };

// What the items of one PRINT share: the clauses that hold for the whole statement, and the
// part of the page its items cover.
struct PrintRun {
  uint32_t report = 0;         // ON name: the report record
  uint32_t section = 0;        // SECTION: the op list of the section's text
  bool on_given = false;
  bool section_given = false;
  bool no_new_line = false;
  bool row_given = false;      // some item was placed with @
  uint32_t lowest_row = 0;     // the largest literal row (1 when only expression rows were given)
  uint32_t column = 1;         // the running column: past the last item
  uint32_t widest_column = 1;  // the furthest the running column went
};

// What the items of one statement share.
struct ItemRun {
  ItemStatement kind;
  int items = 0;  // items read so far
  PrintRun print{};
};

// One item read and stored.
struct ReadItem {
  uint32_t item = 0;    // the display item, cut to `length`; 0 when the statement was abandoned
  uint32_t length = 0;
};

// Reads the next item of the statement: the value, then its clauses up to a word that is no
// clause keyword. The first item of a DISPLAY must be placed with @ (error 65).
ReadItem read_item(Parser& p, ItemRun& run);

}  // namespace tav
