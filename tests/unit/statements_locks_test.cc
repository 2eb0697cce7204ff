// Lock states of indexed records across blocks: what a branch changes reaches the code after it
// as "possibly not locked", and paths that end do not count.

#include <gtest/gtest.h>

#include "statements/locks.h"
#include "symbols/records.h"
#include "tests/unit/compiler_fixture.h"

namespace tav {
namespace {

struct Locks : testing::Test, tavtest::CompilerFixture {
  LockFrames f;
  uint32_t indexed = object(osym::type_indexed), sequential = object(osym::type_sequential);

  uint32_t object(char type) {
    uint32_t o = ops.alloc(osym::size);
    ops.at(o + osym::o_filtype)[0] = static_cast<uint8_t>(type);
    return o;
  }
};

TEST_F(Locks, OnlyIndexedObjectsAreTracked) {
  EXPECT_EQ(f.record(ops, sequential, false), LockFrames::kLocked);
  EXPECT_FALSE(f.not_locked(ops, sequential));
  EXPECT_EQ(f.record(ops, indexed, false), LockFrames::kLocked) << "new entry";
  EXPECT_EQ(f.record(ops, indexed, true), LockFrames::kNotLocked) << "previous state";
  EXPECT_FALSE(f.not_locked(ops, indexed));
}

TEST_F(Locks, BranchesFoldIntoTheEnclosingFrame) {
  struct Case {
    bool outer_locked;  // state before the IF
    bool inner_locked;  // what the branch reads
    bool path_ends;     // the branch ends with EXIT or BREAK
    bool not_locked;    // UPDATE after the IF warns
  };
  const Case cases[] = {
      {true, false, false, true},   // read without LOCK in one branch
      {true, true, false, false},   // locked on both paths
      {true, false, true, false},   // the unlocked path never reaches the UPDATE
      {false, true, false, true},   // unlocked before and on the fall-through path
  };
  for (const Case& c : cases) {
    LockFrames frames;
    frames.record(ops, indexed, c.outer_locked);
    frames.open();
    frames.record(ops, indexed, c.inner_locked);
    if (c.path_ends) frames.settle_path_end();
    frames.close();
    frames.settle_branches();
    EXPECT_EQ(frames.not_locked(ops, indexed), c.not_locked)
        << c.outer_locked << c.inner_locked << c.path_ends;
    EXPECT_EQ(frames.depth(), 1u);
  }
}

TEST_F(Locks, ResetUnlocksEverythingIncludingUnnamedObjects) {
  f.record(ops, indexed, true);
  f.open();
  f.reset_all();
  EXPECT_TRUE(f.not_locked(ops, indexed));
  uint32_t other = object(osym::type_indexed);
  EXPECT_TRUE(f.not_locked(ops, other)) << "the default state answers for objects not named";
  f.close();
  f.close();  // the outermost frame stays
  EXPECT_EQ(f.depth(), 1u);
}

}  // namespace
}  // namespace tav
