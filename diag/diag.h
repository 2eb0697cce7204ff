// Diagnostics: the numbered message table and the reporters every part of the compiler uses.
//
// A message line is "<file>, line <n>: <SEVERITY>  <message> - '<context>'"; it goes to the
// progress display (or standard output with -l) and is appended to the file's .err listing.
// The reporters count errors per file, keep the first-error value that becomes the exit status,
// and abandon the file (by throwing FileAbort) after the 41st error or on a FATAL message.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "diag/diagnostic.h"

namespace tav {

class Display;

// Numbered messages, derived from messages.def: msg::syntax_error == 0 and so on.
namespace msg {
enum Code : int {
#define TAV_MESSAGE(code, name, kind, text) name = code,
#include "diag/messages.def"
};

// Each numbered row's code is its place in the table.
constexpr bool codes_in_order() {
  int i = 0;
#define TAV_MESSAGE(code, name, kind, text) \
  if (code != i++) return false;
#include "diag/messages.def"
  return true;
}
static_assert(codes_in_order(), "messages.def: a numbered row's code is not its index");
}  // namespace msg

// The unnumbered messages of messages.def: txt::no_path_to_statement and so on.
namespace txt {
enum class Text : int {
#define TAV_TEXT(name, text) name,
#include "diag/messages.def"
};
using enum Text;
}  // namespace txt

// The text of an unnumbered message, and the same with each "%s" or "%d" replaced by the next
// value (a number already written out).
std::string_view text_of(txt::Text message);
// The stable code of a message: "T16" for a numbered one, the row's name for the others.
std::string message_code(int code);
std::string_view message_code(txt::Text message);
std::string format_text(txt::Text message, std::initializer_list<std::string_view> values);

// Context kinds of the message table.
enum class ContextKind : uint16_t { none = 0, token = 1, name = 2 };

struct MessageRow {
  int code;
  ContextKind kind;
  const char* text;
};
// The row of a message code; nullptr for a code outside the table.
const MessageRow* message_row(int code);
constexpr int kMessageCount = 144;

// Thrown to abandon the current source file; the driver's per-file loop catches it. The reporter
// that throws has already counted the abort and set the first-error value. A message that is
// not a compile diagnostic (an output file that cannot be written) comes with it for the driver
// to show.
struct FileAbort {
  std::string message;
  std::string reason;  // for standard error: the file concerned and the system's error text
};

// Thrown to end the whole run (a damaged dictionary, say): the driver shows the message and
// leaves through its clean-up exit with status 255. Nothing below the driver ends the process.
struct RunStop {
  std::string message;
  txt::Text code;                  // the message's row
  std::vector<std::string> notes{};  // what it tried, for the diagnostics formats
  std::string explanation{};         // why, for standard error (a database server's own text)
};
// A stop with the text of `message`, its values filled in.
RunStop run_stop(txt::Text message, std::initializer_list<std::string_view> values = {});

// Failures that are no message of a line, as entries of the diagnostics model (about the file as
// a whole): one with its row and context (a table not written, a file not preprocessed), and a
// stop of the run with what it tried as notes.
Diagnostic problem_diagnostic(txt::Text code, std::string message, std::string context = {});
Diagnostic stop_diagnostic(const RunStop& stop);

// What the reporters need to know of the token stream; the tokenizer provides it.
class DiagSource {
 public:
  virtual ~DiagSource() = default;
  virtual std::string_view diag_file_name() const = 0;  // from the line markers; may be empty
  virtual int diag_line() const = 0;                    // current line, 0 when none
  virtual std::string_view diag_token_text() const = 0;
  virtual bool diag_token_held() const = 0;  // pushed back or held as a statement verb
  virtual std::string_view diag_prev_text() const = 0;
  virtual int diag_prev_line() const = 0;

  // Where the current token (held or not) and the previous one really stand, and what a mark
  // kept earlier means: its range, and the "in file included from" notes of its include chain,
  // innermost first.
  virtual SourceMark diag_token_mark() const { return {}; }
  virtual SourceMark diag_prev_mark() const { return {}; }
  virtual SourceRange diag_range(const SourceMark&) const { return {}; }
  virtual std::vector<DiagnosticNote> diag_include_notes(const SourceMark&) const { return {}; }
};

// The context shown after a message: nothing, the current token (subject to substitution of
// the previous token while the current one is held back), or a given text. A text context may
// carry the line of the word it names, for a check that runs after the statement has been read
// on; the message then shows that line.
//
// Every context may also carry the place the message is about (`mark`), which the classic
// listing does not show; without one, a token context is about the current token, a name
// context about where the name was last seen, and a text context about the current token.
struct Context {
  enum Kind { none, token, text } kind = none;
  std::string_view value;
  int line = 0;  // 0: the line of the current token
  SourceMark mark;

  Context() = default;
  Context(std::string_view t) : kind(text), value(t) {}  // NOLINT: implicit on purpose
  Context(const char* t) : kind(text), value(t) {}       // NOLINT
  Context(const std::string& t) : kind(text), value(t) {}  // NOLINT
  static Context current_token() {
    Context c;
    c.kind = token;
    return c;
  }
  // The current token as the classic line shows it, placed at `mark` (the word before a held
  // one, when the message is about that word).
  static Context token_at(SourceMark mark) {
    Context c = current_token();
    c.mark = mark;
    return c;
  }
  static Context at_line(std::string_view t, int line, SourceMark mark = {}) {
    Context c(t);
    c.line = line;
    c.mark = mark;
    return c;
  }
  static Context at(std::string_view t, SourceMark mark) {
    Context c(t);
    c.mark = mark;
    return c;
  }
};

class Diagnostics {
 public:
  Diagnostics(Display& display, bool no_warning, bool no_info);
  ~Diagnostics();
  Diagnostics(const Diagnostics&) = delete;
  Diagnostics& operator=(const Diagnostics&) = delete;

  // -w suppresses warnings and informational messages, -i informational messages.
  void set_suppression(bool no_warning, bool no_info) {
    no_warning_ = no_warning;
    no_info_ = no_info || no_warning;
  }

  // The token stream the line numbers and token contexts come from (nullptr: none, so no
  // file or line prefix).
  void set_source(const DiagSource* source) { source_ = source; }

  // Per file: counts back to zero, and the name of the listing (opened on the first line).
  void start_file();
  void set_listing(std::string path);
  void close_listing();  // writes the final "\n" when the listing is open; removes it when empty
  // Told, once per listing, why a listing could not be opened (it is then not written): a
  // symbolic link or anything but a regular file is refused, not followed.
  void on_listing_refused(std::function<void(const std::string&)> tell) { tell_refused_ = std::move(tell); }
  // The open listing's descriptor, -1 when none is open. Every line is flushed as it is
  // written, so a signal handler may put the final "\n" straight onto it.
  int listing_fd() const { return listing_fd_.load(); }

  int16_t first_error() const { return first_error_; }
  uint16_t error_count() const { return error_count_; }

  // The name context buffer of kind-2 messages (at most 30 characters are kept). The place of
  // the name is the current or the previous token when it is that name, or the mark given.
  void set_name(std::string_view name);
  void set_name(std::string_view name, SourceMark where);
  std::string_view name() const { return name_; }

  // The diagnostics model: while collecting, every message shown is also kept as a Diagnostic,
  // with its code and true place, until taken. Notes and the follow-on mark go to the message
  // kept last (nothing happens when it was suppressed or nothing is being collected).
  void set_collecting(bool on) { collecting_ = on; }
  bool collecting() const { return collecting_; }
  std::vector<Diagnostic> take_collected();
  void add_note(std::string message, SourceMark where = {});
  void add_fix(const SourceRange& where, std::string replacement);
  // The message kept last, while notes may still be added to it; nullptr otherwise.
  const Diagnostic* last_kept() const { return last_kept_ && !collected_.empty() ? &collected_.back() : nullptr; }
  void mark_follow_on();
  // The place of the current token, for a check that reports later.
  // Where `name` stands: the word just read, or the one before a held word, or the part of an
  // "object.field" word that is `name`. Unknown when neither word is or holds it (a name the
  // compiler supplies itself), or unless collecting.
  SourceMark mark_of_word(std::string_view name) const;
  SourceMark current_mark() const { return source_ ? source_->diag_token_mark() : SourceMark{}; }
  SourceRange range_of(const SourceMark& mark) const { return source_ ? source_->diag_range(mark) : SourceRange{}; }

  int error(int code);
  int error_with(int code, std::string_view context);
  int error_at(int code, Context context);  // a numbered message with the context and place given
  int error_text(txt::Text message, Context context = {});
  int warning(int code);
  int warning_text(txt::Text message, Context context = {});
  int info(int code);
  int info_text(txt::Text message, Context context = {});
  [[noreturn]] void fatal(int code);
  [[noreturn]] void fatal_text(txt::Text message, Context context = {});

  // The reporters behind the ones above, for a message text of the tables: `raise` counts
  // errors and abandons the file at the limit or on FATAL; `report` only writes the line.
  int raise(Severity severity, std::string_view message, Context context, std::string_view code = {});
  int report(Severity severity, std::string_view message, Context context, std::string_view code = {});
  void new_message_line();

  // A line of the compile trace (-x 1): printed in plain mode, not listed, not counted.
  void trace(std::string_view line);

  // The abort path of a file: the first-error value becomes -1 when it is 0, the abort counts as
  // an error, and FileAbort is thrown.
  [[noreturn]] void abort_file(std::string message = {}, std::string reason = {});

  // Text of an I/O status code of the data-file layer.
  static std::string io_error_text(int code);

 private:
  void write_listing(std::string_view text);
  Context context_of(int code) const;
  void collect(Severity severity, std::string_view message, const Context& context, std::string_view code,
               std::string_view classic_context, int classic_line, std::string_view classic_file);

  Display& display_;
  bool no_warning_;
  bool no_info_;
  const DiagSource* source_ = nullptr;
  std::string listing_path_;
  FILE* listing_ = nullptr;
  std::atomic<int> listing_fd_{-1};
  bool listing_failed_ = false;
  std::function<void(const std::string&)> tell_refused_;
  std::string name_;
  SourceMark name_mark_;
  bool collecting_ = false;
  bool last_kept_ = false;  // the last message raised was kept: notes attach to it
  std::vector<Diagnostic> collected_;
  int16_t first_error_ = 0;
  uint16_t error_count_ = 0;
};

}  // namespace tav
