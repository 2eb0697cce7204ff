// Decodes arbitrary bytes as an .op6 file. Whatever the bytes, the decoder must either list them
// or report them damaged: it must never read outside the buffer, loop, or recurse without end.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "tavdump.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // An exact-size copy, so that the address sanitizer catches a read one byte past the end.
  std::vector<uint8_t> bytes(data, data + size);
  for (bool raw : {false, true}) {
    tav::dump::DumpResult r = tav::dump::dump_op6(bytes.data(), bytes.size(), {.header_only = false, .raw = raw});
    if (!r.ok && r.damage.empty()) std::abort();  // damage always says what it is
  }
  return 0;
}
