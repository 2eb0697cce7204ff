// Driving a program on a real (pseudo-)terminal for screen-mode tests: the program runs in a
// detached tmux session of its own, whose screen the test reads and types into. The tests
// therefore need no terminal of their own.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/support.h"

namespace tavtest {

// The tmux program found on PATH, or "" when it is not installed.
std::string tmux_path();

// Use at the start of a test that needs tmux. A machine without tmux fails the test rather
// than skipping it: a green run must mean the screen mode was exercised.
#define TAV_REQUIRE_TMUX()                                                                  \
  do {                                                                                      \
    if (::tavtest::tmux_path().empty())                                                     \
      FAIL() << "tmux is not installed (not found on PATH); the screen-mode tests need it"; \
  } while (0)

struct TmuxOptions {
  std::string cwd;                 // empty: the current directory
  std::vector<std::string> env;    // NAME=value entries set for the program
  std::vector<std::string> unset;  // names removed from the program's environment
  int rows = 24;
  int cols = 80;
};

class TmuxSession {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::milliseconds kDefaultTimeout{10000};

  TmuxSession();
  ~TmuxSession();  // kills the tmux server and with it the program
  TmuxSession(const TmuxSession&) = delete;
  TmuxSession& operator=(const TmuxSession&) = delete;

  // Starts argv (argv[0] a path; its arguments are passed untouched) on a terminal of the given size, with TERM set by
  // tmux unless the options change it. Returns false when tmux could not start it.
  bool start(const std::vector<std::string>& argv, const TmuxOptions& options = {});

  // The screen as text: one line per row, trailing blanks removed, rows joined by "\n".
  std::string capture() const;
  std::vector<std::string> capture_lines() const;

  // Key names as tmux knows them ("Enter", "Escape", "C-c", "x").
  void send_keys(const std::vector<std::string>& keys) const;
  void send_text(const std::string& text) const;  // typed literally

  // Waits until `text` is on the screen. False on timeout.
  bool wait_for(const std::string& text, std::chrono::milliseconds timeout = kDefaultTimeout) const;
  // Waits until the program has ended: its exit status, 128 + signal when killed, or -1 on
  // timeout. The last screen stays readable with capture().
  int wait_exit(std::chrono::milliseconds timeout = kDefaultTimeout) const;

  // Runs a tmux command against this session's server.
  RunResult tmux(const std::vector<std::string>& args) const;

 private:
  TempDir dir_;  // holds the server's socket
  std::string socket_;
  std::string status_file_;  // the program's exit status, written when it ends
  bool started_ = false;
};

}  // namespace tavtest
