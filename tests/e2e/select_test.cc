// SELECT as tavcmp compiles it: the messages of the statement and its clauses with their lines,
// and the select record, FROM entries and field entries of the .op6 (a PRIMARY screen's
// implicit select among them).

#include "codegen/header.h"
#include "codegen/op_records.h"
#include "lexer/verbs.h"
#include "statements/records.h"
#include "symbols/records.h"
#include "tests/e2e/driver_fixture.h"

namespace {

using namespace tav;
using namespace drvtest;
using tavtest::Op6;
using Codes = std::vector<Op>;

// Two indexed objects sharing cno; a program body starts on line 13.
const char* const kObjects =
    "field cno pic 9(6)\nfield region pic x(4)\nfield cname pic x(30)\nfield amount pic 9(6)v99\n"
    "field hx pic 9(4)\n"
    "object cust type indexed file \"cust\"\n  record region cno cname end-record\n  key region cno unique\n"
    "object ord type indexed file \"ord\"\n  record cno amount end-record\n  key cno\n";

tavtest::Compiled compile(const std::string& program, std::vector<std::string> options = {}) {
  return compile_source(kObjects + program, std::move(options));
}

tavtest::Compiled run(const std::string& body) { return compile("procedure main\n" + body + "end\n"); }

std::string loop(const std::string& select) { return " " + select + "\n detail\n  pause\n end-select\n"; }

struct Case {
  std::string body;
  int line;
  std::string message;  // "" when the body compiles cleanly
};

TEST(Select, MessagesWithTheirLines) {
  const std::string nine = "cno region cname cno region cname cno region cname";
  const std::vector<Case> cases = {
      {" select cno from cust where cno = 1\n end-select\n", 14, "ERROR  Missing BEFORE, AFTER or DETAIL sections"},
      {" select cno from cust where cno = 1\n detail\n  pause\nscreen other\n", 15, "ERROR  END-SELECT missing"},
      {loop("select cno from cust order by " + nine), 13, "ERROR  Too many fields in ORDER BY list"},
      {loop("select cno from cust order by cno region cname cno region cname cno region"), 0, ""},
      {loop("select region cno from cust group by region cno order by region"), 0, ""},
      {loop("select region cno from cust group by region cno order by cno"), 13,
       "WARNING  GROUP BY and ORDER BY lists are different"},
      {loop("select * from cust ord for update"), 13, "ERROR  FOR-UPDATE only allowed for single object SELECT"},
      {loop("select distinct cno from cust for update"), 13, "ERROR  FOR-UPDATE not allowed with DISTINCT"},
      {loop("select cno from cust union select cno amount from ord"), 13,
       "ERROR  Number of SELECTed fields must match in UNION"},
      {loop("select cno from cust union select cname from cust"), 13, "ERROR  Incompatible fields in UNION - 'cname'"},
      {loop("select cno from cust\n where cno = hx"), 14, "WARNING  Host fields should have a colon (:) prefix - 'hx'"},
      {loop("select cno from cust where cno = :hx"), 0, ""},
      {loop("select cno from cust right outer join ord"), 13, "ERROR  JOIN type not supported"},
      {loop("select cno from cust left outer join ord on cust.cno = ord.cno"), 0, ""},
      {loop("select cno from cust left join ord on cust.cname = ord.amount"), 13, "ERROR  Incompatible field"},
      {loop("select cno from cust ord on ord.cname = cust.cno"), 13, "ERROR  Column not in table - 'cname'"},
      {loop("select :hx from cust"), 13, "ERROR  Can't SELECT host fields"},
      {loop("select cno + 1 from cust"), 13, "ERROR  Expressions must be assigned to a field"},
      {loop("select cno cno from cust"), 13, "ERROR  Field already selected - 'cno'"},
      {loop("select * cust.* from cust"), 13, "ERROR  Not valid when SELECT * used"},
      {loop("select cname from cust where ord.amount = 1"), 13, "ERROR  Referenced object not in FROM list - 'ord'"},
      {loop("select cno amount = sum(amount) from ord group by amount"), 13,
       "ERROR  Cannot GROUP BY an aggregate field"},
      {loop("select cno from ord having cno > 1"), 13, "ERROR  HAVING may only contain aggregates and literals"},
      {loop("select cno from ord group by 3"), 13, "ERROR  Invalid field number"},
      {loop("select cno amount = sum(amount) from ord group by cno having sum(amount) > 10"), 0, ""},
      {" select cno\n", 13, "ERROR  FROM expected"},
      {" re-select\n", 13, "ERROR  Statement only valid in a SCREEN"},
      {loop("select cname from cust where cno in (select cno from ord where amount > 5)"), 0, ""},
      {loop("select cname from cust where cno = (select cno amount from ord)"), 13,
       "ERROR  Sub-query must only SELECT one field"},
      {" if (select cno from ord) = 1\n  pause\n end-if\n", 13, "ERROR  Illegal use of SELECT statement"},
  };
  for (const Case& c : cases) {
    const tavtest::Compiled r = run(c.body);
    EXPECT_TRUE(c.message.empty() ? r.result.status == 0 : reports(r.result.out, c.line, c.message)) << c.body << r.result.out;
  }
}

std::vector<uint32_t> entries(const Op6& t, uint32_t rec) { return t.list(t.u24(rec + selrec::sr_fields)); }

TEST(Select, AnUnqualifiedFieldOfTwoObjectsJoinsThem) {
  const tavtest::Compiled r = run(loop("select cname amount from cust ord where cno = 5"));
  ASSERT_EQ(r.result.status, 0) << r.result.out;
  const Op6& t = r.image;
  const uint32_t op = t.detail();
  ASSERT_EQ(t.opcode(op), Op::select);
  const uint32_t rec = t.u24(op + selectop::so_record);
  EXPECT_EQ(t.u16(rec + selrec::sr_flags), 0u) << "no longer being compiled";
  EXPECT_EQ(t.u16(rec + selrec::sr_from_count), 2u);
  EXPECT_EQ(t.codes(t.u24(op + selectop::so_detail)), (Codes{Op::pause}));

  const std::vector<uint32_t> from = t.list(t.u24(rec + selrec::sr_from));
  ASSERT_EQ(from.size(), 2u);
  EXPECT_EQ(t.u24(from[0] + fromrec::fe_object), t.object("cust"));
  EXPECT_EQ(t.u16(from[0] + fromrec::fe_flags), fromrec::named);
  EXPECT_EQ(t.u16(from[1] + fromrec::fe_number), 2u);

  // cname, amount, cno (bound to cust) and cno's copy for ord, in one ring.
  const std::vector<uint32_t> e = entries(t, rec);
  ASSERT_EQ(e.size(), 4u);
  EXPECT_EQ(t.u16(rec + selrec::sr_field_count), 4u);
  EXPECT_EQ(t.u24(e[0] + selfield::sf_from), from[0]);
  EXPECT_EQ(t.u16(e[0] + selfield::sf_flags), selfield::selected | selfield::referenced);
  EXPECT_EQ(t.u24(e[1] + selfield::sf_from), from[1]);
  EXPECT_EQ(t.u24(e[2] + selfield::sf_field), t.field("cno"));
  EXPECT_EQ(t.u24(e[2] + selfield::sf_from), from[0]);
  EXPECT_EQ(t.u16(e[3] + selfield::sf_flags), selfield::referenced | selfield::copy | selfield::equality);
  EXPECT_EQ(t.u24(e[3] + selfield::sf_from), from[1]);
  EXPECT_EQ(t.u24(e[2] + selfield::sf_ring), e[3]);
  EXPECT_EQ(t.u24(e[3] + selfield::sf_ring), e[2]);
  EXPECT_NE(t.u24(e[2] + selfield::sf_ranges), 0u);  // cno = 5 bounds both members of the ring
  EXPECT_EQ(t.u24(e[3] + selfield::sf_ranges), t.u24(e[2] + selfield::sf_ranges));

  // The WHERE condition names the entry through op 76.
  const uint32_t where = t.u24(rec + selrec::sr_where);
  EXPECT_EQ(t.codes(where), (Codes{Op::select_field_ref, Op::literal, Op::comparison}));
  EXPECT_EQ(t.u24(where + selref::sref_entry), e[2]);
  EXPECT_EQ(t.u16(where + selref::sref_format), t.u16(t.field("cno") + fsym::f_format));

  // Column lists: cust has cname (selected) and cno; ord amount (selected) and cno.
  const std::vector<uint32_t> cols = t.list(t.u24(from[0] + fromrec::fe_columns));
  ASSERT_EQ(cols.size(), 2u);
  EXPECT_EQ(t.u24(cols[0] + column::cn_field), t.field("cname"));
  EXPECT_EQ(t.u16(cols[0] + column::cn_flags), column::selected);
  EXPECT_EQ(t.u16(cols[1] + column::cn_flags), 0u);
}

TEST(Select, AggregatesGroupsAndOrder) {
  const tavtest::Compiled r =
      run(loop("select cno amount = sum(amount) from ord group by cno order by cno desc"));
  ASSERT_EQ(r.result.status, 0) << r.result.out;
  const Op6& t = r.image;
  const uint32_t rec = t.u24(t.detail() + selectop::so_record);
  EXPECT_EQ(t.u16(rec + selrec::sr_flags), selrec::whole_aggregates);
  EXPECT_EQ(t.u16(rec + selrec::sr_aggregate_count), 1u);
  const uint32_t agg = t.u24(rec + selrec::sr_aggregates);
  EXPECT_EQ(t.u32(agg + aggrec::ae_verb), verb("sum"));
  EXPECT_EQ(t.u24(agg + aggrec::ae_break_next), aggrec::kWholeSelect);
  EXPECT_EQ(t.codes(t.u24(agg + aggrec::ae_argument)), (Codes{Op::select_field_ref}));
  const std::vector<uint32_t> e = entries(t, rec);
  // cno; amount as the aggregate's argument (bound to ord); amount as the field the sum goes to.
  ASSERT_EQ(e.size(), 3u);
  EXPECT_EQ(t.u16(e[0] + selfield::sf_flags),
            selfield::selected | selfield::referenced | selfield::ordered | selfield::descending);
  EXPECT_EQ(t.u16(e[1] + selfield::sf_flags), selfield::referenced | selfield::in_aggregate);
  EXPECT_EQ(t.u24(t.u24(agg + aggrec::ae_argument) + selref::sref_entry), e[1]);
  EXPECT_EQ(t.u16(e[2] + selfield::sf_flags), selfield::assigned | selfield::aggregate | selfield::selected |
                                                   selfield::referenced);
  EXPECT_EQ(t.u24(e[2] + selfield::sf_from), 0u);
  EXPECT_EQ(t.codes(t.u24(e[2] + selfield::sf_expression)), (Codes{Op::aggregate}));
  EXPECT_EQ(t.u24(t.u24(rec + selrec::sr_order) + ordernode::on_entry), e[0]);
}

const char* const kScreens =
    "procedure main\n do s1\n do s2\n do s3\nend\n"
    "screen s1 primary cust\ndetail\n accept cname @ 1,1\nend\n"
    "screen s2 primary same cust\ndetail\n accept cname @ 1,1\nend\n"
    "screen s3 select * from cust where cno > 5\ndetail\n accept cname @ 1,1\n re-select\nend\n";

TEST(Select, ScreensSelectTheirPrimaryObject) {
  const tavtest::Compiled r = compile(kScreens);
  ASSERT_EQ(r.result.status, 0) << r.result.out;
  const Op6& t = r.image;
  const uint32_t cust = t.object("cust");

  // PRIMARY cust: all fields, updatable, ordered by the key region, cno.
  const uint32_t s1 = t.section_named("s1");
  const uint32_t rec = t.u24(s1 + ssym::s_select);
  ASSERT_NE(rec, 0u);
  EXPECT_EQ(t.u16(rec + selrec::sr_flags), selrec::screen | selrec::for_update | selrec::all_fields);
  EXPECT_EQ(t.text(t.u24(rec + selrec::sr_screen)), "s1");
  const uint32_t from = t.u24(rec + selrec::sr_from);
  EXPECT_EQ(t.u24(from + fromrec::fe_object), cust);
  EXPECT_EQ(t.u16(from + fromrec::fe_flags), fromrec::named | fromrec::all_fields);
  std::vector<uint32_t> order;
  for (uint32_t n : t.list(t.u24(rec + selrec::sr_order))) order.push_back(t.u24(t.u24(n + ordernode::on_entry) + selfield::sf_field));
  EXPECT_EQ(order, (std::vector<uint32_t>{t.field("region"), t.field("cno")}));
  EXPECT_EQ(t.list(t.u24(from + fromrec::fe_columns)).size(), 3u);

  // PRIMARY SAME: the key fields equal the program's fields of their names.
  const uint32_t s2 = t.u24(t.section_named("s2") + ssym::s_select);
  const uint32_t where = t.u24(s2 + selrec::sr_where);
  EXPECT_EQ(t.codes(where), (Codes{Op::select_field_ref, Op::select_field_ref, Op::comparison, Op::select_field_ref,
                                   Op::select_field_ref, Op::comparison, Op::and_}));
  const uint32_t host = t.u24(t.u24(where) + selref::sref_entry);
  EXPECT_EQ(t.u16(host + selfield::sf_flags), selfield::host | selfield::referenced);
  EXPECT_EQ(t.u16(t.section_named("s2") + ssym::s_kind) & ssym::kind_primary_same, 0u);

  // A SELECT clause of one object's fields becomes FOR-UPDATE by itself; the object is PRIMARY.
  const uint32_t s3 = t.section_named("s3");
  const uint32_t sel = t.u24(s3 + ssym::s_select);
  EXPECT_EQ(t.u16(sel + selrec::sr_flags), selrec::screen | selrec::for_update | selrec::all_fields);
  EXPECT_EQ(t.u24(s3 + ssym::s_primary), cust);

  // The header's list holds the three screen selects, the latest first.
  std::vector<uint32_t> listed;
  for (uint32_t s = t.u24(hdr::h_select_list); s != 0; s = t.u24(s + selrec::sr_screen_next)) listed.push_back(s);
  EXPECT_EQ(listed, (std::vector<uint32_t>{sel, s2, rec}));
}

// ON INDEX after the PRIMARY object names the key by number or by its leading fields, as the
// record statements read it.
TEST(Select, PrimaryOnIndex) {
  const tavtest::Compiled r = compile_source(
      "field cno pic 9(6)\nfield cname pic x(30)\n"
      "object two type indexed file \"two\"\n  record cno cname end-record\n  key cno unique\n  key cname\n"
      "procedure main\n do s1\n do s2\nend\n"
      "screen s1 primary two on index 2\ndetail\n accept cno @ 1,1\nend\n"
      "screen s2 primary two on index cname\ndetail\n accept cno @ 1,1\nend\n");
  ASSERT_EQ(r.result.status, 0) << r.result.out;
  const Op6& t = r.image;
  EXPECT_EQ(t.u8(t.section_named("s1") + ssym::s_key_number), 2u);
  EXPECT_EQ(t.u8(t.section_named("s2") + ssym::s_key_number), 2u);
  EXPECT_TRUE(contains(compile("procedure main\n do s1\nend\nscreen s1 primary cust on index 2\nend\n").result.out,
                       "line 15: ERROR  No such index for object - '2'"));
}

// SAME or DIFFERENT after the PRIMARY object: the leading key parts used, and the key flags in the
// kind word. SAME makes the implicit select keep to the records that share the key; DIFFERENT
// makes it DISTINCT over the leading parts.
TEST(Select, PrimaryKeyClauses) {
  const tavtest::Compiled r = compile(
      "procedure main\n do s1\n do s2\nend\n"
      "screen s1 primary cust same region\ndetail\n accept cname @ 1,1\nend\n"
      "screen s2 primary cust different region\ndetail\n accept cname @ 1,1\nend\n");
  ASSERT_EQ(r.result.status, 0) << r.result.out;
  const Op6& t = r.image;
  const uint32_t s1 = t.section_named("s1"), s2 = t.section_named("s2");
  EXPECT_EQ(t.u16(s1 + ssym::s_kind) & 0x0300u, 0u) << "SAME settled into the select's condition";
  EXPECT_EQ(t.u8(s1 + ssym::s_key_parts), 1u);
  EXPECT_EQ(t.codes(t.u24(t.u24(s1 + ssym::s_select) + selrec::sr_where)).size(), 7u);
  EXPECT_EQ(t.u16(s2 + ssym::s_kind) & 0x0300u, 0x0100u);
  const uint32_t distinct = t.u24(s2 + ssym::s_select);
  EXPECT_EQ(t.u16(distinct + selrec::sr_flags) & selrec::distinct, selrec::distinct);
  EXPECT_EQ(t.list(t.u24(distinct + selrec::sr_order)).size(), 1u);
  EXPECT_TRUE(contains(compile("procedure main\n do s1\nend\nscreen s1 primary cust same cno\nend\n").result.out,
                       "ERROR  Only leading key fields allowed for SAME/DIFF - 'cno'"));
}

// In the DETAIL of a DATA-GRID with a SELECT, a DISPLAY of a field the select reads is a
// display-only ACCEPT in the chain; a PROMPT, or a field the select does not read, stays a DISPLAY.
TEST(Select, DataGridDisplaysBecomeAccepts) {
  const tavtest::Compiled r = compile(
      "procedure main\n do g\nend\n"
      "screen g data-grid occurs 5 select cname amount from cust ord\ndetail\n"
      " display cname @ 3,1 bold\n display amount @ 3,40 prompt\n display hx @ 3,60\nend\n");
  ASSERT_EQ(r.result.status, 0) << r.result.out;
  const Op6& t = r.image;
  const uint32_t detail = t.u24(t.section_named("g") + ssym::s_detail);
  Codes shown;
  for (Op op : t.codes(detail))
    if (op == Op::accept || op == Op::display_item) shown.push_back(op);
  ASSERT_EQ(shown, (Codes{Op::accept, Op::display_item, Op::display_item}));
  const uint32_t d = t.u24(ops_of(t, detail, Op::accept)[0] + acceptop::ao_desc);
  EXPECT_EQ((std::vector<uint32_t>{t.u16(d + adesc::ad_options), t.u16(d + adesc::ad_display), t.u24(d + adesc::ad_field),
                                   t.u24(d + adesc::ad_column)}),
            (std::vector<uint32_t>{0x5080, 0x0020, t.field("cname"), 1}));
}

// The aggregates of the statements in an AFTER block belong to that break.
TEST(Select, AggregatesOfAnAfterBlock) {
  const tavtest::Compiled r = run(
      " select cno amount from ord order by cno\n after cno\n  set hx = count(amount)\n"
      "  if sum(amount) > 1\n   pause\n  end-if\n detail\n  pause\n end-select\n");
  ASSERT_EQ(r.result.status, 0) << r.result.out;
  const Op6& t = r.image;
  const uint32_t op = t.detail();
  const uint32_t after = t.u24(op + selectop::so_after);
  ASSERT_NE(after, 0u);
  int in_break = 0;
  for (uint32_t a = t.u24(after + breakrec::br_aggregates); a != 0 && in_break < 10; a = t.u24(a + aggrec::ae_break_next))
    ++in_break;
  EXPECT_EQ(in_break, 2);
  EXPECT_EQ(t.u16(t.u24(op + selectop::so_record) + selrec::sr_aggregate_count), 2u);
}

// The key optimiser's result as the -x 1 trace prints it, for conditions as a program writes them.
TEST(Select, KeyRangesOfConditions) {
  const struct {
    const char* where;
    const char* trace;  // "" when no range may be printed
  } cases[] = {
      {"cno = 5", "Range list : cno\n RANGE 1\n  >= 5\n  <= 5\n"},
      {"cno > 3 and cno < 10", " RANGE 1\n  > 3\n  < 10\n"},
      {"cno > 3 and cno > 7", " RANGE 1\n  > 7\nprog.spl, INFO"},
      {"cno > 10 and cno < 5", ""},
      {"cno = 3 or cno = 1", " RANGE 1\n  >= 1\n  <= 1\n RANGE 2\n  >= 3\n  <= 3\n"},
      {"cno = 1 or amount = 2", ""},
      {"5 < cno", " RANGE 1\n  > 5\n"},
      {"amount >= 1.234", "  > 1.234\n"},
      {"amount < 1.234", "  <= 1.234\n"},
      {"cno != 5", ""},
  };
  for (const auto& c : cases) {
    const tavtest::Compiled r =
        compile("procedure main\n" + loop(std::string("select cno amount from ord where ") + c.where) + "end\n", {"-x", "1"});
    ASSERT_EQ(r.result.status, 0) << c.where << r.result.out;
    EXPECT_TRUE(*c.trace == 0 ? !contains(r.result.out, "RANGE") : contains(r.result.out, c.trace)) << c.where << r.result.out;
  }
}

}  // namespace
