// Prints the tokens the compiler's tokenizer reads from a file, one a line:
//   <line> <TAB> <column> <TAB> <end column> <TAB> <class> <TAB> <text>
// columns counted in characters from 1, the end just past the token; the class is "name",
// "alpha", "numeric", "date", "time", or "keyword <code in hex>". Lines beginning with "#" are
// the preprocessor's and are read as empty lines. With --keywords, prints the keyword table
// instead: "<name> <TAB> <code in hex>" for every row.
//
// The editor grammar's test compares what the grammar colours with what this prints.
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

#include "codegen/convert.h"
#include "diag/diag.h"
#include "diag/display.h"
#include "lexer/tokenizer.h"
#include "lexer/verbs.h"

namespace {

const char* class_name(uint32_t cls) {
  switch (cls) {
    case tav::kClassName: return "name";
    case tav::kClassAlpha: return "alpha";
    case tav::kClassNumeric: return "numeric";
    case tav::kClassDate: return "date";
    case tav::kClassTime: return "time";
    default: return "keyword";
  }
}

std::string program_lines(std::istream& in) {
  std::string text, line;
  while (std::getline(in, line)) text += (line.empty() || line[0] != '#' ? line : std::string()) + "\n";
  return text;
}

void print_keywords() {
  for (int i = 0; i < tav::kVerbCount; ++i)
    std::printf("%.*s\t%08x\n", static_cast<int>(tav::kVerbTable[i].name.size()), tav::kVerbTable[i].name.data(),
                tav::kVerbTable[i].code);
}

int print_tokens(const char* path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "token_dump: cannot read %s\n", path);
    return 1;
  }
  const std::string text = program_lines(in);
  tav::Display display;
  display.set_plain_output(nullptr);
  tav::Diagnostics diag{display, false, false};
  tav::conv::DateSettings dates;
  tav::Tokenizer tok{diag, dates};
  diag.set_source(&tok);
  tok.open_text(text, path);
  for (;;) {
    diag.start_file();  // a file full of faults is read to its end all the same
    const uint32_t cls = tok.get_token();
    if (cls == tav::kClassEndOfInput) break;
    const tav::SourceMark m = tok.mark();
    std::printf("%d\t%d\t%d\t%s", m.line, m.column, m.end_column, class_name(cls));
    if (std::string_view(class_name(cls)) == "keyword") std::printf(" %08x", cls);
    std::printf("\t%.*s\n", static_cast<int>(tok.text().size()), tok.text().data());
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::string_view(argv[1]) == "--keywords") {
    print_keywords();
    return 0;
  }
  if (argc != 2) {
    std::fprintf(stderr, "usage: token_dump FILE | --keywords\n");
    return 2;
  }
  return print_tokens(argv[1]);
}
