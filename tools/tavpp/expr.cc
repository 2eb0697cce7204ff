#include "expr.h"

#include <array>
#include <limits>

namespace tav::pp {

namespace {

enum class Op { lor, land, bor, bxor, band, eq, ne, le, ge, lt, gt, shl, shr, add, sub, mul, div, mod };

struct BinaryOp {
  std::string_view text;
  int prec;  // higher binds tighter
  Op op;
};

constexpr std::array<BinaryOp, 18> kBinaryOps{{
    {"||", 1, Op::lor},  {"&&", 2, Op::land}, {"|", 3, Op::bor},  {"^", 4, Op::bxor},
    {"&", 5, Op::band},  {"==", 6, Op::eq},   {"!=", 6, Op::ne},  {"<=", 7, Op::le},
    {">=", 7, Op::ge},   {"<", 7, Op::lt},    {">", 7, Op::gt},   {"<<", 8, Op::shl},
    {">>", 8, Op::shr},  {"+", 9, Op::add},   {"-", 9, Op::sub},  {"*", 10, Op::mul},
    {"/", 10, Op::div},  {"%", 10, Op::mod},
}};

constexpr int kMaxNesting = 200;

using U = std::uint64_t;
using I = std::int64_t;

I wrap(U v) { return static_cast<I>(v); }

class Parser {
 public:
  explicit Parser(std::string_view s) : s_(s) {}

  ExprResult run() {
    I v = conditional(true);
    skip();
    if (status_ == ExprStatus::ok && pos_ != s_.size()) status_ = ExprStatus::syntax;
    return {status_, status_ == ExprStatus::ok ? v : 0};
  }

 private:
  void skip() { pos_ = skip_blanks(s_, pos_); }

  bool take(char c) {
    skip();
    if (pos_ < s_.size() && s_[pos_] == c) {
      ++pos_;
      return true;
    }
    return false;
  }

  I error(ExprStatus st) {
    if (status_ == ExprStatus::ok) status_ = st;
    return 0;
  }

  // The longest binary operator at the scan position, if any.
  const BinaryOp* peek_binary() {
    skip();
    const BinaryOp* best = nullptr;
    for (const BinaryOp& b : kBinaryOps)
      if (s_.substr(pos_).starts_with(b.text) && (!best || b.text.size() > best->text.size()))
        best = &b;
    return best;
  }

  I conditional(bool live) {
    if (++depth_ > kMaxNesting) return error(ExprStatus::syntax);
    I c = binary(1, live);
    if (status_ == ExprStatus::ok && take('?')) {
      I t = conditional(live && c != 0);
      if (!take(':')) return error(ExprStatus::syntax);
      I f = conditional(live && c == 0);
      c = c != 0 ? t : f;
    }
    --depth_;
    return c;
  }

  I binary(int min_prec, bool live) {
    I lhs = unary(live);
    while (status_ == ExprStatus::ok) {
      const BinaryOp* b = peek_binary();
      if (b == nullptr || b->prec < min_prec) break;
      pos_ += b->text.size();
      bool rhs_live = live;
      if (b->op == Op::land) rhs_live = live && lhs != 0;
      if (b->op == Op::lor) rhs_live = live && lhs == 0;
      I rhs = binary(b->prec + 1, rhs_live);
      lhs = apply(b->op, lhs, rhs, live);
    }
    return lhs;
  }

  I apply(Op op, I a, I b, bool live) {
    U ua = static_cast<U>(a);
    U ub = static_cast<U>(b);
    switch (op) {
      case Op::lor: return a != 0 || b != 0;
      case Op::land: return a != 0 && b != 0;
      case Op::bor: return a | b;
      case Op::bxor: return a ^ b;
      case Op::band: return a & b;
      case Op::eq: return a == b;
      case Op::ne: return a != b;
      case Op::le: return a <= b;
      case Op::ge: return a >= b;
      case Op::lt: return a < b;
      case Op::gt: return a > b;
      case Op::shl: return b < 0 || b >= 64 ? 0 : wrap(ua << b);
      case Op::shr: return b < 0 || b >= 64 ? (a < 0 ? -1 : 0) : a >> b;
      case Op::add: return wrap(ua + ub);
      case Op::sub: return wrap(ua - ub);
      case Op::mul: return wrap(ua * ub);
      case Op::div:
      case Op::mod:
        if (b == 0) return live ? error(ExprStatus::division_by_zero) : 0;
        if (b == -1) return op == Op::div ? wrap(U{0} - ua) : 0;
        return op == Op::div ? a / b : a % b;
    }
    return 0;
  }

  I unary(bool live) {
    if (++depth_ > kMaxNesting) return error(ExprStatus::syntax);
    I v = 0;
    if (take('-')) {
      v = wrap(U{0} - static_cast<U>(unary(live)));
    } else if (take('+')) {
      v = unary(live);
    } else if (take('!')) {
      v = unary(live) == 0;
    } else if (take('~')) {
      v = ~unary(live);
    } else {
      v = primary(live);
    }
    --depth_;
    return v;
  }

  I primary(bool live) {
    skip();
    if (take('(')) {
      I v = conditional(live);
      if (!take(')')) return error(ExprStatus::syntax);
      return v;
    }
    if (pos_ >= s_.size() || !is_ident_char(s_[pos_])) return error(ExprStatus::syntax);
    std::size_t e = word_end(s_, pos_, WordRule::expression);
    std::string_view word = s_.substr(pos_, e - pos_);
    pos_ = e;
    if (is_ident_start(word[0])) return 0;  // a name that is not a macro
    return number(word);
  }

  I number(std::string_view w) {
    std::size_t i = 0;
    U base = 10;
    if (w.size() > 1 && w[0] == '0' && (w[1] == 'x' || w[1] == 'X')) {
      base = 16;
      i = 2;
    } else if (w[0] == '0') {
      base = 8;
    }
    U v = 0;
    std::size_t digits = 0;
    for (; i < w.size(); ++i, ++digits) {
      char c = w[i];
      U d;
      if (c >= '0' && c <= '9') d = static_cast<U>(c - '0');
      else if (c >= 'a' && c <= 'f') d = static_cast<U>(c - 'a' + 10);
      else if (c >= 'A' && c <= 'F') d = static_cast<U>(c - 'A' + 10);
      else break;
      if (d >= base) break;
      if (v > (std::numeric_limits<U>::max() - d) / base) return error(ExprStatus::syntax);
      v = v * base + d;
    }
    if (digits == 0 && base == 16) return error(ExprStatus::syntax);
    for (; i < w.size(); ++i)
      if (w[i] != 'u' && w[i] != 'U' && w[i] != 'l' && w[i] != 'L')
        return error(ExprStatus::syntax);
    return wrap(v);
  }

  std::string_view s_;
  std::size_t pos_ = 0;
  int depth_ = 0;
  ExprStatus status_ = ExprStatus::ok;
};

}  // namespace

std::optional<std::string> resolve_defined(std::string_view text, const MacroTable& table) {
  std::string out;
  std::size_t i = 0;
  while (i < text.size()) {
    if (is_quote(text[i])) {
      std::size_t e = literal_end(text, i);
      out.append(text.substr(i, e - i));
      i = e;
      continue;
    }
    if (!is_ident_char(text[i])) {
      out += text[i++];
      continue;
    }
    std::size_t e = word_end(text, i, WordRule::expression);
    std::string_view word = text.substr(i, e - i);
    i = e;
    if (word != "defined") {
      out.append(word);
      continue;
    }
    i = skip_blanks(text, i);
    bool paren = i < text.size() && text[i] == '(';
    if (paren) i = skip_blanks(text, i + 1);
    std::size_t ne = i < text.size() && is_ident_start(text[i])
                         ? word_end(text, i, WordRule::expression)
                         : i;
    if (ne == i) return std::nullopt;
    std::string_view name = text.substr(i, ne - i);
    i = ne;
    if (paren) {
      i = skip_blanks(text, i);
      if (i >= text.size() || text[i] != ')') return std::nullopt;
      ++i;
    }
    out += table.defined(name) ? " 1 " : " 0 ";
  }
  return out;
}

ExprResult evaluate(std::string_view text) { return Parser(text).run(); }

}  // namespace tav::pp
