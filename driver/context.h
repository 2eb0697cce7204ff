// The contexts passed through the compiler: one for the whole run, one per source file.
#pragma once

#include <cstdint>
#include <string>

#include "driver/options.h"

namespace tav {

class Display;
class Diagnostics;
class OpSpace;
class DataArea;
class TextItems;
class OpBuilder;
namespace conv {
struct DateSettings;
}

inline constexpr char kVersionString[] = "@(#) TAVRIN-4GL Release 6.5 v1.5";

// The product version text: the version string behind "@(#)" with leading blanks skipped.
inline std::string product_version() {
  std::string v = kVersionString + 4;
  return v.substr(v.find_first_not_of(' '));
}

// Everything that lives from start-up to exit.
struct RunContext {
  Options options;
  std::string program_name;  // argv[0], first in some messages
  std::string product_dir;   // TAVRIN with a trailing "/"
  std::string bin_dir;       // product_dir + "bin/"
  std::string lib_dir;       // product_dir + "lib/"
  Display* display = nullptr;
  Diagnostics* diag = nullptr;
  OpSpace* ops = nullptr;
  DataArea* data = nullptr;
  TextItems* texts = nullptr;
  OpBuilder* builder = nullptr;
  const conv::DateSettings* dates = nullptr;
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
};

}  // namespace tav

#include "driver/diag.h"

namespace tav {

// Raises the operations table version a file needs to at least v. Versions of 8 and above do
// not exist: asking for one is a compiler fault, reported and ignored.
inline void max_opt_ver(FileContext& file, Diagnostics& diag, int v) {
  if (v >= 8) {
    diag.warning_text("Internal compiler error in max_opt_ver");
    return;
  }
  if (v > file.opt_version) file.opt_version = v;
}

}  // namespace tav
