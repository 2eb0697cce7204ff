// Checked access to the bytes of an .op6 file.
//
// Every read names what it reads; a read outside the operations image (or, for records, inside
// the header) throws Damaged with a sentence that says what pointed where.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_set>

namespace tav::dump {

struct Damaged {
  std::string what;
  bool not_a_table = false;  // no operations table at all: too short, or no magic bytes
};

// "0x0001a4": offsets are printed with six hex digits, the width of a 24-bit link.
std::string hex24(uint32_t v);
std::string hex16(uint32_t v);
// A text in double quotes with \n, \t, \", \\ and \xNN for bytes outside printable ASCII.
std::string quoted(const std::string& text);

class Image {
 public:
  // Checks the frame of the file: header present, magic, sizes that add up to the file size.
  Image(const uint8_t* bytes, size_t size);

  const uint8_t* bytes() const { return bytes_; }
  uint32_t ops_size() const { return ops_size_; }
  uint32_t data_size() const { return data_size_; }
  bool debug_ops() const { return debug_ops_; }

  // Header members (always inside the image).
  uint32_t h16(uint32_t member) const;
  uint32_t h24(uint32_t member) const;
  uint32_t h32(uint32_t member) const;

  // A record of `size` bytes at `off`: it must start after the header and end inside the
  // operations image.
  void check_record(uint32_t off, uint32_t size, const std::string& what) const;
  // Reads inside a checked record. The caller checks the record against the operations image;
  // every read is still held inside the file, so that a link the caller did not check is
  // reported as damage rather than followed out of the file.
  uint8_t u8(uint32_t off) const { return bytes_[within(off, 1)]; }
  uint32_t u16(uint32_t off) const;
  uint32_t u24(uint32_t off) const;
  uint32_t u32(uint32_t off) const;
  int32_t s16(uint32_t off) const { return static_cast<int16_t>(u16(off)); }

  // The NUL-terminated text at `off` (0: none, given as ""); it must end inside the image.
  std::string text(uint32_t off, const std::string& what) const;

 private:
  uint32_t within(uint32_t off, uint32_t n) const;  // off, or Damaged when off + n passes the end

  const uint8_t* bytes_;
  uint32_t ops_size_ = 0;
  uint32_t data_size_ = 0;
  bool debug_ops_ = false;
};

// Guards one list walk against loops: each offset may be visited once.
class Walk {
 public:
  explicit Walk(std::string what) : what_(std::move(what)) {}
  void visit(uint32_t off);

 private:
  std::string what_;
  std::unordered_set<uint32_t> seen_;
};

}  // namespace tav::dump
