// Lock states of indexed records while a section is compiled.
//
// A record read with LOCK may be updated safely; one read without it may not. The compiler keeps,
// per open block (an IF or SWITCH branch, a loop body, an EXTRACT part, an ON ERROR block), a
// frame that records for each indexed object whether its current record is locked (1), not
// locked (0) or possibly not locked (-1), so that UPDATE and DELETE can warn about a record that
// may not be locked. A frame's
// default state answers for the objects it does not name. Closing a frame folds what its block
// changed into the enclosing frame as "possibly not locked", since the block may not have run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace tav {

class OpSpace;

class LockFrames {
 public:
  static constexpr int kLocked = 1;
  static constexpr int kNotLocked = 0;
  static constexpr int kMaybeNotLocked = -1;

  LockFrames() { frames_.emplace_back(); }

  // A block begins: a new innermost frame with default "locked" and no entries.
  void open();
  // A block ends: its frame is folded into the enclosing one. The outermost frame stays.
  void close();
  // Records the lock state of an object's current record in the innermost frame and returns the
  // state it had there before (locked for an object the frame did not name yet). Only indexed
  // objects take part; for any other the call does nothing and returns "locked".
  int record(const OpSpace& ops, uint32_t object, bool locked);
  // Every record is unlocked (after CALL, CLOSE ALL, UNLOCK ALL and transactions).
  void reset_all();
  // The path through the innermost block ends here (EXIT, BREAK, CONTINUE): what it did to the
  // lock states never reaches the code after the block.
  void settle_path_end();
  // At the end of an IF or SWITCH: a record possibly not locked counts as not locked.
  void settle_branches();
  // Whether the object's current record may not be locked (UPDATE and DELETE of indexed objects).
  bool not_locked(const OpSpace& ops, uint32_t object) const;

  size_t depth() const { return frames_.size(); }
  // The state the innermost frame holds for an object, or its default when it names none.
  int state(uint32_t object) const;

 private:
  struct Frame {
    int default_state = kLocked;
    std::vector<std::pair<uint32_t, int>> entries;  // {object_sym, state}
    std::pair<uint32_t, int>* find(uint32_t object);
    const std::pair<uint32_t, int>* find(uint32_t object) const;
  };
  static bool indexed(const OpSpace& ops, uint32_t object);

  std::vector<Frame> frames_;
};

}  // namespace tav
