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

#include "codegen/header.h"
#include "diag/diag.h"
#include "diag/display.h"
#include "statements/program.h"
#include "symbols/compiler_stores.h"
#include "tavdump.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Message lines go to standard output; keep the fuzzer's own output readable.
  if (!freopen("/dev/null", "w", stdout)) return 0;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  // The stores are obtained once per option set, as in a run over many files, and reset after
  // each input.
  static tav::Display display;
  static tav::Diagnostics diag(display, false, false);
  static tav::CompilerStores* compilers[2] = {};
  const bool debug = data[0] & 1;
  if (!compilers[debug]) {
    tav::CompileSettings settings;
    settings.debug_ops = debug;
    settings.dates.today = 40000;
    compilers[debug] = new tav::CompilerStores(diag, settings);  // lives for the whole fuzzing run
  }
  tav::CompilerStores& compiler = *compilers[debug];
  tav::OpSpace& ops = compiler.stores.ops;
  tav::DataArea& area = compiler.stores.data;
  tav::TextItems& texts = compiler.stores.texts;
  std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);

  tav::FileContext file;
  file.source_name = "fuzz.spl";
  diag.start_file();
  diag.set_listing("");
  diag.set_source(&compiler.tok);
  compiler.tok.open_text(text, "fuzz.spl");
  try {
    tav::compile_program(compiler, file);
  } catch (const tav::FileAbort&) {
  } catch (const tav::RunStop&) {
  }
  compiler.tok.close_source();
  diag.set_source(nullptr);

  if (diag.first_error() == 0 && file.have_table) {
    // The table as the writer would write it, minus the texts it adds: sizes filled in, so that
    // the image decodes; a well-formed compile must never look damaged.
    uint32_t s = (ops.brk() + 7) & ~7u, d = (area.brk() + 7) & ~7u;
    for (int i = 0; i < 4; ++i) ops.at(tav::hdr::h_magic)[i] = tav::hdr::kMagic[i];
    ops.put32(tav::hdr::h_ops_size, s);
    ops.put32(tav::hdr::h_data_size, d);
    if (texts.used() && texts.count() != 0) {
      uint32_t n = static_cast<uint32_t>(texts.count()) + 1;
      ops.put24(tav::hdr::h_text, ops.copy_in(texts.entry(0), n * tav::TextItems::kEntrySize));
      ops.put16(tav::hdr::h_text_count, n);
      s = (ops.brk() + 7) & ~7u;
      ops.put32(tav::hdr::h_ops_size, s);
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
  compiler.reset();
  return 0;
}
