// tavdict: makes, lists and checks data dictionaries.
//
//   tavdict load DICT SCHEMA...   compiles the FIELD and OBJECT statements of the schema files
//                                 and writes every field and object into the dictionary DICT
//                                 (a path prefix), creating it when it does not exist
//   tavdict dump DICT             prints the dictionary as a schema that load accepts
//   tavdict check DICT            loads every object as the compiler does and reports each
//                                 inconsistency with the object's name
//
// A schema is a program text of FIELD and OBJECT statements, preprocessed like a program. Notes
// the statements cannot say (descriptions, documentation lines, validation text, column titles)
// are comment lines starting "//%" (schema_notes.cc). docs/dictionaries.md describes both.
//
// A load never leaves a dictionary that the compiler or check refuses: inside the transaction
// that writes its rows it loads every object it touches as the compiler does and compiles every
// validation text it stores as an ACCEPT reads it (verify.cc); any problem undoes the whole load.
// A field whose size changes while an object outside the load holds it is refused.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tav::dict_tool {

// ---- The dictionary contents as tavdict sees them ----------------------------------------------

struct FieldEntry {
  std::string name;
  uint16_t size = 0;     // of one occurrence
  uint16_t format = 0;   // the format word
  char type = 'A';       // the type letter
  uint16_t occurs = 1;
  uint16_t flags = 0;    // 1 UPPER-CASE, 2 LOWER-CASE, 4 JUSTIFY
  std::string column;    // database column name; empty when none
  std::string description;              // fld_doc
  std::vector<std::string> doc;         // documentation lines
  std::vector<std::string> validation;  // ACCEPT clauses applied wherever the field is accepted
  std::string title;                    // column title
  std::string drill_back;               // the DRILL-BACK program text
  // Where a schema gave them ("file, line n"); empty for what a dictionary holds.
  std::string where;                          // the statement that defines the field
  std::vector<std::string> validation_where;  // each validation line's note
};

struct RecordEntry {
  std::string field;
  uint16_t offset = 0;
};

struct KeyEntry {
  uint16_t flags = 0;  // dict_key flags: 1 duplicates allowed, 2 database-only, 4 compressed
  std::vector<std::string> fields;
  std::vector<bool> descending;
};

struct ObjectEntry {
  std::string name;
  std::string file;
  char type = 'I';
  char version = kDefaultVersion;
  char separator = ' ';
  uint16_t recsize = 0;
  std::string description;       // obj_doc
  std::vector<std::string> doc;  // documentation lines
  std::vector<RecordEntry> record;  // in offset order
  std::vector<KeyEntry> keys;       // index 1, 2, ...
  std::string where;                // the statement that defines it in a schema

  static constexpr char kDefaultVersion = '4';
};

struct Schema {
  std::vector<FieldEntry> fields;    // in id order
  std::vector<ObjectEntry> objects;  // in id order
};

// Kinds of documentation rows (doc_type). Lines of the kinds that hold several are numbered
// from 1; a title and a drill-back text are the single line 0.
enum class DocKind : int { object = 1, field = 2, validation = 3, title = 4, drill_back = 5 };

// ---- The commands --------------------------------------------------------------------------------

// Standard output with every write checked: a write that fails (a full disk) makes finish()
// report it and fail.
class Output {
 public:
  void print(std::string_view text);
  // Flushes and closes standard output; false, after a message, when anything was lost.
  bool finish();

 private:
  int error_ = 0;  // errno of the first failed write
};

// Each returns the exit status and writes its messages to standard error; what it prints goes
// through `out`.
int load_command(const std::string& dict, const std::vector<std::string>& schemas, Output& out);
int dump_command(const std::string& dict, Output& out);
int check_command(const std::string& dict, Output& out);

int tavdict_main(int argc, char** argv);

}  // namespace tav::dict_tool
