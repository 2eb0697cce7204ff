// tavpp's output for the compiler's modern diagnostics: the include chain in the output
// (--include-chain) and the message records (--message-records) read back by the driver's reader.
#include <gtest/gtest.h>

#include <filesystem>

#include "driver/pp_records.h"
#include "tests/support/support.h"

namespace {

using tavtest::file_exists;
using tavtest::read_file;
using tavtest::write_file;

tavtest::RunResult tavpp(const tavtest::TempDir& dir, std::vector<std::string> args) {
  args.insert(args.begin(), tavtest::program("tavpp"));
  tavtest::RunOptions options;
  options.cwd = dir.path();
  return tavtest::run(args, options);
}

// Nested includes, an include that gives no program line, one in a skipped block, one that
// cannot be opened: "#>" and "#<" pair up around every include entered, whatever it writes, and
// the compiler always knows which file an "#>" is in.
TEST(TavppIncludeChain, EveryIncludeEnteredIsBracketed) {
  tavtest::TempDir dir;
  std::filesystem::create_directory(dir / "inc");
  write_file(dir / "prog.spl",
             "first\n"
             "#include \"outer.inc\"\n"
             "#include \"defs.inc\"\n"
             "#if 0\n"
             "#include \"skipped.inc\"\n"
             "#endif\n"
             "last\n");
  write_file(dir / "inc/outer.inc", "#include \"inner.inc\"\nouter\n");
  write_file(dir / "inc/inner.inc", "inner\n");
  write_file(dir / "inc/defs.inc", "#define X 1\n// only a comment after\n#define Y 2\n");
  write_file(dir / "inc/skipped.inc", "never\n");
  const std::string plain = "# 1 prog.spl\nfirst\n# 1 inc/inner.inc\ninner\n# 2 inc/outer.inc\nouter\n"
                            "# 2 inc/defs.inc\n// only a comment after\n# 7 prog.spl\nlast\n";

  auto r = tavpp(dir, {"-Iinc", "--include-chain", "prog.spl", "chain.pp"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(read_file(dir / "chain.pp"),
            "# 1 prog.spl\n"
            "first\n"
            "#> 2\n"
            "# 2 inc/outer.inc\n"  // outer.inc includes inner.inc before a line of its own
            "#> 1\n"
            "# 1 inc/inner.inc\n"
            "inner\n"
            "#<\n"
            "# 2 inc/outer.inc\n"
            "outer\n"
            "#<\n"
            "# 4 prog.spl\n"  // the last marker named outer.inc: this "#>" is prog.spl's
            "#> 3\n"
            "# 2 inc/defs.inc\n"
            "// only a comment after\n"
            "#<\n"
            "# 7 prog.spl\n"
            "last\n");

  // An include with no program line at all still opens and closes its chain.
  write_file(dir / "inc/defs.inc", "#define X 1\n");
  r = tavpp(dir, {"-Iinc", "--include-chain", "prog.spl", "chain.pp"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(read_file(dir / "chain.pp").ends_with("#<\n# 4 prog.spl\n#> 3\n#<\n# 7 prog.spl\nlast\n"))
      << read_file(dir / "chain.pp");

  // Without the option the output is what it always was.
  write_file(dir / "inc/defs.inc", "#define X 1\n// only a comment after\n#define Y 2\n");
  r = tavpp(dir, {"-Iinc", "prog.spl", "plain.pp"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(read_file(dir / "plain.pp"), plain);
}

// A message in an included file carries its chain; the columns are those of the text the
// message is about, in characters; the reader gives the diagnostics the compiler shows.
TEST(TavppRecords, MessagesWithPlacesAndChains) {
  tavtest::TempDir dir;
  write_file(dir / "prog.spl",
             "// prog\n"
             "#include \"inc.spl\"\n"
             "#  include   nope.spl\n"
             "   x = \xc3\xa9t\xc3\xa9 + F(1, 2)\n"
             "y = G(1)\n");
  write_file(dir / "inc.spl", "#define F(a) a\n#define G(a) F(a, a)\n#bogus\n#include \"gone.spl\"\n");
  write_file(dir / "prog.err", "earlier");
  const std::string listing =
      "earlier\n"
      "inc.spl, line 3: ERROR  Unknown directive - '#bogus'\n"
      "inc.spl, line 4: ERROR  Can't open include file - 'gone.spl'\n"
      "prog.spl, line 3: ERROR  Invalid #include - 'nope.spl'\n"
      "prog.spl, line 4: ERROR  Wrong number of macro arguments - 'F'\n"
      "prog.spl, line 5: ERROR  Wrong number of macro arguments - 'F'\n";
  auto r = tavpp(dir, {"-oprog.err", "--message-records=prog.rec", "prog.spl", "prog.pp"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out + r.err, "");
  EXPECT_EQ(read_file(dir / "prog.err"), listing) << "the listing is as without records";
  EXPECT_EQ(read_file(dir / "prog.rec"),
            "3\t1\tunknown_directive\tinc.spl\t#bogus\t2\tprog.spl\n"
            "4\t11\tcant_open_include\tinc.spl\tgone.spl\t2\tprog.spl\n"
            "3\t14\tbad_include\tprog.spl\tnope.spl\n"
            "4\t14\tmacro_arg_count\tprog.spl\tF\n"
            "5\t0\tmacro_arg_count\tprog.spl\tF\n");  // inside G's replacement: no text of the line

  const std::vector<tav::Diagnostic> d = tav::read_pp_records(dir / "prog.rec");
  ASSERT_EQ(d.size(), 5u);
  EXPECT_EQ(d[0].code, "pp_unknown_directive");
  EXPECT_EQ(d[0].message, "Unknown directive");
  EXPECT_EQ(d[0].context, "#bogus");
  EXPECT_EQ(d[0].severity, tav::Severity::error);
  EXPECT_TRUE(d[0].from_preprocessor);
  EXPECT_EQ(d[0].classic_file, "inc.spl");
  EXPECT_EQ(d[0].classic_line, 3);
  EXPECT_EQ(d[0].where, (tav::SourceRange{"inc.spl", 3, 1, 2}));
  ASSERT_EQ(d[0].notes.size(), 1u);
  EXPECT_EQ(d[0].notes[0].message, "in file included from prog.spl:2");
  EXPECT_EQ(d[0].notes[0].where, (tav::SourceRange{"prog.spl", 2, 1, 2}));
  EXPECT_EQ(d[1].where, (tav::SourceRange{"inc.spl", 4, 11, 19}));
  EXPECT_EQ(d[2].where, (tav::SourceRange{"prog.spl", 3, 14, 22}));
  EXPECT_TRUE(d[2].notes.empty());
  EXPECT_EQ(d[3].where, (tav::SourceRange{"prog.spl", 4, 14, 15}));
  EXPECT_EQ(d[4].where, (tav::SourceRange{"prog.spl", 5, 0, 0}));

  // A run without messages leaves an empty record file, not the old one.
  write_file(dir / "prog.spl", "ok\n");
  r = tavpp(dir, {"-oprog.err", "--message-records=prog.rec", "prog.spl", "prog.pp"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(read_file(dir / "prog.rec"), "");
}

// Names with a tab, a newline or a backslash, two levels deep, and a message without a place:
// escaped in the records as in the line markers, and read back exactly.
TEST(TavppRecords, OddNamesRoundTrip) {
  tavtest::TempDir dir;
  const std::string main = "main\nfile.spl", odd = "tab\there\\and.spl";
  write_file(dir / main, "#include \"" + odd + "\"\n");
  write_file(dir / odd, "\n#include \"deep.spl\"\n");
  write_file(dir / "deep.spl", "#error stop\there\n");
  auto r = tavpp(dir, {"--message-records=r.rec", main, "main.pp"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(read_file(dir / "r.rec"),
            "1\t1\terror_directive\tdeep.spl\tstop\\there\t2\ttab\\there\\\\and.spl\t1\tmain\\nfile.spl\n");
  std::vector<tav::Diagnostic> d = tav::read_pp_records(dir / "r.rec");
  ASSERT_EQ(d.size(), 1u);
  EXPECT_EQ(d[0].context, "stop\there");
  ASSERT_EQ(d[0].notes.size(), 2u);
  EXPECT_EQ(d[0].notes[0].message, "in file included from " + odd + ":2");
  EXPECT_EQ(d[0].notes[0].where.file, odd);
  EXPECT_EQ(d[0].notes[1].message, "in file included from " + main + ":1");

  // A source that cannot be opened: no file, no line.
  r = tavpp(dir, {"--message-records=r.rec", "none.spl", "none.pp"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(read_file(dir / "r.rec"), "0\t0\tcant_open_source\t\tnone.spl\n");
  d = tav::read_pp_records(dir / "r.rec");
  ASSERT_EQ(d.size(), 1u);
  EXPECT_FALSE(d[0].where.known());
  EXPECT_EQ(d[0].message, "Can't open source file");

  // A record file that cannot be written: said on standard error, the run goes on as without it.
  std::filesystem::create_directory(dir / "taken");
  r = tavpp(dir, {"--message-records=taken", main, "main.pp"});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(r.err.starts_with("tavpp: cannot write the message records 'taken': ")) << r.err;
  EXPECT_TRUE(r.err.ends_with("deep.spl, line 1: ERROR  #error - 'stop\there'\n")) << r.err;
}

// The reader takes the file as untrusted: a record tavpp would not write is left out, the others
// are kept; an id it does not know keeps its name; a record cut short is not read.
TEST(PpRecordsReader, DamagedRecordsAreLeftOut) {
  const std::string good = "2\t3\tbad_define\tp.spl\tX-Y\n";
  const std::vector<std::string> damaged = {
      "2\t3\tbad_define\tp.spl\n",                 // a field missing
      "2\t3\tbad_define\tp.spl\tX\t4\n",           // half an include pair
      "-2\t3\tbad_define\tp.spl\tX\n",             // not a number
      "2\t99999999999\tbad_define\tp.spl\tX\n",    // too big a number
      "2\t3\tbad define\tp.spl\tX\n",              // not an id
      "2\t3\tbad_define\tp\\q.spl\tX\n",           // an escape tavpp never writes
      "2\t3\tbad_define\tp.spl\tX\\\n",            // a backslash at the end
      "2\t3\tbad_define\tp.spl\tX\\47\n",          // an octal escape cut short
      "2\t3\tbad_define\tp.spl\tX\\400\n",         // above a byte
  };
  std::string text;
  for (const std::string& bad : damaged) text += bad + good;
  text += "9\t0\tnew_message\tp.spl\t\n";
  text += "7\t1\tbad_define\tp.spl\tcut";  // no newline: cut short
  const std::vector<tav::Diagnostic> d = tav::parse_pp_records(text);
  ASSERT_EQ(d.size(), damaged.size() + 1);
  for (std::size_t i = 0; i < damaged.size(); ++i) {
    EXPECT_EQ(d[i].code, "pp_bad_define");
    EXPECT_EQ(d[i].where, (tav::SourceRange{"p.spl", 2, 3, 4})) << "not a token context: one character";
  }
  EXPECT_EQ(d.back().code, "pp_new_message");
  EXPECT_EQ(d.back().message, "preprocessor message");

  // What is not a regular file is not read (a FIFO would never end).
  tavtest::TempDir dir;
  EXPECT_TRUE(tav::read_pp_records(dir.path()).empty());
  EXPECT_TRUE(tav::read_pp_records(dir / "missing.rec").empty());
}

}  // namespace
