// The compiler's stores wired together for a run: the settings, the diagnostics the caller
// owns, the op space with its data area, text items and op builder, the tokenizer and the
// symbol table. The driver, the in-process fuzz target and the unit-test fixture all build this
// one object; the program compiler (statements/program.h) compiles into it.
#pragma once

#include <utility>

#include "codegen/compilation.h"
#include "diag/diag.h"
#include "lexer/tokenizer.h"
#include "nls/catalogue.h"
#include "symbols/dictionary.h"
#include "symbols/symtab.h"

namespace tav {

struct CompilerStores {
  CompilerStores(Diagnostics& diagnostics, CompileSettings compile_settings)
      : settings(std::move(compile_settings)),
        stores(diagnostics, settings.debug_ops),
        tok(diagnostics, settings.dates),
        syms(stores.ops, settings.debug_ops) {
    syms.set_places(&diagnostics);
  }
  CompilerStores(const CompilerStores&) = delete;
  CompilerStores& operator=(const CompilerStores&) = delete;

  // Empties the stores for the next file.
  void reset() { stores.reset(); }

  const CompileSettings settings;
  Stores stores;
  Tokenizer tok;
  SymbolTable syms;
  Dictionaries* dictionaries = nullptr;  // the open data dictionaries; none when null
  nls::Catalogue* catalogue = nullptr;   // the message catalogue; the built-in texts when null
};

}  // namespace tav
