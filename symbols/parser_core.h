// The part of the parser that definitions and expressions work through: the token stream, the
// diagnostics, the op builder with its stores, the symbol table, the dictionaries and the notes
// of the field types used. The statement compilers' parser (statements/parser.h) builds on it
// with the state of the section being compiled.
#pragma once

#include <bitset>
#include <cstdint>
#include <string_view>

#include "codegen/compilation.h"
#include "codegen/opspace.h"
#include "diag/diag.h"
#include "lexer/tokenizer.h"
#include "lexer/verbs.h"
#include "symbols/compiler_stores.h"
#include "symbols/dictionary.h"
#include "symbols/fields.h"
#include "symbols/records.h"
#include "symbols/symtab.h"

namespace tav {

class AggregateSink;  // expr/expr.h

class ParserCore {
 public:
  ParserCore(CompilerStores& c, FileContext& file_context)
      : settings(c.settings),
        file(file_context),
        tok(c.tok),
        diag(c.stores.diag),
        ops(c.stores.ops),
        data(c.stores.data),
        texts(c.stores.texts),
        ob(c.stores.builder),
        syms(c.syms),
        dictionaries(c.dictionaries ? c.dictionaries : &no_dictionaries),
        catalogue(c.catalogue) {}
  ParserCore(const ParserCore&) = delete;
  ParserCore& operator=(const ParserCore&) = delete;

  const CompileSettings& settings;
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

  void max_opt_ver(int v) { tav::max_opt_ver(file, diag, v); }

  // --- Fields and dictionaries ---------------------------------------------------------------
  FieldNotes field_notes;        // types of the fields used, for the expression compiler
  NoDictionaries no_dictionaries;
  Dictionaries* dictionaries;    // the open data dictionaries
  nls::Catalogue* catalogue;     // the message catalogue; none in a compiler without one

  // --- Expressions ---------------------------------------------------------------------------
  // Where the aggregate functions of every expression go while the statements of a block that
  // may hold them are compiled (the AFTER block of a SELECT); null elsewhere.
  AggregateSink* block_aggregates = nullptr;

  // --- Modes ---------------------------------------------------------------------------------
  // The first characters of the program's mode names (every mode is made by new_mode). Every
  // name in an expression is tried as a mode first, and most begin otherwise.
  std::bitset<256> mode_initials;
  uint32_t mode_named(std::string_view name) const {
    if (name.empty() || !mode_initials[static_cast<unsigned char>(name[0])]) return 0;
    return mode::named(ops, name);
  }
};

}  // namespace tav
