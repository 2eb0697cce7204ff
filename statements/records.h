// Records built by the program-structure statements. Byte-packed, big-endian, in the op space and
// written to the .op6 file unchanged: the positions, rows of statements/records.def, are part of the
// file format.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "codegen/header.h"
#include "codegen/opspace.h"
#include "codegen/record_rows.h"

namespace tav {

#define TAV_RECORDS_DEF "statements/records.def"
#define TAV_RECORDS_TABLES statement_rows
#include "codegen/record_tables.inc"

// confirm_block: the operand of a CONFIRM op.
namespace confirm {

inline constexpr uint16_t flag_auto = 0x8000;
inline constexpr uint16_t flag_no_prompt = 0x4000;
inline constexpr uint16_t flag_no_window = 0x2000;
inline constexpr uint16_t flag_window = 0x1000;
}  // namespace confirm

// Version list entry (VERSION-NUMBER), appended at the end of the header's version list.
namespace version {
}  // namespace version

// Library list entry (LINK), pushed at the front of the header's library list.
namespace library {
}  // namespace library

// Operands of the section-call ops: DO, and DO with PARAMETERS or RETURNING.
namespace doop {
inline constexpr uint32_t section = 4;     // 24-bit screen_sym
inline constexpr uint32_t flags = 7;       // 16-bit flags below
inline constexpr uint32_t modes = 9;       // 24-bit mode list
inline constexpr uint32_t initial = 12;    // 24-bit initial mode_entry
inline constexpr uint32_t params = 15;     // DO with lists: PARAMETERS {next, op list}
inline constexpr uint32_t returning = 18;  // DO with lists: RETURNING {next, field_sym, address}

inline constexpr uint16_t local = 0x0001;
inline constexpr uint16_t next = 0x0002;  // a shared library routine
inline constexpr uint16_t sub_screen = 0x0200;
inline constexpr uint16_t same = 0x0800;
inline constexpr uint16_t show = 0x1000;
inline constexpr uint16_t once = 0x2000;
}  // namespace doop

// Operand values: an immediate integer with the top bit clear, an op list's offset with it set.
inline constexpr uint32_t kOperandList = 0x800000;

// Entry of an expression list (DO and COMMAND PARAMETERS): one op list per argument.
namespace exprlist {
}  // namespace exprlist

// Entry of a RETURNING list (DO and CALL): the field that receives a result.
namespace retlist {
}  // namespace retlist

// Op::exit, EXIT
namespace exitop {
inline constexpr uint32_t value = 4;  // 24-bit operand value; 0 = no value
}  // namespace exitop

// Op::re_enter, RE-ENTER
namespace reenter {
inline constexpr uint32_t how = 8;      // 0, OPTIONAL or AUTO
inline constexpr uint32_t target = 9;   // 24-bit: the op before the ACCEPT entered again
inline constexpr uint8_t optional = 1;
inline constexpr uint8_t automatic = 2;
}  // namespace reenter

// option_item: the operand of an OPTION op (Op::option; bytes 7-8 of the op hold the item's size).
namespace option {

inline constexpr uint8_t flag_bitmap = 0x01;
inline constexpr uint8_t flag_to = 0x02;
inline constexpr uint8_t flag_scale_literal = 0x04;
inline constexpr uint8_t flag_colours = 0x08;
inline constexpr uint8_t flag_icon = 0x10;
inline constexpr uint8_t flag_default_button = 0x20;
inline constexpr uint8_t flag_scaled = 0x40;  // SCALE or TEXT-POSITION
inline constexpr uint8_t flag_extended = 0x80;

inline constexpr uint16_t attr_bitmap_hover = 0x0001;
inline constexpr uint16_t attr_no_aspect_ratio = 0x0002;
inline constexpr uint16_t attr_absolute = 0x0004;
inline constexpr uint16_t attr_hidden = 0x0008;
inline constexpr uint16_t attr_hot_key = 0x0010;
inline constexpr uint16_t attr_underline = 0x0020;
inline constexpr uint16_t attr_bold = 0x0040;
inline constexpr uint16_t attr_italic = 0x0080;
}  // namespace option

// command_block: the operand of the COMMAND, CALL and QUERY ops.
namespace cmdblock {
inline constexpr int32_t kMaximumParameters = 999;

inline constexpr uint16_t background = 0x0001;  // also NO-WAIT
inline constexpr uint16_t spool = 0x0002;
inline constexpr uint16_t pause = 0x0004;
inline constexpr uint16_t no_pause = 0x0008;
inline constexpr uint16_t batch = 0x0010;
inline constexpr uint16_t no_refresh = 0x0020;
inline constexpr uint16_t no_xterm = 0x0040;
inline constexpr uint16_t leave_files_open = 0x0080;
inline constexpr uint16_t external = 0x0100;
inline constexpr uint16_t wait = 0x0200;
inline constexpr uint16_t wait_mask = 0x0211;  // BACKGROUND, BATCH and WAIT exclude each other
}  // namespace cmdblock

// Operands of the structured statements and the ops they build.
namespace ctl {
// Op::if_, IF or ELSE-IF branch
inline constexpr uint32_t if_condition = 4;  // 24-bit condition op list
inline constexpr uint32_t if_false = 9;      // 24-bit: the op after which a false test goes on
// Op::jump, jump to the end of a construct
inline constexpr uint32_t j_target = 4;      // 24-bit: pending chain while open, then the last op
// Op::while_, WHILE (and FOR)
inline constexpr uint32_t loop_condition = 4;  // 24-bit condition op list
inline constexpr uint32_t loop_body = 9;       // 24-bit body op list
inline constexpr uint32_t loop_increment = 12; // 24-bit FOR increment op list
// Op::repeat, REPEAT
inline constexpr uint32_t repeat_until = 4;    // 24-bit UNTIL condition op list
inline constexpr uint32_t repeat_first = 9;    // 24-bit op list before UNTIL
inline constexpr uint32_t repeat_second = 12;  // 24-bit op list after UNTIL
// Op::switch_, SWITCH
inline constexpr uint32_t sw_expression = 4;  // 24-bit expression op list
inline constexpr uint32_t sw_variant = 7;     // 16-bit comparison variant below
inline constexpr uint32_t sw_first_case = 9;  // 24-bit first CASE op
inline constexpr uint32_t sw_else = 12;       // 24-bit: the op after which ELSE (or the end) follows
inline constexpr uint16_t sw_ascii = 0x0010;
inline constexpr uint16_t sw_collate = 0x0008;
// Op::case_, CASE
inline constexpr uint32_t case_values = 4;  // 24-bit list of case values (last written first)
inline constexpr uint32_t case_next = 9;    // 24-bit next CASE op
// Case value entry.
inline constexpr uint32_t cv_size = 8;
inline constexpr uint32_t cv_next = 0;    // 24-bit link
inline constexpr uint32_t cv_value = 3;   // 24-bit offset of the stored value
inline constexpr uint32_t cv_format = 6;  // 16-bit format word
inline constexpr uint16_t cv_mode = 0x2100;  // a mode_entry offset (4 bytes)
inline constexpr uint16_t cv_show = 0x2500;  // SHOW (-1 in 4 bytes)
// Op::set, assignment
inline constexpr uint32_t as_value = 4;       // 24-bit expression op list
inline constexpr uint32_t as_format = 7;      // 16-bit format word of the target
inline constexpr uint32_t as_field = 9;       // 24-bit target field_sym
inline constexpr uint32_t as_subscript = 12;  // 24-bit subscript operand value
inline constexpr uint32_t as_object = 15;     // 24-bit object qualifier
// Op::field_ref, field reference
inline constexpr uint32_t fr_object = 4;
inline constexpr uint32_t fr_format = 7;
inline constexpr uint32_t fr_field = 9;
inline constexpr uint32_t fr_subscript = 12;
// Op::literal, literal
inline constexpr uint32_t lit_value = 4;   // 24-bit offset of the value's bytes
inline constexpr uint32_t lit_format = 7;  // 16-bit format word
inline constexpr uint16_t fmt_one_digit = 0x2020;  // a numeric literal of one integer digit
// Op::comparison, comparison
inline constexpr uint32_t cmp_parent = 4;  // 24-bit parent junction
inline constexpr uint32_t cmp_code = 7;    // 16-bit comparison code
inline constexpr uint16_t cmp_le = 0x5000;
inline constexpr uint16_t cmp_ge = 0x3000;
}  // namespace ctl

}  // namespace tav
