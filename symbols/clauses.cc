#include "symbols/clauses.h"

namespace tav {

ClauseStep skip_invalid_clause(ParserCore& p) {
  p.diag.error(msg::invalid_clause);
  p.tok.skip_to_clause();
  if (p.at_statement_start()) return ClauseStep::done;
  p.accept();
  return ClauseStep::next;
}

ClauseStep resume_at_next_clause(ParserCore& p) {
  p.diag.error(msg::invalid_clause);
  p.tok.skip_to_clause();
  return ClauseStep::next;
}

}  // namespace tav
