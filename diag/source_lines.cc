// The source lines the gcc format shows, read from disk once per file and kept for the run.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <memory>

#include "diag/render.h"

namespace tav {

namespace {

// A source line holds at most 513 characters of up to 4 bytes; a longer one (a binary file) is
// cut there. At most kMaxKept bytes of a file are kept, so a huge file costs a bounded amount.
constexpr size_t kMaxLineBytes = 513 * 4;
constexpr size_t kMaxKept = 64u << 20;

using Lines = std::vector<std::string>;

void add_line(Lines& lines, std::string& line) {
  if (!line.empty() && line.back() == '\r') line.pop_back();
  lines.push_back(std::move(line));
  line.clear();
}

// The lines of a regular file (opened without waiting, so a FIFO is refused, not waited on);
// nothing when it cannot be opened or read.
Lines read_lines(const std::string& path) {
  Lines lines;
  const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return lines;
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    return lines;
  }
  std::string line;
  size_t kept = 0;
  char buffer[65536];
  ssize_t got = 0;
  while (kept < kMaxKept && (got = ::read(fd, buffer, sizeof buffer)) > 0) {
    for (ssize_t i = 0; i < got; ++i) {
      if (buffer[i] == '\n') {
        kept += line.size() + 1;
        add_line(lines, line);
      } else if (line.size() < kMaxLineBytes) {
        line += buffer[i];
      }
    }
  }
  if (kept < kMaxKept && !line.empty()) add_line(lines, line);
  ::close(fd);
  return lines;
}

}  // namespace

SourceLineReader disk_line_reader() {
  auto files = std::make_shared<std::map<std::string, Lines>>();
  return [files](const std::string& file, int line) -> std::optional<std::string> {
    auto it = files->find(file);
    if (it == files->end()) it = files->emplace(file, read_lines(file)).first;
    const Lines& lines = it->second;
    if (line < 1 || static_cast<size_t>(line) > lines.size()) return std::nullopt;
    return lines[static_cast<size_t>(line) - 1];
  };
}

}  // namespace tav
