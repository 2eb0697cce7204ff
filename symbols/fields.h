// Field definitions and field references.
//
// A program defines its own fields with the FIELD statement (also DEFINE, FIELDS), in the record
// list of an OBJECT statement, and as LOCAL, PARAMETERS and RETURNING fields of a section header.
// Define field reads the definition clauses after the name (PICTURE, TYPE, OCCURS, LIKE, case and
// justification, database column name, DRILL-BACK), settles the type letter and the format word
// and computes the storage size of one occurrence. Storage itself is given on first reference:
// a program field takes its bytes from the data area, a local field from its section's local
// storage (addresses from 2 up, at most 65500 bytes per section), and a dictionary field shares
// its object's record buffer once the record is loaded.
//
// Fields the program does not define are loaded from the dictionaries (symbols/dictionary.h)
// the first time they are referenced.
#pragma once

#include <cstdint>
#include <string_view>

namespace tav {

class ParserCore;

// The running notes of the field types used, read by the expression compiler: the type letter
// of the last field whose type is not N, the largest non-numeric format word (a length) and the
// largest integer-digit and decimal counts of numeric fields. The expression compiler resets
// them when it starts an expression.
struct FieldNotes {
  char last_type = 0;
  uint16_t alpha_length = 0;
  uint16_t digits = 0;
  uint16_t decimals = 0;
};

// Largest local storage of one section, in bytes.
inline constexpr uint32_t kLocalStorageLimit = 65500;
// Largest storage of all occurrences of a program field, and of a dictionary field.
inline constexpr uint32_t kFieldStorageLimit = 32767;
inline constexpr uint32_t kDictFieldStorageLimit = 4096;

// Defines a field whose name was just read; reads its clauses. `local` for section fields: the
// caller links the field into the section's local list; a global field is appended to the
// global list and entered into the field cache here. Returns the field_sym.
uint32_t define_field(ParserCore& p, std::string_view name, bool local);

// The FIELD statement after its word: name clauses... for each field up to the next statement.
void define_fields(ParserCore& p);

// Finds a field (loading it from the dictionaries when unknown), allocates its storage on first
// reference; returns the field_sym or 0 (after reporting). `object` may be null: then an
// "object.field" prefix is error 120; else it receives the qualifying object (or 0).
uint32_t reference_field(ParserCore& p, std::string_view name, uint32_t* object);

// The characters of a field or section name: letters, digits, "_", "-", "$" and "%", with at
// least one letter.
bool valid_name_characters(std::string_view name);

// True when the name (an "object." prefix is dropped) is a program field or a field of an open
// dictionary. Creates nothing.
bool field_is_known(ParserCore& p, std::string_view name);

// DRILL-BACK from the dictionary, for a screen statement that needs a field's drill-back: a field
// without DRILL-BACK of its own, described by a dictionary, takes that dictionary's drill-back
// text for its field id; when the id is a dictionary field of another name, each "%other%" in the
// text becomes "%own%".
void dictionary_drill_back(ParserCore& p, uint32_t field);

// Adds a field to the running type notes (Parser::field_notes).
void note_field_type(ParserCore& p, uint32_t field);

// The section field lists of a section header (LOCAL, PARAMETERS or RETURNING), entered with the
// list's keyword accepted. Each name is declared as a local field of the current section unless
// it is one already. PARAMETERS and RETURNING also build the section's list; when a call made
// before the section was defined left a list there, the names are checked against it instead.
// With `record` false (a repeated clause) the names are declared and no list is touched.
enum class FieldListKind { local, parameters, returning };
void compile_section_field_list(ParserCore& p, uint32_t section, FieldListKind kind, bool record = true);

// End of a section: information 109 for each local field never referenced (no storage) that is
// neither a parameter nor a result.
void report_unreferenced_locals(ParserCore& p, uint32_t section);

}  // namespace tav
