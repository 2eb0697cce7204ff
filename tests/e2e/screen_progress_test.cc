// tavcmp's progress window on a terminal (run under tmux): the frame and banner, the program
// line, page waits when the messages fill the window, the compilation summary, text in the
// terminal's character set, long messages wrapped, and the run's totals at the end.
#include <cstdio>
#include <regex>

#include "tests/e2e/driver_fixture.h"
#include "tests/support/tmux.h"

namespace {

using namespace drvtest;
using tavtest::TmuxOptions;
using tavtest::TmuxSession;

const char kPrompt[] = "Press RETURN to continue, ESC to cancel";

// The locale is set, so that what the window draws does not depend on the test's environment.
TmuxOptions screen_options(const TempDir& dir, int rows, const std::string& locale = "C") {
  TmuxOptions o;
  o.cwd = dir.path();
  o.env = {"TERM=xterm", "TAVRIN=" + tavtest::product_dir(), "LANG=" + locale, "LC_ALL=" + locale};
  o.unset = {"TAVCMPINC", "TAVLANGUAGE", "TAVLANGDIR"};
  o.rows = rows;
  return o;
}

std::vector<std::string> tavcmp_argv(std::vector<std::string> args) {
  args.insert(args.begin(), tavtest::program("tavcmp"));
  return args;
}

TEST(ScreenProgress, BannerAndSummary) {
  TAV_REQUIRE_TMUX();
  TempDir dir;
  // A SWITCH without ELSE requests the placeholder op into a list that already holds ops: it
  // adds nothing, but the request is counted.
  write_file(dir / "ok.spl", "procedure main\n  pause\n  switch on 1\n  case 1\n    pause\n  end-switch\nend\n");
  TmuxSession s;
  ASSERT_TRUE(s.start(tavcmp_argv({"-nsx", "99", "ok.spl"}), screen_options(dir, 40)));
  ASSERT_TRUE(s.wait_for(kPrompt)) << s.capture();
  std::vector<std::string> rows = s.capture_lines();
  ASSERT_GE(rows.size(), 30u);
  EXPECT_TRUE(contains(rows[0], " TAVCMP ")) << rows[0];
  EXPECT_TRUE(contains(rows[1], " TAVRIN-4GL Release 6.5 v1.5 Compiler ")) << rows[1];
  EXPECT_TRUE(contains(rows[3], " Program : ok.spl ")) << rows[3];
  // The summary starts on the first message row, at column 5 of the window.
  const std::vector<std::string> summary = {
      "COMPILATION SUMMARY", "", "No errors found", "", "Initial screen = \"main\"",
      "Elapsed time = ", "Average lines processed per minute = ", "Operations table version = 6.3",
      "", "TOTAL:", "Fields = 0", "Objects = 0", "Screens = 1", "Source Lines = 7",
      "Source Words = 12", "SIZES:", "Operations Table = ", "Data = 8"};
  for (size_t i = 0; i < summary.size(); ++i) {
    const std::string& row = rows[5 + i];
    if (summary[i].empty())
      EXPECT_EQ(row.find_first_not_of("x "), std::string::npos) << row;
    else
      EXPECT_EQ(row.find(summary[i]), 6u) << row;
  }
  EXPECT_EQ(s.capture().find("Operations table version = 6.3 ("), std::string::npos);

  s.send_keys({"Enter"});
  EXPECT_EQ(s.wait_exit(), 0);
  EXPECT_TRUE(file_exists(dir / "ok.op6"));
  // -x 99 with the summary writes the op statistics.
  std::string stats = read_file(dir / "tavcmp.out");
  EXPECT_TRUE(std::regex_match(stats, std::regex("(op=[0-9]+, cnt=[1-9][0-9]*\n)+"))) << stats;
  EXPECT_TRUE(contains(stats, "op=19, cnt=1\n")) << stats;
}

// 30 errors on a 24-row terminal: the window holds 16 message rows, so the 17th message waits
// for the operator. Enter goes on; Escape abandons the file.
TEST(ScreenProgress, PageWait) {
  TAV_REQUIRE_TMUX();
  TempDir dir;
  std::vector<int> lines;
  for (int line = 3; lines.size() < 30; line += 2) lines.push_back(line);
  write_file(dir / "bad.spl", errors_on(lines, 70));
  auto message = [](int line) {
    return "bad.spl, line " + std::to_string(line) + ": ERROR  Statement is invalid or not known - 'bogus'";
  };

  for (const char* key : {"Enter", "Escape"}) {
    TmuxSession s;
    ASSERT_TRUE(s.start(tavcmp_argv({"-n", "bad.spl"}), screen_options(dir, 24)));
    ASSERT_TRUE(s.wait_for(kPrompt)) << s.capture();
    std::string screen = s.capture();
    EXPECT_TRUE(contains(screen, " Program : bad.spl ")) << screen;
    EXPECT_TRUE(contains(screen, message(lines[0]))) << screen;
    EXPECT_TRUE(contains(screen, message(lines[15]))) << screen;
    EXPECT_FALSE(contains(screen, message(lines[16]))) << screen;

    s.send_keys({key});
    if (std::string(key) == "Enter") {
      ASSERT_TRUE(s.wait_for(message(lines[29]))) << s.capture();
      screen = s.capture();
      EXPECT_TRUE(contains(screen, message(lines[16]))) << screen;
      EXPECT_FALSE(contains(screen, message(lines[15]))) << screen;  // the page was cleared
    } else {
      ASSERT_TRUE(s.wait_for(kPrompt)) << s.capture();
      EXPECT_FALSE(contains(s.capture(), message(lines[16]))) << s.capture();
    }
    s.send_keys({"Enter"});
    EXPECT_EQ(s.wait_exit(), lines[0]) << key;
    EXPECT_FALSE(file_exists(dir / "bad.op6"));
  }
}

// After a file with errors the operator acknowledges its messages before the next file starts;
// cancelling there ends the run with status 0 and compiles nothing more.
TEST(ScreenProgress, WaitBetweenFiles) {
  TAV_REQUIRE_TMUX();
  TempDir dir;
  write_file(dir / "bad.spl", errors_on({3}, 5));
  write_file(dir / "ok.spl", kClean);
  for (const char* key : {"Enter", "Escape"}) {
    const bool go_on = std::string(key) == "Enter";
    std::remove((dir / "ok.op6").c_str());
    TmuxSession s;
    ASSERT_TRUE(s.start(tavcmp_argv({"-n", "bad.spl", "ok.spl"}), screen_options(dir, 24)));
    ASSERT_TRUE(s.wait_for(kPrompt)) << s.capture();
    EXPECT_TRUE(contains(s.capture(), " Program : bad.spl ")) << s.capture();
    s.send_keys({key});
    if (go_on) {
      ASSERT_TRUE(s.wait_for("Program : ok.spl")) << s.capture();
      EXPECT_FALSE(contains(s.capture(), "bad.spl, line 3")) << s.capture();
      ASSERT_TRUE(s.wait_for(kPrompt)) << s.capture();
    }
    s.send_keys({"Enter"});
    EXPECT_EQ(s.wait_exit(), 0) << key;
    EXPECT_EQ(file_exists(dir / "ok.op6"), go_on) << key;
  }
}

// A UTF-8 program on a 50-column terminal: the accented word shows as itself, and a message
// longer than the window goes on on the next row (the listing keeps it on one line). Seven
// two-row messages on 13 message rows: the last one reaches the bottom in the middle, waits
// there, and goes on at the top of the next page.
TEST(ScreenProgress, Utf8TextAndWrappedMessages) {
  TAV_REQUIRE_TMUX();
  TempDir dir;
  const std::string word = "caf\xc3\xa9" "cr\xc3\xa8" "me";  // in UTF-8
  std::string source = "procedure main\n  pause\n  " + word + "\n";
  for (int i = 0; i < 6; ++i) source += "  pause\n  bogus\n";  // errors on lines 5 to 15
  write_file(dir / "acc.spl", source + "end\n");
  TmuxOptions options = screen_options(dir, 21, "C.UTF-8");
  options.cols = 50;
  TmuxSession s;
  ASSERT_TRUE(s.start(tavcmp_argv({"-n", "acc.spl"}), options));
  ASSERT_TRUE(s.wait_for(kPrompt)) << s.capture();

  std::vector<std::string> rows = s.capture_lines();
  ASSERT_GE(rows.size(), 20u);
  // Window rows 4 and 5 (screen rows 5 and 6): the message broken at its last space that fits.
  EXPECT_TRUE(contains(rows[5], "acc.spl, line 3: ERROR  Statement is invalid or")) << s.capture();
  EXPECT_TRUE(contains(rows[6], " not known - '" + word + "' ")) << s.capture();
  // The seventh message fills the last message row and waits there for the rest.
  EXPECT_TRUE(contains(rows[17], "acc.spl, line 15: ERROR  Statement is invalid ")) << s.capture();
  EXPECT_TRUE(contains(rows[18], kPrompt)) << s.capture();

  s.send_keys({"Enter"});
  // The final prompt, clipped at this width.
  ASSERT_TRUE(s.wait_for("Files = 1, Errors found = 7 - ")) << s.capture();
  rows = s.capture_lines();
  EXPECT_TRUE(contains(rows[5], " or not known - 'bogus' ")) << s.capture();
  EXPECT_FALSE(contains(s.capture(), "line 15")) << s.capture();
  s.send_keys({"Enter"});
  EXPECT_EQ(s.wait_exit(), 3);
  EXPECT_TRUE(contains(read_file(dir / "acc.err"),
                       "\nacc.spl, line 3: ERROR  Statement is invalid or not known - '" + word + "'\n"));
}

// The last acknowledgement of a run counts its files and sums their errors, whichever file
// had them.
TEST(ScreenProgress, RunTotalsInTheLastPrompt) {
  TAV_REQUIRE_TMUX();
  TempDir dir;
  write_file(dir / "bad.spl", errors_on({3, 5}, 8));
  write_file(dir / "ok.spl", kClean);
  const std::string totals = std::string("Files = 2, Errors found = 2 - ") + kPrompt;
  for (const bool bad_first : {true, false}) {
    TmuxSession s;
    ASSERT_TRUE(s.start(tavcmp_argv({"-n", bad_first ? "bad.spl" : "ok.spl", bad_first ? "ok.spl" : "bad.spl"}),
                        screen_options(dir, 24)));
    if (bad_first) {
      // The wait between the files shows the plain prompt.
      ASSERT_TRUE(s.wait_for(kPrompt)) << s.capture();
      EXPECT_FALSE(contains(s.capture(), "Files =")) << s.capture();
      s.send_keys({"Enter"});
    }
    ASSERT_TRUE(s.wait_for(totals)) << bad_first << "\n" << s.capture();
    s.send_keys({"Enter"});
    EXPECT_EQ(s.wait_exit(), bad_first ? 0 : 3);
  }
}

}  // namespace
