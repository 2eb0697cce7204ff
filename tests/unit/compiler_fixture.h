// The compiler's stores for one program, as the driver builds them, and a parser core over a source
// text in memory; messages go to a listing in a scratch directory.
#pragma once

#include <string>
#include <utility>

#include "codegen/header.h"
#include "diag/diag.h"
#include "diag/display.h"
#include "lexer/verbs.h"
#include "symbols/parser_core.h"
#include "tests/support/support.h"

namespace tavtest {

class CompilerFixture {
 public:
  explicit CompilerFixture(const tav::CompileSettings& settings = {}) : compiler{diag, settings} {
    diag.set_source(&tok);
    diag.set_listing(dir / "t.err");
    start_program();
  }
  ~CompilerFixture() { diag.close_listing(); }
  CompilerFixture(const CompilerFixture&) = delete;
  CompilerFixture& operator=(const CompilerFixture&) = delete;

  // What the driver does before each program: empty stores with the header in place, no
  // messages counted, and the tokenizer's word classes.
  void start_program() {
    ops.setbss(0);
    data.dsetbss(0);
    diag.start_file();
    ops.alloc(tav::hdr::size);
    data.alloc(2);
    syms.reset();
    ob.start_program();
    tok.set_statement_mask(tav::kStatementVerb);
    tok.set_clause_mask(tav::kClauseWord);
    tok.set_function_mask(tav::kFunctionWord);
  }

  // Makes `text` the source the parser reads next.
  void open(std::string text) {
    source = std::move(text);
    tok.open_text(source, "t.spl");
  }

  // The listing as written so far.
  std::string listing() const { return file_exists(dir / "t.err") ? read_file(dir / "t.err") : ""; }

  TempDir dir;
  tav::Display display;
  tav::Diagnostics diag{display, false, false};
  tav::CompilerStores compiler;
  tav::OpSpace& ops = compiler.stores.ops;
  tav::DataArea& data = compiler.stores.data;
  tav::TextItems& texts = compiler.stores.texts;
  tav::OpBuilder& ob = compiler.stores.builder;
  tav::Tokenizer& tok = compiler.tok;
  tav::SymbolTable& syms = compiler.syms;
  tav::FileContext file;
  tav::ParserCore p{compiler, file};
  std::string source;
};

}  // namespace tavtest
