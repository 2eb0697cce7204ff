// The algebra of key ranges: a range list is a disjunction of ranges, a range a conjunction of
// bounds, a bound a value and a relation to it. The key optimiser builds one range list per select
// field from the comparisons of a WHERE condition, combining them as the condition's AND and OR
// do. This file works on plain values only: a bound's value is a handle the caller chooses (the
// offset of an operand op), compared through the caller's function, so that the algebra is the
// same whether it runs over an op space or over a test's numbers.
//
// Nodes come from two fixed pools (200 bounds, 100 ranges) that are reset for every field; a
// node taken from an empty pool sets the overflow flag and abandons the work, and the caller then
// gives up the field's ranges. Released nodes go back to their pool.
#pragma once

#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

namespace tav::ranges {

// Bound codes: the relation bits of a comparison code, oriented so that the field is on the left,
// and the LIKE bit.
inline constexpr uint32_t kEqual = 0x1000;    // with kLower or kUpper: inclusive
inline constexpr uint32_t kLower = 0x2000;    // ">" ; ">=" with kEqual
inline constexpr uint32_t kUpper = 0x4000;    // "<" ; "<=" with kEqual
inline constexpr uint32_t kNotEqual = 0x6000;
inline constexpr uint32_t kRelation = 0x7000;
inline constexpr uint32_t kLike = 0x0004;
inline constexpr uint32_t kReuseLeft = 0x0001;  // comparison code: keeps the left operand (BETWEEN, IN)

inline constexpr int kBoundPool = 200;
inline constexpr int kRangePool = 100;

struct Bound {
  uint32_t value = 0;   // the caller's handle of the value
  uint32_t code = 0;    // kRelation and kLike bits
  bool field = false;   // the value is a field's (known before the row is read), not a literal
  bool operator==(const Bound&) const = default;
};

// The code of the bound a comparison makes: its relation and LIKE bits, mirrored when the field
// stood on the right ("5 < a" bounds a from below), then widened when the literal is more precise
// than the field can hold: a field with two decimals is never equal to 1.234, so ">= 1.234" can
// only hold as "> 1.234" and "< 1.234" as "<= 1.234".
uint32_t bound_code(uint32_t comparison_code, bool exchanged, bool literal_more_precise);

// Whether a literal of format word `literal` is more precise than a field of format word
// `field`: a numeric literal with more decimals than a numeric field, or an alphanumeric literal
// longer than an alphanumeric field. Values of different classes are never compared so.
bool more_precise(uint16_t literal, uint16_t field);

// The relation of two literal values: negative, 0 or positive as a is below, equal to or above b.
using Compare = std::function<int(uint32_t a, uint32_t b)>;

class Algebra {
 public:
  // A range list by its first range; kNone is the empty list, which leaves the field unbounded.
  using List = int;
  static constexpr List kNone = -1;

  explicit Algebra(Compare compare) : compare_(std::move(compare)) { reset(); }

  // Empties both pools and clears the flags, for the next field.
  void reset();
  // A node was wanted from an empty pool: the work is abandoned and every list is void.
  bool overflowed() const { return overflow_; }
  // A union met a range ordered before the range it follows: the lists were not in order.
  bool order_fault() const { return order_fault_; }

  // The list of one range made from one comparison's bound: "=" becomes ">=" and "<=" on the
  // same value, any other relation one bound.
  List make(Bound bound);
  // The conjunction of two lists: every non-empty intersection of a range of `a` with a range of
  // `b`, in the order of `a` and for each of its ranges the order of `b`. An empty list leaves
  // the other unchanged. Both inputs are consumed.
  List conjunction(List a, List b);
  // The disjunction: the ranges of both lists merged in value order, overlapping ranges joined
  // into one. An empty list on either side makes the result empty. Both inputs are consumed.
  List disjunction(List a, List b);
  // Gives a list's nodes back to the pools.
  void release(List list);

  // Reading a list: its ranges in order, each with its bounds in order.
  std::vector<std::vector<Bound>> ranges(List list) const;

 private:
  struct BoundNode {
    int next;
    Bound bound;
  };
  struct RangeNode {
    int next;
    int bounds;
  };
  // The literal bounds of a range that decide its place: its last lower and last upper bound,
  // and whether it holds a field or LIKE bound (which no merge may touch).
  struct Ends {
    int lower = -1;
    int upper = -1;
    bool opaque = false;
  };
  enum class Order { first, second, overlap };

  int take_bound(Bound b);
  int take_range(int bounds);
  void release_bounds(int bound);
  void release_range(int range);  // the range alone, with its bounds
  int append_bound(int& tail, Bound b, int& head);

  int intersect(int a, int b);  // a new range, or -1 when the intersection is empty
  bool survives_left_node(int l, int r) const;
  bool empty_between(int lower, int upper) const;
  Ends ends(int range) const;
  bool lies_above(int lower, int upper) const;
  Order order(int a, int b) const;
  void merge_into(int a, int b);
  int merge_lists(int a, int b);
  void join_overlaps(int head);

  static bool literal(const Bound& b) { return !b.field && (b.code & kLike) == 0; }
  int cmp(int bound_a, int bound_b) const {
    return compare_(bounds_[static_cast<size_t>(bound_a)].bound.value,
                    bounds_[static_cast<size_t>(bound_b)].bound.value);
  }
  BoundNode& bnode(int i) { return bounds_[static_cast<size_t>(i)]; }
  const BoundNode& bnode(int i) const { return bounds_[static_cast<size_t>(i)]; }
  RangeNode& rnode(int i) { return ranges_[static_cast<size_t>(i)]; }
  const RangeNode& rnode(int i) const { return ranges_[static_cast<size_t>(i)]; }

  Compare compare_;
  std::vector<BoundNode> bounds_;
  std::vector<RangeNode> ranges_;
  int free_bounds_ = -1;
  int free_ranges_ = -1;
  bool overflow_ = false;
  bool order_fault_ = false;
};

}  // namespace tav::ranges
