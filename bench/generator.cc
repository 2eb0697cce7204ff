#include "bench/generator.h"

#include <algorithm>

namespace tavbench {

namespace {

// A small linear congruential generator: the same sequence on every platform.
class Random {
 public:
  explicit Random(uint32_t seed) : state_(seed * 2654435761u + 1) {}
  uint32_t next() {
    state_ = state_ * 1103515245u + 12345u;
    return (state_ >> 8) & 0xffffff;
  }
  int below(int n) { return static_cast<int>(next() % static_cast<uint32_t>(n)); }

 private:
  uint32_t state_;
};

class Writer {
 public:
  Writer(const GenOptions& o) : o_(o), rnd_(o.seed) {}

  std::string run() {
    line("// Generated for the compile benchmarks.");
    for (int i = 0; i < o_.fields; ++i)
      line("field n" + std::to_string(i) + " pic 9(7)v99");
    for (int i = 0; i < 8; ++i) line("field t" + std::to_string(i) + " pic x(30)");
    line("field arr pic 9(5) occurs 10");
    long procedures = std::max(1L, o_.lines / 60);
    long written = 0;
    while (written < procedures && lines_ < o_.lines) procedure(++written);
    // The entry section comes last, so that it calls only procedures that exist.
    line("");
    line("procedure main");
    for (long i = 1; i <= std::min(written, 20L); ++i) line("  do proc-" + std::to_string(i));
    line("end-procedure");
    return out_;
  }

 private:
  void line(const std::string& s) {
    out_ += std::string(static_cast<size_t>(indent_ * 2), ' ');
    out_ += s;
    out_ += '\n';
    ++lines_;
  }

  // The parts in order: a braced list is evaluated left to right, while the operands of "+" are
  // not, and the random draws must come in the same order with every compiler.
  static std::string cat(std::initializer_list<std::string> parts) {
    std::string s;
    for (const std::string& part : parts) s += part;
    return s;
  }

  std::string field() { return "n" + std::to_string(rnd_.below(o_.fields)); }
  std::string number() { return std::to_string(rnd_.below(1000)); }

  std::string operand() {
    switch (rnd_.below(4)) {
      case 0: return number();
      case 1: return "arr[" + std::to_string(1 + rnd_.below(10)) + "]";
      default: return field();
    }
  }

  std::string expression(int depth = 0) {
    static const char* const kOps[] = {" + ", " - ", " * ", " / "};
    std::string e = operand();
    int terms = 1 + rnd_.below(4);
    for (int i = 0; i < terms; ++i) {
      if (depth < 2 && rnd_.below(4) == 0)
        e += cat({kOps[rnd_.below(4)], "(", expression(depth + 1), ")"});
      else
        e += cat({kOps[rnd_.below(4)], operand()});
    }
    return e;
  }

  std::string condition() {
    static const char* const kRel[] = {" = ", " != ", " < ", " > ", " <= ", " >= "};
    std::string c = cat({field(), kRel[rnd_.below(6)], expression(1)});
    if (rnd_.below(3) == 0) c += cat({rnd_.below(2) ? " and " : " or ", field(), kRel[rnd_.below(6)], number()});
    return c;
  }

  void simple() {
    switch (rnd_.below(3)) {
      case 0: line(cat({"set ", field(), " = ", expression()})); break;
      case 1: line(cat({"set t", std::to_string(rnd_.below(8)), " = \"text ", number(), "\""})); break;
      default: line(cat({"set ", field(), " += ", operand()})); break;
    }
  }

  void block(int depth, bool in_loop) {
    int n = 2 + rnd_.below(4);
    for (int i = 0; i < n; ++i) statement(depth, in_loop);
  }

  void statement(int depth, bool in_loop) {
    if (depth >= 4 || lines_ >= budget_) {
      simple();
      return;
    }
    switch (rnd_.below(9)) {
      case 0: {
        line("if " + condition());
        nest(depth, in_loop);
        if (rnd_.below(2)) {
          line("else-if " + condition());
          nest(depth, in_loop);
        }
        if (rnd_.below(2)) {
          line("else");
          nest(depth, in_loop);
        }
        line("end-if");
        break;
      }
      case 1:
        line("while " + condition());
        nest(depth, true);
        line("end-while");
        break;
      case 2:
        line("repeat");
        nest(depth, true);
        line("until " + condition());
        nest(depth, true);
        line("end-repeat");
        break;
      case 3: {
        std::string f = field();
        if (rnd_.below(2))
          line("for " + f + " = 1 to " + number());
        else
          line(cat({"for ", f, " = ", number(), " down to 1 step ", std::to_string(1 + rnd_.below(3))}));
        nest(depth, true);
        line("end-for");
        break;
      }
      case 4: {
        line("switch on " + field());
        int cases = 2 + rnd_.below(4);
        for (int i = 0; i < cases; ++i) {
          line("case " + std::to_string(i * 3 + 1) + " " + std::to_string(i * 3 + 2));
          nest(depth, in_loop);
        }
        line("else");
        nest(depth, in_loop);
        line("end-switch");
        break;
      }
      case 5:
        if (in_loop) {
          line("if " + condition());
          ++indent_;
          line(rnd_.below(2) ? "break" : "continue");
          --indent_;
          line("end-if");
          break;
        }
        simple();
        break;
      default:
        simple();
        break;
    }
  }

  void nest(int depth, bool in_loop) {
    ++indent_;
    block(depth + 1, in_loop);
    --indent_;
  }

  void procedure(long i) {
    line("");
    line("procedure proc-" + std::to_string(i));
    ++indent_;
    long target = std::min(lines_ + 40 + rnd_.below(40), o_.lines);
    budget_ = target;
    while (lines_ < target) statement(0, false);
    if (i > 1 && rnd_.below(3) == 0) line("do proc-" + std::to_string(i - 1));
    --indent_;
    line("end-procedure");
  }

  const GenOptions& o_;
  Random rnd_;
  std::string out_;
  long lines_ = 0;
  long budget_ = 0;  // past this line only simple statements are added, so blocks close soon
  int indent_ = 0;
};

}  // namespace

std::string generate_program(const GenOptions& options) { return Writer(options).run(); }

namespace {

// Field i: a number, a text or an amount, in turn.
std::string field_definition(int i) {
  static const char* const kPictures[] = {"pic 9(6)", "pic x(20)", "pic s9(7)v99"};
  return "field f" + std::to_string(i) + " " + kPictures[i % 3];
}

int fields_per_object(const SchemaOptions& o) { return std::max(1, o.fields / std::max(1, o.objects)); }

// The object and, with `with_fields`, the fields of its record before it.
std::string object_definition(const SchemaOptions& o, int i, bool with_fields) {
  const int per = fields_per_object(o), first = i * per;
  std::string text;
  if (with_fields)
    for (int f = first; f < first + per; ++f) text += field_definition(f) + "\n";
  text += "object o" + std::to_string(i) + " type indexed file \"o" + std::to_string(i) + "\"\n  record";
  for (int f = first; f < first + per; ++f) text += " f" + std::to_string(f);
  text += " end-record\n  key f" + std::to_string(first) + " unique\n";
  return text;
}

}  // namespace

std::string generate_schema(const SchemaOptions& o) {
  std::string text = "// Generated for the dictionary benchmark.\n";
  for (int f = 0; f < o.fields; ++f) text += field_definition(f) + "\n";
  for (int i = 0; i < o.objects; ++i) text += object_definition(o, i, false);
  return text;
}

std::string generate_object_program(const SchemaOptions& o, int named, bool defining) {
  std::string text = "// Generated for the dictionary benchmark.\n";
  named = std::min(named, o.objects);
  if (defining)
    for (int i = 0; i < named; ++i) text += object_definition(o, i, true);
  for (int i = 0; i < named; ++i) text += "object u" + std::to_string(i) + " like o" + std::to_string(i) + "\n";
  text += "procedure main\n";
  for (int i = 0; i < named; ++i) {
    const int first = i * fields_per_object(o);
    text += "  set f" + std::to_string(first + (3 - first % 3) % 3) + " = 1\n";  // a number field
  }
  return text + "end-procedure\n";
}

long count_lines(const std::string& text) { return static_cast<long>(std::count(text.begin(), text.end(), '\n')); }

}  // namespace tavbench
