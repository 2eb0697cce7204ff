// The expression compiler: operator precedence parsing into postfix op lists, types, condition
// linking, and the entries the statement compilers call.
//
// An expression is read as operand, operator, operand, ... . Operands are emitted as soon as
// they are read; operators wait on the operator stack until an operator that binds less tightly
// (or the end of the expression) arrives, so the op list comes out in postfix order. NOT is
// pushed like an operator: pushing it switches the level's inversion on, emitting it switches
// the inversion off again, and while it is on every comparison is emitted negated and AND and
// OR swap. Comparisons and junctions are linked as they are emitted: each junction adopts the
// two latest entries without a parent, so the interpreter can walk a condition from any
// comparison to the root and stop as soon as the outcome is decided.

#include <cmath>

#include <algorithm>
#include <string>

#include "codegen/convert.h"
#include "expr/expr_internal.h"
#include "codegen/header.h"
#include "symbols/parser_core.h"
#include "symbols/fields.h"
#include "symbols/records.h"

namespace tav {
namespace expr {

namespace {


const OperatorRow* row_of(uint32_t code) {
  for (const OperatorRow& r : kOperators)
    if (r.code == code) return &r;
  return nullptr;
}

}  // namespace

const OperatorRow* find_operator(uint32_t code) { return row_of(code); }

const ConstantRow* find_constant(uint32_t code) {
  for (const ConstantRow& r : kConstants)
    if (r.code == code) return &r;
  return nullptr;
}

// ---- Compiler --------------------------------------------------------------------------------

Compiler::Compiler(ParserCore& p, uint32_t allow, const Compiler* parent)
    : p_(p), allow_(allow), entry_depth_(p.ob.op_stack_depth) {
  if (parent) {
    sink_ = parent->sink_;
    select_ = parent->select_;
    in_aggregate_ = parent->in_aggregate_;
  } else if (p.block_aggregates != nullptr) {
    sink_ = p.block_aggregates;  // an expression of a block whose aggregates have a home
    allow_ |= allow_aggregates;
  }
}

// Whatever happened, the operators of this expression leave the shared stack.
Compiler::~Compiler() { p_.ob.op_stack_depth = entry_depth_; }

uint32_t& Compiler::flags() { return p_.ob.top().expr_flags; }

bool Compiler::abandon(int code) {
  p_.fail(code);
  type_.failed = true;
  return false;
}

Compiler::Next Compiler::stop(int code) {
  abandon(code);
  return Next::abandon;
}

bool Compiler::run(bool condition) {
  OpLevel& lv = p_.ob.top();
  lv.expr_flags = condition ? kFlagCondition : 0;
  lv.pending = 0;
  type_ = ExprType{};
  for (;;) {
    if (!operand()) return false;
    Next n;
    do {
      n = binary(p_.next());
    } while (n == Next::op);
    if (n == Next::abandon) return false;
    if (n == Next::end) break;
  }
  return finish(condition);
}

// True when a "(" of this expression lies above `mark` entries.
bool Compiler::open_paren_above(int mark) const {
  for (int i = count_ - 1; i >= mark && i >= 0; --i)
    if (stack_[static_cast<size_t>(i)].row->kind == OpKind::open) return true;
  return false;
}

// Pushes an operator, first emitting those on the stack that bind at least as tightly. ")"
// removes its "(" and the end marker is not pushed at all. An operator read where an operand
// belongs ("(", unary minus, NOT) has no left operand and emits nothing.
bool Compiler::push(const OperatorRow* row, uint16_t variant, bool prefix) {
  if (!prefix) {
    while (count_ > 0) {
      const Entry& top = stack_[static_cast<size_t>(count_ - 1)];
      if (top.row->kind == OpKind::open || top.row->precedence > row->precedence) break;
      Entry e = top;
      --count_;
      --p_.ob.op_stack_depth;
      emit_operator(e, row);
    }
    if (row->kind == OpKind::close) {
      if (count_ > 0 && stack_[static_cast<size_t>(count_ - 1)].row->kind == OpKind::open) {
        --count_;
        --p_.ob.op_stack_depth;
        return true;
      }
      return abandon(msg::invalid_expression);
    }
    if (row->kind == OpKind::end) return true;
  }
  if (p_.ob.op_stack_depth + 1 >= kMaxOperators) return abandon(msg::expression_too_complex);
  stack_[static_cast<size_t>(count_++)] = Entry{row, variant};
  ++p_.ob.op_stack_depth;
  if (row->kind == OpKind::negation) flags() ^= kFlagInvert;
  return true;
}

void Compiler::emit_operator(const Entry& e, const OperatorRow* incoming) {
  const OperatorRow& r = *e.row;
  switch (r.kind) {
    case OpKind::arithmetic:
      p_.ob.emit(static_cast<Op>(r.value));
      break;
    case OpKind::relation:
    case OpKind::like:
    case OpKind::between:
      emit_comparison(r.value, e.variant);
      break;
    case OpKind::in: {
      // The left operand stays for the next element when another one follows.
      uint16_t keep = incoming && incoming->kind == OpKind::set_separator ? kCmpKeepsLeft : 0;
      emit_comparison(static_cast<uint16_t>(r.value | keep), e.variant);
      break;
    }
    case OpKind::between_and:
      emit_comparison(r.value, e.variant);
      emit_junction(Op::and_);
      break;
    case OpKind::set_separator:
    case OpKind::junction:
      emit_junction(static_cast<Op>(r.value));
      break;
    case OpKind::negation:
      flags() ^= kFlagInvert;
      break;
    case OpKind::open:
    case OpKind::close:
    case OpKind::end:
      break;
  }
}

void Compiler::emit_comparison(uint16_t code, uint16_t variant) {
  if (flags() & kFlagInvert) code = invert_comparison(code);
  code = static_cast<uint16_t>(code | variant | (ite_condition_ ? kCmpInIte : 0));
  uint32_t op = p_.ob.emit(Op::comparison);
  p_.ops.put16(op + cmpop::cmp_code, code);
  link_comparison(op);
}

void Compiler::emit_junction(Op opcode) {
  if (flags() & kFlagInvert) opcode = opcode == Op::and_ ? Op::or_ : Op::and_;
  uint32_t op = p_.ob.emit(opcode);
  link_junction(op);
}

// A comparison joins the pending chain (through its parent bytes, until a junction adopts it).
void Compiler::link_comparison(uint32_t op) {
  OpLevel& lv = p_.ob.top();
  p_.ops.put24(op + cmpop::cmp_parent, lv.pending);
  lv.pending = op;
}

// A junction adopts the two latest pending entries and takes their place in the chain.
void Compiler::link_junction(uint32_t op) {
  OpLevel& lv = p_.ob.top();
  OpSpace& ops = p_.ops;
  uint32_t rest = 0;
  uint32_t e = lv.pending;
  for (int i = 0; i < 2 && e != 0; ++i) {
    rest = ops.get24(e + cmpop::cmp_parent);
    ops.put24(e + cmpop::cmp_parent, op);
    if (op != 0 && ops.opcode(op) == Op::or_) ops.put16(e + cmpop::cmp_code, ops.get16(e + cmpop::cmp_code) | kCmpOrChild);
    e = rest;
  }
  ops.put24(op + cmpop::cmp_parent, rest);
  lv.pending = op;
}

// A bare value on the left of AND or OR, or as a whole condition, becomes "value != 0".
bool Compiler::make_test() {
  if (type_.alphanumeric()) return abandon(msg::invalid_operator);
  if (!push(row_of(verb("!=")))) return false;
  numeric_literal(0, 0x4020);
  flags() |= kFlagComparison;
  return true;
}

bool Compiler::finish(bool condition) {
  if (flags() & kFlagBetween) {
    p_.diag.error_text(txt::and_missing_between, Context::current_token());
    flags() &= ~kFlagBetween;
  }
  if (set_mark_ >= 0) {
    p_.diag.error_text(set_close_ == verb("}") ? txt::close_brace_missing : txt::close_paren_missing,
                       Context::current_token());
    set_mark_ = -1;
  }
  if (condition && !(flags() & kFlagComparison) && !make_test()) return false;
  if (!push(row_of(kEndOfExpression))) return false;
  if (count_ > 0) return abandon(msg::invalid_expression);  // a "(" is left
  if (flags() & kFlagInvert) p_.diag.fatal_text(txt::internal_error_inversion);
  OpLevel& lv = p_.ob.top();
  if (lv.pending != 0) p_.ops.put24(lv.pending + cmpop::cmp_parent, 0);
  return true;
}

// ---- Operators between operands ----------------------------------------------------------------

Compiler::Next Compiler::binary(uint32_t c) {
  const OperatorRow* row = row_of(c);
  bool set_open = set_mark_ >= 0;
  if (set_open && !open_paren_above(set_mark_)) {
    if (c == set_close_) return close_set() ? Next::op : Next::abandon;
    if (c == verb("}") || c == verb(")") || p_.at_statement_start()) {
      p_.diag.error_text(set_close_ == verb("}") ? txt::close_brace_missing : txt::close_paren_missing,
                       Context::current_token());
      set_mark_ = -1;
      if (c == verb("}")) return Next::op;
      p_.push_back();
      return Next::end;
    }
  }
  bool binary_op = row && row->kind != OpKind::open && row->kind != OpKind::end &&
                   c != kUnaryMinus && c != kBetweenAnd && c != kSetSeparator;
  if (!binary_op) {
    if (after_not_) return stop(msg::invalid_operator);
    if (set_open && !p_.at_statement_start()) {
      // Another element of the set: compare it with the left operand too.
      p_.push_back();
      if (!push(row_of(kSetSeparator)) || !push(row_of(verb("in")))) return Next::abandon;
      return Next::operand;
    }
    p_.push_back();
    return Next::end;
  }

  bool was_not = after_not_;
  after_not_ = false;
  switch (row->kind) {
    case OpKind::close:
      if (was_not) return stop(msg::invalid_operator);
      if (!open_paren_above(0)) {
        if (nested_) {
          p_.push_back();
          return Next::end;
        }
        return stop(msg::invalid_expression);
      }
      return push(row) ? Next::op : Next::abandon;

    case OpKind::arithmetic:
      if (was_not) return stop(msg::invalid_operator);
      if (type_.alphanumeric() && !mixed_reported_) {
        p_.diag.error(msg::mixed_numeric_alpha_operands_expression);
        mixed_reported_ = true;
      }
      if (row->value == 5 && type_.decimals < 4) type_.decimals = 4;  // division
      return push(row) ? Next::operand : Next::abandon;

    case OpKind::relation:
    case OpKind::like:
    case OpKind::between:
    case OpKind::in: {
      if ((flags() & kFlagComparison) || set_open) return stop(msg::invalid_operator);
      if (row->kind == OpKind::like && !type_.alphanumeric() && !mixed_reported_) {
        p_.diag.error(msg::mixed_numeric_alpha_operands_expression);
        mixed_reported_ = true;
      }
      uint16_t variant = static_cast<uint16_t>(((flags() & kFlagCollate) ? kCmpCollate : 0) |
                                               ((flags() & kFlagAscii) ? kCmpAscii : 0));
      flags() &= ~(kFlagCollate | kFlagAscii | kFlagBetween | kFlagSetExpected);
      flags() |= kFlagComparison;
      if (row->kind == OpKind::between) flags() |= kFlagBetween;
      if (row->kind == OpKind::in) flags() |= kFlagSetExpected;
      return push(row, variant) ? Next::operand : Next::abandon;
    }

    case OpKind::negation:
      if (was_not) return stop(msg::invalid_operator);
      after_not_ = true;
      return push(row) ? Next::op : Next::abandon;

    case OpKind::junction:
      if (was_not || set_open) return stop(msg::invalid_operator);
      if (c == verb("and") && (flags() & kFlagBetween)) {
        // The AND of BETWEEN: the upper bound follows.
        flags() &= ~kFlagBetween;
        return push(row_of(kBetweenAnd)) ? Next::operand : Next::abandon;
      }
      if (type_.alphanumeric() && type_.numeric() && !mixed_reported_)
        p_.diag.error(msg::mixed_numeric_alpha_operands_expression);
      if (!(flags() & kFlagComparison) && !make_test()) return Next::abandon;
      type_ = ExprType{};
      datetime_ = false;
      mixed_reported_ = false;
      flags() &= ~(kFlagComparison | kFlagCollate | kFlagAscii);
      return push(row) ? Next::operand : Next::abandon;

    default:
      p_.push_back();
      return Next::end;
  }
}

// ---- Sets ----------------------------------------------------------------------------------------

bool Compiler::open_set(uint32_t c) {
  if (c != verb("{") && c != verb("(")) {
    p_.push_back();
    p_.diag.error_text(txt::set_not_enclosed, Context::current_token());
    p_.tok.skip_to_statement();
    type_.failed = true;
    return false;
  }
  set_close_ = c == verb("{") ? verb("}") : verb(")");
  uint32_t first = p_.next();
  if (first == set_close_) {
    p_.diag.error_text(txt::invalid_set_of_values, Context::current_token());
    p_.tok.skip_to_statement();
    type_.failed = true;
    return false;
  }
  p_.push_back();
  set_mark_ = count_;
  return true;
}

bool Compiler::close_set() {
  set_mark_ = -1;
  return true;
}

// ---- Operands ------------------------------------------------------------------------------------

void Compiler::note_type(uint16_t format, bool is_datetime) {
  if (conv::fmt_numeric(format)) {
    type_.digits = std::max<uint16_t>(type_.digits, static_cast<uint16_t>(conv::fmt_digits(format)));
    type_.decimals = std::max<uint16_t>(type_.decimals, static_cast<uint16_t>(conv::fmt_decimals(format)));
  } else {
    type_.alpha_length = std::max<uint16_t>(type_.alpha_length, format);
  }
  if (is_datetime) datetime_ = true;
}

void Compiler::raise(const ExprType& t) {
  type_.alpha_length = std::max(type_.alpha_length, t.alpha_length);
  type_.digits = std::max(type_.digits, t.digits);
  type_.decimals = std::max(type_.decimals, t.decimals);
}

void Compiler::check_mixed() {
  if (type_.alphanumeric() && type_.numeric() && !mixed_reported_) {
    p_.diag.error(msg::mixed_numeric_alpha_operands_expression);
    mixed_reported_ = true;
  }
}

bool Compiler::operand() {
  if (!first_name_.empty()) {
    const std::string name = std::move(first_name_);
    first_name_.clear();
    if (!name_operand(name)) return false;
    check_mixed();
    return true;
  }
  for (;;) {
    uint32_t c = p_.next();
    if (flags() & kFlagSetExpected) {
      flags() &= ~kFlagSetExpected;
      if (!open_set(c)) return false;
      continue;
    }
    if (c == verb("(")) {
      if (!push(row_of(verb("(")), 0, true)) return false;
      continue;
    }
    if (c == verb("-")) {
      if (p_.next() == kClassNumeric) {
        numeric_literal(-p_.tok.value(), static_cast<uint16_t>(p_.tok.attribute() ^ conv::kFmtSigned));
        break;
      }
      p_.push_back();
      if (!push(row_of(kUnaryMinus), 0, true)) return false;
      continue;
    }
    if (c == verb("not")) {
      if (!push(row_of(verb("not")), 0, true)) return false;
      continue;
    }
    if (c == verb("collate")) {
      flags() |= kFlagCollate;
      continue;
    }
    if (c == verb("ascii")) {
      bool call = p_.next() == verb("(");
      p_.push_back();
      if (!call) {
        flags() |= kFlagAscii;
        continue;
      }
    }
    if (!operand_word(c)) return false;
    break;
  }
  check_mixed();
  return true;
}

bool Compiler::operand_word(uint32_t c) {
  switch (c) {
    case kClassNumeric:
      numeric_literal(p_.tok.value(), p_.tok.attribute());
      return true;
    case kClassAlpha:
      alpha_literal();
      return true;
    case kClassDate:
    case kClassTime:
      date_literal(c);
      return true;
    default:
      break;
  }
  if (c == verb("{")) return brace_literal();
  if (c == verb("if_then_else")) return if_then_else();
  if (c == verb("select")) return select_operand(c);
  if (c == verb("show")) {
    mode_constant(0, true);
    return true;
  }
  if ((c & p_.tok.function_mask()) != 0 && c != kClassEndOfInput) {
    if (const ConstantRow* k = find_constant(c)) {
      double digits = static_cast<double>(k->value);
      numeric_literal(digits, k->attribute);
      return true;
    }
    if (c == verb("char")) p_.diag.warning_text(txt::char_replaced_by_str, Context::current_token());
    return function_call(c);
  }
  if (p_.at_statement_start()) return abandon(msg::field_name_expected);
  // A mode name stands for its mode; any other word names a field.
  std::string_view word = p_.text();
  if (uint32_t m = p_.mode_named(word)) {
    mode_constant(m, false);
    return true;
  }
  if (c != kClassName) return abandon(msg::field_name_expected);
  return name_operand(word);
}

// A name as an operand: a field, or within a select a field of its rows.
bool Compiler::name_operand(std::string_view word) {
  if (select_) {
    SelectScope::Operand r;
    if (!select_->field_operand(p_, word, in_aggregate_, allow_, r)) return type_.failed = true, false;
    note_type(r.format, r.datetime);
    return true;
  }
  return field_reference(word);
}

// A SELECT operand: a sub-query where the caller allows one, else an error.
bool Compiler::select_operand(uint32_t) {
  if (!(allow_ & allow_select) || select_ == nullptr) {
    p_.diag.error_text(txt::select_not_allowed, Context::current_token());
    p_.accept();  // the SELECT word starts no statement here
    p_.tok.skip_to_statement();
    type_.failed = true;
    return false;
  }
  p_.accept();
  ExprType t;
  if (!select_->sub_query(p_, t)) return type_.failed = true, false;
  raise(t);
  return true;
}

void Compiler::numeric_literal(double value, uint16_t attribute) {
  OpSpace& ops = p_.ops;
  uint16_t format = conv::literal_format(attribute);
  uint32_t op = p_.ob.emit(Op::literal);
  uint32_t size = conv::format_size(format);
  uint32_t bytes = ops.alloc(size);
  conv::from_double(value, format, ops.at(bytes));
  ops.put24(op + literal::lit_value, bytes);
  ops.put16(op + literal::lit_format, format);
  note_type(format, false);
  type_.kind = 'N';
}

void Compiler::alpha_literal() {
  OpSpace& ops = p_.ops;
  std::string_view text = p_.text();
  uint32_t op = p_.ob.emit(Op::literal);
  ops.put24(op + literal::lit_value, ops.store_text(text));
  ops.put16(op + literal::lit_format, static_cast<uint32_t>(text.size()));
  if (p_.tok.translated()) p_.ob.make_text_item_op(op, 'G');
  type_.alpha_length = std::max(type_.alpha_length, static_cast<uint16_t>(text.size()));
  type_.kind = 'A';
}

void Compiler::date_literal(uint32_t cls) {
  OpSpace& ops = p_.ops;
  bool date = cls == kClassDate;
  uint16_t format = date ? conv::kFmtDate : conv::kFmtTime;
  uint32_t op = p_.ob.emit(Op::date_literal);
  uint32_t bytes = ops.alloc(conv::format_size(format));
  conv::from_double(p_.tok.value(), format, ops.at(bytes));
  ops.put24(op + literal::lit_value, bytes);
  ops.put16(op + literal::lit_format, format);
  type_.kind = date ? 'D' : 'T';
  ops.put16(op + literal::lit_kind, static_cast<uint32_t>(type_.kind));
  note_type(format, true);
}

bool Compiler::brace_literal() {
  uint32_t kw = p_.next();
  std::string keyword(p_.text());
  if (kw == verb("}") || p_.at_statement_start()) return abandon(msg::syntax_error);
  if (p_.next() != kClassAlpha) return abandon(msg::syntax_error);
  std::string text(p_.text());
  if (p_.next() != verb("}")) return abandon(msg::syntax_error);
  conv::BraceValue v = conv::brace_value(keyword, text, type_.kind,
                                           p_.settings.dates.utc ? 0 : conv::LocalTime().offset());
  switch (v.status) {
    case conv::BraceStatus::ok:
      break;
    case conv::BraceStatus::invalid_date:
      p_.diag.error(msg::invalid_date);
      break;
    case conv::BraceStatus::invalid_time:
      p_.diag.error(msg::invalid_time);
      break;
    case conv::BraceStatus::syntax_error:
      p_.diag.error(msg::syntax_error);
      break;
    case conv::BraceStatus::not_supported:
      p_.diag.error_text(txt::conversion_not_supported, Context::current_token());
      break;
  }
  if (v.status != conv::BraceStatus::ok) {
    v.format = conv::kFmtTime;
    v.kind = 'T';
  }
  OpSpace& ops = p_.ops;
  uint32_t op = p_.ob.emit(Op::date_literal);
  uint32_t bytes = ops.alloc(conv::format_size(v.format));
  conv::from_double(static_cast<double>(v.value), v.format, ops.at(bytes));
  ops.put24(op + literal::lit_value, bytes);
  ops.put16(op + literal::lit_format, v.format);
  ops.put16(op + literal::lit_kind, static_cast<uint32_t>(v.kind));
  type_.digits = std::max<uint16_t>(type_.digits, static_cast<uint16_t>(conv::fmt_digits(v.format)));
  datetime_ = true;
  return true;
}

void Compiler::mode_constant(uint32_t mode_entry, bool show) {
  OpSpace& ops = p_.ops;
  uint32_t op = p_.ob.emit(Op::mode_constant);
  uint32_t value = ops.alloc(4);
  ops.put32(value, show ? 0xffffffffu : mode_entry);
  ops.put24(op + nameop::na_value, value);
  *ops.at(op + nameop::na_type) = show ? kShowTypeWord : kNameTypeWord;
  type_.digits = std::max<uint16_t>(type_.digits, 8);
}

bool Compiler::field_reference(std::string_view name) {
  OpSpace& ops = p_.ops;
  uint32_t object = 0;
  std::string copy(name);
  uint32_t field = reference_field(p_, copy, &object);
  uint32_t op = p_.ob.emit(Op::field_ref);
  ops.put24(op + fieldref::fr_object, object);
  ops.put24(op + fieldref::fr_field, field);
  if (field == 0) {
    // Reported by the field lookup; a subscript after the name is read and dropped.
    if (p_.next() == verb("[")) {
      p_.push_back();
      compile_subscript(p_, 0, allow_whole_arrays);
    } else {
      p_.push_back();
    }
    return true;
  }
  uint16_t format = static_cast<uint16_t>(ops.get16(field + fsym::f_format));
  ops.put16(op + fieldref::fr_format, format);
  char letter = static_cast<char>(*ops.at(field + fsym::f_type));
  note_type(format, letter == 'D' || letter == 'T' || letter == 'J' || letter == 'L');
  bool whole = false;
  uint32_t sub = compile_subscript(p_, field, allow_, &whole);
  ops.put24(op + fieldref::fr_subscript, sub);
  return true;
}

bool Compiler::if_then_else() {
  p_.max_opt_ver(4);
  if (p_.next() != verb("(")) return abandon(msg::syntax_error);
  OpSpace& ops = p_.ops;
  uint32_t op = p_.ob.emit(Op::if_then_else);
  ExprType first, second;
  bool failed = false;
  {
    p_.ob.open_level();
    Compiler sub(p_, allow_, this);
    sub.set_nested(true);
    sub.set_ite_condition(true);
    failed = !sub.run(true);
    ops.put24(op + ite::ite_condition, p_.ob.top().head);
    p_.ob.close_level();
  }
  if (failed) return type_.failed = true, false;
  uint32_t h1 = compile_on_level(p_, allow_, false, true, &first, &failed, this);
  ops.put24(op + ite::ite_then, h1);
  if (failed) return type_.failed = true, false;
  uint32_t h2 = compile_on_level(p_, allow_, false, true, &second, &failed, this);
  ops.put24(op + ite::ite_else, h2);
  if (failed) return type_.failed = true, false;
  if (p_.next() != verb(")")) return abandon(msg::syntax_error);
  if ((first.alphanumeric() && second.numeric()) || (first.numeric() && second.alphanumeric())) {
    p_.diag.error(msg::mixed_numeric_alpha_operands_expression);
    mixed_reported_ = true;
  }
  raise(first);
  raise(second);
  return true;
}

// ---- Shared helpers of the entries ----------------------------------------------------------

uint32_t compile_on_level(ParserCore& p, uint32_t allow, bool condition, bool nested, ExprType* type,
                          bool* failed, const Compiler* parent) {
  p.ob.open_level();
  Compiler c(p, allow, parent);
  c.set_nested(nested);
  bool ok = c.run(condition);
  uint32_t head = p.ob.top().head;
  p.ob.close_level();
  if (type) {
    *type = c.type();
    type->failed = !ok;
  }
  if (failed) *failed = !ok;
  return head;
}

bool single_literal(ParserCore& p, uint32_t head, double& value, uint16_t& format) {
  OpSpace& ops = p.ops;
  if (head == 0 || ops.get24(head) != 0 || ops.opcode(head) != Op::literal) return false;
  format = static_cast<uint16_t>(ops.get16(head + literal::lit_format));
  if (!conv::fmt_numeric(format)) return false;
  value = conv::to_double(ops.at(ops.get24(head + literal::lit_value)), format);
  return true;
}

uint32_t operand_value(ParserCore& p, uint32_t head, int32_t maximum, bool& literal, double& value) {
  uint16_t format = 0;
  literal = single_literal(p, head, value, format);
  if (!literal) return head | kOperandList;
  bool integer = conv::fmt_decimals(format) == 0 && value == std::floor(value);
  bool in_range = value >= 0 && value <= kImmediateMax && (maximum < 1 || value <= maximum);
  if (integer && in_range) {
    p.ops.setbss(head);  // the literal op and its value bytes were the last allocations
    return static_cast<uint32_t>(value);
  }
  if (maximum != -1 && maximum != -2) p.diag.error(msg::numeric_value_invalid_out_range);
  return head | kOperandList;
}

}  // namespace expr

// ---- Entries -------------------------------------------------------------------------------------

namespace {

ExprType compile_here(ParserCore& p, uint32_t allow, AggregateSink* aggregates, SelectScope* select,
                      bool condition, std::string_view first_name = {}) {
  p.field_notes = FieldNotes{};
  expr::Compiler c(p, allow);
  c.set_first_name(first_name);
  if (aggregates != nullptr) c.set_aggregates(aggregates);
  c.set_select(select);
  c.set_nested((allow & inside_brackets) != 0);
  bool ok = c.run(condition);
  ExprType t = c.type();
  t.failed = !ok;
  return t;
}

}  // namespace

ExprType compile_expression(ParserCore& p, uint32_t allow, AggregateSink* aggregates, SelectScope* select) {
  return compile_here(p, allow, aggregates, select, false);
}

ExprType compile_expression_after(ParserCore& p, std::string_view first_name, uint32_t allow,
                                  AggregateSink* aggregates, SelectScope* select) {
  return compile_here(p, allow, aggregates, select, false, first_name);
}

ExprType compile_condition(ParserCore& p, uint32_t allow, AggregateSink* aggregates, SelectScope* select) {
  return compile_here(p, allow, aggregates, select, true);
}

ExprType compile_expression_list(ParserCore& p, uint32_t dest, uint32_t allow) {
  p.field_notes = FieldNotes{};
  ExprType t;
  p.ops.put24(dest, expr::compile_on_level(p, allow, false, false, &t, nullptr));
  return t;
}

ExprType compile_condition_list(ParserCore& p, uint32_t dest, uint32_t allow) {
  p.field_notes = FieldNotes{};
  ExprType t;
  p.ops.put24(dest, expr::compile_on_level(p, allow, true, false, &t, nullptr));
  return t;
}

Operand compile_operand(ParserCore& p, uint32_t dest, int32_t maximum) {
  p.field_notes = FieldNotes{};
  Operand r;
  uint32_t head = expr::compile_on_level(p, allow_nothing, false, false, &r.type, nullptr);
  p.ops.put24(dest, expr::operand_value(p, head, maximum, r.literal, r.value));
  return r;
}

uint32_t compile_subscript(ParserCore& p, uint32_t field, uint32_t allow, bool* whole) {
  if (whole) *whole = false;
  uint32_t occurs = field ? p.ops.get16(field + fsym::f_occurs) : 0;
  bool arrays = (allow & allow_whole_arrays) != 0;
  if (p.next() != verb("[")) {
    p.push_back();
    if (occurs > 1) {
      if (arrays && whole)
        *whole = true;
      else
        p.diag.error(msg::field_requires_subscript);
    }
    return 0;
  }
  if (p.next() == verb("*")) {
    if (p.next() != verb("]")) {
      p.fail(msg::invalid_subscript_expression);
      return 0;
    }
    if (arrays && whole && occurs > 1)
      *whole = true;
    else
      p.diag.error(msg::invalid_subscript_expression);
    return 0;
  }
  p.push_back();
  if (occurs == 1) p.diag.error(msg::field_should_not_subscripted);
  ExprType t;
  uint32_t head = expr::compile_on_level(p, allow_nothing, false, true, &t, nullptr);
  if (t.failed) return 0;
  if (p.next() != verb("]")) {
    p.fail(msg::invalid_subscript_expression);
    return 0;
  }
  if (!t.numeric() || t.alphanumeric()) {
    p.diag.error(msg::invalid_subscript_expression);
    return head | kOperandList;
  }
  double value = 0;
  uint16_t format = 0;
  if (expr::single_literal(p, head, value, format)) {
    if (conv::fmt_decimals(format) != 0 || value != std::floor(value)) {
      p.diag.error(msg::invalid_subscript_expression);
      return head | kOperandList;
    }
    if (occurs > 0 && (value < 1 || value > occurs)) {
      p.diag.error(msg::literal_subscript_out_range);
      return head | kOperandList;
    }
  }
  bool literal = false;
  return expr::operand_value(p, head, -1, literal, value);
}

}  // namespace tav
