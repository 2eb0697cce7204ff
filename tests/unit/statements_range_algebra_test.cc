// The range algebra on small integers: a value handle is the value itself. Lists are written as
// "<3 | >=5 & <8" (OR of ANDs of bounds; "=5", "LIKE5") and shown as
// "[<3] [>=5 <8]"; ">=:5" bounds by a field's value; "none" is the empty list.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <string>

#include "statements/range_algebra.h"

namespace tav::ranges {
namespace {

int by_value(uint32_t a, uint32_t b) { return a < b ? -1 : a > b ? 1 : 0; }

Bound parse_bound(std::string s) {
  static const std::pair<const char*, uint32_t> kRelations[] = {
      {"LIKE", kEqual | kLike}, {">=", kLower | kEqual}, {"<=", kUpper | kEqual},
      {">", kLower},            {"<", kUpper},           {"=", kEqual}};
  for (auto [text, code] : kRelations) {
    if (s.rfind(text, 0) != 0) continue;
    s.erase(0, std::string(text).size());
    const bool field = s[0] == ':';
    return Bound{static_cast<uint32_t>(std::stoi(field ? s.substr(1) : s)), code, field};
  }
  ADD_FAILURE() << "bad bound " << s;
  return {};
}

Algebra::List parse(Algebra& a, const std::string& text) {
  Algebra::List list = Algebra::kNone;
  std::istringstream terms(text);
  bool first_term = true;
  for (std::string term; std::getline(terms, term, '|'); first_term = false) {
    Algebra::List conj = Algebra::kNone;
    std::istringstream words(term);
    for (std::string w; words >> w;)
      if (w != "&") conj = a.conjunction(conj, a.make(parse_bound(w)));
    list = first_term ? conj : a.disjunction(list, conj);
  }
  return list;
}

std::string show(const Algebra& a, Algebra::List list) {
  if (list == Algebra::kNone) return "none";
  std::string out;
  for (const auto& range : a.ranges(list)) {
    out += out.empty() ? "[" : " [";
    for (size_t i = 0; i < range.size(); ++i) {
      const Bound& b = range[i];
      if (i) out += ' ';
      out += (b.code & kLike) ? "LIKE" : (b.code & kUpper) ? "<" : ">";
      if ((b.code & kEqual) && !(b.code & kLike)) out += '=';
      out += (b.field ? ":" : "") + std::to_string(b.value);
    }
    out += ']';
  }
  return out;
}

struct Case {
  const char* left;
  char op;
  const char* right;
  const char* expected;
};

void check(const Case& c) {
  Algebra a(by_value);
  const Algebra::List l = parse(a, c.left);
  const Algebra::List r = parse(a, c.right);
  const Algebra::List result = c.op == '&' ? a.conjunction(l, r) : a.disjunction(l, r);
  EXPECT_EQ(show(a, result), c.expected) << c.left << ' ' << c.op << ' ' << c.right;
  EXPECT_FALSE(a.overflowed() || a.order_fault());
}

TEST(RangeAlgebra, IntersectionKeepsTheTighterBoundsAndDropsEmptyRanges) {
  const Case cases[] = {
      {">3", '&', "<10", "[>3 <10]"}, {">3", '&', ">7", "[>7]"},
      {">=7", '&', ">7", "[>7]"},          // equal values: the strict bound wins
      {"<5", '&', "<=5", "[<5]"}, {"=5", '&', ">3", "[>=5 <=5]"},
      {">=:2", '&', ">3 & <9", "[>=:2 >3 <9]"},  // field bounds are copied as they come
      {"LIKE7", '&', "<9", "[LIKE7 <9]"}, {"<3 | >8", '&', ">1 & <10", "[>1 <3] [>8 <10]"},
      {"", '&', ">3", "[>3]"},             // an unbounded side leaves the other
      {">10", '&', "<5", "none"}, {">5", '&', "<5", "none"},
      {">=5", '&', "<5", "[>=5 <5]"},      // equal values with an inclusive bound keep the range
      {"<3 | >8", '&', ">4 & <6", "none"},
  };
  for (const Case& c : cases) check(c);
}

TEST(RangeAlgebra, UnionOrdersByValueAndMergesOverlaps) {
  const Case cases[] = {
      {"=3", '|', "=1", "[>=1 <=1] [>=3 <=3]"},
      {"<5", '|', ">3", "[]"},                         // open on both sides
      {">3 & <8", '|', ">1 & <5", "[>1 <8]"},
      {">1 & <5", '|', ">=1 & <=2", "[>=1 <5]"},       // equal ends: inclusive wins
      {"<5", '|', ">5", "[<5] [>5]"},                  // touching strict ends stay apart
      {"<5", '|', ">=5", "[]"},
      {">1 & <3 | >5 & <7", '|', ">2 & <6", "[>1 <7]"},  // a merged range meets the next
      {">3", '|', "<1", "[<1] [>3]"},                 // no lower bound comes first
      {">3", '|', ">=:2", "[>=:2] [>3]"},              // a field range is never merged
      {">3", '|', "", "none"},                        // one side unbounded: the field is too
  };
  for (const Case& c : cases) check(c);
}

TEST(RangeAlgebra, BoundCodesMirrorAndWidenForPreciseLiterals) {
  struct CodeCase {
    uint32_t comparison;
    bool exchanged, precise;
    uint32_t expected;
  };
  const CodeCase cases[] = {
      {0x3000, false, true, 0x2000},  // a >= 1.234 on two decimals: a > 1.234
      {0x4000, false, true, 0x5000},  // a < 1.234: a <= 1.234
      {0x1004, false, true, 0x1004},  // LIKE is never widened
      {0x4000, true, false, 0x2000},  // 5 < a: a > 5
      {0x2000, true, true, 0x5000},   // 1.5 > a: a < 1.5, widened to <=
      {0x3001, false, false, 0x3000}, // the low bits other than LIKE go
  };
  for (const CodeCase& c : cases)
    EXPECT_EQ(bound_code(c.comparison, c.exchanged, c.precise), c.expected) << std::hex << c.comparison;
  EXPECT_TRUE(more_precise(0x2023, 0x2042));   // 3 decimals against 2
  EXPECT_TRUE(more_precise(12, 10));           // longer text than the field
  EXPECT_FALSE(more_precise(12, 0x2042));      // text against a number
}

TEST(RangeAlgebra, PoolsHoldAHundredRangesOfTwoBounds) {
  for (int n : {100, 101}) {
    Algebra a(by_value);
    Algebra::List list = a.make(Bound{0, kEqual, false});
    for (int i = 1; i < n && !a.overflowed(); ++i)
      list = a.disjunction(list, a.make(Bound{static_cast<uint32_t>(2 * i), kEqual, false}));
    EXPECT_EQ(a.overflowed(), n > 100);
    if (n == 100) {
      EXPECT_EQ(a.ranges(list).size(), 100u);
    }
  }
}

// Random conditions on one field with literals 0..6, checked on every integer and half-integer
// from -1 to 7. The ranges never reject a value the condition accepts, and accept exactly its
// values unless some conjunction in it is unsatisfiable (an empty intersection counts as no
// bound at all).
struct Cond {
  char op;  // '&', '|', or 0 for a comparison
  uint32_t code, value;
  int l, r;
};

double sample(size_t k) { return -1 + 0.5 * static_cast<double>(k); }

bool holds(uint32_t code, uint32_t value, double x) {
  const double v = value;
  if (code == kEqual) return x == v;
  return (code & kLower) ? (x > v || ((code & kEqual) && x == v)) : (x < v || ((code & kEqual) && x == v));
}

TEST(RangeAlgebra, RangesAcceptWhatTheConditionAccepts) {
  std::mt19937 rng(14);
  const uint32_t kCodes[] = {kEqual, kLower, kLower | kEqual, kUpper, kUpper | kEqual};
  for (int trial = 0; trial < 3000; ++trial) {
    std::vector<Cond> t;  // children before their parents; the whole condition last
    auto grow = [&](auto& self, int depth) -> int {
      Cond c{0, kCodes[rng() % 5], static_cast<uint32_t>(rng() % 7), -1, -1};
      if (depth > 0 && rng() % 3 != 0) c = Cond{rng() % 2 ? '&' : '|', 0, 0, self(self, depth - 1), self(self, depth - 1)};
      t.push_back(c);
      return static_cast<int>(t.size()) - 1;
    };
    grow(grow, 4);
    Algebra a(by_value);
    std::vector<Algebra::List> lists;
    std::vector<std::vector<bool>> accepts;  // per node and sample
    bool degenerate = false;
    for (const Cond& c : t) {
      lists.push_back(c.op == 0     ? a.make(Bound{c.value, c.code, false})
                      : c.op == '&' ? a.conjunction(lists[c.l], lists[c.r])
                                    : a.disjunction(lists[c.l], lists[c.r]));
      std::vector<bool> v;
      for (size_t k = 0; k < 17; ++k)
        v.push_back(c.op == 0     ? holds(c.code, c.value, sample(k))
                    : c.op == '&' ? accepts[c.l][k] && accepts[c.r][k]
                                  : accepts[c.l][k] || accepts[c.r][k]);
      degenerate = degenerate || (c.op == '&' && std::count(v.begin(), v.end(), true) == 0);
      accepts.push_back(std::move(v));
    }
    ASSERT_FALSE(a.overflowed() || a.order_fault());
    const auto ranges = a.ranges(lists.back());
    for (size_t k = 0; k < 17; ++k) {
      const double x = sample(k);
      bool in = lists.back() == Algebra::kNone;
      for (const auto& range : ranges)
        in = in || std::all_of(range.begin(), range.end(), [&](const Bound& b) { return holds(b.code, b.value, x); });
      EXPECT_TRUE(in || !accepts.back()[k]) << "trial " << trial << " rejects " << x;
      if (!degenerate) {
        EXPECT_EQ(in, accepts.back()[k]) << "trial " << trial << " at " << x << ": " << show(a, lists.back());
      }
    }
  }
}

}  // namespace
}  // namespace tav::ranges
