#include "driver/pp_records.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>

namespace tav {

namespace {

struct PpMessage {
  std::string_view id;
  std::string_view text;
};

constexpr PpMessage kPpMessages[] = {
#define PP_MESSAGE(id, text) {#id, text},
#include "diag/pp_messages.def"
#undef PP_MESSAGE
};

constexpr std::string_view kTokenContexts[] = {
#define PP_TOKEN_CONTEXT(id) #id,
#include "diag/pp_token_contexts.def"
#undef PP_TOKEN_CONTEXT
};

// tavpp writes at most 41 records of a few kilobytes each; a larger file is read this far.
constexpr std::size_t kMaxFileBytes = std::size_t{32} << 20;
constexpr std::size_t kMaxRecords = 100;
constexpr std::size_t kMaxIncludePairs = 64;  // tavpp nests 32 deep
constexpr std::size_t kMaxIdLength = 64;
constexpr std::size_t kMaxDigits = 9;  // every number fits an int, with room for a column's end

// A number of up to kMaxDigits decimal digits and nothing else.
std::optional<int> number(std::string_view field) {
  if (field.empty() || field.size() > kMaxDigits) return std::nullopt;
  int value = 0;
  for (char c : field) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + (c - '0');
  }
  return value;
}

bool is_id(std::string_view field) {
  if (field.empty() || field.size() > kMaxIdLength) return false;
  for (char c : field)
    if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_')) return false;
  return true;
}

bool is_octal(char c) { return c >= '0' && c <= '7'; }

// A field as tavpp escapes names: "\\", "\n", "\t", "\r" and three octal digits; any other
// backslash means the record is not one tavpp wrote.
std::optional<std::string> unescape(std::string_view field) {
  std::string out;
  out.reserve(field.size());
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] != '\\') {
      out += field[i];
      continue;
    }
    if (++i == field.size()) return std::nullopt;
    switch (field[i]) {
      case '\\': out += '\\'; continue;
      case 'n': out += '\n'; continue;
      case 't': out += '\t'; continue;
      case 'r': out += '\r'; continue;
      default: break;
    }
    if (i + 2 >= field.size()) return std::nullopt;
    if (!is_octal(field[i]) || field[i] > '3' || !is_octal(field[i + 1]) || !is_octal(field[i + 2])) return std::nullopt;
    out += static_cast<char>(((field[i] - '0') << 6) | ((field[i + 1] - '0') << 3) | (field[i + 2] - '0'));
    i += 2;
  }
  return out;
}

std::vector<std::string_view> split(std::string_view line, char separator) {
  std::vector<std::string_view> fields;
  for (;;) {
    const std::size_t at = line.find(separator);
    fields.push_back(line.substr(0, at));
    if (at == std::string_view::npos) return fields;
    line.remove_prefix(at + 1);
  }
}

// Characters of UTF-8 text: the bytes that continue a character do not count.
int characters(std::string_view text) {
  int n = 0;
  for (char c : text)
    if ((static_cast<unsigned char>(c) & 0xc0) != 0x80) ++n;
  return n;
}

std::string_view message_text(std::string_view id) {
  for (const PpMessage& m : kPpMessages)
    if (m.id == id) return m.text;
  return "preprocessor message";
}

bool has_token_context(std::string_view id) {
  for (std::string_view t : kTokenContexts)
    if (t == id) return true;
  return false;
}

// One record, or nothing when it is not as tavpp writes them.
std::optional<Diagnostic> parse_record(std::string_view record) {
  const std::vector<std::string_view> fields = split(record, '\t');
  if (fields.size() < 5 || (fields.size() - 5) % 2 != 0 || (fields.size() - 5) / 2 > kMaxIncludePairs) return std::nullopt;
  const std::optional<int> line = number(fields[0]);
  const std::optional<int> column = number(fields[1]);
  std::optional<std::string> file = unescape(fields[3]);
  std::optional<std::string> context = unescape(fields[4]);
  if (!line || !column || !is_id(fields[2]) || !file || !context) return std::nullopt;

  Diagnostic d;
  d.severity = Severity::error;
  d.code = "pp_" + std::string(fields[2]);
  d.message = std::string(message_text(fields[2]));
  d.where = {*file, *line, 0, 0};
  if (*column > 0) {
    d.where.column = *column;
    const int width = has_token_context(fields[2]) ? characters(*context) : 1;
    d.where.end_column = *column + std::max(width, 1);
  }
  d.classic_file = std::move(*file);
  d.classic_line = *line;
  d.classic_context = *context;
  d.context = std::move(*context);
  d.from_preprocessor = true;
  for (std::size_t i = 5; i < fields.size(); i += 2) {
    const std::optional<int> including_line = number(fields[i]);
    std::optional<std::string> including_file = unescape(fields[i + 1]);
    if (!including_line || !including_file) return std::nullopt;
    std::string message = "in file included from " + *including_file + ":" + std::to_string(*including_line);
    d.notes.push_back({std::move(message), {std::move(*including_file), *including_line, 1, 2}});
  }
  return d;
}

}  // namespace

std::vector<Diagnostic> parse_pp_records(std::string_view text) {
  std::vector<Diagnostic> diagnostics;
  // Only whole records count: a last line without its newline was cut short.
  while (diagnostics.size() < kMaxRecords) {
    const std::size_t end = text.find('\n');
    if (end == std::string_view::npos) break;
    if (std::optional<Diagnostic> d = parse_record(text.substr(0, end))) diagnostics.push_back(std::move(*d));
    text.remove_prefix(end + 1);
  }
  return diagnostics;
}

std::vector<Diagnostic> read_pp_records(const std::string& path) {
  // Not opened unless it is a regular file: a FIFO would wait for a writer for ever.
  struct stat named {};
  if (path.empty() || ::stat(path.c_str(), &named) != 0 || !S_ISREG(named.st_mode)) return {};
  const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return {};
  struct stat st {};
  std::string text;
  if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
    char buffer[65536];
    while (text.size() < kMaxFileBytes) {
      const ssize_t n = ::read(fd, buffer, std::min(sizeof buffer, kMaxFileBytes - text.size()));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      text.append(buffer, static_cast<std::size_t>(n));
    }
  }
  ::close(fd);
  return parse_pp_records(text);
}

}  // namespace tav
