// The compiler's stores for one program, as the driver builds them, and a Parser over a source
// text in memory; messages go to a listing in a scratch directory.
#pragma once

#include <string>
#include <utility>

#include "codegen/convert.h"
#include "codegen/header.h"
#include "codegen/opspace.h"
#include "driver/context.h"
#include "driver/diag.h"
#include "driver/display.h"
#include "lexer/tokenizer.h"
#include "lexer/verbs.h"
#include "statements/parser.h"
#include "symbols/symtab.h"
#include "tests/support/support.h"

namespace tavtest {

class CompilerFixture {
 public:
  CompilerFixture() {
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
  tav::OpSpace ops{diag};
  tav::DataArea data{diag};
  tav::TextItems texts{ops, diag};
  tav::OpBuilder ob{ops, texts, diag};
  tav::conv::DateSettings dates;
  tav::Tokenizer tok{diag, dates};
  tav::SymbolTable syms{ops};
  tav::RunContext run = [this] {
    tav::RunContext r;
    r.diag = &diag;
    r.ops = &ops;
    r.data = &data;
    r.texts = &texts;
    r.builder = &ob;
    r.dates = &dates;
    return r;
  }();
  tav::FileContext file;
  tav::Parser p{run, file, tok, syms};
  std::string source;
};

}  // namespace tavtest
