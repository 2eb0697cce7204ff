// tavcmp's progress window on a terminal (run under tmux): the frame and banner, the program
// line, page waits when the messages fill the window, and the compilation summary.
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
  write_file(dir / "ok.spl", kClean);
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
      "", "TOTAL:", "Fields = 0", "Objects = 0", "Screens = 1", "Source Lines = 3",
      "Source Words = 5", "SIZES:", "Operations Table = ", "Data = 8"};
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

}  // namespace
