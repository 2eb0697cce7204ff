// The decoder of tavdump: header, text items, modes, sections with their op lists, fields,
// objects and the lists of the header, in that order.

#include "tavdump.h"

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

struct FlagName {
  uint32_t bit;
  const char* name;
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

// The flag names of the members that hold flags.
struct MemberFlags {
  std::string_view member;
  std::span<const FlagName> names;
};

constexpr MemberFlags kMemberFlags[] = {
    {"m_flags", kModeFlags},   {"s_kind", kKindFlags},   {"s_flags", kSectionFlags},
    {"s_marks", kMarks},       {"c_flags", kConfirmFlags}, {"f_flags", kFieldFlags},
    {"o_attr", kObjectAttrs},  {"k_flags", kKeyFlags},   {"a_flags", kAccessFlags},
    {"r_flags", kReportFlags}, {"rs_flags", kReportSectionFlags}, {"pg_flags", kPageFlags},
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

std::string_view record_op_layout(Op op) {
  for (const RecordOp& r : kRecordOps)
    if (r.op == op) return r.layout;
  return {};
}

std::span<const FlagName> flags_of(std::string_view member) {
  for (const MemberFlags& f : kMemberFlags)
    if (f.member == member) return f.names;
  return {};
}

std::string flag_words(uint32_t value, std::span<const FlagName> names) {
  std::string out = hex16(value);
  std::string words;
  uint32_t rest = value;
  for (const FlagName& f : names) {
    if ((value & f.bit) == f.bit && f.bit != 0) {
      words += words.empty() ? "" : " ";
      words += f.name;
      rest &= ~f.bit;
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
  template <size_t R, size_t M>
  void members(int indent, const RecordRow (&records)[R], const MemberRow (&rows)[M],
               std::string_view record, uint32_t rec) {
    for (const RecordRow& r : records)
      if (r.record == record) img_.check_record(rec, r.size, std::string(r.title));
    for_each_member(rows, record, [&](const MemberRow& m) { member(indent, m, rec + m.offset); });
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
    if (std::span<const FlagName> names = flags_of(m.name); !names.empty())
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
      raw(2, s, ssym::size);
      members(2, symbol_rows::kRecords, symbol_rows::kMembers, "ssym", s);
      if (uint32_t l = img_.u24(s + ssym::s_locals)) field_chain(2, "locals", l);
    }
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
    Walk walk("key value list");
    int n = 0;
    for (uint32_t e = img_.u24(b + accesskey::a_values); e != 0; e = img_.u24(e + exprlist::el_next)) {
      walk.visit(e);
      img_.check_record(e, exprlist::size, "key value");
      op_list_member(indent + 1, "key value " + number(++n), img_.u24(e + exprlist::el_list));
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
      if (m.offset + m.width <= length) member(indent, m, d + m.offset);
    });
    raw(indent, d, length);
  }

  void confirm_block(int indent, uint32_t b) {
    members(indent, statement_rows::kRecords, statement_rows::kMembers, "confirm", b);
    raw(indent, b, confirm::size);
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
    if (uint32_t r = img_.h24(hdr::h_report_list)) line(0, "report list at " + hex24(r));
    if (uint32_t s = img_.h24(hdr::h_select_list)) line(0, "select list at " + hex24(s));
    if (uint32_t e = img_.h24(hdr::h_export_list)) line(0, "export list at " + hex24(e));
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
