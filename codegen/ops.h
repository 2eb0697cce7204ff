// The opcodes of op records, named after the rows of codegen/ops.def.
#pragma once

#include <cstdint>

namespace tav {

enum class Op : uint8_t {
#define TAV_OP(id, code, name, size) id = code,
#include "codegen/ops.def"
};

// Every op starts with the 24-bit link to the next op of its list and the opcode byte; its
// operands follow.
inline constexpr uint32_t kOpLink = 0;
inline constexpr uint32_t kOpcodeByte = 3;
inline constexpr uint32_t kOpOperands = 4;

// The opcode byte of an op.
constexpr uint8_t op_byte(Op op) { return static_cast<uint8_t>(op); }

// Size of an op record of the given opcode (the function call is longer in debug compiles).
uint32_t op_size(Op op, bool debug_ops);
// Name of an opcode for listings ("comparison", "field-ref", ...); "op-<n>" when it has none.
const char* op_name(Op op);

}  // namespace tav
