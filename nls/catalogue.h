// The message catalogue: the compiler's own fixed texts (dialog and mode words, their help
// texts) by number, with the translations of the installation's catalogue files.
//
// With a language set, the files are <product>/nls/<language>/<n>999.txt, one per thousand
// numbers (0999.txt for 1 to 999, 1999.txt for 1000 to 1999). A line holds a number (after
// optional blanks or tabs) and a text in double quotes, in which \" is a quote and \\ a
// backslash. A translation is read the first time its entry is asked for: the file is searched
// for the number, and from that line on every entry of the table met whose translation is still
// unset is loaded as well. An empty text, a missing text or a missing line or file leaves the
// default text in force.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/files_read.h"

namespace tav::nls {

class Catalogue {
 public:
  // `product_dir` is the installation directory ending in "/"; an empty `language` leaves the
  // catalogue without files (every entry keeps its default text).
  Catalogue(std::string_view product_dir, std::string_view language);

  // The text of `number`: its translation, or its default text; "" for a number below 1 and
  // "<number>: No Text!" for one that has no entry.
  std::string text(int number);

  // The translation of `number` when a catalogue file gives a non-empty one.
  std::optional<std::string> translation(int number);

  // The directory of the catalogue files, "" when there are none.
  const std::string& directory() const { return directory_; }

  // Every catalogue file read from now on is added to `files`, which must outlive this object.
  void note_files_in(FilesRead* files) { files_read_ = files; }

 private:
  struct Entry {
    int number;
    std::string_view default_text;
    std::string translated;  // empty until loaded
  };

  Entry* entry(int number);
  void load(int number);
  void load_line(std::string_view line, int wanted, bool& found);

  std::string directory_;
  std::vector<Entry> entries_;
  FilesRead* files_read_ = nullptr;
};

// Reads a catalogue line: its number and its quoted text (escapes resolved). Nothing when the
// line has no number; a number with no quoted text gives an empty text.
struct CatalogueLine {
  int number;
  std::string text;
};
std::optional<CatalogueLine> parse_catalogue_line(std::string_view line);

}  // namespace tav::nls
