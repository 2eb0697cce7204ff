// Field references: lookup with the optional object prefix, loading from the dictionaries,
// storage on first reference, and the type notes of the fields used.

#include <algorithm>
#include <string>

#include "codegen/convert.h"
#include "symbols/suggest.h"
#include "symbols/parser_core.h"
#include "symbols/fields.h"
#include "symbols/objects.h"
#include "symbols/records.h"

namespace tav {

namespace {

// Longest object name of an "object.field" reference.
constexpr size_t kObjectPrefixMax = 29;

// The parts of "object.field"; `object` is empty when there is no prefix.
struct QualifiedName {
  std::string_view object;
  std::string_view field;
};

QualifiedName split_name(std::string_view name) {
  const size_t dot = name.find('.');
  if (dot == std::string_view::npos || dot == 0 || dot > kObjectPrefixMax) return {{}, name};
  return {name.substr(0, dot), name.substr(dot + 1)};
}

// Creates a field from the dictionaries; 0 (after error 16) when none has it.
uint32_t load_field(ParserCore& p, std::string_view name) {
  OpSpace& ops = p.ops;
  const uint32_t f = p.syms.new_field(name);
  p.syms.xref().not_defined_here(f);  // named here; defined by a dictionary, if at all
  const auto d = p.dictionaries->find_field(name);
  if (!d) {
    p.diag.set_name(name);
    p.diag.error(msg::field_not_defined);
    suggest_field(p, name);
    return 0;
  }
  ops.put16(f + fsym::f_dictno, static_cast<uint16_t>(d->dictno));
  ops.put16(f + fsym::f_ldictno, static_cast<uint16_t>(d->dictno));
  ops.put16(f + fsym::f_occurs, d->occurs);
  ops.at(f + fsym::f_type)[0] = static_cast<uint8_t>(d->type);
  ops.put16(f + fsym::f_format, d->desc);
  const uint32_t size = conv::format_size(d->desc);
  ops.put16(f + fsym::f_size, size);
  ops.put16(f + fsym::f_fldid, d->id);
  ops.put16(f + fsym::f_flags, d->flags & (fsym::flag_upper | fsym::flag_lower | fsym::flag_justify));

  // The database column name: the field's own name when they agree over the column width.
  if (!d->col_name.empty() && static_cast<unsigned char>(d->col_name[0]) > ' ') {
    const std::string_view col = std::string_view(d->col_name).substr(0, kDictColumnNameLength);
    const std::string_view own = name.substr(0, std::min(name.size(), kDictColumnNameLength));
    // A blank-padded column equals the name when the padding is all that follows it.
    const bool same = col.substr(0, own.size()) == own &&
                      col.find_first_not_of(' ', own.size()) == std::string_view::npos;
    ops.put24(f + fsym::f_dbcol,
              same ? ops.get24(f + fsym::f_name) : ops.store_text(col.substr(0, col.find_last_not_of(' ') + 1)));
  }

  note_field_type(p, f);
  if (d->occurs == 0 || size * d->occurs > kDictFieldStorageLimit)
    throw run_stop(txt::dict_field_too_large, {name});
  p.syms.enter_field_into_cache(f);
  p.syms.append_field(f);
  return f;
}

// Gives a program or local field its storage on first reference.
void allocate_storage(ParserCore& p, uint32_t f) {
  OpSpace& ops = p.ops;
  const uint32_t bytes = ops.get16(f + fsym::f_size) * ops.get16(f + fsym::f_occurs);
  if (static_cast<int16_t>(ops.get16(f + fsym::f_dictno)) == fsym::dictno_local) {
    const uint32_t s = p.syms.current_section();
    if (s == 0) return;  // a local field is only ever found through its section
    const uint32_t used = ops.get16(s + ssym::s_local_size);
    const uint32_t addr = used == 0 ? 2 : used;  // local addresses start at 2
    ops.put24(f + fsym::f_addr, addr);
    if (addr + bytes > kLocalStorageLimit) {
      p.diag.error_text(txt::local_storage_overflow, ops.text_at(ops.get24(f + fsym::f_name)));
      return;  // the storage does not grow, so only the field that crossed the limit reports
    }
    ops.put16(s + ssym::s_local_size, addr + bytes);
    return;
  }
  ops.put24(f + fsym::f_addr, p.data.alloc(bytes));
}

}  // namespace

uint32_t reference_field(ParserCore& p, std::string_view name, uint32_t* object) {
  OpSpace& ops = p.ops;
  if (object) *object = 0;
  const QualifiedName q = split_name(name);
  uint32_t obj = 0;
  if (!q.object.empty()) {
    if (object == nullptr) {
      p.diag.error(msg::object_name_prefix_not_allowed);
    } else {
      obj = find_or_load_object(p, q.object);  // reports and skips the statement when unknown
      if (obj == 0) return 0;
      if ((ops.get16(obj + osym::o_attr) & osym::attr_no_joins) == 0) {
        p.diag.error(msg::object_not_declared_as_no);
        obj = 0;
      }
    }
  }

  uint32_t f = p.syms.find_field(q.field);
  if (f == 0) {
    f = load_field(p, q.field);
    if (f == 0) return 0;
  }
  if (ops.get24(f + fsym::f_addr) == 0 && ops.get24(f + fsym::f_join) == 0 &&
      static_cast<int16_t>(ops.get16(f + fsym::f_dictno)) < 0)
    allocate_storage(p, f);

  if (obj != 0) {
    if (!field_in_object(p, obj, f)) {
      p.diag.error(msg::field_not_contained_object);
      suggest_record_field(p, q.field, obj);
    } else {
      *object = obj;
    }
  }
  p.syms.note_name(XrefKind::field, f, q.field);
  note_field_type(p, f);
  return f;
}

void dictionary_drill_back(ParserCore& p, uint32_t field) {
  OpSpace& ops = p.ops;
  const auto dictno = static_cast<int16_t>(ops.get16(field + fsym::f_ldictno));
  if (ops.get24(field + fsym::f_drill) != 0 || dictno < 0) return;
  const auto id = static_cast<uint16_t>(ops.get16(field + fsym::f_fldid));
  std::string text = p.dictionaries->documentation(dictno, kDocDrillBack, id, 0);
  if (text.empty()) return;
  const std::string own(ops.text_at(ops.get24(field + fsym::f_name)));
  if (const std::optional<DictField> named = p.dictionaries->field_by_id(dictno, id); named && named->name != own) {
    const std::string from = "%" + named->name + "%";
    const std::string to = "%" + own + "%";
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
      text.replace(at, from.size(), to);
  }
  ops.put24(field + fsym::f_drill, ops.store_text(text));
}

bool field_is_known(ParserCore& p, std::string_view name) {
  const std::string_view field = split_name(name).field;
  return p.syms.find_field(field) != 0 || p.dictionaries->find_field(field).has_value();
}

void note_field_type(ParserCore& p, uint32_t field) {
  const OpSpace& ops = p.ops;
  FieldNotes& n = p.field_notes;
  const char type = static_cast<char>(ops.at(field + fsym::f_type)[0]);
  const auto format = static_cast<uint16_t>(ops.get16(field + fsym::f_format));
  if (type != 'N') n.last_type = type;
  if (!conv::fmt_numeric(format)) {
    n.alpha_length = std::max(n.alpha_length, format);
  } else {
    n.digits = std::max(n.digits, static_cast<uint16_t>(conv::fmt_digits(format)));
    n.decimals = std::max(n.decimals, static_cast<uint16_t>(conv::fmt_decimals(format)));
  }
}

}  // namespace tav
