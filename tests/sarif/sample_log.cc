// sample_log OUT: writes the SARIF log of a varied, handmade run to OUT, for the schema check:
// every severity, notes with and without places, fix-its that replace, delete and insert,
// unknown columns and places, file names a URI may not hold as they are, bytes that are not
// UTF-8, a follow-on message and a code of no rule.
#include <fstream>
#include <iostream>

#include "diag/render.h"

namespace {

using tav::Diagnostic;
using tav::Severity;
using tav::SourceRange;

Diagnostic make(Severity severity, std::string code, std::string message, std::string context, SourceRange where) {
  Diagnostic d;
  d.severity = severity;
  d.code = std::move(code);
  d.message = std::move(message);
  d.context = std::move(context);
  d.where = std::move(where);
  return d;
}

std::vector<tav::FileDiagnostics> sample_run() {
  const std::string odd = "dir with blank/#1?%[x]:é\x01\xff.spl";
  Diagnostic t16 = make(Severity::error, "T16", "Field not defined", "cust-nme", {"prog.spl", 3, 11, 19});
  t16.notes.push_back({"first defined here", {"prog.spl", 1, 8, 16}});
  t16.notes.push_back({"did you mean 'cust-name'?", {}});
  t16.fixes.push_back({{"prog.spl", 3, 11, 19}, "cust-name"});
  Diagnostic included = make(Severity::warning, "T60", "Truncated", "\xc3\x28\xff", {odd, 2, 4, 0});
  included.notes.push_back({"in file included from here", {"prog.spl", 7, 0, 0}});
  included.notes.push_back({"in file included from here", {"//top/main.spl", 1, 1, 12}});
  included.fixes.push_back({{odd, 2, 4, 9}, ""});
  included.fixes.push_back({{odd, 2, 4, 4}, "\"x\xfe\""});
  included.fixes.push_back({{odd, 2, 0, 0}, "not exact"});
  Diagnostic line_only = make(Severity::info, "T61", "Literal", "", {"prog.spl", 5, 0, 0});
  Diagnostic pp = make(Severity::error, "pp_bad_include", "Invalid #include", "<x>", {"inc/a b.inc", 9, 1, 0});
  pp.from_preprocessor = true;
  Diagnostic no_place = make(Severity::fatal, "end_of_program_expected", "Unexpected end", "", {});
  Diagnostic unknown_code = make(Severity::error, "not_a_rule", "Internal", "", {"prog.spl", 0, 3, 4});
  Diagnostic follow_on = make(Severity::error, "T9", "Not shown", "", {"prog.spl", 4, 1, 2});
  follow_on.follow_on = true;
  return {{"prog.spl", {t16, included, line_only, follow_on, no_place}},
          {odd, {pp, unknown_code}},
          {"empty.spl", {}}};
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: sample_log OUT\n";
    return 2;
  }
  std::ofstream out(argv[1], std::ios::binary | std::ios::trunc);
  out << tav::render_sarif(sample_run(), "6.5 v1.5");
  out.close();
  if (!out) {
    std::cerr << "sample_log: cannot write " << argv[1] << "\n";
    return 1;
  }
  return 0;
}
