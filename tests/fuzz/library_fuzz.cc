// Reads arbitrary bytes as a component library: the header check, then every section, name and
// parameter list it links. Whatever the bytes hold, the reader accepts or refuses them, but never
// reads outside them or follows a loop for ever. The first input bytes are made a valid header
// half of the time, so that the links behind it are reached.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "codegen/bytes.h"
#include "codegen/header.h"
#include "symbols/library_image.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<uint8_t> image(data, data + size);
  if (size > tav::kLibraryHeaderSize && (data[0] & 1)) {
    std::memcpy(image.data() + tav::hdr::h_magic, tav::hdr::kMagic, sizeof tav::hdr::kMagic);
    tav::put32(image.data() + tav::hdr::h_ops_size, static_cast<uint32_t>(size));
  }
  if (tav::library_image_size(image)) (void)tav::read_library_sections(image);
  return 0;
}
