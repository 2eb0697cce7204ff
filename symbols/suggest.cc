#include "symbols/suggest.h"

#include <algorithm>

#include "lexer/verbs.h"
#include "runtime/ascii.h"
#include "symbols/parser_core.h"
#include "symbols/records.h"
#include "symbols/symtab.h"

namespace tav {

namespace {

// The edit distance of two names (insertions, deletions, substitutions, case ignored), or
// `limit + 1` as soon as it is certainly more than `limit`.
size_t distance(std::string_view a, std::string_view b, size_t limit) {
  if ((a.size() > b.size() ? a.size() - b.size() : b.size() - a.size()) > limit) return limit + 1;
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    size_t best = row[0];
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      const size_t cost = ascii_lower(a[i - 1]) == ascii_lower(b[j - 1]) ? 0 : 1;
      row[j] = std::min({above + 1, row[j - 1] + 1, diagonal + cost});
      diagonal = above;
      best = std::min(best, row[j]);
    }
    if (best > limit) return limit + 1;
  }
  return row[b.size()];
}

}  // namespace

std::string nearest_name(std::string_view name, const std::vector<std::string_view>& candidates) {
  const size_t limit = std::max<size_t>(1, name.size() / 3);
  size_t best = limit + 1;
  std::string_view found;
  bool tied = false;
  for (std::string_view candidate : candidates) {
    if (candidate.empty()) continue;
    const size_t d = distance(name, candidate, limit);
    if (d == 0) continue;  // the name itself is no suggestion
    if (d < best) {
      best = d;
      found = candidate;
      tied = false;
    } else if (d == best && candidate != found) {
      tied = true;
    }
  }
  return best <= limit && !tied ? std::string(found) : std::string();
}

std::vector<std::string_view> fields_in_scope(const ParserCore& p) {
  std::vector<std::string_view> names;
  const OpSpace& ops = p.ops;
  if (const uint32_t section = p.syms.current_section(); section != 0)
    for (uint32_t f = ops.get24(section + ssym::s_locals); f != 0; f = ops.get24(f + fsym::f_next))
      names.push_back(ops.text_at(ops.get24(f + fsym::f_name)));
  for (uint32_t f = ops.get24(hdr::h_fields); f != 0; f = ops.get24(f + fsym::f_next))
    names.push_back(ops.text_at(ops.get24(f + fsym::f_name)));
  return names;
}

std::vector<std::string_view> object_names(const ParserCore& p) {
  std::vector<std::string_view> names;
  const OpSpace& ops = p.ops;
  for (uint32_t o = ops.get24(hdr::h_objects); o != 0; o = ops.get24(o + osym::o_next))
    names.push_back(ops.text_at(ops.get24(o + osym::o_name)));
  return names;
}

std::vector<std::string_view> section_names(const ParserCore& p) {
  std::vector<std::string_view> names;
  const OpSpace& ops = p.ops;
  for (uint32_t s = ops.get24(hdr::h_screens); s != 0; s = ops.get24(s + ssym::s_next))
    if ((ops.get16(s + ssym::s_kind) & 3) != ssym::kind_undefined) names.push_back(ops.text_at(ops.get24(s + ssym::s_name)));
  return names;
}

std::vector<std::string_view> mode_names(const ParserCore& p) {
  std::vector<std::string_view> names;
  const OpSpace& ops = p.ops;
  for (uint32_t m = ops.get24(hdr::h_mode_list); m != 0; m = ops.get24(m + mode::m_next)) {
    const std::string_view name = ops.text_at(ops.get24(m + mode::m_name));
    if (!name.starts_with("~")) names.push_back(name);  // "~-show" and the like are not written
  }
  return names;
}

std::vector<std::string_view> defined_report_names(const ParserCore& p) {
  std::vector<std::string_view> names;
  const OpSpace& ops = p.ops;
  for (uint32_t r = ops.get24(hdr::h_report_list); r != 0; r = ops.get24(r + report::r_next))
    if (!(ops.get16(r + report::r_flags) & report::flag_referenced)) names.push_back(ops.text_at(ops.get24(r + report::r_name)));
  return names;
}

void suggest_name(ParserCore& p, std::string_view name, const std::vector<std::string_view>& candidates) {
  const Diagnostic* raised = p.diag.last_kept();
  if (!raised) return;
  const std::string nearest = nearest_name(name, candidates);
  if (nearest.empty()) return;
  const SourceRange where = raised->where;
  p.diag.add_note("did you mean '" + nearest + "'?");
  // Only a place that holds exactly the name can be replaced by the suggestion.
  if (where.column > 0 && where.end_column - where.column == static_cast<int>(name.size())) p.diag.add_fix(where, nearest);
}

namespace {

// Adds the dictionaries' names to the program's: `kept` holds them while the views are used.
void suggest_among(ParserCore& p, std::string_view name, std::vector<std::string_view> candidates,
                   const std::vector<std::string>& kept) {
  candidates.insert(candidates.end(), kept.begin(), kept.end());
  suggest_name(p, name, candidates);
}

}  // namespace

void suggest_field(ParserCore& p, std::string_view name) {
  if (!p.diag.last_kept()) return;
  suggest_among(p, name, fields_in_scope(p), p.dictionaries->field_names());
}

void suggest_object(ParserCore& p, std::string_view name) {
  if (!p.diag.last_kept()) return;
  suggest_among(p, name, object_names(p), p.dictionaries->object_names());
}

void suggest_record_field(ParserCore& p, std::string_view name, uint32_t object) {
  if (!p.diag.last_kept()) return;
  const OpSpace& ops = p.ops;
  std::vector<std::string> names;
  const auto dictno = static_cast<int16_t>(ops.get16(object + osym::o_dictno));
  if (dictno < 0) {
    for (uint32_t l = ops.get24(object + osym::o_fldobj); l != 0; l = ops.get24(l + folink::fo_fldobj))
      names.emplace_back(ops.text_at(ops.get24(ops.get24(l + folink::fo_field) + fsym::f_name)));
  } else {
    for (const DictRecordEntry& e : p.dictionaries->record(dictno, static_cast<uint16_t>(ops.get16(object + osym::o_objid))))
      if (const std::optional<DictField> f = p.dictionaries->field_by_id(dictno, e.field_id)) names.push_back(f->name);
  }
  suggest_among(p, name, {}, names);
}

void note_reserved_word(ParserCore& p, std::string_view name) {
  if (p.diag.collecting() && find_keyword(name) != 0) p.diag.add_note("'" + std::string(name) + "' is a reserved word");
}

}  // namespace tav
