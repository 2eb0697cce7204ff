#include "runtime/process.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "tests/support/support.h"

namespace {

using tav::run_program;

TEST(RunProgram, ReportsExitStatusOrSignal) {
  const std::pair<const char*, int> cases[] = {
      {"exit 0", 0}, {"exit 3", 3},
      {"exit 127", 127},  // the program's own 127 is not a failure to start
      {"exit 255", 255}, {"kill -TERM $$", 128 + SIGTERM}, {"kill -KILL $$", 128 + SIGKILL},
  };
  for (const auto& [script, status] : cases) {
    EXPECT_EQ(run_program({"/bin/sh", "-c", script}), status) << script;
    EXPECT_EQ(tav::running_child_pid(), 0) << script;
  }
}

TEST(RunProgram, PassesArgumentsUntouched) {
  tavtest::TempDir dir;
  const std::string out = dir / "args";
  // Anything a shell would interpret must arrive byte for byte.
  const std::vector<std::string> args = {"two words", "'single'", "\"double\"", "$HOME",
                                         "*",         "a;b|c",    "",           "back\\slash"};
  std::vector<std::string> argv = {"/bin/sh", "-c", "printf '%s\\n' \"$@\" > \"$0\"", out};
  argv.insert(argv.end(), args.begin(), args.end());
  ASSERT_EQ(run_program(argv), 0);
  std::string expected;
  for (const auto& a : args) expected += a + "\n";
  EXPECT_EQ(tavtest::read_file(out), expected);
}

TEST(RunProgram, FailureToStartGivesMinusOneWithErrno) {
  tavtest::TempDir dir;
  const std::string data = dir / "not-executable";
  tavtest::write_file(data, "exit 0\n");
  chmod(data.c_str(), 0644);

  struct Case {
    std::vector<std::string> argv;
    int expected_errno;
  };
  const Case cases[] = {
      {{dir / "missing"}, ENOENT},
      // A command line is a file name, never shell text.
      {{"/bin/true && exit 7"}, ENOENT},
      // The program is not searched for on PATH.
      {{"sh", "-c", "exit 0"}, ENOENT}, {{data}, EACCES}, {{}, EINVAL},
  };
  for (const auto& c : cases) {
    std::string name = c.argv.empty() ? "(empty)" : c.argv[0];
    errno = 0;
    EXPECT_EQ(run_program(c.argv), -1) << name;
    EXPECT_EQ(errno, c.expected_errno) << name;
    EXPECT_EQ(tav::running_child_pid(), 0) << name;
  }
}

TEST(RunProgram, NamesTheRunningChildSoItCanBeStopped) {
  int result = 0;
  std::thread runner([&] { result = run_program({"/bin/sleep", "30"}); });
  int pid = 0;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while ((pid = tav::running_child_pid()) == 0 && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  ASSERT_GT(pid, 0);
  // What the driver's signal handler does: stop the program it is waiting for.
  EXPECT_EQ(kill(pid, SIGTERM), 0);
  runner.join();
  EXPECT_EQ(result, 128 + SIGTERM);
  EXPECT_EQ(tav::running_child_pid(), 0);
}

TEST(RunProgram, KeepsTheCallersSignalMask) {
  sigset_t usr1, before, after;
  sigemptyset(&usr1);
  sigaddset(&usr1, SIGUSR1);
  sigprocmask(SIG_BLOCK, &usr1, &before);
  // The child starts with the caller's mask, not with everything blocked.
  EXPECT_EQ(run_program({"/bin/sh", "-c", "kill -TERM $$"}), 128 + SIGTERM);
  sigprocmask(SIG_SETMASK, &before, &after);
  EXPECT_TRUE(sigismember(&after, SIGUSR1));
  EXPECT_FALSE(sigismember(&after, SIGTERM));
}

}  // namespace
