// An exclusive advisory lock on a file or directory, held for the lock object's lifetime: other
// compilers that ask for the same path wait their turn. A path that cannot be opened is simply
// not locked (the work goes on unguarded, as it would on a file system without locks), and
// neither is anything but a regular file or a directory: the open does not block (a FIFO would
// wait for a writer for ever) and a FIFO or a device is let go at once.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace tav {

class FileLock {
 public:
  explicit FileLock(const std::string& path) : fd_(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
    if (fd_ < 0) return;
    struct stat st {};
    if (fstat(fd_, &st) != 0 || !(S_ISREG(st.st_mode) || S_ISDIR(st.st_mode))) {
      close(fd_);
      fd_ = -1;
      return;
    }
    while (flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
    }
  }
  ~FileLock() {
    if (fd_ >= 0) close(fd_);  // closing releases the lock
  }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

 private:
  int fd_;
};

// The directory a file name lies in: "." for a bare name.
inline std::string directory_of(const std::string& file) {
  const size_t slash = file.find_last_of('/');
  return slash == std::string::npos ? "." : slash == 0 ? "/" : file.substr(0, slash);
}

}  // namespace tav
