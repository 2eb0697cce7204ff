// The outline of a compiled program: its sections (with their BEFORE, DETAIL and AFTER parts and
// local fields), fields, objects, reports and modes, placed where the compiler saw them defined. Only what is
// defined in the document itself is listed (not what its includes define).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "driver/xref.h"

namespace tav {
struct CompilerStores;
}

namespace tav::lsp {

struct OutlineSymbol {
  enum class Kind { section, part, field, object, report, mode };
  std::string name;
  std::string detail;  // "procedure", "screen", "menu", "before", "field", ...
  Kind kind = Kind::field;
  int line = 0;        // from 1
  int column = 0;      // characters from 1
  int end_column = 0;  // of the name
  int end_line = 0;    // the last line the symbol covers (sections and parts); else `line`
  std::vector<OutlineSymbol> children;
};

// Read from the stores right after a compile, while the places are still known; `text` is the
// document's, for where sections and parts end.
std::vector<OutlineSymbol> outline_of(const CompilerStores& compiler, const std::string& path, std::string_view text);
// Adds the reports and modes the document defines, from the compile's cross reference.
void add_reports_and_modes(std::vector<OutlineSymbol>& outline, const XrefIndex& xref, const std::string& path);

// textDocument/documentSymbol's DocumentSymbol[] and textDocument/foldingRange's FoldingRange[]
// (lines and characters as the protocol counts them).
nlohmann::json document_symbols(const std::vector<OutlineSymbol>& outline, std::string_view text);
// Blocks of statements of the document (IF ... END-IF, loops, SWITCH) fold too.
nlohmann::json folding_ranges(const std::vector<OutlineSymbol>& outline, const std::vector<XrefBlockLines>& blocks,
                              const std::string& path);

}  // namespace tav::lsp
