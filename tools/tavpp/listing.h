// The message listing: message lines in the compiler's listing format, appended to the file
// named by -o (opened only when there is something to say), or to standard error when no
// listing was named or it cannot be opened. A listing that got no byte is removed again.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "messages.h"

namespace tav::pp {

// "<file>, line <n>: ERROR  <message> - '<context>'"; the file part is left out when the file
// is empty, the line part when the line is not above 0, the context part when it is empty.
// The line is cut to 512 bytes.
std::string format_message(std::string_view file, int line, std::string_view text,
                           std::string_view context);

class Listing {
 public:
  explicit Listing(std::string path) : path_(std::move(path)) {}
  ~Listing() { close(); }
  Listing(const Listing&) = delete;
  Listing& operator=(const Listing&) = delete;

  void report(std::string_view file, int line, Msg msg, std::string_view context);
  int count() const { return count_; }
  // Writes the final "\n" and closes the file, if it was opened.
  void close();

 private:
  void open();

  std::string path_;
  std::FILE* file_ = nullptr;
  bool unavailable_ = false;
  int count_ = 0;
};

}  // namespace tav::pp
