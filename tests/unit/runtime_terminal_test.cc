#include "runtime/terminal.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <thread>

#include "tests/support/support.h"
#include "tests/support/tmux.h"

namespace {

using namespace std::chrono_literals;

constexpr int kRows = 24;
constexpr int kCols = 80;

// Starts term_demo on a kRows x kCols terminal and waits for its window.
void start_demo(tavtest::TmuxSession& session) {
  tavtest::TmuxOptions options;
  options.rows = kRows;
  options.cols = kCols;
  options.env = {"LC_ALL=C"};  // one byte per column, the frame drawn in ASCII stand-ins
  ASSERT_TRUE(session.start({TERM_DEMO}, options));
  ASSERT_TRUE(session.wait_for("Press RETURN")) << session.capture();
}

TEST(Terminal, WindowShowsTitleBannerAndClippedRows) {
  TAV_REQUIRE_TMUX();
  tavtest::TmuxSession session;
  start_demo(session);
  auto lines = session.capture_lines();
  ASSERT_GE(lines.size(), static_cast<size_t>(kRows - 1));

  // The frame is the screen less one row; the title sits in its top border. Inside the frame
  // (whose sides take the first and last column) the rows count from 0.
  EXPECT_NE(lines[0].find(" DEMO "), std::string::npos) << lines[0];
  auto inner = [&](int row) {
    std::string line = lines[static_cast<size_t>(row + 1)];
    line.resize(kCols, ' ');
    return line.substr(1, kCols - 2);
  };
  EXPECT_EQ(inner(0).rfind("BANNER LINE", 0), 0u) << inner(0);
  // Clipped at the right border, and nothing spilled into the next row.
  EXPECT_EQ(inner(1), std::string(kCols - 2, 'x'));
  // Clipped at the left border: the rest starts in the first column.
  EXPECT_EQ(inner(2).rfind("LEFT", 0), 0u) << inner(2);
  EXPECT_EQ(inner(2).find_first_not_of(' ', 4), std::string::npos) << inner(2);
  std::string screen = session.capture();
  EXPECT_EQ(screen.find("GONE"), std::string::npos) << screen;
  EXPECT_EQ(screen.find("BELOW"), std::string::npos) << screen;
  EXPECT_EQ(screen.find("ABOVE"), std::string::npos) << screen;
  // The prompt is on the window's last row (21 rows inside the frame).
  EXPECT_EQ(inner(20).rfind("Press RETURN", 0), 0u) << screen;

  session.send_keys({"Enter"});
  EXPECT_EQ(session.wait_exit(), 0);
}

TEST(Terminal, AcknowledgementKeys) {
  TAV_REQUIRE_TMUX();
  struct Case {
    std::vector<std::string> keys;
    const char* result;
  };
  const Case cases[] = {
      {{"Enter"}, "result=0"}, {{"C-j"}, "result=0"}, {{"Escape"}, "result=-1"},
      // Other keys, function keys included, are ignored until Enter or Escape.
      {{"x", "Space", "Up", "F1", "Enter"}, "result=0"}, {{"y", "Down", "Escape"}, "result=-1"},
  };
  for (const auto& c : cases) {
    std::string keys;
    for (const auto& k : c.keys) keys += k + " ";
    tavtest::TmuxSession session;
    start_demo(session);
    for (const auto& k : c.keys) {
      session.send_keys({k});
      // Keys before the last must not end the wait (and Escape must not swallow them).
      if (&k != &c.keys.back()) {
        std::this_thread::sleep_for(150ms);
        EXPECT_EQ(session.capture().find("result="), std::string::npos) << keys;
      }
    }
    ASSERT_EQ(session.wait_exit(), 0) << keys;
    std::string screen = session.capture();
    EXPECT_NE(screen.find(c.result), std::string::npos) << keys << "\n" << screen;
    // After end() the terminal is back to normal: the window is gone from the screen.
    EXPECT_EQ(screen.find("BANNER LINE"), std::string::npos) << screen;
    EXPECT_NE(screen.find("screen=24x80 window_rows=21"), std::string::npos) << screen;
  }
}

TEST(Terminal, NoTerminalWithoutAUsableTermOrTty) {
  TAV_REQUIRE_TMUX();
  struct Case {
    const char* name;
    std::vector<std::string> env;
    std::vector<std::string> unset;
  };
  const Case cases[] = {
      {"TERM unset", {}, {"TERM"}}, {"TERM empty", {"TERM="}, {}}, {"TERM dumb", {"TERM=dumb"}, {}},
      // curses itself refuses: the process must carry on, not exit from inside curses.
      {"unknown TERM", {"TERM=no-such-terminal-type"}, {}},
  };
  for (const auto& c : cases) {
    tavtest::TmuxSession session;
    tavtest::TmuxOptions options;
    options.env = c.env;
    options.unset = c.unset;
    ASSERT_TRUE(session.start({TERM_DEMO}, options)) << c.name;
    EXPECT_EQ(session.wait_exit(), 2) << c.name << "\n" << session.capture();
    EXPECT_NE(session.capture().find("no terminal"), std::string::npos) << c.name;
  }
}

TEST(Terminal, NoTerminalWhenOutputIsNotATty) {
  // Standard input and output are pipes here, whatever the test itself runs on.
  tavtest::RunOptions options;
  options.env = {"TERM=xterm"};
  auto r = tavtest::run({TERM_DEMO}, options);
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.out, "no terminal\n");
}

TEST(Terminal, OpenTerminalInProcessWithoutTerm) {
  const char* old = std::getenv("TERM");
  std::optional<std::string> saved = old ? std::optional<std::string>(old) : std::nullopt;
  unsetenv("TERM");
  EXPECT_EQ(tav::open_terminal(), nullptr);
  if (saved) setenv("TERM", saved->c_str(), 1);
}

}  // namespace
