#include "symbols/library_image.h"

#include <cstring>
#include <unordered_set>

#include "codegen/bytes.h"
#include "codegen/header.h"
#include "codegen/convert.h"
#include "symbols/records.h"

namespace tav {

namespace {

// Checked reading of records inside the image.
class Image {
 public:
  explicit Image(std::span<const uint8_t> bytes) : bytes_(bytes) {}

  // A record of `size` bytes at `offset`, after the header and wholly inside the image.
  bool holds(uint32_t offset, uint32_t size) const {
    return offset >= kLibraryHeaderSize && offset <= bytes_.size() && size <= bytes_.size() - offset;
  }
  uint32_t u16(uint32_t at) const { return get16(bytes_.data() + at); }
  uint32_t u24(uint32_t at) const { return get24(bytes_.data() + at); }
  // The NUL-terminated text at `offset`; nothing when it does not end inside the image.
  std::optional<std::string> text(uint32_t offset) const {
    if (!holds(offset, 1)) return std::nullopt;
    const void* end = std::memchr(bytes_.data() + offset, 0, bytes_.size() - offset);
    if (end == nullptr) return std::nullopt;
    const auto* first = reinterpret_cast<const char*>(bytes_.data() + offset);
    return std::string(first, static_cast<const char*>(end));
  }

 private:
  std::span<const uint8_t> bytes_;
};

// A parameter or result list: entries {next, field_sym, ...}.
bool read_list(const Image& im, uint32_t head, std::vector<LibraryParameter>& out) {
  std::unordered_set<uint32_t> seen;
  for (uint32_t e = head; e != 0; e = im.u24(e + param_entry::pe_next)) {
    if (!im.holds(e, param_entry::size) || !seen.insert(e).second) return false;
    const uint32_t field = im.u24(e + param_entry::pe_field);
    if (!im.holds(field, fsym::size)) return false;
    std::optional<std::string> name = im.text(im.u24(field + fsym::f_name));
    if (!name) return false;
    out.push_back({std::move(*name), conv::fmt_numeric(static_cast<uint16_t>(im.u16(field + fsym::f_format))),
                   im.u16(field + fsym::f_occurs)});
  }
  return true;
}

}  // namespace

std::optional<uint32_t> library_image_size(std::span<const uint8_t> header) {
  if (header.size() < kLibraryHeaderSize) return std::nullopt;
  if (std::memcmp(header.data() + hdr::h_magic, hdr::kMagic, sizeof hdr::kMagic) != 0) return std::nullopt;
  const uint32_t size = get32(header.data() + hdr::h_ops_size);
  if (size <= kLibraryHeaderSize) return std::nullopt;
  return size;
}

std::optional<std::vector<LibrarySection>> read_library_sections(std::span<const uint8_t> image) {
  if (!library_image_size(image)) return std::nullopt;
  const Image im(image);
  std::vector<LibrarySection> sections;
  std::unordered_set<uint32_t> seen;
  for (uint32_t s = im.u24(hdr::h_screens); s != 0; s = im.u24(s + ssym::s_next)) {
    if (!im.holds(s, ssym::size) || !seen.insert(s).second) return std::nullopt;
    LibrarySection section;
    std::optional<std::string> name = im.text(im.u24(s + ssym::s_name));
    if (!name) return std::nullopt;
    section.name = std::move(*name);
    const uint32_t form = im.u16(s + ssym::s_form);
    section.exported = (form & ssym::form_export) != 0;
    section.no_override = (form & ssym::form_no_override) != 0;
    if (!read_list(im, im.u24(s + ssym::s_params), section.parameters) ||
        !read_list(im, im.u24(s + ssym::s_returning), section.returning))
      return std::nullopt;
    sections.push_back(std::move(section));
  }
  return sections;
}

}  // namespace tav
