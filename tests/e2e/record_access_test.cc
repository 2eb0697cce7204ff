// The record access statements as tavcmp compiles them: the record I/O block of GET, the
// EXTRACT block with its groups, the ops of the writing and transaction statements, ON ERROR
// blocks with their skip targets, the lock-state warnings, and recovery inside the blocks.

#include "statements/records.h"
#include "symbols/objects.h"
#include "symbols/records.h"
#include "tests/e2e/driver_fixture.h"

namespace {

using namespace tav;
using namespace drvtest;
using tavtest::Op6;
using Codes = std::vector<Op>;
using Words = std::vector<uint32_t>;

// An indexed object with a two-field key (region alphanumeric, cno numeric), a sequential one,
// and an indexed one whose key ends in a number. The body starts on line 14.
const char* const kObjects =
    "field cno pic 9(6)\nfield region pic x(4)\nfield cname pic x(30)\nfield other pic x(2)\n"
    "object cust type indexed file \"cust\"\n  record region cno cname end-record\n  key region cno unique\n"
    "object seqf type sequential file \"s\"\n  record cname end-record\n"
    "object numf type indexed file \"n\"\n  record cno cname end-record\n  key cno\n";

tavtest::Compiled run(const std::string& body) { return compile_source(kObjects + ("procedure main\n" + body + "end\n")); }

Op6 body(const std::string& statements) {
  tavtest::Compiled c = run(statements);
  EXPECT_EQ(c.result.status, 0) << statements << c.result.out;
  return c.image;
}

std::string messages(const std::string& statements) { return run(statements).result.out; }

// Objects of their own for the cases the shared ones cannot show: several keys, a memory file,
// nine fields in one record. The body starts on line 19.
const char* const kWideObjects =
    "field f1 pic x\nfield f2 pic x\nfield f3 pic x\nfield f4 pic x\nfield f5 pic x\n"
    "field f6 pic x\nfield f7 pic x\nfield f8 pic x\nfield f9 pic 9\n"
    "object wide type indexed file \"w\"\n  record f1 f2 f3 f4 f5 f6 f7 f8 f9 end-record\n"
    "  key f1 f2 f3 f4 f5 f6 f7 f8\n  key f9 desc\n  key f2 f1\n"
    "object memo type memory\n  record f1 end-record\n  key f1\n";

tavtest::Compiled run_wide(const std::string& body) {
  return compile_source(kWideObjects + ("procedure main\n" + body + "end\n"));
}

uint32_t block_of(const Op6& t, uint32_t op) { return t.u24(op + recio::rio_block); }

// The index, key-field count and flags of an access block.
Words keyed(const Op6& t, uint32_t b) {
  return {t.u8(b + accesskey::a_index), t.u8(b + accesskey::a_key_count), t.u16(b + accesskey::a_flags)};
}

// The fields along a field list.
Words fields(const Op6& t, uint32_t head) {
  Words out;
  for (uint32_t e : t.list(head)) out.push_back(t.u24(e + flist::fl_field));
  return out;
}

TEST(RecordAccess, GetKeysFillTheRecordIoBlock) {
  Op6 t = body("get cust key \"A\"\nget cust key \"A\" 5 lock\nget seqf\n");
  ASSERT_EQ(t.codes(t.detail()), (Codes{Op::get, Op::get, Op::get}));
  auto ops = t.list(t.detail());
  uint32_t b = block_of(t, ops[0]);
  EXPECT_EQ(t.u24(b + accesskey::a_object), t.object("cust"));
  EXPECT_EQ(keyed(t, b), (Words{1, 1, 0x1800})) << "one of two key fields: a partial key";
  uint32_t value = t.u24(b + accesskey::a_values);
  EXPECT_EQ(t.codes(t.u24(value + exprlist::el_list)), (Codes{Op::literal}));
  EXPECT_EQ(t.u24(value + exprlist::el_next), 0u);

  b = block_of(t, ops[1]);
  EXPECT_EQ(t.u8(b + accesskey::a_key_count), 0u);
  EXPECT_EQ(t.u16(b + accesskey::a_flags), static_cast<uint32_t>(accesskey::flag_full_key | accesskey::flag_default_index | access::lock));
  EXPECT_EQ(t.list(t.u24(b + accesskey::a_values)).size(), 2u);
  EXPECT_EQ(t.u16(block_of(t, ops[2]) + accesskey::a_flags), static_cast<uint32_t>(access::next | accesskey::flag_default_index))
      << "a sequential GET reads on";
}

TEST(RecordAccess, GetLookUpFieldListsAndIndexes) {
  Op6 t = body("get cust look-up\nget cname cno from cust\nget cust on index 1 key \"A\"\nget cust currency\n");
  auto ops = t.list(t.detail());
  ASSERT_EQ(ops.size(), 4u);
  uint32_t b = block_of(t, ops[0]);
  EXPECT_TRUE(t.u16(b + accesskey::a_flags) & access::look_up);
  uint32_t e = t.u24(b + accesskey::a_list);
  EXPECT_EQ((Words{t.u24(e + lookup::lu_field), t.u24(e + lookup::lu_object)}), (Words{t.field("region"), t.object("cust")}));
  EXPECT_EQ(fields(t, t.u24(block_of(t, ops[1]) + accesskey::a_list)), (Words{t.field("cname"), t.field("cno")}));
  EXPECT_EQ(t.u16(block_of(t, ops[2]) + accesskey::a_flags), accesskey::flag_partial_key) << "ON INDEX chose the key";
  b = block_of(t, ops[3]);
  EXPECT_EQ(t.u8(b + accesskey::a_index), 0u);
  EXPECT_EQ(t.u16(b + accesskey::a_flags), access::currency);
}

TEST(RecordAccess, OnErrorBlocksNameTheirSkipTargets) {
  Op6 t = body("get cust key \"A\" on error\n pause\nend-on\ninsert cust on error\n pause\nelse\n pause\n pause\nend-on\n");
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
    EXPECT_EQ(fields(t, t.u24(groups[0] + xgroup::xg_fields)), Words{t.field("region")});
  }
  EXPECT_EQ(t.codes(t.u24(t.u24(x + extract::x_after) + xgroup::xg_block)), (Codes{Op::pause, Op::pause}));
}

TEST(RecordAccess, WritingAndTransactionOps) {
  Op6 t = body("get cust key \"A\" lock\nupdate cname in cust lock\ndelete cust\nunlock all local\nclose cust and remove\n"
               "begin work free-locks leaving cust\ncommit work\ntransaction roll-back\nlocking-method no-wait\n"
               "pop cust leaving all\ninitialise cust leaving cno\nserial numf key cno\nsave cust\npush cust\n");
  auto ops = t.list(t.detail());
  ASSERT_EQ(t.codes(t.detail()), (Codes{Op::get, Op::update, Op::delete_, Op::unlock, Op::close, Op::begin, Op::commit,
                                        Op::roll_back, Op::locking_method, Op::restore, Op::initialise, Op::serial,
                                        Op::save, Op::save}));
  EXPECT_EQ(fields(t, t.u24(ops[1] + objop::ob_fields)), Words{t.field("cname")});
  EXPECT_EQ(t.u24(ops[3] + objop::ob_object), 0u);
  const Words flags = {t.u16(ops[1] + objop::ob_flags), t.u16(ops[3] + objop::ob_flags), t.u16(ops[4] + objop::ob_flags),
                       t.u16(ops[12] + objop::ob_flags), t.u16(ops[13] + objop::ob_flags)};
  EXPECT_EQ(flags, (Words{objop::keep_lock, objop::local, objop::remove, 0, objop::push}));
  EXPECT_EQ(t.u16(ops[5] + txop::tx_flags), txop::free_locks | txop::leaving);
  EXPECT_EQ(t.u24(t.u24(ops[5] + txop::tx_objects) + objlist::ol_object), t.object("cust"));
  EXPECT_EQ(t.u16(ops[8] + lockmethod::lm_method), lockmethod::no_wait);
  EXPECT_EQ(t.u16(ops[9] + restoreop::rs_flags), restoreop::pop | restoreop::leaving_all);
  EXPECT_EQ(fields(t, t.u24(ops[10] + restoreop::rs_fields)), Words{t.field("cno")});
  EXPECT_EQ(t.u24(ops[11] + serialop::se_key), t.field("cno"));
}

TEST(RecordAccess, OpenClausesFillTheOp) {
  Op6 t = body("open cust lock local\nopen cust temporary file \"x\"\nopen cust truncate file \"y\" on error\n pause\nend-on\n"
               "open cust create private read-only index-on-close\nopen seqf append\n");
  auto ops = t.list(t.detail());
  ASSERT_EQ(t.codes(t.detail()), (Codes{Op::open, Op::open, Op::open, Op::pause, Op::open, Op::open}));
  EXPECT_EQ(t.u24(ops[0] + openop::opn_object), t.object("cust"));
  EXPECT_EQ(t.u16(ops[0] + openop::opn_flags), static_cast<uint32_t>(open_flag::lock | open_flag::local));
  EXPECT_EQ(t.u16(ops[1] + openop::opn_flags), static_cast<uint32_t>(open_flag::temporary | open_flag::truncate));
  EXPECT_EQ(t.codes(t.u24(ops[1] + openop::opn_file)), (Codes{Op::literal}));
  EXPECT_EQ(t.u16(ops[2] + openop::opn_flags), static_cast<uint32_t>(open_flag::temporary | open_flag::truncate))
      << "TRUNCATE with FILE IS is temporary";
  EXPECT_EQ(t.u24(ops[2] + openop::opn_on_error), ops[3]);
  EXPECT_EQ(t.u16(ops[4] + openop::opn_flags),
            static_cast<uint32_t>(open_flag::create | open_flag::private_ | open_flag::read_only | open_flag::index_on_close));
  EXPECT_EQ(t.u24(ops[4] + openop::opn_file), 0u);
  EXPECT_EQ(t.u16(ops[5] + openop::opn_flags), open_flag::append);
}

TEST(RecordAccess, PositionFillsItsRecordIoBlock) {
  Op6 t = body("position cust key \"A\" before\nposition cust on index 1 next same region\n"
               "position cust after key \"A\" 1\n");
  auto ops = t.list(t.detail());
  ASSERT_EQ(t.codes(t.detail()), (Codes{Op::position, Op::position, Op::position}));
  uint32_t b = block_of(t, ops[0]);
  EXPECT_EQ(t.u24(b + accesskey::a_object), t.object("cust"));
  EXPECT_EQ(t.u8(b + accesskey::a_key_count), 1u);
  EXPECT_EQ(t.u16(b + accesskey::a_flags),
            static_cast<uint32_t>(accesskey::flag_partial_key | accesskey::flag_default_index | access::before));
  EXPECT_EQ(keyed(t, block_of(t, ops[1])), (Words{1, 1, access::next | access::same})) << "one SAME field";
  b = block_of(t, ops[2]);
  EXPECT_EQ(t.u16(b + accesskey::a_flags),
            static_cast<uint32_t>(accesskey::flag_full_key | accesskey::flag_default_index | access::after));
  EXPECT_EQ(t.list(t.u24(b + accesskey::a_values)).size(), 2u);
}

TEST(RecordAccess, RestoreAuditAndUnlockOfOneObject) {
  Op6 t = body("restore cname cno from cust\nrestore * from cust\npop cust leaving cname\naudit off cust\n"
               "audit cust seqf to \"trail\"\nunlock cust\n");
  auto ops = t.list(t.detail());
  ASSERT_EQ(t.codes(t.detail()), (Codes{Op::restore, Op::restore, Op::restore, Op::audit, Op::audit, Op::unlock}));
  EXPECT_EQ(t.u24(ops[0] + restoreop::rs_object), t.object("cust"));
  EXPECT_EQ(fields(t, t.u24(ops[0] + restoreop::rs_fields)), (Words{t.field("cname"), t.field("cno")}));
  EXPECT_EQ(t.u24(ops[1] + restoreop::rs_fields), 0u) << "* FROM restores the whole record";
  EXPECT_EQ(fields(t, t.u24(ops[2] + restoreop::rs_fields)), Words{t.field("cname")});
  EXPECT_EQ((Words{t.u16(ops[0] + restoreop::rs_flags), t.u16(ops[1] + restoreop::rs_flags), t.u16(ops[2] + restoreop::rs_flags)}),
            (Words{restoreop::field_list, 0, restoreop::pop}));

  EXPECT_EQ(t.u16(ops[3] + auditop::au_off), 1u);
  EXPECT_EQ(t.u24(t.u24(ops[3] + auditop::au_objects) + objlist::ol_object), t.object("cust"));
  EXPECT_EQ(t.u24(ops[3] + auditop::au_to), 0u);
  EXPECT_EQ(t.u16(ops[4] + auditop::au_off), 0u);
  Words audited;
  for (uint32_t e : t.list(t.u24(ops[4] + auditop::au_objects))) audited.push_back(t.u24(e + objlist::ol_object));
  EXPECT_EQ(audited, (Words{t.object("cust"), t.object("seqf")}));
  EXPECT_EQ(t.codes(t.u24(ops[4] + auditop::au_to)), (Codes{Op::literal}));

  EXPECT_EQ(t.u24(ops[5] + objop::ob_object), t.object("cust"));
  EXPECT_EQ(t.u16(ops[5] + objop::ob_flags), 0u);
}

TEST(RecordAccess, OnIndexByFieldNamesAndTheFieldLimits) {
  tavtest::Compiled c = run_wide("get wide on index f2\nget wide on index f2 f1\nget wide on index f9 desc\n"
                                 "get wide on index f1 f2 f3\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  auto ops = t.list(t.detail());
  ASSERT_EQ(ops.size(), 4u);
  const Words expected[] = {
      {3, 1, accesskey::flag_partial_key},  // the leading field of the third key
      {3, 0, 0},                            // the whole third key
      {2, 0, 0},                            // the descending key, named so
      {1, 3, accesskey::flag_partial_key},  // three leading fields of the first key
  };
  for (size_t i = 0; i < ops.size(); ++i) EXPECT_EQ(keyed(t, block_of(t, ops[i])), expected[i]) << i;
}

TEST(RecordAccess, LockStateWarnings) {
  const std::pair<const char*, bool> cases[] = {
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
  for (const auto& [statements, warned] : cases) {
    const std::string out = messages(statements);
    EXPECT_EQ(contains(out, "Record may not be locked"), warned) << statements << out;
    EXPECT_FALSE(contains(out, "ERROR")) << statements << out;
  }
}

struct Case {
  const char* statements;
  int line;
  const char* severity;
  const char* text;  // with its context
};

TEST(RecordAccess, ErrorsAndWarningsWithTheirLines) {
  const Case cases[] = {
      // The object and the clauses of GET.
      {"get\n", 14, "ERROR", "Object name expected - 'get'"},
      {"get nosuch\n", 14, "ERROR", "Object not defined in dictionary - 'nosuch'"},
      {"get cust frob\n", 14, "ERROR", "Invalid clause - 'frob'"},
      {"get cust next key \"A\"\n", 14, "ERROR", "Duplicate or incompatible clause - 'key'"},
      {"get cust look-up lock\n", 14, "ERROR", "Duplicate or incompatible clause - 'lock'"},
      {"get cust first key \"A\"\n", 14, "ERROR", "Duplicate or incompatible clause - 'key'"},
      {"get cust last next\n", 14, "ERROR", "Duplicate or incompatible clause - 'next'"},
      {"get seqf look-up\n", 14, "ERROR", "I/O operation invalid for object's file type - 'look-up'"},
      {"get seqf key \"A\"\n", 14, "ERROR", "I/O operation invalid for object's file type - 'key'"},
      {"get cust key 5\n", 14, "ERROR", "Key values not compatible with key format required - '5'"},
      {"get cust key \"A\" on index 1\n", 14, "ERROR", "ON INDEX must preceed KEY IS clause - 'index'"},
      {"get cust on index 3\n", 14, "ERROR", "No such index for object - '3'"},
      {"get cust on errors\n", 14, "ERROR", "Syntax error - 'errors'"},
      {"get numf last key 1\n", 14, "ERROR", "Cannot specify full key unless last field is alpha - '1'"},
      {"get cust prev\n", 14, "WARNING", "Clause not supported on relational databases - 'prev'"},
      // SAME and DIFFERENT fields.
      {"get cust next same cno cno\n", 14, "WARNING", "Field already specified - 'cno'"},
      {"get cust next same other\n", 14, "ERROR", "Field not contained in object - 'other'"},
      {"get cust next same cno\n", 14, "ERROR", "Only leading key fields allowed for SAME/DIFF - 'cno'"},
      {"get cust next\n same\n cno\n", 16, "ERROR", "Only leading key fields allowed for SAME/DIFF - 'cno'"},
      // EXTRACT and its parts.
      {"extract\n", 14, "ERROR", "Object name expected - 'extract'"},
      {"extract cust all key \"A\"\nend-extract\n", 14, "ERROR", "Duplicate or incompatible clause - 'key'"},
      {"extract cust when cno > 1 when cno > 2\nend-extract\n", 14, "ERROR", "Duplicate or incompatible clause - 'when'"},
      {"extract cust next same region\nend-extract\n", 14, "WARNING", "No starting key given - 'region'"},
      {"extract cust\nbefore cname\n pause\nend-extract\n", 15, "WARNING", "Field is not a leading key field - 'cname'"},
      {"extract cust\nafter region\n cname\n pause\nend-extract\n", 16, "WARNING", "Field is not a leading key field - 'cname'"},
      {"extract cust\nbefore other\n pause\nend-extract\n", 15, "ERROR", "Field not contained in EXTRACTed object - 'other'"},
      {"extract cust\ndetail\n pause\ndetail\n pause\nend-extract\n", 17, "ERROR", "Duplicate or incompatible clause - 'detail'"},
      {"extract cust\n pause\nprocedure other\n", 15, "ERROR", "END-EXTRACT missing - 'pause'"},
      {"extract cust\n re-enter\nend-extract\n", 15, "ERROR", "Can't leave an EXTRACT loop this way - 're-enter'"},
      // The writing statements and the lock states.
      {"insert\n", 14, "ERROR", "Object name expected - 'insert'"},
      {"insert cust lock\n", 14, "ERROR", "Must use GET to maintain locks - 'lock'"},
      {"update cno in seqf\n", 14, "ERROR", "Field not contained in object - 'cno'"},
      {"update cust key\n", 14, "ERROR", "Invalid clause - 'key'"},
      {"get cust key \"A\"\nupdate cust\n", 15, "INFO", "Record may not be locked - 'cust'"},
      {"get cust key \"A\"\ndelete cust\n", 15, "INFO", "Record may not be locked - 'cust'"},
      {"get cust on error\n pause\nprocedure other\n", 15, "ERROR", "END-ON missing - 'pause'"},
      // OPEN, CLOSE and the other statements.
      {"open cust temporary permanent\n", 14, "ERROR", "Duplicate or incompatible clause - 'permanent'"},
      {"open cust private\n", 14, "ERROR", "Duplicate or incompatible clause - 'private'"},
      {"open cust file 5\n", 14, "ERROR", "Alpha-literal expected - '5'"},
      {"open cust truncate\npause\n", 14, "INFO", "PERMANENT assumed for TRUNCATE without FILE IS - 'cust'"},
      {"open cust truncate file \"x\"\npause\n", 14, "INFO", "TEMPORARY assumed for TRUNCATE with FILE IS - 'cust'"},
      {"close all remove\n", 14, "ERROR", "Duplicate or incompatible clause - 'remove'"},
      {"close cust remove and remove\n", 14, "ERROR", "Duplicate or incompatible clause - 'and'"},
      {"serial numf key cname\n", 14, "ERROR", "Field must be numeric - 'cname'"},
      {"locking-method slowly\n", 14, "ERROR", "Syntax error - 'slowly'"},
      {"begin cust\n", 14, "ERROR", "Syntax error - 'begin'"},
      {"transaction frob\n", 14, "ERROR", "Syntax error - 'frob'"},
      {"commit\n", 14, "ERROR", "Syntax error - 'commit'"},
      {"begin work on cust leaving cust\n", 14, "ERROR", "Duplicate or incompatible clause - 'leaving'"},
      {"save cust on error\n", 14, "ERROR", "Invalid clause - 'on'"},
      {"pop cust leaving cno leaving cname\n", 14, "ERROR", "Duplicate or incompatible clause - 'leaving'"},
      {"restore cust leaving all\n", 14, "ERROR", "Duplicate or incompatible clause - 'all'"},
      {"restore cname from cust leaving cno\n", 14, "ERROR", "Duplicate or incompatible clause - 'leaving'"},
      {"initialise cust leaving 5\n", 14, "ERROR", "Field name expected - '5'"},
      // A LEAVING field the object lacks is reported on its own line, not the next statement's.
      {"initialise cust leaving cno\n other\npause\n", 15, "ERROR", "Field not contained in object - 'other'"},
      {"restore cust leaving\n other\npause\n", 15, "ERROR", "Field not contained in object - 'other'"},
      {"pop cust leaving cno\n other\npause\n", 15, "ERROR", "Field not contained in object - 'other'"},
      {"audit\n", 14, "ERROR", "Object name expected - 'audit'"},
      {"audit cust to 5\n", 14, "ERROR", "Alpha-literal expected - '5'"},
      {"audit off cust to \"x\"\n", 14, "ERROR", "Invalid clause - 'to'"},
  };
  for (const Case& c : cases) {
    const std::string out = messages(c.statements);
    EXPECT_TRUE(reports(out, c.line, std::string(c.severity) + "  " + c.text)) << "[" << c.statements << "]" << out;
  }
  const std::string quiet = messages("extract cust\nbefore cname no-warning\n pause\nend-extract\nget cust no-warning prev\n");
  EXPECT_EQ(quiet.find("WARNING"), std::string::npos) << quiet;
}

// The checks that need more than the shared objects: several keys, nine fields, a memory file.
TEST(RecordAccess, KeyChoiceAndFieldLimitMessages) {
  const Case cases[] = {
      {"get wide on index f9\n", 19, "WARNING", "Possible confusion over ascending/descending key fields - 'f9'"},
      {"get wide on index f3\n", 19, "ERROR", "No such index for object - 'f3'"},
      {"get wide on index -1\n", 19, "ERROR", "Numeric value invalid or out of range - '-1'"},
      {"get wide on index 1.5\n", 19, "ERROR", "Numeric value invalid or out of range - '1.5'"},
      {"get wide next same f1 f2 f3 f4 f5 f6 f7 f8 f9\n", 19, "ERROR", "Too many fields specified - 'f9'"},
      {"extract wide key \"a\" next same f1 f2\nend-extract\n", 19, "ERROR", "Too many fields specified for SAME/DIFF - 'f2'"},
      {"open memo permanent\n", 19, "INFO", "PERMANENT ignored for MEMORY files - 'permanent'"},
  };
  for (const Case& c : cases) {
    const std::string out = run_wide(c.statements).result.out;
    EXPECT_TRUE(reports(out, c.line, std::string(c.severity) + "  " + c.text)) << "[" << c.statements << "]" << out;
  }
  const std::string quiet = run_wide("open memo truncate\nget wide on index f9 desc\n").result.out;
  EXPECT_EQ(quiet.find("line"), std::string::npos) << "a memory file is never permanent; the direction matches" << quiet;
}

TEST(RecordAccess, TheProgramWideSwitchQuietensOnlyGetPrev) {
  TempDir dir;
  Env env{{"TAVNOPREVWARN=1"}, {}};
  const std::string source = std::string(kObjects) +
                             "procedure main\nget cust prev\nextract cust prev\nend-extract\nend\n";
  const std::string out = tavtest::compile(dir, source, "prog.spl", {}, env).result.out;
  EXPECT_FALSE(reports(out, 14, "WARNING  Clause not supported")) << out;
  EXPECT_TRUE(reports(out, 15, "WARNING  Clause not supported on relational databases")) << out;
  env.set = {"TAVNOPREVWARN="};  // set but empty: no switch
  EXPECT_TRUE(reports(tavtest::compile(dir, source, "prog.spl", {}, env).result.out, 14, "WARNING  Clause not supported"));
}

// A broken statement inside an EXTRACT or an ON ERROR block is reported once; the statements after
// it are still checked, and the block's depths close (a BREAK after it is outside any loop).
TEST(RecordAccess, BrokenStatementsInsideBlocksReportOnceAndCheckingGoesOn) {
  const std::pair<const char*, std::vector<std::string>> cases[] = {
      {"extract cust\ndetail\n get nosuch\n get cust frob\nend-extract\nbreak\n",
       {"line 16: ERROR  Object not defined in dictionary - 'nosuch'", "line 17: ERROR  Invalid clause - 'frob'",
        "line 19: ERROR  Not in a looping section of code - 'break'"}},
      {"extract nosuch key 1 when\n get cust frob\nend-extract\nbreak\n",
       {"line 14: ERROR  Object not defined in dictionary - 'nosuch'", "line 15: ERROR  Invalid clause - 'frob'",
        "line 17: ERROR  Not in a looping section of code - 'break'"}},
      {"get cust on error\n get nosuch\n get cust frob\nend-on\nbreak\n",
       {"line 15: ERROR  Object not defined in dictionary - 'nosuch'", "line 16: ERROR  Invalid clause - 'frob'",
        "line 18: ERROR  Not in a looping section of code - 'break'"}},
      {"get cust on error\n get cust frob\nelse\n get nosuch\nend-on\nupdate cust frob\nbreak\n",
       {"line 15: ERROR  Invalid clause - 'frob'", "line 17: ERROR  Object not defined in dictionary - 'nosuch'",
        "line 19: ERROR  Invalid clause - 'frob'", "line 19: INFO  Record may not be locked - 'cust'",
        "line 20: ERROR  Not in a looping section of code - 'break'"}},
      {"extract cust key\nbefore\n get cust on error\n  get nosuch\n end-on\nend-extract\nbreak\n",
       {"line 14: ERROR  Key values not compatible with key format required - 'key'",
        "line 17: ERROR  Object not defined in dictionary - 'nosuch'",
        "line 20: ERROR  Not in a looping section of code - 'break'"}},
      // Both blocks cut short by the next section: each closing word reported missing once.
      {"extract cust\nbefore region\n get cust on error\n  pause\nprocedure other\nget cust frob\nbreak\n",
       {"line 17: ERROR  END-ON missing - 'pause'", "line 17: ERROR  END-EXTRACT missing - 'pause'",
        "line 19: ERROR  Invalid clause - 'frob'", "line 20: ERROR  Not in a looping section of code - 'break'"}},
  };
  for (const auto& [statements, lines] : cases) {
    const std::string out = messages(statements);
    EXPECT_EQ(message_lines(out), lines) << statements << out;
  }
}

}  // namespace
