#include "statements/modes.h"

#include <optional>
#include <string>

#include "expr/expr.h"
#include "codegen/header.h"
#include "statements/handlers.h"
#include "statements/parser.h"
#include "statements/records.h"
#include "symbols/clauses.h"
#include "symbols/records.h"

namespace tav {

namespace {

struct BuiltinMode {
  const char* name;
  int word;  // catalogue number of the mode's word; its help text is 1000 + word
  const char* prompt;
  const char* help;
  uint16_t flags;
};

constexpr BuiltinMode kBuiltinModes[] = {
#define TAV_MODE(name, word, prompt, help, flags) {name, word, prompt, help, flags},
#include "statements/modes.def"
#undef TAV_MODE
};

uint32_t new_mode(Parser& p, std::string_view name, uint16_t flags) {
  OpSpace& ops = p.ops;
  uint32_t m = ops.alloc(mode::size);
  ops.put24(m + mode::m_name, ops.store_text(name));
  if (!name.empty()) p.mode_initials.set(static_cast<unsigned char>(name[0]));
  ops.put16(m + mode::m_flags, flags);
  if (p.mode_tail)
    ops.put24(p.mode_tail + mode::m_next, m);
  else
    ops.put24(hdr::h_mode_list, m);
  p.mode_tail = m;
  return m;
}

// MODE definition clauses that set flags: keyword, flag bits, bits that may not be set already.
struct ModeFlagClause {
  uint32_t code;
  uint16_t flags;
  uint16_t excludes;
};
constexpr ModeFlagClause kModeFlagClauses[] = {
    {verb("find"), mode::find, 0x818e},
    {verb("entry"), mode::entry, 0x8198},
    {verb("entry_once"), mode::entry | mode::once, 0x8198},
    {verb("correct"), mode::correct, 0x8198},
    {verb("remove"), mode::remove, 0x8196},
    {verb("duplicate"), mode::duplicate | mode::process | mode::correct, 0x019a},
    {verb("next_scr"), mode::next_scr, 0x811e},
    {verb("prev_scr"), mode::prev_scr, 0x809e},
    {verb("process"), mode::process, 0},
    {verb("once"), mode::once, 0},
    {verb("currency"), mode::currency, 0},
    {verb("always_show"), mode::always_show, 0},
    {verb("lock"), mode::lock, 0},
};

// Reads a numeric literal from `low` to `high` for a clause such as SECURITY or ICON.
bool small_number(Parser& p, int low, int high, int& value) {
  if (p.next() != kClassNumeric) {
    p.diag.error(msg::numeric_literal_expected);
    return false;
  }
  double v = p.tok.value();
  if (v < low || v > high || v != static_cast<int>(v)) {
    p.diag.error(msg::numeric_value_invalid_out_range);
    return false;
  }
  value = static_cast<int>(v);
  return true;
}

// A built-in text: the catalogue's translation of entry `number` when a catalogue file gives
// one, else the text of the mode table.
std::string catalogue_translation(Parser& p, int number, std::string_view builtin) {
  if (number > 0 && p.catalogue)
    if (std::optional<std::string> t = p.catalogue->translation(number)) return *t;
  return std::string(builtin);
}

}  // namespace

uint32_t text_item_list(Parser& p, std::string_view text, char kind) {
  OpSpace& ops = p.ops;
  p.ob.open_level();
  uint32_t op = p.ob.emit(Op::literal);
  ops.put24(op + literal::lit_text, ops.store_text(text));
  ops.put16(op + literal::lit_length, static_cast<uint32_t>(text.size()));
  p.ob.make_text_item_op(op, kind);
  uint32_t head = p.ob.top().head;
  p.ob.close_level();
  return head;
}

void create_builtin_modes(Parser& p) {
  constexpr int kHelpOfWord = 1000;
  for (const BuiltinMode& b : kBuiltinModes) {
    uint32_t m = new_mode(p, b.name, b.flags);
    const std::string prompt = catalogue_translation(p, b.word, b.prompt);
    const std::string help = catalogue_translation(p, b.word ? kHelpOfWord + b.word : 0, b.help);
    p.ops.put24(m + mode::m_prompt, text_item_list(p, prompt, 'N'));
    p.ops.put24(m + mode::m_help, text_item_list(p, help, 'H'));
  }
}

uint32_t find_mode(Parser& p, std::string_view name) {
  const uint32_t m = p.mode_named(name);
  if (!name.starts_with('~')) p.syms.note_name(XrefKind::mode, m, name);  // not the hidden ones
  return m;
}

bool add_mode_to_list(Parser& p, uint32_t& head, std::string_view name) {
  OpSpace& ops = p.ops;
  uint32_t m = find_mode(p, name);
  if (m == 0) return false;
  uint32_t last = 0;
  for (uint32_t e = head; e != 0; e = ops.get24(e + modelist::ml_next)) {
    if (ops.get24(e + modelist::ml_mode) == m) return true;
    last = e;
  }
  uint32_t entry = ops.alloc(modelist::size);
  ops.put24(entry + modelist::ml_mode, m);
  if (last)
    ops.put24(last + modelist::ml_next, entry);
  else
    head = entry;
  return true;
}

void allow_mode(Parser& p, uint32_t section, std::string_view name) {
  uint32_t head = p.ops.get24(section + ssym::s_modes);
  add_mode_to_list(p, head, name);
  p.ops.put24(section + ssym::s_modes, head);
}

void disallow_mode(Parser& p, uint32_t section, std::string_view name) {
  OpSpace& ops = p.ops;
  uint32_t m = find_mode(p, name);
  uint32_t link = section + ssym::s_modes;
  for (uint32_t e = ops.get24(link); e != 0; link = e + modelist::ml_next, e = ops.get24(link)) {
    if (ops.get24(e + modelist::ml_mode) == m) {
      ops.put24(link, ops.get24(e + modelist::ml_next));
      return;
    }
  }
}

void assign_default_modes(Parser& p) {
  OpSpace& ops = p.ops;
  for (uint32_t s = ops.get24(hdr::h_screens); s != 0; s = ops.get24(s + ssym::s_next)) {
    if (ops.get24(s + ssym::s_modes) != 0) continue;
    bool primary = ops.get24(s + ssym::s_primary) != 0;
    bool select = ops.get24(s + ssym::s_select) != 0;
    uint16_t flags = static_cast<uint16_t>(ops.get16(s + ssym::s_flags));
    if (primary || select) {
      if (flags & ssym::review) {
        bool from_end = flags & ssym::review_from_end;
        allow_mode(p, s, from_end ? "prev-scr" : "next-scr");
        allow_mode(p, s, from_end ? "next-scr" : "prev-scr");
      }
      allow_mode(p, s, "find");
      allow_mode(p, s, "next");
      allow_mode(p, s, "prev");
    }
    bool entry_allowed = !select || primary;
    if (entry_allowed) allow_mode(p, s, "entry");
    if ((ops.get16(s + ssym::s_kind) & 3) == ssym::kind_screen) {
      if (entry_allowed) allow_mode(p, s, "correct");
      if (primary) allow_mode(p, s, "remove");
    }
  }
}

namespace {

// --- MODE definition ------------------------------------------------------------------------

struct ModeDefinition {
  Parser& p;
  uint32_t m;  // the mode's entry
  uint16_t flags = 0;
};

// PROMPT or HELP [IS] text. A literal text becomes a text item, so that it can be translated.
template <bool Prompt>
ClauseStep mode_text(ModeDefinition& d) {
  Parser& p = d.p;
  OpSpace& ops = p.ops;
  p.take(verb("is"));
  bool prompt = Prompt;
  uint32_t slot = d.m + (prompt ? mode::m_prompt : mode::m_help);
  if (!compile_expression_list(p, slot).alphanumeric()) {
    p.diag.error(msg::alphanumeric_expression_required);
    return ClauseStep::next;
  }
  uint32_t head = ops.get24(slot);
  if (head != 0 && ops.get24(head) == 0 && ops.opcode(head) == Op::literal)
    p.ob.make_text_item_op(head, prompt ? 'N' : 'H');
  return ClauseStep::next;
}

// WHEN condition: a second one is reported when the first left a condition.
ClauseStep mode_when(ModeDefinition& d) {
  OpSpace& ops = d.p.ops;
  const uint32_t m = d.m;
  if (ops.get24(m + mode::m_when) != 0) d.p.diag.error(msg::duplicate_incompatible_clause);
  compile_condition_list(d.p, m + mode::m_when);
  return ClauseStep::next;
}

// COLOUR [IS] foreground [ON background].
ClauseStep mode_colour(ModeDefinition& d) {
  Parser& p = d.p;
  const uint32_t m = d.m;
  p.take(verb("is"));
  compile_operand(p, m + mode::m_foreground, 0);
  if (p.take(verb("on"))) compile_operand(p, m + mode::m_background, 0);
  return ClauseStep::next;
}

// PERFORM section.
ClauseStep mode_perform(ModeDefinition& d) {
  Parser& p = d.p;
  OpSpace& ops = p.ops;
  const uint32_t m = d.m;
  if (p.next() != kClassName) {
    p.diag.error(msg::screen_name_expected);
    p.push_back();
    return ClauseStep::next;
  }
  ops.put24(m + mode::m_perform, p.syms.find_or_declare_section(p.text(), false));
  return ClauseStep::next;
}

// SECURITY [IS] 0 to 9 and ICON [IS] 0 to 254: a byte of the mode entry.
template <uint32_t Slot, int High>
ClauseStep mode_byte(ModeDefinition& d) {
  Parser& p = d.p;
  OpSpace& ops = p.ops;
  p.take(verb("is"));
  if (int v; small_number(p, 0, High, v)) ops.at(d.m + Slot)[0] = static_cast<uint8_t>(v);
  return ClauseStep::next;
}

// The flag clauses, whose conflicts depend on the flags already set; any other word is invalid.
ClauseStep mode_flag(ModeDefinition& d) {
  const uint32_t c = d.p.cls();
  for (const ModeFlagClause& fc : kModeFlagClauses) {
    if (fc.code != c) continue;
    if (d.flags & fc.excludes) d.p.diag.error(msg::duplicate_incompatible_clause);
    d.flags |= fc.flags;
    return ClauseStep::next;
  }
  return skip_invalid_clause(d.p);
}

constexpr ClauseRow<ModeDefinition> kModeClauses[] = {
    {verb("prompt"), Given::repeatable, {}, mode_text<true>},
    {verb("help"), Given::repeatable, {}, mode_text<false>},
    {verb("when"), Given::repeatable, {}, mode_when},
    {verb("colour"), Given::repeatable, {}, mode_colour},
    {verb("perform"), Given::repeatable, {}, mode_perform},
    {verb("security"), Given::repeatable, {}, mode_byte<mode::m_security, 9>},
    {verb("icon"), Given::repeatable, {}, mode_byte<mode::m_icon, 254>},
};

}  // namespace

// MODE name clauses...: defines a user mode.
void compile_mode_definition(Parser& p) {
  OpSpace& ops = p.ops;
  p.accept();
  if (p.next() != kClassName || find_mode(p, p.text()) != 0) {
    p.diag.error(msg::name_invalid_reserved_word);
    p.tok.skip_to_statement();
    return;
  }
  std::string name(p.text());
  if (p.syms.find_field(name) != 0)
    p.diag.warning_text(txt::field_mode_conflict, Context::current_token());
  ModeDefinition d{p, new_mode(p, name, 0)};
  const uint32_t m = d.m;
  p.syms.note_name(XrefKind::mode, m, name, true);
  read_clauses(p, kModeClauses, d, mode_flag);
  ops.put16(m + mode::m_flags, d.flags);
  if (ops.get24(m + mode::m_prompt) == 0) ops.put24(m + mode::m_prompt, text_item_list(p, name, 'N'));
}

}  // namespace tav
