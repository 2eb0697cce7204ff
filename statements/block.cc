#include "statements/block.h"

#include "statements/parser.h"
#include "statements/program.h"

namespace tav {

uint32_t compile_statements_until(Parser& p, std::initializer_list<uint32_t> stops) {
  // Every nested block is compiled one call deeper: a fixed limit keeps a hostile program from
  // exhausting the stack.
  if (p.nesting >= kMaxNesting) p.diag.fatal_text(txt::nesting_too_deep, Context::current_token());
  struct Nested {
    Parser& p;
    explicit Nested(Parser& parser) : p(parser) { ++p.nesting; }
    ~Nested() { --p.nesting; }
  } nested(p);
  for (;;) {
    const uint32_t c = p.next();
    bool stop = (c & kSectionStart) != 0;
    for (uint32_t s : stops) stop = stop || c == s;
    if (stop) {
      p.push_back();
      return c;
    }
    compile_statement(p);
  }
}

BlockScope::BlockScope(Parser& p, unsigned holds) : p_(p), holds_(holds), accept_chain_(p.accept_chain) {
  if (holds & conditional) ++p.cond_depth;
  if (holds & loop) ++p.loop_depth;
  if (holds & extract) ++p.extract_depth;
  if (holds & lock_frame) p.locks.open();
}

BlockScope::~BlockScope() {
  if (holds_ & conditional) --p_.cond_depth;
  if (holds_ & loop) --p_.loop_depth;
  if (holds_ & extract) --p_.extract_depth;
  if (holds_ & lock_frame) p_.locks.close();
  if (holds_ & accepts) p_.accept_chain = accept_chain_;
  if (holds_ & reopens_path) p_.path_ended = false;
}

}  // namespace tav
