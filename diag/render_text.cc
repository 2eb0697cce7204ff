#include "diag/render_text.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace tav::render {

namespace {

constexpr int kTabStop = 8;

bool continuation(unsigned char c) { return (c & 0xC0) == 0x80; }

// The display column after a character that starts at `display`.
int display_after(unsigned char first, int display) {
  return first == '\t' ? (display / kTabStop + 1) * kTabStop : display + 1;
}

}  // namespace

std::string_view severity_word(Severity s) {
  switch (s) {
    case Severity::info: return "note";
    case Severity::warning: return "warning";
    case Severity::error:
    case Severity::fatal: return "error";
  }
  return "error";
}

std::string message_text(const Diagnostic& d) {
  if (d.context.empty()) return d.message;
  return d.message + " - '" + d.context + "'";
}

const SourceRange& note_place(const DiagnosticNote& note, const Diagnostic& d) {
  return note.where.known() ? note.where : d.where;
}

size_t char_length(std::string_view text, size_t at) {
  const auto lead = static_cast<unsigned char>(text[at]);
  size_t length = lead >= 0xC2 && lead <= 0xDF ? 2 : lead >= 0xE0 && lead <= 0xEF ? 3
                : lead >= 0xF0 && lead <= 0xF4                                   ? 4
                                                                                 : 1;
  if (at + length > text.size()) return 1;
  for (size_t i = 1; i < length; ++i)
    if (!continuation(static_cast<unsigned char>(text[at + i]))) return 1;
  return length;
}

int char_count(std::string_view text) {
  int count = 0;
  for (size_t at = 0; at < text.size(); at += char_length(text, at)) ++count;
  return count;
}

LinePosition position_in(std::string_view line, int column) {
  LinePosition p;
  int c = 1;
  for (; c < column && p.byte < line.size(); ++c) {
    p.display = display_after(static_cast<unsigned char>(line[p.byte]), p.display);
    p.byte += char_length(line, p.byte);
  }
  if (c < column) {  // past the end: one byte and one column each, however far
    const auto beyond = static_cast<int64_t>(column) - c;
    p.byte += static_cast<size_t>(beyond);
    p.display = static_cast<int>(std::min<int64_t>(p.display + beyond, std::numeric_limits<int>::max() - 1));
  }
  return p;
}

std::string displayed_line(std::string_view line) {
  std::string out;
  int display = 0;
  for (size_t at = 0; at < line.size();) {
    const size_t length = char_length(line, at);
    const auto c = static_cast<unsigned char>(line[at]);
    const int next = display_after(c, display);
    if (c == '\t' || c < 0x20 || c == 0x7F)
      out.append(static_cast<size_t>(next - display), ' ');
    else
      out.append(line.substr(at, length));
    display = next;
    at += length;
  }
  return out;
}

}  // namespace tav::render
