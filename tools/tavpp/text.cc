#include "text.h"

#include <vector>

namespace tav::pp {

bool is_identifier(std::string_view s) {
  if (s.empty() || !is_ident_start(s[0])) return false;
  for (char c : s)
    if (!is_ident_char(c)) return false;
  return true;
}

std::size_t skip_blanks(std::string_view s, std::size_t pos) {
  while (pos < s.size() && is_blank(s[pos])) ++pos;
  return pos;
}

std::string_view trim(std::string_view s) {
  std::size_t b = skip_blanks(s, 0);
  std::size_t e = s.size();
  while (e > b && (is_blank(s[e - 1]) || s[e - 1] == '\r')) --e;
  return s.substr(b, e - b);
}

std::size_t literal_end(std::string_view s, std::size_t pos) {
  char q = s[pos];
  std::size_t close = s.find(q, pos + 1);
  return close == std::string_view::npos ? s.size() : close + 1;
}

std::size_t word_end(std::string_view s, std::size_t pos, WordRule rule) {
  std::size_t i = pos;
  while (i < s.size()) {
    if (is_ident_char(s[i])) {
      ++i;
    } else if (rule == WordRule::program && s[i] == '-' && i + 1 < s.size() &&
               is_ident_char(s[i + 1])) {
      i += 2;  // the character before the hyphen is part of the word already
    } else {
      break;
    }
  }
  return i;
}

std::string_view strip_comment(std::string_view s) {
  std::size_t i = 0;
  while (i < s.size()) {
    if (is_quote(s[i])) {
      i = literal_end(s, i);
    } else if (s[i] == '/' && i + 1 < s.size() && s[i + 1] == '/') {
      return s.substr(0, i);
    } else {
      ++i;
    }
  }
  return s;
}

DirectiveLine split_directive(std::string_view line) {
  std::size_t b = skip_blanks(line, 1);
  std::size_t e = b;
  while (e < line.size() && is_ident_char(line[e])) ++e;
  return {line.substr(b, e - b), trim(strip_comment(line.substr(e)))};
}

std::string_view dir_part(std::string_view path) {
  std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string_view{} : path.substr(0, slash + 1);
}

std::string normalise_path(std::string_view path) {
  std::string p(path);
  for (char& c : p)
    if (c == '\\') c = '/';
  bool absolute = !p.empty() && p[0] == '/';
  std::vector<std::string_view> parts;
  std::string_view rest = p;
  while (!rest.empty()) {
    std::size_t slash = rest.find('/');
    std::string_view part = rest.substr(0, slash);
    rest = slash == std::string_view::npos ? std::string_view{} : rest.substr(slash + 1);
    if (part.empty() || part == ".") continue;
    if (part == ".." && !parts.empty() && parts.back() != "..") {
      parts.pop_back();
    } else if (part == ".." && absolute) {
      continue;  // nothing above the root
    } else {
      parts.push_back(part);
    }
  }
  // Built by appending only: assigning a literal to a string that may be empty makes GCC's
  // -Wrestrict (at -O2) see an overlapping copy inside std::string.
  if (parts.empty()) return std::string(absolute ? "/" : ".");
  std::string out;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i > 0 || absolute) out += '/';
    out += parts[i];
  }
  return out;
}

std::string marker_name(std::string_view path) {
  std::string out;
  for (std::size_t i = 0; i < path.size(); ++i) {
    const auto c = static_cast<unsigned char>(path[i]);
    switch (c) {
      case '\\': out += "\\\\"; continue;
      case '\n': out += "\\n"; continue;
      case '\r': out += "\\r"; continue;
      case '\t': out += "\\t"; continue;
      default: break;
    }
    if (c < 0x20 || c == 0x7f || (c == ' ' && i == 0)) {
      const char octal[] = {'\\', static_cast<char>('0' + (c >> 6)), static_cast<char>('0' + ((c >> 3) & 7)),
                            static_cast<char>('0' + (c & 7)), '\0'};
      out += octal;
      continue;
    }
    out += static_cast<char>(c);
  }
  return out;
}

}  // namespace tav::pp
