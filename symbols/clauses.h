// Clause tables: how every clause-rich statement and definition reads its clauses.
//
// A statement lists its clauses as a constexpr array of rows, one per clause word: whether the
// clause may be given only once, the clauses it cannot follow, and the handler that reads the
// rest of the clause into the statement's state. The reader takes the words one by one, finds
// the row, reports a clause given twice or after one it excludes ("Duplicate or incompatible
// clause") and runs the handler; a word no row opens goes to the statement's own handler for
// other words (a mode name in a DO, the next field name of a FIELD statement, or an invalid
// clause). Reading ends at the start of the next statement, which stays held for it.
//
// Exclusion is one-way: a row's excludes are the clauses that may not come before it. Two
// clauses that exclude each other name each other. A conflict that depends on a clause's value
// rather than on its presence (a TYPE whose format clashes with a PICTURE) stays with the
// handler that reads the value, and so does a second report of its own.
//
// A table shared by several statements (COMMAND, CALL and QUERY) marks the clauses that belong to
// only some of them with a validity test on the state: elsewhere the clause is reported like one
// given twice, in the same single message, and still read. A clause word that also starts a
// statement (PAUSE) is taken as the clause only where its row is valid; elsewhere it ends the
// clauses and stays held for its own statement.
//
//   struct Confirm { Parser& p; uint32_t block; uint16_t flags = 0; };
//   constexpr ClauseRow<Confirm> kConfirmClauses[] = {
//       {verb("when"), Given::once, {}, read_when},
//       {verb("auto"), Given::repeatable, {verb("@"), verb("prompt")}, read_auto},
//   };
//   read_clauses(p, kConfirmClauses, confirm, skip_invalid_clause);
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>
#include <vector>

#include "symbols/parser_core.h"

namespace tav {

// What a clause handler tells the reader: read on, or stop (the statement was skipped after an
// error, or the word read belongs to what follows the clauses).
enum class ClauseStep : bool { next, done };

enum class Given : bool { repeatable, once };

inline constexpr size_t kMaxExcludes = 6;

template <class State>
struct ClauseRow {
  uint32_t word;                                   // verb code of the clause word
  Given given;
  std::array<uint32_t, kMaxExcludes> excludes;     // clause words that may not come before it
  ClauseStep (*read)(State&);                      // entered with the clause word current
  bool (*valid)(const State&) = nullptr;           // the statements it belongs to; null: all
};

// The clauses read so far, by row.
class ClausesSeen {
 public:
  bool has(size_t row) const { return (bits_ >> row) & 1u; }
  void add(size_t row) { bits_ |= uint64_t{1} << row; }

 private:
  uint64_t bits_ = 0;
};

namespace clause_detail {

template <class State>
const ClauseRow<State>* find(std::span<const ClauseRow<State>> rows, uint32_t word) {
  for (const ClauseRow<State>& row : rows)
    if (row.word == word) return &row;
  return nullptr;
}

template <class State>
bool valid(const ClauseRow<State>& row, const State& state) {
  return row.valid == nullptr || row.valid(state);
}

template <class State>
bool conflicts(std::span<const ClauseRow<State>> rows, const ClauseRow<State>& row, const State& state,
               const ClausesSeen& seen) {
  if (!valid(row, state)) return true;
  if (row.given == Given::once && seen.has(static_cast<size_t>(&row - rows.data()))) return true;
  for (uint32_t word : row.excludes) {
    if (word == 0) break;
    const ClauseRow<State>* other = find(rows, word);
    if (other && seen.has(static_cast<size_t>(other - rows.data()))) return true;
  }
  return false;
}

}  // namespace clause_detail

// Applies the clause the current token opens: the given-twice and exclusion checks, then its
// handler. Returns nullptr (the token left alone) when no row opens it; otherwise the handler's
// answer in `step`.
template <class State>
const ClauseRow<State>* apply_clause(ParserCore& p, std::span<const ClauseRow<State>> rows, State& state,
                                     ClausesSeen& seen, ClauseStep& step) {
  const ClauseRow<State>* row = clause_detail::find(rows, p.cls());
  if (row == nullptr) return nullptr;
  if (clause_detail::conflicts(rows, *row, state, seen)) p.diag.error(msg::duplicate_incompatible_clause);
  seen.add(static_cast<size_t>(row - rows.data()));
  step = row->read(state);
  return row;
}

// For the cross reference: the clause words this statement offers, where its clauses begin.
template <class State>
void note_clause_words(ParserCore& p, std::span<const ClauseRow<State>> rows, const State& state) {
  if (!p.syms.keeps_xref()) return;
  std::vector<uint32_t> words;
  for (const ClauseRow<State>& row : rows)
    if (clause_detail::valid(row, state)) words.push_back(row.word);
  p.syms.xref().add_clauses({p.diag.current_mark(), std::move(words)});
}

// Reads clauses up to the start of the next statement (left held), or until a handler stops.
// `other` takes a word no row opens. Returns what was seen, for checks after the last clause.
template <class State>
ClausesSeen read_clauses(ParserCore& p, std::span<const ClauseRow<State>> rows, State& state,
                         std::type_identity_t<ClauseStep (*)(State&)> other) {
  note_clause_words(p, rows, state);
  ClausesSeen seen;
  for (;;) {
    p.next();
    if (p.at_statement_start()) {
      const ClauseRow<State>* row = clause_detail::find(rows, p.cls());
      if (row == nullptr || !clause_detail::valid(*row, state)) return seen;
      p.accept();  // a statement word read as this statement's clause
    }
    ClauseStep step = ClauseStep::next;
    if (apply_clause(p, rows, state, seen, step) == nullptr) step = other(state);
    if (step == ClauseStep::done) return seen;
  }
}

// The same, over a constexpr array of rows.
template <class State, size_t N>
ClausesSeen read_clauses(ParserCore& p, const ClauseRow<State> (&rows)[N], State& state,
                         std::type_identity_t<ClauseStep (*)(State&)> other) {
  static_assert(N <= 64, "a clause table has at most 64 rows");
  return read_clauses(p, std::span<const ClauseRow<State>>(rows), state, other);
}

// The usual answer to an unknown clause: "Invalid clause", and the words up to the next clause
// word or statement are passed over together with that clause word. Done when the statement ends
// there.
ClauseStep skip_invalid_clause(ParserCore& p);

// "Invalid clause", and reading goes on at the next clause word or statement.
ClauseStep resume_at_next_clause(ParserCore& p);

}  // namespace tav
