// Text as the progress window draws it: decoded in the LC_CTYPE locale one character at a time,
// each taking the display columns wcwidth gives it. Bytes that do not decode (Latin-1 text in a
// UTF-8 locale), control characters and anything else the terminal cannot print are drawn as
// '?', a tab as ' ', so that nothing reaches the terminal that it would act on and the columns
// counted here are the columns drawn. In the C locale every byte outside printable ASCII is a '?'.
//
// These functions use the current locale and nothing else, so that the clipping and wrapping
// arithmetic can be checked without a terminal.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tav::screen_text {

// Display columns of `text` as drawn.
int display_width(std::string_view text);

// What is written for `text` into a row: its first `skip` columns left out and at most `room`
// columns kept. A double-width character cut by `skip` leaves a blank for its visible half; one
// that does not fit in `room` is left out with everything after it.
std::wstring shown(std::string_view text, int skip, int room);

// Splits `text` into pieces of at most `width` columns each, for consecutive rows. A piece ends
// at the last space that lets it fit (the spaces of the break belong to no piece), or, without
// one, at the last character that fits. A character never splits, and a combining mark stays
// with its base. Always at least one piece; `width` < 1 leaves the text whole.
std::vector<std::string_view> wrap(std::string_view text, int width);

}  // namespace tav::screen_text
