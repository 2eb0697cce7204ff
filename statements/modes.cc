#include "statements/modes.h"


#include "expr/expr.h"
#include "codegen/header.h"
#include "statements/handlers.h"
#include "statements/parser.h"
#include "statements/records.h"
#include "symbols/records.h"

namespace tav {

namespace {

struct BuiltinMode {
  const char* name;
  const char* prompt;
  const char* help;
  uint16_t flags;
};

constexpr BuiltinMode kBuiltinModes[] = {
#define TAV_MODE(name, prompt, help, flags) {name, prompt, help, flags},
#include "statements/modes.def"
#undef TAV_MODE
};

uint32_t new_mode(Parser& p, std::string_view name, uint16_t flags) {
  OpSpace& ops = p.ops;
  uint32_t m = ops.alloc(mode::size);
  ops.put24(m + mode::m_name, ops.store_text(name));
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
  for (const BuiltinMode& b : kBuiltinModes) {
    uint32_t m = new_mode(p, b.name, b.flags);
    p.ops.put24(m + mode::m_prompt, text_item_list(p, b.prompt, 'N'));
    p.ops.put24(m + mode::m_help, text_item_list(p, b.help, 'H'));
  }
}

uint32_t find_mode(Parser& p, std::string_view name) { return mode::named(p.ops, name); }

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
  uint32_t m = new_mode(p, name, 0);
  uint16_t flags = 0;

  for (;;) {
    uint32_t c = p.next();
    if (p.at_statement_start()) break;
    const ModeFlagClause* fc = nullptr;
    for (const ModeFlagClause& f : kModeFlagClauses)
      if (f.code == c) fc = &f;
    if (fc) {
      if (flags & fc->excludes) p.diag.error(msg::duplicate_incompatible_clause);
      flags |= fc->flags;
      continue;
    }
    if (c == verb("prompt") || c == verb("help")) {
      p.take(verb("is"));
      bool prompt = c == verb("prompt");
      uint32_t slot = m + (prompt ? mode::m_prompt : mode::m_help);
      if (!compile_expression_list(p, slot).alphanumeric()) {
        p.diag.error(msg::alphanumeric_expression_required);
        continue;
      }
      // A literal text becomes a text item, so that it can be translated.
      uint32_t head = ops.get24(slot);
      if (head != 0 && ops.get24(head) == 0 && ops.opcode(head) == Op::literal)
        p.ob.make_text_item_op(head, prompt ? 'N' : 'H');
    } else if (c == verb("when")) {
      if (ops.get24(m + mode::m_when) != 0) p.diag.error(msg::duplicate_incompatible_clause);
      compile_condition_list(p, m + mode::m_when);
    } else if (c == verb("colour")) {
      p.take(verb("is"));
      compile_operand(p, m + mode::m_foreground, 0);
      if (p.take(verb("on"))) compile_operand(p, m + mode::m_background, 0);
    } else if (c == verb("perform")) {
      if (p.next() != kClassName) {
        p.diag.error(msg::screen_name_expected);
        p.push_back();
        continue;
      }
      ops.put24(m + mode::m_perform, p.syms.find_or_declare_section(p.text(), false));
    } else if (c == verb("security")) {
      p.take(verb("is"));
      if (int v; small_number(p, 0, 9, v)) ops.at(m + mode::m_security)[0] = static_cast<uint8_t>(v);
    } else if (c == verb("icon")) {
      p.take(verb("is"));
      if (int v; small_number(p, 0, 254, v)) ops.at(m + mode::m_icon)[0] = static_cast<uint8_t>(v);
    } else {
      p.diag.error(msg::invalid_clause);
      p.tok.skip_to_clause();
      if (p.at_statement_start()) break;
      p.accept();
    }
  }
  ops.put16(m + mode::m_flags, flags);
  if (ops.get24(m + mode::m_prompt) == 0) ops.put24(m + mode::m_prompt, text_item_list(p, name, 'N'));
}

}  // namespace tav
