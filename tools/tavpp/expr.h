// Integer expressions of #if and #elif.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "macros.h"

namespace tav::pp {

// Replaces "defined NAME" and "defined(NAME)" by 1 or 0; nullopt when malformed.  This is done
// before macro replacement so that the names tested are not replaced themselves.
std::optional<std::string> resolve_defined(std::string_view text, const MacroTable& table);

enum class ExprStatus { ok, syntax, division_by_zero };

struct ExprResult {
  ExprStatus status = ExprStatus::ok;
  std::int64_t value = 0;
};

// Evaluates an expression whose macros have been replaced: 64-bit signed arithmetic that wraps
// around, decimal, hexadecimal (0x) and octal (leading 0) numbers with optional u/l suffixes,
// identifiers that are left count as 0.  A division by zero is an error only where the operand
// is evaluated (not in the skipped side of &&, || or ?:).
ExprResult evaluate(std::string_view text);

}  // namespace tav::pp
