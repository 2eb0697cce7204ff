// What the code generator and the layers above it know of the run and of the file being
// compiled, and the stores one compilation fills.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "codegen/convert.h"
#include "codegen/opspace.h"
#include "diag/diag.h"
#include "runtime/files_read.h"

namespace tav {

// The run's settings that change what is compiled, set once from the command line and the
// environment.
struct CompileSettings {
  bool debug_ops = false;        // -d: statement markers, calls with their source position
  int debug_level = 0;           // -x
  bool dict_check = true;        // -c clears: go on after record-layout inconsistencies
  std::string system_name;       // -p
  bool get_prev_warning = true;  // TAVNOPREVWARN set clears: GET PREV on a keyed file draws no
                                 // "Clause not supported on relational databases"
  conv::DateSettings dates;      // how date literals are read
  // The path and version text of each open dictionary, in the order they were opened; every
  // table's header names them.
  std::vector<std::pair<std::string, std::string>> dictionaries;
  // SOURCE_DATE_EPOCH, when set to a valid count of seconds since 1970: the compile time of
  // every table, whose "compiled on" text is then UTC, so that the same sources give the same
  // bytes wherever and whenever they are compiled. -1: the clock and the local time zone.
  int64_t fixed_time = -1;
};

// One source file's names and results.
struct FileContext {
  std::string source_name;  // as given, then with its extension made ".spl"
  std::string err_name;
  std::string op6_name;
  int opt_version = 3;       // minor version of the operations table this file needs
  bool have_table = false;   // the program compiler allocated an operations table
  long table_size = 0;       // bytes of the .op6 written, for the summary
  long data_size = 0;        // bytes of its data image
  bool registration_failed = false;  // -p: the program could not be recorded in a dictionary
  FilesRead libraries_read;  // the component libraries the compile opened, in LINK order
};

// Raises the operations table version a file needs to at least v. Versions of 8 and above do
// not exist: asking for one is a compiler fault, reported and ignored.
inline void max_opt_ver(FileContext& file, Diagnostics& diag, int v) {
  if (v >= 8) {
    diag.warning_text(txt::internal_error_max_opt_ver);
    return;
  }
  if (v > file.opt_version) file.opt_version = v;
}

// The stores of the code generator wired together: obtained once per run, emptied per file.
struct Stores {
  Stores(Diagnostics& diagnostics, bool debug_ops) : diag(diagnostics) { builder.set_debug_ops(debug_ops); }
  Stores(const Stores&) = delete;
  Stores& operator=(const Stores&) = delete;

  // Gives every store back by moving its break to empty.
  void reset() {
    ops.setbss(0);
    data.dsetbss(0);
    texts.set_count(0);
  }

  Diagnostics& diag;
  OpSpace ops{diag};
  DataArea data{diag};
  TextItems texts{ops, diag};
  OpBuilder builder{ops, texts, diag};
};

}  // namespace tav
