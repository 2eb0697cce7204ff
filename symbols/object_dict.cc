// The dictionary side of objects: objects described by a dictionary row, their keys and their
// records, with the consistency checks made while they are loaded.

#include <string>

#include "codegen/convert.h"
#include "symbols/fields.h"
#include "symbols/object_keys.h"
#include "symbols/objects.h"
#include "symbols/parser_core.h"
#include "symbols/records.h"
#include "symbols/types.h"

namespace tav {

namespace {

constexpr uint32_t kMaxDigits = 18;

std::string object_name(const OpSpace& ops, uint32_t object) {
  return std::string(ops.text_at(ops.get24(object + osym::o_name)));
}

int16_t dictno_of(const OpSpace& ops, uint32_t object) {
  return static_cast<int16_t>(ops.get16(object + osym::o_dictno));
}

// Key record flags from a dict_key row's flags.
uint16_t key_flags(uint16_t dict_flags) {
  uint16_t flags = 0;
  if (!(dict_flags & kDictKeyDuplicates)) flags |= keyrec::flag_unique;
  if (dict_flags & kDictKeyCompressed) flags |= keyrec::flag_compress;
  if (dict_flags & kDictKeyDbOnly) flags |= keyrec::flag_db_index_only;
  return flags;
}

// The key parts of one dictionary key, put at the head of the key's list from the last field to
// the first, so that the list ends in key order.
void load_key_parts(ParserCore& p, uint32_t object, uint32_t key, const DictKey& row) {
  OpSpace& ops = p.ops;
  const int dictno = dictno_of(ops, object);
  const std::string name = object_name(ops, object);
  const uint16_t objid = static_cast<uint16_t>(ops.get16(object + osym::o_objid));
  if (row.num_fields > std::size(row.field_ids)) p.diag.fatal_text(txt::dict_keys_corrupt, name);
  for (int i = row.num_fields - 1; i >= 0; --i) {
    const std::optional<DictField> field = p.dictionaries->field_by_id(dictno, row.field_ids[i]);
    const uint32_t f = field ? reference_field(p, field->name, nullptr) : 0;
    if (f == 0) p.diag.fatal_text(txt::dict_keys_corrupt, name);
    if (!p.dictionaries->record_has(dictno, objid, row.field_ids[i]))
      p.diag.fatal_text(txt::dict_key_not_in_record, name);
    if (field->occurs > 1) p.diag.fatal_text(txt::dict_key_subscripted, name);
    const uint32_t part = ops.alloc(keypart::size);
    ops.put24(part + keypart::kp_field, f);
    if (row.descending[i]) ops.put16(part + keypart::kp_desc, 1);
    ops.put24(part + keypart::kp_next, ops.get24(key + keyrec::k_parts));
    ops.put24(key + keyrec::k_parts, part);
  }
}

// A dictionary field's description holds together: a length of 1 to 4096 bytes, or 1 to 18
// digits; the size its format gives; at least one occurrence, at most 4096 bytes in all; a type
// letter that accepts the format.
bool valid_dictionary_field(const DictField& f) {
  const uint32_t size = conv::format_size(f.desc);
  if (!conv::fmt_numeric(f.desc)) {
    if (f.desc < 1 || f.desc > kDictFieldStorageLimit) return false;
  } else {
    const uint32_t digits = conv::fmt_digits(f.desc) + conv::fmt_decimals(f.desc);
    if (digits < 1 || digits > kMaxDigits) return false;
  }
  return size == f.size && f.occurs >= 1 && static_cast<uint32_t>(f.size) * f.occurs <= kDictFieldStorageLimit &&
         type_accepts(f.type, f.desc);
}

// An object of a later dictionary names a field that an earlier dictionary also has: the two
// must describe the same field (error 32 otherwise); a different column name only warns.
void check_earlier_dictionaries(ParserCore& p, int dictno, const DictField& f) {
  for (int d = 0; d < dictno; ++d) {
    const std::optional<DictField> other = p.dictionaries->find_field_in(d, f.name);
    if (!other) continue;
    if (other->desc == f.desc && other->type == f.type && other->occurs == f.occurs) {
      const bool names_differ = f.col_name.substr(0, kDictColumnNameLength) !=
                                other->col_name.substr(0, kDictColumnNameLength);
      if (names_differ || (f.col_name.empty() && other->id != f.id))
        p.diag.warning_text(txt::dict_column_names_differ, f.name);
    } else {
      p.diag.set_name(f.name);
      p.diag.error(msg::dictionary_field_definitions_different);
    }
    return;
  }
}

// Links one field of a dictionary record; false when it was left out (referenced fields only,
// and the program has no field of that name).
bool link_dictionary_field(ParserCore& p, uint32_t object, const DictField& field, uint16_t offset,
                           bool all_fields, uint32_t& tail) {
  OpSpace& ops = p.ops;
  uint32_t f = p.syms.find_field(field.name);
  if (!all_fields && f == 0) return false;
  if (all_fields) {
    f = reference_field(p, field.name, nullptr);
    if (f == 0) throw run_stop(txt::dict_load_fields);
  }
  if (static_cast<int16_t>(ops.get16(f + fsym::f_dictno)) < 0) {
    p.diag.set_name(field.name);
    p.diag.error(msg::defined_field_present_object);
  }
  if (!valid_dictionary_field(field)) throw run_stop(txt::dict_field_invalid, {field.name});
  tail = link_record_field(ops, object, f, offset, tail);
  const uint32_t record = ops.get24(object + osym::o_record);
  if (ops.get24(f + fsym::f_addr) == 0 && !(ops.get16(object + osym::o_attr) & osym::attr_no_joins))
    ops.put24(f + fsym::f_addr, record + offset);
  return true;
}

}  // namespace

std::optional<DictObject> lookup_dictionary_object(ParserCore& p, std::string_view name) {
  if (p.dictionaries->open_count() == 0) return std::nullopt;
  return p.dictionaries->find_object(name);
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
  OpSpace& ops = p.ops;
  const char type = static_cast<char>(ops.at(object + osym::o_filtype)[0]);
  const int dictno = dictno_of(ops, object);
  if (!file_type_has_keys(type) || dictno < 0 || ops.get24(object + osym::o_keylist) != 0) return;
  const uint16_t objid = static_cast<uint16_t>(ops.get16(object + osym::o_objid));
  uint32_t tail = 0;
  bool db_only_seen = false;
  for (uint16_t index_no = 1;; ++index_no) {
    const std::optional<DictKey> row = p.dictionaries->key(dictno, objid, index_no);
    if (!row) {
      if (index_no == 1) p.diag.fatal_text(txt::dict_key_info, object_name(ops, object));
      return;
    }
    if (db_only_seen && !(row->flags & kDictKeyDbOnly)) p.diag.fatal_text(txt::dict_db_only_first, object_name(ops, object));
    db_only_seen |= (row->flags & kDictKeyDbOnly) != 0;
    const uint32_t key = ops.alloc(keyrec::size);
    ops.at(key + keyrec::k_index)[0] = static_cast<uint8_t>(index_no);
    ops.put16(key + keyrec::k_flags, key_flags(row->flags));
    ops.put24(tail ? tail + keyrec::k_next : object + osym::o_keylist, key);
    tail = key;
    load_key_parts(p, object, key, *row);
  }
}

bool load_dictionary_record(ParserCore& p, uint32_t object, bool all_fields) {
  OpSpace& ops = p.ops;
  const int dictno = dictno_of(ops, object);
  if (dictno < 0 || ops.get24(object + osym::o_fldobj) != 0) return true;
  const uint16_t objid = static_cast<uint16_t>(ops.get16(object + osym::o_objid));
  const std::string name = object_name(ops, object);
  uint32_t total = 0;
  uint32_t tail = 0;
  bool complete = true;
  for (const DictRecordEntry& entry : p.dictionaries->record(dictno, objid)) {
    if (p.settings.dict_check && entry.offset != total) throw run_stop(txt::dict_rec_offsets, {name});
    const std::optional<DictField> field = p.dictionaries->field_by_id(dictno, entry.field_id);
    if (!field) throw run_stop(txt::dict_record_corrupt, {name});
    if (dictno > 0) check_earlier_dictionaries(p, dictno, *field);
    total += static_cast<uint32_t>(field->size) * field->occurs;
    complete &= link_dictionary_field(p, object, *field, entry.offset, all_fields, tail);
  }
  if (p.settings.dict_check && total != ops.get16(object + osym::o_recsize))
    throw run_stop(txt::dict_record_size, {name});
  if (complete) ops.put16(object + osym::o_attr, ops.get16(object + osym::o_attr) | osym::attr_complete);
  return complete;
}

}  // namespace tav
