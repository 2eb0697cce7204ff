// The gcc format: "file:line:col: error: message [code]", the source line with a caret under
// the place and '~' under the rest of it, the replacement of each fix-it under that, the notes,
// and "N errors generated." after a file with errors.
#include <algorithm>

#include "diag/render.h"
#include "diag/render_text.h"

namespace tav {

namespace {

using render::LinePosition;
using render::position_in;

// The colours GCC uses by default (ANSI SGR), each reset the way GCC resets them.
constexpr std::string_view kBold = "\33[01m\33[K";
constexpr std::string_view kBoldRed = "\33[01;31m\33[K";
constexpr std::string_view kBoldMagenta = "\33[01;35m\33[K";
constexpr std::string_view kBoldCyan = "\33[01;36m\33[K";
constexpr std::string_view kGreen = "\33[32m\33[K";
constexpr std::string_view kRed = "\33[31m\33[K";
constexpr std::string_view kReset = "\33[m\33[K";

class GccWriter {
 public:
  GccWriter(const FileDiagnostics& file, const SourceLineReader& lines, bool colour)
      : file_(file), lines_(lines), colour_(colour) {}

  void diagnostic(const Diagnostic& d);
  std::string finish();

 private:
  std::string painted(std::string_view text, std::string_view sgr) const {
    return colour_ ? std::string(sgr) + std::string(text) + std::string(kReset) : std::string(text);
  }
  void heading(const SourceRange& where, Severity severity, const std::string& message);
  void source(const SourceRange& where, const std::vector<FixIt>& fixes);
  std::optional<std::string> line_of(const SourceRange& where) const;
  std::string fix_line(std::string_view line, std::vector<const FixIt*> fixes) const;
  void gutter_line(int line, bool numbered, std::string_view text);

  const FileDiagnostics& file_;
  const SourceLineReader& lines_;
  bool colour_;
  std::string out_;
  int errors_ = 0;
};

void GccWriter::heading(const SourceRange& where, Severity severity, const std::string& message) {
  // A message about the run rather than a file is the compiler's, as GCC's driver says "gcc:".
  std::string place = where.known()           ? where.file + ":" + std::to_string(where.line)
                      : file_.source.empty() ? std::string("tavcmp")
                                             : file_.source;
  if (where.known() && where.column > 0) place += ":" + std::to_string(where.column);
  const std::string word = std::string(render::severity_word(severity)) + ": ";
  const std::string_view sgr = severity == Severity::info      ? kBoldCyan
                               : severity == Severity::warning ? kBoldMagenta
                                                               : kBoldRed;
  out_ += painted(place + ":", kBold) + " " + painted(word, sgr) + message + "\n";
}

std::optional<std::string> GccWriter::line_of(const SourceRange& where) const {
  if (!where.known() || where.column < 1 || !lines_) return std::nullopt;
  std::optional<std::string> line = lines_(where.file, where.line);
  // A place past the end of the line is not that line's (the file changed since).
  if (line && where.column > render::char_count(*line) + 1) return std::nullopt;
  return line;
}

// "    3 | text" for the source line, "      | text" under it: the margin is as wide as the
// line's number, 5 at least.
void GccWriter::gutter_line(int line, bool numbered, std::string_view text) {
  const std::string number = std::to_string(line);
  const size_t width = std::max<size_t>(5, number.size());
  out_ += std::string(width - (numbered ? number.size() : 0), ' ') + (numbered ? number : "") + " |";
  if (!text.empty()) out_ += " " + std::string(text);
  out_ += "\n";
}

// The replacements of the fix-its of one line, each under the text it replaces; a deletion is
// shown as '-' under the deleted text.
std::string GccWriter::fix_line(std::string_view line, std::vector<const FixIt*> fixes) const {
  std::sort(fixes.begin(), fixes.end(), [](const FixIt* a, const FixIt* b) { return a->where.column < b->where.column; });
  std::string text;
  int width = 0;  // display columns of `text`
  for (const FixIt* fix : fixes) {
    const LinePosition start = position_in(line, fix->where.column);
    const int last = render::char_count(line) + 1;
    const LinePosition end = position_in(line, std::min(std::max(fix->where.end_column, fix->where.column), last));
    if (width < start.display) {
      text.append(static_cast<size_t>(start.display - width), ' ');
      width = start.display;
    }
    if (fix->replacement.empty()) {
      const int deleted = end.display - start.display;
      text += painted(std::string(static_cast<size_t>(deleted), '-'), kRed);
      width += deleted;
    } else {
      text += painted(fix->replacement, kGreen);
      width += render::char_count(fix->replacement);
    }
  }
  return text;
}

// The source line of `where` with its caret, then the fix-its of that line; then each other
// line of the same file that a fix-it changes, with its replacement.
void GccWriter::source(const SourceRange& where, const std::vector<FixIt>& fixes) {
  std::vector<const FixIt*> same_line, other_lines;
  for (const FixIt& fix : fixes) {
    if (fix.where.file != where.file || !line_of(fix.where)) continue;
    (fix.where.line == where.line ? same_line : other_lines).push_back(&fix);
  }
  if (std::optional<std::string> line = line_of(where)) {
    const int chars = render::char_count(*line);
    const LinePosition start = position_in(*line, where.column);
    const LinePosition end = position_in(*line, std::min(std::max(where.end_column, where.column + 1), chars + 1));
    const int tildes = std::max(0, end.display - start.display - 1);
    gutter_line(where.line, true, render::displayed_line(*line));
    gutter_line(where.line, false, std::string(static_cast<size_t>(start.display), ' ') +
                       painted("^" + std::string(static_cast<size_t>(tildes), '~'), kGreen));
    if (!same_line.empty()) gutter_line(where.line, false, fix_line(*line, same_line));
  }
  for (const FixIt* fix : other_lines) {
    const std::string line = *line_of(fix->where);
    gutter_line(fix->where.line, true, render::displayed_line(line));
    gutter_line(fix->where.line, false, fix_line(line, {fix}));
  }
}

void GccWriter::diagnostic(const Diagnostic& d) {
  if (!render::shown(d)) return;
  if (render::is_error(d.severity)) ++errors_;
  std::string message = render::message_text(d);
  if (!d.code.empty()) message += " [" + d.code + "]";
  heading(d.where, d.severity, message);
  source(d.where, d.fixes);
  for (const DiagnosticNote& note : d.notes) {
    heading(render::note_place(note, d), Severity::info, note.message);
    // A note about the diagnostic's own place does not show that place again.
    if (note.where.known()) source(note.where, {});
  }
}

std::string GccWriter::finish() {
  if (errors_ == 1) out_ += "1 error generated.\n";
  if (errors_ > 1) out_ += std::to_string(errors_) + " errors generated.\n";
  return std::move(out_);
}

}  // namespace

std::string render_gcc(const FileDiagnostics& file, const SourceLineReader& lines, bool colour) {
  GccWriter writer(file, lines, colour);
  for (const Diagnostic& d : file.items) writer.diagnostic(d);
  return writer.finish();
}

}  // namespace tav
