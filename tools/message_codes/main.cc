// Writes every message code with its text, read from the message tables, as a Markdown page:
// the numbered messages, the compiler's other messages and the preprocessor's. The codes are
// what the diagnostics formats show ([T16], ruleId "T16"); they never change meaning.
//
//   tav-message-codes OUT-FILE
#include <cstdio>
#include <fstream>
#include <string>

#include "diag/render.h"

namespace {

// A text as a table cell: "|" would end the cell.
std::string cell(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c == '|') out += '\\';
    out += c;
  }
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: tav-message-codes OUT-FILE\n");
    return 2;
  }
  std::string page =
      "# Message codes\n\n"
      "Every message of tavcmp and of its preprocessor has a code that the diagnostics formats show\n"
      "([diagnostics.md](diagnostics.md)): `T` and the number for the numbered messages, the\n"
      "message's name for the others, `pp_` and the name for the preprocessor's. This page is made\n"
      "from the message tables by the build; a message's code never changes meaning.\n\n"
      "| code | message |\n|---|---|\n";
  for (const tav::MessageRule& rule : tav::message_rules())
    page += "| `" + rule.code + "` | " + cell(rule.text) + " |\n";
  std::ofstream out(argv[1], std::ios::binary);
  out << page;
  out.close();
  if (!out) {
    std::fprintf(stderr, "tav-message-codes: cannot write %s\n", argv[1]);
    return 1;
  }
  return 0;
}
