// The structural statements: DO, EXIT, CONFIRM, PAUSE, BACK-TO-DETAIL, CONTINUE-ENTRY, LINK and
// VERSION-NUMBER.

#include <cstring>
#include <string>

#include "codegen/header.h"
#include "statements/handlers.h"
#include "statements/modes.h"
#include "statements/parser.h"
#include "statements/program.h"
#include "statements/records.h"
#include "symbols/records.h"

namespace tav {

namespace {

uint16_t kind_of(Parser& p) { return static_cast<uint16_t>(p.ops.get16(p.section + ssym::s_kind) & 3); }

// Emits the statement marker (debug compiles) and the statement's op.
uint32_t emit_statement(Parser& p, uint32_t verb_code, uint8_t opcode) {
  p.ob.emit_statement_marker(verb_code);
  return p.ob.emit(opcode);
}

// Reads clauses of a statement whose clauses this compiler does not know yet: reports the first
// and skips to the end of the statement.
void skip_rest(Parser& p) {
  p.diag.error(msg::invalid_clause);
  p.tok.skip_to_statement();
}

}  // namespace

// DO [NEXT | LOCAL] section [mode ...] [INITIAL-MODE mode] [SAME] [ONCE] [SUB-SCREEN]
void compile_do(Parser& p) {
  OpSpace& ops = p.ops;
  p.accept();
  uint16_t flags = 0;
  uint32_t c = p.next();
  if (c == verb("next")) {
    flags |= doop::next;
    c = p.next();
  } else if (c == verb("local")) {
    flags |= doop::local;
    c = p.next();
  }
  if (c != kClassName) {
    p.fail(msg::screen_name_expected);
    return;
  }
  uint32_t section = p.syms.find_or_declare_section(p.text(), false);
  if ((flags & doop::next) && ops.get16(section + ssym::s_routine) == 0) {
    uint32_t number = ops.get16(hdr::library_count) + 1;
    ops.put16(hdr::library_count, number);
    ops.put16(section + ssym::s_routine, number);
  }

  uint32_t modes = 0, initial = 0;
  int mode_count = 0;
  bool initial_given = false;
  for (;;) {
    c = p.next();
    if (p.at_statement_start()) break;
    if (c == verb("initial_mode")) {
      if (initial_given) p.diag.error(msg::duplicate_incompatible_clause);
      initial_given = true;
      p.take(verb("is"));
      p.next();
      initial = find_mode(p, p.text());
      if (initial == 0) p.diag.error(msg::mode_not_defined_known);
    } else if (c == verb("same")) {
      flags |= doop::same;
    } else if (c == verb("once")) {
      flags |= doop::once;
    } else if (c == verb("sub_screen")) {
      flags |= doop::sub_screen;
    } else if (c == verb("parameters") || c == verb("returning")) {
      // Arguments and results are compiled with the expression compiler.
      skip_rest(p);
      break;
    } else if (c == verb("search") || c == verb("prev") || c == verb("show") || c == kClassName ||
               find_mode(p, p.text()) != 0) {
      if (initial_given) {
        p.diag.error(msg::syntax_error);
        continue;
      }
      if (c == verb("search")) {
        for (const char* m : {"find", "next", "prev", "next-scr", "prev-scr"}) add_mode_to_list(p, modes, m);
        mode_count += 5;
      } else if (c == verb("show")) {
        add_mode_to_list(p, modes, "~-show");
        flags |= doop::show;
        ++mode_count;
      } else if (add_mode_to_list(p, modes, c == verb("prev") ? "prev" : p.text())) {
        ++mode_count;
      } else {
        p.diag.error(msg::mode_not_defined_known);
      }
    } else {
      p.diag.error(msg::invalid_clause);
      p.tok.skip_to_clause();
      if (p.at_statement_start()) break;
      p.accept();
    }
  }

  if (ops.get24(section + ssym::s_params) != 0) p.diag.error(msg::parameter_list_mismatch);
  if (mode_count > 1) flags &= static_cast<uint16_t>(~doop::show);
  if (ops.get16(section + ssym::s_routine) != 0 && (modes != 0 || initial != 0) && !(flags & doop::local))
    p.diag.warning_text("Cannot pass screen modes to shared library routines", Context::current_token());

  uint32_t op = emit_statement(p, verb("do"), opc::do_call);
  ops.put24(op + doop::section, section);
  ops.put16(op + doop::flags, flags);
  ops.put24(op + doop::modes, modes);
  ops.put24(op + doop::initial, initial);
}

// EXIT [value]
void compile_exit(Parser& p) {
  p.accept();
  p.path_ended = true;
  emit_statement(p, verb("exit"), opc::exit);
  if (!(p.next() & kStatementVerb)) {
    // Exit values are compiled with the expression compiler.
    skip_rest(p);
    return;
  }
}

// CONFIRM clauses... [BEFORE ...] [CONFIRMED ...] [NOT-CONFIRMED ...] [AFTER ...] END-CONFIRM
void compile_confirm(Parser& p) {
  OpSpace& ops = p.ops;
  p.accept();
  uint32_t block = ops.alloc(confirm::size);
  uint32_t op = emit_statement(p, verb("confirm"), opc::confirm);
  ops.put24(op + 4, block);
  if (p.cond_depth != 0) p.diag.error(msg::statement_not_conditional);
  if (ops.get24(p.section + ssym::s_confirm) != 0) p.diag.error(msg::multiple_confirm_statements_not_allowed);
  ops.put24(p.section + ssym::s_confirm, op);
  ops.put24(block + confirm::c_accepts, p.accept_chain);

  uint16_t flags = 0;
  bool position = false, prompt = false, no_prompt = false;
  for (;;) {
    uint32_t c = p.next();
    if (p.at_statement_start()) break;
    if (c == verb("auto")) {
      if (position || prompt || no_prompt) p.diag.error(msg::duplicate_incompatible_clause);
      flags |= confirm::flag_auto;
    } else if (c == verb("no_prompt")) {
      if ((flags & confirm::flag_auto) || no_prompt || prompt) p.diag.error(msg::duplicate_incompatible_clause);
      no_prompt = true;
      flags |= confirm::flag_no_prompt;
    } else if (c == verb("no_window")) {
      flags |= confirm::flag_no_window;
    } else if (c == verb("window")) {
      flags |= confirm::flag_window;
    } else if (c == verb("prompt")) {
      if ((flags & confirm::flag_auto) || no_prompt || prompt) p.diag.error(msg::duplicate_incompatible_clause);
      prompt = true;
      p.take(verb("is"));
      if (p.next() != kClassAlpha) {
        p.fail(msg::alpha_literal_expected);
        break;
      }
      int item = p.texts.add_string(p.text(), 'D');
      ops.put16(block + confirm::c_prompt, static_cast<uint32_t>(item));
    } else if (c == verb("default")) {
      if (flags & confirm::flag_auto) p.diag.error(msg::duplicate_incompatible_clause);
      p.take(verb("is"));
      uint32_t answer = p.next();
      if (answer == verb("yes"))
        ops.put16(block + confirm::c_default, 'Y');
      else if (answer == verb("no"))
        ops.put16(block + confirm::c_default, 'N');
      else
        p.diag.error(msg::syntax_error);
    } else {
      // The @ position and the WHEN condition come with the coordinate and expression compilers.
      p.diag.error(msg::invalid_clause);
      p.tok.skip_to_clause();
      if (p.at_statement_start()) break;
      p.accept();
    }
  }
  ops.put16(block + confirm::c_flags, flags);

  // The parts, each at most once; any other statement opens the CONFIRMED part.
  constexpr uint32_t kParts[] = {verb("before"), verb("confirmed"), verb("not_confirmed"), verb("after")};
  constexpr uint32_t kSlots[] = {confirm::c_before, confirm::c_confirmed, confirm::c_not_confirmed, confirm::c_after};
  bool any_part = false;
  for (;;) {
    uint32_t c = p.next();
    if (c == verb("end") || c == verb("end_confirm")) {
      p.accept();
      return;
    }
    if (c & kSectionStart) break;
    int which = 1;
    bool named = false;
    for (int i = 0; i < 4; ++i)
      if (c == kParts[i]) {
        which = i;
        named = true;
      }
    if (named)
      p.accept();
    else
      p.push_back();
    if (ops.get24(block + kSlots[which]) != 0) p.diag.error(msg::duplicate_incompatible_clause);
    any_part = true;
    p.ob.open_level();
    p.ob.emit_statement_marker(kParts[which]);
    for (;;) {
      uint32_t s = p.next();
      bool stop = (s & kSectionStart) || s == verb("end") || s == verb("end_confirm");
      for (uint32_t part : kParts) stop = stop || s == part;
      if (stop) {
        p.push_back();
        break;
      }
      compile_statement(p);
    }
    ops.put24(block + kSlots[which], p.ob.top().head);
    p.ob.close_level();
    p.path_ended = false;
  }
  if (any_part)
    p.diag.error(msg::end_missing);
  else
    p.diag.warning_text("END-CONFIRM missing from CONFIRM", Context::current_token());
}

void compile_pause(Parser& p) {
  p.accept();
  emit_statement(p, verb("pause"), opc::pause);
}

void compile_back_to_detail(Parser& p) {
  p.accept();
  if (p.part != SectionPart::after) {
    p.diag.error_text("Statement only valid in AFTER section of SCREEN/MENU", Context::current_token());
    p.tok.skip_to_statement();
    return;
  }
  emit_statement(p, verb("back_to_detail"), opc::back_to_detail);
  p.path_ended = true;
}

void compile_continue_entry(Parser& p) {
  p.accept();
  if (p.loop_depth <= 0) {
    p.fail(msg::not_looping_section_code);
    return;
  }
  if (p.part != SectionPart::detail || kind_of(p) != ssym::kind_screen) {
    p.fail(msg::statement_valid_within_detail_screen);
    return;
  }
  emit_statement(p, verb("continue_entry"), opc::continue_entry);
}

// LINK [TO] "library" ...: shared component libraries, kept most recent first.
void compile_link(Parser& p) {
  OpSpace& ops = p.ops;
  p.accept();
  p.take(verb("to"));
  for (;;) {
    uint32_t c = p.next();
    if (p.at_statement_start()) break;
    if (c != kClassAlpha) {
      p.fail(msg::alpha_literal_expected);
      return;
    }
    std::string name(p.text());
    uint32_t count = 0;
    bool known = false;
    for (uint32_t e = ops.get24(hdr::library_list); e != 0; e = ops.get24(e + library::l_next)) {
      if (std::strcmp(ops.text_at(ops.get24(e + library::l_name)), name.c_str()) == 0) known = true;
      ++count;
    }
    if (!known) {
      uint32_t e = ops.alloc(library::size);
      ops.put24(e + library::l_next, ops.get24(hdr::library_list));
      ops.put16(e + library::l_index, count);
      ops.put24(e + library::l_name, ops.store_text(name));
      ops.put24(hdr::library_list, e);
    }
    p.max_opt_ver(6);
  }
}

// VERSION-NUMBER [IS] version: a version text kept in the table for the program's owner.
void compile_version_number(Parser& p) {
  OpSpace& ops = p.ops;
  p.accept();
  p.take(verb("is"));
  p.tok.request_raw();
  uint32_t c = p.next();
  std::string text(p.text());
  if (c == kClassRaw || c == kClassName || c == kClassNumeric) {
    if (text.find_first_not_of("0123456789.") != std::string::npos) p.diag.warning(msg::invalid_version_number);
  } else if (c != kClassAlpha) {
    p.fail(msg::invalid_version_number);
    return;
  }
  std::string source = text;
  if (source.size() >= 2 && (source.front() == '"' || source.front() == '\'') && source.back() == source.front())
    source = source.substr(1, source.size() - 2);
  uint32_t e = ops.alloc(version::size);
  ops.put24(e + version::v_text, ops.store_text(text));
  ops.put24(e + version::v_source, ops.store_text(source));
  if (p.version_tail)
    ops.put24(p.version_tail + version::v_next, e);
  else
    ops.put24(hdr::version_list, e);
  p.version_tail = e;
}

}  // namespace tav
