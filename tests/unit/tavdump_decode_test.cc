// The decoder of tavdump on images built in memory: what a small valid table prints, and that
// every kind of damage is reported instead of followed.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "codegen/bytes.h"
#include "codegen/header.h"
#include "statements/records.h"
#include "symbols/records.h"
#include "image.h"
#include "tavdump.h"

namespace {

using namespace tav;

// A small table: one mode with a prompt op, one section whose DETAIL holds a PAUSE and an EXIT,
// one library entry. The sizes are fixed when the image is taken.
struct Table {
  std::vector<uint8_t> ops = std::vector<uint8_t>(hdr::size, 0);
  uint32_t mode = 0, prompt = 0, section = 0, pause = 0, exit = 0, library = 0, text = 0;

  uint32_t alloc(uint32_t n) {
    auto off = static_cast<uint32_t>(ops.size());
    ops.resize(ops.size() + n, 0);
    return off;
  }
  uint32_t text_at(const std::string& s) {
    uint32_t off = alloc(static_cast<uint32_t>(s.size() + 1));
    std::copy(s.begin(), s.end(), ops.begin() + off);
    return off;
  }
  uint8_t* at(uint32_t off) { return ops.data() + off; }

  Table() {
    for (int i = 0; i < 4; ++i) ops[hdr::h_magic + i] = hdr::kMagic[i];
    put16(at(hdr::h_version), 3);
    put16(at(hdr::h_flags), hdr::kFlagsAlways);
    text = text_at("Go");
    mode = alloc(mode::size);
    put24(at(mode + mode::m_name), text_at("go"));
    put16(at(mode + mode::m_flags), mode::entry | mode::process);
    prompt = alloc(textitem::size);
    at(prompt)[kOpcodeByte] = op_byte(Op::text_item);
    put16(at(prompt + textitem::ti_item), 1);
    put16(at(prompt + textitem::ti_length), 2);
    put24(at(mode + mode::m_prompt), prompt);
    put24(at(hdr::h_mode_list), mode);

    section = alloc(ssym::size);
    put24(at(section + ssym::s_name), text_at("main"));
    put16(at(section + ssym::s_kind), ssym::kind_procedure);
    pause = alloc(4);
    at(pause)[kOpcodeByte] = op_byte(Op::pause);
    exit = alloc(exitop::size);
    at(exit)[kOpcodeByte] = op_byte(Op::exit);
    put24(at(pause), exit);
    put24(at(section + ssym::s_detail), pause);
    uint32_t modes = alloc(modelist::size);
    put24(at(modes + modelist::ml_mode), mode);
    put24(at(section + ssym::s_modes), modes);
    put24(at(hdr::h_screens), section);
    put24(at(hdr::h_entry_section), section);

    library = alloc(library::size);
    put24(at(library + library::l_name), text_at("lib"));
    put24(at(hdr::h_library_list), library);

    uint32_t items = alloc(2 * textent::size);  // entry 0 and entry 1
    at(items + textent::size + textent::te_kind)[0] = 'N';
    at(items + textent::size + textent::te_length)[0] = 2;
    put24(at(items + textent::size + textent::te_text), text);
    put24(at(hdr::h_text), items);
    put16(at(hdr::h_text_count), 2);
  }

  std::vector<uint8_t> image() {
    std::vector<uint8_t> out = ops;
    // Rounded up, plus 8 bytes of padding that the damage cases may spoil.
    out.resize(((out.size() + 7) & ~size_t{7}) + 8, 0);
    put32(out.data() + hdr::h_ops_size, static_cast<uint32_t>(out.size()));
    put32(out.data() + hdr::h_data_size, 8);
    out.resize(out.size() + 8, 0);
    return out;
  }
};

dump::DumpResult decode(const std::vector<uint8_t>& image, dump::DumpOptions options = {}) {
  return dump::dump_op6(image.data(), image.size(), options);
}

TEST(TavdumpDecode, PrintsTheRecordsOfAValidTable) {
  Table t;
  dump::DumpResult r = decode(t.image());
  ASSERT_TRUE(r.ok) << r.damage;
  for (const char* expected :
       {"table version     6.3", "flags             0x4006\n", "  1 'N' length 2 \"Go\"\n",
        "m_flags 0x4002 (entry process)", "text-item(87) item 1 \"Go\" length 2", "\"main\" procedure\n",
        "s_modes [\"go\"]", "pause(73)\n", "exit(61) value none", "l_index 0\n    l_name \"lib\"",
        "data image: 8 bytes"})
    EXPECT_NE(r.text.find(expected), std::string::npos) << expected << "\n" << r.text;
}

TEST(TavdumpDecode, HeaderOnlyAndRawOptions) {
  Table t;
  dump::DumpResult h = decode(t.image(), {.header_only = true, .raw = false});
  ASSERT_TRUE(h.ok);
  EXPECT_EQ(h.text.find("modes"), std::string::npos);
  EXPECT_NE(h.text.find("library count"), std::string::npos);

  dump::DumpResult raw = decode(t.image(), {.header_only = false, .raw = true});
  ASSERT_TRUE(raw.ok);
  EXPECT_NE(raw.text.find("| 00 00 00 3d 00 00 00\n"), std::string::npos) << raw.text;  // the EXIT op
}

TEST(TavdumpDecode, OperandValueListsAndSharedListsAreShownOnce) {
  Table t;
  // EXIT with a one-op literal list as its value, the same list also as the mode's help.
  uint32_t lit = t.alloc(literal::size);
  t.at(lit)[kOpcodeByte] = op_byte(Op::literal);
  uint32_t value = t.alloc(2);
  put24(t.at(lit + literal::lit_value), value);
  put16(t.at(lit + literal::lit_format), literal::format_one_digit);
  put24(t.at(t.exit + exitop::ex_value), kOperandList | lit);
  put24(t.at(t.mode + mode::m_help), lit);
  dump::DumpResult r = decode(t.image());
  ASSERT_TRUE(r.ok) << r.damage;
  EXPECT_NE(r.text.find("literal(11) format 0x2020 value 00 00"), std::string::npos) << r.text;
  EXPECT_NE(r.text.find("(op list " + dump::hex24(lit) + " shown above)"), std::string::npos) << r.text;
}

struct DamageCase {
  const char* name;
  std::function<void(Table&, std::vector<uint8_t>&)> spoil;
  const char* damage;  // a part of the report
};

TEST(TavdumpDecode, DamageIsReportedNotFollowed) {
  const DamageCase cases[] = {
      {"truncated header", [](Table&, std::vector<uint8_t>& f) { f.resize(60); }, "shorter than the 95-byte header"},
      {"magic", [](Table&, std::vector<uint8_t>& f) { f[hdr::h_magic + 2] = 0; }, "magic bytes"},
      {"ops size not a multiple of 8",
       [](Table&, std::vector<uint8_t>& f) { put32(f.data() + hdr::h_ops_size, get32(f.data() + hdr::h_ops_size) - 4); },
       "not a multiple of 8"},
      {"sizes do not add up", [](Table&, std::vector<uint8_t>& f) { f.resize(f.size() + 8); }, "do not add up"},
      {"data size odd", [](Table&, std::vector<uint8_t>& f) { put32(f.data() + hdr::h_data_size, 3); },
       "data size 3"},
      {"mode list past the image", [](Table&, std::vector<uint8_t>& f) { put24(f.data() + hdr::h_mode_list, 0xfffff0); },
       "runs past the operations image"},
      {"section inside the header", [](Table&, std::vector<uint8_t>& f) { put24(f.data() + hdr::h_screens, 20); },
       "lies inside the header"},
      {"mode list loop",
       [](Table& t, std::vector<uint8_t>& f) { put24(f.data() + t.mode + mode::m_next, t.mode); }, "mode list loops"},
      {"op list loop", [](Table& t, std::vector<uint8_t>& f) { put24(f.data() + t.exit, t.pause); },
       "loops back"},
      {"op at the end of the image",
       [](Table& t, std::vector<uint8_t>& f) {
         // The EXIT op moved so that its 7 bytes would run past the operations image.
         put24(f.data() + t.pause, get32(f.data() + hdr::h_ops_size) - 4);
         f[get32(f.data() + hdr::h_ops_size) - 1] = op_byte(Op::exit);
       },
       "exit op"},
      {"unterminated name",
       [](Table& t, std::vector<uint8_t>& f) {
         uint32_t end = get32(f.data() + hdr::h_ops_size);
         for (uint32_t i = end - 8; i < end; ++i) f[i] = 'x';
         put24(f.data() + t.library + library::l_name, end - 8);
       },
       "not terminated"},
      {"text table past the image", [](Table&, std::vector<uint8_t>& f) { put16(f.data() + hdr::h_text_count, 60000); },
       "text item table"},
      {"exit value list deep in itself",
       [](Table& t, std::vector<uint8_t>& f) { put24(f.data() + t.exit + exitop::ex_value, kOperandList | t.exit); },
       "shown above"},  // not damage: a list met again is referred to, so this case must decode
  };
  for (const DamageCase& c : cases) {
    Table t;
    std::vector<uint8_t> f = t.image();
    c.spoil(t, f);
    dump::DumpResult r = decode(f);
    if (std::string(c.damage) == "shown above") {
      EXPECT_TRUE(r.ok) << c.name << ": " << r.damage;
      continue;
    }
    EXPECT_FALSE(r.ok) << c.name;
    EXPECT_NE(r.damage.find(c.damage), std::string::npos) << c.name << ": " << r.damage;
  }
}

}  // namespace
