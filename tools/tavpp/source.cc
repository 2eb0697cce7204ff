#include "source.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tav::pp {

std::unique_ptr<LineReader> LineReader::open(const std::string& path) {
  if (path.empty() || path.find('\0') != std::string::npos) return nullptr;
  // Opening a FIFO for reading would wake a writer waiting for a reader; a device may do
  // anything when opened. They are refused by name first.
  struct stat named {};
  if (::stat(path.c_str(), &named) != 0 || !S_ISREG(named.st_mode)) return nullptr;
  int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return nullptr;
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    return nullptr;
  }
  return std::unique_ptr<LineReader>(new LineReader(fd));
}

LineReader::~LineReader() { ::close(fd_); }

bool LineReader::fill() {
  if (eof_) return false;
  for (;;) {
    ssize_t n = ::read(fd_, buf_.data(), buf_.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      failed_ = n < 0;
      eof_ = true;
      return false;
    }
    pos_ = 0;
    len_ = static_cast<std::size_t>(n);
    return true;
  }
}

bool LineReader::next(std::string& line) {
  line.clear();
  cut_ = false;
  bool any = false;
  auto keep = [&](const char* start, std::size_t n) {
    const std::size_t room = kMaxLine - std::min(line.size(), kMaxLine);
    if (n > room) cut_ = true;
    line.append(start, std::min(n, room));
  };
  for (;;) {
    if (pos_ == len_ && !fill()) return any;
    any = true;
    const char* start = buf_.data() + pos_;
    std::size_t avail = len_ - pos_;
    const void* nl = std::memchr(start, '\n', avail);
    if (nl != nullptr) {
      std::size_t n = static_cast<std::size_t>(static_cast<const char*>(nl) - start);
      keep(start, n);
      pos_ += n + 1;
      return true;
    }
    keep(start, avail);
    pos_ = len_;
  }
}

void IncludeStack::push(std::string path, std::unique_ptr<LineReader> reader) {
  SourceFile f;
  f.path = std::move(path);
  f.reader = std::move(reader);
  files_.push_back(std::move(f));
}

}  // namespace tav::pp
