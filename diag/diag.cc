#include "diag/diag.h"

#include <cerrno>
#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "diag/display.h"
#include "runtime/ascii.h"
#include "runtime/output_open.h"

namespace tav {

namespace {

constexpr MessageRow kMessages[] = {
#define TAV_MESSAGE(code, name, kind, text) {code, ContextKind::kind, text},
#include "diag/messages.def"
};
static_assert(std::size(kMessages) == kMessageCount);

constexpr const char* kSeverityWords[] = {"INFO ", "WARNING ", "ERROR ", "FATAL "};
constexpr int kErrorLimit = 40;
constexpr size_t kMaxLineBytes = 511;  // a message line is at most 512 bytes with its terminator
constexpr size_t kNameContextMax = 30;

// The data-file layer's own status texts, codes 10000 upwards.
constexpr const char* kSystemIoTexts[] = {
    "Change of index in sequential read",
    "Change of direction during sequential read",
    "Current record altered since last FETCH",
    "Record/File not locked",
    "At beginning of list",
    "Object is part of an active transaction set",
    "Transaction is in progress",
    "Field/s specified not in original list selected",
    "Server does not provide functionality required",
    "Too many servers active at once",
    "Network access is not allowed",
    "Record contents changed by another process",
};

// Status texts of the indexed-file engine, codes 100 upwards.
constexpr const char* kEngineTexts[] = {
    "Duplicate record",                     // 100
    "File not open",                        // 101
    "Illegal argument",                     // 102
    "Illegal key description",              // 103
    "Too many files open",                  // 104
    "File definition incorrect or corrupt", // 105
    "Exclusive access needed",              // 106
    "Record locked",                        // 107
    "Key already exists",                   // 108
    "Key is the primary key",               // 109
    "End or beginning of file",             // 110
    "No record found",                      // 111
    "No current record",                    // 112
    "File locked",                          // 113
    "File name too long",                   // 114
    "Cannot create lock file",              // 115
    "Cannot allocate memory",               // 116
};
constexpr int kEngineFirst = 100;
constexpr int kEngineLast = kEngineFirst + static_cast<int>(std::size(kEngineTexts)) - 1;

// Resolves "." and ".." components and turns "\" into "/", as file names are shown in messages.
std::string normalise_path(std::string_view name) {
  std::string path(name);
  for (char& c : path)
    if (c == '\\') c = '/';
  bool absolute = !path.empty() && path[0] == '/';
  std::vector<std::string> parts;
  size_t pos = 0;
  while (pos <= path.size()) {
    size_t slash = path.find('/', pos);
    if (slash == std::string::npos) slash = path.size();
    std::string part = path.substr(pos, slash - pos);
    pos = slash + 1;
    if (part.empty() || part == ".") continue;
    if (part == ".." && !parts.empty() && parts.back() != "..") {
      parts.pop_back();
      continue;
    }
    if (part == ".." && absolute) continue;
    parts.push_back(part);
  }
  std::string out = absolute ? "/" : "";
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i) out += '/';
    out += parts[i];
  }
  return out;
}

}  // namespace

const MessageRow* message_row(int code) {
  if (code < 0 || code >= kMessageCount) return nullptr;
  return &kMessages[code];
}

Diagnostics::Diagnostics(Display& display, bool no_warning, bool no_info)
    : display_(display), no_warning_(no_warning), no_info_(no_info || no_warning) {}

Diagnostics::~Diagnostics() { close_listing(); }

void Diagnostics::start_file() {
  first_error_ = 0;
  error_count_ = 0;
}

void Diagnostics::set_listing(std::string path) {
  close_listing();
  listing_path_ = std::move(path);
  listing_failed_ = false;
}

void Diagnostics::close_listing() {
  if (listing_) {
    listing_fd_ = -1;
    std::fputs("\n", listing_);
    std::fflush(listing_);
    remove_if_empty(listing_path_, fileno(listing_));  // nothing could be written
    std::fclose(listing_);
    listing_ = nullptr;
  }
}

void Diagnostics::write_listing(std::string_view text) {
  if (!listing_ && !listing_failed_ && !listing_path_.empty()) {
    // Appended to, as the preprocessor's messages are already there; a name planted in a shared
    // directory must not redirect it.
    const OpenedOutput opened = open_output(listing_path_, OutputMode::append);
    if (opened.fd >= 0) listing_ = fdopen(opened.fd, "a");
    if (!listing_) {
      if (opened.fd >= 0) close(opened.fd);
      listing_failed_ = true;
      if (tell_refused_) tell_refused_("cannot write the listing '" + listing_path_ + "': " + opened.problem);
    } else {
      listing_fd_ = fileno(listing_);
    }
  }
  if (listing_) {
    std::fwrite(text.data(), 1, text.size(), listing_);
    std::fflush(listing_);  // a listing must be complete even when a signal ends the run
  }
}


Context Diagnostics::context_of(int code) const {
  const MessageRow* row = message_row(code);
  if (!row || row->kind == ContextKind::none) return {};
  if (row->kind == ContextKind::name) return Context::at(name_, name_mark_);
  return Context::current_token();
}

namespace {

bool same_word(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (ascii_lower(a[i]) != ascii_lower(b[i])) return false;
  return true;
}

// The part of a word's place that `name` covers when the word is `name` itself or
// "object.field" with `name` one of its parts; nothing when the word holds no such part.
std::optional<SourceMark> part_of(std::string_view word, SourceMark mark, std::string_view name) {
  if (same_word(word, name)) return mark;
  // A name the symbol table cut to its length is the start of the word written.
  if (name.size() >= kNameContextMax && word.size() > name.size() && same_word(word.substr(0, name.size()), name))
    return mark;
  const size_t dot = word.find('.');
  if (dot == std::string_view::npos) return std::nullopt;
  if (same_word(word.substr(0, dot), name)) {
    mark.end_column = mark.column + static_cast<int32_t>(dot);
    return mark;
  }
  if (same_word(word.substr(dot + 1), name)) {
    mark.column += static_cast<int32_t>(dot + 1);
    return mark;
  }
  return std::nullopt;
}

}  // namespace

void Diagnostics::set_name(std::string_view name) {
  name_ = name.substr(0, kNameContextMax);
  if (!collecting_ || !source_) return;
  // A name is usually the word just read, or the one before a held word.
  if (same_word(source_->diag_token_text(), name) || !same_word(source_->diag_prev_text(), name))
    name_mark_ = source_->diag_token_mark();
  else
    name_mark_ = source_->diag_prev_mark();
}

SourceMark Diagnostics::mark_of_word(std::string_view name) const {
  if (!collecting_ || !source_) return {};
  if (auto m = part_of(source_->diag_token_text(), source_->diag_token_mark(), name)) return *m;
  if (auto m = part_of(source_->diag_prev_text(), source_->diag_prev_mark(), name)) return *m;
  return {};
}

void Diagnostics::set_name(std::string_view name, SourceMark where) {
  name_ = name.substr(0, kNameContextMax);
  name_mark_ = where;
}

void Diagnostics::collect(Severity severity, std::string_view message, const Context& context,
                          std::string_view code, std::string_view classic_context, int classic_line,
                          std::string_view classic_file) {
  Diagnostic d;
  d.severity = severity;
  d.code = code;
  d.message = message;
  d.classic_file = classic_file;
  d.classic_line = classic_line;
  d.classic_context = classic_context;
  d.context = classic_context;
  if (source_) {
    SourceMark mark = context.mark;
    if (!mark.known()) {
      mark = source_->diag_token_mark();
      // The place of a token context is the token itself, held or not, and the word shown is
      // the one at that place.
      if (context.kind == Context::token) d.context = source_->diag_token_text();
    }
    d.where = source_->diag_range(mark);
    if (context.line > 0 && !context.mark.known()) d.where = {d.where.file, context.line, 0, 0};
    d.notes = source_->diag_include_notes(mark);
  }
  collected_.push_back(std::move(d));
  last_kept_ = true;
}

std::vector<Diagnostic> Diagnostics::take_collected() {
  last_kept_ = false;
  return std::exchange(collected_, {});
}

void Diagnostics::add_note(std::string message, SourceMark where) {
  if (!last_kept_ || collected_.empty()) return;
  DiagnosticNote note{std::move(message), source_ && where.known() ? source_->diag_range(where) : SourceRange{}};
  // Notes of the message itself go before the include chain, which closes the list.
  auto& notes = collected_.back().notes;
  auto first_include = std::find_if(notes.begin(), notes.end(), [](const DiagnosticNote& n) {
    return n.message.rfind("in file included from ", 0) == 0;
  });
  notes.insert(first_include, std::move(note));
}

void Diagnostics::add_fix(const SourceRange& where, std::string replacement) {
  if (!last_kept_ || collected_.empty() || !where.known()) return;
  collected_.back().fixes.push_back({where, std::move(replacement)});
}

void Diagnostics::mark_follow_on() {
  if (last_kept_ && !collected_.empty()) collected_.back().follow_on = true;
}

static const char* text_of(int code) {
  const MessageRow* row = message_row(code);
  return row ? row->text : "Unknown message";
}

constexpr std::string_view kTexts[] = {
#define TAV_TEXT(name, text) text,
#include "diag/messages.def"
};

std::string_view text_of(txt::Text message) { return kTexts[static_cast<int>(message)]; }

constexpr std::string_view kTextNames[] = {
#define TAV_TEXT(name, text) #name,
#include "diag/messages.def"
};

std::string message_code(int code) { return "T" + std::to_string(code); }
std::string_view message_code(txt::Text message) { return kTextNames[static_cast<int>(message)]; }

std::string format_text(txt::Text message, std::initializer_list<std::string_view> values) {
  const std::string_view text = text_of(message);
  std::string out;
  const std::string_view* value = values.begin();
  for (size_t i = 0; i < text.size(); ++i) {
    if ((text.compare(i, 2, "%s") == 0 || text.compare(i, 2, "%d") == 0) && value != values.end()) {
      out += *value++;
      ++i;
    } else {
      out += text[i];
    }
  }
  return out;
}

RunStop run_stop(txt::Text message, std::initializer_list<std::string_view> values) {
  return RunStop{format_text(message, values), message};
}

Diagnostic problem_diagnostic(txt::Text code, std::string message, std::string context) {
  Diagnostic d;
  d.code = message_code(code);
  d.message = std::move(message);
  d.context = std::move(context);
  d.classic_context = d.context;
  return d;
}

Diagnostic stop_diagnostic(const RunStop& stop) {
  Diagnostic d;
  d.code = message_code(stop.code);
  d.message = stop.message;
  for (const std::string& note : stop.notes) d.notes.push_back({note, {}});
  return d;
}

int Diagnostics::error(int code) { return raise(Severity::error, text_of(code), context_of(code), message_code(code)); }
int Diagnostics::error_with(int code, std::string_view context) {
  return raise(Severity::error, text_of(code), Context(context), message_code(code));
}
int Diagnostics::error_at(int code, Context context) {
  return raise(Severity::error, text_of(code), context, message_code(code));
}
int Diagnostics::warning(int code) {
  return raise(Severity::warning, text_of(code), context_of(code), message_code(code));
}
int Diagnostics::info(int code) { return raise(Severity::info, text_of(code), context_of(code), message_code(code)); }
void Diagnostics::fatal(int code) {
  raise(Severity::fatal, text_of(code), context_of(code), message_code(code));
  abort_file();  // not reached: raise abandons the file
}

int Diagnostics::error_text(txt::Text message, Context context) {
  return raise(Severity::error, text_of(message), context, message_code(message));
}
int Diagnostics::warning_text(txt::Text message, Context context) {
  return raise(Severity::warning, text_of(message), context, message_code(message));
}
int Diagnostics::info_text(txt::Text message, Context context) {
  return raise(Severity::info, text_of(message), context, message_code(message));
}
void Diagnostics::fatal_text(txt::Text message, Context context) {
  raise(Severity::fatal, text_of(message), context, message_code(message));
  abort_file();  // not reached
}

int Diagnostics::raise(Severity severity, std::string_view message, Context context, std::string_view code) {
  last_kept_ = false;
  switch (severity) {
    case Severity::info:
      if (!no_info_) report(severity, message, context, code);
      return 0;
    case Severity::warning:
      if (!no_warning_) report(severity, message, context, code);
      return 0;
    case Severity::fatal:
      ++error_count_;
      first_error_ = -1;
      report(severity, message, context, code);
      abort_file();
    case Severity::error:
      break;
  }
  report(Severity::error, message, context, code);
  if (first_error_ == 0) {
    int line = context.line > 0 ? context.line : source_ ? source_->diag_line() : 0;
    first_error_ = static_cast<int16_t>(line > 0 ? line : -1);
  }
  ++error_count_;
  if (error_count_ > kErrorLimit) {
    new_message_line();
    const std::string_view limit = text_of(txt::error_limit_exceeded);
    display_.line_out(limit);
    write_listing(limit);
    if (collecting_) {
      Diagnostic stop;
      stop.severity = Severity::fatal;
      stop.code = message_code(txt::error_limit_exceeded);
      stop.message = limit;
      if (source_) stop.where = source_->diag_range(source_->diag_token_mark());
      collected_.push_back(std::move(stop));
    }
    display_.flush();
    abort_file();
  }
  return -1;
}

void Diagnostics::abort_file(std::string message, std::string reason) {
  if (first_error_ == 0) first_error_ = -1;
  ++error_count_;
  throw FileAbort{std::move(message), std::move(reason)};
}

int Diagnostics::report(Severity severity, std::string_view message, Context context, std::string_view code) {
  int line = source_ ? source_->diag_line() : 0;
  std::string_view shown;
  if (context.kind == Context::token) {
    if (source_) {
      if (source_->diag_token_held()) {
        shown = source_->diag_prev_text();
        line = source_->diag_prev_line();
      } else {
        shown = source_->diag_token_text();
      }
    }
  } else if (context.kind == Context::text) {
    shown = context.value;
    if (context.line > 0) line = context.line;
  }

  new_message_line();

  std::string text;
  std::string file;
  if (source_ && !source_->diag_file_name().empty()) {
    file = normalise_path(source_->diag_file_name());
    text = file;
    text += ", ";
  }
  if (collecting_) collect(severity, message, context, code, shown, line, file);
  if (line > 0) {
    text += "line ";
    text += std::to_string(line);
    text += ": ";
  }
  text += kSeverityWords[static_cast<int>(severity)];
  text += ' ';
  text += message;
  if (!shown.empty()) {
    text += " - '";
    text += shown;
    text += '\'';
  }
  if (text.size() > kMaxLineBytes) text.resize(kMaxLineBytes);

  // A line wider than the window goes on on the next rows, and may wait for the operator there
  // as new_message_line does; cancelling has the same effect, once the line is listed.
  const int cancelled = display_.line_out(text);
  write_listing(text);
  display_.flush();
  if (cancelled < 0 && error_count_ > 0) abort_file();
  return 0;
}

void Diagnostics::new_message_line() {
  if (!display_.screen()) {
    display_.line_out("\n");
    write_listing("\n");
    return;
  }
  write_listing("\n");
  if (display_.next_row() < 0 && error_count_ > 0) abort_file();
}

std::string Diagnostics::io_error_text(int code) {
  if (code == -1) code = errno != 0 ? errno : code;
  char buf[256];
  if (code >= 10000 && code <= 10011) {
    std::snprintf(buf, sizeof buf, "%s error %d - %s", "TAVRIN", code, kSystemIoTexts[code - 10000]);
  } else if (code >= kEngineFirst && code <= kEngineLast) {
    std::snprintf(buf, sizeof buf, "%s error %d - %s", "C-ISAM", code, kEngineTexts[code - kEngineFirst]);
  } else if (const char* system_text = code > 0 ? std::strerror(code) : nullptr;
             system_text && std::strncmp(system_text, "Unknown error", 13) != 0) {
    std::snprintf(buf, sizeof buf, "%s error %d - %s", "System", code, system_text);
  } else {
    std::snprintf(buf, sizeof buf, "error = %d", code);
  }
  return buf;
}

void Diagnostics::trace(std::string_view line) {
  // Lines of the output start with their line break, as the messages do.
  display_.print("\n%.*s", static_cast<int>(line.size()), line.data());
}

}  // namespace tav
