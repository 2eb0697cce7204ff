#include "symbols/symtab.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "symbols/dump.h"
#include "tests/unit/compiler_fixture.h"

namespace tav {
namespace {

// Records start right after the header, as in every program.
class SymtabTest : public ::testing::Test, public tavtest::CompilerFixture {
 protected:
  std::string name(uint32_t rec, uint32_t member) { return ops.text_at(ops.get24(rec + member)); }
  int16_t s16(uint32_t off) { return static_cast<int16_t>(ops.get16(off)); }

  // The cache must stay in strict name order, or the binary search loses fields.
  void expect_cache_sorted() {
    auto c = syms.cache();
    for (size_t i = 1; i < c.size(); ++i)
      EXPECT_LT(name(c[i - 1].field, fsym::f_name), name(c[i].field, fsym::f_name));
  }
  int hits_of(uint32_t field) {
    for (const auto& e : syms.cache())
      if (e.field == field) return e.hits;
    return -1;  // not in the cache
  }

  std::string section_order() {
    std::string out;
    for (uint32_t s = ops.get24(hdr::h_screens); s; s = ops.get24(s + ssym::s_next))
      out += (out.empty() ? "" : " ") + name(s, ssym::s_name);
    return out;
  }
};

TEST_F(SymtabTest, FieldCacheFindsEvictsAndReenters) {
  std::vector<uint32_t> f(12);
  auto nm = [](int i) { return "f" + std::to_string(100 + i); };  // name order = number order
  for (int i = 1; i <= 9; ++i) {
    ASSERT_EQ(syms.find_field(nm(i)), 0u);
    f[i] = syms.add_global_field(nm(i));
  }
  // Nine fields are found through the cache alone: hide the global list while looking them up.
  const uint32_t head = ops.get24(hdr::h_fields);
  ops.put24(hdr::h_fields, 0);
  for (int i = 9; i >= 1; --i) EXPECT_EQ(syms.find_field(nm(i)), f[i]);
  ops.put24(hdr::h_fields, head);
  EXPECT_EQ(syms.cache().size(), 9u);
  EXPECT_EQ(syms.find_field("f999"), 0u);

  // f110 fills the cache; f111 must evict the entry with the fewest hits, which is f110.
  f[10] = syms.add_global_field(nm(10));
  syms.find_field(nm(1));  // 3 hits now
  ASSERT_EQ(syms.find_field(nm(11)), 0u);
  f[11] = syms.add_global_field(nm(11));
  EXPECT_EQ(syms.cache().size(), 10u);
  EXPECT_EQ(hits_of(f[10]), -1);
  EXPECT_EQ(hits_of(f[11]), 1);
  EXPECT_EQ(hits_of(f[1]), 3);
  expect_cache_sorted();

  // The evicted field is found through the global list and comes back, at the cost of f111.
  EXPECT_EQ(syms.find_field(nm(10)), f[10]);
  EXPECT_EQ(hits_of(f[10]), 1);
  EXPECT_EQ(hits_of(f[11]), -1);
  expect_cache_sorted();
  EXPECT_EQ(syms.find_field(nm(11)), f[11]);
  EXPECT_EQ(syms.find_field("f000"), 0u);
}

TEST_F(SymtabTest, EvictionAmongEqualHitsTakesTheFirstInNameOrder) {
  // Entering names that sort before, between and after the cached ones keeps the order, also
  // when the field is entered without a lookup of its own name just before.
  const char* names[] = {"m", "c", "x", "a", "q", "e", "z", "b", "k", "h", "y", "d", "p"};
  std::vector<uint32_t> fields;
  for (const char* n : names) {
    fields.push_back(syms.add_global_field(n));
    expect_cache_sorted();
  }
  EXPECT_EQ(syms.cache().size(), 10u);
  // All hits are 1: each entry beyond ten removes the first name in order (a, b, then c).
  EXPECT_EQ(name(syms.cache()[0].field, fsym::f_name), "d");
  for (uint32_t fld : fields) EXPECT_EQ(syms.find_field(name(fld, fsym::f_name)), fld);
  expect_cache_sorted();
}

TEST_F(SymtabTest, LocalFieldHidesGlobalOne) {
  const uint32_t global = syms.add_global_field("amount");
  const uint32_t sec = syms.find_or_declare_section("calc", true);
  const uint32_t local = syms.new_field("amount", true);
  syms.link_local_field(sec, local);
  syms.link_local_field(sec, syms.new_field("other", true));
  EXPECT_EQ(s16(local + fsym::f_dictno), fsym::dictno_local);
  EXPECT_EQ(syms.cache().size(), 1u);  // local fields never enter the cache

  syms.set_current_section(sec);
  EXPECT_EQ(syms.find_field("amount"), local);
  syms.set_current_section(0);
  EXPECT_EQ(syms.find_field("amount"), global);
  EXPECT_EQ(syms.find_field("other"), 0u);
}

TEST_F(SymtabTest, NamesAreTheSameOverThirtyCharacters) {
  const std::string base(29, 'n');
  const std::string long1 = base + "z" + "1", long2 = base + "z" + "22";
  const uint32_t f = syms.add_global_field(long1);
  EXPECT_EQ(name(f, fsym::f_name), base + "z");  // cut to 30 characters
  EXPECT_EQ(syms.find_field(long2), f);
  EXPECT_EQ(syms.find_field(base), 0u);

  const uint32_t o = syms.add_object(long1);
  EXPECT_EQ(syms.find_object(long2), o);
  EXPECT_EQ(syms.find_object(base), 0u);
  EXPECT_EQ(syms.find_object(base + "y"), 0u);

  const uint32_t s = syms.find_or_declare_section(long1, true);
  EXPECT_EQ(syms.find_or_declare_section(long2, false), s);
  EXPECT_EQ(syms.find_section(base), 0u);
}

TEST_F(SymtabTest, SectionListOrder) {
  struct Case {
    bool debug;
    std::vector<std::pair<const char*, bool>> steps;  // name, defining
    const char* order;
  };
  const Case cases[] = {
      {false, {{"a", true}, {"b", true}, {"c", true}}, "a b c"},
      {false, {{"a", true}, {"b", true}, {"z", false}, {"d", true}}, "a b d z"},
      // Referenced first, defined later: moved behind the last defined section.
      {false, {{"a", true}, {"c", false}, {"d", false}, {"d", true}, {"b", true}}, "a d b c"},
      // Without a defined section ahead of it nothing is moved.
      {false, {{"x", false}, {"a", true}, {"b", true}, {"x", true}}, "x a b"},
      // References never move anything.
      {false, {{"a", true}, {"b", true}, {"a", false}}, "a b"},
      // Name order under -d, also for a referenced section defined later.
      {true, {{"m", false}, {"c", true}, {"x", true}, {"a", false}, {"m", true}}, "a c m x"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.order);
    start_program();
    syms.set_debug_ops(c.debug);
    for (auto [n, defining] : c.steps) {
      const uint32_t s = syms.find_or_declare_section(n, defining);
      if (defining) ops.put16(s + ssym::s_kind, ssym::kind_procedure);  // as the caller does
    }
    EXPECT_EQ(section_order(), c.order);
  }
}

TEST_F(SymtabTest, ManySectionsKeepTheListOrder) {
  // Random references and definitions against a model of the rules: a definition goes behind
  // the last defined section before it (a new one: in the whole list), a reference at the end.
  std::vector<std::string> model;
  std::set<std::string> defined;
  uint32_t seed = 12345;
  for (int step = 0; step < 3000; ++step) {
    seed = seed * 1103515245u + 12345u;
    const std::string n = "s" + std::to_string((seed >> 16) % 400);
    const bool defining = ((seed >> 8) & 3) == 0;
    auto it = std::find(model.begin(), model.end(), n);
    auto last_defined_before = [&](auto end) {
      auto ld = model.end();
      for (auto i = model.begin(); i != end; ++i)
        if (defined.count(*i)) ld = i;
      return ld;
    };
    if (it == model.end()) {
      auto ld = defining ? last_defined_before(model.end()) : model.end();
      model.insert(ld == model.end() ? model.end() : ld + 1, n);
    } else if (defining) {
      auto ld = last_defined_before(it);
      if (ld != model.end() && ld + 1 != it) {
        model.erase(it);
        model.insert(std::find(model.begin(), model.end(), *ld) + 1, n);
      }
    }
    if (defining) defined.insert(n);
    const uint32_t s = syms.find_or_declare_section(n, defining);
    if (defining) ops.put16(s + ssym::s_kind, ssym::kind_procedure);
    ASSERT_EQ(syms.find_section(n), s);
  }
  std::string expected;
  for (const auto& n : model) expected += (expected.empty() ? "" : " ") + n;
  EXPECT_EQ(section_order(), expected);
  EXPECT_EQ(syms.find_section("s400"), 0u);
}

TEST_F(SymtabTest, ManyFieldsAreFoundBeyondTheCache) {
  std::vector<uint32_t> f;
  for (int i = 0; i < 3000; ++i) f.push_back(syms.add_global_field("fld" + std::to_string(i)));
  for (int i = 2999; i >= 0; i -= 7) EXPECT_EQ(syms.find_field("fld" + std::to_string(i)), f[size_t(i)]);
  EXPECT_EQ(syms.find_field("fld3000"), 0u);
  expect_cache_sorted();
}

TEST_F(SymtabTest, SequenceNumbersAndInitialValues) {
  const uint32_t ref = syms.find_or_declare_section("later", false);
  const uint32_t def = syms.find_or_declare_section("main", true);
  EXPECT_EQ(syms.find_or_declare_section("main", false), def);
  EXPECT_EQ(ops.get16(ref + ssym::s_seq), 0u);
  EXPECT_EQ(ops.get16(def + ssym::s_seq), 1u);
  EXPECT_EQ(ops.get16(ref + ssym::s_flags), ssym::flag_referenced);
  EXPECT_EQ(ops.get16(def + ssym::s_flags), ssym::flag_referenced);
  EXPECT_EQ(ops.get16(hdr::h_screen_count), 2u);

  // Every field_sym takes a number, linked or not.
  const uint32_t a = syms.add_global_field("a");
  const uint32_t loose = syms.new_field("b");
  const uint32_t c = syms.add_global_field("c");
  EXPECT_EQ(ops.get16(a + fsym::f_seq), 0u);
  EXPECT_EQ(ops.get16(loose + fsym::f_seq), 1u);
  EXPECT_EQ(ops.get16(c + fsym::f_seq), 2u);
  EXPECT_EQ(ops.get16(hdr::h_field_count), 3u);
  EXPECT_EQ(ops.get16(a + fsym::f_fldid), fsym::fldid_none);
  EXPECT_EQ(s16(a + fsym::f_dictno), -1);
  EXPECT_EQ(s16(a + fsym::f_ldictno), -1);
  EXPECT_EQ(ops.get24(hdr::h_fields), a);
  EXPECT_EQ(ops.get24(a + fsym::f_next), c);  // the loose field is in no list

  const uint32_t o1 = syms.add_object("orders");
  const uint32_t o2 = syms.add_object("lines", 2);
  EXPECT_EQ(ops.get16(o1 + osym::o_seq), 0u);
  EXPECT_EQ(ops.get16(o2 + osym::o_seq), 1u);
  EXPECT_EQ(s16(o1 + osym::o_dictno), -1);
  EXPECT_EQ(s16(o2 + osym::o_dictno), 2);
  EXPECT_EQ(ops.get24(hdr::h_objects), o1);
  EXPECT_EQ(ops.get24(o1 + osym::o_next), o2);
  EXPECT_EQ(syms.find_object("lines"), o2);
}

TEST_F(SymtabTest, DumpPrintsTheRecordsAndFollowsTheChain) {
  const uint32_t s = syms.find_or_declare_section("main", true);  // 95, name at 216
  const uint32_t f1 = syms.add_global_field("total");            // 221, name at 260
  const uint32_t f2 = syms.add_global_field("count");            // 266, name at 305
  const uint32_t o = syms.add_object("orders");                  // 311, name at 352
  ops.put16(s + ssym::s_base, 3);
  ops.put16(f1 + fsym::f_occurs, 1);
  ops.put24(f1 + fsym::f_addr, 0x40);
  ops.put24(o + osym::o_file, ops.store_text("/data/orders"));
  ops.at(o + osym::o_filtype)[0] = 'I';
  ops.put16(o + osym::o_recsize, 0x80);
  ASSERT_EQ(f2, 266u);

  char* buf = nullptr;
  size_t len = 0;
  FILE* out = open_memstream(&buf, &len);
  ASSERT_NE(out, nullptr);
  SymbolDump dump(ops, out);
  EXPECT_TRUE(dump.header());
  EXPECT_TRUE(dump.screen(s));
  EXPECT_TRUE(dump.field(f1));
  EXPECT_TRUE(dump.field());  // the next one: f2
  EXPECT_FALSE(dump.field());
  EXPECT_TRUE(dump.object(o));
  std::fclose(out);
  const std::string text(buf, len);
  std::free(buf);

  // One line of each kind of member, in row order: a link, a count, a name, a character, a
  // signed number; the second field is reached through the first one's link.
  size_t at = 0;
  for (const char* expected :
       {"h_screens = 0x5f (95)\n\r", "field_count = 2\n\r", "s_prompt_pos = 0x0, 0x0\n\r", "s_name = 'main'\n\r",
        "f_next = 0x10a (266)\n\rf_name = 'total'\n\rf_addr = 0x40\n\r", "f_dictno = -1\n\r",
        "f_name = 'count'\n\r", "o_file = '/data/orders'\n\r", "o_filtype = 'I' (0x49)\n\r"}) {
    const size_t found = text.find(expected, at);
    ASSERT_NE(found, std::string::npos) << expected << " after " << at << "\n" << text;
    at = found + 1;
  }
  EXPECT_TRUE(text.ends_with("o_index = -1\n\ro_flags = 0x0\n\r")) << text;
}

TEST_F(SymtabTest, DumpHelpers) {
  const uint32_t t = ops.store_text("ab c");  // 95
  const uint32_t link = ops.alloc(4);          // 100, aligned
  ops.put24(link, t);
  char* buf = nullptr;
  size_t len = 0;
  FILE* out = open_memstream(&buf, &len);
  ASSERT_NE(out, nullptr);
  SymbolDump dump(ops, out);
  dump.value24(link);
  dump.bytes4(t + 1);  // "b c" and the NUL
  dump.word(link);
  dump.word(link + 1);
  std::fclose(out);
  EXPECT_EQ(std::string(buf, len),
            "0x5f (95)\r\n0x5f 'ab c'\r\nb 0x20 c 0x0 0x5f00Address not on a long boundary\r\n");
  std::free(buf);
}

}  // namespace
}  // namespace tav
