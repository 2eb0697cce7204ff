// HELP-SCREEN: a hidden look-up screen built for one ACCEPT. It is a DATA-GRID over its PRIMARY
// object showing the SHOWING fields in one row per record; selecting a row copies the returned
// field (USING, else the ACCEPTed field itself) into the ACCEPTed field and leaves the screen.
//
// The screen is reached only through its owner's descriptor (bytes 75-77): it does not join the
// program's section list. Every help screen is called "~-hs", a name no program can write, so a
// search of the list by name (DO, a section defined later) must never meet one, and the checks
// and default modes the end of the program gives the written sections are not for it: its modes
// and its select are complete when the clause ends. It takes a sequence number like any section,
// so that the screen count covers it.

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "codegen/convert.h"
#include "codegen/header.h"
#include "expr/expr.h"
#include "statements/accept.h"
#include "statements/accept_internal.h"
#include "statements/header_clauses.h"
#include "statements/modes.h"
#include "statements/program.h"
#include "statements/screen_clauses.h"
#include "statements/screen_output.h"
#include "symbols/fields.h"
#include "symbols/objects.h"

namespace tav {

namespace {

constexpr std::string_view kHelpScreenName = "~-hs";
// REVIEW, REVIEW-FROM-START and DATA-GRID, and referenced.
constexpr uint16_t kHelpReviewWord =
    ssym::flag_referenced | ssym::review_data_grid | ssym::review_from_start | ssym::review;
constexpr const char* kHelpModes[] = {"~-select", "find", "next-scr", "prev-scr", "next", "prev"};

constexpr size_t kMaxShown = 20;
constexpr size_t kTitleWidth = 30;
constexpr uint32_t kDefaultRow = 10, kDefaultColumn = 1;
constexpr int kLastDefaultRow = 20;   // OCCURS defaults to the rows from the window's top to this
constexpr uint32_t kMaxOccurs = 24;
constexpr uint32_t kFrameRows = 3;    // rows the window takes beside its entries
constexpr uint32_t kMinWidth = 12;
// The screen the program runs on is taken as the smallest the runtime supports, so that what
// compiles does not depend on the terminal of the compiler.
constexpr uint32_t kScreenRows = header::kTerminalRows, kScreenColumns = header::kTerminalColumns;

// The selection test: the selection mode equals what function 73 of the function table answers,
// called without arguments.
constexpr uint16_t kModeFunction = 73;
constexpr uint16_t kEqual = 0x1000;
constexpr uint8_t kModeNameType = '!';

// A field named in the clause: what it is, how it was qualified, its subscript.
struct NamedField {
  uint32_t field = 0, object = 0, subscript = 0;
  std::string title{};  // a SHOWING title
  bool titled = false;
  int line = 0;         // where it was named, for the checks made when the clause ends
  const LineSource* source = nullptr;  // and in which text
};

struct HelpScreen {
  Accept& owner;
  Parser& p;
  header::Header header;       // the hidden screen, read as a section header for PRIMARY
  std::vector<NamedField> shown{};
  NamedField returned{};       // USING, when `using_given`
  int line = 0;                // of the HELP-SCREEN word
  const LineSource* source = nullptr;
  uint32_t prefix = 0;         // the object the first qualified SHOWING field named
  int occurs = 0;              // 0: not given
  bool showing = false, positioned = false, using_given = false, primary = false;
  bool abandoned = false;      // the statement was passed over

  uint32_t s() const { return header.s; }
  uint32_t corner(uint32_t member, uint32_t at) const { return p.ops.get24(s() + member + at); }
};

// While the help screen is compiled it is the section being compiled: the owner's section, part,
// ACCEPT chain, open ACCEPTs, block depths and pending REFRESHes are put aside, and come back
// when it is done.
class AsCurrentSection {
 public:
  AsCurrentSection(Parser& p, uint32_t screen)
      : p_(p), section_(p.section), kind_(p.section_kind), part_(p.part), chain_(p.accept_chain),
        cond_(p.cond_depth), loop_(p.loop_depth), extract_(p.extract_depth), path_(p.path_ended),
        scope_(p.syms.current_section()) {
    accepts_.swap(p.accepts_open);
    refreshes_.swap(p.refreshes);
    p.section = screen;
    p.section_kind = ssym::kind_screen;
    p.part = SectionPart::before;
    p.accept_chain = 0;
    p.cond_depth = p.loop_depth = p.extract_depth = 0;
    p.path_ended = false;
    p.syms.set_current_section(screen);
  }
  ~AsCurrentSection() {
    p_.section = section_;
    p_.section_kind = kind_;
    p_.part = part_;
    p_.accept_chain = chain_;
    p_.cond_depth = cond_;
    p_.loop_depth = loop_;
    p_.extract_depth = extract_;
    p_.path_ended = path_;
    p_.syms.set_current_section(scope_);
    p_.accepts_open.swap(accepts_);
    p_.refreshes.swap(refreshes_);
  }
  AsCurrentSection(const AsCurrentSection&) = delete;
  AsCurrentSection& operator=(const AsCurrentSection&) = delete;

 private:
  Parser& p_;
  uint32_t section_;
  uint16_t kind_;
  SectionPart part_;
  uint32_t chain_;
  int cond_, loop_, extract_;
  bool path_;
  uint32_t scope_;
  std::vector<std::pair<uint32_t, uint32_t>> accepts_;
  std::vector<Parser::PendingRefresh> refreshes_;
};

uint32_t new_help_screen(Parser& p) {
  OpSpace& ops = p.ops;
  const uint32_t s = ops.alloc(ssym::size);
  ops.put24(s + ssym::s_name, ops.store_text(kHelpScreenName));
  ops.put16(s + ssym::s_seq, ops.next_count(hdr::h_screen_count, "sections"));
  ops.put16(s + ssym::s_kind, ssym::kind_screen);
  ops.put16(s + ssym::s_flags, kHelpReviewWord);
  uint32_t modes = 0;
  for (const char* name : kHelpModes) add_mode_to_list(p, modes, name);
  ops.put24(s + ssym::s_modes, modes);
  return s;
}

bool numeric(const Parser& p, uint32_t field) {
  return conv::fmt_numeric(static_cast<uint16_t>(p.ops.get16(field + fsym::f_format)));
}

std::string name_of(const Parser& p, uint32_t field) {
  return std::string(p.syms.text(p.ops.get24(field + fsym::f_name)));
}

ClauseStep abandon(HelpScreen& h) {
  h.abandoned = true;
  return ClauseStep::done;
}

// A field name and its subscript. False (the statement passed over) when there is none.
bool read_field(HelpScreen& h, NamedField& f) {
  Parser& p = h.p;
  if (p.next() != kClassName) {
    p.fail(msg::field_name_expected);
    return false;
  }
  f.line = p.tok.line();
  f.source = p.tok.line_source();
  f.field = reference_field(p, p.text(), &f.object);
  if (f.field == 0) {
    p.tok.skip_to_statement();
    return false;
  }
  return true;
}

// One SHOWING field [title]: qualified fields all name one object.
bool showing_field(HelpScreen& h, std::vector<NamedField>& list) {
  Parser& p = h.p;
  NamedField f;
  if (!read_field(h, f)) return false;
  if (f.object != 0) {
    if (h.prefix == 0) h.prefix = f.object;
    if (f.object != h.prefix) p.diag.error(msg::object_prefixes_not_consistent);
  }
  if (list.size() == kMaxShown) p.diag.error_text(txt::help_screen_too_many_fields, Context::current_token());
  f.subscript = compile_subscript(p, f.field);
  if (p.next() == kClassAlpha) {
    f.title = std::string(p.text());
    f.titled = true;
  } else {
    p.push_back();
  }
  if (list.size() < kMaxShown) list.push_back(std::move(f));
  return true;
}

// SHOWING f [title], f [title] ...: the list goes on while a name follows (commas separate
// like blanks). A repeated list is read and dropped.
ClauseStep showing(HelpScreen& h) {
  Parser& p = h.p;
  std::vector<NamedField> scratch;
  std::vector<NamedField>& list = h.showing ? scratch : h.shown;
  h.showing = true;
  do {
    if (!showing_field(h, list)) return abandon(h);
    p.next();
    p.push_back();
  } while (p.is_name());
  return ClauseStep::next;
}

ClauseStep position(HelpScreen& h) {
  h.positioned = true;
  return read_coordinates(h.p, h.s() + ssym::s_window_top, false) ? ClauseStep::next : abandon(h);
}

ClauseStep primary(HelpScreen& h) {
  h.primary = true;
  return header::primary(h.header) == ClauseStep::next ? ClauseStep::next : abandon(h);
}

// USING field: the value returned. It must be of the ACCEPTed field's kind, and an ACCEPTed
// field with a subscript takes no other field's value.
ClauseStep using_field(HelpScreen& h) {
  Parser& p = h.p;
  Accept& a = h.owner;
  NamedField f;
  if (!read_field(h, f)) return abandon(h);
  if (numeric(p, f.field) != a.numeric_field()) p.diag.error(msg::incompatible_field);
  if (p.ops.get24(a.d + adesc::ad_subscript) != 0)
    p.diag.error_text(txt::using_with_subscripted_field, Context::current_token());
  f.subscript = compile_subscript(p, f.field);
  h.returned = std::move(f);
  h.using_given = true;
  return ClauseStep::next;
}

// OCCURS n: the rows of the list, a numeric literal 1 to 24.
ClauseStep occurs(HelpScreen& h) {
  Parser& p = h.p;
  if (p.next() != kClassNumeric) {
    p.diag.error(msg::numeric_literal_expected);
    p.push_back();
    return ClauseStep::next;
  }
  const double v = p.tok.value();
  if (v < 1 || v > kMaxOccurs || v != static_cast<int>(v))
    p.diag.error(msg::numeric_value_invalid_out_range);
  else
    h.occurs = static_cast<int>(v);
  return ClauseStep::next;
}

// Any other word ends the clause and is read again by the ACCEPT.
ClauseStep clause_end(HelpScreen& h) {
  h.p.push_back();
  return ClauseStep::done;
}

constexpr ClauseRow<HelpScreen> kHelpClauses[] = {
    {verb("showing"), Given::once, {}, showing},
    {verb("@"), Given::repeatable, {}, position},
    {verb("primary"), Given::once, {}, primary},
    {verb("using"), Given::repeatable, {}, using_field},
    {verb("occurs"), Given::repeatable, {}, occurs},
};

bool fail_clause(Parser& p, txt::Text message) {
  p.diag.error_text(message, Context::current_token());
  return false;
}

// The clauses that must be given, the window's position and the rows it lists.
bool check_window(HelpScreen& h) {
  Parser& p = h.p;
  OpSpace& ops = p.ops;
  if (!h.primary) return fail_clause(p, txt::help_screen_no_primary);
  if (!h.showing) return fail_clause(p, txt::help_screen_no_showing);
  if (!h.positioned) {
    ops.put24(h.s() + ssym::s_window_top, kDefaultRow);
    ops.put24(h.s() + ssym::s_window_top + 3, kDefaultColumn);
  }
  const uint32_t row = h.corner(ssym::s_window_top, 0), column = h.corner(ssym::s_window_top, 3);
  if ((row | column) & kOperandList) return fail_clause(p, txt::help_screen_position_expression);
  const int occurs = h.occurs != 0 ? h.occurs : kLastDefaultRow - static_cast<int>(row);
  if (occurs < 1) return fail_clause(p, txt::help_screen_occurs_too_small);
  const uint32_t bottom = row + static_cast<uint32_t>(occurs) + kFrameRows;
  if (bottom >= kScreenRows) return fail_clause(p, txt::help_screen_past_bottom);
  ops.put24(h.s() + ssym::s_window_bottom, bottom);
  ops.put16(h.s() + ssym::s_occurs, static_cast<uint32_t>(occurs));
  ops.put16(h.s() + ssym::s_review_by, 1);
  ops.put16(h.s() + ssym::s_base, row + 1);
  return true;
}

// The returned field and every field shown are fields of the PRIMARY object.
bool check_contained(HelpScreen& h) {
  Parser& p = h.p;
  const uint32_t object = p.ops.get24(h.s() + ssym::s_primary);
  bool contained = true;
  auto check = [&](const NamedField& f) {
    if (field_in_object(p, object, f.field)) return;
    // A field of a validation text is reported where the program went on after it.
    const int line = f.source == p.tok.line_source() ? f.line : 0;
    p.diag.error_text(txt::field_not_in_help_object, Context::at_line(name_of(p, f.field), line));
    contained = false;
  };
  check(h.returned);
  for (const NamedField& f : h.shown) check(f);
  return contained;
}

bool returns_accepted_field(const HelpScreen& h) {
  return h.returned.field == h.owner.field && h.returned.object == h.owner.object;
}

// The returned field's value into the ACCEPTed field.
void emit_return(HelpScreen& h) {
  Parser& p = h.p;
  OpSpace& ops = p.ops;
  const Accept& a = h.owner;
  const uint32_t set = p.ob.emit(Op::set);
  p.ob.open_level();
  const uint32_t ref = p.ob.emit(Op::field_ref);
  const uint32_t primary = ops.get24(h.s() + ssym::s_primary);
  if (ops.get16(primary + osym::o_attr) & osym::attr_no_joins) ops.put24(ref + fieldref::fr_object, h.returned.object);
  ops.put16(ref + fieldref::fr_format, ops.get16(h.returned.field + fsym::f_format));
  ops.put24(ref + fieldref::fr_field, h.returned.field);
  ops.put24(ref + fieldref::fr_subscript, h.returned.subscript);
  ops.put24(set + setop::st_value, p.ob.top().head);
  p.ob.close_level();
  ops.put16(set + setop::st_format, a.field_format());
  ops.put24(set + setop::st_field, a.field);
  ops.put24(set + setop::st_subscript, ops.get24(a.d + adesc::ad_subscript));
  ops.put24(set + setop::st_object, a.object);
}

// IF the screen was left by selecting a row: the value returned, and EXIT. The call links no
// word in a debug compile: no word was written for it.
void selection_handler(HelpScreen& h) {
  Parser& p = h.p;
  OpSpace& ops = p.ops;
  const uint32_t branch = p.ob.emit(Op::if_);
  p.ob.open_level();
  const uint32_t mode = p.ob.emit(Op::mode_constant);
  const uint32_t value = ops.alloc(4);
  ops.put32(value, find_mode(p, "~-select"));
  ops.put24(mode + nameop::na_value, value);
  *ops.at(mode + nameop::na_type) = kModeNameType;
  emit_function_call(p, kModeFunction, 0);
  const uint32_t cmp = p.ob.emit(Op::comparison);
  ops.put16(cmp + cmpop::cmp_code, kEqual);
  ops.put24(branch + ifop::if_condition, p.ob.top().head);
  p.ob.close_level();
  if (!returns_accepted_field(h)) emit_return(h);
  ops.put24(branch + ifop::if_false, p.ob.emit(Op::exit));
}

// The ACCEPT of one shown field, on the row under the titles at `column`, with its title above
// it; its dictionary validations and completions as for a written ACCEPT. Returns the columns
// it takes.
uint32_t shown_accept(HelpScreen& h, const NamedField& f, uint32_t column) {
  Parser& p = h.p;
  OpSpace& ops = p.ops;
  const uint32_t top = h.corner(ssym::s_window_top, 0);
  Accept a{p, p.ob.emit(Op::accept), ops.alloc(adesc::size), p.accept_chain};
  a.field = f.field;
  a.object = f.object;
  a.length = adesc::size;
  p.accept_chain = a.op;
  p.accepts_open.emplace_back(a.op, a.d);
  ops.put24(a.d + adesc::ad_chain, a.previous);
  ops.put24(a.d + adesc::ad_field, f.field);
  ops.put24(a.d + adesc::ad_object, f.object);
  ops.put24(a.d + adesc::ad_subscript, f.subscript);
  ops.put16(a.d + adesc::ad_options, opt::detail);
  ops.put16(a.d + adesc::ad_type, a.field_format());
  ops.put16(a.d + adesc::ad_length, display_length(a.field_format(), static_cast<char>(ops.at(f.field + fsym::f_type)[0])));
  ops.put24(a.d + adesc::ad_row, top + 1);
  ops.put24(a.d + adesc::ad_column, column);
  const std::string title = f.titled ? f.title : name_of(p, f.field).substr(0, kTitleWidth);
  ops.put24(a.d + adesc::ad_title, text_item_list(p, title, 'D'));
  ops.put24(a.d + adesc::ad_title_pos, top);
  ops.put24(a.d + adesc::ad_title_pos + 3, column);
  run_dictionary_validations(a);
  finalise_accept(a);
  store_descriptor(a);
  p.accepts_open.pop_back();
  return static_cast<uint32_t>(std::max<size_t>(title.size(), a.get16(adesc::ad_length))) + 1;
}

// The DETAIL: the selection handler, then the shown fields side by side from two columns in.
// The window is as wide as they are, with a least width.
uint32_t detail_part(HelpScreen& h) {
  Parser& p = h.p;
  OpSpace& ops = p.ops;
  p.part = SectionPart::detail;
  p.ob.open_level();
  selection_handler(h);
  const uint32_t left = h.corner(ssym::s_window_top, 3);
  uint32_t column = left + 2;
  for (const NamedField& f : h.shown) {
    column += shown_accept(h, f, column);
    mark_key_accept(p, f.field);
  }
  const uint32_t head = p.ob.top().head;
  p.ob.close_level();
  const uint32_t right = std::max(column + 1, left + kMinWidth);
  if (right > kScreenColumns) p.diag.error_text(txt::help_screen_too_wide, Context::current_token());
  ops.put24(h.s() + ssym::s_window_bottom + 3, right);
  return head;
}

// BEFORE: the window's frame, and the PRIMARY object's record put aside; AFTER: the record back.
void before_and_after(HelpScreen& h) {
  Parser& p = h.p;
  OpSpace& ops = p.ops;
  const uint32_t object = ops.get24(h.s() + ssym::s_primary);
  p.ob.open_level();
  const uint32_t box = p.ob.emit(Op::box);
  const uint32_t frame = ops.alloc(boxrec::size);
  std::memcpy(ops.at(frame + boxrec::bx_top_left), ops.at(h.s() + ssym::s_window_top), 6);
  std::memcpy(ops.at(frame + boxrec::bx_bottom_right), ops.at(h.s() + ssym::s_window_bottom), 6);
  ops.put24(box + boxop::bo_box, frame);
  ops.put24(p.ob.emit(Op::save) + objop::ob_object, object);
  ops.put24(h.s() + ssym::s_before, p.ob.top().head);
  p.ob.close_level();
  p.ob.open_level();
  ops.put24(p.ob.emit(Op::restore) + restoreop::rs_object, object);
  ops.put24(h.s() + ssym::s_after, p.ob.top().head);
  p.ob.close_level();
}

bool shows(const HelpScreen& h, uint32_t field) {
  return std::any_of(h.shown.begin(), h.shown.end(), [&](const NamedField& f) { return f.field == field; });
}

// The checks, the code, and the screen completed as any screen is when its header and its
// section end. False when the screen was not built.
bool build(HelpScreen& h) {
  Parser& p = h.p;
  if (!check_window(h)) return false;
  if (!h.using_given) {
    h.returned = {h.owner.field, h.owner.object, p.ops.get24(h.owner.d + adesc::ad_subscript)};
    h.returned.line = h.line;
    h.returned.source = h.source;
  }
  if (!check_contained(h)) return false;
  p.ops.put24(h.s() + ssym::s_detail, detail_part(h));
  before_and_after(h);
  header::finish(h.header);
  complete_screen_modes(p, h.s());
  resolve_refreshes(p);
  if (h.using_given && !shows(h, h.returned.field))
    p.diag.warning_text(txt::using_field_not_shown, Context::current_token());
  return true;
}

}  // namespace

// HELP-SCREEN clauses...: shares its once-only rule with ON HELP-KEY. In a validation text, a
// help screen or help key the program gave stays: the text's screen is read and dropped.
ClauseStep accept_help_screen(Accept& a) {
  Parser& p = a.p;
  if (a.help_key && !a.dictionary) p.diag.error(msg::duplicate_incompatible_clause);
  const bool kept = a.help_key && a.dictionary;
  a.help_key = true;
  const uint32_t screen = new_help_screen(p);
  bool built = false;
  bool abandoned = false;
  {
    AsCurrentSection current(p, screen);
    HelpScreen h{a, p, header::Header{p, screen, kHelpReviewWord, static_cast<uint16_t>(p.diag.error_count())}};
    h.line = p.tok.line();
    h.source = p.tok.line_source();
    read_clauses(p, kHelpClauses, h, clause_end);
    abandoned = h.abandoned;
    built = !abandoned && build(h);
  }
  if (built && !kept) {
    p.ops.put24(a.d + adesc::ad_help_screen, screen);
    a.reach(adesc::ad_help_screen + 3);
  }
  return abandoned ? ClauseStep::done : ClauseStep::next;
}

}  // namespace tav
