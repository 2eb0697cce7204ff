// Objects: the OBJECT statement, objects found or loaded by name, field joining, key choice by
// field names, the OPEN clause rules of an object, and the end-of-program passes over objects
// and fields.
//
// An object is a file or table read and written through a record buffer in the data area. A
// field in the record of an object that joins (is not NO-JOINS) has no storage of its own: its
// address is the record buffer plus its offset, so reading a record sets the program's field.
// When several joining objects hold one field, an OBJECT statement moves the field into its own
// buffer (the last statement wins), while a record loaded from a dictionary places only fields
// that have no address yet (the first one wins).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "symbols/clauses.h"

namespace tav {

class OpSpace;
class ParserCore;

// ---- File types ------------------------------------------------------------------------------

// A TYPE word of the OBJECT statement and the file type letter it gives.
struct FileTypeRow {
  uint32_t word;   // verb code of the TYPE word
  char letter;     // o_filtype
};

// The row of a TYPE word's verb code, or nullptr.
const FileTypeRow* find_file_type(uint32_t word);
// Indexed and memory files have keys (at least one); no other file type may have any.
constexpr bool file_type_has_keys(char letter) { return letter == 'I' || letter == 'M'; }

// ---- Objects ---------------------------------------------------------------------------------

// A dict_object row as the object layer needs it.

// The OBJECT statement after its word: name clauses...; makes the program's object of that name.
void define_object(ParserCore& p);

// The dictionary object of that name from the open dictionaries, or nothing. Asks the
// dictionary layer; with no dictionary open it finds nothing.
std::optional<DictObject> lookup_dictionary_object(ParserCore& p, std::string_view name);

// Creates the object_sym of a dictionary object (appended to the object list) and loads its keys.
uint32_t object_from_dictionary(ParserCore& p, std::string_view name, const DictObject& row);

// The object of that name; an unknown name is looked up in the dictionaries and loaded. Not
// found: error 15 with the name, the rest of the statement is skipped and the result is 0.
uint32_t find_or_load_object(ParserCore& p, std::string_view name);

// True when the object's record holds the field. A program object answers from its record
// chain; a dictionary object from its dictionary's record (for dictionary fields only), whether
// or not the record has been linked yet.
bool field_in_object(ParserCore& p, uint32_t object, uint32_t field);

// Links a field into an object's record at `offset`: the new field_obj_link goes to the head of
// the field's chain and after `tail` in the object's chain (at the head when `tail` is 0).
// Returns the link, which is the new tail.
uint32_t link_record_field(OpSpace& ops, uint32_t object, uint32_t field, uint32_t offset,
                           uint32_t tail);

// ---- Keys ------------------------------------------------------------------------------------

// Access key description: the 13-byte block of statements that read an object through a key.
namespace accesskey {
inline constexpr uint16_t flag_full_key = 0x8000;
inline constexpr uint16_t flag_partial_key = 0x1000;
inline constexpr uint16_t flag_default_index = 0x0800;
inline constexpr uint16_t flag_different = 0x0008;
inline constexpr uint16_t flag_same = 0x0004;
}  // namespace accesskey

// ON INDEX followed by field names: reads up to 8 field names (each optionally DESC or
// DESCENDING) while the next token is a plain word, chooses the key of `object` they lead and
// writes its index number into the access block (with the key count and the partial-key flag
// unless the whole key was named). Returns the index number, or -1 after error 14 or 81 (the
// statement is then skipped).
int key_by_field_names(ParserCore& p, uint32_t object, uint32_t access_block);

// ---- OPEN clauses ----------------------------------------------------------------------------

// OPEN flags.
namespace open_flag {
inline constexpr uint16_t lock = 0x0001;
inline constexpr uint16_t read_only = 0x0002;
inline constexpr uint16_t local = 0x0004;
inline constexpr uint16_t temporary = 0x0008;
inline constexpr uint16_t create = 0x0010;
inline constexpr uint16_t truncate = 0x0020;
inline constexpr uint16_t append = 0x0040;
inline constexpr uint16_t private_ = 0x0080;
inline constexpr uint16_t index_on_close = 0x0100;
}  // namespace open_flag

// What the clauses of one OPEN statement have said so far.
struct OpenClauses {
  uint16_t flags = 0;
  bool permanent = false;
  bool file = false;  // FILE [IS] expression: compiled by the OPEN statement, which sets this
  ClausesSeen seen;   // for the given-twice and exclusion checks of the clause table
  int line = 0;       // where the object was named: the checks after the last clause report
                      // at it, though the statement has been read on by then
};

// Applies the OPEN clause word just read (the current token) to `object`. Returns false, leaving
// the token alone, for a word that is not one of these clauses (FILE among them).
bool open_clause(ParserCore& p, uint32_t object, OpenClauses& clauses);
// The checks after the last clause; may add the temporary flag.
void finish_open_clauses(ParserCore& p, uint32_t object, OpenClauses& clauses);

// ---- End of program --------------------------------------------------------------------------

// Links the dictionary records of the objects the program uses: whole records for objects it
// writes or that were declared complete, otherwise only the fields it references.
void object_post_processing(ParserCore& p);

// Gives every global field its initial data: storage for dictionary fields held by no record,
// the empty value of its type, copied into every record position that holds the field.
void joined_field_data(ParserCore& p);

// The data-area initialiser: writes `occurs` empty values of a field with this format word and
// type letter at `at` and tells whether any byte written is non-zero.
bool init_field_data(uint8_t* at, uint16_t format, char type, uint32_t occurs);

}  // namespace tav
