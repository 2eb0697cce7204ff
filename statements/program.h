// The program compiler: one preprocessed source file from its first token to its last.
#pragma once

#include <cstdint>

namespace tav {

struct CompilerStores;
struct FileContext;
class Parser;

// Compiles the program the tokenizer has open into the op space; reports through the
// diagnostics and may throw FileAbort or RunStop.
void compile_program(CompilerStores& c, FileContext& file);

// Compiles the statement whose first token has just been read.
void compile_statement(Parser& p);

// Returns 0 when a statement may be compiled here, -1 (after reporting and skipping to the next
// section) outside every section. Warns about a statement no path reaches unless keeps_path.
int statement_prologue(Parser& p, bool keeps_path);

// Compiles one part of a section (BEFORE, DETAIL or AFTER) and returns the head of its op list.
uint32_t compile_part(Parser& p, uint32_t part_verb, uint32_t end_verb);

// The allowed modes of a SCREEN when it ends: without REVIEW it cannot page through a review
// area ("next-scr", "prev-scr" leave); with a PRIMARY object or a SELECT but no ACCEPT standing
// directly in its DETAIL it cannot search ("find" leaves and the kind word notes it).
void complete_screen_modes(Parser& p, uint32_t screen);

// Compiles the clauses of a section header, up to the end of the header statement.
void compile_section_header(Parser& p);

}  // namespace tav
