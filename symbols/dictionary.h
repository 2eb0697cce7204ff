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
#include <vector>

namespace tav {

// A dict_field row: the description of a field in a dictionary.
struct DictField {
  int16_t dictno = -1;   // the dictionary that holds it (0, 1 or 2)
  std::string name;      // fld_name, without trailing blanks
  uint16_t id = 0;       // fld_id
  uint16_t size = 0;     // fld_size: bytes of one occurrence
  uint16_t desc = 0;     // fld_desc: the format word
  char type = 0;         // fld_type: the type letter
  uint16_t occurs = 0;   // fld_occurs
  uint16_t flags = 0;    // fld_flags: 1 UPPER-CASE, 2 LOWER-CASE, 4 JUSTIFY
  std::string col_name;  // fld_col_name (16 characters, blank padded; empty when none)
};

// Width of a dictionary column name.
inline constexpr size_t kDictColumnNameLength = 16;

// A dict_object row.
struct DictObject {
  int16_t dictno = -1;     // the dictionary that holds it
  uint16_t id = 0;         // obj_id
  uint16_t recsize = 0;    // obj_recsize
  std::string file;        // obj_file (trailing blanks removed)
  char type = 0;           // obj_type
  char version = 0;        // obj_version
  char separator = 0;      // obj_sep
  char filler1 = 0;        // obj_filler1
};

// A dict_key row: one index of an object.
struct DictKey {
  uint16_t index_no = 0;
  uint16_t flags = 0;            // key_flags: 1 duplicates allowed, 2 database-only, 4 compressed
  uint16_t num_fields = 0;
  uint16_t field_ids[8] = {};    // k_fld_id
  bool descending[8] = {};       // k_desc_flag "Y"
};
inline constexpr uint16_t kDictKeyDuplicates = 0x0001;
inline constexpr uint16_t kDictKeyDbOnly = 0x0002;
inline constexpr uint16_t kDictKeyCompressed = 0x0004;

// A dict_record row: a field of an object's record and where it lies.
struct DictRecordEntry {
  uint16_t field_id = 0;
  uint16_t offset = 0;
};

// Kinds of documentation lines (doc_type).
inline constexpr int kDocObject = 1;
inline constexpr int kDocField = 2;
inline constexpr int kDocValidation = 3;
inline constexpr int kDocColumnTitle = 4;
inline constexpr int kDocDrillBack = 5;

class Dictionaries {
 public:
  virtual ~Dictionaries() = default;

  // How many dictionaries are open.
  virtual int open_count() const = 0;

  // The field of that name from the first open dictionary that has one (names compared over 30
  // characters), or nothing.
  virtual std::optional<DictField> find_field(std::string_view name) = 0;
  // The same from dictionary `dictno` only, and the field of an id there.
  virtual std::optional<DictField> find_field_in(int dictno, std::string_view name) = 0;
  virtual std::optional<DictField> field_by_id(int dictno, uint16_t id) = 0;

  // The object of that name from the first open dictionary that has one.
  virtual std::optional<DictObject> find_object(std::string_view name) = 0;

  // Index `index_no` of an object, or nothing.
  virtual std::optional<DictKey> key(int dictno, uint16_t obj_id, uint16_t index_no) = 0;
  // The fields of an object's record in offset order.
  virtual std::vector<DictRecordEntry> record(int dictno, uint16_t obj_id) = 0;
  // True when the record of the object holds the field of that id.
  virtual bool record_has(int dictno, uint16_t obj_id, uint16_t field_id) = 0;

  // True when the record of object `obj_id` in dictionary `dictno` holds the dictionary field of
  // that name (whether or not the program has linked the record yet).
  virtual bool record_holds(int dictno, uint16_t obj_id, std::string_view field_name) = 0;

  // Line `line_no` of a documentation text (doc_type, doc_id), without trailing blanks; empty
  // when there is none.
  virtual std::string documentation(int dictno, int type, uint16_t id, uint16_t line_no) = 0;

  // The lines of a documentation text (doc_type, doc_id) from line 1 on, in key order, each
  // without trailing blanks (gaps in the line numbers are passed over); empty when there is none.
  virtual std::vector<std::string> documentation_text(int dictno, int type, uint16_t id) = 0;

  // The names of the objects (the fields) of every open dictionary, each once, in name order:
  // for suggestions and completion. They read whole tables, so they are asked only when a
  // name was not found and someone will read the answer.
  virtual std::vector<std::string> object_names() = 0;
  virtual std::vector<std::string> field_names() = 0;
};

// No dictionary is open (the compiler was run without them, or they are not available yet).
class NoDictionaries : public Dictionaries {
 public:
  int open_count() const override { return 0; }
  std::optional<DictField> find_field(std::string_view) override { return std::nullopt; }
  std::optional<DictField> find_field_in(int, std::string_view) override { return std::nullopt; }
  std::optional<DictField> field_by_id(int, uint16_t) override { return std::nullopt; }
  std::optional<DictObject> find_object(std::string_view) override { return std::nullopt; }
  std::optional<DictKey> key(int, uint16_t, uint16_t) override { return std::nullopt; }
  std::vector<DictRecordEntry> record(int, uint16_t) override { return {}; }
  bool record_has(int, uint16_t, uint16_t) override { return false; }
  bool record_holds(int, uint16_t, std::string_view) override { return false; }
  std::string documentation(int, int, uint16_t, uint16_t) override { return {}; }
  std::vector<std::string> documentation_text(int, int, uint16_t) override { return {}; }
  std::vector<std::string> object_names() override { return {}; }
  std::vector<std::string> field_names() override { return {}; }
};

}  // namespace tav
