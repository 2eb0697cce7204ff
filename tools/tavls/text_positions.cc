#include "text_positions.h"

#include <fstream>
#include <sstream>

#include "diag/render_text.h"

namespace tav::lsp {

namespace {

// The UTF-16 units of the character at `at`: two for a four-byte sequence.
int units_at(std::string_view text, size_t at, size_t& length) {
  length = render::char_length(text, at);
  return length == 4 ? 2 : 1;
}

size_t line_start(std::string_view text, int line) {
  size_t at = 0;
  for (int l = 0; l < line; ++l) {
    const size_t nl = text.find('\n', at);
    if (nl == std::string_view::npos) return text.size();
    at = nl + 1;
  }
  return at;
}

size_t line_end(std::string_view text, size_t start) {
  size_t end = text.find('\n', start);
  if (end == std::string_view::npos) end = text.size();
  if (end > start && text[end - 1] == '\r') --end;
  return end;
}

int hex_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

size_t offset_of(std::string_view text, int line, int character) {
  if (line < 0) return 0;
  const size_t start = line_start(text, line);
  const size_t end = line_end(text, start);
  size_t at = start;
  for (int units = 0; at < end;) {
    size_t length = 0;
    const int u = units_at(text, at, length);
    if (units + u > character) break;
    units += u;
    at += length;
  }
  return std::min(at, end);
}

std::string_view line_of(std::string_view text, int line) {
  const size_t start = line_start(text, line);
  return text.substr(start, line_end(text, start) - start);
}

LineIndex::LineIndex(std::string_view text) : text_(text) {
  starts_.push_back(0);
  for (size_t at = text.find('\n'); at != std::string_view::npos; at = text.find('\n', at + 1)) starts_.push_back(at + 1);
}

std::string_view LineIndex::line(int line) const {
  if (line < 0) line = 0;
  if (static_cast<size_t>(line) >= starts_.size()) return {};
  const size_t start = starts_[static_cast<size_t>(line)];
  return text_.substr(start, line_end(text_, start) - start);
}

int LineIndex::count() const {
  const int full = static_cast<int>(starts_.size()) - 1;
  return text_.empty() || text_.back() == '\n' ? full : full + 1;
}

int utf16_column(std::string_view line, int column) {
  int units = 0;
  size_t at = 0;
  for (int c = 1; c < column; ++c) {
    if (at >= line.size()) {
      units += column - c;
      break;
    }
    size_t length = 0;
    units += units_at(line, at, length);
    at += length;
  }
  return units;
}

int utf16_length(std::string_view line) {
  int units = 0;
  for (size_t at = 0; at < line.size();) {
    size_t length = 0;
    units += units_at(line, at, length);
    at += length;
  }
  return units;
}

std::string uri_of_path(std::string_view path) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string uri = "file://";
  for (char ch : path) {
    const auto c = static_cast<unsigned char>(ch);
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
        std::string_view("/-._~").find(ch) != std::string_view::npos) {
      uri += ch;
    } else {
      uri += '%';
      uri += kHex[c >> 4];
      uri += kHex[c & 15];
    }
  }
  return uri;
}

std::optional<std::string> path_of_uri(std::string_view uri) {
  constexpr std::string_view kScheme = "file://";
  if (uri.substr(0, kScheme.size()) != kScheme) return std::nullopt;
  uri.remove_prefix(kScheme.size());
  const size_t slash = uri.find('/');
  if (slash == std::string_view::npos) return std::nullopt;
  const std::string_view host = uri.substr(0, slash);
  if (!host.empty() && host != "localhost") return std::nullopt;
  uri.remove_prefix(slash);
  std::string path;
  for (size_t i = 0; i < uri.size(); ++i) {
    if (uri[i] == '%' && i + 2 < uri.size() + 0 && hex_value(uri[i + 1]) >= 0 && hex_value(uri[i + 2]) >= 0) {
      const char decoded = static_cast<char>(hex_value(uri[i + 1]) * 16 + hex_value(uri[i + 2]));
      if (decoded == '\0') return std::nullopt;
      path += decoded;
      i += 2;
    } else {
      path += uri[i];
    }
  }
  return path;
}

std::optional<std::string> DiskLines::line(const std::string& path, int line) {
  auto it = files_.find(path);
  if (it == files_.end()) {
    std::ifstream in(path, std::ios::binary);
    std::unique_ptr<File> file;
    if (in) {
      std::stringstream s;
      s << in.rdbuf();
      file = std::make_unique<File>(s.str());
    }
    it = files_.emplace(path, std::move(file)).first;
  }
  if (!it->second) return std::nullopt;
  return std::string(it->second->lines.line(line - 1));
}

}  // namespace tav::lsp
