// Reading source files line by line, and the stack of files being read.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace tav::pp {

// Lines of a regular file, any bytes allowed; a last line without "\n" is a line too.
class LineReader {
 public:
  // nullptr when the path cannot be opened or is not a regular file (a device or a pipe could
  // block or never end); such a file is not even opened.
  static std::unique_ptr<LineReader> open(const std::string& path);
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  // The longest line handled: what a macro replacement may produce from one line, too. The rest
  // of a longer line is read past, not kept.
  static constexpr std::size_t kMaxLine = (std::size_t{4} << 20) - 1;

  // The next line without its "\n"; false at the end of the file or on a read error. A line
  // longer than kMaxLine comes back cut, with line_cut() set.
  bool next(std::string& line);
  bool failed() const { return failed_; }
  bool line_cut() const { return cut_; }

 private:
  explicit LineReader(int fd) : fd_(fd), buf_(kBufferSize) {}
  bool fill();

  static constexpr std::size_t kBufferSize = 65536;
  int fd_;
  std::vector<char> buf_;
  std::size_t pos_ = 0;
  std::size_t len_ = 0;
  bool eof_ = false;
  bool failed_ = false;
  bool cut_ = false;
};

// An open conditional block (#if ... #endif) of one file.
struct Conditional {
  int line = 0;                // line of its #if, #ifdef or #ifndef
  bool parent_active = false;  // the text around the block is being processed
  bool active = false;         // the current branch is being processed
  bool taken = false;          // a branch has been chosen (later ones are skipped)
  bool seen_else = false;
};

struct SourceFile {
  std::string path;  // as opened; this is the name in the line markers
  std::unique_ptr<LineReader> reader;
  int line = 0;  // number of the line last read
  std::vector<Conditional> conditionals;

  bool active() const { return conditionals.empty() || conditionals.back().active; }
};

class IncludeStack {
 public:
  static constexpr std::size_t kMaxNesting = 32;  // includes inside the main file

  bool empty() const { return files_.empty(); }
  bool full() const { return files_.size() > kMaxNesting; }
  SourceFile& top() { return files_.back(); }
  // The files open, the main file first: each but the last is at the line of its #include.
  std::size_t size() const { return files_.size(); }
  const SourceFile& at(std::size_t i) const { return files_[i]; }
  void push(std::string path, std::unique_ptr<LineReader> reader);
  void pop() { files_.pop_back(); }

 private:
  std::vector<SourceFile> files_;
};

}  // namespace tav::pp
