#include "runtime/process.h"

#include <signal.h>
#include <spawn.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

extern char** environ;

namespace tav {

namespace {

// The one process-wide value: the pid of the program being waited for, read by the driver's
// signal handler so that it can stop the program before the compiler exits. It is set while
// all signals are blocked, so the handler never sees a child that has no pid recorded yet.
volatile std::sig_atomic_t child_pid = 0;

int wait_for(pid_t pid, int* status) {
  for (;;) {
    pid_t r = waitpid(pid, status, 0);
    if (r == pid) return 0;
    if (r < 0 && errno == EINTR) continue;
    return -1;
  }
}

// Handlers installed by the compiler must not run in the program (they would clean up the
// compiler's files), so every caught signal goes back to its default action in it. Ignored
// signals stay ignored, as they would across exec anyway.
sigset_t caught_signals() {
  sigset_t set;
  sigemptyset(&set);
  for (int sig = 1; sig < NSIG; ++sig) {
    struct sigaction old{};
    if (sigaction(sig, nullptr, &old) != 0) continue;
    const bool caught = (old.sa_flags & SA_SIGINFO) != 0 ||
                        (old.sa_handler != SIG_DFL && old.sa_handler != SIG_IGN);
    if (caught) sigaddset(&set, sig);
  }
  return set;
}

// Starts the program with posix_spawn (no copy of the compiler's address space is made), with
// the caller's signal mask and the caught signals at their defaults. Returns 0 or an errno.
int spawn(pid_t& pid, char* const* args, const sigset_t& mask) {
  posix_spawnattr_t attr;
  if (int err = posix_spawnattr_init(&attr); err != 0) return err;
  const sigset_t defaults = caught_signals();
  posix_spawnattr_setsigmask(&attr, &mask);
  posix_spawnattr_setsigdefault(&attr, &defaults);
  posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  const int err = posix_spawn(&pid, args[0], nullptr, &attr, args, environ);
  posix_spawnattr_destroy(&attr);
  return err;
}

}  // namespace

int run_program(const std::vector<std::string>& argv) {
  if (argv.empty() || argv[0].empty()) {
    errno = EINVAL;
    return -1;
  }
  std::vector<char*> args;
  args.reserve(argv.size() + 1);
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);

  // Output still buffered here would otherwise appear after the program's own output.
  std::fflush(stdout);
  std::fflush(stderr);

  // All signals stay blocked until the child's pid is recorded, so that the driver's handler
  // never misses a running child.
  sigset_t all, old_mask;
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all, &old_mask);
  pid_t pid = 0;
  const int spawn_errno = spawn(pid, args.data(), old_mask);
  if (spawn_errno == 0) child_pid = static_cast<std::sig_atomic_t>(pid);
  sigprocmask(SIG_SETMASK, &old_mask, nullptr);
  if (spawn_errno != 0) {
    errno = spawn_errno;
    return -1;
  }

  int status = 0;
  const int waited = wait_for(pid, &status);
  const int wait_errno = errno;
  child_pid = 0;
  if (waited != 0) {
    errno = wait_errno;
    return -1;
  }
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return -1;
}

int running_child_pid() { return static_cast<int>(child_pid); }

void stop_running_child() {
  if (const pid_t child = static_cast<pid_t>(child_pid); child > 0) {
    kill(child, SIGTERM);
    waitpid(child, nullptr, 0);
  }
}

}  // namespace tav
