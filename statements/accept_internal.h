// What the pieces of the ACCEPT compiler share: the statement being compiled and its clauses.
// The statement itself is in accept.cc, its clauses in accept_clauses.cc, the clauses that hold
// statements or lists in accept_blocks.cc, the field's dictionary texts and LOOKUP in
// accept_dictionary.cc, and the hidden look-up screen of HELP-SCREEN in accept_help_screen.cc.
#pragma once

#include <algorithm>
#include <cstdint>

#include "statements/parser.h"
#include "statements/records.h"
#include "symbols/clauses.h"
#include "symbols/records.h"

namespace tav {

namespace opt {
inline constexpr uint16_t optional = 0x0001, upper = 0x0002, lower = 0x0004, lookup_not = 0x0008;
inline constexpr uint16_t edited = 0x0010, fill_left = 0x0020, show_value = 0x0040, display_only = 0x0080;
inline constexpr uint16_t no_clear = 0x0100, blank = 0x0200, auto_return = 0x0400;
inline constexpr uint16_t nested = 0x0800, detail = 0x1000, suppress = 0x2001, read_only = 0x4001;
inline constexpr uint16_t suppress_bit = 0x2000, read_only_bit = 0x4000;
}  // namespace opt

namespace disp {
inline constexpr uint16_t italic = 0x0010, bold = 0x0020, blink = 0x0040, underline = 0x0080;
inline constexpr uint16_t inverse = 0x0100, background = 0x0200, sunken = 0x0400, fixed_font = 0x0800;
inline constexpr uint16_t right = 4, right_coordinate = 6, centre = 8, centre_coordinate = 10, left = 12;
}  // namespace disp

// Key codes of the ON-key nodes.
namespace onkey {
inline constexpr int16_t help_key = -5, up_arrow = -7, down_arrow = -8, right_arrow = -9, left_arrow = -10;
}  // namespace onkey

enum class BlankZero : uint8_t { none, whole, decimals };

struct Accept {
  Parser& p;
  uint32_t op;
  uint32_t d;                   // the descriptor being built (adesc::size bytes)
  uint32_t previous = 0;        // the chain head before this ACCEPT
  uint32_t field = 0;
  uint32_t object = 0;          // the object the field was named through
  uint32_t length = 26;         // bytes of the descriptor in use
  bool no_title = false;
  bool picture = false;
  bool help_key = false;        // ON HELP-KEY or HELP-SCREEN given
  BlankZero blank_zero = BlankZero::none;
  bool dictionary = false;      // reading the field's dictionary validation text

  void reach(uint32_t end) { length = std::max(length, end); }
  uint16_t get16(uint32_t member) const { return static_cast<uint16_t>(p.ops.get16(d + member)); }
  void set_bits(uint32_t member, uint16_t bits) { p.ops.put16(d + member, get16(member) | bits); }
  uint16_t field_format() const { return static_cast<uint16_t>(p.ops.get16(field + fsym::f_format)); }
  bool numeric_field() const;
};

// The checks and completions after the last clause, in their order (case and fill from the
// field's definition, the position, LOOKUP, TIMEOUT, the default column title, the title warning).
void finalise_accept(Accept& a);
// The descriptor, cut to its length, goes into the op.
void store_descriptor(Accept& a);

// The clause table: reads clauses up to the next statement (from the program) or to the end of
// the validation text (a.dictionary).
void read_accept_clauses(Accept& a);

// Clauses holding statements or lists (accept_blocks.cc).
ClauseStep accept_before(Accept& a);
ClauseStep accept_validations(Accept& a);
ClauseStep accept_on(Accept& a);
// The ON clause whose ON a colour clause has already taken.
ClauseStep accept_on_key(Accept& a);
ClauseStep accept_allowed(Accept& a);
ClauseStep accept_disallowed(Accept& a);

// The field's dictionary texts and LOOKUP (accept_dictionary.cc).
void run_dictionary_validations(Accept& a);
void default_column_title(Accept& a);
ClauseStep accept_lookup(Accept& a);
void check_lookup(Accept& a);

// HELP-SCREEN: the hidden look-up screen (accept_help_screen.cc).
ClauseStep accept_help_screen(Accept& a);

}  // namespace tav
