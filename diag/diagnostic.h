// The diagnostics model: one record per message the compiler raises, with its stable code, its
// severity, the position the classic listing shows and the place in the source it is about,
// related places (notes) and exact replacements (fix-its). The classic printer, the GCC-style
// text, the JSON and SARIF documents and the language server all read these records.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tav {

enum class Severity : int { info = 0, warning = 1, error = 2, fatal = 3 };

// A place in a source file. Lines count from 1; columns count characters of the source line
// from 1, `end_column` is the column just after the last character (so a one-character token at
// column 5 is 5..6). 0 means not known: a line without a column, or no place at all.
struct SourceRange {
  std::string file;
  int line = 0;
  int column = 0;
  int end_column = 0;

  bool known() const { return line > 0 && !file.empty(); }
  bool operator==(const SourceRange&) const = default;
};

// A place as the token stream knows it, cheap to keep for a check made later (a DO of a section
// that is never defined): the stream turns it into a SourceRange and its include chain when a
// message needs it. All zero: no place.
struct SourceMark {
  uint32_t file = 0;   // the stream's own numbering of the files it has read, 0: none
  uint32_t chain = 0;  // the include chain the place was read under, 0: none
  int32_t line = 0;
  int32_t column = 0;
  int32_t end_column = 0;
  bool known() const { return file != 0 && line > 0; }
};

// A related place: "IF opened here", "first defined here", "in file included from", or a
// message without a place ("did you mean 'cust-name'?" when there is no exact replacement).
struct DiagnosticNote {
  std::string message;
  SourceRange where;  // may be unknown
};

// An exact replacement of the text at `where` (a suggestion that is certainly what was meant
// is still only offered, never applied by the compiler).
struct FixIt {
  SourceRange where;
  std::string replacement;
};

struct Diagnostic {
  Severity severity = Severity::error;
  std::string code;     // "T16" for numbered messages, the row's name for the others
  std::string message;  // the message text, without its context
  std::string context;  // the text shown after " - " in quotes (may be empty)

  // The place the message is about. For a token context, the token's own place even while a
  // word is held (and `context` is then that word); for a name context, where that name stands;
  // for end-of-program checks, the statement the check is about.
  SourceRange where;

  // What the classic listing shows: the file name and line of its prefix (0: no line part) and
  // the context, which is the word before a held one.
  std::string classic_file;
  int classic_line = 0;
  std::string classic_context;

  std::vector<DiagnosticNote> notes;
  std::vector<FixIt> fixes;

  // A message about a definition that had already failed (a field whose picture was invalid):
  // true to the classic listing, left out of the modern formats.
  bool follow_on = false;
  // Raised by the preprocessor, not the compiler.
  bool from_preprocessor = false;
};

}  // namespace tav
