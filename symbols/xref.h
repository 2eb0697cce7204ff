// The program's cross reference: every place a field, object, section, report or mode is defined
// or named, the statement that named it, how each SELECT and GET reads its objects, and where
// each block of statements opens and closes, and the clause words each statement offers. It is
// kept while the places are (the diagnostics collect) and read by the language server and by
// tavcmp --xref; nothing of it goes into the table.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "diag/diagnostic.h"

namespace tav {

enum class XrefKind : uint8_t { field, object, section, report, mode };
std::string_view xref_kind_name(XrefKind kind);

// What a statement does to the objects it names (a column of the statement table).
enum class ObjectAccess : uint8_t { none, reads, writes, uses };
std::string_view object_access_name(ObjectAccess access);

struct XrefName {
  XrefKind kind = XrefKind::field;
  uint32_t record = 0;  // the field_sym, object_sym, screen_sym, report or mode record
  std::string name;     // as the compiler keeps it: lower case
  SourceMark where;     // the word (or its part of "object.field")
  bool definition = false;
  std::string_view statement;  // the keyword of the statement that named it ("" at the top level)
  ObjectAccess access = ObjectAccess::none;
};

// How a SELECT or GET reads one object: the index it reads by (0: none, the file is read from
// end to end) and the fields whose values bound the key.
struct XrefRead {
  uint32_t object = 0;
  std::string_view statement;
  SourceMark where;  // the object's name in the statement
  int index = 0;
  bool explicit_index = false;  // ON INDEX / KEY named it
  std::vector<uint32_t> key_fields;
  std::vector<std::string> ranges;  // the key ranges the optimiser made of the condition, per field
  bool whole_table = false;
};

// A block of statements (IF ... END-IF, a loop, SWITCH): its opening word and its closing word.
struct XrefBlock {
  std::string_view word;
  SourceMark open;
  SourceMark close;
};

// The clause words a statement's clause table offers, noted where its clauses begin (at the word
// read before the first of them).
struct XrefClauses {
  SourceMark at;
  std::vector<uint32_t> words;  // verb codes
};

class CrossReference {
 public:
  void clear();

  void add(XrefName name) { names_.push_back(std::move(name)); }
  // A record made while its name was read from a dictionary: its entry is a use, not a
  // definition in the program.
  void not_defined_here(uint32_t record);
  void add_read(XrefRead read) { reads_.push_back(std::move(read)); }
  void add_block(XrefBlock block) { blocks_.push_back(block); }
  void add_clauses(XrefClauses clauses) { clauses_.push_back(std::move(clauses)); }
  // The key ranges of a select's field entry, as text.
  void set_ranges(uint32_t entry, std::string text) { ranges_[entry] = std::move(text); }
  std::string ranges_of(uint32_t entry) const {
    const auto it = ranges_.find(entry);
    return it == ranges_.end() ? std::string() : it->second;
  }
  // The place of the last entry naming `record`; unknown when there is none.
  SourceMark last_place(uint32_t record) const;

  const std::vector<XrefName>& names() const { return names_; }
  const std::vector<XrefRead>& reads() const { return reads_; }
  const std::vector<XrefBlock>& blocks() const { return blocks_; }
  const std::vector<XrefClauses>& clauses() const { return clauses_; }

  // The statement being compiled, for the entries made while it is.
  void set_statement(std::string_view keyword, ObjectAccess access) {
    statement_ = keyword;
    access_ = access;
  }
  std::string_view statement() const { return statement_; }
  ObjectAccess access() const { return access_; }

 private:
  std::vector<XrefName> names_;
  std::vector<XrefRead> reads_;
  std::vector<XrefBlock> blocks_;
  std::vector<XrefClauses> clauses_;
  std::unordered_map<uint32_t, std::string> ranges_;
  std::string_view statement_;
  ObjectAccess access_ = ObjectAccess::none;
};

}  // namespace tav
