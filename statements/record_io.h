// The pieces the record access statements share: the object a statement names, its field
// lists, the ON ERROR block, and the record I/O block (the access key block) with the clauses
// that fill it: KEY, ON INDEX, NEXT / PREV with SAME / DIFFERENT, and the checks after the last
// clause.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "codegen/ops.h"
#include "diag/diagnostic.h"
#include "symbols/clauses.h"

namespace tav {

class Parser;

// Emits the statement marker (debug compiles) and the statement's op.
uint32_t emit_record_op(Parser& p, uint32_t verb_code, Op opcode);

char file_type(const Parser& p, uint32_t object);
// Error 50 unless the object's file type is one of `letters`; false after reporting.
bool require_file_type(Parser& p, uint32_t object, const char* letters);
void add_object_attr(Parser& p, uint32_t object, uint16_t bits);
std::string object_name(const Parser& p, uint32_t object);

// The object named by the next token (found or loaded); error 11 when no name follows. 0 after
// an error, the statement skipped.
uint32_t read_object(Parser& p);

// What leads a statement that names an object or some of its fields:
//   object | * joiner object | field, ... joiner object
struct ObjectHead {
  uint32_t object = 0;
  uint32_t fields = 0;   // field_list entries of the listed form
  bool star = false;     // * joiner object
  bool listed = false;   // field, ... joiner object
};
// False after an error (the statement skipped).
bool read_object_head(Parser& p, uint32_t joiner, ObjectHead& head);

// Field names up to the next token that is not a name, as field_list entries; each must be in
// the object (error 81 with its name).
uint32_t read_field_list(Parser& p, uint32_t object);
uint32_t field_list_of(Parser& p, uint32_t object, const std::vector<std::string>& names);

// The ON ERROR block, entered with ERROR read: its statements, an optional ELSE part, up to END
// or END-ON. `target` is the statement op's skip target (bytes 9-11).
void compile_on_error(Parser& p, uint32_t target, bool else_allowed = true);
// ON after a statement whose only ON clause is ON ERROR: the block, or error 0.
ClauseStep on_error_clause(Parser& p, uint32_t target);

// ---- Record I/O block ---------------------------------------------------------------------

struct RecordIo {
  enum Kind { get, extract, position };
  Parser& p;
  Kind kind;
  uint32_t block = 0;             // the record I/O block
  uint32_t object = 0;
  uint32_t on_error = 0;          // where ON ERROR puts its skip target; 0: no ON ERROR
  uint32_t owner = 0;             // the statement's own block holding this one (EXTRACT)
  bool keys = false;              // KEY values given
  bool on_index = false;          // ON INDEX given
  bool no_warning = false;        // NO-WARNING came just before this clause
  bool field_list = false;        // GET field, ... FROM object
  bool finished = false;          // the checks after the last clause have run
  struct Named {
    uint32_t field;
    std::string name;  // as written, with the line it was written on
    int line;
  };
  std::vector<Named> same_fields = {};
  SourceMark named_at = {};       // the object's name, for the cross reference
  void (*finish)(RecordIo&) = nullptr;

  uint16_t flags() const;
  void set(uint16_t bits);
};

// A new block: index 1 and the default-index flag.
uint32_t new_record_io(Parser& p);

// Clause handlers, entered with the clause word current. Each one ends the NO-WARNING of the
// clause before it.
ClauseStep io_key(RecordIo& r);
ClauseStep io_on(RecordIo& r);
ClauseStep io_index(RecordIo& r);
ClauseStep io_next(RecordIo& r);
ClauseStep io_prev(RecordIo& r);
ClauseStep io_lock(RecordIo& r);
// SAME or DIFFERENT (the word current) and its fields, without NEXT or PREV before it.
ClauseStep io_same_different(RecordIo& r);
ClauseStep io_no_warning(RecordIo& r);
ClauseStep io_other(RecordIo& r);

// The SAME / DIFFERENT field check and the NEXT default of objects without keys.
void finish_record_io(RecordIo& r);
// The key record of the object with that index number, or 0.
uint32_t key_record(const Parser& p, uint32_t object, int index);
// Whether the field is one of the first `leading` fields of the key (none when key is 0).
bool leads_key(const Parser& p, uint32_t key, uint32_t field, size_t leading);

}  // namespace tav
