// Inside the expression compiler: the operator and function tables, the op layouts it fills in,
// and the Compiler that reads one expression. Only expr/expr*.cc include this file.
#pragma once

#include <array>
#include <string>
#include <cstdint>
#include <string_view>

#include "codegen/op_records.h"
#include "codegen/ops.h"
#include "expr/expr.h"
#include "lexer/verbs.h"

namespace tav {

class ParserCore;

namespace expr {

// ---- Opcodes and operands ----------------------------------------------------------------------

// Op::field_name_arg, mode_constant, object_name_arg: na_type of a name and of SHOW.
inline constexpr uint8_t kNameTypeWord = 0x21;
inline constexpr uint8_t kShowTypeWord = 0x25;

// ---- Comparison codes ------------------------------------------------------------------------

inline constexpr uint16_t kRelationMask = 0x7000;
inline constexpr uint16_t kCmpEqual = 0x1000;
inline constexpr uint16_t kCmpNotEqual = 0x6000;
inline constexpr uint16_t kCmpKeepsLeft = 0x0001;  // upper test of BETWEEN, comparison inside IN
inline constexpr uint16_t kCmpOrChild = 0x0002;
inline constexpr uint16_t kCmpLike = 0x0004;
inline constexpr uint16_t kCmpCollate = 0x0008;
inline constexpr uint16_t kCmpAscii = 0x0010;
inline constexpr uint16_t kCmpInIte = 0x0020;

// The code under NOT: the relation is complemented within its three bits, "=" and "!=", ">" and
// "<=", ">=" and "<" swap; the low three bits stay.
constexpr uint16_t invert_comparison(uint16_t code) {
  return static_cast<uint16_t>((code & 7) | (~code & kRelationMask));
}

// ---- Level flags -----------------------------------------------------------------------------

inline constexpr uint32_t kFlagBetween = 0x0008;      // BETWEEN waits for its AND
inline constexpr uint32_t kFlagSetExpected = 0x0010;  // IN was read: a set must follow
inline constexpr uint32_t kFlagInvert = 0x0020;       // NOT in force
inline constexpr uint32_t kFlagCondition = 0x0040;    // a condition is being compiled
inline constexpr uint32_t kFlagComparison = 0x0080;   // a comparison is open
inline constexpr uint32_t kFlagAscii = 0x4000;        // ASCII comparison
inline constexpr uint32_t kFlagCollate = 0x8000;      // COLLATE comparison

// ---- Operators ---------------------------------------------------------------------------------

// Codes of the operators the compiler pushes itself; bit 0x01000000 is no class of the keyword
// table, so no token has these classes.
inline constexpr uint32_t kUnaryMinus = 0x01000001;
inline constexpr uint32_t kBetweenAnd = 0x01000002;
inline constexpr uint32_t kSetSeparator = 0x01000003;
inline constexpr uint32_t kEndOfExpression = 0x7fffffff;

enum class OpKind : uint8_t {
  open, arithmetic, relation, like, between, in, between_and, set_separator, negation, junction,
  close, end
};

// The value column of operators.def: an opcode or a comparison code.
constexpr uint16_t operator_value(Op op) { return op_byte(op); }
constexpr uint16_t operator_value(int code) { return static_cast<uint16_t>(code); }

struct OperatorRow {
  uint32_t code;
  uint16_t precedence;
  OpKind kind;
  uint16_t value;
};

inline constexpr OperatorRow kOperators[] = {
#define TAV_OPERATOR(code, precedence, kind, value) {code, precedence, OpKind::kind, operator_value(value)},
#include "expr/operators.def"
};
inline constexpr int kOperatorCount = static_cast<int>(std::size(kOperators));

// The row of an operator code, or nullptr (precedence -1: not an operator).
const OperatorRow* find_operator(uint32_t code);

inline constexpr int kMaxOperators = 200;  // entries of the operator stack, all levels together

// ---- Functions ---------------------------------------------------------------------------------

inline constexpr int kMaxParams = 7;

struct FunctionRow {
  uint32_t code;
  uint16_t number;
  uint16_t result;  // format word
  char kind;        // 'N', 'A', 'D', 'S', or 0: the result follows an argument
  std::array<int8_t, kMaxParams> params;  // ended by 0
};

// Parameter kinds.
inline constexpr int kParamNumeric = 1;
inline constexpr int kParamAlpha = 2;
inline constexpr int kParamAny = 3;
inline constexpr int kParamField = 4;
inline constexpr int kParamField2 = 5;
inline constexpr int kParamNumericField = 6;
inline constexpr int kParamAlphaField = 7;
inline constexpr int kParamObject = 8;
inline constexpr int kParamReport = 9;

inline constexpr FunctionRow kFunctions[] = {
#define TAV_FUNCTION(name, number, result, kind, ...) \
  {verb(name), number, result, kind, {__VA_ARGS__}},
#include "expr/functions.def"
};
inline constexpr int kFunctionCount = static_cast<int>(std::size(kFunctions));

// The row of a function keyword, or nullptr.
const FunctionRow* find_function(uint32_t code);
// MAX, MIN, AVERAGE, COUNT and SUM.
bool is_aggregate(uint32_t code);

// ---- Named constants ---------------------------------------------------------------------------

struct ConstantRow {
  uint32_t code;
  uint32_t value;
  uint16_t attribute;
};

inline constexpr ConstantRow kConstants[] = {
#define TAV_CONSTANT(name, value, attribute) {verb(name), value, attribute},
#include "expr/expr_constants.def"
};

const ConstantRow* find_constant(uint32_t code);

// ---- The compiler of one expression -------------------------------------------------------

// Reads one expression into the current level's op list. An expression nested in another (an
// argument, a subscript, a part of IF-THEN-ELSE) gets a Compiler of its own on a level of its
// own; the operator stack depth is shared through the op builder, so that all of them together
// hold at most 200 operators.
class Compiler {
 public:
  Compiler(ParserCore& p, uint32_t allow, const Compiler* parent = nullptr);
  ~Compiler();
  Compiler(const Compiler&) = delete;
  Compiler& operator=(const Compiler&) = delete;

  // Inside brackets of the caller: a ")" without its "(" ends the expression.
  void set_nested(bool on) { nested_ = on; }
  // The condition of an IF-THEN-ELSE function: its comparisons are marked.
  void set_ite_condition(bool on) { ite_condition_ = on; }
  void set_aggregates(AggregateSink* sink) { sink_ = sink; }
  void set_select(SelectScope* scope) { select_ = scope; }
  // The first operand is this name, already read by the caller.
  void set_first_name(std::string_view name) { first_name_ = name; }

  // Compiles into the current level; false when the statement was abandoned.
  bool run(bool condition);
  const ExprType& type() const { return type_; }
  bool datetime() const { return datetime_; }

 private:
  struct Entry {
    const OperatorRow* row;
    uint16_t variant;  // COLLATE/ASCII bits of a relation
  };
  enum class Next { operand, op, end, abandon };

  uint32_t& flags();
  bool abandon(int code);
  Next stop(int code);
  bool operand();
  bool operand_word(uint32_t c);
  Next binary(uint32_t c);
  bool push(const OperatorRow* row, uint16_t variant = 0, bool prefix = false);
  void emit_operator(const Entry& e, const OperatorRow* incoming);
  void emit_comparison(uint16_t code, uint16_t variant);
  void emit_junction(Op opcode);
  void link_comparison(uint32_t op);
  void link_junction(uint32_t op);
  bool finish(bool condition);
  bool make_test();
  bool open_paren_above(int mark) const;

  // Operands.
  void numeric_literal(double value, uint16_t attribute);
  void alpha_literal();
  void date_literal(uint32_t cls);
  bool brace_literal();
  bool field_reference(std::string_view name);
  bool select_operand(uint32_t c);
  bool name_operand(std::string_view word);
  void mode_constant(uint32_t mode_entry, bool show);
  bool if_then_else();
  // The argument of a function call that decides the type of its result.
  struct Decided {
    ExprType type;
    bool datetime = false;
    bool given = false;
  };
  bool function_call(uint32_t code);
  bool function_arguments(const FunctionRow& row, int& n, Decided& decided);
  bool function_argument(const FunctionRow& row, int n, Decided& decided);
  void function_result(const FunctionRow& row, const Decided& decided);
  bool aggregate_call(const FunctionRow& row);
  bool name_argument(int kind, ExprType& arg, bool& arg_datetime);
  bool open_set(uint32_t c);
  bool close_set();
  void note_type(uint16_t format, bool is_datetime);
  void raise(const ExprType& t);
  void check_mixed();

  ParserCore& p_;
  uint32_t allow_;
  AggregateSink* sink_ = nullptr;
  SelectScope* select_ = nullptr;
  std::string first_name_;
  bool nested_ = false;
  bool ite_condition_ = false;
  bool in_aggregate_ = false;
  ExprType type_;
  bool datetime_ = false;
  bool mixed_reported_ = false;
  bool after_not_ = false;  // NOT read where an operator was expected
  int entry_depth_;         // operator stack depth on entry
  std::array<Entry, kMaxOperators> stack_{};
  int count_ = 0;
  int set_mark_ = -1;       // stack entries when a set was opened; -1: no set open
  uint32_t set_close_ = 0;  // "}" or ")"
};

// Shared by the entries: compiles on a new level and returns the list head (0 when empty).
uint32_t compile_on_level(ParserCore& p, uint32_t allow, bool condition, bool nested, ExprType* type,
                          bool* failed, const Compiler* parent = nullptr);

// The literal folding rule of operand values, applied to the list just compiled: a single
// integer literal op from 0 to 8388607 (and to `maximum` when that is 1 or more) is released
// and its value returned with the top bit clear; anything else returns the head with the top
// bit set. `literal` and `value` tell the caller what the list was.
uint32_t operand_value(ParserCore& p, uint32_t head, int32_t maximum, bool& literal, double& value);

// The single numeric literal a list consists of, if it does.
bool single_literal(ParserCore& p, uint32_t head, double& value, uint16_t& format);

}  // namespace expr
}  // namespace tav
