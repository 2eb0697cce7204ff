// What the three formats share: which diagnostics they show, the message text with its context,
// the place of a note, and the character arithmetic of a source line (columns count characters,
// the caret line counts display columns with tab stops every 8).
#pragma once

#include <string>
#include <string_view>

#include "diag/diagnostic.h"

namespace tav::render {

// Follow-on messages are true to the classic listing only.
inline bool shown(const Diagnostic& d) { return !d.follow_on; }
inline bool is_error(Severity s) { return s == Severity::error || s == Severity::fatal; }

// "error", "warning" or "note".
std::string_view severity_word(Severity s);

// The message, then " - '<context>'" when there is a context.
std::string message_text(const Diagnostic& d);

// A note without a place of its own is about the diagnostic's place.
const SourceRange& note_place(const DiagnosticNote& note, const Diagnostic& d);

// The byte length of the character at `at`: a UTF-8 sequence, or one byte that begins none.
size_t char_length(std::string_view text, size_t at);
// The number of characters of `text`.
int char_count(std::string_view text);

// Where column `column` (from 1) of `line` starts: its byte offset and its display column (from
// 0). Columns past the end of the line count one byte and one display column each.
struct LinePosition {
  size_t byte = 0;
  int display = 0;
};
LinePosition position_in(std::string_view line, int column);

// The line as a terminal shows it under the caret line: tabs expanded to the next multiple of 8,
// other control characters as blanks.
std::string displayed_line(std::string_view line);

}  // namespace tav::render
