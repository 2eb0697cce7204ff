// The symbol records: fields, objects, keys, record links, field lists, sections and screen modes.
//
// Every record lives in the op space and is written to the .op6 file unchanged, so the byte
// positions (the rows of symbols/records.def) are part of the file format the interpreter reads.
// Records are byte-packed and big-endian; each is allocated zero-filled with its exact size and
// never freed, and is named by its 24-bit offset from the op-space base (0 = none). A name member
// is a 24-bit link to a NUL-terminated copy of the name made when the record was created; names
// are compared over their first 30 characters.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "codegen/header.h"
#include "codegen/opspace.h"
#include "codegen/record_rows.h"

namespace tav {

// The offsets of every member, fsym::f_next ..., and each record's size.
#define TAV_RECORDS_DEF "symbols/records.def"
#define TAV_RECORDS_TABLES symbol_rows
#include "codegen/record_tables.inc"

// Significant length of every symbol name.
inline constexpr uint32_t kSymbolNameLength = 30;

// field_sym: one per field, global (in the list headed by h_fields) or local to a section.
namespace fsym {

inline constexpr uint16_t fldid_none = 0xFFFF;  // not a dictionary field
inline constexpr int16_t dictno_program = -1;   // defined in the program (also: no LIKE)
inline constexpr int16_t dictno_local = -2;     // local to a section

// f_flags
inline constexpr uint16_t flag_upper = 0x0001;   // UPPER-CASE
inline constexpr uint16_t flag_lower = 0x0002;   // LOWER-CASE
inline constexpr uint16_t flag_justify = 0x0004; // JUSTIFY (right justified)
inline constexpr uint16_t flag_dbname = 0x8000;  // name checked against database name lengths
}  // namespace fsym

// object_sym: one per object (file or table), in the list headed by h_objects in creation order.
namespace osym {

inline constexpr int16_t dictno_program = -1;
inline constexpr uint32_t max_recsize = 4096;

// o_attr
inline constexpr uint16_t attr_open_lock = 0x0001;   // some OPEN uses LOCK
inline constexpr uint16_t attr_partial = 0x0002;     // fields linked only as far as referenced
inline constexpr uint16_t attr_complete = 0x0010;    // record complete
inline constexpr uint16_t attr_no_joins = 0x0020;    // NO-JOINS
inline constexpr uint16_t attr_no_rowid = 0x0040;    // NO-ROWID (also sets attr_partial)
inline constexpr uint16_t attr_open_write = 0x0100;  // OPEN LOCAL/APPEND/TRUNCATE/TEMPORARY/CREATE,
                                                     // or named by an INSERT
inline constexpr uint16_t attr_access = 0x0200;      // set by record access statements
inline constexpr uint16_t attr_update = 0x0400;      // named by an UPDATE
inline constexpr uint16_t attr_get_lock = 0x2000;    // some GET uses LOCK
// The attributes kept when the table is written (also the low-byte mask a LIKE copies).
inline constexpr uint16_t attr_file_mask = 0x0072;

// o_filtype letters
inline constexpr char type_indexed = 'I';
inline constexpr char type_memory = 'M';
inline constexpr char type_sequential = 'S';
inline constexpr char type_db_sequential = 'D';
inline constexpr char type_index_data_only = 'C';
inline constexpr char type_fixed_text = 't';
inline constexpr char type_text = 'T';
inline constexpr char type_pipe = 'N';
inline constexpr char type_csv = 'P';
inline constexpr char type_external = 'E';
}  // namespace osym

// Key record: one per index of an object, chained from o_keylist.
namespace keyrec {
// byte 3 zero

inline constexpr uint16_t flag_unique = 0x0001;         // no duplicates
inline constexpr uint16_t flag_db_index_only = 0x0002;  // index exists only in the database
inline constexpr uint16_t flag_compress = 0x0004;
}  // namespace keyrec

// Key part: one field of a key.
namespace keypart {
}  // namespace keypart

// field_obj_link: one per (object, field) pair of a record. A field's links run from f_join
// through fo_join (new links at the head); an object's from o_fldobj through fo_fldobj (appended,
// record order).
namespace folink {
}  // namespace folink

// field_list: node of a list of fields.
namespace flist {
}  // namespace flist

// help_field_list: node of a list of help-screen fields.
namespace hflist {
}  // namespace hflist

// screen_sym: one per SCREEN, MENU, PROCEDURE or API section, in the list headed by h_screens.
// A section named by a call before its definition has a record of kind 0 until it is defined.
// Positions marked "chosen here" are this compiler's own choice within the bytes the interpreter
// does not read; everything else is fixed by the interpreter.
namespace ssym {

// s_kind: the low two bits are the kind, the rest header flags.
inline constexpr uint16_t kind_mask = 0x0003;
inline constexpr uint16_t kind_undefined = 0;  // referenced, not yet defined
inline constexpr uint16_t kind_screen = 1;
inline constexpr uint16_t kind_menu = 2;
inline constexpr uint16_t kind_procedure = 3;
inline constexpr uint16_t kind_api = 0x0004;
inline constexpr uint16_t kind_tree_menu = 0x0008;  // TREE-MENU; on a SCREEN: "find" removed
inline constexpr uint16_t kind_leave_parent = 0x0010;
inline constexpr uint16_t kind_start_on_current = 0x0020;
inline constexpr uint16_t kind_stop_exit_all = 0x0040;
inline constexpr uint16_t kind_primary_key10 = 0x0080;
inline constexpr uint16_t kind_primary_access1 = 0x0100;
inline constexpr uint16_t kind_primary_same = 0x0200;
inline constexpr uint16_t kind_no_prompt_search = 0x0400;
inline constexpr uint16_t kind_prompt_search = 0x0800;
inline constexpr uint16_t kind_find_for_currency = 0x1000;
inline constexpr uint16_t kind_stay_in_correct = 0x2000;
inline constexpr uint16_t kind_always_show = 0x4000;

// s_flags: the review word of the header, and the referenced flag kept by the symbol table.
inline constexpr uint16_t review = 0x0001;
inline constexpr uint16_t review_bottom_to_top = 0x0002;
inline constexpr uint16_t review_from_end = 0x0004;
inline constexpr uint16_t review_from_current = 0x0008;
inline constexpr uint16_t review_from_start = 0x0010;
inline constexpr uint16_t review_no_row_sep = 0x0020;
inline constexpr uint16_t review_no_col_sep = 0x0040;
inline constexpr uint16_t review_data_grid = 0x0080;
inline constexpr uint16_t flag_referenced = 0x8000;

// s_form (byte 112 is its low byte).
inline constexpr uint16_t form_no_ok_cancel = 0x0001;
inline constexpr uint16_t form_position_on_ok = 0x0002;
inline constexpr uint16_t form_entry = 0x0004;
inline constexpr uint16_t form_sequential_entry = 0x0008;
inline constexpr uint16_t form_export = 0x0020;
inline constexpr uint16_t form_no_override = 0x0040;
inline constexpr uint16_t form_can_override = 0x0080;

// s_marks (chosen here; the interpreter ignores them): facts the statement compilers record
// while a section is compiled.
inline constexpr uint16_t mark_has_options = 0x0001;     // an OPTION stands in a SCREEN's DETAIL
inline constexpr uint16_t mark_detail_accept = 0x0002;   // an ACCEPT of a PRIMARY key field stands directly in the DETAIL
inline constexpr uint16_t mark_graphical_menu = 0x0004;  // an OPTION of the MENU has a BITMAP
}  // namespace ssym

// mode_entry: one per screen mode, chained from the header's mode list in definition order.
namespace mode {

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

// The mode_entry of a name in the header's mode list, or 0.
inline uint32_t named(const OpSpace& ops, std::string_view name) {
  // Every name operand is looked up here first, so the stored names are not measured: the first
  // characters of the key must agree, then the stored name must end with the key (or go on past
  // the 30 compared).
  const std::string_view key = name.substr(0, std::min<size_t>(name.size(), kNameLength));
  if (key.empty()) return 0;
  for (uint32_t m = ops.get24(hdr::h_mode_list); m != 0; m = ops.get24(m + m_next)) {
    const char* stored = ops.text_at(ops.get24(m + m_name));
    if (stored[0] != key[0] || std::strncmp(stored, key.data(), key.size()) != 0) continue;
    if (key.size() == kNameLength || stored[key.size()] == '\0') return m;
  }
  return 0;
}
}  // namespace mode

// Mode list entry: the allowed modes of a section, and the modes named by a DO.
namespace modelist {
}  // namespace modelist

// report record: made by the report definition or by the first reference to a report name.
// Report record: one per report, in the list headed by h_report_list, newest first.
namespace report {
// r_flags
inline constexpr uint16_t flag_no_xml = 0x0001;
inline constexpr uint16_t flag_spool_only = 0x0002;
inline constexpr uint16_t flag_full_xml = 0x0080;
inline constexpr uint16_t flag_full_page = 0x0200;
inline constexpr uint16_t flag_to_screen = 0x0400;
inline constexpr uint16_t flag_file = 0x0800;
inline constexpr uint16_t flag_direct = 0x1000;
inline constexpr uint16_t flag_referenced = 0x2000;  // named by a reference, not defined yet
// r_length, r_depth: a literal 0 given
inline constexpr uint32_t no_limit = 0x007fff;
}  // namespace report

}  // namespace tav
