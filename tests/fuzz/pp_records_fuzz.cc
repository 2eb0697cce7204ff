// Reads arbitrary bytes as the preprocessor's message records. Whatever the bytes, the reader
// must never read outside them or loop, and what it returns must be a sound diagnostic: a
// preprocessor error whose place ends after it begins.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "driver/pp_records.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // An exact-size copy, so that the address sanitizer catches a read one byte past the end.
  const std::string text(reinterpret_cast<const char*>(data), size);
  for (const tav::Diagnostic& d : tav::parse_pp_records(text)) {
    if (!d.from_preprocessor || d.code.rfind("pp_", 0) != 0 || d.message.empty()) std::abort();
    if (d.where.column < 0 || d.where.line < 0) std::abort();
    if (d.where.column > 0 && d.where.end_column <= d.where.column) std::abort();
    if (d.where.column == 0 && d.where.end_column != 0) std::abort();
    for (const tav::DiagnosticNote& n : d.notes)
      if (n.where.column != 1 || n.where.end_column != 2) std::abort();
  }
  return 0;
}
