// Lexing of lines: words, quoted literals, comments and directive lines.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tav::pp {

// How words are cut.  In program text a hyphen between two identifier characters joins them
// into one word (MAX-ROWS is one name of the language); in #if expressions it is an operator.
enum class WordRule { program, expression };

constexpr bool is_ident_start(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}
constexpr bool is_ident_char(char c) { return is_ident_start(c) || (c >= '0' && c <= '9'); }
constexpr bool is_blank(char c) { return c == ' ' || c == '\t'; }
constexpr bool is_quote(char c) { return c == '\'' || c == '"'; }

// A C identifier: a letter or "_", then letters, digits and "_".
bool is_identifier(std::string_view s);

std::size_t skip_blanks(std::string_view s, std::size_t pos);
std::string_view trim(std::string_view s);

// pos is at a quote: the position after the matching quote, or the end of the line when the
// literal is not closed (there are no escapes).
std::size_t literal_end(std::string_view s, std::size_t pos);

// pos is at an identifier character: the end of the word that starts there.
std::size_t word_end(std::string_view s, std::size_t pos, WordRule rule);

// The line up to a "//" comment outside quoted literals.
std::string_view strip_comment(std::string_view s);

// A directive line ("#" first, blanks allowed after it): its name (may be empty) and the text
// after the name with the comment removed and blanks trimmed.
struct DirectiveLine {
  std::string_view name;
  std::string_view rest;
};
DirectiveLine split_directive(std::string_view line);

// The directory part of a path, "/" included ("" for a bare name).
std::string_view dir_part(std::string_view path);

// The path as it is shown in messages: "\" becomes "/", and "." and ".." components are
// resolved ("a/./b/../c" is "a/c"; leading ".." components stay).
std::string normalise_path(std::string_view path);

// A file name as a line marker writes it, like a C string literal without its quotes: "\\" for a
// backslash, "\n", "\r", "\t" and octal escapes for control characters, and an octal escape for
// a leading blank (the reader skips blanks before the name). Other bytes stay as they are, so an
// ordinary name reads the same.
std::string marker_name(std::string_view path);

}  // namespace tav::pp
