// The cross reference of one compiled program, with places as the diagnostics give them: every
// field, object, section, report and mode with its definition and its uses, and how each SELECT
// and GET reads its objects. Built from the compiler's stores right after a compile, while the
// places are known; tavcmp --xref writes it as JSON, and the language server answers from it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "diag/diagnostic.h"
#include "symbols/xref.h"

namespace tav {

struct CompilerStores;
class OpSpace;

struct XrefUse {
  SourceRange at;
  std::string statement;  // the keyword of the statement ("set", "end-if"); "" at the top level
  ObjectAccess access = ObjectAccess::none;
};

struct XrefSymbol {
  enum class Origin { program, dictionary, builtin };
  XrefKind kind = XrefKind::field;
  std::string name;
  Origin origin = Origin::program;
  uint32_t record = 0;
  SourceRange definition;  // unknown for a dictionary's or a built-in name
  std::vector<XrefUse> uses;
  int section = -1;  // a section's own field: the index of that section's symbol
};

struct XrefObjectRead {
  std::string object;
  std::string statement;
  SourceRange at;
  int index = 0;
  bool explicit_index = false;
  std::vector<std::string> key_fields;
  std::vector<std::string> ranges;  // "n >= 5 and n <= 9", per field with a range
  bool whole_table = false;
};

struct XrefBlockLines {
  std::string word;  // "IF", "WHILE", ...
  std::string file;
  int open_line = 0;
  int close_line = 0;
};

// Where a statement's clauses begin, and the clause words it offers.
struct XrefClauseWords {
  SourceRange at;
  std::vector<uint32_t> words;  // verb codes
};

struct XrefIndex {
  std::vector<XrefSymbol> symbols;
  std::vector<XrefObjectRead> reads;
  std::vector<XrefBlockLines> blocks;  // each closed block of statements
  std::vector<XrefClauseWords> clauses;
};

XrefIndex build_xref(const CompilerStores& compiler);

// The text a record's name link (or another text link) at `member` points to, checked against the
// op space; empty when there is none.
std::string record_name(const OpSpace& ops, uint32_t record, uint32_t member);

std::string_view origin_name(XrefSymbol::Origin origin);

// One program's entry of the --xref document.
nlohmann::ordered_json xref_json(const XrefIndex& index, const std::string& source);

}  // namespace tav
