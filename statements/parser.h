// The parser object every statement compiler works through: the token stream, the diagnostics,
// the op builder with its stores, the symbol table, and the counters the statement compilers
// share while one program is compiled.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "codegen/opspace.h"
#include "driver/context.h"
#include "driver/diag.h"
#include "lexer/tokenizer.h"
#include "lexer/verbs.h"
#include "statements/locks.h"
#include "symbols/dictionary.h"
#include "symbols/fields.h"
#include "symbols/symtab.h"

namespace tav {

// Which part of a section is being compiled.
enum class SectionPart : int { before = 0, detail = 1, after = -1 };

class Parser {
 public:
  Parser(RunContext& run_context, FileContext& file_context, Tokenizer& tokenizer, SymbolTable& symbols)
      : run(run_context),
        file(file_context),
        tok(tokenizer),
        diag(*run_context.diag),
        ops(*run_context.ops),
        data(*run_context.data),
        texts(*run_context.texts),
        ob(*run_context.builder),
        syms(symbols) {}

  RunContext& run;
  FileContext& file;
  Tokenizer& tok;
  Diagnostics& diag;
  OpSpace& ops;
  DataArea& data;
  TextItems& texts;
  OpBuilder& ob;
  SymbolTable& syms;

  // --- Tokens ------------------------------------------------------------------------------
  uint32_t next() { return tok.get_token(); }
  uint32_t cls() const { return tok.token_class(); }
  std::string_view text() const { return tok.text(); }
  bool is(uint32_t code) const { return tok.token_class() == code; }
  bool is_name() const { return tok.token_class() == kClassName; }
  bool is_alpha() const { return tok.token_class() == kClassAlpha; }
  bool is_numeric() const { return tok.token_class() == kClassNumeric; }
  // A token that starts a statement (the end of input included) ends the statement before it.
  bool at_statement_start() const { return (tok.token_class() & kStatementVerb) != 0; }
  bool at_section_start() const { return (tok.token_class() & kSectionStart) != 0; }
  void accept() { tok.accept(); }
  void push_back() { tok.push_back(); }
  // Reads the next token and takes it when it is the keyword `code`; otherwise leaves it to be
  // read again. For optional noise words such as IS and ARE.
  bool take(uint32_t code) {
    if (next() == code) {
      if (tok.held()) accept();
      return true;
    }
    push_back();
    return false;
  }

  // Reports a numbered error and skips to the start of the next statement.
  int fail(int code) {
    diag.error(code);
    return tok.skip_to_statement();
  }

  // --- Program state -------------------------------------------------------------------------
  void max_opt_ver(int v) { tav::max_opt_ver(file, diag, v); }

  uint32_t section = 0;          // screen_sym being compiled (or the scratch one)
  uint16_t section_kind = 0;     // its kind word
  bool in_section = false;       // a section header has been compiled and not closed
  bool any_section = false;      // some section was defined
  SectionPart part = SectionPart::before;
  int cond_depth = 0;            // open IF / SWITCH / OPTION blocks
  int loop_depth = 0;            // open loops (the DETAIL of a SCREEN or MENU counts as one)
  int extract_depth = 0;         // open EXTRACT loops
  bool path_ended = false;       // EXIT, BREAK, CONTINUE, RE-ENTER or BACK-TO-DETAIL came last
  int menu_options = 0;          // OPTIONs in the current MENU
  int print_statements = 0;      // report statements used
  bool report_defined = false;   // a REPORT section was defined
  uint32_t accept_chain = 0;     // ACCEPT ops of the current part
  uint32_t mode_tail = 0;        // last mode_entry of the header's mode list
  uint32_t version_tail = 0;     // last entry of the header's version list

  // --- Fields --------------------------------------------------------------------------------
  FieldNotes field_notes;        // types of the fields used, for the expression compiler
  NoDictionaries no_dictionaries;
  Dictionaries* dictionaries = &no_dictionaries;  // the open data dictionaries
  LockFrames locks;              // lock states of indexed records, per open block
};

}  // namespace tav
