// The optable_header: the first record of a compiled program, 95 bytes at offset 0 of the op
// space and of the .op6 file. Offsets of its members:
#pragma once

#include <cstdint>

namespace tav::hdr {

inline constexpr uint32_t size = 95;

inline constexpr uint32_t compile_time = 0;     // 32-bit seconds since 1970
inline constexpr uint32_t version = 4;          // 16-bit minor table version (6.<n>)
inline constexpr uint32_t compile_text = 6;     // 24-bit offset of "@(#) <source> compiled on <date>"
inline constexpr uint32_t entry_section = 9;    // 24-bit screen_sym the program starts at
inline constexpr uint32_t h_screens = 12;       // 24-bit head of the screen_sym list
inline constexpr uint32_t h_objects = 15;       // 24-bit head of the object_sym list
inline constexpr uint32_t h_fields = 18;        // 24-bit head of the global field_sym list
inline constexpr uint32_t mode_list = 21;       // 24-bit head of the mode_entry list
inline constexpr uint32_t report_list = 24;     // 24-bit head of the report records
inline constexpr uint32_t select_list = 27;     // 24-bit list head of the SELECT compiler
inline constexpr uint32_t h_text = 30;          // 24-bit offset of the text item table copy
inline constexpr uint32_t magic = 33;           // 0x0D 0x0A 0xFF 0x0A
inline constexpr uint32_t object_count = 37;    // 16-bit, next o_seq
inline constexpr uint32_t field_count = 39;     // 16-bit, next f_seq
inline constexpr uint32_t screen_count = 41;    // 16-bit, next screen number
inline constexpr uint32_t report_count = 43;    // 16-bit
inline constexpr uint32_t text_count = 45;      // 16-bit entries in the text item copy (0: none)
inline constexpr uint32_t flags = 49;           // 16-bit
inline constexpr uint32_t ops_size = 51;        // 32-bit size of the operations image
inline constexpr uint32_t data_size = 55;       // 32-bit size of the data image
inline constexpr uint32_t dict0 = 63;           // 24-bit path text of dictionary 0
inline constexpr uint32_t dict1 = 66;
inline constexpr uint32_t dict0_version = 69;   // 24-bit version text of dictionary 0
inline constexpr uint32_t dict1_version = 72;
inline constexpr uint32_t version_list = 75;    // 24-bit head of the VERSION-NUMBER list
inline constexpr uint32_t system_name = 78;     // 24-bit text given with -p
inline constexpr uint32_t dict2 = 81;
inline constexpr uint32_t dict2_version = 84;
inline constexpr uint32_t export_list = 87;     // 24-bit head of the export list
inline constexpr uint32_t library_list = 90;    // 24-bit head of the library list
inline constexpr uint32_t library_count = 93;   // 16-bit shared library routines

inline constexpr uint8_t kMagic[4] = {0x0D, 0x0A, 0xFF, 0x0A};
inline constexpr uint16_t kFlagsAlways = 0x4006;
inline constexpr uint16_t kFlagDebug = 0x0001;

}  // namespace tav::hdr
