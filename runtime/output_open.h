// Opening the files a program writes (listings, statistics) so that a name planted in a shared
// output directory cannot redirect them: a symbolic link at the last component is refused, not
// followed, and so is anything but a regular file (a FIFO or a device could block the writer or
// swallow the output) and a file with further hard links (it would be written through another
// name). Header-only, so that the stand-alone tools use it without linking the runtime.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace tav {

enum class OutputMode { append, truncate };

struct OpenedOutput {
  int fd = -1;
  std::string problem;  // when fd < 0: why, in the words of the system's error texts
};

// Opens (creating it with mode 0666 less the umask) the regular file `path` for writing.
inline OpenedOutput open_output(const std::string& path, OutputMode mode) {
  // Non-blocking, so that opening a FIFO cannot wait for a reader; truncation waits until the
  // file is known to be a regular file.
  int flags = O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  if (mode == OutputMode::append) flags |= O_APPEND;
  const int fd = ::open(path.c_str(), flags, 0666);
  if (fd < 0) {
    const int err = errno;
    struct stat st {};
    if (::lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) return {-1, "Is a symbolic link (not followed)"};
    if (err == ENXIO) return {-1, "Is not a regular file"};  // a FIFO nobody reads
    return {-1, std::strerror(err)};
  }
  struct stat st {};
  std::string problem;
  if (::fstat(fd, &st) != 0) problem = std::strerror(errno);
  else if (!S_ISREG(st.st_mode)) problem = "Is not a regular file";
  else if (st.st_nlink > 1) problem = "Has further hard links (not written through them)";
  else if (mode == OutputMode::truncate && ::ftruncate(fd, 0) != 0) problem = std::strerror(errno);
  if (!problem.empty()) {
    ::close(fd);
    return {-1, problem};
  }
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  return {fd, {}};
}

// Removes `path` if it is still the empty file open on `fd`: an output that never got a byte
// (a full disk, a size limit) is not left behind looking like an empty result.
inline void remove_if_empty(const std::string& path, int fd) {
  struct stat open_st {}, named_st {};
  if (::fstat(fd, &open_st) != 0 || open_st.st_size != 0) return;
  if (::lstat(path.c_str(), &named_st) != 0) return;
  if (named_st.st_dev == open_st.st_dev && named_st.st_ino == open_st.st_ino) ::unlink(path.c_str());
}

// Flushes and closes standard output, the last step of a program whose output is its result:
// 0, or the error number of what failed (the flush, an earlier buffered write, the close; EIO
// when the system gave none). A caller that clears errno before its writes keeps the reason of a
// write that failed before the flush.
inline int close_standard_output() {
  int error = 0;
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) error = errno != 0 ? errno : EIO;
  if (std::fclose(stdout) != 0 && error == 0) error = errno != 0 ? errno : EIO;
  return error;
}

}  // namespace tav
