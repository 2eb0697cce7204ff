#include "output.h"

#include <signal.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace tav::pp {

namespace {
constexpr std::size_t kFlushSize = 65536;
}

bool OutputFile::open(const std::string& path, TempHook hook) {
  path_ = path;
  hook_ = std::move(hook);
  std::string pattern = path + ".XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  // No signal may come between making the file and telling the hook its name: the handler
  // could not remove a file it does not know.
  sigset_t all, old;
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all, &old);
  fd_ = ::mkstemp(name.data());
  if (fd_ >= 0) {
    temp_ = name.data();
    if (hook_) hook_(temp_);
  }
  sigprocmask(SIG_SETMASK, &old, nullptr);
  if (fd_ < 0) return false;
  mode_t mask = ::umask(0);
  ::umask(mask);
  ::fchmod(fd_, static_cast<mode_t>(0666 & ~mask));
  return true;
}

void OutputFile::write(std::string_view text) {
  if (fd_ < 0 || failed_) return;
  buffer_.append(text);
  if (buffer_.size() >= kFlushSize) flush();
}

bool OutputFile::flush() {
  std::size_t done = 0;
  while (done < buffer_.size() && !failed_) {
    ssize_t n = ::write(fd_, buffer_.data() + done, buffer_.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) failed_ = true;
    else done += static_cast<std::size_t>(n);
  }
  buffer_.clear();
  return !failed_;
}

bool OutputFile::commit() {
  if (fd_ < 0) return false;
  bool ok = flush();
  ok = ::close(fd_) == 0 && ok;
  fd_ = -1;
  ok = ok && std::rename(temp_.c_str(), path_.c_str()) == 0;
  if (!ok) {
    discard();
    return false;
  }
  forget_temp();
  return true;
}

void OutputFile::discard() {
  if (fd_ >= 0) {
    ::close(fd_);
    fd_ = -1;
  }
  if (!temp_.empty()) {
    ::unlink(temp_.c_str());
    forget_temp();
  }
}

void OutputFile::forget_temp() {
  temp_.clear();
  if (hook_) hook_(std::string());
}

}  // namespace tav::pp
