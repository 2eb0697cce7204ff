// Blocks: the statement lists inside a construct, and the parser state a construct holds while it
// is open.
//
// Every construct enters a block scope when it opens and leaves it when it closes, also when its
// closing verb is missing, so that one missing END-IF does not disturb the rest of the file. The
// scope raises the depth counters the statements inside consult, opens the lock-state frame of a
// branch and puts the ACCEPT chain back, and lowers, folds and restores them again on leaving; no
// construct touches them by hand.
#pragma once

#include <cstdint>
#include <initializer_list>

namespace tav {

class Parser;

// How deeply statement lists may nest (each IF, loop, SWITCH, CASE and block is one level).
inline constexpr int kMaxNesting = 256;

// Compiles statements into the current op list until one of `stops` or the start of a section
// (the end of input is one) is read. That token is left to be read again and its class returned,
// so that the caller can take its closing verb or report it missing.
uint32_t compile_statements_until(Parser& p, std::initializer_list<uint32_t> stops);

class BlockScope {
 public:
  // What a block holds while it is open; combine as needed.
  enum Holds : unsigned {
    conditional = 1u << 0,   // cond_depth: no CONFIRM or OPTION inside
    loop = 1u << 1,          // loop_depth: BREAK, CONTINUE and CONTINUE-ENTRY are valid inside
    extract = 1u << 2,       // extract_depth: RE-ENTER cannot leave it
    lock_frame = 1u << 3,    // a lock-state frame, folded into the enclosing one on leaving
    accepts = 1u << 4,       // the ACCEPT chain as it was on entering is put back on leaving
    reopens_path = 1u << 5,  // the path is open again after the block (an EXIT inside ends
                             // only the block's own path)
  };
  // A branch of IF or SWITCH: it may not run, it does not see the ACCEPTs of another branch, and
  // the code after it is reached through the other branches.
  static constexpr unsigned branch = lock_frame | accepts | reopens_path;

  BlockScope(Parser& p, unsigned holds);
  ~BlockScope();
  BlockScope(const BlockScope&) = delete;
  BlockScope& operator=(const BlockScope&) = delete;

 private:
  Parser& p_;
  unsigned holds_;
  uint32_t accept_chain_;
};

}  // namespace tav
