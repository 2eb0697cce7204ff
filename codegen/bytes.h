// Byte-packed big-endian access to records in the op space and the data area.
//
// Every record the compiler builds is written to the .op6 file unchanged, so records are never
// described by C++ structs: each record has a block of named offsets beside its description and
// is read and written through these helpers.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tav {

inline uint16_t get16(const uint8_t* p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }
inline uint32_t get24(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) << 16 | static_cast<uint32_t>(p[1]) << 8 | p[2];
}
inline uint32_t get32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
         static_cast<uint32_t>(p[2]) << 8 | p[3];
}
inline int16_t get16s(const uint8_t* p) { return static_cast<int16_t>(get16(p)); }

inline void put16(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v >> 8);
  p[1] = static_cast<uint8_t>(v);
}
inline void put24(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v >> 16);
  p[1] = static_cast<uint8_t>(v >> 8);
  p[2] = static_cast<uint8_t>(v);
}
inline void put32(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v >> 24);
  p[1] = static_cast<uint8_t>(v >> 16);
  p[2] = static_cast<uint8_t>(v >> 8);
  p[3] = static_cast<uint8_t>(v);
}

}  // namespace tav
