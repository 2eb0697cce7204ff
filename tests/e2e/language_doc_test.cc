// Every example of docs/language.md compiles without errors, in the order the reference gives
// them, in one directory (a later example may link a library an earlier one made).

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tests/support/op6.h"
#include "tests/support/support.h"

namespace {

TEST(LanguageReference, EveryExampleCompiles) {
  std::istringstream doc(tavtest::read_file(tavtest::source_dir() + "/docs/language.md"));
  tavtest::TempDir dir;
  int examples = 0;
  std::string line, block, name;
  bool inside = false;
  while (std::getline(doc, line)) {
    if (!inside && line == "```spl") {
      inside = true;
      block.clear();
      name = "example" + std::to_string(++examples) + ".spl";
      continue;
    }
    if (!inside) continue;
    if (line != "```") {
      if (block.empty() && line.rfind("// file: ", 0) == 0) name = line.substr(9);
      block += line + "\n";
      continue;
    }
    inside = false;
    tavtest::write_file(dir / name, block);
    const tavtest::RunResult r = tavtest::tavcmp(dir.path(), {"-l", "-n", name});
    EXPECT_EQ(r.status, 0) << name << "\n" << block << r.out;
    EXPECT_NE(r.out.find("No errors found"), std::string::npos) << name << "\n" << r.out;
    EXPECT_EQ(r.out.find("WARNING"), std::string::npos) << name << "\n" << r.out;
  }
  EXPECT_GE(examples, 7);
}

}  // namespace
