// The expression compiler: values and conditions read from the token stream and emitted as
// postfix op lists into the current nesting level.
//
// It works through the Parser (statements/parser.h) like the statement compilers, and is built
// as its own library above the symbol layer, since operands name fields and objects.
#pragma once

#include <cstdint>

namespace tav {

class Parser;

// The type of a compiled expression: alphanumeric when alpha_length is non-zero, numeric when
// digits or decimals are; `kind` is the text kind of the last literal ('N', 'A', 'D', 'T').
struct ExprType {
  uint16_t alpha_length = 0;
  uint16_t digits = 0;
  uint16_t decimals = 0;
  char kind = 'N';
  bool alphanumeric() const { return alpha_length != 0; }
  bool numeric() const { return digits != 0 || decimals != 0; }
};

// What an expression may contain beyond plain values, set by the caller.
enum ExprAllow : uint32_t {
  allow_nothing = 0,
  allow_aggregates = 0x1,    // MAX, MIN, AVERAGE, COUNT, SUM
  allow_whole_arrays = 0x2,  // an array field without subscript, or [*]
  allow_select = 0x4,        // a SELECT in the expression
};

// Compiles a value expression into the current level's op list.
ExprType compile_expression(Parser& p, uint32_t allow = allow_nothing);

// Compiles a condition into the current level's op list; a bare numeric value becomes a test
// against zero.
ExprType compile_condition(Parser& p, uint32_t allow = allow_nothing);

// Compiles an expression on a new level and stores the head of its op list at the 24-bit `dest`
// in the op space (0 when nothing was compiled).
ExprType compile_expression_list(Parser& p, uint32_t dest, uint32_t allow = allow_nothing);
// The same for a condition.
ExprType compile_condition_list(Parser& p, uint32_t dest, uint32_t allow = allow_nothing);

// The operand entry: an expression on its own level stored at the 24-bit `dest` as an operand
// value: a non-negative integer literal up to 8388607 (and up to `maximum` when that is 1 or
// more) as the immediate value with the top bit clear, anything else as the op list's offset
// with the top bit set. `maximum` -1 accepts any literal as a list, -2 literals with decimals.
struct Operand {
  bool literal = false;  // the expression was a single literal
  double value = 0;      // its value
  ExprType type;
};
Operand compile_operand(Parser& p, uint32_t dest, int32_t maximum);

}  // namespace tav
