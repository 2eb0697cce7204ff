#include "image.h"

#include <cstdio>
#include <cstring>

#include "codegen/bytes.h"
#include "codegen/header.h"

namespace tav::dump {

namespace {

// The longest text the dump follows; a longer run without a terminator is damage.
constexpr uint32_t kMaxText = 65536;
constexpr uint32_t kMinOpsSize = 96;  // the header rounded up to a multiple of 8

}  // namespace

std::string hex24(uint32_t v) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%06x", v);
  return buf;
}

std::string hex16(uint32_t v) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%04x", v);
  return buf;
}

std::string quoted(const std::string& text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    switch (c) {
      case '\n': out += "\\n"; break;
      case '\t': out += "\\t"; break;
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      default:
        if (c >= 0x20 && c < 0x7f) {
          out += static_cast<char>(c);
        } else {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\x%02x", c);
          out += buf;
        }
    }
  }
  return out + "\"";
}

Image::Image(const uint8_t* bytes, size_t size) : bytes_(bytes) {
  if (size < hdr::size)
    throw Damaged{"file of " + std::to_string(size) + " bytes is shorter than the " +
                      std::to_string(hdr::size) + "-byte header",
                  true};
  if (std::memcmp(bytes + hdr::h_magic, hdr::kMagic, sizeof hdr::kMagic) != 0)
    throw Damaged{"magic bytes at offset 33 are not 0d 0a ff 0a", true};
  ops_size_ = get32(bytes + hdr::h_ops_size);
  data_size_ = get32(bytes + hdr::h_data_size);
  if (ops_size_ < kMinOpsSize || ops_size_ % 8 != 0)
    throw Damaged{"operations size " + std::to_string(ops_size_) +
                  " is not a multiple of 8 of at least 96"};
  if (data_size_ % 8 != 0)
    throw Damaged{"data size " + std::to_string(data_size_) + " is not a multiple of 8"};
  if (static_cast<uint64_t>(ops_size_) + data_size_ != size)
    throw Damaged{"operations size " + std::to_string(ops_size_) + " and data size " +
                  std::to_string(data_size_) + " do not add up to the file size " +
                  std::to_string(size)};
  debug_ops_ = (get16(bytes + hdr::h_flags) & hdr::kFlagDebug) != 0;
}

uint32_t Image::h16(uint32_t member) const { return get16(bytes_ + member); }
uint32_t Image::h24(uint32_t member) const { return get24(bytes_ + member); }
uint32_t Image::h32(uint32_t member) const { return get32(bytes_ + member); }
uint32_t Image::within(uint32_t off, uint32_t n) const {
  if (static_cast<uint64_t>(off) + n > static_cast<uint64_t>(ops_size_) + data_size_)
    throw Damaged{"a read of " + std::to_string(n) + " bytes at " + hex24(off) + " runs past the end of the file"};
  return off;
}

uint32_t Image::u16(uint32_t off) const { return get16(bytes_ + within(off, 2)); }
uint32_t Image::u24(uint32_t off) const { return get24(bytes_ + within(off, 3)); }
uint32_t Image::u32(uint32_t off) const { return get32(bytes_ + within(off, 4)); }

void Image::check_record(uint32_t off, uint32_t size, const std::string& what) const {
  if (off < hdr::size)
    throw Damaged{what + " at " + hex24(off) + " lies inside the header"};
  if (static_cast<uint64_t>(off) + size > ops_size_)
    throw Damaged{what + " at " + hex24(off) + " (" + std::to_string(size) +
                  " bytes) runs past the operations image of " + std::to_string(ops_size_) +
                  " bytes"};
}

std::string Image::text(uint32_t off, const std::string& what) const {
  if (off == 0) return "";
  if (off < hdr::size || off >= ops_size_)
    throw Damaged{what + " text at " + hex24(off) + " lies outside the operations image"};
  uint32_t end = off;
  while (end < ops_size_ && bytes_[end] != 0) {
    if (end - off >= kMaxText) throw Damaged{what + " text at " + hex24(off) + " has no end"};
    ++end;
  }
  if (end >= ops_size_) throw Damaged{what + " text at " + hex24(off) + " is not terminated"};
  return std::string(reinterpret_cast<const char*>(bytes_ + off), end - off);
}

void Walk::visit(uint32_t off) {
  if (!seen_.insert(off).second) throw Damaged{what_ + " loops back to " + hex24(off)};
}

}  // namespace tav::dump
