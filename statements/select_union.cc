// UNION: the first select becomes the first member of a union whose head keeps its FROM list and
// field list; each further member is compiled with the head as its partner (its ORDER BY goes to
// the head) and its selected fields must match the head's, pairwise.

#include <cstring>
#include <vector>

#include "statements/select.h"
#include "symbols/records.h"

namespace tav {

namespace {

bool is_numeric(const Parser& p, uint32_t field) { return (p.ops.get16(field + fsym::f_format) & 0x7800) != 0; }
char type_letter(const Parser& p, uint32_t field) { return static_cast<char>(*p.ops.at(field + fsym::f_type)); }
bool special_letter(char c) { return c == 'D' || c == 'T' || c == 'J' || c == 'L'; }

std::vector<uint32_t> selected_fields(const Parser& p, uint32_t rec) {
  std::vector<uint32_t> out;
  for (uint32_t e : chain(p, p.ops.get24(rec + selrec::sr_fields)))
    if (entry_flags(p, e) & selfield::selected) out.push_back(p.ops.get24(e + selfield::sf_field));
  return out;
}

bool incompatible(const Parser& p, uint32_t a, uint32_t b) {
  if (a == 0 || b == 0) return false;
  const bool na = is_numeric(p, a), nb = is_numeric(p, b);
  if (na != nb) return true;
  const char la = type_letter(p, a), lb = type_letter(p, b);
  if (p.ops.get16(a + fsym::f_occurs) != p.ops.get16(b + fsym::f_occurs) && (!nb || la == lb)) return true;
  return na && la != lb && (special_letter(la) || special_letter(lb));
}

void compare_members(Parser& p, uint32_t head, uint32_t member, int line) {
  const std::vector<uint32_t> a = selected_fields(p, head), b = selected_fields(p, member);
  if (a.size() != b.size()) {
    p.diag.error_text(txt::union_field_count, Context::current_token());
    return;
  }
  for (size_t i = 0; i < a.size(); ++i)
    if (incompatible(p, a[i], b[i])) p.diag.error_text(txt::union_fields_incompatible, Context::at_line(field_name(p, b[i]), line));
}

// The first select's contents move to a new record, the first member; the head keeps the FROM
// list, the field list, the counts and the flags.
uint32_t split_head(Select& s) {
  OpSpace& ops = s.p.ops;
  const uint32_t member = ops.alloc(selrec::size);
  std::memcpy(ops.at(member), ops.at(s.rec), selrec::size);
  ops.put24(member + selrec::sr_screen_next, 0);
  for (uint32_t m : {selrec::sr_order, selrec::sr_group, selrec::sr_where, selrec::sr_having, selrec::sr_aggregates})
    ops.put24(s.rec + m, 0);
  ops.put16(s.rec + selrec::sr_aggregate_count, 0);
  s.set_flags(selrec::union_first | selrec::distinct);
  ops.put24(s.rec + selrec::sr_union_next, member);
  return member;
}

// ORDER BY belongs to the last member; a copy of the member's GROUP BY does not count.
void check_member_order(Parser& p, uint32_t member) {
  const uint32_t order = p.ops.get24(member + selrec::sr_order);
  if (order != 0 && order != p.ops.get24(member + selrec::sr_group))
    p.diag.error_text(txt::order_by_final_union, Context::current_token());
}

// UNION [ALL] [(] SELECT ...: the next member, or 0 after an error.
uint32_t next_member(Select& s) {
  Parser& p = s.p;
  p.next();
  p.accept();  // UNION
  if (p.take(verb("all"))) s.clear_flags(selrec::distinct);
  const bool parenthesised = p.take(verb("("));
  if (p.next() != verb("select")) {
    p.push_back();
    p.diag.error_text(txt::select_expected_after_union, Context::current_token());
    p.tok.skip_to_statement();
    return 0;
  }
  p.accept();
  SelectCall call;
  call.screen = s.screen;
  call.parenthesised = parenthesised;
  call.union_head = s.rec;
  return compile_select(p, call);
}

}  // namespace

void compile_union(Select& s) {
  Parser& p = s.p;
  OpSpace& ops = p.ops;
  uint32_t member = split_head(s);
  for (;;) {
    check_member_order(p, member);
    const int line = p.tok.line();
    const uint32_t next = next_member(s);
    if (next == 0) return;
    ops.put24(member + selrec::sr_union_next, next);
    if ((ops.get16(member + selrec::sr_flags) | ops.get16(next + selrec::sr_flags)) & selrec::for_update)
      p.diag.error(msg::update_not_allowed_union);
    compare_members(p, s.rec, next, line);
    member = next;
    const bool more = p.next() == verb("union");
    p.push_back();
    if (!more) {
      if (ops.get24(member + selrec::sr_order) == 0)
        ops.put24(member + selrec::sr_order, ops.get24(member + selrec::sr_group));
      return;
    }
  }
}

}  // namespace tav
