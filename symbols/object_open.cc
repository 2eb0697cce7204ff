// The clauses of an OPEN statement that concern the object itself: how it is opened, and what
// that tells the end-of-program passes about the object.

#include "symbols/parser_core.h"
#include "symbols/objects.h"
#include "symbols/records.h"

namespace tav {

namespace {

constexpr uint32_t kPermanent = verb("permanent");

struct OpenWord {
  uint32_t word;
  uint16_t flags;
  bool writes;  // marks the object as written (o_attr 0x0100)
};
constexpr OpenWord kOpenWords[] = {
    {verb("lock"), open_flag::lock, false},
    {verb("read_only"), open_flag::read_only, false},
    {verb("local"), open_flag::local, true},
    {verb("temporary"), open_flag::temporary | open_flag::truncate, true},  // also TEMP
    {verb("create"), open_flag::create, true},
    {verb("truncate"), open_flag::truncate, true},
    {verb("append"), open_flag::append, true},
    {verb("private"), open_flag::private_, false},
    {verb("index_on_close"), open_flag::index_on_close, false},
};

char file_type(const OpSpace& ops, uint32_t object) {
  return static_cast<char>(ops.at(object + osym::o_filtype)[0]);
}

}  // namespace

bool open_clause(ParserCore& p, uint32_t object, OpenClauses& clauses) {
  OpSpace& ops = p.ops;
  const uint32_t c = p.cls();
  if (c == kPermanent) {
    if (clauses.flags & open_flag::temporary) p.diag.error(msg::duplicate_incompatible_clause);
    if (file_type(ops, object) == osym::type_memory)
      p.diag.info_text(txt::permanent_ignored_memory, Context::current_token());
    clauses.permanent = true;
    return true;
  }
  const OpenWord* w = nullptr;
  for (const OpenWord& row : kOpenWords)
    if (row.word == c) w = &row;
  if (w == nullptr) return false;

  if (w->flags & open_flag::temporary) {
    if (clauses.permanent || (clauses.flags & (open_flag::create | open_flag::append | open_flag::read_only)))
      p.diag.error(msg::duplicate_incompatible_clause);
  }
  if (w->flags == open_flag::lock) {
    ops.put16(object + osym::o_attr, ops.get16(object + osym::o_attr) | osym::attr_open_lock);
    const char type = file_type(ops, object);
    if (type != osym::type_indexed && type != osym::type_memory && type != osym::type_sequential)
      p.diag.warning(msg::i_o_operation_invalid_object);
  }
  if (w->writes) ops.put16(object + osym::o_attr, ops.get16(object + osym::o_attr) | osym::attr_open_write);
  clauses.flags |= w->flags;
  return true;
}

void finish_open_clauses(ParserCore& p, uint32_t object, OpenClauses& clauses) {
  const OpSpace& ops = p.ops;
  const uint16_t f = clauses.flags;
  if ((f & open_flag::private_) && !(f & (open_flag::truncate | open_flag::create)))
    p.diag.error(msg::duplicate_incompatible_clause);
  if ((f & open_flag::truncate) && !(f & open_flag::temporary) && !clauses.permanent &&
      file_type(ops, object) != osym::type_memory) {
    const std::string_view name = ops.text_at(ops.get24(object + osym::o_name));
    if (clauses.file) {
      clauses.flags |= open_flag::temporary;
      p.diag.info_text(txt::temporary_assumed_truncate, name);
    } else {
      p.diag.info_text(txt::permanent_assumed_truncate, name);
    }
  }
}

}  // namespace tav
