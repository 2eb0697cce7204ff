// Section header clauses: the REVIEW and DATA-GRID layout, the PRIMARY object, SELECT and WHEN,
// the allowed modes, the field lists, EXPORT, and the checks made when the header ends.
#include "codegen/header.h"
#include "expr/expr.h"
#include "statements/header_clauses.h"
#include "statements/modes.h"
#include "statements/record_io.h"
#include "statements/records.h"
#include "statements/screen_clauses.h"
#include "statements/select.h"
#include "symbols/suggest.h"
#include "symbols/fields.h"
#include "symbols/objects.h"

namespace tav::header {

namespace {

constexpr uint32_t kMinReviewOccurs = 2;
constexpr uint32_t kMaxRowsPerEntry = 5;
constexpr uint16_t kSelectExcludedReview = 0x0304;
constexpr uint16_t kReviewOptions = ssym::review_bottom_to_top | ssym::review_from_end | ssym::review_from_current |
                                    ssym::review_from_start;

// A numeric literal from `low` to `high`: error 9 for anything else than a number, 10 out of
// range. 0 after an error.
uint32_t literal_in_range(Parser& p, uint32_t low, uint32_t high) {
  if (p.next() != kClassNumeric) {
    p.diag.error(msg::numeric_literal_expected);
    p.push_back();
    return 0;
  }
  double v = p.tok.value();
  if (v < low || v > high || v != static_cast<uint32_t>(v)) {
    p.diag.error(msg::numeric_value_invalid_out_range);
    return 0;
  }
  return static_cast<uint32_t>(v);
}

// OCCURS n [BY m]: the review area's entries and the rows of each.
void review_occurs(Header& h) {
  Parser& p = h.p;
  uint32_t occurs = literal_in_range(p, kMinReviewOccurs, 0xffff);
  uint32_t by = 1;
  if (p.take(verb("by"))) by = literal_in_range(p, 1, kMaxRowsPerEntry);
  if (occurs != 0) p.ops.put16(h.s + ssym::s_occurs, occurs);
  if (by != 0) p.ops.put16(h.s + ssym::s_review_by, by);
  if (p.diag.error_count() == 0 && occurs * by > kTerminalRows)
    p.diag.warning_text(txt::review_area_may_exceed_window, Context::current_token());
}

}  // namespace

// REVIEW [OCCURS n [BY m]] [COLOUR fg [ON bg]]: the OCCURS is needed unless only the colours are
// given.
ClauseStep review(Header& h) {
  Parser& p = h.p;
  if (!is_kind(h, kScreen)) return wrong_section(h);
  set_bits(h, ssym::s_flags, ssym::review);
  if (get16(h, ssym::s_review_by) == 0) p.ops.put16(h.s + ssym::s_review_by, 1);
  bool occurs = p.take(verb("occurs"));
  if (occurs) review_occurs(h);
  if (p.take(verb("colour"))) {
    read_colours(p, h.s + ssym::s_review_colour, h.s + ssym::s_review_colour + 3, false, false);
  } else if (!occurs) {
    p.diag.error_text(txt::review_needs_occurs, Context::current_token());
  }
  return ClauseStep::next;
}

ClauseStep data_grid(Header& h) {
  if (!is_kind(h, kScreen)) return wrong_section(h);
  set_bits(h, ssym::s_flags, ssym::review_data_grid);
  return review(h);
}

// SAME or DIFFERENT fields after the PRIMARY object: read and checked as a record statement's key
// clause on the key chosen; the fields count as the leading key parts used, and the key flags go
// to the kind word.
void same_different(Header& h, uint32_t object) {
  Parser& p = h.p;
  OpSpace& ops = p.ops;
  RecordIo r{p, RecordIo::get};
  r.block = new_record_io(p);
  r.object = object;
  if (const uint8_t key = ops.at(h.s + ssym::s_key_number)[0]; key != 0) ops.at(r.block + accesskey::a_index)[0] = key;
  ops.at(r.block + accesskey::a_key_count)[0] = ops.at(h.s + ssym::s_key_parts)[0];
  if (io_same_different(r) == ClauseStep::done) return;
  finish_record_io(r);
  ops.at(h.s + ssym::s_key_parts)[0] = ops.at(r.block + accesskey::a_key_count)[0];
  const uint16_t flags = r.flags();
  if (flags & access::first) set_bits(h, ssym::s_kind, ssym::kind_primary_key10);
  if (flags & access::different) set_bits(h, ssym::s_kind, ssym::kind_primary_access1);
  if (flags & access::same) set_bits(h, ssym::s_kind, ssym::kind_primary_same);
}

// [ON INDEX n | ON INDEX field ...] [SAME | DIFFERENT field ...] after the PRIMARY object: its key
// number and the leading key parts used.
void primary_key(Header& h, uint32_t object) {
  Parser& p = h.p;
  OpSpace& ops = p.ops;
  if (p.take(verb("on"))) {
    if (!p.take(verb("index"))) {
      p.diag.error(msg::syntax_error);
      return;
    }
    // The record statements' ON INDEX: a key number, or the fields that lead a key.
    RecordIo r{p, RecordIo::get};
    r.block = ops.alloc(accesskey::size);
    r.object = object;
    if (io_index(r) == ClauseStep::done) return;
    ops.at(h.s + ssym::s_key_number)[0] = ops.at(r.block + accesskey::a_index)[0];
    ops.at(h.s + ssym::s_key_parts)[0] = ops.at(r.block + accesskey::a_key_count)[0];
  }
  uint32_t c = p.next();
  if (c != verb("same") && c != verb("different")) {
    p.push_back();
    return;
  }
  p.accept();
  same_different(h, object);
}

// PRIMARY [SAME | IS] object [ON INDEX ...].
ClauseStep primary(Header& h) {
  Parser& p = h.p;
  if (!is_kind(h, kScreen)) return wrong_section(h);
  uint32_t c = p.next();
  if (c == verb("same")) {
    set_bits(h, ssym::s_kind, ssym::kind_primary_same);
    c = p.next();
  } else if (c == verb("is")) {
    c = p.next();
  }
  if (c != kClassName) {
    p.fail(msg::object_name_expected);
    return ClauseStep::done;
  }
  uint32_t object = find_or_load_object(p, p.text());
  if (object == 0) return ClauseStep::done;
  if (p.ops.get16(object + osym::o_attr) & osym::attr_no_rowid)
    p.diag.error_text(txt::primary_no_rowid, Context::current_token());
  p.ops.put24(h.s + ssym::s_primary, object);
  primary_key(h, object);
  h.implicit_select = conv_primary_start(p, h.s, object);
  return ClauseStep::next;
}

bool select_is_clause(const Header& h) { return (h.p.section_kind & ssym::kind_mask) != ssym::kind_procedure; }

// SELECT ...: the screen's select. A review running from the end cannot read a select.
ClauseStep select(Header& h) {
  if (!is_kind(h, kScreen)) return wrong_section(h);
  if (get16(h, ssym::s_flags) & kSelectExcludedReview) h.p.diag.error(msg::duplicate_incompatible_clause);
  compile_screen_select(h.p, h.s);
  return ClauseStep::next;
}

// WHEN condition: with a PRIMARY object it joins the condition of the screen's implicit select;
// otherwise it is the section's own condition.
ClauseStep when(Header& h) {
  Parser& p = h.p;
  if (!is_kind(h, kScreen)) return wrong_section(h);
  h.when = true;
  if (h.implicit_select != 0) {
    conv_primary_when(p, h.s, h.implicit_select, true);
    return ClauseStep::next;
  }
  compile_condition_list(p, h.s + ssym::s_when);
  return ClauseStep::next;
}

// ALLOWED [ARE] mode ...: SEARCH stands for the five search modes, SHOW for the show mode. The
// list ends at a clause word other than NEXT and PREV.
ClauseStep allowed(Header& h) {
  Parser& p = h.p;
  if (!is_kind(h, kScreen)) return wrong_section(h);
  p.take(verb("are"));
  uint32_t head = p.ops.get24(h.s + ssym::s_modes);
  for (;;) {
    uint32_t c = p.next();
    if (p.at_statement_start() || ((c & kClauseWord) && c != verb("next") && c != verb("prev"))) break;
    if (c == verb("search")) {
      for (const char* m : {"next-scr", "prev-scr", "find", "next", "prev"}) add_mode_to_list(p, head, m);
    } else if (!add_mode_to_list(p, head, c == verb("prev") ? "prev" : c == verb("show") ? "~-show" : p.text())) {
      p.diag.error(msg::mode_not_defined_known);
      suggest_name(p, p.text(), mode_names(p));
    }
  }
  p.push_back();
  p.ops.put24(h.s + ssym::s_modes, head);
  return ClauseStep::next;
}

ClauseStep local(Header& h) {
  h.p.accept();
  compile_section_field_list(h.p, h.s, FieldListKind::local);
  return ClauseStep::next;
}

// PARAMETERS fields: a call compiled before this definition passed no arguments when it left no
// list. A repeated clause declares its fields and builds no list.
ClauseStep parameters(Header& h) {
  Parser& p = h.p;
  p.accept();
  if (!h.parameters && (get16(h, ssym::s_flags) & ssym::flag_referenced) != 0 && p.ops.get24(h.s + ssym::s_params) == 0) {
    p.diag.error(msg::parameter_list_mismatch);
    p.diag.add_note("called here", p.syms.first_used_at(h.s));
  }
  compile_section_field_list(p, h.s, FieldListKind::parameters, !h.parameters);
  h.parameters = true;
  return ClauseStep::next;
}

ClauseStep returning(Header& h) {
  h.p.accept();
  compile_section_field_list(h.p, h.s, FieldListKind::returning, !h.returning);
  h.returning = true;
  return ClauseStep::next;
}

// EXPORT: the section goes to the front of the export list, numbered by the entries before it,
// and takes a routine number when it has none.
ClauseStep export_section(Header& h) {
  OpSpace& ops = h.p.ops;
  h.p.max_opt_ver(6);
  h.exported = true;
  set_bits(h, ssym::s_form, ssym::form_export);
  uint32_t count = 0;
  for (uint32_t e = ops.get24(hdr::h_export_list); e != 0; e = ops.get24(e + exportrec::er_next)) ++count;
  uint32_t e = ops.alloc(exportrec::size);
  ops.put24(e + exportrec::er_next, ops.get24(hdr::h_export_list));
  ops.put16(e + exportrec::er_number, count);
  ops.put24(e + exportrec::er_section, h.s);
  ops.put24(hdr::h_export_list, e);
  if (ops.get16(h.s + ssym::s_routine) == 0) {
    uint32_t number = ops.get16(hdr::h_library_count) + 1;
    ops.put16(hdr::h_library_count, number);
    ops.put16(h.s + ssym::s_routine, number);
  }
  return ClauseStep::next;
}

namespace {

ClauseStep override_flag(Header& h, uint16_t flag) {
  if (!h.exported) h.p.diag.error_text(txt::clause_must_follow_export, Context::current_token());
  set_bits(h, ssym::s_form, flag);
  return ClauseStep::next;
}

}  // namespace

ClauseStep can_override(Header& h) { return override_flag(h, ssym::form_can_override); }
ClauseStep no_override(Header& h) { return override_flag(h, ssym::form_no_override); }

namespace {

// The first two allowed modes change places when the review runs backwards and they are the
// next-screen and previous-screen modes in that order.
void swap_screen_modes(Header& h) {
  OpSpace& ops = h.p.ops;
  uint32_t first = ops.get24(h.s + ssym::s_modes);
  uint32_t second = first ? ops.get24(first + modelist::ml_next) : 0;
  if (second == 0) return;
  uint32_t a = ops.get24(first + modelist::ml_mode), b = ops.get24(second + modelist::ml_mode);
  if ((ops.get16(a + mode::m_flags) & mode::next_scr) && (ops.get16(b + mode::m_flags) & mode::prev_scr)) {
    ops.put24(first + modelist::ml_mode, b);
    ops.put24(second + modelist::ml_mode, a);
  }
}

// The PRIMARY object's access flags take the section's access: reading only, or writing as well
// through the default modes.
void primary_access(Header& h, uint32_t object) {
  OpSpace& ops = h.p.ops;
  uint16_t bits = 0x0010;
  if (ops.get24(h.s + ssym::s_modes) == 0)
    bits = 0x2700;
  else if (h.prior_review & 0x4000)
    bits = 0x2710;
  ops.put16(object + osym::o_attr, ops.get16(object + osym::o_attr) | bits);
}

}  // namespace

void finish(Header& h) {
  Parser& p = h.p;
  OpSpace& ops = p.ops;
  uint32_t object = ops.get24(h.s + ssym::s_primary);
  bool select = ops.get24(h.s + ssym::s_select) != 0;
  uint16_t review_word = get16(h, ssym::s_flags);
  if ((h.when && object == 0) || ((review_word & ssym::review) && object == 0 && !select))
    p.diag.error(msg::primary_object_required_screen);
  if ((ops.get24(h.s + ssym::s_params) != 0 && !h.parameters) ||
      (ops.get24(h.s + ssym::s_returning) != 0 && !h.returning)) {
    p.diag.error(msg::parameter_list_mismatch);
    p.diag.add_note("called here", p.syms.first_used_at(h.s));
  }
  if (h.window_plain && h.window_full) {
    ops.put24(h.s + ssym::s_window_bottom, 255);
    ops.put24(h.s + ssym::s_window_bottom + 3, 255);
  }
  bool entry = ops.get24(hdr::h_entry_section) == h.s;
  if (h.colour && !h.window && !entry) p.diag.warning_text(txt::colour_needs_window, Context::current_token());
  if (h.title && !h.window && !entry) p.diag.warning_text(txt::title_needs_window, Context::current_token());
  if (review_word & (ssym::review_bottom_to_top | ssym::review_from_end)) swap_screen_modes(h);
  if ((review_word & kReviewOptions) && !(review_word & ssym::review))
    p.diag.warning_text(txt::review_options_not_review, Context::current_token());
  if (object != 0) primary_access(h, object);
  if (object != 0 && !select && h.implicit_select != 0) conv_primary(p, h.s, h.implicit_select);
}

}  // namespace tav::header
