// The message catalogue: default texts, numbers without a text, and what a catalogue file
// translates and when it is read.

#include <gtest/gtest.h>

#include <filesystem>

#include "nls/catalogue.h"
#include "tests/support/support.h"

namespace {

using tav::nls::Catalogue;

TEST(Catalogue, TextsOfNumbers) {
  tavtest::TempDir dir;
  std::filesystem::create_directories(dir / "nls/fr");
  tavtest::write_file(dir / "nls/fr/0999.txt",
                      "3 \"D'accord\"\n"
                      "11 \"Chercher\"\n"
                      "12 \"\"\n"           // empty: the default stays
                      "27 \"Vingt-sept\"\n" // no entry of the table
                      "  5\t\"Non \\\"merci\\\" \\\\\"\n"
                      "x6 \"Bad\"\n");
  Catalogue c(dir.path() + "/", "fr");
  EXPECT_EQ(c.text(11), "Chercher");
  // Reading for 11 loaded the entries after it, not those before it.
  tavtest::write_file(dir / "nls/fr/0999.txt", "3 \"Bien\"\n5 \"Nein\"\n");
  struct Case {
    int number;
    const char* text;
  };
  const Case cases[] = {
      {3, "Bien"}, {5, "Non \"merci\" \\"}, {12, "Next"}, {6, "Retry"}, {0, ""}, {-4, ""},
      {27, "27: No Text!"}, {10000, "10000: No Text!"}, {1011, "Find a record"},  // no 1999.txt
  };
  for (const Case& k : cases) EXPECT_EQ(c.text(k.number), k.text) << k.number;
  EXPECT_FALSE(c.translation(12));

  Catalogue none(dir.path() + "/", "");
  EXPECT_EQ(none.text(11), "Find");
  EXPECT_FALSE(none.translation(11));
}

}  // namespace
