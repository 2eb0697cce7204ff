// Running tavcmp in a scratch directory and reading back the .op6 file it writes.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "codegen/ops.h"
#include "tests/support/support.h"

namespace tav {
// Opcodes in failure messages.
inline void PrintTo(Op op, std::ostream* os) { *os << "op " << static_cast<unsigned>(op_byte(op)); }
}  // namespace tav

namespace tavtest {

// Changes to the environment a program runs with: NAME=value entries and names removed.
struct Env {
  std::vector<std::string> set;
  std::vector<std::string> unset;
};

// Runs tavcmp with `args` in `cwd`, with TAVRIN pointing at the build's product directory
// (unless `env` sets or removes it) and none of the variables that change its behaviour
// inherited from the caller.
RunResult tavcmp(const std::string& cwd, std::vector<std::string> args, Env env = {});

// A compiled .op6 image, read only: big-endian words at offsets, checked against its size (an
// access past the end fails the test and reads as zero), and the lists of the header.
class Op6 {
 public:
  Op6() = default;
  explicit Op6(std::string bytes) : bytes_(std::move(bytes)) {}

  const std::string& bytes() const { return bytes_; }
  bool empty() const { return bytes_.empty(); }
  size_t size() const { return bytes_.size(); }

  uint32_t u8(uint32_t off) const { return word(off, 1); }
  uint32_t u16(uint32_t off) const { return word(off, 2); }
  uint32_t u24(uint32_t off) const { return word(off, 3); }
  uint32_t u32(uint32_t off) const { return word(off, 4); }
  std::string text(uint32_t off) const;  // the NUL-terminated text at off; "" for offset 0
  // n bytes at off of the data image, which follows the operations image.
  std::string data(uint32_t off, uint32_t n) const;

  // The records of a list linked through their first 24-bit word, from `head` on.
  std::vector<uint32_t> list(uint32_t head) const;
  tav::Op opcode(uint32_t op) const { return tav::Op(u8(op + tav::kOpcodeByte)); }
  std::vector<tav::Op> codes(uint32_t head) const;  // the opcodes of an op list
  std::vector<uint32_t> sections() const;            // in list order
  uint32_t section_named(const std::string& name) const;  // 0 when there is none
  uint32_t detail() const;                                // the DETAIL op list of the first section
  uint32_t object(const std::string& name) const;         // 0 when there is none
  uint32_t field(const std::string& name) const;          // a global field; 0 when there is none

 private:
  uint32_t word(uint32_t off, uint32_t n) const;
  std::string bytes_;
};

struct Compiled {
  RunResult result;
  Op6 image;  // empty when no .op6 file was written
};

// Writes `source` to dir/name and compiles it with "tavcmp -l -n <options> name".
Compiled compile(const TempDir& dir, const std::string& source, const std::string& name = "prog.spl",
                 std::vector<std::string> options = {}, Env env = {});

}  // namespace tavtest
