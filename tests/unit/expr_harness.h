// A compile bench for the expression compiler's tests: a program's stores and a Parser over a
// source text in memory, with helpers that compile one expression or statement and render the
// op list it produced as text ("a b c * +").
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>

#include "codegen/convert.h"
#include "codegen/expr.h"
#include "codegen/header.h"
#include "codegen/opspace.h"
#include "driver/context.h"
#include "driver/diag.h"
#include "driver/display.h"
#include "lexer/tokenizer.h"
#include "statements/parser.h"
#include "statements/records.h"
#include "symbols/records.h"
#include "symbols/symtab.h"
#include "tests/support/support.h"

namespace exprtest {

using namespace tav;

class Bench {
 public:
  Bench() {
    diag_.set_source(&tok_);
    diag_.start_file();
    diag_.set_listing(dir_ / "t.err");
    ops_.alloc(hdr::size);
    data_.alloc(2);
    syms_.reset();
    ob_.start_program();
    ob_.op_stack_depth = -1;
    tok_.set_statement_mask(kStatementVerb);
    tok_.set_clause_mask(kClauseWord);
    tok_.set_function_mask(kFunctionWord);
  }

  Parser& p() { return p_; }
  OpSpace& ops() { return ops_; }
  OpBuilder& ob() { return ob_; }

  // A program field of the given format word.
  uint32_t field(std::string_view name, uint16_t format, uint16_t occurs = 1) {
    uint32_t f = syms_.add_global_field(name);
    ops_.put16(f + fsym::f_format, format);
    ops_.put16(f + fsym::f_size, conv::fmt_numeric(format) ? conv::format_size(format) : format);
    ops_.put16(f + fsym::f_occurs, occurs);
    *ops_.at(f + fsym::f_type) = conv::fmt_numeric(format) ? 'N' : 'A';
    return f;
  }

  // Compiles `text` (then "end") into a fresh level 0 and returns its op list rendered.
  std::string expr(std::string_view text, bool condition = false, uint32_t allow = allow_nothing) {
    start(text);
    if (condition)
      last_ = compile_condition(p_, allow);
    else
      last_ = compile_expression(p_, allow);
    return render(ob_.at_level(0).head);
  }
  // Compiles one statement (SET or STRING) and renders the level.
  std::string statement(std::string_view text) {
    start(text);
    uint32_t c = p_.next();
    if (c == verb("set")) compile_set(p_);
    if (c == verb("string")) compile_string(p_);
    return render(ob_.at_level(0).head);
  }
  const ExprType& type() const { return last_; }
  // The token the compilation stopped at.
  std::string_view stopped_at() {
    p_.next();
    return p_.text();
  }

  // Messages listed since the last call.
  std::string messages() {
    std::string all = tavtest::file_exists(dir_ / "t.err") ? tavtest::read_file(dir_ / "t.err") : "";
    std::string fresh = all.substr(std::min(seen_, all.size()));
    seen_ = all.size();
    return fresh;
  }

  std::string render(uint32_t head) {
    std::string out;
    for (uint32_t op = head; op != 0; op = ops_.get24(op)) {
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
    source_ = std::string(text) + "\nend\n";
    tok_.open_text(source_, "t.spl");
    ob_.set_level(0);
    ob_.reset_level(0);
  }

 private:

  std::string render_op(uint32_t op) {
    static const char* const kRel[] = {"?", "=", ">", ">=", "<", "<=", "!=", "?"};
    uint8_t code = *ops_.at(op + 3);
    char buf[64];
    switch (code) {
      case 1: {
        uint32_t cmp = ops_.get16(op + 7);
        std::string s = kRel[(cmp >> 12) & 7];
        if (cmp & 0x0ffd) {  // the OR-child bit is left to the link tests
          std::snprintf(buf, sizeof buf, "/%x", cmp & 0x0ffd);
          s += buf;
        }
        return s;
      }
      case 2: return "AND";
      case 3: return "OR";
      case 4: return "*";
      case 5: return "/";
      case 6: return "+";
      case 7: return "-";
      case 8: return "%";
      case 9: return "neg";
      case 10: {
        uint32_t f = ops_.get24(op + 9);
        std::string s(f ? syms_.text(ops_.get24(f + fsym::f_name)) : "?");
        if (uint32_t sub = ops_.get24(op + 12)) s += "[" + operand(sub) + "]";
        return s;
      }
      case 11: {
        uint16_t fmt = static_cast<uint16_t>(ops_.get16(op + 7));
        uint32_t at = ops_.get24(op + 4);
        if (!conv::fmt_numeric(fmt)) return "'" + std::string(ops_.text_at(at), fmt) + "'";
        std::snprintf(buf, sizeof buf, "%.10g", conv::to_double(ops_.at(at), fmt));
        return buf;
      }
      case 12: return "arg(" + render(ops_.get24(op + 4)) + ")";
      case 13:
        std::snprintf(buf, sizeof buf, "call%u/%u", ops_.get16(op + 4), *ops_.at(op + 6));
        return buf;
      case 24: return "aggregate";
      case 65:
        std::snprintf(buf, sizeof buf, "%c:%g", static_cast<char>(ops_.get16(op + 9)),
                      conv::to_double(ops_.at(ops_.get24(op + 4)), static_cast<uint16_t>(ops_.get16(op + 7))));
        return buf;
      case 66: return "field:" + std::string(syms_.text(ops_.get24(ops_.get32(ops_.get24(op + 4)) + fsym::f_name)));
      case 67: return "mode";
      case 68: return "object";
      case 87: return "text-item";
      case 88:
        return "ite(" + render(ops_.get24(op + 4)) + "; " + render(ops_.get24(op + 9)) + "; " +
               render(ops_.get24(op + 12)) + ")";
      case 14:
        return "set " + operand(ops_.get24(op + 12)) + " := " + render(ops_.get24(op + 4));
      case 74:
        std::snprintf(buf, sizeof buf, "set-special%u := ", *ops_.at(op + 8));
        return buf + render(ops_.get24(op + 4));
      case 78: return "set-array := " + render(ops_.get24(op + 4));
      case 69: {
        std::string s = "string";
        for (uint32_t a = ops_.get24(op + 4); a != 0; a = ops_.get24(a)) {
          std::snprintf(buf, sizeof buf, " {%u", ops_.get16(a + 3));
          s += buf;
          for (uint32_t part : {5u, 8u, 11u})
            if (uint32_t l = ops_.get24(a + part)) s += " " + render(l);
          s += "}";
        }
        return s;
      }
      default:
        std::snprintf(buf, sizeof buf, "op%u", code);
        return buf;
    }
  }

  tavtest::TempDir dir_;
  Display display_;
  Diagnostics diag_{display_, false, false};
  OpSpace ops_{diag_};
  DataArea data_{diag_};
  TextItems texts_{ops_, diag_};
  OpBuilder ob_{ops_, texts_, diag_};
  conv::DateSettings dates_;
  RunContext run_ = [this] {
    RunContext r;
    r.diag = &diag_;
    r.ops = &ops_;
    r.data = &data_;
    r.texts = &texts_;
    r.builder = &ob_;
    r.dates = &dates_;
    return r;
  }();
  FileContext file_;
  Tokenizer tok_{diag_, dates_};
  SymbolTable syms_{ops_};
  Parser p_{run_, file_, tok_, syms_};
  std::string source_;
  ExprType last_;
  size_t seen_ = 0;
};

}  // namespace exprtest
