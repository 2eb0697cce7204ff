#include "runtime/screen_text.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>
#include <vector>

namespace {

namespace st = tav::screen_text;

std::vector<std::string> wrapped(const char* text, int width) {
  const std::vector<std::string_view> pieces = st::wrap(text, width);
  return {pieces.begin(), pieces.end()};
}

TEST(ScreenText, ColumnsWrappingAndStandIns) {
  ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr) << "the C.UTF-8 locale is missing";
  struct Wrap {
    const char* text;
    int width;
    std::vector<std::string> rows;
  };
  const Wrap wraps[] = {
      {"one two three", 9, {"one two", "three"}},
      {"abc def", 3, {"abc", "def"}},          // the space that does not fit is the break
      {"ab   cd", 3, {"ab", "cd"}},            // the whole run of spaces goes
      {"   abcdef", 4, {"   a", "bcde", "f"}},  // no space to break at after text: a hard break
      {"caf\xc3\xa9 cr\xc3\xa8me", 5, {"caf\xc3\xa9", "cr\xc3\xa8me"}},  // columns, not bytes
      {"\xe6\x97\xa5\xe6\x9c\xac" "a", 3, {"\xe6\x97\xa5", "\xe6\x9c\xac" "a"}},  // double width
      {"\xe6\x97\xa5" "a", 1, {"\xe6\x97\xa5", "a"}},  // a row too narrow still takes one
      {"e\xcc\x81" "e\xcc\x81" "e", 2, {"e\xcc\x81" "e\xcc\x81", "e"}},  // marks stay with their base
  };
  for (const Wrap& w : wraps) EXPECT_EQ(wrapped(w.text, w.width), w.rows) << w.text;

  struct Shown {
    const char* text;
    int skip;
    int room;
    std::wstring shown;
  };
  const Shown cases[] = {
      {"abcLEFT", 3, 10, L"LEFT"},
      {"a\tb\x01\x1b[m", 0, 10, L"a b??[m"},     // nothing the terminal would act on
      {"\xc2\x9b\xe9t\xc3\xa9", 0, 10, L"??t\u00e9"},  // a C1 control, a Latin-1 byte
      {"\xcc\x81x", 0, 10, L"?x"},                     // a mark with nothing to combine with
      {"\xe6\x97\xa5\xe6\x9c\xac", 1, 10, L" \u672c"},  // double width cut at either edge
      {"\xe6\x97\xa5\xe6\x9c\xac", 0, 3, L"\u65e5"},
  };
  for (const Shown& c : cases) EXPECT_EQ(st::shown(c.text, c.skip, c.room), c.shown) << c.text;
  EXPECT_EQ(st::display_width("\xe6\x97\xa5" "e\xcc\x81\xe9"), 4);

  // The C locale: a cell for each byte, and every byte outside ASCII a '?'.
  ASSERT_NE(std::setlocale(LC_CTYPE, "C"), nullptr);
  EXPECT_EQ(st::shown("caf\xc3\xa9\t!", 0, 10), L"caf?? !");
  EXPECT_EQ(wrapped("caf\xc3\xa9 cr\xc3\xa8me", 5), (std::vector<std::string>{"caf\xc3\xa9", "cr\xc3\xa8m", "e"}));
}

}  // namespace
