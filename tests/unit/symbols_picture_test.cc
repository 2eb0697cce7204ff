#include "symbols/picture.h"

#include <gtest/gtest.h>

#include <string>

namespace tav {
namespace {

using K = PictureKind;

struct Good {
  const char* picture;
  K kind;
  uint16_t format;
  uint32_t width;
  std::string text;
};

void expect_parses(const Good& c) {
  SCOPED_TRACE(c.picture);
  PictureResult r = parse_picture(c.picture);
  EXPECT_EQ(r.kind, c.kind);
  EXPECT_EQ(r.format, c.format) << std::hex << r.format;
  EXPECT_EQ(r.width, c.width);
  EXPECT_EQ(r.text, c.text);
}

TEST(Picture, ValidPictures) {
  const Good cases[] = {
      // Digits, decimal points and a leading single sign stay storage pictures.
      {"9(5)v99", K::plain, 0x10A2, 8, "99999.99"}, {"9(3).99", K::plain, 0x1062, 6, "999.99"},
      {"9t99", K::plain, 0x1022, 4, "9t99"}, {"v99", K::plain, 0x1002, 3, ".99"},
      {"s9(3)", K::plain, 0x1460, 4, "-999"}, {"-9(3)", K::plain, 0x1460, 4, "-999"},
      {"9(18)", K::plain, 0x1240, 18, "999999999999999999"},
      {"9(9)v9(9)", K::plain, 0x1129, 19, "999999999.999999999"},
      // Zero suppression and check protection are digit positions but editing.
      {"zz9.99", K::edited, 0x1062, 6, "zz9.99"}, {"**9.99", K::edited, 0x1062, 6, "**9.99"},
      // Floating currency: the first position of the first currency element is no digit.
      {"$(4)9.99", K::edited, 0x1082, 8, "$$$$9.99"}, {"$$$9", K::edited, 0x1060, 4, "$$$9"},
      {"\x9c\x9c" "9", K::edited, 0x1040, 3, "$$9"}, {"\xa3(3)9", K::edited, 0x1060, 4, "$$$9"},
      // Floating signs: a sign after another sign is all digit positions.
      {"9(3)-", K::edited, 0x1460, 4, "999-"}, {"--9", K::edited, 0x1440, 3, "--9"},
      {"-(3)9", K::edited, 0x1460, 4, "---9"}, {"(9(3))", K::edited, 0x1460, 5, "(999)"},
      {"(-9)", K::edited, 0x1440, 4, "(-9)"}, {"9(3)cr", K::edited, 0x1460, 5, "999c"},
      {"-", K::plain, 0x1400, 1, "-"},
      // Insertion characters with repeat counts.
      {"9,999.99", K::edited, 0x1082, 8, "9,999.99"}, {"9(3)b(2)9", K::edited, 0x1080, 6, "999bb9"},
      {"99/99", K::edited, 0x1080, 5, "99/99"}, {"99%(2)", K::edited, 0x1040, 4, "99%%"},
      // Dates and times.
      {"dd/mm/yy", K::edited, 0x2080, 8, "D/M/Y"}, {"dd-mm-yyyy", K::edited, 0x2080, 10, "D-M-y"},
      {"dd.mm.yy", K::edited, 0x2080, 8, "D.M.Y"}, {"mmm dd, yyyy", K::edited, 0x2080, 12, "m D, y"},
      {"hh:mm:ss", K::edited, 0x2100, 8, "H:I:S"}, {"hh:mm am", K::edited, 0x2100, 8, "h:I P"},
      {"pm hh", K::edited, 0x2100, 5, "P h"}, {"ss:mm", K::edited, 0x2100, 5, "S:I"},
      // Without a time element before it mm is the month; after the minutes it is the month too.
      {"mm:ss", K::edited, 0x2100, 5, "M:S"}, {"hh:mm:mm", K::edited, 0x2100, 8, "H:I:M"},
      {"yy/mm/dd hh:mm:ss", K::edited, 0x2100, 17, "Y/M/D H:I:S"},
      {"hh:mm dd/mm/yy", K::edited, 0x2100, 14, "H:I D/M/Y"},
      // Alphanumeric positions, and a normalised text cut to its longest.
      {"xx(3)x", K::plain, 5, 5, ""}, {"x(1023)", K::plain, 1023, 1023, ""}, {"x(1024)", K::plain, 1023, 1024, ""},
      {"x(1000)x(24)", K::plain, 1023, 1024, ""},
      {"b(60)9", K::edited, 0x1020, 61, std::string(kPictureTextMax, 'b')},
  };
  for (const Good& c : cases) expect_parses(c);
}

TEST(Picture, InvalidPictures) {
  const char* const cases[] = {
      // Nothing, unknown characters, letters outside their pairs.
      "", "9q", "X(3)", "c9", "a", "pq", "h9", "d", "dx", "m", "y", "9y",
      // Repeat counts.
      "9()", "9(0)", "9(3", "9(3a)", "x(", "9(-1)",
      // Limits.
      "9(19)", "9(10)v9(9)", "z(10)9(9)", "x(1025)", "x(1000)x(25)", "x(99999999999)",
      // Year forms.
      "yyy", "yyyyy", "dd/mm/yyy",
      // Parentheses: "(" only first, ")" only after it.
      "9(3)(", ")9", "9)",
      // Mixed categories.
      "x9", "dd9", "9dd", "dd%", "hh:mm x", "-dd", ".dd", "$dd", "dd/mm/yy 9", "9(3)ss",
  };
  for (const char* c : cases) {
    SCOPED_TRACE(c);
    PictureResult r = parse_picture(c);
    EXPECT_EQ(r.kind, K::invalid);
    EXPECT_EQ(r.format, 0);
  }
}

TEST(Picture, OnceOnlyElements) {
  struct Pair {
    const char* once;   // valid with the element once
    const char* twice;  // invalid with it twice
  };
  const Pair cases[] = {
      {"9v9", "9v9v9"},           {"9.9", "9v9.9"},         {"9t9", "9t9.9"},
      {"dd/mm", "dd/mm/dd"},      {"dd/mm", "mm/dd/mm"},    {"mmm yy", "mmm mm yy"},
      {"yy", "yy/yyyy"},          {"hh:mm", "hh:mm hh"},    {"hh:mm:ss", "hh:mm:ss:ss"},
      {"hh am", "hh am pm"},      {"(9)", "((9)"},
  };
  for (const Pair& c : cases) {
    SCOPED_TRACE(c.twice);
    EXPECT_NE(parse_picture(c.once).kind, K::invalid);
    EXPECT_EQ(parse_picture(c.twice).kind, K::invalid);
  }
}

}  // namespace
}  // namespace tav
