// A component library as the compiler reads it: an operations table that tavcmp produced, taken
// as untrusted bytes. Every link is checked against the image before it is followed, so a damaged
// or foreign file is refused, never trusted.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tav {

// The header is read first: its magic number and the size of the operations image.
inline constexpr uint32_t kLibraryHeaderSize = 95;

// The operations image size the header gives; nothing when the header is not an operations
// table's (wrong magic number, or no image beyond the header).
std::optional<uint32_t> library_image_size(std::span<const uint8_t> header);

struct LibraryParameter {
  std::string name;  // the library field's name
  bool numeric = false;
  uint32_t occurs = 1;
};

struct LibrarySection {
  std::string name;
  bool exported = false;
  bool no_override = false;
  std::vector<LibraryParameter> parameters;
  std::vector<LibraryParameter> returning;
};

// The sections of the image in list order, with their parameter and result lists. Nothing when a
// link leaves the image, a text does not end inside it, or a list loops.
std::optional<std::vector<LibrarySection>> read_library_sections(std::span<const uint8_t> image);

}  // namespace tav
