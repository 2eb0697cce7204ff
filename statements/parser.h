// The parser object every statement compiler works through: the parser core (the token stream,
// the diagnostics, the stores, the symbol table) and the state the statement compilers share
// while one program is compiled: the section, its part, the depth counters, the ACCEPT chain
// and the lock-state frames.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "statements/locks.h"
#include "symbols/parser_core.h"

namespace tav {

class Select;

// Which part of a section is being compiled.
enum class SectionPart : int { before = 0, detail = 1, after = -1 };

class Parser : public ParserCore {
 public:
  using ParserCore::ParserCore;

  // --- Program state -------------------------------------------------------------------------
  uint32_t section = 0;          // screen_sym being compiled (or the scratch one)
  uint16_t section_kind = 0;     // its kind word
  bool in_section = false;       // a section header has been compiled and not closed
  bool any_section = false;      // some section was defined
  SectionPart part = SectionPart::before;
  int cond_depth = 0;            // open IF / SWITCH / OPTION blocks
  int loop_depth = 0;            // open loops (the DETAIL of a SCREEN or MENU counts as one)
  int extract_depth = 0;         // open EXTRACT loops
  int nesting = 0;               // statement lists open, inside one another
  bool path_ended = false;       // EXIT, BREAK, CONTINUE, RE-ENTER or BACK-TO-DETAIL came last
  int menu_options = 0;          // OPTIONs in the current MENU
  int print_statements = 0;      // report statements used
  bool report_defined = false;   // a REPORT section was defined
  uint32_t accept_chain = 0;     // ACCEPT ops of the current part
  // The ACCEPT ops being compiled (an ACCEPT may stand in another's blocks), each with the
  // descriptor it is building.
  std::vector<std::pair<uint32_t, uint32_t>> accepts_open;
  uint32_t validating_field = 0;  // the field whose dictionary validation text is being read
  // REFRESH ops whose field had no ACCEPT yet, resolved when the section ends.
  struct PendingRefresh {
    uint32_t op, field, object;
  };
  std::vector<PendingRefresh> refreshes;
  uint32_t mode_tail = 0;        // last mode_entry of the header's mode list
  uint32_t version_tail = 0;     // last entry of the header's version list

  LockFrames locks;              // lock states of indexed records, per open block
  Select* select = nullptr;      // the innermost select being compiled
};

}  // namespace tav
