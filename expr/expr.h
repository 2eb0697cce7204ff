// The expression compiler: values and conditions read from the token stream and emitted as
// postfix op lists into the current nesting level.
//
// It works through the parser core (symbols/parser_core.h), and is a layer of its own above the
// symbol layer, since operands name fields and objects.
#pragma once

#include <cstdint>
#include <string_view>

namespace tav {

class ParserCore;

// The type of a compiled expression: alphanumeric when alpha_length is non-zero, numeric when
// digits or decimals are; `kind` is the text kind of the last literal ('N', 'A', 'D', 'T').
struct ExprType {
  uint16_t alpha_length = 0;
  uint16_t digits = 0;
  uint16_t decimals = 0;
  char kind = 'N';
  bool failed = false;  // the statement was abandoned after an error (skipped to its end)
  bool alphanumeric() const { return alpha_length != 0; }
  bool numeric() const { return digits != 0 || decimals != 0; }
};

// What an expression may contain beyond plain values, set by the caller.
enum ExprAllow : uint32_t {
  allow_nothing = 0,
  allow_aggregates = 0x1,    // MAX, MIN, AVERAGE, COUNT, SUM
  allow_whole_arrays = 0x2,  // an array field without subscript, or [*]
  allow_select = 0x4,        // a SELECT in the expression
  inside_brackets = 0x8,     // the caller's ")" without its "(" ends the expression
};

// Aggregate functions (MAX, MIN, AVERAGE, COUNT, SUM) are compiled by the SELECT compiler. A
// caller that allows them passes a sink: the expression compiler reads the function word and
// hands over with the token stream at the "(" (or after the word when none follows); the sink
// reads the argument list through the closing ")" and returns the aggregate record for
// Op::aggregate.
class AggregateSink {
 public:
  virtual ~AggregateSink() = default;
  // `number` is the function's number; `type` receives the aggregate's result type.
  virtual uint32_t aggregate(ParserCore& p, uint32_t verb_code, uint16_t number, ExprType& type) = 0;
};

// While a select is compiled, the names in its expressions are fields of the rows it reads, not
// program fields, and a SELECT may stand as an operand (a sub-query). The SELECT compiler
// implements this scope and passes it with the expressions of its clauses; arguments and
// nested expressions of such an expression keep it.
class SelectScope {
 public:
  virtual ~SelectScope() = default;
  // What an operand that the scope compiled contributes to the expression's type.
  struct Operand {
    uint16_t format = 0;    // format word of the field
    bool datetime = false;  // a date, time, Julian or logical field
  };
  // A name read as an operand (the current token): emits its reference. `in_aggregate` when it
  // is the argument of an aggregate function. False when the statement was abandoned.
  virtual bool field_operand(ParserCore& p, std::string_view name, bool in_aggregate, uint32_t allow,
                             Operand& result) = 0;
  // SELECT read as an operand (the word taken): compiles the sub-query into the current list.
  // `type` receives the type of its one selected field. False when the statement was abandoned.
  virtual bool sub_query(ParserCore& p, ExprType& type) = 0;
};

// A call of the function numbered `number` with `arguments` arguments already compiled into the
// current list, exactly as a call written in a program is emitted (the debug form carries the
// function's word). Returns the call op.
uint32_t emit_function_call(ParserCore& p, uint16_t number, int arguments);

// Compiles a value expression into the current level's op list. Aggregates are accepted only
// with allow_aggregates and a sink; a SELECT operand only with allow_select and a scope.
ExprType compile_expression(ParserCore& p, uint32_t allow = allow_nothing,
                            AggregateSink* aggregates = nullptr, SelectScope* select = nullptr);

// The same for an expression whose first operand is a name the caller has already read (and
// read past, to see what follows it).
ExprType compile_expression_after(ParserCore& p, std::string_view first_name, uint32_t allow = allow_nothing,
                                  AggregateSink* aggregates = nullptr, SelectScope* select = nullptr);

// Compiles a condition into the current level's op list; a bare numeric value becomes a test
// against zero.
ExprType compile_condition(ParserCore& p, uint32_t allow = allow_nothing,
                           AggregateSink* aggregates = nullptr, SelectScope* select = nullptr);

// Compiles an expression on a new level and stores the head of its op list at the 24-bit `dest`
// in the op space (0 when nothing was compiled).
ExprType compile_expression_list(ParserCore& p, uint32_t dest, uint32_t allow = allow_nothing);
// The same for a condition.
ExprType compile_condition_list(ParserCore& p, uint32_t dest, uint32_t allow = allow_nothing);

// The operand entry: an expression on its own level stored at the 24-bit `dest` as an operand
// value: a non-negative integer literal up to 8388607 (and up to `maximum` when that is 1 or
// more) as the immediate value with the top bit clear, anything else as the op list's offset
// with the top bit set. `maximum` -1 accepts any literal as a list, -2 literals with decimals.
struct Operand {
  bool literal = false;  // the expression was a single literal
  double value = 0;      // its value
  ExprType type;
};
Operand compile_operand(ParserCore& p, uint32_t dest, int32_t maximum);

// The subscript entry, after a field name: reads "[expression]" when it follows and returns the
// subscript as an operand value (0 when there is none). A field that occurs more than once needs
// one unless whole arrays are allowed, where "[*]" or no subscript sets `*whole`.
uint32_t compile_subscript(ParserCore& p, uint32_t field, uint32_t allow = allow_nothing,
                           bool* whole = nullptr);

// The SET statement and its assignment. compile_assignment is entered after the SET word (FOR
// calls it for its initial value with `for_loop` set: no special targets, no whole arrays, no
// statement marker) and returns the assignment op (0 after an error).
uint32_t compile_assignment(ParserCore& p, bool for_loop);
void compile_set(ParserCore& p);
// The STRING statement.
void compile_string(ParserCore& p);

}  // namespace tav
