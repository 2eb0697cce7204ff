#include "symbols/types.h"

#include <gtest/gtest.h>

#include <utility>

namespace tav {
namespace {

// Lookups by word, hyphens and underscores matched as in keywords; every row by its own word.
TEST(Types, TypeWords) {
  const std::pair<const char*, char> cases[] = {
      {"date-time", 'J'}, {"date_time", 'J'}, {"datetime", 'J'}, {"binary-large-object", 'X'}, {"money", 'N'}};
  for (const auto& [word, letter] : cases) {
    ASSERT_NE(find_type_word(word), nullptr) << word;
    EXPECT_EQ(find_type_word(word)->letter, letter) << word;
  }
  EXPECT_EQ(find_type_word("colour")->format, 0x20A0);
  for (const TypeWordRow& row : kTypeWords) EXPECT_EQ(find_type_word(row.word), &row) << row.word;
  for (const char* unknown : {"", "-", "text", "dat", "dates", "date-", "-date", "DATE", "int"})
    EXPECT_EQ(find_type_word(unknown), nullptr) << unknown;
}

TEST(Types, Accepts) {
  struct Case {
    char letter;
    uint16_t format;
    bool accepted;
  };
  const Case cases[] = {
      {'A', 0x0028, true},  {'A', 0x0001, true},  {'A', 0x2080, false}, {'A', 0x1020, false},
      {'S', 0x03FF, true},  {'S', 0x0840, false}, {'B', 0x1020, true},  {'B', 0x2020, false},
      {'B', 0x1420, false}, {'D', 0x2080, true},  {'D', 0x2100, false}, {'D', 0x0008, false},
      {'J', 0x2100, true},  {'J', 0x2080, false}, {'L', 0x2100, true},  {'L', 0xA100, false},
      {'T', 0x2100, true},  {'T', 0x0008, false}, {'X', 0x0001, true},  {'X', 0x0002, false},
      {'N', 0x25C4, true},  {'N', 0x2080, true},  {'N', 0x15C4, false}, {'N', 0x0028, false},
      {'F', 0x45C4, true},  {'F', 0x25C4, false}, {'P', 0x0DC4, true},  {'P', 0x2DC4, true},
      {'P', 0x25C4, false}, {'Z', 0x15C4, true},  {'Z', 0x25C4, false}, {'Z', 0x0010, false},
      {'Q', 0x0028, false}, {'a', 0x0028, false}, {'\0', 0x0028, false},
  };
  for (const Case& c : cases)
    EXPECT_EQ(type_accepts(c.letter, c.format), c.accepted)
        << c.letter << " " << std::hex << c.format;
}

TEST(Types, DefaultFormats) {
  EXPECT_EQ(default_format('Q'), 0);
  // Every type accepts its own default, and every TYPE word gives a known type.
  for (const TypeLetterRow& row : kTypeLetters) {
    EXPECT_EQ(default_format(row.letter), row.default_format) << row.letter;
    EXPECT_TRUE(type_accepts(row.letter, row.default_format)) << row.letter;
  }
  for (const TypeWordRow& row : kTypeWords) EXPECT_NE(find_type_letter(row.letter), nullptr);
}

TEST(Types, StorageAndSettling) {
  // A numeric picture is stored as binary decimal, keeping ROUNDED, sign, packed and digits.
  const uint16_t stored[][2] = {{0x10A2, 0x20A2}, {0x94A2, 0xA4A2}, {0x40A2, 0x20A2},
                                {0x08A2, 0x28A2}, {0x000A, 0x000A}};
  for (const auto& s : stored) EXPECT_EQ(storage_format(s[0]), s[1]) << s[0];

  struct Case {
    char letter;  // 0: no TYPE
    bool has_format;
    uint16_t format;
    SettledType settled;
  };
  const Case cases[] = {
      {0, false, 0, {'A', 0, true}}, {0, true, 0x20A2, {'N', 0x20A2, true}}, {'N', false, 0, {'N', 0x25C4, true}},
      {'D', false, 0, {'D', 0x2080, true}},
      // Zoned, floating and packed types impose their class on a numeric picture.
      {'Z', true, 0xA4A2, {'Z', 0x94A2, true}}, {'F', true, 0x20A2, {'F', 0x40A2, true}},
      {'P', true, 0x20A2, {'P', 0x08A2, true}}, {'N', true, 0x20A0, {'N', 0x20A0, true}},
      {'D', true, 0x2080, {'D', 0x2080, true}}, {'D', true, 0x000A, {'D', 0x000A, false}},
      {'A', true, 0x20A2, {'A', 0x20A2, false}}, {'Z', true, 0x000A, {'Z', 0x000A, false}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.letter << " " << std::hex << c.format);
    SettledType s = settle_type(c.letter, c.has_format, c.format);
    EXPECT_EQ(s.letter, c.settled.letter);
    EXPECT_EQ(s.format, c.settled.format);
    EXPECT_EQ(s.compatible, c.settled.compatible);
  }

  // PICTURE 9(5)v99 stored under each numeric type, and the defaults of a few types.
  const std::pair<SettledType, uint32_t> sizes[] = {
      {settle_type('N', true, storage_format(0x10A2)), 4}, {settle_type('Z', true, storage_format(0x10A2)), 7},
      {settle_type('P', true, storage_format(0x10A2)), 5}, {settle_type('F', true, storage_format(0x10A2)), 8},
      {settle_type('F', true, storage_format(0x1062)), 4}, {settle_type('N', false, 0), 8},
      {settle_type('A', false, 0), 40},                    {settle_type('D', false, 0), 2}};
  for (const auto& [s, size] : sizes) EXPECT_EQ(conv::format_size(s.format), size) << s.letter;
}

}  // namespace
}  // namespace tav
