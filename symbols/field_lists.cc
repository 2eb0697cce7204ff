// The field lists of a section header: LOCAL, PARAMETERS and RETURNING; and the check of the
// local fields at the end of a section.

#include <algorithm>
#include <string>
#include <vector>

#include "codegen/convert.h"
#include "symbols/parser_core.h"
#include "symbols/fields.h"
#include "symbols/records.h"

namespace tav {

namespace {

bool in_list(const OpSpace& ops, uint32_t head, uint32_t field) {
  for (uint32_t e = head; e != 0; e = ops.get24(e + param_entry::pe_next))
    if (ops.get24(e + param_entry::pe_field) == field) return true;
  return false;
}

// A local field named again with a definition clause after it.
bool redefinition_follows(ParserCore& p) {
  const uint32_t c = p.next();
  p.push_back();
  return c == verb("picture") || c == verb("type") || c == verb("like");
}

// A PARAMETERS or RETURNING list as it is read.
struct FieldList {
  ParserCore& p;
  uint32_t section;
  uint32_t recorded;      // the list the earlier call left
  FieldListKind kind;
  uint32_t slot;          // the section's list
  bool building;          // the list is recorded (a definition, not a declaration)
  bool matching;          // a list already there was left by a call made before this definition
  uint32_t pending;       // next call argument to match
  uint32_t tail = 0;      // last entry of the list
  bool too_many = false;
  std::vector<uint32_t> named{};  // the fields of this list so far
};

// A LOCAL field; a name already there is reported, its clauses read and the field dropped.
void local_field(ParserCore& p, uint32_t s, const std::string& name, uint32_t f) {
  if (f != 0) {
    p.diag.error_with(msg::field_name_already_exists_defined, name);
    p.diag.add_note("first defined here", p.syms.defined_at(f));
    define_field(p, name, true);  // read its clauses; the field itself is dropped
  } else {
    p.syms.link_local_field(s, define_field(p, name, true));
  }
}

// A name of a PARAMETERS or RETURNING list: an existing field (not to be defined again), or a new
// one. False when it is named twice in the list.
bool list_field(FieldList& l, uint32_t s, const std::string& name, uint32_t& f) {
  ParserCore& p = l.p;
  if (f != 0) {
    if (std::find(l.named.begin(), l.named.end(), f) != l.named.end()) {
      p.diag.error_text(txt::field_duplicated_in_list, name);
      if (redefinition_follows(p)) define_field(p, name, true);
      return false;
    }
    if (redefinition_follows(p)) {
      p.diag.error_with(msg::field_name_already_exists_defined, name);
      p.diag.add_note("first defined here", p.syms.defined_at(f));
      define_field(p, name, true);
    }
  } else {
    f = define_field(p, name, true);
    p.syms.link_local_field(s, f);
  }
  l.named.push_back(f);
  return true;
}

// A list that contradicts the call made before the definition; the call is noted. A field's
// clauses (or the list) end at the word after them, which is held: the message is placed on
// the word before it, the one the classic line shows.
void mismatch(FieldList& l, int code) {
  ParserCore& p = l.p;
  p.diag.error_at(code, p.tok.diag_token_held() ? Context::token_at(p.tok.diag_prev_mark()) : Context::current_token());
  const SourceMark call = p.syms.first_used_at(l.recorded);
  p.diag.add_note("called here", call.known() ? call : p.syms.first_used_at(l.section));
}

// The field takes the place of the next argument of the earlier call, which must agree with it.
void match_argument(FieldList& l, uint32_t f) {
  ParserCore& p = l.p;
  OpSpace& ops = p.ops;
  uint32_t& pending = l.pending;
  const bool numeric_argument = ops.get24(pending + param_entry::pe_field) != 0;
  if (numeric_argument != conv::fmt_numeric(static_cast<uint16_t>(ops.get16(f + fsym::f_format)))) {
    mismatch(l, msg::parameters_not_correct_type);
  } else if (ops.get24(pending + param_entry::pe_occurs) != ops.get16(f + fsym::f_occurs)) {
    mismatch(l, msg::parameter_different_field_occurrence_factor);
  }
  ops.put24(pending + param_entry::pe_field, f);
  ops.put24(pending + param_entry::pe_occurs, 0);
  l.tail = pending;
  pending = ops.get24(pending + param_entry::pe_next);
}

// The field into the section's list: matched against an earlier call's, or appended.
void add_to_list(FieldList& l, uint32_t f) {
  OpSpace& ops = l.p.ops;
  if (l.matching && l.pending != 0) {
    match_argument(l, f);
    return;
  }
  if (l.matching && l.kind == FieldListKind::parameters) {
    if (!l.too_many) mismatch(l, msg::parameter_list_mismatch);
    l.too_many = true;
    return;
  }
  const uint32_t e = ops.alloc(param_entry::size);
  ops.put24(e + param_entry::pe_field, f);
  ops.put24(l.tail != 0 ? l.tail + param_entry::pe_next : l.slot, e);
  l.tail = e;
}

}  // namespace

void compile_section_field_list(ParserCore& p, uint32_t section, FieldListKind kind, bool record) {
  OpSpace& ops = p.ops;
  const uint32_t s = section;
  p.take(verb("field"));
  p.take(verb("is"));

  const uint32_t slot = s + (kind == FieldListKind::parameters ? ssym::s_params : ssym::s_returning);
  const bool building = record && kind != FieldListKind::local;
  const bool matching = building && ops.get24(slot) != 0;
  FieldList l{p, s, ops.get24(slot), kind, slot, building, matching, matching ? ops.get24(slot) : 0};

  for (;;) {
    const uint32_t c = p.next();
    if (p.at_statement_start() || c != kClassName) {
      p.push_back();
      break;
    }
    const std::string name(p.text());
    uint32_t f = p.syms.find_local_field(s, name);
    if (kind == FieldListKind::local)
      local_field(p, s, name, f);
    else if (list_field(l, s, name, f) && building)
      add_to_list(l, f);
  }
  if (matching && l.pending != 0) mismatch(l, msg::parameter_list_mismatch);
}

void report_unreferenced_locals(ParserCore& p, uint32_t section) {
  const OpSpace& ops = p.ops;
  const uint32_t params = ops.get24(section + ssym::s_params);
  const uint32_t results = ops.get24(section + ssym::s_returning);
  // The list runs from the last field declared to the first; report in declaration order.
  std::vector<uint32_t> unused;
  for (uint32_t f = ops.get24(section + ssym::s_locals); f != 0; f = ops.get24(f + fsym::f_next)) {
    if (ops.get24(f + fsym::f_addr) != 0 || in_list(ops, params, f) || in_list(ops, results, f)) continue;
    unused.push_back(f);
  }
  for (auto it = unused.rbegin(); it != unused.rend(); ++it) {
    p.diag.set_name(ops.text_at(ops.get24(*it + fsym::f_name)), p.syms.defined_at(*it));
    p.diag.info(msg::defined_field_not_referenced);
  }
}

}  // namespace tav
