// The dictionary side of objects: objects described by a dictionary row, their keys and records.
//
// The dictionary layer (symbols/dictionary.h) does not describe objects yet: until it does, no
// object is found there, so every object comes from an OBJECT statement and the loads below
// have nothing to read.

#include "symbols/parser_core.h"
#include "symbols/object_keys.h"
#include "symbols/objects.h"
#include "symbols/records.h"

namespace tav {

std::optional<DictObject> lookup_dictionary_object(ParserCore& p, std::string_view name) {
  if (p.dictionaries->open_count() == 0) return std::nullopt;
  static_cast<void>(name);
  return std::nullopt;
}

void apply_dictionary_row(ParserCore& p, uint32_t object, const DictObject& row) {
  OpSpace& ops = p.ops;
  ops.put16(object + osym::o_dictno, static_cast<uint16_t>(row.dictno));
  ops.put24(object + osym::o_file, row.file.empty() ? 0 : ops.store_text(row.file));
  ops.at(object + osym::o_filtype)[0] = static_cast<uint8_t>(row.type);
  ops.at(object + osym::o_version)[0] = static_cast<uint8_t>(row.version);
  ops.put16(object + osym::o_objid, row.id);
  if (row.type == osym::type_external) ops.at(object + osym::o_separator)[0] = static_cast<uint8_t>(row.separator);
  if (row.type == osym::type_indexed && row.filler1 == 'Y') ops.at(object + osym::o_filler1)[0] = 1;

  if (row.recsize >= 1 && row.recsize <= osym::max_recsize) {
    ops.put16(object + osym::o_recsize, row.recsize);
    if (ops.get24(object + osym::o_record) == 0)
      ops.put24(object + osym::o_record, p.data.alloc((row.recsize + 1u) & ~1u));
  } else {
    p.diag.error(msg::record_size_object_invalid);
    ops.put16(object + osym::o_recsize, 0);
  }
  load_dictionary_keys(p, object);
}

void load_dictionary_keys(ParserCore& p, uint32_t object) {
  const OpSpace& ops = p.ops;
  const char type = static_cast<char>(ops.at(object + osym::o_filtype)[0]);
  if (!file_type_has_keys(type) || static_cast<int16_t>(ops.get16(object + osym::o_dictno)) < 0 ||
      ops.get24(object + osym::o_keylist) != 0)
    return;
  // The dictionary layer has no key rows to give yet.
}

bool load_dictionary_record(ParserCore& p, uint32_t object, bool all_fields) {
  const OpSpace& ops = p.ops;
  static_cast<void>(all_fields);
  if (static_cast<int16_t>(ops.get16(object + osym::o_dictno)) < 0 || ops.get24(object + osym::o_fldobj) != 0)
    return true;
  // The dictionary layer has no record rows to give yet.
  return true;
}

}  // namespace tav
