// Records built by the program-structure statements. Byte-packed, big-endian, in the op space and
// written to the .op6 file unchanged: the positions, rows of statements/records.def, are part of the
// file format.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "codegen/header.h"
#include "codegen/op_records.h"
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

}  // namespace tav
