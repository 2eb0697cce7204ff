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

// The dictionary benchmark: a schema of `objects` objects over `fields` fields (each object's
// record holds its share of the fields, the first as its unique key), and a program that names
// the first `named` objects (OBJECT ... LIKE) and sets one field of each. With `defining`, the
// program defines those objects and their fields itself, so that it needs no dictionary.
struct SchemaOptions {
  int objects = 500;
  int fields = 5000;
};
std::string generate_schema(const SchemaOptions& options);
std::string generate_object_program(const SchemaOptions& options, int named, bool defining);

// Number of lines of a text.
long count_lines(const std::string& text);

}  // namespace tavbench
