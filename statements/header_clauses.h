// The section header's clause readers, shared by the two files that hold them (header.cc: the
// window, colours, title and the table; header_layout.cc: the review layout, the PRIMARY object,
// the field lists, EXPORT and the checks made when the header ends).
#pragma once

#include <cstdint>

#include "statements/parser.h"
#include "symbols/clauses.h"
#include "symbols/records.h"

namespace tav {

namespace header {

// The section kinds a clause belongs to, a bit per kind.
inline constexpr uint32_t kScreen = 1u << ssym::kind_screen, kMenu = 1u << ssym::kind_menu;
inline constexpr uint32_t kAll = kScreen | kMenu | (1u << ssym::kind_procedure);
inline constexpr uint32_t kTerminalRows = 24;
inline constexpr uint32_t kTerminalColumns = 80;

struct Header {
  Parser& p;
  uint32_t s;                 // the screen_sym
  uint16_t prior_review;      // its review word before this header
  uint16_t errors_before;     // errors counted before the header
  bool parameters = false;
  bool returning = false;
  bool window = false;
  bool window_plain = false;  // WINDOW without coordinates
  bool window_full = false;   // WINDOW-POSITION a negative literal
  bool colour = false;
  bool title = false;
  bool when = false;
  bool exported = false;
  uint32_t implicit_select = 0;  // the select a PRIMARY clause made
};

inline uint16_t get16(const Header& h, uint32_t member) { return static_cast<uint16_t>(h.p.ops.get16(h.s + member)); }
inline void set_bits(Header& h, uint32_t member, uint16_t bits) { h.p.ops.put16(h.s + member, get16(h, member) | bits); }
inline bool is_kind(const Header& h, uint32_t kinds) { return (kinds >> (h.p.section_kind & ssym::kind_mask)) & 1u; }

// A clause reserved to other kinds of section: error 5; the rest of the header is passed over.
ClauseStep wrong_section(Header& h);

ClauseStep review(Header& h);
ClauseStep data_grid(Header& h);
ClauseStep primary(Header& h);
ClauseStep select(Header& h);
bool select_is_clause(const Header& h);
ClauseStep when(Header& h);
ClauseStep allowed(Header& h);
ClauseStep local(Header& h);
ClauseStep parameters(Header& h);
ClauseStep returning(Header& h);
ClauseStep export_section(Header& h);
ClauseStep can_override(Header& h);
ClauseStep no_override(Header& h);

// The checks and completions made when the clauses end.
void finish(Header& h);

}  // namespace header

}  // namespace tav
