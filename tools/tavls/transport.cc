#include "transport.h"

#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "runtime/ascii.h"

namespace tav::lsp {

namespace {

std::string lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = ascii_lower(c);
  return out;
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

// The value of Content-Length in a header block: nothing when it is missing, given twice or not
// a plain decimal number; SIZE_MAX when it is larger than anything we would read.
std::optional<size_t> content_length(std::string_view header) {
  std::optional<size_t> length;
  while (!header.empty()) {
    size_t end = header.find("\r\n");
    if (end == std::string_view::npos) end = header.size();
    const std::string_view line = header.substr(0, end);
    header.remove_prefix(std::min(header.size(), end + 2));
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) return std::nullopt;  // not a header field at all
    if (lower(trimmed(line.substr(0, colon))) != "content-length") continue;
    if (length) return std::nullopt;
    const std::string_view value = trimmed(line.substr(colon + 1));
    if (value.empty() || value.size() > 12) return std::nullopt;
    size_t n = 0;
    for (char c : value) {
      if (!ascii_digit(c)) return std::nullopt;
      n = n * 10 + static_cast<size_t>(c - '0');
    }
    length = n;
  }
  return length;
}

}  // namespace

void FrameReader::feed(std::string_view bytes) {
  if (dropping_ > 0) {
    const size_t n = std::min(dropping_, bytes.size());
    dropping_ -= n;
    bytes.remove_prefix(n);
  }
  buffer_.append(bytes);
}

std::optional<Frame> FrameReader::refuse(size_t header_end, std::string problem) {
  buffer_.erase(0, header_end);
  Frame f;
  f.kind = Frame::bad_header;
  f.problem = std::move(problem);
  return f;
}

std::optional<Frame> FrameReader::next() {
  const size_t blank = buffer_.find("\r\n\r\n");
  if (blank == std::string::npos) {
    if (buffer_.size() > kMaxHeader) return refuse(buffer_.size(), "header block too long without its empty line");
    return std::nullopt;
  }
  const size_t body_at = blank + 4;
  const std::optional<size_t> length = content_length(std::string_view(buffer_).substr(0, blank));
  if (!length) return refuse(body_at, "header without a valid Content-Length");
  if (*length > kMaxBody) {
    const size_t here = std::min(*length, buffer_.size() - body_at);
    dropping_ = *length - here;
    return refuse(body_at + here, "message body of " + std::to_string(*length) + " bytes is too long");
  }
  if (buffer_.size() - body_at < *length) return std::nullopt;
  Frame f;
  f.body = buffer_.substr(body_at, *length);
  buffer_.erase(0, body_at + *length);
  return f;
}

std::string framed(std::string_view body) {
  return "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + std::string(body);
}

bool write_all(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = ::write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

}  // namespace tav::lsp
