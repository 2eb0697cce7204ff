// Writes large valid programs for the compile benchmarks: global fields, many procedures, and in
// each a mix of assignments, expressions and nested control flow (IF / ELSE-IF / ELSE, WHILE,
// REPEAT, FOR, SWITCH, BREAK, DO). The output is deterministic for a given seed.
#pragma once

#include <cstdint>
#include <string>

namespace tavbench {

struct GenOptions {
  long lines = 1000;    // approximate number of source lines
  uint32_t seed = 1;    // selects the shapes of the statements
  int fields = 64;      // global fields declared at the top
};

// The program text, about `lines` lines long.
std::string generate_program(const GenOptions& options);

// Number of lines of a text.
long count_lines(const std::string& text);

}  // namespace tavbench
