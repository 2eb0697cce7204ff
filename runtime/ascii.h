// Character tests for the compiler's own words (keywords, option letters, names in templates):
// plain ASCII whatever the locale, so that the progress window's character set never changes
// what a program means.
#pragma once

namespace tav {

constexpr bool ascii_alpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
constexpr bool ascii_digit(char c) { return c >= '0' && c <= '9'; }
constexpr bool ascii_alnum(char c) { return ascii_alpha(c) || ascii_digit(c); }
constexpr char ascii_lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace tav
