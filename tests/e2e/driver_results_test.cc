// tavcmp in plain mode: output names, result lines, exit statuses, and the message lines and
// listing the diagnostics produce.
#include <filesystem>

#include "tests/e2e/driver_fixture.h"

namespace {

using namespace drvtest;
namespace fs = std::filesystem;

TEST(DriverNaming, SourceAndOutputNames) {
  TempDir dir;
  fs::create_directories(dir / "a.b");
  fs::create_directories(dir / "src");
  fs::create_directories(dir / "out");
  write_file(dir / "prog.spl", kClean);
  write_file(dir / "a.b/prog.spl", kClean);
  write_file(dir / "src/prog.spl", errors_on({3}, 4));
  struct Case {
    std::vector<std::string> args;
    std::vector<std::string> made;  // files that must exist afterwards
  };
  const Case cases[] = {
      {{"-ln", "prog"}, {"prog.op6"}},
      {{"-ln", "prog.x"}, {"prog.op6"}},
      {{"-ln", "a.b/prog.x"}, {"a.b/prog.op6"}},
      {{"-ln", "a.b/prog"}, {"a.b/prog.op6"}},  // the dot of the directory is no extension
      {{"-ln", "-o", "out", "prog.spl"}, {"out/prog.op6"}},
      {{"-ln", "-o", "out/", "a.b/prog"}, {"out/prog.op6"}},
      {{"-ln", "-o", "out/", "src/prog.spl"}, {"out/prog.err"}},
      {{"-ln", "-o", "out", "src/prog.spl"}, {"out/prog.err"}},
  };
  for (const Case& c : cases) {
    for (const char* stale : {"prog.op6", "a.b/prog.op6", "out/prog.op6", "out/prog.err"})
      fs::remove(dir / stale);
    RunResult r = tavcmp(dir.path(), c.args);
    const std::string& last = c.args.back();
    for (const auto& f : c.made) EXPECT_TRUE(file_exists(dir / f)) << last << ": " << f;
    EXPECT_FALSE(file_exists(dir / "src/prog.err")) << last;
    EXPECT_FALSE(file_exists(dir / "out/prog.op6") && file_exists(dir / "out/prog.err")) << last;
  }
  // The listing written under -o names the source as the preprocessor saw it.
  EXPECT_EQ(read_file(dir / "out/prog.err"), bogus_line("src/prog.spl", 3) + "\n");
}

TEST(DriverResults, ResultLinesAndStatuses) {
  TempDir dir;
  write_file(dir / "ok.spl", kClean);
  write_file(dir / "bad.spl", errors_on({4, 6}, 8));
  write_file(dir / "late.spl", errors_on({300}, 302));
  struct Case {
    std::vector<std::string> args;
    std::string out;
    int status;
  };
  const Case cases[] = {
      {{"-ln", "ok.spl"}, "\nok.spl:\nNo errors found\n", 0},
      {{"-ln", "bad.spl"},
       "\nbad.spl:" + bogus_line("bad.spl", 4) + bogus_line("bad.spl", 6) +
           "\n*** Errors found = 2\n",
       4},
      // Only the last file decides the status.
      {{"-ln", "bad.spl", "ok.spl"},
       "\nbad.spl:" + bogus_line("bad.spl", 4) + bogus_line("bad.spl", 6) +
           "\n*** Errors found = 2\nok.spl:\nNo errors found\n",
       0},
      {{"-lni", "ok.spl", "bad.spl"},
       "\nok.spl:\nbad.spl:" + bogus_line("bad.spl", 4) + bogus_line("bad.spl", 6) +
           "\n*** Errors found = 2\n",
       4},
      // The status is the line of the first error modulo 256.
      {{"-ln", "late.spl"}, "\nlate.spl:" + bogus_line("late.spl", 300) + "\n*** Errors found = 1\n",
       300 % 256},
      // A missing source: no file or line prefix, the first-error value -1.
      {{"-ln", "gone"}, "\ngone:\nERROR  Can't open source file - 'gone.spl'\n", 255},
      {{"-ln", "gone", "ok"}, "\ngone:\nERROR  Can't open source file - 'gone.spl'\nok:\nNo errors found\n",
       0},
  };
  for (const Case& c : cases) {
    RunResult r = tavcmp(dir.path(), c.args);
    EXPECT_EQ(r.out, c.out) << c.args[1];
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, c.status) << c.args[1];
  }
  EXPECT_FALSE(file_exists(dir / "gone.err"));
  EXPECT_FALSE(file_exists(dir / "bad.op6"));
  EXPECT_FALSE(file_exists(dir / "late.op6"));
  EXPECT_EQ(read_file(dir / "late.err"), bogus_line("late.spl", 300) + "\n");
}

TEST(DriverDiagnostics, ErrorLimit) {
  TempDir dir;
  // Errors on every other line: the recovery skip after an error ends at the next statement.
  std::vector<int> forty, fortytwo;
  for (int line = 3; forty.size() < 40; line += 2) forty.push_back(line);
  for (int line = 3; fortytwo.size() < 42; line += 2) fortytwo.push_back(line);
  write_file(dir / "forty.spl", errors_on(forty, 90));
  write_file(dir / "many.spl", errors_on(fortytwo, 90));

  std::string lines;
  for (int line : forty) lines += bogus_line("forty.spl", line);
  RunResult r = tavcmp(dir.path(), {"-ln", "forty.spl"});
  EXPECT_EQ(r.out, "\nforty.spl:" + lines + "\n*** Errors found = 40\n");
  EXPECT_EQ(r.status, 3);

  // The 41st error is still shown, then the file is abandoned: the 42nd never appears, and the
  // abort itself counts as one more error.
  lines.clear();
  for (size_t i = 0; i < 41; ++i) lines += bogus_line("many.spl", fortytwo[i]);
  lines += "\nError limit exceeded - aborting";
  r = tavcmp(dir.path(), {"-ln", "many.spl"});
  EXPECT_EQ(r.out, "\nmany.spl:" + lines + "\n*** Errors found = 42\n");
  EXPECT_EQ(r.status, 3);
  EXPECT_EQ(read_file(dir / "many.err"), lines + "\n");
  EXPECT_FALSE(file_exists(dir / "many.op6"));
}

TEST(DriverDiagnostics, NoWarningHidesWarningsAndInfos) {
  TempDir dir;
  // EXIT leaves no path to the PAUSE behind it (a warning); "other" is never used (an INFO).
  write_file(dir / "w.spl", "procedure main\n  exit\n  pause\nend\nprocedure other\n  pause\nend\n");
  write_file(dir / "we.spl", "procedure main\n  exit\n  pause\n  bogus\nend\n");
  const std::string warning = "\nw.spl, line 2: WARNING  No path to statement - 'exit'";
  const std::string info = "\nw.spl, INFO  Routine declared but not referenced - 'other'";
  struct Case {
    std::string option, file, out, listing;  // listing "" = none
    int status;
  };
  const Case cases[] = {
      {"-ln", "w.spl", "\nw.spl:" + warning + info + "\nNo errors found\n", warning + info + "\n", 0},
      {"-lni", "w.spl", "\nw.spl:" + warning + "\n", warning + "\n", 0},
      {"-lnw", "w.spl", "\nw.spl:\n", "", 0},
      {"-lnw", "we.spl", "\nwe.spl:" + bogus_line("we.spl", 4) + "\n*** Errors found = 1\n",
       bogus_line("we.spl", 4) + "\n", 4},
  };
  for (const Case& c : cases) {
    std::string err_name = dir / (c.file.substr(0, c.file.size() - 4) + ".err");
    write_file(err_name, "stale listing");  // removed before the file is compiled
    RunResult r = tavcmp(dir.path(), {c.option, c.file});
    EXPECT_EQ(r.out, c.out) << c.option << " " << c.file;
    EXPECT_EQ(r.status, c.status) << c.option << " " << c.file;
    if (c.listing.empty())
      EXPECT_FALSE(file_exists(err_name)) << c.option << " " << c.file;
    else
      EXPECT_EQ(read_file(err_name), c.listing) << c.option << " " << c.file;
  }
}

TEST(DriverDiagnostics, PrefixesOfMessageLines) {
  TempDir dir;
  fs::create_directories(dir / "sub");
  fs::create_directories(dir / "inc");
  write_file(dir / "inc/body.spl", "  pause\n  bogus\n");
  write_file(dir / "sub/inc.spl", "procedure main\n#include \"body.spl\"\n  pause\n  bogus\nend\n");
  // DO of a section that never appears is found at the end of the program: no line number.
  write_file(dir / "undef.spl", "procedure main\n  do other\nend\n");

  RunResult r = tavcmp(dir.path(), {"-lni", "-I", "./inc/../inc", "./sub/../sub/./inc.spl"});
  EXPECT_EQ(r.out, "\n./sub/../sub/./inc.spl:" + bogus_line("inc/body.spl", 2) +
                       bogus_line("sub/inc.spl", 4) + "\n*** Errors found = 2\n");
  EXPECT_EQ(r.status, 2);

  r = tavcmp(dir.path(), {"-ln", "undef.spl"});
  EXPECT_EQ(r.out, "\nundef.spl:\nundef.spl, ERROR  Screen/Procedure not defined - 'other'"
                   "\n*** Errors found = 1\n");
  EXPECT_EQ(r.status, 255);  // an error without a line number makes the first-error value -1
}

}  // namespace
