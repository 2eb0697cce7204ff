#include "symbols/symtab.h"

#include <cstring>

#include "codegen/header.h"
#include "codegen/opspace.h"

namespace tav {

// --- Name index --------------------------------------------------------------------------------

void NameIndex::clear() {
  slots_.assign(64, 0);
  count_ = 0;
}

// FNV-1a over the characters that take part in a comparison of names.
uint32_t NameIndex::hash(std::string_view name) {
  if (name.size() > kSymbolNameLength) name = name.substr(0, kSymbolNameLength);
  uint32_t h = 2166136261u;
  for (char c : name) h = (h ^ static_cast<unsigned char>(c)) * 16777619u;
  return h;
}

uint32_t NameIndex::find(const OpSpace& ops, std::string_view name) const {
  if (slots_.empty()) return 0;
  const size_t mask = slots_.size() - 1;
  for (size_t s = hash(name) & mask; slots_[s] != 0; s = (s + 1) & mask) {
    const uint32_t rec = slots_[s];
    if (SymbolTable::compare_names(ops.text_at(ops.get24(rec + name_member_)), name) == 0) return rec;
  }
  return 0;
}

void NameIndex::add(const OpSpace& ops, uint32_t record) {
  if (slots_.empty()) clear();
  const std::string_view name = ops.text_at(ops.get24(record + name_member_));
  if (find(ops, name) != 0) return;  // the first record of a name answers for it
  if (2 * (count_ + 1) > slots_.size()) grow(ops);
  const size_t mask = slots_.size() - 1;
  size_t s = hash(name) & mask;
  while (slots_[s] != 0) s = (s + 1) & mask;
  slots_[s] = record;
  ++count_;
}

void NameIndex::grow(const OpSpace& ops) {
  std::vector<uint32_t> old(slots_.size() * 2, 0);
  old.swap(slots_);
  const size_t mask = slots_.size() - 1;
  for (uint32_t rec : old) {
    if (rec == 0) continue;
    size_t s = hash(ops.text_at(ops.get24(rec + name_member_))) & mask;
    while (slots_[s] != 0) s = (s + 1) & mask;
    slots_[s] = rec;
  }
}

// --- Symbol table ------------------------------------------------------------------------------

SymbolTable::SymbolTable(OpSpace& ops, bool debug_ops)
    : ops_(ops), debug_ops_(debug_ops), field_index_(fsym::f_name), section_index_(ssym::s_name) {}

void SymbolTable::reset() {
  cache_count_ = 0;
  insertion_point_ = 0;
  field_tail_ = 0;
  object_tail_ = 0;
  current_section_ = 0;
  field_index_.clear();
  section_index_.clear();
  section_prev_.clear();
  section_tail_ = 0;
  defined_at_.clear();
  first_used_at_.clear();
  xref_.clear();
}

int SymbolTable::compare_names(const char* stored, std::string_view name) {
  for (size_t i = 0; i < kSymbolNameLength; ++i) {
    const auto a = static_cast<unsigned char>(stored[i]);
    const auto b = i < name.size() ? static_cast<unsigned char>(name[i]) : 0u;
    if (a != b) return a < b ? -1 : 1;
    if (a == 0) return 0;
  }
  return 0;
}

std::string_view SymbolTable::text(uint32_t link) const {
  return link == 0 ? std::string_view{} : std::string_view{ops_.text_at(link)};
}

uint32_t SymbolTable::store_name(std::string_view name) { return ops_.store_text(name); }

// --- Places ------------------------------------------------------------------------------------

void SymbolTable::note_defined(uint32_t record) {
  if (places_diag_ && places_diag_->collecting()) defined_at_.try_emplace(record, places_diag_->current_mark());
}

void SymbolTable::note_used(uint32_t record) {
  if (places_diag_ && places_diag_->collecting()) first_used_at_.try_emplace(record, places_diag_->current_mark());
}

void SymbolTable::note_used(uint32_t record, SourceMark where) {
  if (places_diag_ && places_diag_->collecting()) first_used_at_.try_emplace(record, where);
}

void SymbolTable::note_name(XrefKind kind, uint32_t record, std::string_view name, bool definition) {
  if (!keeps_xref() || record == 0) return;
  const SourceMark where = places_diag_->mark_of_word(name);
  if (!where.known()) return;  // a name the compiler supplies, not one written here
  xref_.add({kind, record, std::string(name.substr(0, kSymbolNameLength)), where, definition, xref_.statement(),
             xref_.access()});
}

SourceMark SymbolTable::defined_at(uint32_t record) const {
  auto it = defined_at_.find(record);
  return it == defined_at_.end() ? SourceMark{} : it->second;
}

SourceMark SymbolTable::first_used_at(uint32_t record) const {
  auto it = first_used_at_.find(record);
  return it == first_used_at_.end() ? SourceMark{} : it->second;
}

// --- Fields ------------------------------------------------------------------------------------

uint32_t SymbolTable::new_field(std::string_view name, bool local) {
  if (name.size() > kSymbolNameLength) name = name.substr(0, kSymbolNameLength);
  const uint32_t f = ops_.alloc(fsym::size);
  ops_.put24(f + fsym::f_name, store_name(name));
  ops_.put16(f + fsym::f_seq, ops_.next_count(hdr::h_field_count, "fields"));
  ops_.put16(f + fsym::f_fldid, fsym::fldid_none);
  ops_.put16(f + fsym::f_dictno,
             static_cast<uint16_t>(local ? fsym::dictno_local : fsym::dictno_program));
  ops_.put16(f + fsym::f_ldictno, static_cast<uint16_t>(fsym::dictno_program));
  note_defined(f);
  note_name(XrefKind::field, f, name, true);
  return f;
}

void SymbolTable::append_field(uint32_t field) {
  if (field_tail_ == 0) {
    // The first append of the program; walk to the end in case the list was built without us.
    uint32_t tail = ops_.get24(hdr::h_fields);
    if (tail == 0) {
      ops_.put24(hdr::h_fields, field);
    } else {
      field_index_.add(ops_, tail);
      while (ops_.get24(tail + fsym::f_next) != 0) {
        tail = ops_.get24(tail + fsym::f_next);
        field_index_.add(ops_, tail);
      }
      ops_.put24(tail + fsym::f_next, field);
    }
  } else {
    ops_.put24(field_tail_ + fsym::f_next, field);
  }
  field_tail_ = field;
  field_index_.add(ops_, field);
}

uint32_t SymbolTable::add_global_field(std::string_view name) {
  const uint32_t f = new_field(name);
  append_field(f);
  enter_field_into_cache(f);
  return f;
}

void SymbolTable::link_local_field(uint32_t section, uint32_t field) {
  ops_.put24(field + fsym::f_next, ops_.get24(section + ssym::s_locals));
  ops_.put24(section + ssym::s_locals, field);
}

uint32_t SymbolTable::find_local_field(uint32_t section, std::string_view name) const {
  if (section == 0) return 0;
  for (uint32_t f = ops_.get24(section + ssym::s_locals); f != 0; f = ops_.get24(f + fsym::f_next)) {
    if (compare_names(ops_.text_at(ops_.get24(f + fsym::f_name)), name) == 0) return f;
  }
  return 0;
}

// Binary search of the cache. Returns the index of the match, or the index where the name
// would be inserted.
int SymbolTable::cache_search(std::string_view name, bool& found) const {
  int lo = 0;
  int hi = cache_count_;
  while (lo < hi) {
    const int mid = (lo + hi) / 2;
    const int c = compare_names(ops_.text_at(ops_.get24(cache_[mid].field + fsym::f_name)), name);
    if (c == 0) {
      found = true;
      return mid;
    }
    if (c < 0) {
      lo = mid + 1;
    } else {
      hi = mid;
    }
  }
  found = false;
  return lo;
}

uint32_t SymbolTable::find_field(std::string_view name) {
  if (const uint32_t local = find_local_field(current_section_, name)) return local;

  bool found = false;
  const int pos = cache_search(name, found);
  if (found) {
    cache_[pos].hits = static_cast<uint16_t>(cache_[pos].hits + 1);
    return cache_[pos].field;
  }
  insertion_point_ = pos;
  if (cache_count_ < kCacheSize) return 0;  // the cache holds every global field

  const uint32_t f = field_index_.find(ops_, name);
  if (f != 0) enter_field_into_cache(f);
  return f;
}

void SymbolTable::enter_field_into_cache(uint32_t field) {
  const char* name = ops_.text_at(ops_.get24(field + fsym::f_name));
  auto name_at = [&](int i) { return ops_.text_at(ops_.get24(cache_[i].field + fsym::f_name)); };

  // The kept insertion point is where the lookup that preceded this call stopped. Should the
  // last lookup have been for another name, that position would break the order the binary
  // search relies on, so it is found again.
  int ip = insertion_point_;
  const bool fits = ip >= 0 && ip <= cache_count_ &&
                    (ip == 0 || compare_names(name_at(ip - 1), name) < 0) &&
                    (ip == cache_count_ || compare_names(name_at(ip), name) > 0);
  if (!fits) {
    bool found = false;
    ip = cache_search(name, found);
  }

  if (cache_count_ == kCacheSize) {
    int victim = 0;
    for (int i = 1; i < cache_count_; ++i) {
      if (cache_[i].hits < cache_[victim].hits) victim = i;
    }
    for (int i = victim; i < cache_count_ - 1; ++i) cache_[i] = cache_[i + 1];
    --cache_count_;
    if (victim < ip) --ip;
  }
  if (ip > cache_count_) ip = cache_count_;
  for (int i = cache_count_; i > ip; --i) cache_[i] = cache_[i - 1];
  cache_[ip] = CacheEntry{1, field};
  ++cache_count_;
  insertion_point_ = ip;
}

// --- Objects -----------------------------------------------------------------------------------

uint32_t SymbolTable::find_object(std::string_view name) const {
  for (uint32_t o = ops_.get24(hdr::h_objects); o != 0; o = ops_.get24(o + osym::o_next)) {
    if (compare_names(ops_.text_at(ops_.get24(o + osym::o_name)), name) == 0) return o;
  }
  return 0;
}

uint32_t SymbolTable::add_object(std::string_view name, int16_t dictno) {
  const uint32_t o = ops_.alloc(osym::size);
  if (object_tail_ == 0) {
    uint32_t tail = ops_.get24(hdr::h_objects);
    if (tail == 0) {
      ops_.put24(hdr::h_objects, o);
    } else {
      while (ops_.get24(tail + osym::o_next) != 0) tail = ops_.get24(tail + osym::o_next);
      ops_.put24(tail + osym::o_next, o);
    }
  } else {
    ops_.put24(object_tail_ + osym::o_next, o);
  }
  object_tail_ = o;
  ops_.put24(o + osym::o_name, store_name(name));
  ops_.put16(o + osym::o_dictno, static_cast<uint16_t>(dictno));
  ops_.put16(o + osym::o_seq, ops_.next_count(hdr::h_object_count, "objects"));
  note_defined(o);
  note_name(XrefKind::object, o, name, true);
  return o;
}

// --- Sections ----------------------------------------------------------------------------------

uint32_t SymbolTable::find_section(std::string_view name) const {
  return section_index_.find(ops_, name);
}

// Links `section` behind `after` (0: at the head) and keeps the predecessors and the tail.
void SymbolTable::link_section_after(uint32_t after, uint32_t section) {
  const uint32_t next = after == 0 ? ops_.get24(hdr::h_screens) : ops_.get24(after + ssym::s_next);
  ops_.put24(section + ssym::s_next, next);
  ops_.put24(after == 0 ? hdr::h_screens : after + ssym::s_next, section);
  section_prev_[section] = after;
  if (next != 0)
    section_prev_[next] = section;
  else
    section_tail_ = section;
}

void SymbolTable::unlink_section(uint32_t section) {
  const uint32_t prev = section_prev_[section];
  const uint32_t next = ops_.get24(section + ssym::s_next);
  ops_.put24(prev == 0 ? hdr::h_screens : prev + ssym::s_next, next);
  if (next != 0)
    section_prev_[next] = prev;
  else
    section_tail_ = prev;
}

// The last defined section at or before `section`, going back through the predecessors; 0 when
// there is none.
uint32_t SymbolTable::last_defined_from(uint32_t section) const {
  while (section != 0 && (ops_.get16(section + ssym::s_kind) & ssym::kind_mask) == 0) {
    const auto it = section_prev_.find(section);
    section = it == section_prev_.end() ? 0 : it->second;
  }
  return section;
}

uint32_t SymbolTable::find_or_declare_section(std::string_view name, bool defining) {
  const uint32_t s = debug_ops_ ? declare_section_in_name_order(name, defining) : declare_section(name, defining);
  if (defining) note_defined(s);
  else note_used(s);
  note_name(XrefKind::section, s, name, defining);
  return s;
}

uint32_t SymbolTable::declare_section(std::string_view name, bool defining) {
  if (const uint32_t s = section_index_.find(ops_, name)) {
    if (!defining) {
      ops_.put16(s + ssym::s_flags, ops_.get16(s + ssym::s_flags) | ssym::flag_referenced);
      return s;
    }
    // Defined at last: put it behind the defined sections before it.
    const uint32_t prev = section_prev_[s];
    const uint32_t last_defined = last_defined_from(prev);
    if (last_defined != 0 && last_defined != prev) {
      unlink_section(s);
      link_section_after(last_defined, s);
    }
    return s;
  }
  const uint32_t sec = ops_.alloc(ssym::size);
  ops_.put24(sec + ssym::s_name, store_name(name));
  ops_.put16(sec + ssym::s_seq, ops_.next_count(hdr::h_screen_count, "sections"));
  if (!defining) ops_.put16(sec + ssym::s_flags, ssym::flag_referenced);
  const uint32_t last_defined = defining ? last_defined_from(section_tail_) : 0;
  link_section_after(last_defined != 0 ? last_defined : section_tail_, sec);
  section_index_.add(ops_, sec);
  return sec;
}

// With the debug-ops flag: the list in name order, nothing moved.
uint32_t SymbolTable::declare_section_in_name_order(std::string_view name, bool defining) {
  if (const uint32_t s = section_index_.find(ops_, name)) {
    if (!defining) ops_.put16(s + ssym::s_flags, ops_.get16(s + ssym::s_flags) | ssym::flag_referenced);
    return s;
  }
  uint32_t prev = 0;
  for (uint32_t s = ops_.get24(hdr::h_screens); s != 0; prev = s, s = ops_.get24(s + ssym::s_next))
    if (compare_names(ops_.text_at(ops_.get24(s + ssym::s_name)), name) > 0) break;
  const uint32_t sec = ops_.alloc(ssym::size);
  ops_.put24(sec + ssym::s_name, store_name(name));
  ops_.put16(sec + ssym::s_seq, ops_.next_count(hdr::h_screen_count, "sections"));
  if (!defining) ops_.put16(sec + ssym::s_flags, ssym::flag_referenced);
  link_section_after(prev, sec);
  section_index_.add(ops_, sec);
  return sec;
}

}  // namespace tav
