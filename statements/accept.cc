// ACCEPT: one field read from the user, with its variable-length field descriptor, and the
// search of the ACCEPT chain.

#include "statements/accept.h"

#include <cstring>
#include <string>
#include <tuple>

#include "codegen/convert.h"
#include "expr/expr.h"
#include "statements/accept_internal.h"
#include "statements/handlers.h"
#include "statements/screen_clauses.h"
#include "symbols/dictionary.h"
#include "symbols/picture.h"

namespace tav {

namespace {

constexpr uint32_t kLineWidth = 133;

// The field ACCEPTed, its subscript, type and display length. False when the statement was
// passed over.
bool read_field(Accept& a) {
  Parser& p = a.p;
  OpSpace& ops = p.ops;
  if (p.next() != kClassName) {
    p.fail(msg::field_name_expected);
    return false;
  }
  uint32_t object = 0;
  a.field = reference_field(p, p.text(), &object);
  if (a.field == 0) {
    p.tok.skip_to_statement();
    return false;
  }
  ops.put24(a.d + adesc::ad_field, a.field);
  if (object != 0) {
    ops.put24(a.d + adesc::ad_object, object);
    a.object = object;
    a.reach(adesc::ad_object + 3);
  }
  ops.put24(a.d + adesc::ad_subscript, compile_subscript(p, a.field));
  ops.put16(a.d + adesc::ad_type, a.field_format());
  ops.put16(a.d + adesc::ad_length, display_length(a.field_format(), static_cast<char>(ops.at(a.field + fsym::f_type)[0])));
  return true;
}

// The flags the place of the ACCEPT gives.
void context_flags(Accept& a) {
  Parser& p = a.p;
  if (p.accepts_open.size() > 1 || p.cond_depth > 0) a.set_bits(adesc::ad_options, opt::nested);
  if (p.part == SectionPart::detail) {
    a.set_bits(adesc::ad_options, opt::detail);
    if (p.cond_depth == 0 && p.accepts_open.size() == 1) mark_key_accept(p, a.field);
  } else if ((p.section_kind & ssym::kind_mask) == ssym::kind_screen) {
    a.set_bits(adesc::ad_display, disp::background);
  }
}

// Case and fill the field's definition asks for, when the clauses chose none.
void field_case_and_fill(Accept& a) {
  OpSpace& ops = a.p.ops;
  const auto flags = static_cast<uint16_t>(ops.get16(a.field + fsym::f_flags));
  if (!(a.get16(adesc::ad_options) & (opt::upper | opt::lower))) {
    if (flags & fsym::flag_upper) a.set_bits(adesc::ad_options, opt::upper);
    else if (flags & fsym::flag_lower) a.set_bits(adesc::ad_options, opt::lower);
  }
  if (ops.at(a.d + adesc::ad_fill)[0] == 0 && (flags & fsym::flag_justify)) {
    ops.at(a.d + adesc::ad_fill)[0] = ' ';
    a.set_bits(adesc::ad_options, opt::fill_left);
    a.reach(adesc::ad_fill + 1);
  }
  if (a.blank_zero != BlankZero::none) {
    PictureResult pic = blank_zero_picture(a.field_format(), a.blank_zero == BlankZero::decimals);
    if (pic.kind != PictureKind::invalid) ops.put24(a.d + adesc::ad_picture, ops.store_text(pic.text));
  }
}

// Without a row, a SUPPRESSed ACCEPT stands at 1,1; any other is an error. A literal column
// must leave room for the field on the line.
void check_position(Accept& a) {
  Parser& p = a.p;
  OpSpace& ops = p.ops;
  if (ops.get24(a.d + adesc::ad_row) == 0) {
    if (a.get16(adesc::ad_options) & opt::suppress_bit) {
      ops.put24(a.d + adesc::ad_row, 1);
      ops.put24(a.d + adesc::ad_column, 1);
    } else {
      p.diag.error(msg::row_column_coordinates_mandatory);
    }
  }
  uint32_t column = ops.get24(a.d + adesc::ad_column);
  bool grid_detail = p.part == SectionPart::detail && (ops.get16(p.section + ssym::s_flags) & ssym::review_data_grid);
  if (!(column & kOperandList) && column + a.get16(adesc::ad_length) > kLineWidth && !grid_detail)
    p.diag.warning(msg::display_print_line_overflow);
}

}  // namespace

void finalise_accept(Accept& a) {
  Parser& p = a.p;
  OpSpace& ops = p.ops;
  field_case_and_fill(a);
  check_position(a);
  check_lookup(a);
  if (ops.get24(a.d + adesc::ad_timeout) != 0 && ops.get24(a.op + acceptop::ao_on_error) == 0)
    p.diag.error_text(txt::timeout_requires_on_error, Context::current_token());
  default_column_title(a);
  bool review = ops.get16(p.section + ssym::s_flags) & (ssym::review | ssym::review_data_grid);
  if (ops.get24(a.d + adesc::ad_when) != 0 && ops.get24(a.d + adesc::ad_title) != 0 &&
      !(a.get16(adesc::ad_options) & (opt::show_value | opt::no_clear)) && !review)
    p.diag.warning_text(txt::titles_not_conditional, p.syms.text(ops.get24(a.field + fsym::f_name)));
}

void store_descriptor(Accept& a) {
  OpSpace& ops = a.p.ops;
  uint32_t stored = ops.copy_in(ops.at(a.d), a.length);
  ops.put24(a.op + acceptop::ao_desc, stored);
  ops.put16(a.op + acceptop::ao_length, a.length);
}

namespace {

uint32_t open_descriptor(Parser& p, uint32_t op) {
  for (const auto& [o, d] : p.accepts_open)
    if (o == op) return d;
  return 0;
}

}  // namespace

// ACCEPT field clauses...
void compile_accept(Parser& p) {
  p.accept();
  p.ob.emit(Op::placeholder);  // only an empty list takes it; the request is counted either way
  p.ob.emit_statement_marker(verb("accept"));
  Accept a{p, p.ob.emit(Op::accept), p.ops.alloc(adesc::size), p.accept_chain};
  p.ops.put24(a.d + adesc::ad_chain, a.previous);
  if (p.ops.get24(p.section + ssym::s_confirm) != 0)
    p.diag.error(msg::statement_used_after_confirm);
  else
    p.accept_chain = a.op;
  p.accepts_open.emplace_back(a.op, a.d);
  if (read_field(a)) {
    context_flags(a);
    read_accept_clauses(a);
    run_dictionary_validations(a);
    finalise_accept(a);
  }
  store_descriptor(a);
  p.accepts_open.pop_back();
}

namespace {

constexpr uint16_t kDisplayOnlyOptions = opt::detail | opt::read_only_bit | opt::display_only;
constexpr uint16_t kDisplayFlagsKept = 0x096c;
constexpr uint16_t kItemPrompt = 0x1000, kItemDim = 0x0200;

// Whether the screen's select reads the field.
bool select_reads(const Parser& p, uint32_t field) {
  const OpSpace& ops = p.ops;
  const uint32_t select = ops.get24(p.section + ssym::s_select);
  for (uint32_t e = select ? ops.get24(select + selrec::sr_fields) : 0; e != 0; e = ops.get24(e + selfield::sf_next))
    if (ops.get24(e + selfield::sf_field) == field) return true;
  return false;
}

// The field reference a display item shows, when its value is one field without subscript.
uint32_t single_field_ref(const Parser& p, uint32_t item) {
  const OpSpace& ops = p.ops;
  const uint32_t head = ops.get24(item + ditem::di_value);
  if (head == 0 || ops.get24(head) != 0 || ops.opcode(head) != Op::field_ref) return 0;
  return ops.get24(head + fieldref::fr_subscript) == 0 ? head : 0;
}

bool shown_as_accept(const Parser& p, uint32_t item, bool long_form) {
  const OpSpace& ops = p.ops;
  if (!(ops.get16(p.section + ssym::s_flags) & ssym::review_data_grid) || ops.get24(p.section + ssym::s_select) == 0) return false;
  if (p.part == SectionPart::before || p.cond_depth > 0 || !p.accepts_open.empty()) return false;
  if (ops.get24(p.section + ssym::s_confirm) != 0 || ops.get24(item + ditem::di_row) == 0) return false;
  if (ops.get16(item + ditem::di_flags) & (kItemPrompt | kItemDim)) return false;
  if (long_form && ops.get24(item + ditem::di_scale) != 0) return false;
  const uint32_t ref = single_field_ref(p, item);
  return ref != 0 && select_reads(p, ops.get24(ref + fieldref::fr_field));
}

// The descriptor of a display-only ACCEPT, filled from the display item.
void copy_item(Accept& a, uint32_t item, uint32_t ref, bool long_form) {
  OpSpace& ops = a.p.ops;
  a.field = ops.get24(ref + fieldref::fr_field);
  a.object = ops.get24(ref + fieldref::fr_object);
  ops.put24(a.d + adesc::ad_field, a.field);
  if (a.object != 0) {
    ops.put24(a.d + adesc::ad_object, a.object);
    a.reach(adesc::ad_object + 3);
  }
  std::memcpy(ops.at(a.d + adesc::ad_row), ops.at(item + ditem::di_row), 6);
  ops.put24(a.d + adesc::ad_picture, ops.get24(item + ditem::di_picture));
  ops.put16(a.d + adesc::ad_options, kDisplayOnlyOptions);
  ops.put16(a.d + adesc::ad_display, ops.get16(item + ditem::di_flags) & kDisplayFlagsKept);
  ops.put16(a.d + adesc::ad_type, ops.get16(item + ditem::di_type));
  const uint32_t width = ops.at(item + ditem::di_width)[0];
  ops.put16(a.d + adesc::ad_length, width != 0 ? width : display_length(a.field_format(), static_cast<char>(ops.at(a.field + fsym::f_type)[0])));
  for (auto [to, from, n] : {std::tuple{adesc::ad_colour, ditem::di_foreground, 3u},
                             std::tuple{adesc::ad_colour + 3, ditem::di_background, 3u},
                             std::tuple{adesc::ad_title, ditem::di_title, 3u},
                             std::tuple{adesc::ad_title_pos, ditem::di_title_pos, 6u}}) {
    if (!long_form) break;
    bool set = false;
    for (uint32_t k = 0; k < n; ++k) set = set || ops.at(item + from)[k] != 0;
    if (!set) continue;
    std::memcpy(ops.at(a.d + to), ops.at(item + from), n);
    a.reach(to + n);
  }
}

}  // namespace

void mark_key_accept(Parser& p, uint32_t field) {
  const OpSpace& ops = p.ops;
  const uint32_t object = ops.get24(p.section + ssym::s_primary);
  for (uint32_t k = object ? ops.get24(object + osym::o_keylist) : 0; k != 0; k = ops.get24(k + keyrec::k_next)) {
    for (uint32_t kp = ops.get24(k + keyrec::k_parts); kp != 0; kp = ops.get24(kp + keypart::kp_next)) {
      if (ops.get24(kp + keypart::kp_field) != field) continue;
      p.ops.put16(p.section + ssym::s_marks, ops.get16(p.section + ssym::s_marks) | ssym::mark_detail_accept);
      return;
    }
  }
}

bool display_as_accept(Parser& p, uint32_t item, uint32_t length) {
  const bool long_form = length > ditem::di_title_pos;
  if (!shown_as_accept(p, item, long_form)) return false;
  p.ob.emit(Op::placeholder);  // only an empty list takes it; the request is counted either way
  p.ob.emit_statement_marker(verb("accept"));
  Accept a{p, p.ob.emit(Op::accept), p.ops.alloc(adesc::size), p.accept_chain};
  p.ops.put24(a.d + adesc::ad_chain, a.previous);
  p.accept_chain = a.op;
  p.accepts_open.emplace_back(a.op, a.d);
  copy_item(a, item, single_field_ref(p, item), long_form);
  run_dictionary_validations(a);
  finalise_accept(a);
  store_descriptor(a);
  p.accepts_open.pop_back();
  return true;
}

namespace {

// One member of the chain: what it accepts and the member before it.
struct ChainMember {
  uint32_t field = 0, object = 0, next = 0;
  bool skipped = false;  // not a target of this search
};

ChainMember accept_member(Parser& p, uint32_t op, uint16_t skip) {
  const OpSpace& ops = p.ops;
  uint32_t d = ops.get24(op + acceptop::ao_desc);
  uint32_t length = ops.get16(op + acceptop::ao_length);
  if (d == 0) {
    d = open_descriptor(p, op);
    length = adesc::size;
  }
  if (d == 0) p.diag.fatal_text(txt::find_accept_internal, Context::current_token());
  const uint32_t object = length > adesc::ad_object ? ops.get24(d + adesc::ad_object) : 0;
  return {ops.get24(d + adesc::ad_field), object, ops.get24(d + adesc::ad_chain),
          (ops.get16(d + adesc::ad_options) & skip) != 0};
}

ChainMember check_box_member(Parser& p, uint32_t op) {
  const uint32_t d = p.ops.get24(op + checkboxop::cbo_desc);
  if (d == 0) p.diag.fatal_text(txt::find_accept_check_box, Context::current_token());
  return {p.ops.get24(d + chkdesc::cb_field), p.ops.get24(d + chkdesc::cb_object), p.ops.get24(d + chkdesc::cb_chain)};
}

ChainMember radio_member(Parser& p, uint32_t op) {
  const uint32_t d = p.ops.get24(op + radioop::rbo_desc);
  if (d == 0) p.diag.fatal_text(txt::find_accept_radio_button, Context::current_token());
  return {p.ops.get24(d + raddesc::rd_field), p.ops.get24(d + raddesc::rd_object), p.ops.get24(d + raddesc::rd_chain)};
}

}  // namespace

uint32_t find_accept(Parser& p, uint32_t head, uint32_t field, uint32_t object, bool refresh) {
  const uint16_t skip = refresh ? opt::suppress_bit : opt::suppress_bit | opt::read_only_bit | opt::display_only;
  for (uint32_t op = head; op != 0;) {
    ChainMember m;
    switch (p.ops.opcode(op)) {
      case Op::accept: m = accept_member(p, op, skip); break;
      case Op::check_box: m = check_box_member(p, op); break;
      case Op::radio_button: m = radio_member(p, op); break;
      default:
        p.diag.warning_text(txt::find_accept_unknown_op, Context::current_token());
        return 0;
    }
    if (field == 0) return op;
    if (!m.skipped && m.field == field && m.object == object) return op;
    op = m.next;
  }
  return 0;
}

}  // namespace tav
