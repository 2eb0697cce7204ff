// Tokenizes arbitrary bytes and checks what every token must satisfy.
//
// The first byte chooses how the input is read: bit 0 sets the statement and clause masks of a
// program, bit 1 asks for a raw word now and then, bit 2 pushes tokens back, bit 3 compiles the
// part after the first 0xff byte as inserted text in the middle, bit 4 reads through a file
// instead of memory (exercising the block reads).
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "codegen/convert.h"
#include "diag/diag.h"
#include "diag/display.h"
#include "lexer/tokenizer.h"
#include "lexer/verbs.h"

namespace {

std::string g_file;

[[noreturn]] void fail(const char* what) {
  fprintf(stderr, "tokenizer invariant broken: %s\n", what);
  abort();
}

void check_token(const tav::Tokenizer& tok, uint32_t cls) {
  if (tok.text().size() > tav::kTokenMax) fail("token longer than the limit");
  if (tok.token_class() != cls) fail("returned class differs from the token class");
  if (cls == tav::kClassNumeric && (tok.attribute() & 0xf800) != tav::kNumericAttr)
    fail("numeric attribute without its class bit");
  if ((cls & tok.statement_mask()) && !tok.held()) fail("statement verb not held");
  if (cls == tav::kClassEndOfInput && (tok.line() != 0 || tok.text() != "[EOF]"))
    fail("end of input without its text and line 0");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Message lines go to standard output; keep the fuzzer's own output readable.
  if (!freopen("/dev/null", "w", stdout)) return 0;
  char name[] = "/tmp/tokenizer_fuzz-XXXXXX";
  int fd = mkstemp(name);
  if (fd >= 0) {
    close(fd);
    g_file = name;
    atexit([] { unlink(g_file.c_str()); });
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  static tav::Display display;
  static tav::Diagnostics diag(display, false, false);
  static tav::conv::DateSettings dates = [] {
    tav::conv::DateSettings s;
    s.today = 40000;
    return s;
  }();
  const uint8_t flags = data[0];
  std::string_view input(reinterpret_cast<const char*>(data + 1), size - 1);
  std::string_view inserted;
  if (flags & 8) {
    size_t cut = input.find('\xff');
    if (cut != std::string_view::npos) {
      inserted = input.substr(cut + 1);
      input = input.substr(0, cut);
    }
  }

  tav::Tokenizer tok(diag, dates);
  diag.set_source(&tok);
  diag.start_file();
  if ((flags & 16) && !g_file.empty()) {
    FILE* f = fopen(g_file.c_str(), "wb");
    if (!f) return 0;
    fwrite(input.data(), 1, input.size(), f);
    fclose(f);
    if (tok.open_source(g_file) != 0) return 0;
  } else {
    tok.open_text(input, "fuzz.spl");
  }
  if (flags & 1) {
    tok.set_statement_mask(tav::kStatementVerb);
    tok.set_clause_mask(tav::kClauseWord);
  }

  tav::TextLineSource insert_source(inserted);
  bool inserting = !inserted.empty();
  try {
    // Every fresh token consumes input; only push-backs and the end of inserted text repeat one.
    const size_t limit = 4 * size + 100;
    for (size_t n = 0;; ++n) {
      if (n > limit) fail("the token stream does not end");
      if ((flags & 2) && n % 3 == 0) tok.request_raw();
      uint32_t cls = tok.get_token();
      check_token(tok, cls);
      if (cls == tav::kClassEndOfInput) break;
      if (tok.held() && (cls & tok.statement_mask())) {
        if (n % 5 == 0)
          tok.skip_to_clause();
        tok.accept();
      } else if ((flags & 4) && n % 2 == 0) {
        tok.push_back();
      }
      if (inserting && n == 3) {
        inserting = false;
        tok.save_position();
        tok.set_line_source(&insert_source);
      }
    }
  } catch (const tav::FileAbort&) {
  }
  diag.set_source(nullptr);
  return 0;
}
