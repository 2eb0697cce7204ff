// Positions in a text as the protocol counts them (0-based lines, UTF-16 code units within the
// line) and as the compiler does (1-based lines, characters from 1), and file URIs.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tav::lsp {

// The byte offset of a protocol position in `text`. A line past the end gives the text's end,
// a character past the end of its line gives the line's end; a position inside a
// surrogate pair gives the start of its character.
size_t offset_of(std::string_view text, int line, int character);

// The text of line `line` (from 0) without its line end; empty past the end.
std::string_view line_of(std::string_view text, int line);

// The lines of a text, found once, so that taking many of them does not read the text again
// for each (line_of does). The text must outlive the index.
class LineIndex {
 public:
  explicit LineIndex(std::string_view text);
  // As line_of(text, line).
  std::string_view line(int line) const;
  // Lines of the text; a last line without its line end counts.
  int count() const;

 private:
  std::string_view text_;
  std::vector<size_t> starts_;
};

// The UTF-16 offset in `line` where character column `column` (from 1) begins. Bytes that are
// not UTF-8 count as one character each; columns past the line's end count one unit each.
int utf16_column(std::string_view line, int column);
// The length of `line` in UTF-16 code units.
int utf16_length(std::string_view line);

// Lines of files as they are on disk, each file read once for the object's life.
class DiskLines {
 public:
  // Line `line` (from 1) of the file; nothing when the file cannot be read.
  std::optional<std::string> line(const std::string& path, int line);

 private:
  struct File {
    explicit File(std::string t) : text(std::move(t)), lines(text) {}
    std::string text;
    LineIndex lines;  // of `text`: a File is never moved
  };
  std::map<std::string, std::unique_ptr<File>> files_;  // null: the file cannot be read
};

// "file:///a/b%20c.spl" for "/a/b c.spl", and back; nothing for another scheme.
std::string uri_of_path(std::string_view path);
std::optional<std::string> path_of_uri(std::string_view uri);

}  // namespace tav::lsp
