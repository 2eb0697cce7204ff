// The data dictionaries as the field and object layers see them.
//
// Fields and objects that a program does not define come from the data dictionaries: up to three
// sets of indexed tables, numbered 0, 1, 2 in the order they were opened, searched in that order
// (the first that has a name wins). The compiler asks them only through this interface; the
// layer that opens and reads the dictionary files implements it. Until a dictionary is open,
// NoDictionaries answers: it knows no field and no record, so every lookup falls through to the
// "not defined" paths of the callers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tav {

// A dict_field row: the description of a field in a dictionary.
struct DictField {
  int16_t dictno = -1;   // the dictionary that holds it (0, 1 or 2)
  uint16_t id = 0;       // fld_id
  uint16_t desc = 0;     // fld_desc: the format word
  char type = 0;         // fld_type: the type letter
  uint16_t occurs = 0;   // fld_occurs
  uint16_t flags = 0;    // fld_flags: 1 UPPER-CASE, 2 LOWER-CASE, 4 JUSTIFY
  std::string col_name;  // fld_col_name (16 characters, blank padded; empty when none)
};

// Width of a dictionary column name.
inline constexpr size_t kDictColumnNameLength = 16;

class Dictionaries {
 public:
  virtual ~Dictionaries() = default;

  // How many dictionaries are open.
  virtual int open_count() const = 0;

  // The field of that name from the first open dictionary that has one (names compared over 30
  // characters), or nothing.
  virtual std::optional<DictField> find_field(std::string_view name) = 0;

  // True when the record of object `obj_id` in dictionary `dictno` holds the dictionary field of
  // that name (whether or not the program has linked the record yet).
  virtual bool record_holds(int dictno, uint16_t obj_id, std::string_view field_name) = 0;
};

// No dictionary is open (the compiler was run without them, or they are not available yet).
class NoDictionaries final : public Dictionaries {
 public:
  int open_count() const override { return 0; }
  std::optional<DictField> find_field(std::string_view) override { return std::nullopt; }
  bool record_holds(int, uint16_t, std::string_view) override { return false; }
};

}  // namespace tav
