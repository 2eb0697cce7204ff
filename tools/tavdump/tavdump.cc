// The decoder of tavdump: header, text items, modes, sections with their op lists, fields,
// objects and the lists of the header, in that order.

#include "tavdump.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <functional>
#include <span>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "codegen/convert.h"
#include "codegen/header.h"
#include "codegen/opspace.h"
#include "image.h"
#include "lexer/verbs.h"
#include "statements/records.h"
#include "symbols/records.h"

namespace tav::dump {

namespace {

// Op lists nest no deeper than the compiler's levels allow, with room for CONFIRM parts.
constexpr int kMaxDepth = 256;
constexpr int kRawWidth = 16;

// A flag bit, or a value of the bits under `mask` (an alignment held in a nibble, say).
struct FlagName {
  uint32_t bit;
  const char* name;
  uint32_t mask = 0;  // 0: the bit alone
};

constexpr FlagName kModeFlags[] = {
    {mode::currency, "currency"},   {mode::entry, "entry"},
    {mode::correct, "correct"},     {mode::remove, "remove"},
    {mode::find, "find"},           {mode::next_record, "next"},
    {mode::prev_record, "prev"},    {mode::next_scr, "next-scr"},
    {mode::prev_scr, "prev-scr"},   {mode::always_show, "always-show"},
    {mode::lock, "lock"},           {mode::show, "show"},
    {mode::once, "once"},           {mode::process, "process"},
    {mode::duplicate, "duplicate"},
};

constexpr FlagName kKindFlags[] = {
    {ssym::kind_api, "api"},
    {ssym::kind_tree_menu, "tree-menu/no-find"},
    {ssym::kind_leave_parent, "leave-parent"},
    {ssym::kind_start_on_current, "start-on-current"},
    {ssym::kind_stop_exit_all, "stop-exit-all"},
    {ssym::kind_primary_key10, "primary-key10"},
    {ssym::kind_primary_access1, "primary-access1"},
    {ssym::kind_primary_same, "primary-same"},
    {ssym::kind_no_prompt_search, "no-prompt-search"},
    {ssym::kind_prompt_search, "prompt-search"},
    {ssym::kind_find_for_currency, "find-for-currency"},
    {ssym::kind_stay_in_correct, "stay-in-correct"},
    {ssym::kind_always_show, "always-show"},
};

constexpr FlagName kSectionFlags[] = {
    {ssym::review, "review"},
    {ssym::review_bottom_to_top, "bottom-to-top"},
    {ssym::review_from_end, "from-end"},
    {ssym::review_from_current, "from-current"},
    {ssym::review_from_start, "from-start"},
    {ssym::review_no_row_sep, "no-row-sep"},
    {ssym::review_no_col_sep, "no-col-sep"},
    {ssym::review_data_grid, "data-grid"},
    {ssym::flag_referenced, "referenced"},
};

constexpr FlagName kMarks[] = {
    {ssym::mark_has_options, "has-options"},
    {ssym::mark_detail_accept, "detail-accept"},
    {ssym::mark_graphical_menu, "graphical-menu"},
};

constexpr FlagName kConfirmFlags[] = {
    {confirm::flag_auto, "auto"},
    {confirm::flag_no_prompt, "no-prompt"},
    {confirm::flag_no_window, "no-window"},
    {confirm::flag_window, "window"},
};

constexpr FlagName kDoFlags[] = {
    {doop::local, "local"}, {doop::next, "next"}, {doop::sub_screen, "sub-screen"},
    {doop::same, "same"},   {doop::show, "show"}, {doop::once, "once"},
};

constexpr FlagName kFieldFlags[] = {
    {fsym::flag_upper, "upper-case"},
    {fsym::flag_lower, "lower-case"},
    {fsym::flag_justify, "justify"},
    {fsym::flag_dbname, "db-name"},
};

constexpr FlagName kObjectAttrs[] = {
    {osym::attr_open_lock, "open-lock"},     {osym::attr_partial, "partial"},
    {osym::attr_complete, "complete"},       {osym::attr_no_joins, "no-joins"},
    {osym::attr_no_rowid, "no-rowid"},       {osym::attr_open_write, "open-write"},
    {osym::attr_access, "access"},           {osym::attr_update, "update"},
    {osym::attr_get_lock, "get-lock"},
};

constexpr FlagName kKeyFlags[] = {
    {keyrec::flag_unique, "unique"},
    {keyrec::flag_db_index_only, "db-index-only"},
    {keyrec::flag_compress, "compress"},
};

constexpr FlagName kAccessFlags[] = {
    {access::next, "next"},          {access::prev, "prev"},
    {access::same, "same"},          {access::different, "different"},
    {access::first, "first"},        {access::last, "last"},
    {access::lock, "lock"},          {access::currency, "currency"},
    {access::before, "before"},      {access::after, "after"},
    {0x0800, "default-index"},       {0x1000, "partial-key"},
    {access::look_up, "look-up/extract"}, {0x8000, "full-key"},
};

constexpr FlagName kReportFlags[] = {
    {report::flag_no_xml, "no-xml"},        {report::flag_spool_only, "spool-only"},
    {report::flag_full_xml, "full-xml"},    {report::flag_full_page, "full-page"},
    {report::flag_to_screen, "to-screen"},  {report::flag_file, "file"},
    {report::flag_direct, "direct"},        {report::flag_referenced, "referenced"},
};
constexpr FlagName kReportSectionFlags[] = {{0x0001, "hidden"}, {0x0002, "can-hide"}, {0x0004, "style-class"}};
constexpr FlagName kPageFlags[] = {{0x0001, "no-footer"}, {0x0002, "no-header"}};

// SELECT: the select record, FROM entries, column nodes and select field entries.
constexpr FlagName kSelectFlags[] = {
    {selrec::distinct, "distinct"},      {selrec::all_fields, "select-*"},
    {selrec::correlated, "correlated"},  {selrec::on_index, "on-index"},
    {selrec::whole_aggregates, "whole-aggregates"}, {selrec::screen, "screen"},
    {selrec::for_update, "for-update"},  {selrec::union_first, "union-first"},
    {selrec::compiling, "compiling"},
};

constexpr FlagName kFromFlags[] = {
    {fromrec::all_fields, "all-fields"}, {fromrec::enclosing, "enclosing"},
    {fromrec::outer, "outer"},           {fromrec::named, "named"},
};

constexpr FlagName kEntryFlags[] = {
    {selfield::selected, "selected"},      {selfield::assigned, "assigned"},
    {selfield::aggregate, "aggregate"},    {selfield::in_aggregate, "in-aggregate"},
    {selfield::enclosing, "enclosing"},    {selfield::descending, "descending"},
    {selfield::copy, "copy"},              {selfield::referenced, "referenced"},
    {selfield::equality, "equality"},      {selfield::host, "host"},
    {selfield::field_bound, "field-bound"}, {selfield::ordered, "ordered"},
    {selfield::qualified, "qualified"},
};

// ACCEPT: the option and display words of the field descriptor; the display word's low
// nibble is the alignment.
constexpr FlagName kAcceptOptions[] = {
    {0x0001, "optional"},    {0x0002, "upper-case"}, {0x0004, "lower-case"}, {0x0008, "lookup-not"},
    {0x0010, "edited"},      {0x0020, "fill-left"},  {0x0040, "show-value"}, {0x0100, "no-clear"},
    {0x0200, "blank"},       {0x0400, "auto-return"}, {0x0800, "nested"},    {0x1000, "in-detail"},
    {0x2000, "suppress"},    {0x4000, "read-only"},
};

constexpr FlagName kAcceptDisplay[] = {
    {0x0004, "right", 0x000f},  {0x0006, "right-coordinate", 0x000f}, {0x0008, "centre", 0x000f},
    {0x000a, "centre-coordinate", 0x000f}, {0x000c, "left", 0x000f},
    {0x0010, "italic"},         {0x0020, "bold"},    {0x0040, "blink"},  {0x0080, "underline"},
    {0x0100, "inverse"},        {0x0200, "dim"},     {0x0400, "sunken"}, {0x0800, "fixed-width-font"},
};

// CHECK-BOX and RADIO-BUTTON descriptors, DISPLAY BITMAP.
constexpr FlagName kChoiceFlags[] = {{0x1000, "in-detail"}, {0x4000, "read-only"}};

constexpr FlagName kBitmapFlags[] = {
    {0x0001, "background"}, {0x0002, "foreground"}, {0x0004, "no-aspect-ratio"}, {0x0008, "absolute"},
};

// The key codes of ON-key nodes.
struct KeyName {
  int32_t code;
  const char* name;
};
constexpr KeyName kKeyNames[] = {
    {-5, "help-key"}, {-7, "up-arrow"}, {-8, "down-arrow"}, {-9, "right-arrow"}, {-10, "left-arrow"},
};

// The flag names of the members that hold flags; `record` tells apart members of the same name
// in different records (empty: any record).
struct MemberFlags {
  std::string_view member;
  std::span<const FlagName> names;
  std::string_view record = {};
};

constexpr MemberFlags kMemberFlags[] = {
    {"m_flags", kModeFlags},   {"s_kind", kKindFlags},   {"s_flags", kSectionFlags},
    {"s_marks", kMarks},       {"c_flags", kConfirmFlags}, {"f_flags", kFieldFlags},
    {"o_attr", kObjectAttrs},  {"k_flags", kKeyFlags},   {"a_flags", kAccessFlags},
    {"r_flags", kReportFlags}, {"rs_flags", kReportSectionFlags}, {"pg_flags", kPageFlags},
    {"sr_flags", kSelectFlags}, {"ad_options", kAcceptOptions}, {"ad_display", kAcceptDisplay},
    {"cb_flags", kChoiceFlags, "chkdesc"}, {"rd_flags", kChoiceFlags},
};

// The ops of the record access statements and the layouts of their operands.
struct RecordOp {
  Op op;
  std::string_view layout;
};
constexpr RecordOp kRecordOps[] = {
    {Op::get, "recio"},          {Op::position, "recio"},      {Op::insert, "objop"},
    {Op::update, "objop"},       {Op::delete_, "objop"},       {Op::close, "objop"},
    {Op::unlock, "objop"},       {Op::save, "objop"},          {Op::open, "openop"},
    {Op::serial, "serialop"},    {Op::restore, "restoreop"},   {Op::initialise, "restoreop"},
    {Op::begin, "txop"},         {Op::commit, "txop"},         {Op::roll_back, "txop"},
    {Op::audit, "auditop"},      {Op::locking_method, "lockmethod"}, {Op::extract, "extractop"},
    {Op::print_item, "printop"}, {Op::report_section, "rsectop"}, {Op::report, "reportop"},
    {Op::page, "pageop"},        {Op::skip, "skipop"},         {Op::need, "skipop"},
    {Op::report_finish, "finishop"},
};

// Whether a layout's first member names the op among those that share it: "(also a, b)".
bool shared_by(std::string_view description, std::string_view name) {
  const size_t also = description.find("(also ");
  if (also == std::string_view::npos) return false;
  std::string_view list = description.substr(also + 6);
  list = list.substr(0, list.find(')'));
  for (size_t at = 0; at < list.size();) {
    size_t end = list.find_first_of(", ", at);
    if (end == std::string_view::npos) end = list.size();
    if (list.substr(at, end - at) == name) return true;
    at = end + 1;
  }
  return false;
}

std::string_view find_record_op_layout(Op op) {
  for (const RecordOp& r : kRecordOps)
    if (r.op == op) return r.layout;
  // Any other op is read by the layout named after it, or by the one it shares.
  const std::string_view name = op_name(op);
  for (const RecordRow& r : op_rows::kRecords) {
    if (r.title == name) return r.record;
    for (const MemberRow& m : op_rows::kMembers) {
      if (m.record != r.record) continue;
      if (shared_by(m.description, name)) return r.record;
      break;  // only the first member names the sharers
    }
  }
  return {};
}

// The layout of every opcode, worked out once: a table holds many thousands of ops.
std::string_view record_op_layout(Op op) {
  static const std::array<std::string_view, 256> layouts = [] {
    std::array<std::string_view, 256> all;
    for (size_t code = 0; code < all.size(); ++code) all[code] = find_record_op_layout(static_cast<Op>(code));
    return all;
  }();
  return layouts[op_byte(op)];
}

std::span<const FlagName> flags_of(const MemberRow& m) {
  for (const MemberFlags& f : kMemberFlags)
    if (f.member == m.name && (f.record.empty() || f.record == m.record)) return f.names;
  return {};
}

std::string flag_words(uint32_t value, std::span<const FlagName> names) {
  std::string out = hex16(value);
  std::string words;
  uint32_t rest = value;
  for (const FlagName& f : names) {
    const uint32_t mask = f.mask != 0 ? f.mask : f.bit;
    if ((value & mask) == f.bit && f.bit != 0) {
      words += words.empty() ? "" : " ";
      words += f.name;
      rest &= ~mask;
    }
  }
  if (rest != 0) {
    words += words.empty() ? "" : " ";
    words += hex16(rest);
  }
  if (!words.empty()) out += " (" + words + ")";
  return out;
}

std::string number(long v) { return std::to_string(v); }

std::string printable_char(uint8_t c) {
  if (c == 0) return "none";
  if (c >= 0x20 && c < 0x7f) return std::string("'") + static_cast<char>(c) + "'";
  char buf[8];
  std::snprintf(buf, sizeof buf, "\\x%02x", c);
  return buf;
}

// The name of a verb code: the first keyword of the table carrying it.
std::string verb_name(uint32_t code) {
  for (int i = 0; i < kVerbCount; ++i)
    if (kVerbTable[i].code == code) return std::string(kVerbTable[i].name);
  return "?";
}

class Printer {
 public:
  Printer(const Image& image, const DumpOptions& options, std::string& out)
      : img_(image), opt_(options), out_(out) {}

  void all() {
    header();
    if (opt_.header_only) return;
    text_count_ = img_.h16(hdr::h_text_count);
    h_text_ = img_.h24(hdr::h_text);
    if (text_count_ != 0) img_.check_record(h_text_, text_count_ * textent::size, "text item table");
    text_items();
    modes();
    sections();
    fields();
    objects();
    versions();
    libraries();
    reports();
    other_lists();
    data_image();
  }

 private:
  // --- output ------------------------------------------------------------------------------

  void line(int indent, const std::string& text) {
    out_.append(static_cast<size_t>(indent) * 2, ' ');
    out_ += text;
    out_ += '\n';
  }

  // The record's bytes under its decoding (-r).
  void raw(int indent, uint32_t off, uint32_t size) {
    if (!opt_.raw) return;
    raw_bytes(indent, img_.bytes() + off, size);
  }

  void raw_bytes(int indent, const uint8_t* p, uint32_t size) {
    for (uint32_t i = 0; i < size; i += kRawWidth) {
      std::string l = "|";
      for (uint32_t j = i; j < size && j < i + kRawWidth; ++j) {
        char buf[4];
        std::snprintf(buf, sizeof buf, " %02x", p[j]);
        l += buf;
      }
      line(indent, l);
    }
  }

  std::string bytes_hex(uint32_t off, uint32_t size) const {
    std::string s;
    for (uint32_t i = 0; i < size; ++i) {
      char buf[4];
      std::snprintf(buf, sizeof buf, "%s%02x", i ? " " : "", img_.u8(off + i));
      s += buf;
    }
    return s;
  }

  // A link printed with the name of what it points to, when it has one.
  std::string name_at(uint32_t name_link, const std::string& what) const {
    return quoted(img_.text(name_link, what + " name"));
  }

  std::string section_name(uint32_t s) {
    if (s == 0) return "none";
    img_.check_record(s, ssym::size, "section");
    return hex24(s) + " " + name_at(img_.u24(s + ssym::s_name), "section");
  }

  std::string mode_name(uint32_t m) {
    if (m == 0) return "none";
    img_.check_record(m, mode::size, "mode");
    return quoted(img_.text(img_.u24(m + mode::m_name), "mode name"));
  }

  std::string field_name(uint32_t f) {
    if (f == 0) return "none";
    img_.check_record(f, fsym::size, "field");
    return quoted(img_.text(img_.u24(f + fsym::f_name), "field name"));
  }

  std::string object_name(uint32_t o) {
    if (o == 0) return "none";
    img_.check_record(o, osym::size, "object");
    return quoted(img_.text(img_.u24(o + osym::o_name), "object name"));
  }

  // "[find next prev]": the modes of a mode list.
  std::string mode_list(uint32_t head, const std::string& what) {
    std::string s = "[";
    Walk walk(what);
    for (uint32_t e = head; e != 0; e = img_.u24(e + modelist::ml_next)) {
      walk.visit(e);
      img_.check_record(e, modelist::size, what + " entry");
      if (s.size() > 1) s += ' ';
      s += mode_name(img_.u24(e + modelist::ml_mode));
    }
    return s + "]";
  }

  std::string text_item(uint32_t item) {
    if (item == 0) return "none";
    if (item >= text_count_) return number(item) + " (not in the text item table)";
    uint32_t e = h_text_ + item * textent::size;
    return number(item) + " " + quoted(img_.text(img_.u24(e + textent::te_text), "text item " + number(item)));
  }

  // --- records, member by member -------------------------------------------------------------

  // Every member of the record at `rec` in row order, one line each: "<member> <value>", the
  // value shown by what the row says the member holds. The record is checked first, so every
  // read lies inside the image.
  // `special`, when given, is offered each member first and prints those it returns true for.
  using Special = std::function<bool(int indent, const MemberRow& m, uint32_t at)>;

  template <size_t R, size_t M>
  void members(int indent, const RecordRow (&records)[R], const MemberRow (&rows)[M],
               std::string_view record, uint32_t rec, const Special& special = {}) {
    for (const RecordRow& r : records)
      if (r.record == record) img_.check_record(rec, r.size, std::string(r.title));
    for_each_member(rows, record, [&](const MemberRow& m) {
      if (!special || !special(indent, m, rec + m.offset)) member(indent, m, rec + m.offset);
    });
  }

  void member(int indent, const MemberRow& m, uint32_t at) {
    const std::string name(m.name);
    const std::string_view d = m.description;
    if (m.width == 6) {  // a position or colour pair: two operand values
      line(indent, name + " " + operand(img_.u24(at)) + ", " + operand(img_.u24(at + 3)));
      return;
    }
    const uint32_t v = m.width == 1 ? img_.u8(at) : m.width == 2 ? img_.u16(at) : m.width == 3 ? img_.u24(at) : img_.u32(at);
    if (m.width == 3 && has_word(d, "op list")) return op_list_member(indent, name, v);
    if (m.width == 2 && has_word(d, "text item")) return line(indent, name + " " + text_item(v));
    if (std::span<const FlagName> names = flags_of(m); !names.empty())
      return line(indent, name + " " + flag_words(v, names));
    line(indent, name + " " + member_value(m, v));
  }

  std::string member_value(const MemberRow& m, uint32_t v) {
    const std::string_view d = m.description;
    switch (member_kind(m)) {
      case MemberKind::text: return v == 0 ? "none" : quoted(img_.text(v, std::string(m.name)));
      case MemberKind::link: return linked(d, v);
      case MemberKind::signed_word: return number(static_cast<int16_t>(v));
      case MemberKind::character: return printable_char(static_cast<uint8_t>(v));
      case MemberKind::hex: return m.width == 2 ? hex16(v) : hex24(v);
      case MemberKind::decimal: return has_word(d, "operand value") ? operand(v) : number(v);
    }
    return number(v);
  }

  // A link, with the name of the record it points to when the row says what that is.
  std::string linked(std::string_view d, uint32_t v) {
    if (v == 0) return "none";
    if (has_word(d, "screen_sym")) return section_name(v);
    if (has_word(d, "object_sym") || has_word(d, "object")) return hex24(v) + " " + object_name(v);
    if (has_word(d, "field_sym")) return hex24(v) + " " + field_name(v);
    if (has_word(d, "mode_entry")) return hex24(v) + " " + mode_name(v);
    if (has_word(d, "allowed-mode list")) return mode_list(v, "allowed-mode list");
    if (has_word(d, "report record")) return report_name(v);
    return hex24(v);
  }

  // --- header ------------------------------------------------------------------------------

  void header() {
    line(0, "header");
    time_t t = static_cast<time_t>(img_.h32(hdr::h_compile_time));
    std::tm tm{};
    char when[64] = "?";
    if (gmtime_r(&t, &tm)) std::strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S UTC", &tm);
    line(1, "compile time      " + number(img_.h32(hdr::h_compile_time)) + " (" + when + ")");
    line(1, "table version     6." + number(img_.h16(hdr::h_version)));
    header_text("compile text      ", hdr::h_compile_text);
    uint32_t entry = img_.h24(hdr::h_entry_section);
    line(1, "entry section     " + section_name(entry));
    line(1, "h_screens         " + hex24(img_.h24(hdr::h_screens)));
    line(1, "h_objects         " + hex24(img_.h24(hdr::h_objects)));
    line(1, "h_fields          " + hex24(img_.h24(hdr::h_fields)));
    line(1, "mode list         " + hex24(img_.h24(hdr::h_mode_list)));
    line(1, "report list       " + hex24(img_.h24(hdr::h_report_list)));
    line(1, "select list       " + hex24(img_.h24(hdr::h_select_list)));
    line(1, "h_text            " + hex24(img_.h24(hdr::h_text)));
    line(1, "magic             0d 0a ff 0a");
    line(1, "object count      " + number(img_.h16(hdr::h_object_count)));
    line(1, "field count       " + number(img_.h16(hdr::h_field_count)));
    line(1, "screen count      " + number(img_.h16(hdr::h_screen_count)));
    line(1, "report count      " + number(img_.h16(hdr::h_report_count)));
    line(1, "text item count   " + number(img_.h16(hdr::h_text_count)));
    line(1, "flags             " + hex16(img_.h16(hdr::h_flags)) +
                (img_.debug_ops() ? " (debug ops)" : ""));
    line(1, "operations size   " + number(img_.ops_size()));
    line(1, "data size         " + number(img_.data_size()));
    header_text("dictionary 0      ", hdr::h_dict0);
    header_text("dictionary 1      ", hdr::h_dict1);
    header_text("dictionary 2      ", hdr::h_dict2);
    header_text("dict 0 version    ", hdr::h_dict0_version);
    header_text("dict 1 version    ", hdr::h_dict1_version);
    header_text("dict 2 version    ", hdr::h_dict2_version);
    line(1, "version list      " + hex24(img_.h24(hdr::h_version_list)));
    header_text("system name       ", hdr::h_system_name);
    line(1, "export list       " + hex24(img_.h24(hdr::h_export_list)));
    line(1, "library list      " + hex24(img_.h24(hdr::h_library_list)));
    line(1, "library count     " + number(img_.h16(hdr::h_library_count)));
    if (opt_.raw) raw_bytes(1, img_.bytes(), hdr::size);

  }

  void header_text(const char* label, uint32_t member) {
    uint32_t off = img_.h24(member);
    if (off == 0) {
      line(1, std::string(label) + "none");
      return;
    }
    line(1, std::string(label) + hex24(off) + " " + quoted(img_.text(off, label)));
  }

  // --- text items --------------------------------------------------------------------------

  void text_items() {
    line(0, "text items (" + number(text_count_) + " entries)");
    for (uint32_t n = 1; n < text_count_; ++n) {
      uint32_t e = h_text_ + n * textent::size;
      uint8_t kind = img_.u8(e + textent::te_kind);
      std::string text = img_.text(img_.u24(e + textent::te_text), "text item " + number(n));
      line(1, number(n) + " " + printable_char(kind) + " length " + number(img_.u8(e + textent::te_length)) + " " +
                  quoted(text));
    }
  }

  // --- modes -------------------------------------------------------------------------------

  void modes() {
    line(0, "modes");
    Walk walk("mode list");
    for (uint32_t m = img_.h24(hdr::h_mode_list); m != 0; m = img_.u24(m + mode::m_next)) {
      walk.visit(m);
      line(1, "mode " + hex24(m) + " " + mode_name(m));
      raw(2, m, mode::size);
      members(2, symbol_rows::kRecords, symbol_rows::kMembers, "mode", m);
    }
  }

  // --- sections ------------------------------------------------------------------------------

  void sections() {
    line(0, "sections");
    static constexpr const char* kKinds[] = {"undefined", "screen", "menu", "procedure"};
    Walk walk("section list");
    for (uint32_t s = img_.h24(hdr::h_screens); s != 0; s = img_.u24(s + ssym::s_next)) {
      walk.visit(s);
      img_.check_record(s, ssym::size, "section");
      line(1, "section " + section_name(s) + " " + kKinds[img_.u16(s + ssym::s_kind) & ssym::kind_mask]);
      section_body(2, s);
    }
  }

  void section_body(int indent, uint32_t s) {
    raw(indent, s, ssym::size);
    members(indent, symbol_rows::kRecords, symbol_rows::kMembers, "ssym", s);
    if (uint32_t l = img_.u24(s + ssym::s_locals)) field_chain(indent, "locals", l);
    if (uint32_t sel = img_.u24(s + ssym::s_select)) select_record(indent, sel);
  }

  // The hidden look-up screen of a HELP-SCREEN clause: in no section list, so shown in full
  // where its ACCEPT names it.
  void help_screen(int indent, uint32_t s) {
    if (s == 0) return line(indent, "ad_help_screen none");
    line(indent, "ad_help_screen " + section_name(s));
    if (!shown_records_.insert(s).second) return line(indent + 1, "(shown above)");
    section_body(indent + 1, s);
  }

  // The names of a chain of fields linked through f_next.
  void field_chain(int indent, const std::string& label, uint32_t head) {
    std::string names;
    Walk walk(label + " field list");
    for (uint32_t f = head; f != 0; f = img_.u24(f + fsym::f_next)) {
      walk.visit(f);
      names += " " + field_name(f);
    }
    line(indent, label + names);
  }

  // --- op lists ----------------------------------------------------------------------------

  // "label:" and the op list under it, or "label: none".
  void op_list_member(int indent, const std::string& label, uint32_t head) {
    if (head == 0) {
      line(indent, label + ": none");
      return;
    }
    line(indent, label + ":");
    op_list(indent + 1, head);
  }

  void op_list(int indent, uint32_t head) {
    if (depth_ >= kMaxDepth) throw Damaged{"op lists nested more than " + number(kMaxDepth) + " deep"};
    if (shown_ops_.count(head)) {
      line(indent, "(op list " + hex24(head) + " shown above)");
      return;
    }
    ++depth_;
    Walk walk("op list at " + hex24(head));
    for (uint32_t op = head; op != 0; op = img_.u24(op + kOpLink)) {
      walk.visit(op);
      if (shown_ops_.count(op)) {
        line(indent, "(continues at " + hex24(op) + ", shown above)");
        break;
      }
      one_op(indent, op);
    }
    --depth_;
  }

  // An operand value: an immediate integer, or an op list when the top bit is set.
  std::string operand(uint32_t v) {
    if (v & kOperandList) return "list " + hex24(v & ~kOperandList);
    return number(v);
  }

  void one_op(int indent, uint32_t op) {
    img_.check_record(op, kOpOperands, "op");
    const Op code{img_.u8(op + kOpcodeByte)};
    uint32_t size = op_size(code, img_.debug_ops());
    img_.check_record(op, size, std::string(op_name(code)) + " op");
    shown_ops_.insert(op);
    std::string head = hex24(op) + " " + op_name(code) + "(" + number(op_byte(code)) + ")";
    switch (code) {
      case Op::literal: {
        uint32_t value = img_.u24(op + literal::lit_value);
        auto format = static_cast<uint16_t>(img_.u16(op + literal::lit_format));
        if (!conv::fmt_numeric(format)) {
          if (value == 0) {
            line(indent, head + " text none length " + number(format));
          } else {
            img_.check_record(value, format, "literal text");
            line(indent, head + " text " + quoted(std::string(reinterpret_cast<const char*>(img_.bytes() + value), format)));
          }
        } else {
          uint32_t n = conv::format_size(format);
          std::string v = "none";
          if (value != 0) {
            img_.check_record(value, n, "literal value");
            v = bytes_hex(value, n);
          }
          line(indent, head + " format " + hex16(format) + " value " + v);
        }
        break;
      }
      case Op::text_item:
        line(indent, head + " item " + text_item(img_.u16(op + textitem::ti_item)) + " length " +
                         number(img_.u16(op + textitem::ti_length)));
        break;
      case Op::do_:
      case Op::do_parameters: {
        line(indent, head + " section " + section_name(img_.u24(op + doop::do_section)) + " flags " +
                         flag_words(img_.u16(op + doop::do_flags), kDoFlags) + " modes " +
                         mode_list(img_.u24(op + doop::do_modes), "DO mode list") + " initial " +
                         mode_name(img_.u24(op + doop::do_initial)));
        if (code == Op::do_parameters) {
          do_parameters(indent + 1, img_.u24(op + doop::do_params));
          do_returning(indent + 1, img_.u24(op + doop::do_returning));
        }
        break;
      }
      case Op::exit: {
        uint32_t v = img_.u24(op + exitop::ex_value);
        line(indent, head + " value " + (v == 0 ? std::string("none") : operand(v)));
        if (v & kOperandList) op_list(indent + 1, v & ~kOperandList);
        break;
      }
      case Op::confirm:
        line(indent, head + " block " + hex24(img_.u24(op + confirmop::co_block)));
        confirm_block(indent + 1, img_.u24(op + confirmop::co_block));
        break;
      case Op::pause:
        line(indent, head);
        break;
      case Op::display_item: {
        uint32_t d = img_.u24(op + displayop::dio_item);
        line(indent, head + " item " + hex24(d));
        display_item(indent + 1, d);
        break;
      }
      case Op::accept: {
        uint32_t d = img_.u24(op + acceptop::ao_desc), length = img_.u16(op + acceptop::ao_length);
        line(indent, head + " descriptor " + hex24(d) + " length " + number(length));
        accept_desc(indent + 1, d, length);
        break;
      }
      case Op::select:
        line(indent, head);
        select_op(indent + 1, op);
        break;
      case Op::select_field_ref: {
        const uint32_t sub = img_.u24(op + selref::sref_subscript);
        line(indent, head + " entry " + entry_name(img_.u24(op + selref::sref_entry)) + " format " +
                         hex16(img_.u16(op + selref::sref_format)) + " subscript " + operand(sub));
        if (sub & kOperandList) op_list(indent + 1, sub & ~kOperandList);
        break;
      }
      case Op::aggregate: {
        const uint32_t a = img_.u24(op + aggop::ag_record);
        std::string what = "none";
        if (a != 0) {
          img_.check_record(a, aggrec::size, "aggregate entry");
          what = hex24(a) + " " + number(img_.u16(a + aggrec::ae_number)) + " " + verb_name(img_.u32(a + aggrec::ae_verb));
        }
        line(indent, head + " aggregate " + what);
        break;
      }
      case Op::re_select:
        line(indent, head);
        break;
      case Op::check_box: {
        const uint32_t d = img_.u24(op + checkboxop::cbo_desc);
        line(indent, head + " descriptor " + hex24(d));
        if (d != 0) record(indent + 1, "chkdesc", d);
        break;
      }
      case Op::radio_button:
        radio_button(indent, op, head);
        break;
      case Op::display_bitmap:
        line(indent, head + " at " + position_text(img_.u24(op + bitmapop::bm_first)) + " to " +
                         position_text(img_.u24(op + bitmapop::bm_second)) + " flags " +
                         flag_words(img_.u16(op + bitmapop::bm_flags), kBitmapFlags));
        op_list_member(indent + 1, "name", img_.u24(op + bitmapop::bm_name));
        break;
      case Op::statement_marker: {
        uint32_t v = img_.u24(op + marker::mk_verb);
        std::string verb = "none";
        if (v != 0) {
          img_.check_record(v, 4, "verb code");
          char buf[16];
          std::snprintf(buf, sizeof buf, "0x%08x", img_.u32(v));
          verb = std::string(buf) + " " + verb_name(img_.u32(v));
        }
        line(indent, head + " verb " + verb + " prev " + hex24(img_.u24(op + marker::mk_prev)) + " next " +
                         hex24(img_.u24(op + marker::mk_next)));
        break;
      }
      default:
        if (std::string_view layout = record_op_layout(code); !layout.empty()) {
          line(indent, head);
          record_op(indent + 1, op, size, layout);
          break;
        }
        line(indent, head + (size > kOpOperands ? " bytes " + bytes_hex(op + kOpOperands, size - kOpOperands) : ""));
    }
    raw(indent + 1, op, size);
  }

  // The operands of a record access op by its layout's rows (those inside the op), and the
  // blocks it names.
  void record_op(int indent, uint32_t op, uint32_t size, std::string_view layout) {
    for_each_member(op_rows::kMembers, layout, [&](const MemberRow& m) {
      if (m.offset + m.width <= size) member(indent, m, op + m.offset);
    });
    if (layout == "recio") access_block(indent, img_.u24(op + recio::rio_block));
    if (layout == "extractop") extract_block(indent, img_.u24(op + extractop::xo_block));
    report_op_records(indent, op, layout);
  }

  void access_block(int indent, uint32_t b) {
    if (b == 0) return;
    line(indent, "record I/O block " + hex24(b));
    members(indent + 1, symbol_rows::kRecords, symbol_rows::kMembers, "accesskey", b);
    key_values(indent + 1, img_.u24(b + accesskey::a_values));
  }

  void key_values(int indent, uint32_t head) {
    Walk walk("key value list");
    int n = 0;
    for (uint32_t e = head; e != 0; e = img_.u24(e + exprlist::el_next)) {
      walk.visit(e);
      img_.check_record(e, exprlist::size, "key value");
      op_list_member(indent, "key value " + number(++n), img_.u24(e + exprlist::el_list));
    }
  }

  void extract_block(int indent, uint32_t b) {
    if (b == 0) return;
    line(indent, "EXTRACT block " + hex24(b));
    members(indent + 1, statement_rows::kRecords, statement_rows::kMembers, "extract", b);
    access_block(indent + 1, img_.u24(b + extract::x_access));
    extract_groups(indent + 1, "BEFORE group", img_.u24(b + extract::x_before));
    extract_groups(indent + 1, "AFTER group", img_.u24(b + extract::x_after));
  }

  void extract_groups(int indent, const std::string& label, uint32_t head) {
    Walk walk(label + " list");
    for (uint32_t g = head; g != 0; g = img_.u24(g + xgroup::xg_next)) {
      walk.visit(g);
      line(indent, label + " " + hex24(g));
      members(indent + 1, statement_rows::kRecords, statement_rows::kMembers, "xgroup", g);
      std::string names;
      Walk fields(label + " fields");
      for (uint32_t e = img_.u24(g + xgroup::xg_fields); e != 0; e = img_.u24(e + flist::fl_next)) {
        fields.visit(e);
        img_.check_record(e, flist::size, "break field");
        names += " " + field_name(img_.u24(e + flist::fl_field));
      }
      line(indent + 1, "fields" + names);
    }
  }

  void do_parameters(int indent, uint32_t head) {
    Walk walk("DO parameter list");
    int n = 0;
    for (uint32_t e = head; e != 0; e = img_.u24(e + exprlist::el_next)) {
      walk.visit(e);
      img_.check_record(e, exprlist::size, "DO parameter");
      op_list_member(indent, "parameter " + number(++n), img_.u24(e + exprlist::el_list));
    }
  }

  void do_returning(int indent, uint32_t head) {
    Walk walk("DO returning list");
    for (uint32_t e = head; e != 0; e = img_.u24(e + retlist::rl_next)) {
      walk.visit(e);
      img_.check_record(e, retlist::size, "DO returning entry");
      line(indent, "returning " + field_name(img_.u24(e + retlist::rl_field)) + " address " + hex24(img_.u24(e + retlist::rl_address)));
    }
  }

  // A display item holds its long-form members only when its flag 0x0001 is set.
  void display_item(int indent, uint32_t d) {
    if (d == 0) return;
    img_.check_record(d, ditem::di_scale, "display item");
    uint32_t length = (img_.u16(d + ditem::di_flags) & 0x0001) ? ditem::di_title_pos + 6 : ditem::di_scale;
    img_.check_record(d, length, "display item");
    for_each_member(statement_rows::kMembers, "ditem", [&](const MemberRow& m) {
      if (m.offset + m.width <= length) member(indent, m, d + m.offset);
    });
    raw(indent, d, length);
  }

  // A field descriptor holds the members that end within its length.
  void accept_desc(int indent, uint32_t d, uint32_t length) {
    if (d == 0) return;
    img_.check_record(d, length, "accept_desc");
    for_each_member(statement_rows::kMembers, "adesc", [&](const MemberRow& m) {
      if (m.offset + m.width <= length && !accept_member(indent, m, d + m.offset)) member(indent, m, d + m.offset);
    });
    raw(indent, d, length);
  }

  void confirm_block(int indent, uint32_t b) {
    members(indent, statement_rows::kRecords, statement_rows::kMembers, "confirm", b);
    raw(indent, b, confirm::size);
  }

  // A record of statements/records.def, member by member, with its bytes under it (-r).
  void record(int indent, std::string_view name, uint32_t rec, const Special& special = {}) {
    members(indent, statement_rows::kRecords, statement_rows::kMembers, name, rec, special);
    for (const RecordRow& r : statement_rows::kRecords)
      if (r.record == name) raw(indent, rec, r.size);
  }

  // --- screen input: ACCEPT lists, CHECK-BOX, RADIO-BUTTON -------------------------------------

  // The members of an accept_desc that link to lists: decoded in place of the link.
  bool accept_member(int indent, const MemberRow& m, uint32_t at) {
    const uint32_t v = img_.u24(at);
    const std::string name(m.name);
    if (name == "ad_allowed" || name == "ad_disallowed") {
      value_list(indent, name == "ad_allowed" ? "allowed" : "disallowed", v);
    } else if (name == "ad_on_keys") {
      on_keys(indent, v);
    } else if (name == "ad_lookup") {
      if (v != 0) lookup_record(indent, v);
    } else if (name == "ad_help_screen") {
      help_screen(indent, v);
    } else {
      return false;
    }
    return true;
  }

  // ALLOWED or DISALLOWED: one line per node, "allowed 1 to 5 title "low"". A value that is
  // more than one literal is shown as its op list under the line.
  void value_list(int indent, const std::string& label, uint32_t head) {
    Walk walk(label + " value list");
    for (uint32_t n = head; n != 0; n = img_.u24(n + valnode::vn_next)) {
      walk.visit(n);
      img_.check_record(n, valnode::size, "value-list node");
      std::string text = label;
      std::vector<std::pair<std::string, uint32_t>> nested;
      auto part = [&](const char* word, uint32_t list) {
        if (list == 0) return;
        if (simple_value(list)) {
          text += std::string(word) + operand_text(list);
        } else {
          text += std::string(word) + "list " + hex24(list);
          nested.emplace_back(word + 1, list);
        }
      };
      part(" ", img_.u24(n + valnode::vn_value));
      part(" to ", img_.u24(n + valnode::vn_upper));
      part(" title ", img_.u24(n + valnode::vn_title));
      line(indent, text);
      raw(indent + 1, n, valnode::size);
      for (const auto& [word, list] : nested) op_list_member(indent + 1, word, list);
    }
  }

  void on_keys(int indent, uint32_t head) {
    Walk walk("ON-key list");
    for (uint32_t n = head; n != 0; n = img_.u24(n + onkey::ok_next)) {
      walk.visit(n);
      img_.check_record(n, onkey::size, "ON-key node");
      const int32_t code = img_.s16(n + onkey::ok_key);
      std::string key = "key " + number(code);
      for (const KeyName& k : kKeyNames)
        if (k.code == code) key = k.name;
      op_list_member(indent, "on " + key, img_.u24(n + onkey::ok_block));
      raw(indent + 1, n, onkey::size);
    }
  }

  // The LOOKUP record: an access key block whose own list is the LOOKUP key field.
  void lookup_record(int indent, uint32_t b) {
    img_.check_record(b, accesskey::size, "LOOKUP record");
    std::string key_field = "none";
    if (uint32_t k = img_.u24(b + accesskey::a_list); k != 0) {
      img_.check_record(k, lookupkey::size, "LOOKUP key field");
      key_field = field_name(img_.u24(k + lookupkey::lk_field));
    }
    line(indent, "lookup " + object_name(img_.u24(b + accesskey::a_object)) + " key " +
                     number(img_.u8(b + accesskey::a_index)) + " key field " + key_field);
    raw(indent + 1, b, accesskey::size);
    key_values(indent + 1, img_.u24(b + accesskey::a_values));
  }

  // Every op of a RADIO-BUTTON shows its value record; the descriptor they share is shown with
  // the first.
  void radio_button(int indent, uint32_t op, const std::string& head) {
    const uint32_t v = img_.u24(op + radioop::rbo_value), d = img_.u24(op + radioop::rbo_desc);
    line(indent, head + " value " + hex24(v) + " descriptor " + hex24(d));
    if (v != 0) record(indent + 1, "radval", v);
    if (d == 0) return;
    if (!shown_records_.insert(d).second) return line(indent + 1, "descriptor " + hex24(d) + " shown above");
    line(indent + 1, "radio-button descriptor " + hex24(d));
    record(indent + 2, "raddesc", d);
  }

  std::string position_text(uint32_t p) {
    if (p == 0) return "none";
    img_.check_record(p, position::size, "position record");
    return operand(img_.u24(p + position::ps_row)) + "," + operand(img_.u24(p + position::ps_column));
  }

  // --- values --------------------------------------------------------------------------------

  // An op that checks as a whole op record.
  Op checked_op(uint32_t op, const std::string& what) {
    img_.check_record(op, kOpOperands, what);
    const Op code{img_.u8(op + kOpcodeByte)};
    img_.check_record(op, op_size(code, img_.debug_ops()), what);
    return code;
  }

  // An op list of a single literal or field op, shown as its value.
  bool simple_value(uint32_t head) {
    const Op code = checked_op(head, "value op");
    if (img_.u24(head + kOpLink) != 0) return false;
    return code == Op::literal || code == Op::date_literal || code == Op::text_item ||
           code == Op::select_field_ref || code == Op::field_ref;
  }

  // One operand op as the program would write it: a literal by its value, a field by its name.
  std::string operand_text(uint32_t op) {
    if (op == 0) return "none";
    switch (checked_op(op, "value op")) {
      case Op::literal:
      case Op::date_literal:
        return literal_text(op);
      case Op::text_item: {
        const uint32_t item = img_.u16(op + textitem::ti_item);
        if (item == 0 || item >= text_count_) return "text item " + number(item);
        return quoted(img_.text(img_.u24(h_text_ + item * textent::size + textent::te_text), "text item"));
      }
      case Op::select_field_ref: {
        const uint32_t e = img_.u24(op + selref::sref_entry);
        img_.check_record(e, selfield::size, "select field entry");
        return bare_field_name(img_.u24(e + selfield::sf_field));
      }
      case Op::field_ref:
        return bare_field_name(img_.u24(op + fieldref::fr_field));
      default:
        return std::string(op_name(Op{img_.u8(op + kOpcodeByte)})) + " op " + hex24(op);
    }
  }

  std::string literal_text(uint32_t op) {
    const uint32_t value = img_.u24(op + literal::lit_value);
    const auto format = static_cast<uint16_t>(img_.u16(op + literal::lit_format));
    if (value == 0) return "none";
    if (!conv::fmt_numeric(format)) {
      img_.check_record(value, format, "literal text");
      return quoted(std::string(reinterpret_cast<const char*>(img_.bytes() + value), format));
    }
    img_.check_record(value, conv::format_size(format), "literal value");
    char buf[512];
    std::snprintf(buf, sizeof buf, "%.*f", conv::fmt_decimals(format), conv::to_double(img_.bytes() + value, format));
    return buf;
  }

  std::string bare_field_name(uint32_t f) {
    if (f == 0) return "none";
    img_.check_record(f, fsym::size, "field");
    return img_.text(img_.u24(f + fsym::f_name), "field name");
  }

  // --- SELECT ----------------------------------------------------------------------------------

  void select_op(int indent, uint32_t op) {
    select_record(indent, img_.u24(op + selectop::so_record));
    breaks(indent, "before", img_.u24(op + selectop::so_before));
    if (uint32_t detail = img_.u24(op + selectop::so_detail)) op_list_member(indent, "detail", detail);
    breaks(indent, "after", img_.u24(op + selectop::so_after));
  }

  // A select record with its lists; the members of a UNION nested under the record they follow.
  void select_record(int indent, uint32_t rec) {
    if (rec == 0) return line(indent, "select record none");
    img_.check_record(rec, selrec::size, "select record");
    std::string head = "select record " + hex24(rec);
    if (uint32_t screen = img_.u24(rec + selrec::sr_screen)) head += " for " + quoted(img_.text(screen, "screen name"));
    if (!shown_records_.insert(rec).second) return line(indent, head + " (shown above)");
    if (depth_ >= kMaxDepth) throw Damaged{"select records nested more than " + number(kMaxDepth) + " deep"};
    ++depth_;
    line(indent, head);
    record(indent + 1, "selrec", rec, [this](int in, const MemberRow& m, uint32_t at) { return select_member(in, m, at); });
    --depth_;
  }

  bool select_member(int indent, const MemberRow& m, uint32_t at) {
    const uint32_t v = img_.u24(at);
    const std::string name(m.name);
    if (name == "sr_from") {
      from_entries(indent, v);
    } else if (name == "sr_fields") {
      select_fields(indent, v);
    } else if (name == "sr_order" || name == "sr_group") {
      line(indent, name + (v == 0 ? " none" : " " + order_text(v, name == "sr_order")));
    } else if (name == "sr_aggregates") {
      aggregates(indent, v);
    } else if (name == "sr_union_next" && v != 0) {
      line(indent, name + ":");
      select_record(indent + 1, v);
    } else {
      return false;
    }
    return true;
  }

  // "from 1 "cust" flags ..." and its columns, a selected one marked "(selected)".
  void from_entries(int indent, uint32_t head) {
    Walk walk("FROM list");
    for (uint32_t f = head; f != 0; f = img_.u24(f + fromrec::fe_next)) {
      walk.visit(f);
      img_.check_record(f, fromrec::size, "FROM entry");
      line(indent, "from " + number(img_.u16(f + fromrec::fe_number)) + " " + object_name(img_.u24(f + fromrec::fe_object)) +
                       " flags " + flag_words(img_.u16(f + fromrec::fe_flags), kFromFlags) + " index " +
                       number(img_.u8(f + fromrec::fe_index)) + " level " + number(img_.u16(f + fromrec::fe_level)) +
                       " joined to " + number(img_.u16(f + fromrec::fe_joined_to)));
      raw(indent + 1, f, fromrec::size);
      std::string columns;
      Walk cw("column list");
      for (uint32_t c = img_.u24(f + fromrec::fe_columns); c != 0; c = img_.u24(c + column::cn_next)) {
        cw.visit(c);
        img_.check_record(c, column::size, "column node");
        columns += " " + field_name(img_.u24(c + column::cn_field));
        if (img_.u16(c + column::cn_flags) & column::selected) columns += "(selected)";
      }
      if (!columns.empty()) line(indent + 1, "columns" + columns);
    }
  }

  // "3 "cno"": a select field entry by its number and field name.
  std::string entry_name(uint32_t e) {
    if (e == 0) return "none";
    img_.check_record(e, selfield::size, "select field entry");
    return number(img_.u16(e + selfield::sf_number)) + " " + field_name(img_.u24(e + selfield::sf_field));
  }

  void select_fields(int indent, uint32_t head) {
    Walk walk("select field list");
    for (uint32_t e = head; e != 0; e = img_.u24(e + selfield::sf_next)) {
      walk.visit(e);
      img_.check_record(e, selfield::size, "select field entry");
      std::string from = "none";
      if (uint32_t f = img_.u24(e + selfield::sf_from)) {
        img_.check_record(f, fromrec::size, "FROM entry");
        from = number(img_.u16(f + fromrec::fe_number));
      }
      line(indent, "entry " + entry_name(e) + " from " + from + " flags " +
                       flag_words(img_.u16(e + selfield::sf_flags), kEntryFlags));
      raw(indent + 1, e, selfield::size);
      if (std::string ring = ring_text(e); !ring.empty()) line(indent + 1, "ring:" + ring);
      if (uint32_t r = img_.u24(e + selfield::sf_ranges)) line(indent + 1, "ranges: " + ranges_text(e, r));
      if (uint32_t o = img_.u24(e + selfield::sf_host_object)) line(indent + 1, "host object " + object_name(o));
      if (uint32_t x = img_.u24(e + selfield::sf_expression)) op_list_member(indent + 1, "expression", x);
    }
  }

  // The other members of an entry's join ring, in ring order.
  std::string ring_text(uint32_t entry) {
    std::string out;
    Walk walk("join ring");
    for (uint32_t e = img_.u24(entry + selfield::sf_ring); e != entry && e != 0; e = img_.u24(e + selfield::sf_ring)) {
      walk.visit(e);
      out += " " + entry_name(e);
    }
    return out;
  }

  // "a >= 5 AND a <= 5 OR a > 10": bounds joined by AND, ranges by OR.
  std::string ranges_text(uint32_t entry, uint32_t head) {
    const std::string name = bare_field_name(img_.u24(entry + selfield::sf_field));
    std::string out;
    Walk walk("range list");
    for (uint32_t r = head; r != 0; r = img_.u24(r + rangerec::rg_next)) {
      walk.visit(r);
      img_.check_record(r, rangerec::size, "range record");
      std::string bounds;
      Walk bw("bound list");
      for (uint32_t b = img_.u24(r + rangerec::rg_bounds); b != 0; b = img_.u24(b + boundrec::bd_next)) {
        bw.visit(b);
        img_.check_record(b, boundrec::size, "bound record");
        bounds += (bounds.empty() ? "" : " AND ") + name + " " + relation(img_.u16(b + boundrec::bd_code)) + " " +
                  operand_text(img_.u24(b + boundrec::bd_value));
      }
      out += (out.empty() ? "" : " OR ") + (bounds.empty() ? std::string("(no bounds)") : bounds);
    }
    return out;
  }

  static std::string relation(uint32_t code) {
    if (code & 0x0004) return "LIKE";
    static constexpr const char* kRelations[] = {"?", "=", ">", ">=", "<", "<=", "!=", "?"};
    return kRelations[(code >> 12) & 7];
  }

  // ORDER BY, GROUP BY and break fields: "1 "cno" desc, 2 "region"".
  std::string order_text(uint32_t head, bool show_desc) {
    std::string out;
    Walk walk("order list");
    for (uint32_t n = head; n != 0; n = img_.u24(n + ordernode::on_next)) {
      walk.visit(n);
      img_.check_record(n, ordernode::size, "order node");
      const uint32_t e = img_.u24(n + ordernode::on_entry);
      out += (out.empty() ? "" : ", ") + entry_name(e);
      if (show_desc && e != 0 && (img_.u16(e + selfield::sf_flags) & selfield::descending)) out += " desc";
    }
    return out;
  }

  void aggregates(int indent, uint32_t head) {
    Walk walk("aggregate list");
    for (uint32_t a = head; a != 0; a = img_.u24(a + aggrec::ae_next)) {
      walk.visit(a);
      img_.check_record(a, aggrec::size, "aggregate entry");
      const bool whole = img_.u24(a + aggrec::ae_break_next) == aggrec::kWholeSelect;
      line(indent, "aggregate " + number(img_.u16(a + aggrec::ae_number)) + " " + verb_name(img_.u32(a + aggrec::ae_verb)) +
                       " type " + hex16(img_.u16(a + aggrec::ae_type)) + " flags " + hex16(img_.u16(a + aggrec::ae_flags)) +
                       (whole ? " over the whole select" : ""));
      raw(indent + 1, a, aggrec::size);
      op_list_member(indent + 1, "argument", img_.u24(a + aggrec::ae_argument));
    }
  }

  // BEFORE and AFTER breaks of a SELECT statement, with their fields, aggregates and blocks.
  void breaks(int indent, const std::string& label, uint32_t head) {
    Walk walk(label + " break list");
    for (uint32_t b = head; b != 0; b = img_.u24(b + breakrec::br_next)) {
      walk.visit(b);
      img_.check_record(b, breakrec::size, "control-break record");
      std::string text = label + " " + order_text(img_.u24(b + breakrec::br_fields), false);
      std::string numbers;
      Walk aw(label + " break aggregates");
      for (uint32_t a = img_.u24(b + breakrec::br_aggregates); a != 0 && a != aggrec::kWholeSelect;
           a = img_.u24(a + aggrec::ae_break_next)) {
        aw.visit(a);
        img_.check_record(a, aggrec::size, "aggregate entry");
        numbers += " " + number(img_.u16(a + aggrec::ae_number));
      }
      if (!numbers.empty()) text += " aggregates" + numbers;
      line(indent, text);
      raw(indent + 1, b, breakrec::size);
      op_list_member(indent + 1, "block", img_.u24(b + breakrec::br_block));
    }
  }

  // The header's list of screen selects, latest first; most are shown with their screens.
  void screen_selects() {
    const uint32_t head = img_.h24(hdr::h_select_list);
    if (head == 0) return;
    line(0, "screen selects");
    Walk walk("screen select list");
    for (uint32_t r = head; r != 0; r = img_.u24(r + selrec::sr_screen_next)) {
      walk.visit(r);
      img_.check_record(r, selrec::size, "select record");
      select_record(1, r);
    }
  }

  // --- fields and objects --------------------------------------------------------------------

  void fields() {
    line(0, "fields");
    Walk walk("field list");
    for (uint32_t f = img_.h24(hdr::h_fields); f != 0; f = img_.u24(f + fsym::f_next)) {
      walk.visit(f);
      field(1, f);
    }
  }

  void field(int indent, uint32_t f) {
    line(indent, "field " + hex24(f) + " " + field_name(f));
    raw(indent + 1, f, fsym::size);
    members(indent + 1, symbol_rows::kRecords, symbol_rows::kMembers, "fsym", f);
    std::string joins;
    Walk walk("object links of a field");
    for (uint32_t l = img_.u24(f + fsym::f_join); l != 0; l = img_.u24(l + folink::fo_join)) {
      walk.visit(l);
      img_.check_record(l, folink::size, "field-object link");
      joins += " " + object_name(img_.u24(l + folink::fo_object)) + "@" + number(img_.u16(l + folink::fo_offs));
    }
    if (!joins.empty()) line(indent + 1, "in" + joins);
  }

  void objects() {
    line(0, "objects");
    Walk walk("object list");
    for (uint32_t o = img_.h24(hdr::h_objects); o != 0; o = img_.u24(o + osym::o_next)) {
      walk.visit(o);
      object(1, o);
    }
  }

  void object(int indent, uint32_t o) {
    line(indent, "object " + hex24(o) + " " + object_name(o));
    raw(indent + 1, o, osym::size);
    members(indent + 1, symbol_rows::kRecords, symbol_rows::kMembers, "osym", o);
    Walk walk("record fields of an object");
    for (uint32_t l = img_.u24(o + osym::o_fldobj); l != 0; l = img_.u24(l + folink::fo_fldobj)) {
      walk.visit(l);
      img_.check_record(l, folink::size, "field-object link");
      line(indent + 1, "field " + field_name(img_.u24(l + folink::fo_field)) + " at " +
                           number(img_.u16(l + folink::fo_offs)));
      raw(indent + 2, l, folink::size);
    }
    Walk keys("key list");
    for (uint32_t k = img_.u24(o + osym::o_keylist); k != 0; k = img_.u24(k + keyrec::k_next)) {
      keys.visit(k);
      img_.check_record(k, keyrec::size, "key record");
      std::string parts;
      Walk pw("key part list");
      for (uint32_t p = img_.u24(k + keyrec::k_parts); p != 0; p = img_.u24(p + keypart::kp_next)) {
        pw.visit(p);
        img_.check_record(p, keypart::size, "key part");
        parts += " " + field_name(img_.u24(p + keypart::kp_field));
        if (img_.u16(p + keypart::kp_desc) == 1) parts += " desc";
      }
      line(indent + 1, "key " + number(img_.u8(k + keyrec::k_index)) + ":" + parts);
      raw(indent + 2, k, keyrec::size);
      members(indent + 2, symbol_rows::kRecords, symbol_rows::kMembers, "keyrec", k);
    }
  }

  // --- lists of the header ---------------------------------------------------------------------

  void versions() {
    line(0, "versions");
    Walk walk("version list");
    for (uint32_t v = img_.h24(hdr::h_version_list); v != 0; v = img_.u24(v + version::v_next)) {
      walk.visit(v);
      line(1, "version " + hex24(v));
      members(2, statement_rows::kRecords, statement_rows::kMembers, "version", v);
      raw(2, v, version::size);
    }
  }

  void libraries() {
    line(0, "libraries");
    Walk walk("library list");
    for (uint32_t l = img_.h24(hdr::h_library_list); l != 0; l = img_.u24(l + library::l_next)) {
      walk.visit(l);
      line(1, "library " + hex24(l));
      members(2, statement_rows::kRecords, statement_rows::kMembers, "library", l);
      raw(2, l, library::size);
    }
  }

  // --- reports -------------------------------------------------------------------------------

  std::string report_name(uint32_t r) {
    img_.check_record(r, report::size, "report record");
    const uint32_t name = img_.u24(r + report::r_name);
    return hex24(r) + " " + (name == 0 ? std::string("(no name)") : name_at(name, "report"));
  }

  bool is_report(uint32_t r) {
    Walk walk("report list");
    for (uint32_t e = img_.h24(hdr::h_report_list); e != 0; e = img_.u24(e + report::r_next)) {
      walk.visit(e);
      img_.check_record(e, report::size, "report record");
      if (e == r) return true;
    }
    return false;
  }

  void reports() {
    line(0, "reports");
    Walk walk("report list");
    for (uint32_t r = img_.h24(hdr::h_report_list); r != 0; r = img_.u24(r + report::r_next)) {
      walk.visit(r);
      line(1, "report " + report_name(r));
      raw(2, r, report::size);
      members(2, symbol_rows::kRecords, symbol_rows::kMembers, "report", r);
    }
  }

  // The records a report op points to: the 48 bytes of a print item, a report section record.
  void report_op_records(int indent, uint32_t op, std::string_view layout) {
    if (layout == "printop") {
      const uint32_t d = img_.u24(op + printop::po_item);
      if (d == 0) return;
      line(indent, "print item " + hex24(d));
      members(indent + 1, statement_rows::kRecords, statement_rows::kMembers, "ditem", d);
      raw(indent + 1, d, ditem::size);
    } else if (layout == "rsectop") {
      const uint32_t s = img_.u24(op + rsectop::rso_section);
      if (s == 0 || is_report(s)) return;
      line(indent, "report section " + hex24(s));
      members(indent + 1, statement_rows::kRecords, statement_rows::kMembers, "rsection", s);
      raw(indent + 1, s, rsection::size);
    }
  }

  // Lists whose records this dump does not decode yet: their heads only.
  void other_lists() {
    screen_selects();
    exports();
  }

  // The EXPORT sections, newest first, each with its export number.
  void exports() {
    const uint32_t head = img_.h24(hdr::h_export_list);
    if (head == 0) return;
    line(0, "exports");
    Walk walk("export list");
    for (uint32_t e = head; e != 0; e = img_.u24(e + exportrec::er_next)) {
      walk.visit(e);
      img_.check_record(e, exportrec::size, "export record");
      line(1, "export " + number(img_.u16(e + exportrec::er_number)) + " " + section_name(img_.u24(e + exportrec::er_section)));
    }
  }

  void data_image() {
    line(0, "data image: " + number(img_.data_size()) + " bytes at file offset " + number(img_.ops_size()));
    if (opt_.raw) raw_bytes(1, img_.bytes() + img_.ops_size(), img_.data_size());
  }

  const Image& img_;
  const DumpOptions& opt_;
  std::string& out_;
  uint32_t text_count_ = 0;
  uint32_t h_text_ = 0;
  int depth_ = 0;
  std::unordered_set<uint32_t> shown_ops_;
  std::unordered_set<uint32_t> shown_records_;  // select records, radio-button descriptors, help screens
};

}  // namespace

DumpResult dump_op6(const uint8_t* bytes, size_t size, const DumpOptions& options) {
  DumpResult r;
  try {
    Image image(bytes, size);
    Printer(image, options, r.text).all();
  } catch (const Damaged& d) {
    r.ok = false;
    r.damage = d.what;
    r.not_a_table = d.not_a_table;
  }
  return r;
}

}  // namespace tav::dump
