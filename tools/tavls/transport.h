// The framing of the language server protocol: each message is a JSON text behind a header
// block ("Content-Length: <n>\r\n", other fields ignored, then an empty line). The reader is
// fed whatever bytes arrive and hands out complete messages; a header block it cannot use is
// reported once and skipped, so that the next message is read normally.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tav::lsp {

struct Frame {
  enum Kind { message, bad_header } kind = message;
  std::string body;     // message: the JSON text
  std::string problem;  // bad_header: what was wrong
};

class FrameReader {
 public:
  // A body longer than this is refused and its bytes dropped as they arrive.
  static constexpr size_t kMaxBody = 64u << 20;
  // A header block longer than this without its empty line is refused.
  static constexpr size_t kMaxHeader = 8192;

  void feed(std::string_view bytes);
  // The next complete frame, or nothing until more bytes arrive.
  std::optional<Frame> next();

 private:
  std::optional<Frame> refuse(size_t header_end, std::string problem);

  std::string buffer_;
  size_t dropping_ = 0;  // bytes of a refused body still to come
};

// A message with its header.
std::string framed(std::string_view body);

// Writes all of `bytes` to `fd`; false when the descriptor fails.
bool write_all(int fd, std::string_view bytes);

}  // namespace tav::lsp
