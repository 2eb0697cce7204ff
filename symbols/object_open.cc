// The clauses of an OPEN statement that concern the object itself: how it is opened, and what
// that tells the end-of-program passes about the object.

#include "symbols/clauses.h"
#include "symbols/parser_core.h"
#include "symbols/objects.h"
#include "symbols/records.h"

namespace tav {

namespace {

char file_type(const OpSpace& ops, uint32_t object) {
  return static_cast<char>(ops.at(object + osym::o_filtype)[0]);
}

struct OpenWord {
  ParserCore& p;
  uint32_t object;
  OpenClauses& clauses;
};

ClauseStep permanent(OpenWord& w) {
  if (file_type(w.p.ops, w.object) == osym::type_memory)
    w.p.diag.info_text(txt::permanent_ignored_memory, Context::current_token());
  w.clauses.permanent = true;
  return ClauseStep::next;
}

// A clause that sets open flags; `Writes` marks the object as written.
template <uint16_t Flags, bool Writes>
ClauseStep open_flags(OpenWord& w) {
  OpSpace& ops = w.p.ops;
  if (Writes) ops.put16(w.object + osym::o_attr, ops.get16(w.object + osym::o_attr) | osym::attr_open_write);
  w.clauses.flags |= Flags;
  return ClauseStep::next;
}

// LOCK: only indexed, memory and sequential files can be locked.
ClauseStep lock(OpenWord& w) {
  OpSpace& ops = w.p.ops;
  ops.put16(w.object + osym::o_attr, ops.get16(w.object + osym::o_attr) | osym::attr_open_lock);
  const char type = file_type(ops, w.object);
  if (type != osym::type_indexed && type != osym::type_memory && type != osym::type_sequential)
    w.p.diag.warning(msg::i_o_operation_invalid_object);
  return open_flags<open_flag::lock, false>(w);
}

constexpr uint32_t kTemporary = verb("temporary");  // also TEMP

constexpr ClauseRow<OpenWord> kOpenClauses[] = {
    {verb("permanent"), Given::repeatable, {kTemporary}, permanent},
    {verb("lock"), Given::repeatable, {}, lock},
    {verb("read_only"), Given::repeatable, {}, open_flags<open_flag::read_only, false>},
    {verb("local"), Given::repeatable, {}, open_flags<open_flag::local, true>},
    {kTemporary, Given::repeatable, {verb("permanent"), verb("create"), verb("append"), verb("read_only")},
     open_flags<open_flag::temporary | open_flag::truncate, true>},
    {verb("create"), Given::repeatable, {}, open_flags<open_flag::create, true>},
    {verb("truncate"), Given::repeatable, {}, open_flags<open_flag::truncate, true>},
    {verb("append"), Given::repeatable, {}, open_flags<open_flag::append, true>},
    {verb("private"), Given::repeatable, {}, open_flags<open_flag::private_, false>},
    {verb("index_on_close"), Given::repeatable, {}, open_flags<open_flag::index_on_close, false>},
};

}  // namespace

bool open_clause(ParserCore& p, uint32_t object, OpenClauses& clauses) {
  OpenWord w{p, object, clauses};
  ClauseStep step = ClauseStep::next;
  return apply_clause(p, std::span<const ClauseRow<OpenWord>>(kOpenClauses), w, clauses.seen, step) != nullptr;
}

void finish_open_clauses(ParserCore& p, uint32_t object, OpenClauses& clauses) {
  const OpSpace& ops = p.ops;
  const uint16_t f = clauses.flags;
  if ((f & open_flag::private_) && !(f & (open_flag::truncate | open_flag::create)))
    p.diag.error(msg::duplicate_incompatible_clause);
  if ((f & open_flag::truncate) && !(f & open_flag::temporary) && !clauses.permanent &&
      file_type(ops, object) != osym::type_memory) {
    const std::string_view name = ops.text_at(ops.get24(object + osym::o_name));
    const Context at = Context::at_line(name, clauses.line);
    if (clauses.file) {
      clauses.flags |= open_flag::temporary;
      p.diag.info_text(txt::temporary_assumed_truncate, at);
    } else {
      p.diag.info_text(txt::permanent_assumed_truncate, at);
    }
  }
}

}  // namespace tav
