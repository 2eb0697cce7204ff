// The symbol records: fields, objects, keys, record links, field lists and sections.
//
// Every record lives in the op space and is written to the .op6 file unchanged, so the byte
// positions below are part of the file format the interpreter reads. Records are byte-packed and
// big-endian; each is allocated zero-filled with its exact size and never freed, and is named by
// its 24-bit offset from the op-space base (0 = none). A name member is a 24-bit link to a
// NUL-terminated copy of the name made when the record was created; names are compared over
// their first 30 characters.
#pragma once

#include <cstdint>

namespace tav {

// Significant length of every symbol name.
inline constexpr uint32_t kSymbolNameLength = 30;

// field_sym: one per field, global (in the list headed by h_fields) or local to a section.
namespace fsym {
inline constexpr uint32_t size = 39;
inline constexpr uint32_t f_next = 0;     // 24-bit link: next field of its list
inline constexpr uint32_t f_name = 3;     // 24-bit link: name (at most 30 characters)
inline constexpr uint32_t f_addr = 6;     // 24-bit: data-area offset, or offset in the section's
                                          // local storage; 0 = no storage yet
inline constexpr uint32_t f_occurs = 9;   // 16-bit occurrence count, 1 for a scalar
inline constexpr uint32_t f_format = 11;  // 16-bit format word (symbols/types.h)
inline constexpr uint32_t f_size = 13;    // 16-bit storage size of one occurrence
inline constexpr uint32_t f_type = 15;    // type letter
inline constexpr uint32_t f_join = 16;    // 24-bit link: first field_obj_link of the field
inline constexpr uint32_t f_fldid = 19;   // 16-bit dictionary field id
inline constexpr uint32_t f_flags = 21;   // 16-bit flags below
inline constexpr uint32_t f_dbcol = 23;   // 24-bit link: database column name (may equal f_name)
inline constexpr uint32_t f_seq = 26;     // 16-bit sequence number in the program
inline constexpr uint32_t f_dictno = 28;  // 16-bit signed dictionary number (below)
inline constexpr uint32_t f_ldictno = 30; // 16-bit signed dictionary of the LIKE field; -1 none
inline constexpr uint32_t f_drill = 32;   // 24-bit link: DRILL-BACK program text
// bytes 35-38 are never set by the compiler.

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
inline constexpr uint32_t size = 41;
inline constexpr uint32_t o_next = 0;       // 24-bit link: next object
inline constexpr uint32_t o_name = 3;       // 24-bit link: name
inline constexpr uint32_t o_fldobj = 6;     // 24-bit link: first field_obj_link, record order
inline constexpr uint32_t o_file = 9;       // 24-bit link: file name text; 0 = none
// bytes 12-14 zero
inline constexpr uint32_t o_record = 15;    // 24-bit data-area offset of the record buffer
inline constexpr uint32_t o_keylist = 18;   // 24-bit link: first key record (types I and M only)
inline constexpr uint32_t o_like = 21;      // 24-bit link: object named by LIKE
inline constexpr uint32_t o_seq = 24;       // 16-bit sequence number, index of the run-time table
inline constexpr uint32_t o_attr = 26;      // 16-bit attributes below
inline constexpr uint32_t o_recsize = 28;   // 16-bit record size, 1 to 4096
inline constexpr uint32_t o_objid = 30;     // 16-bit dictionary object id
inline constexpr uint32_t o_dictno = 32;    // 16-bit signed dictionary; -1 defined in the program
// bytes 34-36 zero
inline constexpr uint32_t o_filtype = 37;   // file type letter
inline constexpr uint32_t o_version = 38;   // version character
inline constexpr uint32_t o_separator = 39; // field separator character
inline constexpr uint32_t o_filler1 = 40;   // 1: type I with the dictionary's filler flag

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
inline constexpr uint32_t size = 10;
inline constexpr uint32_t k_next = 0;    // 24-bit link: next key record
// byte 3 zero
inline constexpr uint32_t k_index = 4;   // index number, 1 for the first
inline constexpr uint32_t k_flags = 5;   // 16-bit key flags below
inline constexpr uint32_t k_parts = 7;   // 24-bit link: first key part

inline constexpr uint16_t flag_unique = 0x0001;         // no duplicates
inline constexpr uint16_t flag_db_index_only = 0x0002;  // index exists only in the database
inline constexpr uint16_t flag_compress = 0x0004;
}  // namespace keyrec

// Key part: one field of a key.
namespace keypart {
inline constexpr uint32_t size = 8;
inline constexpr uint32_t kp_next = 0;   // 24-bit link: next key part
inline constexpr uint32_t kp_field = 3;  // 24-bit link: the key field's field_sym
inline constexpr uint32_t kp_desc = 6;   // 16-bit: 1 descending
}  // namespace keypart

// field_obj_link: one per (object, field) pair of a record. A field's links run from f_join
// through fo_join (new links at the head); an object's from o_fldobj through fo_fldobj (appended,
// record order).
namespace folink {
inline constexpr uint32_t size = 14;
inline constexpr uint32_t fo_object = 0;  // 24-bit link: object_sym
inline constexpr uint32_t fo_field = 3;   // 24-bit link: field_sym
inline constexpr uint32_t fo_join = 6;    // 24-bit link: next link of the same field
inline constexpr uint32_t fo_fldobj = 9;  // 24-bit link: next link of the same object
inline constexpr uint32_t fo_offs = 12;   // 16-bit offset of the field in the record
}  // namespace folink

// field_list: node of a list of fields.
namespace flist {
inline constexpr uint32_t size = 6;
inline constexpr uint32_t fl_next = 0;
inline constexpr uint32_t fl_field = 3;
}  // namespace flist

// help_field_list: node of a list of help-screen fields.
namespace hflist {
inline constexpr uint32_t size = 6;
inline constexpr uint32_t hfl_next = 0;
inline constexpr uint32_t hfl_field = 3;
}  // namespace hflist

// screen_sym: one per SCREEN, MENU, PROCEDURE or API section, in the list headed by h_screens.
// A section named by a call before its definition has a record of kind 0 until it is defined.
// Positions marked "chosen here" are this compiler's own choice within the bytes the interpreter
// does not read; everything else is fixed by the interpreter.
namespace ssym {
inline constexpr uint32_t size = 121;
// bytes 0-3 unused
inline constexpr uint32_t s_prompt_pos = 4;      // PROMPT position: row, column operand values
inline constexpr uint32_t s_window_top = 10;     // window top-left corner (row, column)
inline constexpr uint32_t s_window_bottom = 16;  // window bottom-right corner (row, column)
inline constexpr uint32_t s_window_rel = 22;     // RELATIVE TO position of the window
inline constexpr uint32_t s_seq = 28;            // 16-bit sequence number
inline constexpr uint32_t s_name = 30;           // 24-bit link: name
inline constexpr uint32_t s_next = 33;           // 24-bit link: next section
// bytes 36-38 unused
inline constexpr uint32_t s_primary = 39;        // 24-bit link: PRIMARY object_sym
inline constexpr uint32_t s_select = 42;         // 24-bit link: the screen's compiled SELECT
inline constexpr uint32_t s_when = 45;           // 24-bit link: WHEN condition op list
inline constexpr uint32_t s_before = 48;         // 24-bit link: BEFORE op list (chosen here)
inline constexpr uint32_t s_detail = 51;         // 24-bit link: DETAIL op list (chosen here)
inline constexpr uint32_t s_after = 54;          // 24-bit link: AFTER op list (chosen here)
inline constexpr uint32_t s_confirm = 57;        // 24-bit link: the CONFIRM op (chosen here)
inline constexpr uint32_t s_modes = 60;          // 24-bit link: allowed-mode list (chosen here)
inline constexpr uint32_t s_library = 63;        // 24-bit link: library list record supplying it
inline constexpr uint32_t s_kind = 66;           // 16-bit kind word below
inline constexpr uint32_t s_flags = 68;          // 16-bit review word and the referenced flag
inline constexpr uint32_t s_occurs = 70;         // 16-bit REVIEW OCCURS count
inline constexpr uint32_t s_review_by = 72;      // 16-bit REVIEW rows per entry
inline constexpr uint32_t s_base = 74;           // 16-bit first row of the review area
inline constexpr uint32_t s_key_parts = 76;      // PRIMARY: leading key parts used (0 = all)
inline constexpr uint32_t s_key_number = 77;     // PRIMARY: key number
inline constexpr uint32_t s_marks = 78;          // 16-bit compile marks below (chosen here)
inline constexpr uint32_t s_params = 80;         // 24-bit link: PARAMETERS list
inline constexpr uint32_t s_returning = 83;      // 24-bit link: RETURNING list
inline constexpr uint32_t s_locals = 86;         // 24-bit link: local field_syms through f_next
// bytes 89-90 unused
inline constexpr uint32_t s_local_size = 91;     // 16-bit local storage used (0: none yet)
inline constexpr uint32_t s_button_size = 93;    // BUTTON-SIZE operand value (MENU)
inline constexpr uint32_t s_colour = 96;         // COLOUR: foreground, background operand values
inline constexpr uint32_t s_review_colour = 102; // REVIEW COLOUR: foreground, background
inline constexpr uint32_t s_title = 108;         // 24-bit link: TITLE op list
inline constexpr uint32_t s_form = 111;          // 16-bit form word below
inline constexpr uint32_t s_routine = 113;       // 16-bit library routine / export number
inline constexpr uint32_t s_window_pos = 115;    // WINDOW-POSITION operand value
// bytes 118-120 unused

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
inline constexpr uint16_t mark_detail_accept = 0x0002;   // an ACCEPT stands directly in the DETAIL
inline constexpr uint16_t mark_graphical_menu = 0x0004;  // an OPTION of the MENU has a BITMAP
}  // namespace ssym

}  // namespace tav
