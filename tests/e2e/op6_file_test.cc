// The operations table file as tavcmp writes it: header, built-in modes and text items, sections,
// ops and their links, and how the file is replaced.

#include <sys/stat.h>

#include "codegen/header.h"
#include "statements/records.h"
#include "symbols/records.h"
#include "tests/e2e/driver_fixture.h"

namespace {

using namespace tav;
using tavtest::Op6;
using tavtest::RunResult;
using tavtest::TempDir;

Op6 compiled(const TempDir& dir, const std::string& source, std::vector<std::string> options = {}) {
  tavtest::Compiled c = tavtest::compile(dir, source, "prog.spl", std::move(options));
  EXPECT_EQ(c.result.status, 0) << c.result.out << c.result.err;
  return c.image;
}

// The names of the modes along a mode list.
std::vector<std::string> modes(const Op6& t, uint32_t head) {
  std::vector<std::string> out;
  for (uint32_t e = head; e != 0 && out.size() < 100; e = t.u24(e + modelist::ml_next))
    out.push_back(t.text(t.u24(t.u24(e + modelist::ml_mode) + mode::m_name)));
  return out;
}

const char kSmall[] =
    "procedure main\n"
    "  pause\n"
    "end-procedure\n";

TEST(Op6File, HeaderSizesMagicFlagsAndVersion) {
  struct Case {
    const char* source;
    std::vector<std::string> options;
    uint32_t flags, version;
  };
  const Case cases[] = {
      {kSmall, {}, 0x4006, 3},
      {kSmall, {"-d"}, 0x4007, 3},
      {"procedure main\n  pause\nend-procedure\nlink \"liba\"\n", {}, 0x4006, 6},
  };
  for (const Case& c : cases) {
    TempDir dir;
    Op6 t = compiled(dir, c.source, c.options);
    uint32_t s = t.u32(hdr::h_ops_size), d = t.u32(hdr::h_data_size);
    EXPECT_EQ(s % 8, 0u);
    EXPECT_GE(s, 96u);
    EXPECT_EQ(d, 8u) << "the 2-byte data base, padded";
    EXPECT_EQ(t.size(), s + d);
    EXPECT_EQ(t.bytes().substr(hdr::h_magic, 4), "\r\n\xff\n");
    EXPECT_EQ(t.u16(hdr::h_flags), c.flags);
    EXPECT_EQ(t.u16(hdr::h_version), c.version);
    EXPECT_EQ(t.text(t.u24(hdr::h_compile_text)).rfind("@(#) prog.spl compiled on ", 0), 0u);
    EXPECT_NE(t.bytes().find("@(#) Operations table version " + std::to_string(c.version)), std::string::npos);
    EXPECT_NE(t.u24(hdr::h_system_name), 0u) << "stored even when empty";
    EXPECT_EQ(t.text(t.u24(hdr::h_system_name)), "");
  }
}

TEST(Op6File, BuiltInModesAndTheirTextItems) {
  TempDir dir;
  Op6 t = compiled(dir, kSmall);
  const char* names[] = {"next-scr", "prev-scr", "find",      "next",   "prev",     "entry",    "correct",
                         "remove",   "entry-once", "entry_once", "duplicate", "~-show", "~-select", "~-custom"};
  const char* prompts[] = {"Next-scr", "Prev-scr", "Find",  "Next",      "Prev", "Entry",  "Correct",
                           "Remove",   "Entry",    "Entry", "Duplicate", "Show", "Select", "Custom"};
  const uint16_t flags[] = {0x4080, 0x4100, 0x4010, 0x4020, 0x4040, 0x4002, 0x4005,
                            0x4009, 0x6002, 0x6002, 0xc005, 0x1000, 0x0001, 0x0000};
  ASSERT_EQ(t.u16(hdr::h_text_count), 29u) << "28 items and entry 0";
  uint32_t table = t.u24(hdr::h_text);
  EXPECT_EQ(t.bytes().substr(table, 5), std::string(5, '\0'));

  uint32_t m = t.u24(hdr::h_mode_list);
  for (size_t i = 0; i < 14; ++i) {
    ASSERT_NE(m, 0u) << "mode " << i;
    EXPECT_EQ(t.text(t.u24(m + mode::m_name)), names[i]);
    EXPECT_EQ(t.u16(m + mode::m_flags), flags[i]) << names[i];
    // Prompt and help: single Op::text_item lists naming items 2i+1 ('N') and 2i+2 ('H').
    for (uint32_t which : {mode::m_prompt, mode::m_help}) {
      uint32_t op = t.u24(m + which);
      EXPECT_EQ(t.u24(op), 0u) << "one-op list";
      EXPECT_EQ(t.opcode(op), Op::text_item);
      uint32_t item = t.u16(op + textitem::ti_item);
      EXPECT_EQ(item, 2 * i + (which == mode::m_prompt ? 1 : 2));
      uint32_t entry = table + item * textent::size;
      EXPECT_EQ(static_cast<char>(t.u8(entry + textent::te_kind)), which == mode::m_prompt ? 'N' : 'H');
      std::string text = t.text(t.u24(entry + textent::te_text));
      EXPECT_EQ(t.u8(entry + textent::te_length), text.size());
      EXPECT_EQ(t.u16(op + textitem::ti_length), text.size());
      if (which == mode::m_prompt) {
        EXPECT_EQ(text, prompts[i]);
      }
    }
    m = t.u24(m + mode::m_next);
  }
  EXPECT_EQ(m, 0u) << "no mode past the built-in ones";
}

TEST(Op6File, SectionOrderKindsEntryAndDefaultModes) {
  TempDir dir;
  Op6 t = compiled(dir,
                   "screen first_scr\n  pause\nend-screen\n"
                   "menu pick\n  pause\nend-menu\n"
                   "procedure main\n  do first_scr\n  do pick\n  do later\nend-procedure\n"
                   "procedure later\n  pause\nend-procedure\n");
  std::vector<std::string> names;
  for (uint32_t s : t.sections()) names.push_back(t.text(t.u24(s + ssym::s_name)));
  EXPECT_EQ(names, (std::vector<std::string>{"first_scr", "pick", "main", "later"}));
  EXPECT_EQ(t.u24(hdr::h_entry_section), t.section_named("main")) << "a section named main is the entry";
  EXPECT_EQ(t.u16(hdr::h_screen_count), 4u);

  struct Expect {
    const char* name;
    uint16_t kind;
    std::vector<std::string> modes;
  };
  const Expect expect[] = {
      {"first_scr", ssym::kind_screen, {"entry", "correct"}},
      {"pick", ssym::kind_menu, {"entry"}},
      {"main", ssym::kind_procedure, {"entry"}},
      {"later", ssym::kind_procedure, {"entry"}},
  };
  for (const Expect& e : expect) {
    uint32_t s = t.section_named(e.name);
    ASSERT_NE(s, 0u) << e.name;
    EXPECT_EQ(t.u16(s + ssym::s_kind), e.kind) << e.name;
    EXPECT_EQ(modes(t, t.u24(s + ssym::s_modes)), e.modes) << e.name;
  }
  EXPECT_TRUE(t.u16(t.section_named("later") + ssym::s_flags) & ssym::flag_referenced);
}

TEST(Op6File, PauseExitAndDoOps) {
  TempDir dir;
  Op6 t = compiled(dir,
                   "procedure main\n  pause\n  do other\n  exit\nend-procedure\n"
                   "procedure other\n  pause\nend-procedure\n");
  const uint32_t detail = t.u24(t.section_named("main") + ssym::s_detail);
  ASSERT_EQ(t.codes(detail), (std::vector<Op>{Op::pause, Op::do_, Op::exit}));
  const std::vector<uint32_t> ops = t.list(detail);
  // DO names the section with no flags; EXIT without a value; a section without BEFORE.
  EXPECT_EQ((std::vector<uint32_t>{t.u24(ops[1] + doop::do_section), t.u16(ops[1] + doop::do_flags), t.u24(ops[2] + 4),
                                   t.u24(t.section_named("other") + ssym::s_before)}),
            (std::vector<uint32_t>{t.section_named("other"), 0, 0, 0}));
}

TEST(Op6File, DebugMarkersChainTheStatements) {
  TempDir dir;
  Op6 t = compiled(dir, "procedure main\n  pause\n  pause\n  pause\nend-procedure\n", {"-d"});
  // The DETAIL part's own marker, then a marker before each PAUSE, each with its verb code.
  const std::vector<uint32_t> m = drvtest::ops_of(t, t.u24(t.section_named("main") + ssym::s_detail), Op::statement_marker);
  ASSERT_EQ(m.size(), 4u);
  std::vector<uint32_t> verbs;
  for (uint32_t op : m) verbs.push_back(t.u32(t.u24(op + marker::mk_verb)));
  EXPECT_EQ(verbs, (std::vector<uint32_t>{0x30e00460, 0x30000c9e, 0x30000c9e, 0x30000c9e}));
  // The statement markers link both ways.
  EXPECT_EQ((std::vector<uint32_t>{t.u24(m[2] + marker::mk_prev), t.u24(m[1] + marker::mk_next), t.u24(m[2] + marker::mk_next),
                                   t.u24(m[3] + marker::mk_next)}),
            (std::vector<uint32_t>{m[1], m[2], m[3], 0}));
}

TEST(Op6File, NoSectionMeansNoTable) {
  TempDir dir;
  RunResult r = tavtest::compile(dir, "link \"liba\"\n").result;
  EXPECT_NE(r.status, 0);
  EXPECT_TRUE(drvtest::contains(r.out, "No SCREEN, PROCEDURE or MENU defined")) << r.out;
  EXPECT_FALSE(tavtest::file_exists(dir / "prog.op6"));
  EXPECT_FALSE(tavtest::file_exists(dir / "prog.tmp"));
}

TEST(Op6File, ReplacementIsAtomic) {
  TempDir dir;
  auto no_work_file = [&] { EXPECT_FALSE(tavtest::file_exists(dir / "prog.tmp")); };

  // A read-only table is replaced.
  ASSERT_EQ(tavtest::compile(dir, kSmall).result.status, 0);
  std::string first = tavtest::read_file(dir / "prog.op6");
  ASSERT_EQ(chmod((dir / "prog.op6").c_str(), 0444), 0);
  ASSERT_EQ(tavtest::compile(dir, "procedure main\n  pause\n  pause\nend-procedure\n").result.status, 0);
  std::string second = tavtest::read_file(dir / "prog.op6");
  EXPECT_NE(first.size(), 0u);
  EXPECT_NE(second.substr(hdr::size), first.substr(hdr::size));
  no_work_file();

  // A stale work file is removed first.
  tavtest::write_file(dir / "prog.tmp", "left over");
  ASSERT_EQ(tavtest::compile(dir, kSmall).result.status, 0);
  no_work_file();
  std::string third = tavtest::read_file(dir / "prog.op6");

  // A failed compile leaves the previous table as it was.
  RunResult bad = tavtest::compile(dir, "procedure main\n  pause\n  end-if\nend-procedure\n").result;
  EXPECT_NE(bad.status, 0) << bad.out;
  EXPECT_TRUE(tavtest::read_file(dir / "prog.op6") == third);
  no_work_file();
}

}  // namespace
