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
#pragma once

#include <cstdint>
#include <string>
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

// Each returns the exit status and writes its messages to standard error.
int load_command(const std::string& dict, const std::vector<std::string>& schemas);
int dump_command(const std::string& dict);
int check_command(const std::string& dict);

int tavdict_main(int argc, char** argv);

}  // namespace tav::dict_tool
