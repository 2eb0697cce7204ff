// The operand layouts of ops and the small records they point to. The offsets of their members,
// literal::lit_value ..., and their sizes come from the rows of codegen/op_records.def.
#pragma once

#include <cstdint>

#include "codegen/record_rows.h"

namespace tav {

#define TAV_RECORDS_DEF "codegen/op_records.def"
#define TAV_RECORDS_TABLES op_rows
#include "codegen/record_tables.inc"

// Operand values: an immediate integer up to 0x7fffff, or an op list with the top bit set.
inline constexpr uint32_t kImmediateMax = 0x7fffff;
inline constexpr uint32_t kOperandList = 0x800000;

// Values of the members, beside their records.

namespace cmpop {
inline constexpr uint16_t code_le = 0x5000;
inline constexpr uint16_t code_ge = 0x3000;
}  // namespace cmpop

namespace literal {
inline constexpr uint16_t format_one_digit = 0x2020;  // a numeric literal of one integer digit
}  // namespace literal

// sw_variant
namespace switchop {
inline constexpr uint16_t variant_ascii = 0x0010;
inline constexpr uint16_t variant_collate = 0x0008;
}  // namespace switchop

// cv_format of the values that are no literals
namespace casevalue {
inline constexpr uint16_t format_mode = 0x2100;  // a mode_entry offset (4 bytes)
inline constexpr uint16_t format_show = 0x2500;  // SHOW (-1 in 4 bytes)
}  // namespace casevalue

// ac_kind
namespace action {
inline constexpr uint16_t inserting = 1;
inline constexpr uint16_t replacing = 2;
inline constexpr uint16_t deleting = 3;
inline constexpr uint16_t appending = 4;
}  // namespace action

// do_flags
namespace doop {
inline constexpr uint16_t local = 0x0001;
inline constexpr uint16_t next = 0x0002;  // a shared library routine
inline constexpr uint16_t sub_screen = 0x0200;
inline constexpr uint16_t same = 0x0800;
inline constexpr uint16_t show = 0x1000;
inline constexpr uint16_t once = 0x2000;
}  // namespace doop

// re_how
namespace reenter {
inline constexpr uint8_t optional = 1;
inline constexpr uint8_t automatic = 2;
}  // namespace reenter

}  // namespace tav
