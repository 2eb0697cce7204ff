// A compile bench for the expression compiler's tests: a program's stores and a parser core over a
// source text in memory, with helpers that compile one expression or statement and render the
// op list it produced as text ("a b c * +").
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "codegen/convert.h"
#include "expr/expr.h"
#include "statements/records.h"
#include "symbols/records.h"
#include "tests/unit/compiler_fixture.h"

namespace exprtest {

using namespace tav;

class Bench {
 public:
  ParserCore& p() { return c_.p; }
  OpSpace& ops() { return c_.ops; }
  OpBuilder& ob() { return c_.ob; }

  // A program field of the given format word.
  uint32_t field(std::string_view name, uint16_t format, uint16_t occurs = 1) {
    uint32_t f = c_.syms.add_global_field(name);
    c_.ops.put16(f + fsym::f_format, format);
    c_.ops.put16(f + fsym::f_size, conv::fmt_numeric(format) ? conv::format_size(format) : format);
    c_.ops.put16(f + fsym::f_occurs, occurs);
    *c_.ops.at(f + fsym::f_type) = conv::fmt_numeric(format) ? 'N' : 'A';
    return f;
  }

  // Compiles `text` (then "end") into a fresh level 0 and returns its op list rendered.
  std::string expr(std::string_view text, bool condition = false, uint32_t allow = allow_nothing) {
    start(text);
    if (condition)
      last_ = compile_condition(c_.p, allow);
    else
      last_ = compile_expression(c_.p, allow);
    return render(c_.ob.at_level(0).head);
  }
  // Compiles one statement (SET or STRING) and renders the level.
  std::string statement(std::string_view text) {
    start(text);
    uint32_t c = c_.p.next();
    if (c == verb("set")) compile_set(c_.p);
    if (c == verb("string")) compile_string(c_.p);
    return render(c_.ob.at_level(0).head);
  }
  const ExprType& type() const { return last_; }
  // The token the compilation stopped at.
  std::string_view stopped_at() {
    c_.p.next();
    return c_.p.text();
  }

  // Compiles `text` (a statement when `statement`), which must give exactly one message, holding
  // `message`, and stop at "end".
  void expect_error(std::string_view text, std::string_view message, bool statement = false) {
    statement ? (void)this->statement(text) : (void)expr(text);
    const std::string m = messages();
    EXPECT_NE(m.find(message), std::string::npos) << text << "\n" << m;
    EXPECT_EQ(std::count(m.begin(), m.end(), '\n'), 1) << text << "\n" << m;
    EXPECT_EQ(stopped_at(), "end") << text;
  }

  // Messages listed since the last call.
  std::string messages() {
    std::string all = c_.listing();
    std::string fresh = all.substr(std::min(seen_, all.size()));
    seen_ = all.size();
    return fresh;
  }

  std::string render(uint32_t head) {
    std::string out;
    for (uint32_t op = head; op != 0; op = c_.ops.get24(op)) {
      if (!out.empty()) out += ' ';
      out += render_op(op);
    }
    return out;
  }
  std::string operand(uint32_t value) {
    if (value & 0x800000) return "(" + render(value & 0x7fffff) + ")";
    return "#" + std::to_string(value);
  }

  // Sets the source to `text` and "end", with an empty level 0.
  void start(std::string_view text) {
    c_.open(std::string(text) + "\nend\n");
    c_.ob.set_level(0);
    c_.ob.reset_level(0);
  }

 private:

  std::string render_op(uint32_t op) {
    static const char* const kRel[] = {"?", "=", ">", ">=", "<", "<=", "!=", "?"};
    const tav::Op code = c_.ops.opcode(op);
    char buf[64];
    switch (code) {
      case tav::Op::comparison: {
        uint32_t cmp = c_.ops.get16(op + cmpop::cmp_code);
        std::string s = kRel[(cmp >> 12) & 7];
        if (cmp & 0x0ffd) {  // the OR-child bit is left to the link tests
          std::snprintf(buf, sizeof buf, "/%x", cmp & 0x0ffd);
          s += buf;
        }
        return s;
      }
      case tav::Op::and_: return "AND";
      case tav::Op::or_: return "OR";
      case tav::Op::multiply: return "*";
      case tav::Op::divide: return "/";
      case tav::Op::add: return "+";
      case tav::Op::subtract: return "-";
      case tav::Op::remainder: return "%";
      case tav::Op::negate: return "neg";
      case tav::Op::field_ref: {
        uint32_t f = c_.ops.get24(op + fieldref::fr_field);
        std::string s(f ? c_.syms.text(c_.ops.get24(f + fsym::f_name)) : "?");
        if (uint32_t sub = c_.ops.get24(op + fieldref::fr_subscript)) s += "[" + operand(sub) + "]";
        return s;
      }
      case tav::Op::literal: {
        uint16_t fmt = static_cast<uint16_t>(c_.ops.get16(op + literal::lit_format));
        uint32_t at = c_.ops.get24(op + literal::lit_value);
        if (!conv::fmt_numeric(fmt)) return "'" + std::string(c_.ops.text_at(at), fmt) + "'";
        std::snprintf(buf, sizeof buf, "%.10g", conv::to_double(c_.ops.at(at), fmt));
        return buf;
      }
      case tav::Op::function_arg: return "arg(" + render(c_.ops.get24(op + funcarg::fa_list)) + ")";
      case tav::Op::function_call:
        std::snprintf(buf, sizeof buf, "call%u/%u", c_.ops.get16(op + funcall::fc_number), *c_.ops.at(op + funcall::fc_count));
        return buf;
      case tav::Op::date_literal:
        std::snprintf(buf, sizeof buf, "%c:%g", static_cast<char>(c_.ops.get16(op + literal::lit_kind)),
                      conv::to_double(c_.ops.at(c_.ops.get24(op + literal::lit_value)),
                                      static_cast<uint16_t>(c_.ops.get16(op + literal::lit_format))));
        return buf;
      case tav::Op::field_name_arg: {
        uint32_t f = c_.ops.get32(c_.ops.get24(op + nameop::na_value));
        return "field:" + std::string(c_.syms.text(c_.ops.get24(f + fsym::f_name)));
      }
      case tav::Op::mode_constant: return "mode";
      case tav::Op::if_then_else:
        return "ite(" + render(c_.ops.get24(op + ite::ite_condition)) + "; " + render(c_.ops.get24(op + ite::ite_then)) + "; " +
               render(c_.ops.get24(op + ite::ite_else)) + ")";
      case tav::Op::set:
        return "set " + operand(c_.ops.get24(op + setop::st_subscript)) + " := " + render(c_.ops.get24(op + setop::st_value));
      case tav::Op::set_variant:
        std::snprintf(buf, sizeof buf, "set-special%u := ", *c_.ops.at(op + setvar::sv_special));
        return buf + render(c_.ops.get24(op + setvar::sv_value));
      case tav::Op::set_subscripted: return "set-array := " + render(c_.ops.get24(op + setop::st_value));
      case tav::Op::string: {
        std::string s = "string";
        for (uint32_t a = c_.ops.get24(op + stringop::sg_actions); a != 0; a = c_.ops.get24(a + action::ac_next)) {
          std::snprintf(buf, sizeof buf, " {%u", c_.ops.get16(a + action::ac_kind));
          s += buf;
          for (uint32_t part : {action::ac_text, action::ac_at, action::ac_to})
            if (uint32_t l = c_.ops.get24(a + part)) s += " " + render(l);
          s += "}";
        }
        return s;
      }
      default:
        std::snprintf(buf, sizeof buf, "op%u", tav::op_byte(code));
        return buf;
    }
  }

  tavtest::CompilerFixture c_;
  ExprType last_;
  size_t seen_ = 0;
};

}  // namespace exprtest
