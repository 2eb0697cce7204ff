// The key optimiser of a compiled select: it reads the WHERE condition of a select and records,
// per select field entry, the entries the condition equates to it (its join ring) and the key
// ranges that bound it (a disjunction of conjunctions of bounds), where the runtime reads them
// to fetch records by key instead of scanning the file.
#pragma once

#include <cstdint>

namespace tav {

class ParserCore;

// Both passes take a select field entry (selfield record) and the head of the select's WHERE
// condition op list (0 = none). The select compiler runs the join pass for every referenced,
// non-host entry of the field list, in list order, and then the range pass for the same entries.
void join_pass(ParserCore& p, uint32_t entry, uint32_t where);
void range_pass(ParserCore& p, uint32_t entry, uint32_t where);

}  // namespace tav
