// Record layouts as data. Every byte-packed record of the op space is described by rows of a
// .def file (codegen/header.def, symbols/records.def, statements/records.def): one RecordRow per
// record and one MemberRow per member. The headers of those files derive the offset constants
// from the rows, check the layouts at compile time, and the dumps print records by walking them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "runtime/ascii.h"

namespace tav {

struct RecordRow {
  std::string_view record;  // namespace of the offsets
  std::string_view title;   // name in listings and in the format description
  uint32_t size;
};

struct MemberRow {
  std::string_view record;
  std::string_view name;
  uint32_t offset;
  uint32_t width;
  std::string_view description;
};

// Every member has a width and lies inside its record (which has a row), and no two members of a
// record share a byte unless they are two readings of the same bytes (same offset and width).
template <size_t R, size_t M>
constexpr bool layouts_sound(const RecordRow (&records)[R], const MemberRow (&members)[M]) {
  for (const MemberRow& m : members) {
    const RecordRow* rec = nullptr;
    for (const RecordRow& r : records)
      if (r.record == m.record) rec = &r;
    if (rec == nullptr || m.width == 0 || m.offset + m.width > rec->size) return false;
    for (const MemberRow& o : members) {
      if (&o == &m || o.record != m.record) continue;
      const bool same = o.offset == m.offset && o.width == m.width;
      const bool apart = o.offset + o.width <= m.offset || m.offset + m.width <= o.offset;
      if (!same && !apart) return false;
    }
  }
  return true;
}

// A record's members are the rows naming it, in row order.
template <size_t M, class F>
void for_each_member(const MemberRow (&members)[M], std::string_view record, F f) {
  for (const MemberRow& m : members)
    if (m.record == record) f(m);
}

// What a member holds, from its row, for the dumps: a link to a text ("link:" and the word
// "name", or "text" but not "text item"), another link, a signed word ("signed ..."), a letter
// or character, flags or a 24-bit value (shown in hexadecimal), or a number.
enum class MemberKind { text, link, signed_word, character, hex, decimal };

// `word` stands alone in `d`: not part of a longer word ("named"), nor followed by `but`.
constexpr bool has_word(std::string_view d, std::string_view word, std::string_view but = {}) {
  auto letter = [](char c) { return ascii_alnum(c) || c == '_'; };
  for (size_t at = d.find(word); at != d.npos; at = d.find(word, at + 1)) {
    const size_t end = at + word.size();
    if ((at > 0 && letter(d[at - 1])) || (end < d.size() && letter(d[end]))) continue;
    if (but.empty() || d.substr(end).find(but) != 0) return true;
  }
  return false;
}

constexpr MemberKind member_kind(const MemberRow& m) {
  const std::string_view d = m.description;
  if (d.starts_with("link:"))
    return has_word(d, "name") || has_word(d, "text", " item") ? MemberKind::text : MemberKind::link;
  if (d.starts_with("signed")) return MemberKind::signed_word;
  if (m.width == 1 && (has_word(d, "letter") || has_word(d, "character"))) return MemberKind::character;
  if (m.width == 3 || has_word(d, "flags") || has_word(d, "format word") || has_word(d, "code")) return MemberKind::hex;
  return MemberKind::decimal;
}

}  // namespace tav

// What a header derives from the rows of its .def file: with TAV_RECORD defined as
// TAV_RECORD_SIZE and TAV_MEMBER as TAV_MEMBER_OFFSET the offset constants (record::member) and
// sizes (record::size); with TAV_RECORD_ROW and TAV_NO_ROW the RecordRow table, with TAV_NO_ROW
// and TAV_MEMBER_ROW the MemberRow table.
#define TAV_RECORD_SIZE(rec, title, bytes) \
  namespace rec {                          \
  inline constexpr uint32_t size = bytes;  \
  }
#define TAV_MEMBER_OFFSET(rec, member, off, width, text) \
  namespace rec {                                        \
  inline constexpr uint32_t member = off;                \
  }
#define TAV_RECORD_ROW(rec, title, bytes) {#rec, title, bytes},
#define TAV_MEMBER_ROW(rec, member, off, width, text) {#rec, #member, off, width, text},
#define TAV_NO_ROW(...)
