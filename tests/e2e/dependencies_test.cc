// tavcmp --write-dependencies: the make rules beside each table name the source and every file
// it included, wherever the preprocessor found them.
#include <filesystem>

#include "tests/e2e/driver_fixture.h"

namespace {

using namespace drvtest;

TEST(Dependencies, RulesNameEveryIncludedFileOnce) {
  TempDir dir;
  std::filesystem::create_directories(dir / "src");
  std::filesystem::create_directories(dir / "inc");
  std::filesystem::create_directories(dir / "out");
  // prog includes a.inc from -I inc and local.inc from its own directory; a.inc includes b.inc
  // (from its own directory) twice; b.inc is listed once.
  write_file(dir / "src/prog.spl",
             "#include \"local.inc\"\n#include \"a.inc\"\nprocedure main\n  pause\nend\n");
  write_file(dir / "src/local.inc", "// local\n");
  write_file(dir / "inc/a.inc", "#include \"b.inc\"\n#include \"b.inc\"\n");
  write_file(dir / "inc/b.inc", "// b\n");
  const std::string rules =
      "out/prog.op6: src/prog.spl src/local.inc inc/a.inc inc/b.inc\n"
      "\nsrc/local.inc:\n"
      "\ninc/a.inc:\n"
      "\ninc/b.inc:\n";

  RunResult r = tavcmp(dir.path(), {"-lniI", "inc", "--write-dependencies", "-o", "out", "src/prog"});
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(list_dir(dir / "out"), (std::vector<std::string>{"prog.d", "prog.op6"}));
  EXPECT_EQ(read_file(dir / "out/prog.d"), rules);

  // A program with compile errors keeps its rules: make must still rebuild it when an include
  // changes. Beside the source when there is no -o.
  write_file(dir / "src/local.inc", "  bogus\n");
  r = tavcmp(dir.path(), {"-lniI", "inc", "--write-dependencies", "src/prog.spl"});
  EXPECT_EQ(r.status, 1) << r.out;
  EXPECT_EQ(read_file(dir / "src/prog.d"), "src/prog.op6" + rules.substr(rules.find(':')));

  // A file the preprocessor refuses keeps rules naming every file it read before it stopped, so
  // that make tries again once the include is fixed; the include it could not open is not a
  // prerequisite (make would stop at it). The table of the last good compile stays.
  const std::string table = read_file(dir / "out/prog.op6");
  std::filesystem::remove(dir / "inc/b.inc");
  write_file(dir / "src/local.inc", "#include \"gone.inc\"\n// local\n");
  r = tavcmp(dir.path(), {"-lniI", "inc", "--write-dependencies", "-o", "out", "src/prog"});
  EXPECT_TRUE(contains(r.out, "Errors during preprocessing")) << r.out;
  EXPECT_EQ(r.status, 0) << "a refused file keeps its classic status";
  EXPECT_EQ(read_file(dir / "out/prog.d"),
            "out/prog.op6: src/prog.spl src/local.inc inc/a.inc\n"
            "\nsrc/local.inc:\n"
            "\ninc/a.inc:\n");
  EXPECT_EQ(read_file(dir / "out/prog.op6"), table);
  // A source that cannot be read at all (a directory) leaves no rules, not stale ones.
  std::filesystem::create_directories(dir / "odd.spl");
  write_file(dir / "out/odd.d", "out/odd.op6: odd.spl\n");
  r = tavcmp(dir.path(), {"-lniI", "inc", "--write-dependencies", "-o", "out", "odd"});
  EXPECT_TRUE(contains(r.out, "Errors during preprocessing")) << r.out;
  EXPECT_FALSE(file_exists(dir / "out/odd.d"));

  // Without the option there are no rules.
  std::filesystem::remove(dir / "out/prog.d");
  std::filesystem::remove(dir / "out/odd.err");
  write_file(dir / "inc/b.inc", "// b\n");
  write_file(dir / "src/local.inc", "// local\n");
  r = tavcmp(dir.path(), {"-lniI", "inc", "-o", "out", "src/prog"});
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(list_dir(dir / "out"), std::vector<std::string>{"prog.op6"});
}

// Names make would read otherwise are quoted; long rules are continued.
TEST(Dependencies, QuotedNamesAndContinuedLines) {
  TempDir dir;
  std::string includes, rest;
  for (int i = 0; i < 4; ++i) {
    const std::string name = "a long include name number " + std::to_string(i) + "$#.inc";
    write_file(dir / name, "\n");
    includes += "#include \"" + name + "\"\n";
  }
  write_file(dir / "p.spl", includes + kClean);
  RunResult r = tavcmp(dir.path(), {"-ln", "--write-dependencies", "p"});
  ASSERT_EQ(r.status, 0) << r.out;
  const std::string d = read_file(dir / "p.d");
  EXPECT_TRUE(d.starts_with("p.op6: p.spl a\\ long\\ include\\ name\\ number\\ 0$$\\#.inc \\\n "
                            "a\\ long\\ include\\ name\\ number\\ 1$$\\#.inc \\\n "))
      << d;
  EXPECT_TRUE(contains(d, "\na\\ long\\ include\\ name\\ number\\ 3$$\\#.inc:\n")) << d;
}

}  // namespace
