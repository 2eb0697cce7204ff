// Records built by the program-structure statements. Byte-packed, big-endian, in the op space and
// written to the .op6 file unchanged: the positions are part of the file format.
#pragma once

#include <cstdint>

namespace tav {

// mode_entry: one per screen mode, chained from the header's mode list in definition order.
namespace mode {
inline constexpr uint32_t size = 37;
inline constexpr uint32_t m_next = 0;        // 24-bit link
inline constexpr uint32_t m_name = 3;        // 24-bit link: name text
inline constexpr uint32_t m_prompt = 6;      // 24-bit: prompt op list (text item kind 'N')
inline constexpr uint32_t m_help = 9;        // 24-bit: help op list (text item kind 'H')
inline constexpr uint32_t m_flags = 12;      // 16-bit flags below
inline constexpr uint32_t m_perform = 14;    // 24-bit: screen_sym run for this mode
inline constexpr uint32_t m_when = 17;       // 24-bit: WHEN condition op list
inline constexpr uint32_t m_security = 20;   // SECURITY level 0-9
inline constexpr uint32_t m_foreground = 21; // 24-bit colour
inline constexpr uint32_t m_background = 24; // 24-bit colour
inline constexpr uint32_t m_icon = 36;       // ICON number 0-254

inline constexpr uint16_t currency = 0x0001;
inline constexpr uint16_t entry = 0x0002;
inline constexpr uint16_t correct = 0x0004;
inline constexpr uint16_t remove = 0x0008;
inline constexpr uint16_t find = 0x0010;
inline constexpr uint16_t next_record = 0x0020;
inline constexpr uint16_t prev_record = 0x0040;
inline constexpr uint16_t next_scr = 0x0080;
inline constexpr uint16_t prev_scr = 0x0100;
inline constexpr uint16_t always_show = 0x0200;
inline constexpr uint16_t lock = 0x0400;
inline constexpr uint16_t show = 0x1000;
inline constexpr uint16_t once = 0x2000;
inline constexpr uint16_t process = 0x4000;
inline constexpr uint16_t duplicate = 0x8000;

inline constexpr uint32_t kNameLength = 30;  // mode names are compared on 30 characters
}  // namespace mode

// Mode list entry: the allowed modes of a section, and the modes named by a DO.
namespace modelist {
inline constexpr uint32_t size = 6;
inline constexpr uint32_t ml_next = 0;  // 24-bit link
inline constexpr uint32_t ml_mode = 3;  // 24-bit link: mode_entry
}  // namespace modelist

// confirm_block: the operand of a CONFIRM op.
namespace confirm {
inline constexpr uint32_t size = 30;
inline constexpr uint32_t c_position = 0;  // row, column operand values (6 bytes)
inline constexpr uint32_t c_flags = 6;     // 16-bit flags below
inline constexpr uint32_t c_prompt = 8;    // 16-bit text item (kind 'D')
inline constexpr uint32_t c_default = 10;  // 16-bit: 'Y' or 'N' in the low byte
inline constexpr uint32_t c_when = 12;     // 24-bit condition op list
inline constexpr uint32_t c_before = 15;   // 24-bit op lists of the parts
inline constexpr uint32_t c_confirmed = 18;
inline constexpr uint32_t c_not_confirmed = 21;
inline constexpr uint32_t c_after = 24;
inline constexpr uint32_t c_accepts = 27;  // 24-bit ACCEPT chain of the enclosing part

inline constexpr uint16_t flag_auto = 0x8000;
inline constexpr uint16_t flag_no_prompt = 0x4000;
inline constexpr uint16_t flag_no_window = 0x2000;
inline constexpr uint16_t flag_window = 0x1000;
}  // namespace confirm

// Version list entry (VERSION-NUMBER), appended at the end of the header's version list.
namespace version {
inline constexpr uint32_t size = 9;
inline constexpr uint32_t v_next = 0;
inline constexpr uint32_t v_text = 3;    // the token text
inline constexpr uint32_t v_source = 6;  // the source text without surrounding quotes
}  // namespace version

// Library list entry (LINK), pushed at the front of the header's library list.
namespace library {
inline constexpr uint32_t size = 8;
inline constexpr uint32_t l_next = 0;
inline constexpr uint32_t l_index = 3;  // 16-bit: entries in the list before this one
inline constexpr uint32_t l_name = 5;   // 24-bit link: library name
}  // namespace library

// Operands of the section-call ops 57 (DO) and 58 (DO with PARAMETERS or RETURNING).
namespace doop {
inline constexpr uint32_t section = 4;     // 24-bit screen_sym
inline constexpr uint32_t flags = 7;       // 16-bit flags below
inline constexpr uint32_t modes = 9;       // 24-bit mode list
inline constexpr uint32_t initial = 12;    // 24-bit initial mode_entry
inline constexpr uint32_t params = 15;     // op 58: PARAMETERS list {next, op list}
inline constexpr uint32_t returning = 18;  // op 58: RETURNING list {next, field_sym, address}

inline constexpr uint16_t local = 0x0001;
inline constexpr uint16_t next = 0x0002;  // a shared library routine
inline constexpr uint16_t sub_screen = 0x0200;
inline constexpr uint16_t same = 0x0800;
inline constexpr uint16_t show = 0x1000;
inline constexpr uint16_t once = 0x2000;
}  // namespace doop

// Op numbers of the structural statements.
namespace opc {
inline constexpr uint8_t literal = 11;
inline constexpr uint8_t option = 35;
inline constexpr uint8_t do_call = 57;
inline constexpr uint8_t do_call_params = 58;
inline constexpr uint8_t re_enter = 59;
inline constexpr uint8_t confirm = 60;
inline constexpr uint8_t exit = 61;
inline constexpr uint8_t command = 62;
inline constexpr uint8_t call = 63;
inline constexpr uint8_t query = 64;
inline constexpr uint8_t back_to_detail = 71;
inline constexpr uint8_t continue_entry = 72;
inline constexpr uint8_t pause = 73;
inline constexpr uint8_t text_item = 87;
}  // namespace opc

}  // namespace tav
