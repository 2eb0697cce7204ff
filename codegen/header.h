// The optable_header: the first record of a compiled program, 95 bytes at offset 0 of the op
// space and of the .op6 file. The offsets of its members, hdr::compile_time ..., come from the
// rows of codegen/header.def.
#pragma once

#include <cstdint>

#include "codegen/record_rows.h"

namespace tav {

#define TAV_RECORD TAV_RECORD_SIZE
#define TAV_MEMBER TAV_MEMBER_OFFSET
#include "codegen/header.def"

inline constexpr RecordRow kHeaderRecords[] = {
#define TAV_RECORD TAV_RECORD_ROW
#define TAV_MEMBER TAV_NO_ROW
#include "codegen/header.def"
};

inline constexpr MemberRow kHeaderMembers[] = {
#define TAV_RECORD TAV_NO_ROW
#define TAV_MEMBER TAV_MEMBER_ROW
#include "codegen/header.def"
};

static_assert(layouts_sound(kHeaderRecords, kHeaderMembers),
              "codegen/header.def: a member overlaps another or leaves the header");

namespace hdr {
inline constexpr uint8_t kMagic[4] = {0x0D, 0x0A, 0xFF, 0x0A};
inline constexpr uint16_t kFlagsAlways = 0x4006;
inline constexpr uint16_t kFlagDebug = 0x0001;
}  // namespace hdr

}  // namespace tav
