// The run options of tavcmp, set once from the command line and TAVCMPINC.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "diag/render.h"

namespace tav {

inline constexpr int kMaxIncludeDirs = 10;

struct Options {
  bool summary = false;          // -s
  bool dict_check = true;        // -c clears
  bool screen = true;            // -l clears
  bool dictionaries = true;      // -n clears
  bool system = false;           // -p
  bool test_only = false;        // -t
  bool debug_ops = false;        // -d
  bool no_warning = false;       // -w
  bool no_info = false;          // -i, -w
  int debug_level = 0;           // -x
  std::string system_name;       // -p argument (at most 259 characters)
  std::string global_dict;       // -g
  std::string user_dict;         // -u
  bool have_global_dict = false;
  bool have_user_dict = false;
  std::string output_dir;        // -o
  bool have_output_dir = false;
  std::vector<std::string> includes;  // each "-I" followed by the directory
  bool include_overflow = false;
  uint16_t dict_open_mask = 0;
  std::vector<std::string> sources;
  std::time_t summary_start = 0;
  bool write_dependencies = false;  // --write-dependencies: make rules in <name>.d beside the .op6
  DiagnosticsFormat diagnostics_format = DiagnosticsFormat::classic;  // --diagnostics-format
  std::string diagnostics_output;  // --diagnostics-output: the document's file, else standard output
  std::string xref_output;         // --xref: the cross reference's JSON file (empty: none)
  bool error_status = false;       // --exit-status=errors (always so with a diagnostics format)
  bool help = false;                // --help: print kHelpText, compile nothing
  bool version = false;             // --version: print the product version, compile nothing
};

// Parses argv (argv[0] excepted) and then the TAVCMPINC value (may be null). Returns nothing on
// a usage error, and then says in `problem` (when given) which argument was wrong and why. Long
// options ("--name") stand alone among the options; --help and --version end the parse at once,
// so that they work without a source file.
std::optional<Options> parse_options(int argc, const char* const* argv, const char* tavcmpinc,
                                     std::string* problem = nullptr);

extern const char kUsageText[];
extern const char kHelpText[];  // printed after kUsageText by --help

}  // namespace tav
