// The key optimiser over condition op lists built by hand: select field entries, the postfix ops a
// WHERE condition compiles into, and the range and bound records the passes store, read back
// member by member, with the trace of -x 1.

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>

#include "codegen/convert.h"
#include "statements/key_optimiser.h"
#include "statements/records.h"
#include "symbols/records.h"
#include "tests/unit/compiler_fixture.h"

namespace tav {
namespace {

struct KeyOpt : testing::Test, tavtest::CompilerFixture {
  std::FILE* out = std::tmpfile();
  uint32_t head = 0, tail = 0;

  static CompileSettings settings() {
    CompileSettings s;
    s.debug_level = 1;
    return s;
  }
  KeyOpt() : CompilerFixture(settings()) { display.set_plain_output(out); }
  ~KeyOpt() override { std::fclose(out); }

  uint32_t entry(std::string_view name, uint16_t format = 0x2080, uint16_t flags = selfield::referenced,
                 uint16_t occurs = 1) {
    const uint32_t f = syms.add_global_field(name);
    ops.put16(f + fsym::f_format, format);
    ops.put16(f + fsym::f_occurs, occurs);
    const uint32_t e = ops.alloc(selfield::size);
    ops.put24(e + selfield::sf_field, f);
    ops.put24(e + selfield::sf_ring, e);
    ops.put16(e + selfield::sf_flags, flags);
    return e;
  }

  // Condition ops, appended in postfix order.
  KeyOpt& add(Op op, const std::function<void(uint32_t)>& fill = {}) {
    const uint32_t o = ops.alloc(op_size(op, false));
    ops.set_opcode(o, op);
    if (fill) fill(o);
    append_to_list(ops, head, tail, o, 0);
    return *this;
  }
  KeyOpt& ref(uint32_t e, uint32_t subscript = 0) {
    return add(Op::select_field_ref, [&](uint32_t o) {
      ops.put24(o + selref::sref_entry, e);
      ops.put24(o + selref::sref_subscript, subscript);
    });
  }
  KeyOpt& num(double v, uint16_t attr = 0x0040) {  // two integer digits by default
    return add(Op::literal, [&](uint32_t o) {
      const uint16_t f = conv::literal_format(attr);
      const uint32_t bytes = ops.alloc(conv::format_size(f));
      conv::from_double(v, f, ops.at(bytes));
      ops.put24(o + literal::lit_value, bytes);
      ops.put16(o + literal::lit_format, f);
    });
  }
  KeyOpt& text(std::string_view t) {
    return add(Op::literal, [&](uint32_t o) {
      ops.put24(o + literal::lit_text, ops.store_text(t));
      ops.put16(o + literal::lit_length, static_cast<uint32_t>(t.size()));
    });
  }
  KeyOpt& cmp(uint16_t code) { return add(Op::comparison, [&](uint32_t o) { ops.put16(o + cmpop::cmp_code, code); }); }
  KeyOpt& op(Op o) { return add(o); }

  // The stored ranges of an entry, "[>=5 <=5] [>7]"; a field value by its name.
  std::string stored(uint32_t e) {
    std::string s;
    for (uint32_t r = ops.get24(e + selfield::sf_ranges); r != 0; r = ops.get24(r + rangerec::rg_next)) {
      s += s.empty() ? "[" : " [";
      for (uint32_t b = ops.get24(r + rangerec::rg_bounds); b != 0; b = ops.get24(b + boundrec::bd_next)) {
        const uint32_t code = ops.get16(b + boundrec::bd_code), v = ops.get24(b + boundrec::bd_value);
        if (s.back() != '[') s += ' ';
        s += (code & 4) ? "LIKE " : (code & 0x4000) ? "<" : ">";
        if ((code & 0x1000) && !(code & 4)) s += '=';
        if (ops.opcode(v) == Op::select_field_ref) {
          s += ops.text_at(ops.get24(ops.get24(ops.get24(v + selref::sref_entry) + selfield::sf_field) + fsym::f_name));
        } else if (uint16_t f = static_cast<uint16_t>(ops.get16(v + literal::lit_format)); conv::fmt_numeric(f)) {
          char buf[32];
          std::snprintf(buf, sizeof buf, "%g", conv::to_double(ops.at(ops.get24(v + literal::lit_value)), f));
          s += buf;
        } else {
          s += std::string(ops.text_at(ops.get24(v + literal::lit_text)), f);
        }
      }
      s += ']';
    }
    return s;
  }
  uint16_t flags(uint32_t e) {
    return static_cast<uint16_t>(ops.get16(e + selfield::sf_flags) & (selfield::equality | selfield::field_bound));
  }
  void passes(std::initializer_list<uint32_t> entries) {
    for (uint32_t e : entries) join_pass(p, e, head);
    for (uint32_t e : entries) range_pass(p, e, head);
  }
  std::string trace() {
    std::fflush(out);
    std::rewind(out);
    std::string t;
    for (int c; (c = std::fgetc(out)) != EOF;) t += static_cast<char>(c);
    return t;
  }
};

constexpr uint16_t EQ = 0x1000, GT = 0x2000, GE = 0x3000, LT = 0x4000, LE = 0x5000, NE = 0x6000, LIKE = 0x1004;

TEST_F(KeyOpt, ComparisonsOfTheFieldBecomeStoredRanges) {
  const uint32_t a = entry("a"), b = entry("b"), x = entry("x", 0x2080, selfield::referenced | selfield::host);
  const uint32_t d = entry("d", 0x2442), s = entry("s", 10);  // two decimals; ten characters
  struct Case {
    const char* what;
    std::function<void(KeyOpt&)> where;
    uint32_t field;
    const char* ranges;
    uint16_t flags;
  };
  const Case cases[] = {
      {"a = 5", [&](KeyOpt& k) { k.ref(a).num(5).cmp(EQ); }, a, "[>=5 <=5]", selfield::equality},
      {"a > 3 AND a < 10", [&](KeyOpt& k) { k.ref(a).num(3).cmp(GT).ref(a).num(10).cmp(LT).op(Op::and_); }, a, "[>3 <10]", 0},
      {"a > 10 AND a < 5", [&](KeyOpt& k) { k.ref(a).num(10).cmp(GT).ref(a).num(5).cmp(LT).op(Op::and_); }, a, "", 0},
      {"a = 3 OR a = 1", [&](KeyOpt& k) { k.ref(a).num(3).cmp(EQ).ref(a).num(1).cmp(EQ).op(Op::or_); }, a,
       "[>=1 <=1] [>=3 <=3]", 0},
      {"a = 1 OR b = 2", [&](KeyOpt& k) { k.ref(a).num(1).cmp(EQ).ref(b).num(2).cmp(EQ).op(Op::or_); }, a, "", 0},
      {"5 < a", [&](KeyOpt& k) { k.num(5).ref(a).cmp(LT); }, a, "[>5]", 0},
      {":x = a", [&](KeyOpt& k) { k.ref(x).ref(a).cmp(EQ); }, a, "[>=x <=x]", selfield::equality | selfield::field_bound},
      {"a BETWEEN 1 AND 5", [&](KeyOpt& k) { k.ref(a).num(1).cmp(GE | 1).num(5).cmp(LE).op(Op::and_); }, a, "[>=1 <=5]", 0},
      {"a - 10 BETWEEN 1 AND 5",
       [&](KeyOpt& k) { k.ref(a).num(10).op(Op::subtract).num(1).cmp(GE | 1).num(5).cmp(LE).op(Op::and_); }, a, "", 0},
      {"a != 5", [&](KeyOpt& k) { k.ref(a).num(5).cmp(NE); }, a, "", 0},
      {"d >= 1.234", [&](KeyOpt& k) { k.ref(d).num(1.234, 0x0023).cmp(GE); }, d, "[>1.234]", 0},
      {"d < 1.234", [&](KeyOpt& k) { k.ref(d).num(1.234, 0x0023).cmp(LT); }, d, "[<=1.234]", 0},
      {"d > 1.5", [&](KeyOpt& k) { k.ref(d).num(1.5, 0x0021).cmp(GT); }, d, "[>1.5]", 0},
      {"s LIKE 'AB%'", [&](KeyOpt& k) { k.ref(s).text("AB%").cmp(LIKE); }, s, "[LIKE AB%]", 0},
      {"'AB%' LIKE s", [&](KeyOpt& k) { k.text("AB%").ref(s).cmp(LIKE); }, s, "", 0},
  };
  for (const Case& c : cases) {
    head = tail = 0;
    for (uint32_t e : {a, b, d, s}) {
      ops.put24(e + selfield::sf_ring, e);
      ops.put24(e + selfield::sf_ranges, 0);
      ops.put16(e + selfield::sf_flags, selfield::referenced);
    }
    c.where(*this);
    passes({a, b, d, s});
    EXPECT_EQ(stored(c.field), c.ranges) << c.what;
    EXPECT_EQ(flags(c.field), c.flags) << c.what;
  }
  EXPECT_EQ(listing(), "");
}

TEST_F(KeyOpt, EqualFieldsShareARingAndItsRanges) {
  const uint32_t k1 = entry("cust"), k2 = entry("ref"), arr = entry("tab", 0x2080, selfield::referenced, 3);
  ref(k1).ref(k2).cmp(EQ).ref(k2).num(7).cmp(EQ).op(Op::and_).ref(arr, 1).num(7).cmp(EQ).op(Op::and_);
  passes({k1, k2, arr});
  EXPECT_EQ(ops.get24(k1 + selfield::sf_ring), k2);
  EXPECT_EQ(ops.get24(k2 + selfield::sf_ring), k1);
  EXPECT_EQ(ops.get24(arr + selfield::sf_ring), arr) << "a subscripted element joins nothing";
  EXPECT_EQ(stored(k1), "[>=7 <=7]");
  EXPECT_EQ(ops.get24(k2 + selfield::sf_ranges), ops.get24(k1 + selfield::sf_ranges));
  EXPECT_EQ(flags(k2), selfield::equality);
  EXPECT_EQ(stored(arr), "");
  EXPECT_EQ(trace(), "\nref JOINED TO cust\nRange list : cust\n RANGE 1\n  >= 7\n  <= 7");
}

TEST_F(KeyOpt, PoolLimits) {
  const uint32_t a = entry("a"), b = entry("b");
  for (int i = 0; i < 101; ++i) {
    ref(a).num(2 * i, 0x0060).cmp(EQ);
    if (i) op(Op::or_);
  }
  range_pass(p, a, head);
  EXPECT_EQ(stored(a), "");
  EXPECT_NE(listing().find("WARNING  Range expressions too complicated to optimise - 'a'"), std::string::npos);
  head = tail = 0;
  for (int i = 0; i < 41; ++i) {
    ref(a).ref(b).cmp(EQ);
    if (i) op(Op::and_);
  }
  EXPECT_THROW(join_pass(p, a, head), FileAbort);
  EXPECT_NE(listing().find("FATAL  Too many field joins in condition"), std::string::npos);
}

TEST_F(KeyOpt, UnknownOpsAreInternalErrorsOnlyInCleanPrograms) {
  const uint32_t a = entry("a");
  ref(a).num(1).cmp(EQ).op(Op::pause).op(Op::and_);
  EXPECT_THROW(join_pass(p, a, head), FileAbort);
  EXPECT_NE(trace().find("op = 73"), std::string::npos);
  EXPECT_NE(listing().find("Internal compiler error - 'key opt.'"), std::string::npos);
  diag.start_file();
  EXPECT_THROW(range_pass(p, a, head), FileAbort);
  EXPECT_NE(listing().find("Internal compiler error - 'key opt1.'"), std::string::npos);
  diag.start_file();
  diag.error(msg::syntax_error);
  range_pass(p, a, head);
  EXPECT_EQ(stored(a), "") << "a program with errors gives up quietly";
}

}  // namespace
}  // namespace tav
