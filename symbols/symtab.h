// The symbol table: creation and lookup of the field, object and section records of one program.
//
// The records themselves live in the op space (symbols/records.h); this class holds only the
// per-program state that is not written to the file: the field cache, the tail pointers of the
// global field and object lists, and the current section. Call reset() once per program, after
// the optable_header has been allocated at offset 0 of the op space.
//
// Field lookup goes (1) through the local fields of the current section, (2) through the field
// cache by binary search, and (3) only when the cache is full, through the global field list,
// which a hash index by name answers in constant time with the first field of that name.
// The cache holds at most ten entries {hit count, field} in ascending name order; as long as it
// is not full it holds every global field, so a miss there means the field is unknown. When a
// field has to enter a full cache, the entry with the fewest hits (the first in name order among
// equals) makes room for it. Local fields never enter the cache.
//
// Names are compared over their first 30 characters: two names that agree that far are the
// same symbol. Sections are found through a hash index too, and each section's predecessor in
// the list is kept, so that placing a section does not walk the list from its head.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "diag/diag.h"
#include "symbols/records.h"
#include "symbols/xref.h"

namespace tav {

class OpSpace;

// Symbols of one list by name: an open-addressed hash table of record offsets, each record
// holding a 24-bit link to its NUL-terminated name at `name_member`. Keeps the first record
// added under a name.
class NameIndex {
 public:
  explicit NameIndex(uint32_t name_member) : name_member_(name_member) {}
  void clear();
  uint32_t find(const OpSpace& ops, std::string_view name) const;
  void add(const OpSpace& ops, uint32_t record);

 private:
  static uint32_t hash(std::string_view name);
  void grow(const OpSpace& ops);

  uint32_t name_member_;
  std::vector<uint32_t> slots_;  // record offsets, 0 for an empty slot
  size_t count_ = 0;
};

class SymbolTable {
 public:
  static constexpr int kCacheSize = 10;

  struct CacheEntry {
    uint16_t hits = 0;   // 16-bit like the count it models; it wraps
    uint32_t field = 0;  // field_sym
  };

  explicit SymbolTable(OpSpace& ops, bool debug_ops = false);
  SymbolTable(const SymbolTable&) = delete;
  SymbolTable& operator=(const SymbolTable&) = delete;

  // With the debug-ops flag (-d) the section list is kept in name order.
  void set_debug_ops(bool on) { debug_ops_ = on; }
  bool debug_ops() const { return debug_ops_; }

  // Per program: empty cache, no list tails, no current section. The list heads and counters
  // live in the optable_header, which the caller has just allocated zero-filled.
  void reset();

  // --- Names -----------------------------------------------------------------------------------

  // Compares a stored NUL-terminated name with `name` over 30 characters, like strncmp.
  static int compare_names(const char* stored, std::string_view name);
  // The text a 24-bit name link points to ("" for link 0).
  std::string_view text(uint32_t link) const;

  // --- Fields ----------------------------------------------------------------------------------

  // Allocates a field_sym with a copy of the name (cut to 30 characters), the next f_seq from the
  // header's field counter, f_dictno and f_ldictno -1 (f_dictno -2 when local) and f_fldid
  // 0xFFFF. The field is linked into no list: see add_global_field, append_field and
  // link_local_field.
  uint32_t new_field(std::string_view name, bool local = false);
  // Appends a field to the global list headed by h_fields.
  void append_field(uint32_t field);
  // A new global field: new_field, append_field and enter_field_into_cache.
  uint32_t add_global_field(std::string_view name);
  // Puts a local field at the head of a section's local field list.
  void link_local_field(uint32_t section, uint32_t field);

  // Finds a field by name as described above; returns the field_sym or 0. A cache hit counts
  // one hit; a field found in the global list enters the cache.
  uint32_t find_field(std::string_view name);
  // The field of that name in a section's local list, or 0.
  uint32_t find_local_field(uint32_t section, std::string_view name) const;
  // Enters a global field into the cache with one hit, making room when it is full. The position
  // is the one the last unsuccessful lookup of the name stopped at (recomputed when the last
  // lookup was for another name).
  void enter_field_into_cache(uint32_t field);

  // The cache, in name order (for listings and tests).
  std::span<const CacheEntry> cache() const { return {cache_, static_cast<size_t>(cache_count_)}; }

  // --- Objects ---------------------------------------------------------------------------------

  // The object_sym of that name, walking h_objects in order, or 0.
  uint32_t find_object(std::string_view name) const;
  // Allocates an object_sym with a copy of the name, the next o_seq from the header's object
  // counter and the given o_dictno, and appends it to the list headed by h_objects.
  uint32_t add_object(std::string_view name, int16_t dictno = osym::dictno_program);

  // --- Sections --------------------------------------------------------------------------------

  // Returns the screen_sym of that name, creating it when absent. `defining` is set for a
  // section header and clear for a reference (DO and the like). The list keeps the defined
  // sections first, in definition order, then the sections only referenced so far: a new
  // section being defined goes after the last defined one met on the way, a referenced one at
  // the end, and a section referenced earlier is moved behind the last defined section before
  // it when it is defined. A reference sets the referenced flag. With the debug-ops flag the
  // list is kept in name order instead and nothing is moved. A new section takes the next
  // sequence number from the header's screen counter and, when only referenced, has the
  // referenced flag.
  uint32_t find_or_declare_section(std::string_view name, bool defining);
  // The section of that name, or 0; changes nothing.
  uint32_t find_section(std::string_view name) const;

  // The section being compiled (0: none); its local fields are searched first.
  void set_current_section(uint32_t section) { current_section_ = section; }
  uint32_t current_section() const { return current_section_; }

  OpSpace& ops() { return ops_; }

  // --- Places ------------------------------------------------------------------------------------
  // Where fields, objects and sections were defined and first used, for the places and notes of
  // the diagnostics model: the current token's place is kept when a record is made or a section
  // named, and only while `diag` collects.
  void set_places(const Diagnostics* diag) { places_diag_ = diag; }
  SourceMark defined_at(uint32_t record) const;
  SourceMark first_used_at(uint32_t record) const;
  void note_defined(uint32_t record);
  void note_used(uint32_t record);
  void note_used(uint32_t record, SourceMark where);  // used at an earlier place

  // The cross reference: `name`, the word just read, defines or names `record`. Kept only when
  // asked for (tavcmp --xref, the language server) and while the places are.
  void note_name(XrefKind kind, uint32_t record, std::string_view name, bool definition = false);
  void set_keep_xref(bool on) { keep_xref_ = on; }
  bool keeps_xref() const { return keep_xref_ && places_diag_ && places_diag_->collecting(); }
  CrossReference& xref() { return xref_; }
  const CrossReference& xref() const { return xref_; }

 private:
  uint32_t store_name(std::string_view name);
  int cache_search(std::string_view name, bool& found) const;
  uint32_t declare_section(std::string_view name, bool defining);
  uint32_t declare_section_in_name_order(std::string_view name, bool defining);
  uint32_t last_defined_from(uint32_t section) const;
  void link_section_after(uint32_t after, uint32_t section);
  void unlink_section(uint32_t section);

  OpSpace& ops_;
  bool debug_ops_;
  CacheEntry cache_[kCacheSize]{};
  int cache_count_ = 0;
  int insertion_point_ = 0;
  uint32_t field_tail_ = 0;
  uint32_t object_tail_ = 0;
  uint32_t current_section_ = 0;
  NameIndex field_index_;    // the global field list
  NameIndex section_index_;  // the section list
  std::unordered_map<uint32_t, uint32_t> section_prev_;  // section -> the one before it (0: head)
  uint32_t section_tail_ = 0;
  const Diagnostics* places_diag_ = nullptr;
  std::unordered_map<uint32_t, SourceMark> defined_at_;
  std::unordered_map<uint32_t, SourceMark> first_used_at_;
  CrossReference xref_;
  bool keep_xref_ = false;
};

}  // namespace tav
