#include "runtime/screen_text.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>
#include <vector>

namespace {

namespace st = tav::screen_text;

// Runs a test in the given LC_CTYPE and puts the previous one back.
class InLocale {
 public:
  explicit InLocale(const char* name) : previous_(std::setlocale(LC_CTYPE, nullptr)) {
    ok_ = std::setlocale(LC_CTYPE, name) != nullptr;
  }
  ~InLocale() { std::setlocale(LC_CTYPE, previous_.c_str()); }
  bool ok() const { return ok_; }

 private:
  std::string previous_;
  bool ok_ = false;
};

TEST(ScreenText, WrapsByDisplayColumns) {
  InLocale utf8("C.UTF-8");
  ASSERT_TRUE(utf8.ok()) << "the C.UTF-8 locale is missing";
  struct Case {
    const char* text;
    int width;
    std::vector<std::string> rows;
  };
  const Case cases[] = {
      {"", 5, {""}},
      {"abcde", 5, {"abcde"}},
      {"one two three", 9, {"one two", "three"}},
      {"abc def", 3, {"abc", "def"}},          // the space that does not fit is the break
      {"ab   cd", 3, {"ab", "cd"}},            // the whole run of spaces goes
      {"abcdefgh", 3, {"abc", "def", "gh"}},   // no space: a hard break
      {"   abcdef", 4, {"   a", "bcde", "f"}},  // leading blanks are no break
      {"abcdefgh", 0, {"abcdefgh"}},
      // Multibyte characters count one column each and never split.
      {"caf\xc3\xa9 cr\xc3\xa8me", 5, {"caf\xc3\xa9", "cr\xc3\xa8me"}},
      {"\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9", 2, {"\xc3\xa9\xc3\xa9", "\xc3\xa9\xc3\xa9", "\xc3\xa9"}},
      // Double width; a row too narrow for one still takes it.
      {"\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e", 5, {"\xe6\x97\xa5\xe6\x9c\xac", "\xe8\xaa\x9e"}},
      {"\xe6\x97\xa5" "a", 1, {"\xe6\x97\xa5", "a"}},
      // A combining mark stays with its base.
      {"e\xcc\x81" "e\xcc\x81" "e\xcc\x81", 2, {"e\xcc\x81" "e\xcc\x81", "e\xcc\x81"}},
      // Bytes that do not decode take one column each.
      {"\xe9\xe9\xe9", 2, {"\xe9\xe9", "\xe9"}},
  };
  for (const Case& c : cases) {
    const std::vector<std::string_view> pieces = st::wrap(c.text, c.width);
    EXPECT_EQ(std::vector<std::string>(pieces.begin(), pieces.end()), c.rows) << c.text << " / " << c.width;
  }
}

TEST(ScreenText, ShowsCharactersAndStandIns) {
  InLocale utf8("C.UTF-8");
  ASSERT_TRUE(utf8.ok()) << "the C.UTF-8 locale is missing";
  struct Case {
    const char* text;
    int skip;
    int room;
    std::wstring shown;
    int width;
  };
  const Case cases[] = {
      {"caf\xc3\xa9", 0, 10, L"caf\u00e9", 4},
      {"caf\xc3\xa9", 0, 3, L"caf", 4},
      {"abcLEFT", 3, 10, L"LEFT", 7},
      // Nothing the terminal would act on: controls, an escape sequence, a C1 control.
      {"a\tb\x01", 0, 10, L"a b?", 4},
      {"\x1b[31m", 0, 10, L"?[31m", 5},
      {"\xc2\x9bx", 0, 10, L"?x", 2},
      // Latin-1 bytes in a UTF-8 locale, a mark with no base.
      {"\xe9t\xc3\xa9", 0, 10, L"?t\u00e9", 3},
      {"\xcc\x81x", 0, 10, L"?x", 2},
      // A double-width character cut by either edge.
      {"\xe6\x97\xa5\xe6\x9c\xac", 1, 10, L" \u672c", 4},
      {"\xe6\x97\xa5\xe6\x9c\xac", 0, 3, L"\u65e5", 4},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(st::shown(c.text, c.skip, c.room), c.shown) << c.text;
    EXPECT_EQ(st::display_width(c.text), c.width) << c.text;
  }
}

TEST(ScreenText, TheCLocaleShowsOneByteACell) {
  InLocale c_locale("C");
  ASSERT_TRUE(c_locale.ok());
  EXPECT_EQ(st::display_width("caf\xc3\xa9"), 5);
  EXPECT_EQ(st::shown("caf\xc3\xa9\t!", 0, 10), L"caf?? !");
  const std::vector<std::string_view> pieces = st::wrap("caf\xc3\xa9 cr\xc3\xa8me", 5);
  EXPECT_EQ(std::vector<std::string>(pieces.begin(), pieces.end()),
            (std::vector<std::string>{"caf\xc3\xa9", "cr\xc3\xa8m", "e"}));
}

}  // namespace
