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

// The record access statements' operands.
//
// Access flags of the record I/O block (the access key block of symbols/records.def, bytes 5-6);
// the full-key, partial-key and default-index flags are accesskey's own.
namespace access {
inline constexpr uint16_t next = 0x0001;
inline constexpr uint16_t prev = 0x0002;
inline constexpr uint16_t same = 0x0004;
inline constexpr uint16_t different = 0x0008;
inline constexpr uint16_t first = 0x0010;
inline constexpr uint16_t last = 0x0020;
inline constexpr uint16_t lock = 0x0040;
inline constexpr uint16_t currency = 0x0080;
inline constexpr uint16_t before = 0x0100;   // POSITION BEFORE
inline constexpr uint16_t after = 0x0200;    // POSITION AFTER
inline constexpr uint16_t look_up = 0x4000;  // GET LOOK-UP; the block of an EXTRACT
inline constexpr uint16_t positioning = next | prev | first | last;
inline constexpr int kMaxSameFields = 8;
}  // namespace access

namespace objop {
inline constexpr uint16_t keep_lock = 0x0040;  // UPDATE LOCK
inline constexpr uint16_t remove = 0x0001;     // CLOSE [AND] REMOVE
inline constexpr uint16_t local = 0x0002;      // CLOSE ALL LOCAL, UNLOCK ALL LOCAL
inline constexpr uint16_t push = 0x0001;       // SAVE: PUSH
}  // namespace objop

namespace restoreop {
inline constexpr uint16_t pop = 0x0001;
inline constexpr uint16_t leaving_all = 0x0002;
inline constexpr uint16_t field_list = 0x0004;
}  // namespace restoreop

namespace txop {
inline constexpr uint16_t free_locks = 0x0001;
inline constexpr uint16_t leaving = 0x0002;
}  // namespace txop

namespace lockmethod {
inline constexpr uint16_t wait_with_timeout = 0;
inline constexpr uint16_t no_wait = 1;
inline constexpr uint16_t wait = 2;
}  // namespace lockmethod

// select record, FROM entry, select field entry: the records of a compiled SELECT.
namespace selrec {
inline constexpr uint16_t distinct = 0x0001;  // also UNIQUE, DISTINCTROW
inline constexpr uint16_t all_fields = 0x0002;  // SELECT *
inline constexpr uint16_t correlated = 0x0004;  // refers to an object of an enclosing select
inline constexpr uint16_t on_index = 0x0008;
inline constexpr uint16_t whole_aggregates = 0x0010;
inline constexpr uint16_t screen = 0x0040;
inline constexpr uint16_t for_update = 0x0080;
inline constexpr uint16_t union_first = 0x0100;
inline constexpr uint16_t compiling = 0x8000;
}  // namespace selrec

namespace fromrec {
inline constexpr uint16_t all_fields = 0x0001;
inline constexpr uint16_t enclosing = 0x0002;
inline constexpr uint16_t outer = 0x0004;
inline constexpr uint16_t named = 0x0010;
}  // namespace fromrec

namespace column {
inline constexpr uint16_t selected = 0x0002;
}  // namespace column

namespace selfield {
inline constexpr uint16_t selected = 0x0001;
inline constexpr uint16_t assigned = 0x0002;
inline constexpr uint16_t aggregate = 0x0004;
inline constexpr uint16_t in_aggregate = 0x0008;
inline constexpr uint16_t enclosing = 0x0010;
inline constexpr uint16_t descending = 0x0020;
inline constexpr uint16_t copy = 0x0080;
inline constexpr uint16_t referenced = 0x0100;
inline constexpr uint16_t equality = 0x0200;
inline constexpr uint16_t host = 0x0400;
inline constexpr uint16_t field_bound = 0x0800;
inline constexpr uint16_t ordered = 0x1000;
inline constexpr uint16_t qualified = 0x4000;
}  // namespace selfield

namespace aggrec {
inline constexpr uint32_t kWholeSelect = 0x800000;  // ae_break_next of an aggregate over the whole select
}  // namespace aggrec

}  // namespace tav
