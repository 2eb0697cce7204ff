// Internals shared by the object sources: keys and the dictionary side of objects.
#pragma once

#include <cstdint>

namespace tav {

class OpSpace;
class ParserCore;
struct DictObject;

// Most keys of one object, and most fields of one key.
inline constexpr int kMaxKeys = 16;
inline constexpr int kMaxKeyFields = 8;

// KEY [IS] field [DESC] ... [UNIQUE | DB-INDEX-ONLY | COMPRESS ...]: one key appended to the
// object's key list; `keys_given` counts the KEY clauses. False when the statement was skipped.
bool compile_key_clause(ParserCore& p, uint32_t object, int& keys_given);

// Gives `object` a copy of every key record of `from`; the key parts are shared.
void copy_keys(OpSpace& ops, uint32_t object, uint32_t from);

// Fills an object from its dictionary row: file, type, size, version, id, separator and filler
// flag; a record buffer when it has none; then its keys.
void apply_dictionary_row(ParserCore& p, uint32_t object, const DictObject& row);

// Loads the keys of an indexed or memory object that has a dictionary and no keys yet.
void load_dictionary_keys(ParserCore& p, uint32_t object);

// Links the record of a dictionary object that has no record chain yet: every field, or only
// the fields the program has referenced. False when a field was left out.
bool load_dictionary_record(ParserCore& p, uint32_t object, bool all_fields);

}  // namespace tav
