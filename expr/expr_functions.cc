// Function calls: the function table, argument lists checked against the parameter kinds, and
// the result types.
//
// Each argument is compiled on a level of its own and wrapped in an Op::function_arg that holds
// its list; the call itself (Op::function_call) follows the arguments with the function number
// and the argument count.

#include <algorithm>
#include <string>

#include "codegen/convert.h"
#include "expr/expr_internal.h"
#include "codegen/header.h"
#include "symbols/parser_core.h"
#include "symbols/fields.h"
#include "symbols/records.h"
#include "symbols/reports.h"

namespace tav {
namespace expr {

namespace {


constexpr uint32_t kAggregates[] = {verb("max"), verb("min"), verb("average"), verb("count"), verb("sum")};

// The kind of the n-th argument (from 0): a negative kind repeats for all further arguments;
// 0 when the list has no room for it.
int kind_of_arg(const FunctionRow& row, int n) {
  for (int i = 0; i < kMaxParams; ++i) {
    int k = row.params[static_cast<size_t>(i)];
    if (k == 0) return 0;
    if (k < 0) return -k;
    if (i == n) return k;
  }
  return 0;
}

// Whether `n` arguments fit the kinds: every fixed kind needs its argument, except a trailing
// report name; a repeating kind takes any number.
bool count_fits(const FunctionRow& row, int n) {
  int fixed = 0;
  bool repeats = false;
  for (int i = 0; i < kMaxParams && row.params[static_cast<size_t>(i)] != 0; ++i) {
    if (row.params[static_cast<size_t>(i)] < 0) {
      repeats = true;
      break;
    }
    ++fixed;
  }
  int needed = fixed;
  if (fixed > 0 && !repeats && row.params[static_cast<size_t>(fixed - 1)] == kParamReport) --needed;
  if (n < needed) return false;
  return repeats || n <= fixed;
}

bool decides_result(int kind) { return kind == kParamAny || kind == kParamField || kind == kParamField2; }

}  // namespace

const FunctionRow* find_function(uint32_t code) {
  for (const FunctionRow& r : kFunctions)
    if (r.code == code) return &r;
  return nullptr;
}

bool is_aggregate(uint32_t code) {
  return std::find(std::begin(kAggregates), std::end(kAggregates), code) != std::end(kAggregates);
}

namespace {

// The call after its arguments: the function number and the argument count (and, in debug
// compiles, the function's word).
uint32_t emit_call(ParserCore& p, const FunctionRow& row, int n) {
  OpSpace& ops = p.ops;
  uint32_t call = p.ob.emit(Op::function_call);
  ops.put16(call + funcall::fc_number, row.number);
  *ops.at(call + funcall::fc_count) = static_cast<uint8_t>(n);
  if (p.ob.debug_ops()) {
    uint32_t copy = ops.alloc(4);
    ops.put32(copy, row.code);
    ops.put24(call + funcall::fc_verb, copy);
  }
  return call;
}

}  // namespace

bool Compiler::function_call(uint32_t code) {
  const FunctionRow* row = find_function(code);
  if (!row) p_.diag.fatal_text(txt::function_not_implemented, Context::current_token());
  if (is_aggregate(code)) return aggregate_call(*row);

  int n = 0;
  Decided decided;
  if (p_.next() != verb("(")) {
    p_.push_back();
    int first = row->params[0];
    if (first != 0 && first != kParamReport) return abandon(msg::function_requires_parameter_list);
  } else if (!function_arguments(*row, n, decided)) {
    return false;
  }
  if (!count_fits(*row, n)) p_.diag.error(msg::invalid_parameter_list_function);
  emit_call(p_, *row, n);
  function_result(*row, decided);
  return true;
}

// The arguments up to ")". False when the expression was abandoned.
bool Compiler::function_arguments(const FunctionRow& row, int& n, Decided& decided) {
  for (;;) {
    uint32_t c = p_.next();
    if (c == verb(")")) return true;
    if (p_.at_statement_start()) {
      p_.diag.error(msg::invalid_parameter_list_function);
      type_.failed = true;
      return false;
    }
    p_.push_back();
    if (!function_argument(row, n, decided)) return false;
    ++n;
  }
}

// The n-th argument on a level of its own, wrapped, and checked against its kind; the first of
// the kinds that decide the result's type decides it. False when the expression was abandoned.
bool Compiler::function_argument(const FunctionRow& row, int n, Decided& decided) {
  OpSpace& ops = p_.ops;
  int kind = kind_of_arg(row, n);
  ExprType arg;
  bool arg_datetime = false;
  uint32_t head = 0;
  if (kind >= kParamField) {
    p_.ob.open_level();
    bool ok = name_argument(kind, arg, arg_datetime);
    head = p_.ob.top().head;
    p_.ob.close_level();
    if (!ok) return false;
  } else {
    p_.ob.open_level();
    Compiler sub(p_, allow_nothing, this);
    sub.set_nested(true);
    bool ok = sub.run(false);
    head = p_.ob.top().head;
    p_.ob.close_level();
    if (!ok) return type_.failed = true, false;
    arg = sub.type();
    arg_datetime = sub.datetime();
  }
  uint32_t wrap = p_.ob.emit(Op::function_arg);
  ops.put24(wrap + funcarg::fa_list, head);
  // Type rules of the kinds.
  bool numeric_kind = kind == kParamNumeric || kind == kParamNumericField;
  bool alpha_kind = kind == kParamAlpha || kind == kParamAlphaField;
  if ((numeric_kind && arg.alphanumeric()) || (alpha_kind && arg.numeric() && !arg.alphanumeric()))
    p_.diag.error(msg::parameters_not_correct_type);
  if (decides_result(kind)) {
    if (!decided.given) {
      decided.type = arg;
      decided.datetime = arg_datetime;
      decided.given = true;
    } else if (decided.type.alphanumeric() != arg.alphanumeric()) {
      p_.diag.error(msg::parameters_not_correct_type);
    }
  }
  return true;
}

// The result raises the type of the enclosing expression: the function's own, or that of the
// argument that decided it.
void Compiler::function_result(const FunctionRow& row, const Decided& decided) {
  if (row.kind == 0) {
    if (decided.type.alphanumeric()) {
      type_.alpha_length = std::max(type_.alpha_length, decided.type.alpha_length);
    } else {
      int digits = decided.type.digits, decimals = decided.type.decimals;
      if (digits + decimals > 18) digits = std::max(0, 18 - decimals);
      ExprType t;
      t.digits = static_cast<uint16_t>(digits);
      t.decimals = static_cast<uint16_t>(decimals);
      raise(t);
      if (decided.datetime) datetime_ = true;
    }
  } else {
    note_type(row.result, row.kind == 'D');
  }
}

// Field, object and report names as arguments. The name's reference is stored as a 4-byte value
// whose type is the numeric word 0x2100.
bool Compiler::name_argument(int kind, ExprType& arg, bool& arg_datetime) {
  OpSpace& ops = p_.ops;
  uint32_t c = p_.next();
  std::string name(p_.text());
  bool word = c == kClassName || (c != kClassEndOfInput && c > kClassRaw && !p_.at_statement_start() &&
                                  find_operator(c) == nullptr);
  if (!word) {
    int code = kind == kParamObject ? msg::object_name_expected
               : kind == kParamReport ? msg::report_name_not_defined
                                      : msg::field_name_expected;
    return abandon(code);
  }
  uint32_t value = ops.alloc(4);
  if (kind == kParamObject) {
    uint32_t object = p_.syms.find_object(name);
    if (object == 0) p_.diag.error(msg::object_name_expected);
    ops.put32(value, object);
    uint32_t op = p_.ob.emit(Op::object_name_arg);
    ops.put24(op + nameop::na_value, value);
    *ops.at(op + nameop::na_type) = kNameTypeWord;
  } else if (kind == kParamReport) {
    const uint32_t report = find_or_create_report(p_.ops, name);
    p_.syms.note_used(report);
    p_.syms.note_name(XrefKind::report, report, name);
    ops.put32(value, report);
    uint32_t op = p_.ob.emit(Op::literal);
    ops.put24(op + literal::lit_value, value);
    ops.put16(op + literal::lit_format, conv::kFmtTime);
  } else {
    std::string_view field_name = name;
    if (!field_name.empty() && field_name.front() == ':') field_name.remove_prefix(1);
    uint32_t object = 0;
    uint32_t field = reference_field(p_, std::string(field_name), &object);
    ops.put32(value, field);
    uint32_t op = p_.ob.emit(Op::field_name_arg);
    ops.put24(op + nameop::na_value, value);
    *ops.at(op + nameop::na_type) = kNameTypeWord;
    if (field != 0) {
      uint16_t format = static_cast<uint16_t>(ops.get16(field + fsym::f_format));
      if (conv::fmt_numeric(format)) {
        arg.digits = static_cast<uint16_t>(conv::fmt_digits(format));
        arg.decimals = static_cast<uint16_t>(conv::fmt_decimals(format));
      } else {
        arg.alpha_length = format;
      }
      char letter = static_cast<char>(*ops.at(field + fsym::f_type));
      arg_datetime = letter == 'D' || letter == 'T' || letter == 'J' || letter == 'L';
    }
  }
  if (p_.next() == verb("[")) {
    p_.diag.error_text(txt::subscripting_not_allowed_here, Context::current_token());
    // Read the subscript and drop it.
    bool failed = false;
    compile_on_level(p_, allow_nothing, false, true, nullptr, &failed, this);
    if (failed) return type_.failed = true, false;
    if (p_.next() != verb("]")) p_.push_back();
  } else {
    p_.push_back();
  }
  return true;
}

// MAX, MIN, AVERAGE, COUNT and SUM: compiled by the caller's aggregate sink into an Op::aggregate.
bool Compiler::aggregate_call(const FunctionRow& row) {
  if (in_aggregate_) p_.diag.error(msg::aggregate_functions_cannot_nested);
  if (!(allow_ & allow_aggregates) || sink_ == nullptr) {
    p_.diag.error(msg::aggregate_functions_invalid_here);
    // Pass over the argument list so that the rest of the statement is still read.
    if (p_.next() == verb("(")) {
      int depth = 1;
      while (depth > 0) {
        uint32_t c = p_.next();
        if (p_.at_statement_start()) {
          type_.failed = true;
          return false;
        }
        if (c == verb("(")) ++depth;
        if (c == verb(")")) --depth;
      }
    } else {
      p_.push_back();
    }
    numeric_literal(0, 0x4020);
    return true;
  }
  ExprType t;
  in_aggregate_ = true;
  uint32_t record = sink_->aggregate(p_, row.code, row.number, t);
  in_aggregate_ = false;
  uint32_t op = p_.ob.emit(Op::aggregate);
  p_.ops.put24(op + aggop::ag_record, record);
  if (row.code == verb("count") && !t.numeric() && !t.alphanumeric()) t.digits = 8;
  raise(t);
  return true;
}

}  // namespace expr

uint32_t emit_function_call(ParserCore& p, uint16_t number, int arguments) {
  for (const expr::FunctionRow& row : expr::kFunctions)
    if (row.number == number) return expr::emit_call(p, row, arguments);
  p.diag.fatal_text(txt::function_not_implemented, Context());
  return 0;
}
}  // namespace tav
