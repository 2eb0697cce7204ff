// Whole runs of the preprocessor on files: includes, conditionals, markers and errors.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

#include "source.h"
#include "tavpp.h"
#include "tests/support/support.h"

namespace tav::pp {
namespace {

using tavtest::read_file;
using tavtest::write_file;

struct Outcome {
  int status;
  std::string out;      // the output file, "" when none was left
  std::string listing;  // the message listing, "" when none was written
};

class TavppRun : public ::testing::Test {
 protected:
  Outcome run(const std::string& main_text, std::vector<std::string> dirs = {},
          std::vector<std::pair<std::string, std::string>> defines = {}) {
    write_file(dir_ / "main.spl", main_text);
    Options o;
    o.source = dir_ / "main.spl";
    o.output = dir_ / "main.out";
    o.listing = dir_ / "main.err";
    o.include_dirs = std::move(dirs);
    o.defines = std::move(defines);
    Outcome r{run_tavpp(o), "", ""};
    if (tavtest::file_exists(o.output)) r.out = read_file(o.output);
    if (tavtest::file_exists(o.listing)) r.listing = read_file(o.listing);
    // Nothing but the files written by the test and the outputs: no temporary is left.
    for (const std::string& name : tavtest::list_dir(dir_.path()))
      EXPECT_TRUE(name.ends_with(".spl") || name == "main.out" || name == "main.err" ||
                  name == "inc")
          << name;
    return r;
  }
  // The program lines of the output (markers dropped).
  static std::string text_of(const std::string& out) {
    std::string text;
    std::size_t i = 0;
    while (i < out.size()) {
      std::size_t e = out.find('\n', i);
      if (out[i] != '#') text += out.substr(i, e - i) + "|";
      i = e + 1;
    }
    return text;
  }
  std::string p(const std::string& name) { return dir_ / name; }

  tavtest::TempDir dir_;
};

TEST_F(TavppRun, Conditionals) {
  struct Case {
    const char* in;
    const char* text;
  } cases[] = {
      {"#if R >= 65\na\n#elif 1\nb\n#else\nc\n#endif\n", "a|"},
      {"#if R > 65\na\n#elif defined R && !defined(NOPE)\nb\n#else\nc\n#endif\n", "b|"},
      {"#if 0\na\n#elif 0\nb\n#else\nc\n#endif\n", "c|"},
      {"#ifdef R\na\n#endif\n#ifndef R\nb\n#else\nc\n#endif\n", "a|c|"},
      // inside a skipped block only conditionals count: no errors, nesting kept
      {"#if 0\n#error no\n#bogus\n#include \"none\"\n#if 1\nx\n#else\ny\n#endif\n#endif\nz\n",
       "z|"},
      {"#if 1\n#elif 1/0\n#endif\n", ""},  // a branch was taken: not evaluated
      {"#define X 1\n#undef X\n#ifdef X\na\n#endif\n#  define  Y  2 // c\n#if Y == 2\nb\n#endif\n",
       "b|"},
  };
  for (const Case& c : cases) {
    Outcome r = run(c.in, {}, {{"R", "65"}});
    EXPECT_EQ(r.status, 0) << c.in << r.listing;
    EXPECT_EQ(text_of(r.out), c.text) << c.in;
  }
}

TEST_F(TavppRun, IncludesAndMarkers) {
  std::filesystem::create_directory(p("inc"));
  write_file(p("inc/deep.spl"), "deep\n#include \"sib.spl\"\n");
  write_file(p("inc/sib.spl"), "sib");  // found beside deep.spl, no final newline
  write_file(p("top.spl"), "#define T 7\ntop T\n");
  Outcome r = run("#include \"top.spl\"\nm1\n#include <deep.spl>\n\n#if 0\nx\n#endif\nm8\n",
              {p("inc")});
  ASSERT_EQ(r.status, 0) << r.listing;
  EXPECT_EQ(r.out, "# 1 " + p("main.spl") + "\n# 2 " + p("top.spl") + "\ntop 7\n# 2 " +
                       p("main.spl") + "\nm1\n# 1 " + p("inc/deep.spl") + "\ndeep\n# 1 " +
                       p("inc/sib.spl") + "\nsib\n# 4 " + p("main.spl") + "\n\n# 8 " +
                       p("main.spl") + "\nm8\n");
}

TEST_F(TavppRun, ErrorsGoToListingAndLeaveNoOutput) {
  write_file(p("loop.spl"), "#include \"loop.spl\"\n#include \"loop.spl\"\n");
  struct Case {
    const char* in;
    std::string listing;
  } cases[] = {
      {"ok\n#include \"missing.spl\"\n#error stop here // why\n",
       "\n" + p("main.spl") + ", line 2: ERROR  Can't open include file - 'missing.spl'\n" +
           p("main.spl") + ", line 3: ERROR  #error - 'stop here'\n"},
      {"#include \"loop.spl\"\n",
       "\n" + p("loop.spl") + ", line 1: ERROR  Include files nested too deeply - 'loop.spl'\n"},
      {"#if 1\n#else\n#else\n#elif 1\n#endif\n#endif\n#elif\n#if 1\n",
       "\n" + p("main.spl") + ", line 3: ERROR  #else after #else\n" + p("main.spl") +
           ", line 4: ERROR  #elif after #else\n" + p("main.spl") +
           ", line 6: ERROR  #endif without #if\n" + p("main.spl") +
           ", line 7: ERROR  #elif without #if\n" + p("main.spl") +
           ", line 8: ERROR  #if without #endif\n"},
      {"#define\n#define 1\n#undef A B\n#ifdef\n#endif\n#if 1 +\n#endif\n#incl\n#include x\n"
       "F(1\n#define F(a) a\nF(1\n",
       "\n" + p("main.spl") + ", line 1: ERROR  Invalid #define\n" + p("main.spl") +
           ", line 2: ERROR  Invalid #define - '1'\n" + p("main.spl") +
           ", line 3: ERROR  Macro name expected - 'A B'\n" + p("main.spl") +
           ", line 4: ERROR  Macro name expected\n" + p("main.spl") +
           ", line 6: ERROR  Invalid #if expression - '1 +'\n" + p("main.spl") +
           ", line 8: ERROR  Unknown directive - '#incl'\n" + p("main.spl") +
           ", line 9: ERROR  Invalid #include - 'x'\n" + p("main.spl") +
           ", line 12: ERROR  Unterminated macro call - 'F'\n"},
  };
  for (const Case& c : cases) {
    std::remove(p("main.err").c_str());
    write_file(p("main.out"), "stale");
    Outcome r = run(c.in);
    EXPECT_EQ(r.status, 1) << c.in;
    EXPECT_EQ(r.out, "") << c.in;
    EXPECT_EQ(r.listing, c.listing) << c.in;
  }
}

TEST_F(TavppRun, ErrorLimitStopsTheRun) {
  std::string many;
  for (int i = 0; i < 100; ++i) many += "#error e\n";
  Outcome r = run(many);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.listing.find("line 40: ERROR  Too many errors - preprocessing stopped\n"),
            std::string::npos);
  EXPECT_EQ(r.listing.find("line 41:"), std::string::npos);
}

// A line of 4 MiB or more is said to be too long, not blamed on a macro it does not have; the
// longest line allowed passes unchanged.
TEST_F(TavppRun, LongLines) {
  const std::string longest(LineReader::kMaxLine, 'x');
  Outcome r = run("a\n" + longest + "\nb\n");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.size(), ("# 1 " + p("main.spl") + "\na\n" + longest + "\nb\n").size());

  r = run("a\n" + longest + "x\n" + longest + "yz");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.listing, "\n" + p("main.spl") + ", line 2: ERROR  Line too long - 'more than 4194303 bytes'\n" +
                           p("main.spl") + ", line 3: ERROR  Line too long - 'more than 4194303 bytes'\n");
}

TEST_F(TavppRun, GarbageDoesNotCrash) {
  std::string junk;
  std::uint32_t seed = 12345;
  const std::string pieces[] = {"#if ", "#define F(a) F(a) a a\n", "F(F(", "'", "\"", "\n",
                                "#include \"main.spl\"\n", "#endif\n", "(", ")", ",",
                                std::string(1, '\0'), "\xff", "#", "-", "//", "MAX", "#else\n"};
  for (int i = 0; i < 20000; ++i) {
    seed = seed * 1103515245u + 12345u;
    junk += pieces[(seed >> 16) % std::size(pieces)];
  }
  Outcome r = run(junk);
  EXPECT_TRUE(r.status == 0 || r.status == 1);
  if (r.status == 1) {
    EXPECT_EQ(r.out, "");
  }
}

}  // namespace
}  // namespace tav::pp
