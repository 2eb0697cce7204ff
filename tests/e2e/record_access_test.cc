// The record access statements as tavcmp compiles them: the record I/O block of GET, the
// EXTRACT block with its groups, the ops of the writing and transaction statements, ON ERROR
// blocks with their skip targets, the lock-state warnings, and recovery inside the blocks.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "statements/records.h"
#include "symbols/objects.h"
#include "symbols/records.h"
#include "tests/support/op6.h"
#include "tests/support/support.h"

namespace {

using namespace tav;
using tavtest::Op6;
using tavtest::TempDir;
using Codes = std::vector<Op>;

// An indexed object with a two-field key (region alphanumeric, cno numeric), a sequential one,
// and an indexed one whose key ends in a number.
const char* const kObjects =
    "field cno pic 9(6)\nfield region pic x(4)\nfield cname pic x(30)\nfield other pic x(2)\n"
    "object cust type indexed file \"cust\"\n  record region cno cname end-record\n  key region cno unique\n"
    "object seqf type sequential file \"s\"\n  record cname end-record\n"
    "object numf type indexed file \"n\"\n  record cno cname end-record\n  key cno\n";

tavtest::Compiled run(const std::string& body) {
  TempDir dir;
  return tavtest::compile(dir, std::string(kObjects) + "procedure main\n" + body + "end\n");
}

Op6 body(const std::string& statements) {
  tavtest::Compiled c = run(statements);
  EXPECT_EQ(c.result.status, 0) << statements << c.result.out;
  return c.image;
}

std::string messages(const std::string& statements) { return run(statements).result.out; }

// "line N: SEVERITY  text" in the listing, on one message line; the body starts on line 14.
bool reports(const std::string& out, int line, const std::string& severity, const std::string& text) {
  return out.find("line " + std::to_string(line) + ": " + severity + "  " + text) != std::string::npos;
}

uint32_t block_of(const Op6& t, uint32_t op) { return t.u24(op + recio::rio_block); }

TEST(RecordAccess, GetKeysFillTheRecordIoBlock) {
  Op6 t = body("get cust key \"A\"\nget cust key \"A\" 5 lock\nget seqf\n");
  ASSERT_FALSE(t.empty());
  auto ops = t.list(t.detail());
  ASSERT_EQ(t.codes(t.detail()), (Codes{Op::get, Op::get, Op::get}));
  const uint32_t cust = t.object("cust");

  uint32_t b = block_of(t, ops[0]);
  EXPECT_EQ(t.u24(b + accesskey::a_object), cust);
  EXPECT_EQ(t.u8(b + accesskey::a_key_count), 1u) << "one of two key fields: a partial key";
  EXPECT_EQ(t.u8(b + accesskey::a_index), 1u);
  EXPECT_EQ(t.u16(b + accesskey::a_flags), 0x1800u);
  uint32_t value = t.u24(b + accesskey::a_values);
  EXPECT_EQ(t.codes(t.u24(value + exprlist::el_list)), (Codes{Op::literal}));
  EXPECT_EQ(t.u24(value + exprlist::el_next), 0u);

  b = block_of(t, ops[1]);
  EXPECT_EQ(t.u8(b + accesskey::a_key_count), 0u);
  EXPECT_EQ(t.u16(b + accesskey::a_flags), static_cast<uint32_t>(accesskey::flag_full_key | accesskey::flag_default_index | access::lock));
  EXPECT_EQ(t.list(t.u24(b + accesskey::a_values)).size(), 2u);

  b = block_of(t, ops[2]);
  EXPECT_EQ(t.u16(b + accesskey::a_flags), static_cast<uint32_t>(access::next | accesskey::flag_default_index)) << "a sequential GET reads on";
}

TEST(RecordAccess, GetLookUpFieldListsAndIndexes) {
  Op6 t = body("get cust look-up\nget cname cno from cust\nget cust on index 1 key \"A\"\nget cust currency\n");
  ASSERT_FALSE(t.empty());
  auto ops = t.list(t.detail());
  ASSERT_EQ(ops.size(), 4u);
  uint32_t b = block_of(t, ops[0]);
  EXPECT_TRUE(t.u16(b + accesskey::a_flags) & access::look_up);
  uint32_t e = t.u24(b + accesskey::a_list);
  EXPECT_EQ(t.u24(e + lookup::lu_field), t.field("region"));
  EXPECT_EQ(t.u24(e + lookup::lu_object), t.object("cust"));

  b = block_of(t, ops[1]);
  std::vector<uint32_t> fields;
  for (uint32_t f : t.list(t.u24(b + accesskey::a_list))) fields.push_back(t.u24(f + flist::fl_field));
  EXPECT_EQ(fields, (std::vector<uint32_t>{t.field("cname"), t.field("cno")}));

  EXPECT_EQ(t.u16(block_of(t, ops[2]) + accesskey::a_flags), accesskey::flag_partial_key) << "ON INDEX chose the key";
  b = block_of(t, ops[3]);
  EXPECT_EQ(t.u8(b + accesskey::a_index), 0u);
  EXPECT_EQ(t.u16(b + accesskey::a_flags), access::currency);
}

TEST(RecordAccess, OnErrorBlocksNameTheirSkipTargets) {
  Op6 t = body("get cust key \"A\" on error\n pause\nend-on\ninsert cust on error\n pause\nelse\n pause\n pause\nend-on\n");
  ASSERT_FALSE(t.empty());
  auto ops = t.list(t.detail());
  ASSERT_EQ(t.codes(t.detail()), (Codes{Op::get, Op::pause, Op::insert, Op::pause, Op::jump, Op::pause, Op::pause}));
  EXPECT_EQ(t.u24(ops[0] + recio::rio_on_error), ops[1]) << "without ELSE: the last op of the error block";
  EXPECT_EQ(t.u24(ops[2] + objop::ob_on_error), ops[4]) << "with ELSE: the jump over the ELSE part";
  EXPECT_EQ(t.u24(ops[4] + jump::j_target), ops[6]);
  EXPECT_EQ(t.u24(ops[2] + objop::ob_object), t.object("cust"));
}

TEST(RecordAccess, ExtractBuildsItsBlockAndGroups) {
  Op6 t = body("extract cust key \"A\" when cno > 1 finish when cno > 9\nbefore region\n pause\nafter region\n pause\n"
               " pause\ndetail\n pause\nend-extract\n");
  ASSERT_FALSE(t.empty());
  ASSERT_EQ(t.codes(t.detail()), (Codes{Op::extract}));
  const uint32_t x = t.u24(t.detail() + extractop::xo_block);
  const uint32_t b = t.u24(x + extract::x_access);
  EXPECT_EQ(t.u16(b + accesskey::a_flags), 0x5801u) << "NEXT assumed, partial key, marked as an EXTRACT";
  EXPECT_EQ(t.codes(t.u24(x + extract::x_when)).back(), Op::comparison);
  EXPECT_EQ(t.codes(t.u24(x + extract::x_finish)).back(), Op::comparison);
  EXPECT_EQ(t.codes(t.u24(x + extract::x_detail)), (Codes{Op::pause}));
  for (uint32_t list : {x + extract::x_before, x + extract::x_after}) {
    auto groups = t.list(t.u24(list));
    ASSERT_EQ(groups.size(), 1u);
    const uint32_t fields = t.u24(groups[0] + xgroup::xg_fields);
    EXPECT_EQ(t.u24(fields + flist::fl_field), t.field("region"));
  }
  EXPECT_EQ(t.codes(t.u24(t.u24(x + extract::x_after) + xgroup::xg_block)), (Codes{Op::pause, Op::pause}));
}

TEST(RecordAccess, WritingAndTransactionOps) {
  Op6 t = body("get cust key \"A\" lock\nupdate cname in cust lock\ndelete cust\nunlock all local\nclose cust and remove\n"
               "begin work free-locks leaving cust\ncommit work\ntransaction roll-back\nlocking-method no-wait\n"
               "pop cust leaving all\ninitialise cust leaving cno\nserial numf key cno\nsave cust\npush cust\n");
  ASSERT_FALSE(t.empty());
  auto ops = t.list(t.detail());
  ASSERT_EQ(t.codes(t.detail()), (Codes{Op::get, Op::update, Op::delete_, Op::unlock, Op::close, Op::begin, Op::commit,
                                        Op::roll_back, Op::locking_method, Op::restore, Op::initialise, Op::serial,
                                        Op::save, Op::save}));
  EXPECT_EQ(t.u16(ops[1] + objop::ob_flags), objop::keep_lock);
  EXPECT_EQ(t.u24(t.u24(ops[1] + objop::ob_fields) + flist::fl_field), t.field("cname"));
  EXPECT_EQ(t.u24(ops[3] + objop::ob_object), 0u);
  EXPECT_EQ(t.u16(ops[3] + objop::ob_flags), objop::local);
  EXPECT_EQ(t.u16(ops[4] + objop::ob_flags), objop::remove);
  EXPECT_EQ(t.u16(ops[5] + txop::tx_flags), txop::free_locks | txop::leaving);
  EXPECT_EQ(t.u24(t.u24(ops[5] + txop::tx_objects) + objlist::ol_object), t.object("cust"));
  EXPECT_EQ(t.u16(ops[8] + lockmethod::lm_method), lockmethod::no_wait);
  EXPECT_EQ(t.u16(ops[9] + restoreop::rs_flags), restoreop::pop | restoreop::leaving_all);
  EXPECT_EQ(t.u24(t.u24(ops[10] + restoreop::rs_fields) + flist::fl_field), t.field("cno"));
  EXPECT_EQ(t.u24(ops[11] + serialop::se_key), t.field("cno"));
  EXPECT_EQ(t.u16(ops[12] + objop::ob_flags), 0u);
  EXPECT_EQ(t.u16(ops[13] + objop::ob_flags), objop::push);
}

TEST(RecordAccess, LockStateWarnings) {
  struct Case {
    const char* statements;
    bool warned;
  };
  const Case cases[] = {
      {"get cust key \"A\"\nupdate cust\n", true},
      {"get cust key \"A\" lock\nupdate cust\n", false},
      {"get cust key \"A\"\nupdate cust no-warning\n", false},
      {"get cust key \"A\"\nif cno = 1\n get cust key \"A\" lock\nend-if\ndelete cust\n", true},
      {"get cust key \"A\" lock\nif cno = 1\n get cust key \"A\"\nend-if\nupdate cust\n", true},
      {"get cust key \"A\" lock\ncommit work\nupdate cust\n", true},
      {"get cust key \"A\" lock\nget cust key \"A\" on error\n exit\nend-on\nupdate cust\n", true},
      {"get seqf\nupdate seqf\n", false},
      // A loop body holds its own frame: leaving it settles only what the body did.
      {"get cust key \"A\"\nwhile cno < 5\n break\nend-while\nupdate cust\n", true},
      {"get cust key \"A\"\nrepeat\n continue\nuntil cno > 1\nend-repeat\nupdate cust\n", true},
      {"get cust key \"A\"\nfor cno = 1 to 3\n exit\nend-for\ndelete cust\n", true},
      {"get cust key \"A\"\nwhile cno < 5\n if cno = 1\n  break\n end-if\nend-while\nupdate cust\n", true},
      {"get cust key \"A\" lock\nwhile cno < 5\n get cust key \"A\"\nend-while\nupdate cust\n", true},
      {"get cust key \"A\" lock\nrepeat\nuntil cno > 1\n get cust key \"A\"\nend-repeat\nupdate cust\n", true},
      {"get cust key \"A\" lock\nwhile cno < 5\n get cust key \"A\"\n exit\nend-while\nupdate cust\n", false},
      {"get cust key \"A\" lock\nwhile cno < 5\n pause\nend-while\nupdate cust\n", false},
  };
  for (const Case& c : cases) {
    const std::string out = messages(c.statements);
    EXPECT_EQ(out.find("Record may not be locked") != std::string::npos, c.warned) << c.statements << out;
    EXPECT_EQ(out.find("ERROR"), std::string::npos) << c.statements << out;
  }
}

TEST(RecordAccess, ErrorsAndWarningsWithTheirLines) {
  struct Case {
    const char* statements;
    int line;
    const char* severity;
    const char* text;
  };
  const Case cases[] = {
      {"get cust next key \"A\"\n", 14, "ERROR", "Duplicate or incompatible clause - 'key'"},
      {"get\n", 14, "ERROR", "Object name expected"},
      {"get nosuch\n", 14, "ERROR", "Object not defined in dictionary"},
      {"get cust frob\n", 14, "ERROR", "Invalid clause"},
      {"get seqf key \"A\"\n", 14, "ERROR", "I/O operation invalid for object's file type"},
      {"get cust key 5\n", 14, "ERROR", "Key values not compatible with key format required"},
      {"get cust key \"A\" on index 1\n", 14, "ERROR", "ON INDEX must preceed KEY IS clause"},
      {"get cust on index 3\n", 14, "ERROR", "No such index for object"},
      {"get cust prev\n", 14, "WARNING", "Clause not supported on relational databases"},
      {"get cust next same cno cno\n", 14, "WARNING", "Field already specified"},
      {"get cust next same cno\n", 14, "ERROR", "Only leading key fields allowed for SAME/DIFF - 'cno'"},
      {"get numf last key 1\n", 14, "ERROR", "Cannot specify full key unless last field is alpha"},
      {"insert cust lock\n", 14, "ERROR", "Must use GET to maintain locks"},
      {"get cust on errors\n", 14, "ERROR", "Syntax error"},
      {"get cust on error\n pause\nprocedure other\n", 15, "ERROR", "END-ON missing"},
      {"extract cust next same region\nend-extract\n", 14, "WARNING", "No starting key given"},
      {"extract cust\nbefore cname\n pause\nend-extract\n", 15, "WARNING", "Field is not a leading key field - 'cname'"},
      {"extract cust\nbefore other\n pause\nend-extract\n", 15, "ERROR", "Field not contained in EXTRACTed object"},
      {"extract cust\n pause\nprocedure other\n", 15, "ERROR", "END-EXTRACT missing"},
      {"extract cust\n re-enter\nend-extract\n", 15, "ERROR", "Can't leave an EXTRACT loop this way"},
      {"serial numf key cname\n", 14, "ERROR", "Field must be numeric"},
      {"close all remove\n", 14, "ERROR", "Duplicate or incompatible clause"},
      {"locking-method slowly\n", 14, "ERROR", "Syntax error"},
      {"begin cust\n", 14, "ERROR", "Syntax error"},
      {"restore cust leaving all\n", 14, "ERROR", "Duplicate or incompatible clause"},
      {"audit cust to 5\n", 14, "ERROR", "Alpha-literal expected"},
      {"update cno in seqf\n", 14, "ERROR", "Field not contained in object"},
  };
  for (const Case& c : cases) {
    const std::string out = messages(c.statements);
    EXPECT_TRUE(reports(out, c.line, c.severity, c.text)) << "[" << c.statements << "]" << out;
  }
  const std::string quiet = messages("extract cust\nbefore cname no-warning\n pause\nend-extract\nget cust no-warning prev\n");
  EXPECT_EQ(quiet.find("WARNING"), std::string::npos) << quiet;
}

TEST(RecordAccess, TheProgramWideSwitchQuietensOnlyGetPrev) {
  TempDir dir;
  tavtest::Env env;
  env.set = {"TAVNOPREVWARN=1"};
  const std::string source = std::string(kObjects) +
                             "procedure main\nget cust prev\nextract cust prev\nend-extract\nend\n";
  const std::string out = tavtest::compile(dir, source, "prog.spl", {}, env).result.out;
  EXPECT_FALSE(reports(out, 14, "WARNING", "Clause not supported")) << out;
  EXPECT_TRUE(reports(out, 15, "WARNING", "Clause not supported on relational databases")) << out;
  env.set = {"TAVNOPREVWARN="};  // set but empty: no switch
  EXPECT_TRUE(reports(tavtest::compile(dir, source, "prog.spl", {}, env).result.out, 14, "WARNING", "Clause not supported"));
}

TEST(RecordAccess, BrokenStatementsInsideBlocksReportOnceAndCheckingGoesOn) {
  const char* cases[] = {
      "extract cust\ndetail\n get nosuch\n get cust frob\nend-extract\nbreak\n",
      "get cust on error\n get nosuch\n get cust frob\nend-on\nbreak\n",
      "extract cust key\nbefore\n get cust on error\n  get nosuch\n end-on\nend-extract\nbreak\n",
  };
  for (const char* c : cases) {
    const std::string out = messages(c);
    size_t n = 0;
    for (size_t at = out.find("Object not defined"); at != std::string::npos; at = out.find("Object not defined", at + 1)) ++n;
    EXPECT_EQ(n, 1u) << c << out;
    EXPECT_NE(out.find("Not in a looping section of code"), std::string::npos) << "the depths closed: " << c << out;
    EXPECT_EQ(out.find("Incorrect nesting"), std::string::npos) << c << out;
  }
  const std::string out = messages("extract cust\ndetail\n get cust frob\nend-extract\nbreak\n");
  EXPECT_NE(out.find("Invalid clause"), std::string::npos) << out;
}

}  // namespace
