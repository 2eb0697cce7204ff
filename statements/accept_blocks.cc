// The ACCEPT clauses that hold statements (BEFORE-ACCEPT, VALIDATIONS, the ON blocks) or lists
// of values (ALLOWED, DISALLOWED).

#include "expr/expr.h"
#include "statements/accept_internal.h"
#include "statements/record_io.h"
#include "statements/screen_clauses.h"

namespace tav {

namespace {

// A block the descriptor holds at `member`; a second one is compiled and dropped.
ClauseStep block_clause(Accept& a, uint32_t member, uint32_t head, uint32_t end_word, txt::Text missing) {
  const bool kept = a.p.ops.get24(a.d + member) != 0;
  if (kept && !a.dictionary) a.p.diag.error(msg::duplicate_incompatible_clause);
  const uint32_t list = compile_input_block(a.p, head, end_word, false, missing);
  if (!kept) a.p.ops.put24(a.d + member, list);
  a.reach(member + 3);
  return ClauseStep::next;
}

struct KeyRow {
  uint32_t word;
  int16_t code;
};
constexpr KeyRow kKeys[] = {
    {verb("help_key"), onkey::help_key},       {verb("down_arrow"), onkey::down_arrow},
    {verb("right_arrow"), onkey::right_arrow}, {verb("left_arrow"), onkey::left_arrow},
    {verb("up_arrow"), onkey::up_arrow},
};

bool key_listed(const Accept& a, int16_t code) {
  const OpSpace& ops = a.p.ops;
  for (uint32_t n = ops.get24(a.d + adesc::ad_on_keys); n != 0; n = ops.get24(n + onkey::ok_next))
    if (static_cast<int16_t>(ops.get16(n + onkey::ok_key)) == code) return true;
  return false;
}

// ON key ... END-ON: a node at the front of the list. A key given twice is reported and its
// block compiled and dropped.
void key_block(Accept& a, int16_t code) {
  Parser& p = a.p;
  OpSpace& ops = p.ops;
  bool twice = key_listed(a, code) || (code == onkey::help_key && a.help_key);
  if (twice) p.diag.error(msg::duplicate_incompatible_clause);
  if (code == onkey::help_key) a.help_key = true;
  const uint32_t list = compile_input_block(p, a.op, verb("end_on"), true, txt::end_on_key_missing);
  a.reach(adesc::ad_on_keys + 3);
  if (twice) return;
  const uint32_t node = ops.alloc(onkey::size);
  ops.put24(node + onkey::ok_next, ops.get24(a.d + adesc::ad_on_keys));
  ops.put24(node + onkey::ok_block, list);
  ops.put16(node + onkey::ok_key, static_cast<uint16_t>(code));
  ops.put24(a.d + adesc::ad_on_keys, node);
}

bool is_literal(uint32_t c) { return c == kClassNumeric || c == kClassAlpha || c == kClassDate || c == kClassTime; }

bool ends_list(Parser& p, uint32_t c) {
  return p.at_statement_start() || (c & kClauseWord) || c == verb("upper_case") || c == verb("lower_case");
}

// One literal of a value list into `dest`; false (the statement skipped) when none follows.
bool list_literal(Accept& a, uint32_t dest) {
  Parser& p = a.p;
  const uint32_t c = p.next();
  if (!is_literal(c)) {
    p.fail(msg::literal_value_expected);
    return false;
  }
  if ((c == kClassAlpha) == a.numeric_field()) p.diag.error(msg::literal_value_not_compatible_field);
  p.push_back();
  compile_expression_list(p, dest);
  return true;
}

// [ARE] literal [TO literal] [VALUE-TITLE text] ...: nodes in source order at `member`.
ClauseStep value_list(Accept& a, uint32_t member) {
  Parser& p = a.p;
  OpSpace& ops = p.ops;
  const bool kept = ops.get24(a.d + member) != 0;
  if (kept && !a.dictionary) p.diag.error(msg::duplicate_incompatible_clause);
  p.take(verb("are"));
  uint32_t head = 0, tail = 0;
  for (uint32_t c = p.next(); !ends_list(p, c); c = p.next()) {
    p.push_back();
    const uint32_t node = ops.alloc(valnode::size);
    if (tail != 0) ops.put24(tail + valnode::vn_next, node);
    else head = node;
    tail = node;
    if (!list_literal(a, node + valnode::vn_value)) return ClauseStep::done;
    if (p.take(verb("to")) && !list_literal(a, node + valnode::vn_upper)) return ClauseStep::done;
    if (p.take(verb("value_title"))) alpha_list(p, node + valnode::vn_title, 'D');
  }
  p.push_back();
  if (!kept) ops.put24(a.d + member, head);
  a.reach(member + 3);
  return ClauseStep::next;
}

}  // namespace

// BEFORE-ACCEPT ... END-BEFORE-ACCEPT: compiled before this ACCEPT joins the chain.
ClauseStep accept_before(Accept& a) {
  return block_clause(a, adesc::ad_before, a.previous, verb("end_before_accept"), txt::end_before_accept_missing);
}

// VALIDATIONS ... END-VALIDATIONS.
ClauseStep accept_validations(Accept& a) {
  return block_clause(a, adesc::ad_validations, a.op, verb("end_validations"), txt::end_validations_missing);
}

ClauseStep accept_on(Accept& a) { return accept_on_key(a); }

// ON key ... END-ON, or ON ERROR, the ON read.
ClauseStep accept_on_key(Accept& a) {
  Parser& p = a.p;
  if (a.dictionary) {
    p.diag.error(msg::clause_cannot_specified_dictionary);
    p.tok.skip_to_clause();
    return ClauseStep::next;
  }
  const uint32_t c = p.next();
  if (c == verb("error")) {
    if (p.ops.get24(a.op + acceptop::ao_on_error) != 0) p.diag.error(msg::duplicate_incompatible_clause);
    compile_on_error(p, a.op + acceptop::ao_on_error, false);
    return ClauseStep::next;
  }
  for (const KeyRow& k : kKeys) {
    if (c == k.word) {
      key_block(a, k.code);
      return ClauseStep::next;
    }
  }
  p.fail(msg::syntax_error);
  return ClauseStep::done;
}

ClauseStep accept_allowed(Accept& a) { return value_list(a, adesc::ad_allowed); }
ClauseStep accept_disallowed(Accept& a) { return value_list(a, adesc::ad_disallowed); }

}  // namespace tav
