// The algebra of key ranges over two fixed node pools (see range_algebra.h).

#include "statements/range_algebra.h"

#include "codegen/convert.h"

namespace tav::ranges {

namespace {

// Thrown by the node allocators when a pool is empty; caught where a list operation began, which
// sets the overflow flag.
struct PoolEmpty {};

bool same_direction(uint32_t a, uint32_t b) {
  return ((a & kLower) != 0 && (b & kLower) != 0) || ((a & kUpper) != 0 && (b & kUpper) != 0);
}

bool strict(const Bound& b) { return (b.code & kEqual) == 0; }

}  // namespace

uint32_t bound_code(uint32_t comparison_code, bool exchanged, bool literal_more_precise) {
  uint32_t code = comparison_code & (kRelation | kLike);
  const uint32_t relation = code & kRelation;
  if (exchanged && relation >= kLower && relation <= (kUpper | kEqual)) code ^= kNotEqual;
  if (literal_more_precise && (code & kLike) == 0) {
    if ((code & kLower) != 0)
      code &= ~kEqual;
    else if ((code & kUpper) != 0)
      code |= kEqual;
  }
  return code;
}

bool more_precise(uint16_t literal, uint16_t field) {
  const bool literal_numeric = conv::fmt_numeric(literal);
  if (literal_numeric != conv::fmt_numeric(field)) return false;
  if (literal_numeric) return conv::fmt_decimals(field) < conv::fmt_decimals(literal);
  return field < literal;
}

// ---- Pools -------------------------------------------------------------------------------------

void Algebra::reset() {
  bounds_.assign(kBoundPool, BoundNode{-1, {}});
  ranges_.assign(kRangePool, RangeNode{-1, -1});
  for (int i = 0; i + 1 < kBoundPool; ++i) bnode(i).next = i + 1;
  for (int i = 0; i + 1 < kRangePool; ++i) rnode(i).next = i + 1;
  free_bounds_ = 0;
  free_ranges_ = 0;
  overflow_ = false;
  order_fault_ = false;
}

int Algebra::take_bound(Bound b) {
  if (free_bounds_ < 0) throw PoolEmpty{};
  const int i = free_bounds_;
  free_bounds_ = bnode(i).next;
  bnode(i) = BoundNode{-1, b};
  return i;
}

int Algebra::take_range(int bounds) {
  if (free_ranges_ < 0) throw PoolEmpty{};
  const int i = free_ranges_;
  free_ranges_ = rnode(i).next;
  rnode(i) = RangeNode{-1, bounds};
  return i;
}

void Algebra::release_bounds(int bound) {
  while (bound >= 0) {
    const int next = bnode(bound).next;
    bnode(bound).next = free_bounds_;
    free_bounds_ = bound;
    bound = next;
  }
}

void Algebra::release_range(int range) {
  release_bounds(rnode(range).bounds);
  rnode(range) = RangeNode{free_ranges_, -1};
  free_ranges_ = range;
}

void Algebra::release(List list) {
  while (list >= 0) {
    const int next = rnode(list).next;
    release_range(list);
    list = next;
  }
}

int Algebra::append_bound(int& tail, Bound b, int& head) {
  const int n = take_bound(b);
  if (tail >= 0)
    bnode(tail).next = n;
  else
    head = n;
  tail = n;
  return n;
}

// ---- Making and intersecting -------------------------------------------------------------------

Algebra::List Algebra::make(Bound bound) {
  try {
    int head = -1;
    int tail = -1;
    if ((bound.code & (kRelation | kLike)) == kEqual) {
      append_bound(tail, Bound{bound.value, kLower | kEqual, bound.field}, head);
      append_bound(tail, Bound{bound.value, kUpper | kEqual, bound.field}, head);
    } else {
      append_bound(tail, bound, head);
    }
    return take_range(head);
  } catch (const PoolEmpty&) {
    overflow_ = true;
    return kNone;
  }
}

Algebra::List Algebra::conjunction(List a, List b) {
  if (a == kNone) return b;
  if (b == kNone) return a;
  try {
    int head = kNone;
    int tail = kNone;
    for (int ra = a; ra >= 0; ra = rnode(ra).next) {
      for (int rb = b; rb >= 0; rb = rnode(rb).next) {
        const int r = intersect(ra, rb);
        if (r < 0) continue;
        if (tail >= 0)
          rnode(tail).next = r;
        else
          head = r;
        tail = r;
      }
    }
    release(a);
    release(b);
    return head;
  } catch (const PoolEmpty&) {
    overflow_ = true;
    return kNone;
  }
}

// Of two literal bounds pointing the same way, whether the left one is the tighter: the larger
// lower or the smaller upper bound; on equal values the right one only when it is strict.
bool Algebra::survives_left_node(int l, int r) const {
  const int c = cmp(l, r);
  if (c == 0) return !strict(bnode(r).bound);
  return (bnode(l).bound.code & kLower) != 0 ? c > 0 : c < 0;
}

// No value lies between a lower and an upper bound: the lower value is above the upper one, or
// they are equal and both strict. Equal values with an inclusive bound keep the range.
bool Algebra::empty_between(int lower, int upper) const {
  const int c = cmp(lower, upper);
  return c > 0 || (c == 0 && strict(bnode(lower).bound) && strict(bnode(upper).bound));
}

// The bounds of both ranges merged into a new one, taking one front bound at a time. Of two
// literal fronts pointing the same way only the tighter survives; pointing different ways, the
// lower goes first. Field and LIKE bounds are copied as they come.
int Algebra::intersect(int a, int b) {
  int la = rnode(a).bounds;
  int lb = rnode(b).bounds;
  int head = -1;
  int tail = -1;
  int last_lower = -1;
  int last_upper = -1;
  while (la >= 0 || lb >= 0) {
    int* from = la >= 0 ? &la : &lb;
    if (la >= 0 && lb >= 0 && literal(bnode(la).bound) && literal(bnode(lb).bound)) {
      const uint32_t lc = bnode(la).bound.code;
      const uint32_t rc = bnode(lb).bound.code;
      if (same_direction(lc, rc)) {
        int& loser = survives_left_node(la, lb) ? lb : la;
        loser = bnode(loser).next;
        continue;
      }
      if ((lc & kLower) == 0 && (rc & kLower) != 0) from = &lb;
    }
    const Bound taken = bnode(*from).bound;
    *from = bnode(*from).next;
    const int n = append_bound(tail, taken, head);
    if (literal(taken) && (taken.code & kLower) != 0) last_lower = n;
    if (literal(taken) && (taken.code & kUpper) != 0) last_upper = n;
  }
  if (last_lower >= 0 && last_upper >= 0 && empty_between(last_lower, last_upper)) {
    release_bounds(head);
    return -1;
  }
  return take_range(head);
}

// ---- Union -------------------------------------------------------------------------------------

Algebra::Ends Algebra::ends(int range) const {
  Ends e;
  for (int b = rnode(range).bounds; b >= 0; b = bnode(b).next) {
    const Bound& bound = bnode(b).bound;
    if (!literal(bound))
      e.opaque = true;
    else if ((bound.code & kLower) != 0)
      e.lower = b;
    else if ((bound.code & kUpper) != 0)
      e.upper = b;
  }
  return e;
}

// A lower bound lies above an upper bound when no value satisfies both; a missing bound never
// lies above.
bool Algebra::lies_above(int lower, int upper) const {
  return lower >= 0 && upper >= 0 && empty_between(lower, upper);
}

// Two ranges overlap when each one's lower bound lies below the other's upper bound; a range with
// a field or LIKE bound overlaps nothing. Of two disjoint ranges the one without a lower bound
// comes first, otherwise the one with the smaller lower bound (the first on a tie).
Algebra::Order Algebra::order(int a, int b) const {
  const Ends ea = ends(a);
  const Ends eb = ends(b);
  if (!ea.opaque && !eb.opaque && !lies_above(ea.lower, eb.upper) && !lies_above(eb.lower, ea.upper))
    return Order::overlap;
  if (ea.lower < 0) return Order::first;
  if (eb.lower < 0) return Order::second;
  return cmp(ea.lower, eb.lower) <= 0 ? Order::first : Order::second;
}

// Range b joins the overlapping range a, which keeps only the outer ends: the smaller lower and
// the larger upper bound (a's on a tie, inclusive when either is), or none on a side where only
// one of them is bounded. Range b is released alone.
void Algebra::merge_into(int a, int b) {
  const Ends ea = ends(a);
  const Ends eb = ends(b);
  int head = -1;
  int tail = -1;
  Bound lower;
  Bound upper;
  const bool has_lower = ea.lower >= 0 && eb.lower >= 0;
  const bool has_upper = ea.upper >= 0 && eb.upper >= 0;
  if (has_lower) {
    const int c = cmp(ea.lower, eb.lower);
    lower = bnode(c <= 0 ? ea.lower : eb.lower).bound;
    if (c == 0) lower.code |= bnode(eb.lower).bound.code & kEqual;
  }
  if (has_upper) {
    const int c = cmp(ea.upper, eb.upper);
    upper = bnode(c >= 0 ? ea.upper : eb.upper).bound;
    if (c == 0) upper.code |= bnode(eb.upper).bound.code & kEqual;
  }
  // a's own nodes go back first, so the one or two taken again are always there.
  release_bounds(rnode(a).bounds);
  if (has_lower) append_bound(tail, lower, head);
  if (has_upper) append_bound(tail, upper, head);
  rnode(a).bounds = head;
  release_range(b);
}

// The two lists merged by the order of their fronts; a right front that overlaps the left front
// is merged into it and the left front stays to meet the next right range.
int Algebra::merge_lists(int a, int b) {
  int head = -1;
  int tail = -1;
  auto append = [&](int r) {
    if (tail >= 0)
      rnode(tail).next = r;
    else
      head = r;
    tail = r;
  };
  while (a >= 0 && b >= 0) {
    const Order o = order(a, b);
    if (o == Order::overlap) {
      const int next = rnode(b).next;
      merge_into(a, b);
      b = next;
      continue;
    }
    int& from = o == Order::first ? a : b;
    const int r = from;
    from = rnode(r).next;
    rnode(r).next = -1;
    append(r);
  }
  const int rest = a >= 0 ? a : b;
  if (rest >= 0) append(rest);
  return head;
}

// Every range merged with the ranges after it that it overlaps. Literal ranges are in value order
// here; one ordered before the range it follows is a fault of the lists.
void Algebra::join_overlaps(int head) {
  int cur = head;
  while (cur >= 0 && rnode(cur).next >= 0) {
    const int next = rnode(cur).next;
    const Order o = order(cur, next);
    if (o == Order::overlap) {
      rnode(cur).next = rnode(next).next;
      merge_into(cur, next);
      continue;
    }
    if (o == Order::second && !ends(cur).opaque && !ends(next).opaque) order_fault_ = true;
    cur = next;
  }
}

Algebra::List Algebra::disjunction(List a, List b) {
  if (a == kNone || b == kNone) {
    release(a);
    release(b);
    return kNone;
  }
  try {
    const int head = merge_lists(a, b);
    join_overlaps(head);
    return head;
  } catch (const PoolEmpty&) {
    overflow_ = true;
    return kNone;
  }
}

std::vector<std::vector<Bound>> Algebra::ranges(List list) const {
  std::vector<std::vector<Bound>> out;
  for (int r = list; r >= 0; r = rnode(r).next) {
    std::vector<Bound>& range = out.emplace_back();
    for (int b = rnode(r).bounds; b >= 0; b = bnode(b).next) range.push_back(bnode(b).bound);
  }
  return out;
}

}  // namespace tav::ranges
