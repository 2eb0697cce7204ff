// Keys of objects: the KEY clause of the OBJECT statement, key copies for LIKE, and the choice of
// a key by the field names of ON INDEX.

#include <string>
#include <vector>

#include "symbols/parser_core.h"
#include "symbols/fields.h"
#include "symbols/object_keys.h"
#include "symbols/objects.h"
#include "symbols/records.h"

namespace tav {

namespace {

constexpr uint32_t kDesc = verb("desc");  // also DESCENDING

struct KeyOption {
  uint32_t word;
  uint16_t flag;
};
constexpr KeyOption kKeyOptions[] = {
    {verb("unique"), keyrec::flag_unique},  // also DISTINCT
    {verb("db_index_only"), keyrec::flag_db_index_only},
    {verb("compress"), keyrec::flag_compress},
};

// The last key record of an object, or 0; `count` receives the number of keys.
uint32_t last_key(const OpSpace& ops, uint32_t object, int& count) {
  count = 0;
  uint32_t last = 0;
  for (uint32_t k = ops.get24(object + osym::o_keylist); k != 0; k = ops.get24(k + keyrec::k_next)) {
    last = k;
    ++count;
  }
  return last;
}

void append_key(OpSpace& ops, uint32_t object, uint32_t key) {
  int count = 0;
  const uint32_t last = last_key(ops, object, count);
  ops.put24(last ? last + keyrec::k_next : object + osym::o_keylist, key);
}

}  // namespace

bool compile_key_clause(ParserCore& p, uint32_t object, int& keys_given) {
  OpSpace& ops = p.ops;
  ++keys_given;
  p.take(verb("is"));
  int count = 0;
  last_key(ops, object, count);
  const uint32_t key = ops.alloc(keyrec::size);
  append_key(ops, object, key);
  ops.at(key + keyrec::k_index)[0] = static_cast<uint8_t>(count + 1);
  if (count + 1 > kMaxKeys) p.diag.error(msg::too_many_keys_defined);

  int fields = 0;
  uint32_t tail = 0;
  while (p.next() == kClassName) {
    const std::string name(p.text());
    const uint32_t f = reference_field(p, name, nullptr);
    if (f == 0) {
      p.tok.skip_to_statement();
      return false;
    }
    if (!field_in_object(p, object, f)) p.diag.error(msg::field_not_contained_object);
    if (ops.get16(f + fsym::f_occurs) > 1) p.diag.error_text(txt::key_field_array, name);
    const uint32_t part = ops.alloc(keypart::size);
    ops.put24(part + keypart::kp_field, f);
    if (p.take(kDesc)) ops.put16(part + keypart::kp_desc, 1);
    ops.put24(tail ? tail + keypart::kp_next : key + keyrec::k_parts, part);
    tail = part;
    ++fields;
  }
  p.push_back();

  for (;;) {
    const uint32_t c = p.next();
    const KeyOption* option = nullptr;
    for (const KeyOption& o : kKeyOptions)
      if (o.word == c) option = &o;
    if (option == nullptr) break;
    ops.put16(key + keyrec::k_flags, ops.get16(key + keyrec::k_flags) | option->flag);
  }
  p.push_back();

  if (fields > kMaxKeyFields) p.diag.error(msg::incorrect_number_fields_key);
  return true;
}

void copy_keys(OpSpace& ops, uint32_t object, uint32_t from) {
  uint32_t tail = 0;
  int count = 0;
  tail = last_key(ops, object, count);
  for (uint32_t k = ops.get24(from + osym::o_keylist); k != 0; k = ops.get24(k + keyrec::k_next)) {
    const uint32_t copy = ops.alloc(keyrec::size);
    ops.at(copy + keyrec::k_index)[0] = ops.at(k + keyrec::k_index)[0];
    ops.put16(copy + keyrec::k_flags, ops.get16(k + keyrec::k_flags));
    ops.put24(copy + keyrec::k_parts, ops.get24(k + keyrec::k_parts));
    ops.put24(tail ? tail + keyrec::k_next : object + osym::o_keylist, copy);
    tail = copy;
  }
}

int key_by_field_names(ParserCore& p, uint32_t object, uint32_t access_block) {
  OpSpace& ops = p.ops;
  struct NamedPart {
    uint32_t field;
    bool desc;
  };
  std::vector<NamedPart> given;
  while (p.next() == kClassName) {
    if (given.size() == static_cast<size_t>(kMaxKeyFields)) return p.fail(msg::no_such_index_object);
    const std::string name(p.text());
    uint32_t prefix = 0;
    const uint32_t f = reference_field(p, name, &prefix);
    if (f == 0) return p.fail(msg::no_such_index_object);
    if (prefix != 0 && prefix != object) return p.fail(msg::field_not_contained_object);
    given.push_back({f, p.take(kDesc)});
  }
  p.push_back();

  uint32_t chosen = 0;       // the key chosen or the candidate
  bool whole = false;        // the choice covers the whole key
  bool mismatch = false;     // the candidate's directions differ from those given
  for (uint32_t k = ops.get24(object + osym::o_keylist); k != 0; k = ops.get24(k + keyrec::k_next)) {
    if (ops.get16(k + keyrec::k_flags) & keyrec::flag_db_index_only) break;
    size_t matched = 0;
    size_t parts = 0;
    bool differs = false;
    for (uint32_t kp = ops.get24(k + keyrec::k_parts); kp != 0; kp = ops.get24(kp + keypart::kp_next), ++parts) {
      if (matched == parts && matched < given.size() && ops.get24(kp + keypart::kp_field) == given[matched].field) {
        if ((ops.get16(kp + keypart::kp_desc) != 0) != given[matched].desc) differs = true;
        ++matched;
      }
    }
    if (matched != given.size()) continue;
    const bool all_parts = matched == parts;
    if (all_parts && !differs) {
      chosen = k;
      whole = true;
      mismatch = false;
      break;
    }
    if (chosen == 0 || (mismatch && !differs)) {
      chosen = k;
      whole = all_parts;
      mismatch = differs;
    }
  }
  if (chosen == 0) return p.fail(msg::no_such_index_object);
  if (mismatch) p.diag.warning_text(txt::key_direction_confusion, Context::current_token());

  const int index = ops.at(chosen + keyrec::k_index)[0];
  ops.at(access_block + accesskey::a_index)[0] = static_cast<uint8_t>(index);
  if (!whole) {
    ops.at(access_block + accesskey::a_key_count)[0] = static_cast<uint8_t>(given.size());
    ops.put16(access_block + accesskey::a_flags, ops.get16(access_block + accesskey::a_flags) | accesskey::flag_partial_key);
  }
  return index;
}

}  // namespace tav
