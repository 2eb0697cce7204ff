// The modern diagnostic formats, all read from the diagnostics model (diag/diagnostic.h):
//  - gcc:   "file:line:col: error: message - 'context' [T16]", the source line with a caret
//           under the token, "note:" lines, and "N errors generated." per file with errors;
//  - json:  GCC's JSON diagnostics: one array of diagnostics for the run;
//  - sarif: one SARIF 2.1.0 log for the run, with a rule for every message code.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "diag/diagnostic.h"

namespace tav {

enum class DiagnosticsFormat { classic, gcc, json, sarif };

// "gcc", "json", "sarif" (and "classic"); nothing for any other name.
std::optional<DiagnosticsFormat> diagnostics_format_named(std::string_view name);

// One source file of a run and what was reported while compiling it.
struct FileDiagnostics {
  std::string source;  // the source file as named on the command line (".spl" added)
  std::vector<Diagnostic> items;
};

// One message code: "T16" and "Field not defined", "parameter_substitution" and its text.
struct MessageRule {
  std::string code;
  std::string text;
};
// Every message code of the compiler and the preprocessor, in a fixed order: the numbered
// messages T0 to T143, then the compiler's literal messages, then the preprocessor's.
const std::vector<MessageRule>& message_rules();

// The text of line `line` (from 1) of `file`, without its line end; nothing when the file
// cannot be read or is shorter. The gcc format reads the lines it shows through it.
using SourceLineReader = std::function<std::optional<std::string>(const std::string& file, int line)>;
// Reads the files from disk (each file once, kept for the run).
SourceLineReader disk_line_reader();

// The gcc text of one file's diagnostics (follow-on messages left out), with the closing
// "N errors generated." line when any error was reported; colours with ANSI sequences when
// `colour` is set.
std::string render_gcc(const FileDiagnostics& file, const SourceLineReader& lines, bool colour);

// The whole run's JSON array and SARIF log; `version` is the tool version for SARIF. The JSON
// locations' "byte-column" and "display-column" are read from the source lines when `lines` is
// given; without it they are the character column.
std::string render_json(const std::vector<FileDiagnostics>& run, const SourceLineReader& lines = {});
std::string render_sarif(const std::vector<FileDiagnostics>& run, std::string_view version);

}  // namespace tav
