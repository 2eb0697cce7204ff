// The reporters: message lines and their prefixes and contexts, error counting, the first-error
// value, the listing file and the texts of I/O status codes. (The error limit and -w/-i are
// covered by the end-to-end tests of tavcmp.)
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "diag/diag.h"
#include "diag/display.h"
#include "tests/support/support.h"

namespace tav {
namespace {

using tavtest::file_exists;
using tavtest::read_file;

// A token stream standing still at a chosen place.
struct FakeSource : DiagSource {
  std::string file = "prog.spl";
  int line = 7;
  std::string token = "current";
  bool held = false;
  std::string prev = "previous";
  int prev_line = 6;

  std::string_view diag_file_name() const override { return file; }
  int diag_line() const override { return line; }
  std::string_view diag_token_text() const override { return token; }
  bool diag_token_held() const override { return held; }
  std::string_view diag_prev_text() const override { return prev; }
  int diag_prev_line() const override { return prev_line; }
};

class Reporters : public ::testing::Test {
 protected:
  void SetUp() override {
    diag.set_source(&source);
    diag.start_file();
    diag.set_listing(listing);
    testing::internal::CaptureStdout();  // plain mode prints every line
  }
  // Closes the listing and returns it; the standard output must have carried the same lines.
  std::string finish() {
    std::string out = testing::internal::GetCapturedStdout();
    diag.close_listing();
    std::string text = file_exists(listing) ? read_file(listing) : "";
    EXPECT_EQ(out + (out.empty() ? "" : "\n"), text);
    return text;
  }

  tavtest::TempDir dir;
  std::string listing = dir / "prog.err";
  FakeSource source;
  Display display;  // never opened: plain output
  Diagnostics diag{display, false, false};
};

TEST_F(Reporters, ContextsAndPrefixes) {
  EXPECT_EQ(diag.error(msg::statement_invalid_not_known), -1);  // kind 1: the current token
  source.held = true;                                 // held back: the previous token and line
  diag.error(msg::statement_invalid_not_known);
  diag.set_name("a-name-much-longer-than-thirty-characters");
  diag.error(msg::field_not_defined);  // kind 2: the name buffer, whatever the token state
  source.held = false;
  EXPECT_EQ(diag.raise(Severity::warning, "Plain text", ""), 0);  // an empty context shows nothing
  EXPECT_EQ(diag.raise(Severity::info, "Given", "ctx"), 0);
  source.line = 0;
  source.file = "./sub/../inc\\defs.spl";
  diag.raise(Severity::error, "No line", {});
  source.file = "../up/./x.spl";
  diag.error_with(msg::syntax_error, "given");
  diag.set_source(nullptr);
  diag.raise(Severity::error, "Nowhere", "x");
  EXPECT_EQ(finish(),
            "\nprog.spl, line 7: ERROR  Statement is invalid or not known - 'current'"
            "\nprog.spl, line 6: ERROR  Statement is invalid or not known - 'previous'"
            "\nprog.spl, line 7: ERROR  Field not defined - 'a-name-much-longer-than-thirty'"
            "\nprog.spl, line 7: WARNING  Plain text"
            "\nprog.spl, line 7: INFO  Given - 'ctx'"
            "\ninc/defs.spl, ERROR  No line"
            "\n../up/x.spl, ERROR  Syntax error - 'given'"
            "\nERROR  Nowhere - 'x'\n");
  EXPECT_EQ(diag.error_count(), 6);
  EXPECT_EQ(diag.first_error(), 7);
}

TEST_F(Reporters, AContextKeepsTheLineOfItsWord) {
  source.held = true;  // the statement after the one at fault has been read
  source.line = 9;
  diag.raise(Severity::error, "Kept", Context::at_line("word", 4));
  diag.raise(Severity::warning, "Current", "word");
  EXPECT_EQ(finish(), "\nprog.spl, line 4: ERROR  Kept - 'word'\nprog.spl, line 9: WARNING  Current - 'word'\n");
  EXPECT_EQ(diag.first_error(), 4);
}

TEST(MessageTexts, ValuesFillTheirPlaces) {
  EXPECT_EQ(format_text(txt::verb_table_out_of_order, {"abc"}), "VERB TABLE OUT OF ORDER AT 'abc'");
  EXPECT_EQ(format_text(txt::cant_link_table, {"tavcmp", "a.tmp", "a.op6"}),
            "tavcmp: can't link 'a.tmp' to 'a.op6' (errno=%s)");  // a missing value leaves its mark
}

TEST_F(Reporters, LongLinesAreCut) {
  diag.raise(Severity::error, "Long", std::string(600, 'x'));
  EXPECT_EQ(finish().size(), 1 + 511 + 1u);
}

TEST_F(Reporters, FirstErrorValue) {
  source.line = 0;
  diag.raise(Severity::warning, "not an error", {});
  EXPECT_EQ(diag.first_error(), 0);
  diag.raise(Severity::error, "at the end", {});  // no line number: -1
  EXPECT_EQ(diag.first_error(), -1);
  source.line = 12;
  diag.raise(Severity::error, "later", {});  // only the first error counts
  EXPECT_EQ(diag.first_error(), -1);

  diag.start_file();
  diag.raise(Severity::error, "first", {});
  source.line = 20;
  diag.raise(Severity::error, "second", {});
  EXPECT_EQ(diag.first_error(), 12);
  // FATAL turns it into -1 and abandons the file; it counts once and the abort once more.
  EXPECT_THROW(diag.fatal(msg::too_many_nested_procedures), FileAbort);
  EXPECT_EQ(diag.first_error(), -1);
  EXPECT_EQ(diag.error_count(), 4);
  EXPECT_TRUE(finish().ends_with("\nprog.spl, line 20: FATAL  Too many nested procedures - 'current'\n"));
}

TEST_F(Reporters, ListingOnlyWhenWritten) {
  diag.set_suppression(true, true);
  diag.raise(Severity::warning, "hidden", {});
  EXPECT_EQ(finish(), "");
  EXPECT_FALSE(file_exists(listing));
  // An unusable listing is skipped silently; the display still shows the line.
  diag.set_listing(dir / "missing/prog.err");
  testing::internal::CaptureStdout();
  diag.raise(Severity::error, "E", {});
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "\nprog.spl, line 7: ERROR  E");
}

TEST(IoErrorText, CodeRanges) {
  struct Case {
    int code;
    std::string text;
  };
  const Case cases[] = {
      {10000, "TAVRIN error 10000 - Change of index in sequential read"},
      {10011, "TAVRIN error 10011 - Record contents changed by another process"},
      {100, "C-ISAM error 100 - Duplicate record"}, {105, "C-ISAM error 105 - File definition incorrect or corrupt"},
      {ENOENT, "System error 2 - " + std::string(std::strerror(ENOENT))}, {0, "error = 0"}, {-5, "error = -5"},
      {10012, "error = 10012"}, {99999, "error = 99999"},
  };
  for (const Case& c : cases) EXPECT_EQ(Diagnostics::io_error_text(c.code), c.text) << c.code;
  errno = EACCES;  // -1 stands for the last system error
  EXPECT_EQ(Diagnostics::io_error_text(-1), "System error 13 - " + std::string(std::strerror(EACCES)));
  errno = 0;
  EXPECT_EQ(Diagnostics::io_error_text(-1), "error = -1");
}

}  // namespace
}  // namespace tav
