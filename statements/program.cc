// The program compiler: per-program set-up, the statement dispatcher, sections and their parts,
// and the checks at the end of the program.

#include "statements/program.h"

#include <algorithm>
#include <array>

#include "codegen/header.h"
#include "statements/block.h"
#include "statements/handlers.h"
#include "statements/libraries.h"
#include "statements/modes.h"
#include "statements/parser.h"
#include "statements/records.h"
#include "statements/reports.h"
#include "statements/screen_output.h"
#include "symbols/suggest.h"
#include "symbols/fields.h"
#include "symbols/objects.h"
#include "symbols/records.h"

namespace tav {

namespace {

enum class Prologue { none, checked, keeps_path };

struct StatementRow {
  uint32_t code;
  void (*handler)(Parser&);
  Prologue prologue;
  std::string_view keyword;
  ObjectAccess access;
};

constexpr auto kStatements = [] {
  std::array rows{
#define TAV_STATEMENT(keyword, handler, prologue, access) \
  StatementRow{verb(keyword), handler, Prologue::prologue, keyword, ObjectAccess::access},
#include "statements/statements.def"
#undef TAV_STATEMENT
  };
  std::sort(rows.begin(), rows.end(), [](const StatementRow& a, const StatementRow& b) { return a.code < b.code; });
  return rows;
}();

const StatementRow* find_statement(uint32_t code) {
  auto it = std::lower_bound(kStatements.begin(), kStatements.end(), code,
                             [](const StatementRow& row, uint32_t c) { return row.code < c; });
  return it != kStatements.end() && it->code == code ? &*it : nullptr;
}


struct SectionKind {
  uint32_t verb;
  uint16_t kind;
  uint32_t end_verb;
};
constexpr SectionKind kSectionKinds[] = {
    {verb("screen"), ssym::kind_screen, verb("end_screen")},
    {verb("menu"), ssym::kind_menu, verb("end_menu")},
    {verb("procedure"), ssym::kind_procedure, verb("end_procedure")},
    {verb("api"), ssym::kind_procedure | ssym::kind_api, verb("end_api")},
};

uint16_t kind_of(uint16_t kind_word) { return kind_word & 3; }

// The work done when a section ends: checks of its fields and modes.
void end_section(Parser& p) {
  OpSpace& ops = p.ops;
  uint32_t s = p.section;
  p.ob.set_level(-1);
  report_unreferenced_locals(p, s);
  uint16_t kind = static_cast<uint16_t>(ops.get16(s + ssym::s_kind));
  if (kind_of(kind) == ssym::kind_screen) {
    complete_screen_modes(p, s);
  } else if (kind_of(kind) == ssym::kind_menu && p.menu_options >= 26 &&
             !(kind & (ssym::kind_tree_menu | ssym::kind_always_show)) &&
             !(ops.get16(s + ssym::s_marks) & ssym::mark_graphical_menu)) {
    p.diag.warning_text(txt::popup_menu_items, p.syms.text(ops.get24(s + ssym::s_name)));
  }
  resolve_refreshes(p);
  p.accept_chain = 0;
  p.ob.reset_level(0);
  p.ob.clear_marker_chain();
  p.in_section = false;
  p.syms.set_current_section(0);  // the section's local fields go out of scope with it
}

// Sections still only referenced, and defined sections nothing refers to.
void check_sections(Parser& p) {
  OpSpace& ops = p.ops;
  uint32_t entry = ops.get24(hdr::h_entry_section);
  for (uint32_t s = ops.get24(hdr::h_screens); s != 0; s = ops.get24(s + ssym::s_next)) {
    std::string_view name = p.syms.text(ops.get24(s + ssym::s_name));
    uint16_t kind = static_cast<uint16_t>(ops.get16(s + ssym::s_kind));
    bool referenced = ops.get16(s + ssym::s_flags) & ssym::flag_referenced;
    bool exported = ops.get16(s + ssym::s_form) & ssym::form_export;
    if (kind_of(kind) == ssym::kind_undefined) {
      if (ops.get24(s + ssym::s_library) == 0) {
        p.diag.set_name(name, p.syms.first_used_at(s));  // about the first call of it
        p.diag.error(msg::screen_procedure_not_defined);
        suggest_name(p, name, section_names(p));
      }
    } else if (!referenced && !exported && !(kind & ssym::kind_api) && s != entry) {
      if (name != "library-init") p.diag.info_text(txt::routine_not_referenced, Context::at(name, p.syms.defined_at(s)));
    } else if (!exported && ops.get16(s + ssym::s_routine) != 0) {
      p.diag.warning_text(txt::library_override_not_exported, name);
    }
  }
}

}  // namespace

void complete_screen_modes(Parser& p, uint32_t s) {
  OpSpace& ops = p.ops;
  if (!(ops.get16(s + ssym::s_flags) & ssym::review)) {
    disallow_mode(p, s, "next-scr");
    disallow_mode(p, s, "prev-scr");
  }
  bool has_source = ops.get24(s + ssym::s_primary) != 0 || ops.get24(s + ssym::s_select) != 0;
  if (has_source && !(ops.get16(s + ssym::s_marks) & ssym::mark_detail_accept)) {
    disallow_mode(p, s, "find");
    ops.put16(s + ssym::s_kind, ops.get16(s + ssym::s_kind) | ssym::kind_tree_menu);
  }
}

void compile_program(CompilerStores& c, FileContext& file) {
  Parser p(c, file);
  Tokenizer& tok = c.tok;
  SymbolTable& syms = c.syms;
  p.ops.alloc(hdr::size);  // the optable_header, at offset 0
  file.have_table = true;
  p.data.alloc(2);  // the data base: no field starts at offset 0
  syms.reset();
  p.ob.start_program();
  p.ob.op_stack_depth = -1;
  tok.set_statement_mask(kStatementVerb);
  tok.set_clause_mask(kClauseWord);
  tok.set_function_mask(kFunctionWord);

  create_builtin_modes(p);

  while (p.next() != kClassEndOfInput) compile_statement(p);
  if (p.in_section) end_section(p);

  if (p.diag.error_count() == 0) {
    resolve_libraries(p);
    check_sections(p);
    check_reports(p);
    object_post_processing(p);
    joined_field_data(p);
    assign_default_modes(p);
    if (p.print_statements > 0 && !p.report_defined)
      p.diag.error_text(txt::report_statements_without_report);
    if (!p.any_section) p.diag.error_text(txt::no_section_defined);
  }
}

void compile_statement(Parser& p) {
  const StatementRow* row = find_statement(p.cls());
  if (!row) {
    p.diag.error(msg::statement_invalid_not_known);
    p.accept();
    p.tok.skip_to_statement();
    return;
  }
  if (row->prologue != Prologue::none &&
      statement_prologue(p, row->prologue == Prologue::keeps_path) < 0)
    return;
  // A statement may hold others (ACCEPT's blocks): the outer one is current again after them.
  CrossReference& xref = p.syms.xref();
  const std::string_view outer = xref.statement();
  const ObjectAccess outer_access = xref.access();
  xref.set_statement(row->keyword, row->access);
  row->handler(p);
  xref.set_statement(outer, outer_access);
}

int statement_prologue(Parser& p, bool keeps_path) {
  if (p.section == 0) p.section = p.ops.alloc(ssym::size);  // scratch record before any section
  if (p.ob.level() < 0) {
    p.diag.error(msg::no_current_screen_menu_procedure);
    p.accept();
    while (!(p.next() & kSectionStart))
      if (p.tok.held()) p.accept();
    p.push_back();
    return -1;
  }
  if (!keeps_path && p.path_ended) p.diag.warning_text(txt::no_path_to_statement, Context::current_token());
  p.path_ended = false;
  return 0;
}

uint32_t compile_part(Parser& p, uint32_t part_verb, uint32_t end_verb) {
  p.accept_chain = 0;
  p.ob.set_level(0);
  p.ob.reset_level(0);
  p.ob.emit_statement_marker(part_verb);
  {
    BlockScope part(p, BlockScope::reopens_path);
    compile_statements_until(p, {verb("before"), verb("after"), verb("detail"), verb("end"), end_verb});
  }
  return p.ob.at_level(0).head;
}

namespace {

// The section's name, declared (or its earlier declaration taken) as the current section of the
// kind. 0 after reporting.
uint32_t declare_section(Parser& p, const SectionKind& sk) {
  if (p.next() != kClassName || !valid_name_characters(p.text())) {
    p.diag.error(msg::invalid_screen_name);
    p.ob.set_level(-1);
    p.tok.skip_to_statement();
    return 0;
  }
  OpSpace& ops = p.ops;
  uint32_t s = p.syms.find_or_declare_section(p.text(), true);
  if (kind_of(static_cast<uint16_t>(ops.get16(s + ssym::s_kind))) != ssym::kind_undefined) {
    p.diag.error(msg::name_already_defined);
    p.diag.add_note("first defined here", p.syms.defined_at(s));
  }
  if (ops.get24(hdr::h_entry_section) == 0 || p.text() == "main") ops.put24(hdr::h_entry_section, s);

  ops.put16(s + ssym::s_kind, sk.kind);
  ops.put16(s + ssym::s_flags, ops.get16(s + ssym::s_flags) & ssym::flag_referenced);
  p.section = s;
  p.section_kind = sk.kind;
  p.syms.set_current_section(s);
  p.any_section = true;
  p.in_section = true;
  return s;
}

// BEFORE or AFTER (not in a procedure), the word just read and taken.
void compile_before_after(Parser& p, uint32_t s, const SectionKind& sk, uint32_t c) {
  OpSpace& ops = p.ops;
  uint32_t slot = c == verb("before") ? ssym::s_before : ssym::s_after;
  if (ops.get24(s + slot) != 0 || kind_of(sk.kind) == ssym::kind_procedure)
    p.diag.error(msg::duplicate_incompatible_clause);
  p.part = c == verb("before") ? SectionPart::before : SectionPart::after;
  ops.put24(s + slot, compile_part(p, c, sk.end_verb));
}

// The DETAIL part, named or begun by its first statement (left held).
void compile_detail(Parser& p, uint32_t s, const SectionKind& sk) {
  OpSpace& ops = p.ops;
  if (ops.get24(s + ssym::s_detail) != 0) p.diag.error(msg::duplicate_incompatible_clause);
  p.part = SectionPart::detail;
  uint16_t k = kind_of(sk.kind);
  {
    // The DETAIL of a SCREEN or MENU runs once per record or choice: a loop.
    BlockScope detail(p, k == ssym::kind_screen || k == ssym::kind_menu ? BlockScope::loop : 0u);
    ops.put24(s + ssym::s_detail, compile_part(p, verb("detail"), sk.end_verb));
  }
  p.part = SectionPart::before;
}

}  // namespace

void compile_section(Parser& p) {
  const SectionKind* sk = nullptr;
  for (const SectionKind& k : kSectionKinds)
    if (k.verb == p.cls()) sk = &k;
  p.accept();
  if (p.in_section) end_section(p);
  p.ob.set_level(0);
  p.ob.reset_level(0);
  p.menu_options = 0;
  p.path_ended = false;
  uint32_t s = declare_section(p, *sk);
  if (s == 0) return;

  compile_section_header(p);
  for (;;) {
    p.ob.set_level(0);
    uint32_t c = p.next();
    if (c == verb("end") || c == sk->end_verb) {
      p.accept();
      break;
    }
    if (c & kSectionStart) break;
    if (c == verb("before") || c == verb("after")) {
      p.accept();
      compile_before_after(p, s, *sk, c);
      continue;
    }
    if (c == verb("detail"))
      p.accept();
    else
      p.push_back();
    compile_detail(p, s, *sk);
  }
  end_section(p);
}

namespace {

// Reports a statement that cannot stand here and passes over it.
void reject_statement(Parser& p, int code) {
  p.diag.error(code);
  p.accept();
  p.tok.skip_to_statement();
}

void reject_statement(Parser& p, Severity severity, txt::Text message) {
  if (severity == Severity::warning)
    p.diag.warning_text(message, Context::current_token());
  else
    p.diag.error_text(message, Context::current_token());
  p.accept();
  p.tok.skip_to_statement();
}

}  // namespace

void misplaced_part(Parser& p) { reject_statement(p, msg::command_group_invalid_here); }
void misplaced_end(Parser& p) { reject_statement(p, msg::incorrect_nesting_conditional_statements); }
void misplaced_case(Parser& p) { reject_statement(p, msg::switch_statement_not_active); }
void misplaced_until(Parser& p) { reject_statement(p, msg::repeat_statement_not_active); }

void misplaced_end_option(Parser& p) {
  if (p.in_section && kind_of(p.section_kind) == ssym::kind_menu)
    reject_statement(p, Severity::warning, txt::end_option_ignored_in_menu);
  else
    misplaced_end(p);
}

void ignored_statement(Parser& p) { reject_statement(p, Severity::warning, txt::statement_ignored); }

// GO-TO and LABEL are reported; their remaining words are skipped with them so that they do not
// start statements of their own.
void unsupported_statement(Parser& p) {
  reject_statement(p, Severity::error, txt::statement_no_longer_supported);
}

}  // namespace tav
