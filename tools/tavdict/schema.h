// Internals of tavdict: reading schemas, the dictionary rows, writing schemas.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "symbols/dictionary_files.h"
#include "tavdict.h"

namespace tav::dict_tool {

// Problems found in the input, each a complete message line.
using Problems = std::vector<std::string>;

// Writes each problem to standard error; the exit status: 1 when there is any.
int report(const Problems& problems);

// The test hook of test_hook.cc, installed when its variable is set.
void install_test_hooks();

// ---- Schemas -------------------------------------------------------------------------------------

// A note line of a preprocessed schema, with where it came from.
struct Note {
  std::string where;   // "file, line n"
  bool object = false;  // an object note; else a field note
  std::string name;    // lower case
  std::string word;
  std::string text;    // trailing blanks removed
};

// The "//%" lines of a preprocessed schema text; malformed ones are added to `problems`.
std::vector<Note> read_notes(std::string_view text, Problems& problems);
// Applies the notes to the entries they name.
void apply_notes(const std::vector<Note>& notes, Schema& schema, Problems& problems);

// Preprocesses and compiles the schema files as one program of FIELD and OBJECT statements.
// The compiler's diagnostics go to standard error; any error, or a problem with the notes or
// with the dictionary's limits, leaves `problems` non-empty.
Schema read_schemas(const std::vector<std::string>& files, Problems& problems);

// Checks what the dictionary's columns can hold: name, file and text lengths, ids.
void check_limits(const Schema& schema, Problems& problems);

// The schema text of a dictionary's contents; an entry no statement can express is a problem.
std::string write_schema(const Schema& schema, Problems& problems);

// ---- What the compiler makes of a dictionary (verify.cc) -----------------------------------------

// The problems the compiler meets when it loads object `name` of dictionary 0 of `files`, with
// its keys and its whole record; each a message line. `listing` is a scratch file's path.
std::vector<std::string> object_problems(DictionaryFiles& files, const std::string& name, const std::string& listing);

// An error an ACCEPT of a field meets in the field's validation text: on line `line` of the text
// (from 1), or 0 when it shows only once the text has been read.
struct ValidationError {
  int line = 0;
  std::string message;
};
std::vector<ValidationError> validation_errors(DictionaryFiles& files, const std::string& field,
                                               const std::string& listing);

// ---- Dictionaries --------------------------------------------------------------------------------

// An open dictionary: the compiler's dictionary files on one path prefix.
class Store {
 public:
  // Opens the dictionary at `prefix`; with `create`, makes its missing tables and version file
  // first, adding the paths it made (on a database server, the tables) to `created`. Nothing (with `problems` set) when it cannot
  // be opened. Opened read only, the store reads the dictionary as one snapshot.
  static std::unique_ptr<Store> open(const std::string& prefix, bool create, bool read_only, Problems& problems,
                                     std::vector<std::string>* created = nullptr);

  // Removes what open made for a load that was refused: the files (or, on a server, the tables
  // and the schema) listed in `created`.
  static void remove_created(const std::string& prefix, const std::vector<std::string>& created);

  DictionaryFiles& files() { return files_; }
  const std::string& prefix() const { return prefix_; }

  // Writes every entry of the schema, keeping the ids of names the dictionary has, and checks
  // what the compiler makes of the result (verify.cc); all or nothing.
  bool load(const Schema& schema, Problems& problems);
  // The dictionary's contents; rows that do not hold together are problems.
  Schema read(Problems& problems);
  // The names of all objects, in name order.
  std::vector<std::string> object_names();

 private:
  explicit Store(std::string prefix);
  static std::unique_ptr<Store> open_on_server(const std::string& name, const datafile::FileLocation& where,
                                               bool create, bool read_only, Problems& problems,
                                               std::vector<std::string>* created);
  std::string prefix_;
  DictionaryFiles files_;
};

// The tables tavdict opens and the version file.
inline constexpr uint16_t kAllTables = 0x039F | 0x0400;

}  // namespace tav::dict_tool
