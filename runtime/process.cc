#include "runtime/process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

namespace tav {

namespace {

// The one process-wide value: the pid of the program being waited for, read by the driver's
// signal handler so that it can stop the program before the compiler exits. It is set while
// all signals are blocked, so the handler never sees a child that has no pid recorded yet.
volatile std::sig_atomic_t child_pid = 0;

// Writes all of `size` bytes, retrying short and interrupted writes.
void write_all(int fd, const void* data, size_t size) {
  const char* p = static_cast<const char*>(data);
  while (size > 0) {
    ssize_t n = write(fd, p, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return;
    }
    p += n;
    size -= static_cast<size_t>(n);
  }
}

// Reads up to `size` bytes until end of file. Returns the number read.
size_t read_all(int fd, void* data, size_t size) {
  char* p = static_cast<char*>(data);
  size_t got = 0;
  while (got < size) {
    ssize_t n = read(fd, p + got, size - got);
    if (n < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (n == 0) break;
    got += static_cast<size_t>(n);
  }
  return got;
}

int wait_for(pid_t pid, int* status) {
  for (;;) {
    pid_t r = waitpid(pid, status, 0);
    if (r == pid) return 0;
    if (r < 0 && errno == EINTR) continue;
    return -1;
  }
}

// In the child, between fork and exec: handlers installed by the compiler must not run here
// (they would clean up the compiler's files), so every caught signal goes back to its default
// action before the signal mask of the caller is restored. Ignored signals stay ignored, as
// they would across exec anyway.
void reset_caught_signals() {
  for (int sig = 1; sig < NSIG; ++sig) {
    struct sigaction old{};
    if (sigaction(sig, nullptr, &old) != 0) continue;
    bool caught = (old.sa_flags & SA_SIGINFO) != 0 ||
                  (old.sa_handler != SIG_DFL && old.sa_handler != SIG_IGN);
    if (!caught) continue;
    struct sigaction dfl{};
    dfl.sa_handler = SIG_DFL;
    sigemptyset(&dfl.sa_mask);
    sigaction(sig, &dfl, nullptr);
  }
}

}  // namespace

int run_program(const std::vector<std::string>& argv) {
  if (argv.empty() || argv[0].empty()) {
    errno = EINVAL;
    return -1;
  }
  // Everything the child needs is built before fork: after it only async-signal-safe calls.
  std::vector<char*> args;
  args.reserve(argv.size() + 1);
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);

  // The child reports a failed exec by writing its errno into this pipe; a successful exec
  // closes the write end, so the parent then reads end of file.
  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) return -1;

  // Output still buffered here would otherwise appear after the program's own output.
  std::fflush(stdout);
  std::fflush(stderr);

  sigset_t all, old_mask;
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all, &old_mask);

  pid_t pid = fork();
  if (pid == 0) {
    close(report[0]);
    reset_caught_signals();
    sigprocmask(SIG_SETMASK, &old_mask, nullptr);
    execv(args[0], args.data());
    int err = errno;
    write_all(report[1], &err, sizeof err);
    _exit(127);
  }
  int fork_errno = errno;
  if (pid > 0) child_pid = static_cast<std::sig_atomic_t>(pid);
  sigprocmask(SIG_SETMASK, &old_mask, nullptr);
  close(report[1]);

  if (pid < 0) {
    close(report[0]);
    errno = fork_errno;
    return -1;
  }

  int exec_errno = 0;
  size_t got = read_all(report[0], &exec_errno, sizeof exec_errno);
  close(report[0]);

  int status = 0;
  int waited = wait_for(pid, &status);
  int wait_errno = errno;
  child_pid = 0;

  if (got == sizeof exec_errno) {
    errno = exec_errno;
    return -1;
  }
  if (waited != 0) {
    errno = wait_errno;
    return -1;
  }
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return -1;
}

int running_child_pid() { return static_cast<int>(child_pid); }

}  // namespace tav
