// Compiles arbitrary bytes as a preprocessed program, in-process, with the objects the driver
// builds. A compile may report any number of errors or abandon the file; it must not crash, leak
// or touch memory it does not own. A clean compile must leave a table tavdump can list.
//
// The first byte chooses the options: bit 0 debug ops (-d). A custom mutator adds deep nesting
// and long runs of lines now and then.
#include <stdio.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "codegen/header.h"
#include "diag/diag.h"
#include "diag/display.h"
#include "statements/program.h"
#include "symbols/compiler_stores.h"
#include "tavdump.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t max_size);

namespace {

// Structural mutations the byte mutator seldom finds: a stretch of lines wrapped in many nested
// constructs, one line repeated many times, an expression deep in parentheses. The first byte
// (the options) is kept.
std::string structural(std::string_view text, unsigned seed) {
  std::vector<std::string_view> lines;
  for (size_t at = 0; at <= text.size();) {
    size_t nl = text.find('\n', at);
    if (nl == std::string_view::npos) nl = text.size();
    lines.push_back(text.substr(at, nl - at));
    at = nl + 1;
  }
  const size_t from = seed % lines.size(), to = from + (seed >> 8) % (lines.size() - from);
  const int depth = 1 + static_cast<int>((seed >> 16) % 400);
  std::string out;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (i == from) {
      switch (seed % 3) {
        case 0:
          for (int d = 0; d < depth; ++d) out += " if 1 = 1\n";
          break;
        case 1:
          for (int d = 0; d < depth * 5; ++d) out.append(lines[i]).push_back('\n');
          break;
        default:
          out += " set x = " + std::string(static_cast<size_t>(depth), '(') + "1" + std::string(static_cast<size_t>(depth), ')') + "\n";
      }
    }
    out.append(lines[i]).push_back('\n');
    if (i == to && seed % 3 == 0)
      for (int d = 0; d < depth; ++d) out += " end-if\n";
  }
  return out;
}

}  // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size, unsigned seed) {
  if (size < 2 || seed % 8 != 0) return LLVMFuzzerMutate(data, size, max_size);
  const std::string grown =
      structural(std::string_view(reinterpret_cast<const char*>(data + 1), size - 1), seed / 8);
  if (grown.size() + 1 > max_size) return LLVMFuzzerMutate(data, size, max_size);
  std::copy(grown.begin(), grown.end(), data + 1);
  return grown.size() + 1;
}

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
