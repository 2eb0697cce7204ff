#include "symbols/clauses.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/unit/compiler_fixture.h"

namespace tav {
namespace {

// A statement with three clauses: AUTO (repeatable, not after PROMPT), PROMPT text (once, not
// after AUTO) and HIDDEN (once), recording the words it was handed.
struct Seen {
  ParserCore& p;
  std::string log;
  bool wide = false;  // a statement where PAUSE and WIDE are clauses
};

bool wide_only(const Seen& s) { return s.wide; }

ClauseStep note(Seen& s, const char* what) {
  s.log += what;
  return ClauseStep::next;
}

ClauseStep prompt(Seen& s) {
  if (s.p.next() != kClassAlpha) {
    s.p.fail(msg::alpha_literal_expected);
    return ClauseStep::done;
  }
  s.log += "prompt(" + std::string(s.p.text()) + ")";
  return ClauseStep::next;
}

ClauseStep other(Seen& s) {
  s.log += "?" + std::string(s.p.text());
  return skip_invalid_clause(s.p);
}

constexpr ClauseRow<Seen> kRows[] = {
    {verb("auto"), Given::repeatable, {verb("prompt")}, [](Seen& s) { return note(s, "auto "); }},
    {verb("prompt"), Given::once, {verb("auto")}, prompt},
    {verb("hidden"), Given::once, {}, [](Seen& s) { return note(s, "hidden "); }},
    {verb("pause"), Given::once, {}, [](Seen& s) { return note(s, "pause "); }, wide_only},
    {verb("width"), Given::repeatable, {}, [](Seen& s) { return note(s, "width "); }, wide_only},
};

class ClausesTest : public ::testing::Test, public tavtest::CompilerFixture {
 protected:
  // Reads the clauses of `text`: what the handlers were handed, then a word per message.
  std::string read(const std::string& text, bool wide = false) {
    const size_t before = listing().size();
    open(text);
    Seen s{p, "", wide};
    read_clauses(p, kRows, s, other);
    held = p.cls();
    std::string out = s.log + "|";
    const std::string added = listing().substr(before);
    for (size_t at = added.find("ERROR"); at != std::string::npos; at = added.find("ERROR", at + 1))
      out += added.compare(at + 7, 9, "Duplicate") == 0 ? "dup " : added.compare(at + 7, 7, "Invalid") == 0 ? "invalid " : "other ";
    return out;
  }
  uint32_t held = 0;
};

TEST_F(ClausesTest, GivenTwiceAndExcludedClausesAreReportedOnce) {
  EXPECT_EQ(read("auto auto hidden\n"), "auto auto hidden |");
  EXPECT_EQ(diag.error_count(), 0);
  // The handler still runs after the report, so the statement reads on.
  EXPECT_EQ(read("hidden hidden pause\n"), "hidden hidden |dup ");
  EXPECT_EQ(diag.error_count(), 1);
  EXPECT_EQ(held, verb("pause"));  // the next statement stays held
}

TEST_F(ClausesTest, ExclusionIsOneWay) {
  EXPECT_EQ(read("prompt \"x\" auto\n"), "prompt(x)auto |dup ");
  // A clause given twice after one it excludes is still one message.
  EXPECT_EQ(read("auto prompt \"x\" prompt \"y\"\n"), "auto prompt(x)prompt(y)|dup dup ");
}

TEST_F(ClausesTest, UnknownWordsAndStoppingHandlers) {
  // An unknown word goes to the statement's handler; skipping passes over the words up to the
  // next clause word together with it.
  EXPECT_EQ(read("bogus 1 2 hidden auto\n"), "?bogusauto |invalid ");
  // A handler that gives up ends the reading at the next statement.
  EXPECT_EQ(read("prompt 5 hidden\npause\n"), "|other ");
  EXPECT_EQ(held, verb("pause"));
}

TEST_F(ClausesTest, ClausesOfSomeStatementsOnly) {
  // Elsewhere such a clause is reported as a conflict, once with any other, and still read.
  EXPECT_EQ(read("width width hidden\n", true), "width width hidden |");
  EXPECT_EQ(read("width hidden hidden width\n"), "width hidden hidden width |dup dup dup ");
  // A statement word is the clause where it is valid, and the next statement elsewhere.
  EXPECT_EQ(read("hidden pause pause\n", true), "hidden pause pause |dup ");
  EXPECT_EQ(read("hidden pause\n"), "hidden |");
  EXPECT_EQ(held, verb("pause"));
}

}  // namespace
}  // namespace tav
