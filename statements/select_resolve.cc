// What a select needs once its clauses are read: the FOR-UPDATE rules, the binding of every
// field entry to the FROM objects that hold it, the key optimiser's passes, the column lists of
// the FROM entries, the GROUP BY and ORDER BY agreement, and UNION.

#include <algorithm>
#include <cstring>
#include <string>

#include "statements/key_optimiser.h"
#include "statements/record_io.h"
#include "statements/select.h"
#include "symbols/dictionary.h"
#include "symbols/fields.h"
#include "symbols/objects.h"
#include "symbols/records.h"

namespace tav {

namespace {

std::vector<uint32_t> from_entries(const Select& s) { return chain(s.p, s.p.ops.get24(s.rec + selrec::sr_from)); }
std::vector<uint32_t> field_entries(const Select& s) { return chain(s.p, s.p.ops.get24(s.rec + selrec::sr_fields)); }

uint16_t from_flags(const Parser& p, uint32_t from) { return static_cast<uint16_t>(p.ops.get16(from + fromrec::fe_flags)); }

bool no_rowid(const Parser& p, uint32_t object) { return (p.ops.get16(object + osym::o_attr) & osym::attr_no_rowid) != 0; }

// The only object named in FROM when there is exactly one.
uint32_t single_from(const Select& s) {
  if (s.p.ops.get16(s.rec + selrec::sr_from_count) != 1) return 0;
  for (uint32_t f : from_entries(s))
    if (from_flags(s.p, f) & fromrec::named) return f;
  return 0;
}

bool grouped(const Select& s) {
  const OpSpace& ops = s.p.ops;
  return ops.get24(s.rec + selrec::sr_group) != 0 || ops.get24(s.rec + selrec::sr_having) != 0 ||
         ops.get16(s.rec + selrec::sr_aggregate_count) != 0;
}

// A screen select of all fields of one object, with no grouping, may update the rows it reads.
bool automatic_update(const Select& s) {
  const uint32_t from = single_from(s);
  return s.screen && !s.has(selrec::for_update | selrec::distinct) && from != 0 &&
         (from_flags(s.p, from) & fromrec::all_fields) && !grouped(s) &&
         !no_rowid(s.p, s.p.ops.get24(from + fromrec::fe_object));
}

}  // namespace

void apply_for_update(Select& s, bool union_follows) {
  Parser& p = s.p;
  if (automatic_update(s) && !union_follows) s.set_flags(selrec::for_update);
  if (!s.has(selrec::for_update)) return;
  const uint32_t from = single_from(s);
  if (p.ops.get16(s.rec + selrec::sr_from_count) > 1) {
    p.diag.error(msg::update_allowed_single_object_select);
  } else if (grouped(s)) {
    p.diag.error(msg::update_not_allowed_aggregates_groups);
  } else if (s.has(selrec::distinct)) {
    p.diag.error(msg::update_not_allowed_distinct);
  } else if (from != 0) {
    const uint32_t object = p.ops.get24(from + fromrec::fe_object);
    const char type = file_type(p, object);
    if ((type != 'I' && type != 'M') || no_rowid(p, object)) {
      p.diag.error(msg::i_o_operation_invalid_object);
      return;
    }
    add_object_attr(p, object, osym::attr_update | osym::attr_get_lock);
    p.locks.record(p.ops, object, true);
  }
}

// ---- Reference resolution ------------------------------------------------------------------------

namespace {

// The fields of an object's record: its chain, or for a dictionary object its dictionary record.
std::vector<uint32_t> record_fields(Parser& p, uint32_t object) {
  OpSpace& ops = p.ops;
  std::vector<uint32_t> out;
  const auto dictno = static_cast<int16_t>(ops.get16(object + osym::o_dictno));
  if (dictno < 0) {
    for (uint32_t l = ops.get24(object + osym::o_fldobj); l != 0; l = ops.get24(l + folink::fo_fldobj))
      out.push_back(ops.get24(l + folink::fo_field));
    return out;
  }
  const auto id = static_cast<uint16_t>(ops.get16(object + osym::o_objid));
  for (const DictRecordEntry& r : p.dictionaries->record(dictno, id))
    if (const auto f = p.dictionaries->field_by_id(dictno, r.field_id))
      if (const uint32_t field = reference_field(p, f->name, nullptr)) out.push_back(field);
  return out;
}

void select_all_fields(Select& s, uint32_t from) {
  Parser& p = s.p;
  for (uint32_t field : record_fields(p, p.ops.get24(from + fromrec::fe_object))) {
    const uint32_t e = add_field(s, from, field, false);
    set_entry_flags(p, e, selfield::selected | selfield::referenced);
  }
}

// A copy of an entry for a further object that holds its field, in the entry's ring.
void bind_copy(Select& s, uint32_t entry, uint32_t from) {
  OpSpace& ops = s.p.ops;
  const uint32_t copy = ops.alloc(selfield::size);
  std::memcpy(ops.at(copy), ops.at(entry), selfield::size);
  const uint32_t count = ops.get16(s.rec + selrec::sr_field_count) + 1;
  ops.put16(s.rec + selrec::sr_field_count, count);
  ops.put16(copy + selfield::sf_number, count);
  ops.put24(copy + selfield::sf_next, 0);
  ops.put24(copy + selfield::sf_from, from);
  ops.put24(copy + selfield::sf_ring, copy);
  ops.put16(copy + selfield::sf_flags, entry_flags(s.p, entry) | selfield::copy);
  uint32_t link = s.rec + selrec::sr_fields;
  while (ops.get24(link) != 0) link = ops.get24(link) + selfield::sf_next;
  ops.put24(link, copy);
  splice_rings(s.p, entry, copy);
}

// An unbound entry goes to every FROM object that holds its field; with none it is a host field.
void bind_entry(Select& s, uint32_t entry) {
  Parser& p = s.p;
  OpSpace& ops = p.ops;
  const uint32_t field = ops.get24(entry + selfield::sf_field);
  bool bound = false;
  for (uint32_t from : from_entries(s)) {
    const uint32_t object = ops.get24(from + fromrec::fe_object);
    if ((ops.get16(object + osym::o_attr) & osym::attr_no_joins) || !field_in_object(p, object, field)) continue;
    if (!bound)
      ops.put24(entry + selfield::sf_from, from);
    else
      bind_copy(s, entry, from);
    bound = true;
  }
  if (bound) return;
  set_entry_flags(p, entry, selfield::host);
  if (!s.screen) {
    const auto line = s.lines.find(entry);
    p.diag.warning_text(txt::host_field_colon,
                        Context::at_line(field_name(p, field), line == s.lines.end() ? 0 : line->second));
    // A field of an object that could not be found is no host field: the warning only echoes that.
    if (s.object_unknown) p.diag.mark_follow_on();
  }
}

}  // namespace

void resolve_references(Select& s, bool) {
  Parser& p = s.p;
  OpSpace& ops = p.ops;
  for (uint32_t from : from_entries(s)) {
    if (!(from_flags(p, from) & fromrec::named)) {
      const auto line = s.lines.find(from);
      p.diag.error_text(txt::referenced_object_not_in_from,
                        Context::at_line(object_name_of(p, ops.get24(from + fromrec::fe_object)),
                                         line == s.lines.end() ? 0 : line->second));
      continue;
    }
    if (from_flags(p, from) & fromrec::all_fields) select_all_fields(s, from);
  }
  for (uint32_t e : field_entries(s)) {
    const uint16_t f = entry_flags(p, e);
    if ((f & (selfield::host | selfield::assigned)) || ops.get24(e + selfield::sf_from) != 0) continue;
    bind_entry(s, e);
  }
}

namespace {

// Whether the entry's value is known before its row is read: a key range bounds it, or the
// condition equates it to a field of another FROM entry.
bool key_bound(const Select& s, uint32_t entry) {
  const OpSpace& ops = s.p.ops;
  if (ops.get24(entry + selfield::sf_ranges) != 0) return true;
  const uint32_t from = ops.get24(entry + selfield::sf_from);
  size_t guard = 0;
  for (uint32_t e = ops.get24(entry + selfield::sf_ring); e != 0 && e != entry && guard++ < 1024;
       e = ops.get24(e + selfield::sf_ring))
    if (ops.get24(e + selfield::sf_from) != from) return true;
  return false;
}

// The index a FROM entry reads by: the one ON INDEX named, else the first key that a bound
// field leads; 0 when none does.
int chosen_index(const Select& s, uint32_t from, const std::vector<uint32_t>& bound) {
  const OpSpace& ops = s.p.ops;
  if (const int given = *ops.at(from + fromrec::fe_index); given != 0) return given;
  const uint32_t object = ops.get24(from + fromrec::fe_object);
  size_t guard = 0;
  for (uint32_t k = ops.get24(object + osym::o_keylist); k != 0 && guard++ < 64; k = ops.get24(k + keyrec::k_next)) {
    const uint32_t first = ops.get24(k + keyrec::k_parts);
    if (first != 0 && std::find(bound.begin(), bound.end(), ops.get24(first + keypart::kp_field)) != bound.end())
      return *ops.at(k + keyrec::k_index);
  }
  return 0;
}

}  // namespace

// For the cross reference: how the select reads each object it names.
void note_reads(Select& s) {
  const OpSpace& ops = s.p.ops;
  CrossReference& xref = s.p.syms.xref();
  for (const auto& [from, where] : s.named_at) {
    XrefRead read;
    read.object = ops.get24(from + fromrec::fe_object);
    read.statement = xref.statement();
    read.where = where;
    for (uint32_t e : field_entries(s)) {
      if (ops.get24(e + selfield::sf_from) != from || !key_bound(s, e)) continue;
      read.key_fields.push_back(ops.get24(e + selfield::sf_field));
      if (std::string ranges = xref.ranges_of(e); !ranges.empty()) read.ranges.push_back(std::move(ranges));
    }
    read.explicit_index = *ops.at(from + fromrec::fe_index) != 0;
    read.index = chosen_index(s, from, read.key_fields);
    read.whole_table = read.index == 0;
    xref.add_read(std::move(read));
  }
}

void optimise_keys(Select& s) {
  Parser& p = s.p;
  const uint32_t where = p.ops.get24(s.rec + selrec::sr_where);
  std::vector<uint32_t> entries;
  for (uint32_t e : field_entries(s)) {
    const uint16_t f = entry_flags(p, e);
    if ((f & selfield::referenced) && !(f & selfield::host)) entries.push_back(e);
  }
  for (uint32_t e : entries) join_pass(p, e, where);
  for (uint32_t e : entries) range_pass(p, e, where);
  if (p.syms.keeps_xref()) note_reads(s);
}

void build_column_lists(Select& s) {
  Parser& p = s.p;
  OpSpace& ops = p.ops;
  for (uint32_t from : from_entries(s)) {
    uint32_t head = 0, tail = 0;
    for (uint32_t e : field_entries(s)) {
      const uint16_t f = entry_flags(p, e);
      if (ops.get24(e + selfield::sf_from) != from || (f & (selfield::host | selfield::assigned))) continue;
      const uint32_t node = ops.alloc(column::size);
      ops.put24(node + column::cn_field, ops.get24(e + selfield::sf_field));
      ops.put16(node + column::cn_flags, (f & selfield::selected) ? column::selected : 0);
      append_to_list(ops, head, tail, node, column::cn_next);
    }
    ops.put24(from + fromrec::fe_columns, head);
  }
}

void check_group_order(Select& s, bool in_union) {
  Parser& p = s.p;
  OpSpace& ops = p.ops;
  const uint32_t group = ops.get24(s.rec + selrec::sr_group);
  if (group == 0 || s.partner != 0) return;
  const uint32_t order = ops.get24(s.rec + selrec::sr_order);
  if (order == 0) {
    ops.put24(s.rec + selrec::sr_order, group);
    return;
  }
  if (in_union) return;
  uint32_t g = group;
  for (uint32_t o = order; o != 0; o = ops.get24(o), g = ops.get24(g)) {
    if (g == 0 || ops.get24(o + ordernode::on_entry) != ops.get24(g + ordernode::on_entry)) {
      p.diag.warning_text(txt::group_order_differ, Context::current_token());
      return;
    }
  }
}

}  // namespace tav
