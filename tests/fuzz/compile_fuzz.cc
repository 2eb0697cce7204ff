// Compiles arbitrary bytes as a preprocessed program, in-process, with the objects the driver
// builds. A compile may report any number of errors or abandon the file; it must not crash, leak
// or touch memory it does not own. A clean compile must leave a table tavdump can list.
//
// The first byte chooses the options: bit 0 debug ops (-d).
#include <stdio.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <algorithm>
#include <string_view>
#include <vector>

#include "codegen/convert.h"
#include "codegen/header.h"
#include "codegen/opspace.h"
#include "driver/context.h"
#include "driver/diag.h"
#include "driver/display.h"
#include "lexer/tokenizer.h"
#include "statements/program.h"
#include "symbols/symtab.h"
#include "tavdump.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Message lines go to standard output; keep the fuzzer's own output readable.
  if (!freopen("/dev/null", "w", stdout)) return 0;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  // The stores are obtained once, as in a run over many files, and reset after each input.
  static tav::Display display;
  static tav::Diagnostics diag(display, false, false);
  static tav::OpSpace ops(diag);
  static tav::DataArea area(diag);
  static tav::TextItems texts(ops, diag);
  static tav::OpBuilder builder(ops, texts, diag);
  static tav::conv::DateSettings dates = [] {
    tav::conv::DateSettings s;
    s.today = 40000;
    return s;
  }();

  const bool debug = data[0] & 1;
  std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);

  tav::RunContext run;
  run.program_name = "tavcmp";
  run.options.debug_ops = debug;
  run.display = &display;
  run.diag = &diag;
  run.ops = &ops;
  run.data = &area;
  run.texts = &texts;
  run.builder = &builder;
  run.dates = &dates;
  builder.set_debug_ops(debug);

  tav::FileContext file;
  file.source_name = "fuzz.spl";
  tav::Tokenizer tok(diag, dates);
  tav::SymbolTable syms(ops, debug);
  diag.start_file();
  diag.set_listing("");
  diag.set_source(&tok);
  tok.open_text(text, "fuzz.spl");
  try {
    tav::compile_program(run, file, tok, syms);
  } catch (const tav::FileAbort&) {
  }
  tok.close_source();
  diag.set_source(nullptr);

  if (diag.first_error() == 0 && file.have_table) {
    // The table as the writer would write it, minus the texts it adds: sizes filled in, so that
    // the image decodes; a well-formed compile must never look damaged.
    uint32_t s = (ops.brk() + 7) & ~7u, d = (area.brk() + 7) & ~7u;
    for (int i = 0; i < 4; ++i) ops.at(tav::hdr::magic)[i] = tav::hdr::kMagic[i];
    ops.put32(tav::hdr::ops_size, s);
    ops.put32(tav::hdr::data_size, d);
    if (texts.used() && texts.count() != 0) {
      uint32_t n = static_cast<uint32_t>(texts.count()) + 1;
      ops.put24(tav::hdr::h_text, ops.copy_in(texts.entry(0), n * tav::TextItems::kEntrySize));
      ops.put16(tav::hdr::text_count, n);
      s = (ops.brk() + 7) & ~7u;
      ops.put32(tav::hdr::ops_size, s);
    }
    std::vector<uint8_t> image(s + d, 0);
    std::copy(ops.at(0), ops.at(0) + ops.brk(), image.begin());
    std::copy(area.at(0), area.at(0) + area.brk(), image.begin() + s);
    tav::dump::DumpResult r = tav::dump::dump_op6(image.data(), image.size(), {});
    if (!r.ok) {
      fprintf(stderr, "clean compile gave a damaged table: %s\n", r.damage.c_str());
      std::abort();
    }
  }
  ops.setbss(0);
  area.dsetbss(0);
  texts.set_count(0);
  return 0;
}
