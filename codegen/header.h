// The optable_header: the first record of a compiled program, 95 bytes at offset 0 of the op
// space and of the .op6 file. The offsets of its members, hdr::h_compile_time ..., come from the
// rows of codegen/header.def.
#pragma once

#include <cstdint>

#include "codegen/record_rows.h"

namespace tav {

#define TAV_RECORDS_DEF "codegen/header.def"
#define TAV_RECORDS_TABLES header_rows
#include "codegen/record_tables.inc"

namespace hdr {
inline constexpr uint8_t kMagic[4] = {0x0D, 0x0A, 0xFF, 0x0A};
inline constexpr uint16_t kFlagsAlways = 0x4006;
inline constexpr uint16_t kFlagDebug = 0x0001;
}  // namespace hdr

}  // namespace tav
