// ACCEPT: the field descriptor byte by byte, its messages, and the ACCEPT chain as RE-ENTER
// searches it.

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
using Words = std::vector<uint32_t>;

tavtest::Compiled compile(const std::string& body) {
  return compile_source("field n pic 9(4)\nfield s pic x(10)\nprocedure main\n" + body + "end\n");
}

// The ACCEPT ops of the first section's DETAIL.
std::vector<uint32_t> accepts(const Op6& t) { return ops_of(t, t.detail(), Op::accept); }

// The row, column, field, chain, type, length and options of an ACCEPT descriptor.
Words descriptor(const Op6& t, uint32_t accept_op) {
  const uint32_t d = t.u24(accept_op + acceptop::ao_desc);
  return {t.u24(d + adesc::ad_row),    t.u24(d + adesc::ad_column), t.u24(d + adesc::ad_field),
          t.u24(d + adesc::ad_chain),  t.u16(d + adesc::ad_type),   t.u16(d + adesc::ad_length),
          t.u16(d + adesc::ad_options)};
}

TEST(Accept, DescriptorLengthFollowsTheLastClause) {
  tavtest::Compiled c = compile(" accept n @ 2,3\n accept n @ 4,5 tag 7\n accept s @ 6,7 tag 1 scale 2\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  auto ops = accepts(t);
  ASSERT_EQ(ops.size(), 3u);
  EXPECT_EQ((Words{t.u16(ops[0] + acceptop::ao_length), t.u16(ops[1] + acceptop::ao_length), t.u16(ops[2] + acceptop::ao_length)}),
            (Words{26, 80, 89}));
  // In a DETAIL part; each ACCEPT links the one before it.
  EXPECT_EQ(descriptor(t, ops[0]), (Words{2, 3, t.field("n"), 0, t.u16(t.field("n") + fsym::f_format), 4, 0x1000}));
  EXPECT_EQ(descriptor(t, ops[1])[3], ops[0]);
  EXPECT_EQ(descriptor(t, ops[2])[3], ops[1]);
  uint32_t d1 = t.u24(ops[1] + acceptop::ao_desc), d2 = t.u24(ops[2] + acceptop::ao_desc);
  EXPECT_EQ(t.u16(d1 + adesc::ad_tag), 7u);
  EXPECT_EQ(t.u24(d2 + adesc::ad_scale), 2u);
}

TEST(Accept, FlagsFillAndSuppress) {
  tavtest::Compiled c = compile(
      " accept s @ 1,1 upper-case fill \"ab\" bold inverse right read-only\n"
      " accept s suppress justify\n");
  EXPECT_TRUE(reports(c.result.out, 4, "WARNING  Can only fill with a single character - 'ab'")) << c.result.out;
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  auto ops = accepts(t);
  ASSERT_EQ(ops.size(), 2u);
  uint32_t d = t.u24(ops[0] + acceptop::ao_desc);
  EXPECT_EQ(t.u16(ops[0] + acceptop::ao_length), 57u);
  EXPECT_EQ(t.u8(d + adesc::ad_fill), 'a');
  EXPECT_EQ(t.u16(d + adesc::ad_options), 0x1000u | 0x0002u | 0x4001u);
  EXPECT_EQ(t.u16(d + adesc::ad_display), 0x0020u | 0x0100u | 4u);
  // SUPPRESS without @ stands at 1,1; JUSTIFY fills with blanks on the left.
  const uint32_t e = t.u24(ops[1] + acceptop::ao_desc);
  EXPECT_EQ((Words{t.u24(e + adesc::ad_row), t.u24(e + adesc::ad_column), t.u8(e + adesc::ad_fill), t.u16(e + adesc::ad_options)}),
            (Words{1, 1, ' ', 0x1000u | 0x2001u | 0x0020u}));
}

TEST(Accept, Messages) {
  const std::pair<const char*, const char*> cases[] = {
      {" accept n\n", "line 4: ERROR  Row/Column coordinates are mandatory - 'n'"},
      {" accept n @ 1,1 fill spaces\n", "line 4: ERROR  Can only fill an alpha field - 'fill'"},
      {" accept n @ 1,1 justify\n", "line 4: ERROR  Can only justify an alpha field - 'justify'"},
      {" accept n @ 1,1 @ 2,2\n", "line 4: ERROR  Duplicate or incompatible clause - '@'"},
      {" accept n @ 1,1 no-clear show-value\n", "ERROR  Duplicate or incompatible clause - 'show-value'"},
      {" accept n @ 1,1 default \"x\"\n", "ERROR  Value not compatible with field"},
      {" accept n @ 1,1 picture x(3)\n", "ERROR  PICTURE not compatible with field/expression"},
      {" accept n @ 1,1 tag 70000\n", "ERROR  Numeric value invalid or out of range - '70000'"},
      {" accept n @ 1,1 time-out 5\n", "ERROR  TIMEOUT requires ON ERROR"},
      {" accept n @ 1,1 edit\n", "ERROR  EDIT clause no longer supported - 'edit'"},
      {" accept n @ 1,1 auto-return\n", "WARNING  AUTO-RETURN not currently implemented"},
      {" accept n @ 1,130\n", "WARNING  Display/Print line overflow"},
      {" accept n @ 0,1\n", "ERROR  Row/Column is invalid or out of range - '0'"},
      {" accept n @ 1,1 colour 5\n", "ERROR  Not a valid color - '5'"},
      {" accept n @ 1,1 when n = 1 title \"t\"\n", "WARNING  TITLEs are not conditional - 'n'"},
      {" accept 5\n", "ERROR  Field name expected - '5'"},
      {" accept n @ 1,1 validations\n  exit\n", "ERROR  END-VALIDATIONS missing"},
      {" accept n @ 1,1 before-accept\n  exit\n", "ERROR  END-BEFORE-ACCEPT missing"},
      {" accept n @ 1,1 on up-arrow\n  exit\nprocedure p2\n", "ERROR  END-ON (function key) missing"},
      {" accept n @ 1,1 on help-key exit end-on on help-key exit end-on\n", "line 4: ERROR  Duplicate or incompatible clause"},
      {" accept n @ 1,1 on frob\n", "ERROR  Syntax error - 'frob'"},
      {" accept n @ 1,1 allowed 1 \"a\"\n", "ERROR  Literal value not compatible with field - 'a'"},
      {" accept n @ 1,1 allowed n\n", "ERROR  Literal value expected - 'n'"},
      {" accept s @ 1,1 blank-when-zero\n", "ERROR  Field must be numeric"},
      {" accept n @ 1,1 picture 9(4) blank-when-zero\n", "ERROR  Duplicate or incompatible clause - 'blank-when-zero'"},
      {" accept n @ 1,1 frob\n", "ERROR  Invalid clause - 'frob'"},
  };
  for (const auto& [body, message] : cases) {
    const std::string out = compile(body).result.out;
    EXPECT_TRUE(contains(out, message)) << body << out;
  }
}

// The clauses that hold statements and lists: BEFORE-ACCEPT sees the ACCEPTs before this one,
// VALIDATIONS and ON blocks see this one; ON ERROR compiles its block after the op.
TEST(Accept, BlocksListsAndKeys) {
  tavtest::Compiled c = compile(
      " accept s @ 1,1\n"
      " accept n @ 2,1 allowed 1 to 5 value-title \"low\" 9 disallowed 7\n"
      "  before-accept accept s @ 3,1 end-before-accept\n"
      "  validations re-enter n end-validations\n"
      "  on up-arrow exit end-on on help-key exit end-on\n"
      "  time-out 5 on error exit end-on blank-when-zero\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  auto ops = accepts(t);
  ASSERT_EQ(ops.size(), 2u);
  const uint32_t d = t.u24(ops[1] + acceptop::ao_desc);
  EXPECT_EQ(t.u16(ops[1] + acceptop::ao_length), 75u);
  auto allowed = t.list(t.u24(d + adesc::ad_allowed));
  ASSERT_EQ(allowed.size(), 2u);
  EXPECT_NE(t.u24(allowed[0] + valnode::vn_upper), 0u);
  EXPECT_EQ(t.opcode(t.u24(allowed[0] + valnode::vn_title)), Op::text_item);
  EXPECT_EQ(t.u24(allowed[1] + valnode::vn_upper), 0u);
  EXPECT_EQ(t.list(t.u24(d + adesc::ad_disallowed)).size(), 1u);
  // The last ON first.
  auto keys = t.list(t.u24(d + adesc::ad_on_keys));
  ASSERT_EQ(keys.size(), 2u);
  EXPECT_EQ(static_cast<int16_t>(t.u16(keys[0] + onkey::ok_key)), -5);
  EXPECT_EQ(static_cast<int16_t>(t.u16(keys[1] + onkey::ok_key)), -7);
  EXPECT_EQ(t.codes(t.u24(keys[1] + onkey::ok_block)), std::vector<Op>{Op::exit});
  // The ACCEPT inside BEFORE-ACCEPT chains to the first ACCEPT and is nested.
  uint32_t inner = 0;
  for (uint32_t op : t.list(t.u24(d + adesc::ad_before)))
    if (t.opcode(op) == Op::accept) inner = t.u24(op + acceptop::ao_desc);
  ASSERT_NE(inner, 0u);
  EXPECT_EQ(t.u24(inner + adesc::ad_chain), ops[0]);
  EXPECT_EQ(t.u16(inner + adesc::ad_options) & 0x0800u, 0x0800u);
  // RE-ENTER in VALIDATIONS finds the ACCEPT that owns them.
  for (uint32_t op : t.list(t.u24(d + adesc::ad_validations)))
    if (t.opcode(op) == Op::re_enter) {
      EXPECT_EQ(t.u24(op + reenter::re_target), ops[0]);
    }
  EXPECT_NE(t.u24(ops[1] + acceptop::ao_on_error), 0u);
  EXPECT_EQ(t.text(t.u24(d + adesc::ad_picture)), "zzzz");
}

// RE-ENTER finds the field's ACCEPT through the chain; a READ-ONLY or SUPPRESSed one is not a
// target.
TEST(Accept, ReEnterSearchesTheChain) {
  tavtest::Compiled c = compile(" accept n @ 1,1\n accept s @ 2,1\n if n = 1\n  re-enter n\n end-if\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  auto ops = t.list(t.detail());
  uint32_t first = accepts(t)[0];
  uint32_t before = 0;
  for (uint32_t op : ops)
    if (t.u24(op) == first) before = op;
  ASSERT_NE(before, 0u);
  uint32_t if_op = ops.back();
  uint32_t re = 0;
  for (uint32_t op : t.list(t.u24(if_op + 9)))
    if (t.opcode(op) == Op::re_enter) re = op;
  ASSERT_NE(re, 0u);
  EXPECT_EQ(t.u24(re + reenter::re_target), before);

  for (const char* body : {" accept n @ 1,1 read-only\n re-enter n\n", " accept n suppress\n re-enter n\n",
                           " accept s @ 1,1\n re-enter n\n"}) {
    const std::string out = compile(body).result.out;
    EXPECT_TRUE(contains(out, "ERROR  Field not previously ACCEPTed in screen - 'n'")) << body << out;
  }
}

// Compiles `program` against a dictionary loaded from `schema` with tavdict, whose documentation
// table `damage` (an SQL statement) then changes behind tavdict's back.
tavtest::Compiled compile_against(const std::string& schema, const std::string& program, const std::string& damage = "") {
  TempDir dir;
  load_dictionary(dir, "shop", schema);
  if (!damage.empty()) sql(dir / "shopD4.idx", damage);
  write_file(dir / "prog.spl", program);
  tavtest::Compiled c{tavcmp(dir.path(), {"-l", "prog.spl"}, {{"TAVDICT=shop"}, {"TAVUSRDICT", "TAVDISTDICT", "TAVPATH"}}), {}};
  if (file_exists(dir / "prog.op6")) c.image = Op6(read_file(dir / "prog.op6"));
  return c;
}

// The validation text of a dictionary field is read as if it followed every ACCEPT of the
// field: its clauses add what the program left unset, a clause the program gave stays the
// program's, and a clause the text may not hold is reported on the text's own line under the
// field's name, after which the program goes on.
TEST(Accept, DictionaryValidationText) {
  const tavtest::Compiled c = compile_against(
      "field cust-no pic 9(6)\n"
      "field cust-name pic x(30)\n"
      "//% field cust-name validation upper-case default \"dict\"\n"
      "//% field cust-name validation tag 9\n",
      "procedure main\n"
      " accept cust-name @ 1,1 default \"program\"\n"
      " accept cust-no @ 2,1 frob\n"
      "end\n",
      // tavdict refuses a text the compiler would refuse; one changed later still reaches it.
      "UPDATE dict_documentation SET doc_line = 'tag 9 when cust-no = 1' WHERE doc_type = 3 AND doc_line_no = 2");
  EXPECT_TRUE(contains(c.result.out, "[cust-name], line 2: ERROR  Clause cannot be specified in dictionary - 'when'"))
      << c.result.out;
  EXPECT_TRUE(contains(c.result.out, "prog.spl, line 3: ERROR  Invalid clause - 'frob'")) << c.result.out;
  EXPECT_FALSE(contains(c.result.out, "Duplicate")) << c.result.out;
}

// An ACCEPT at the very end of the program: the end of the validation text gives the position
// back, and the program's own end of input ends the clauses.
TEST(Accept, DictionaryValidationTextAtTheEndOfTheProgram) {
  const tavtest::Compiled c = compile_against(
      "field cust-name pic x(30)\n//% field cust-name validation upper-case\n",
      "procedure main\n accept cust-name @ 1,1");
  EXPECT_FALSE(contains(c.result.out, "[EOF]")) << c.result.out;
  EXPECT_EQ(c.result.status, 0) << c.result.out;
}

TEST(Accept, DictionaryValidationDescriptor) {
  const tavtest::Compiled c = compile_against(
      "field cust-name pic x(30)\n"
      "//% field cust-name validation upper-case default \"dict\"\n"
      "//% field cust-name validation tag 9 fill zeros\n",
      "procedure main\n"
      " accept cust-name @ 1,1 lower-case fill spaces\n"
      "end\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  const uint32_t op = accepts(t).at(0), d = t.u24(op + acceptop::ao_desc);
  EXPECT_EQ(t.u16(op + acceptop::ao_length), 80u);
  EXPECT_EQ(t.u16(d + adesc::ad_options), 0x1000u | 0x0004u | 0x0001u);  // the program's LOWER-CASE; DEFAULT
  EXPECT_EQ((Words{t.u8(d + adesc::ad_fill), t.u16(d + adesc::ad_tag)}), (Words{' ', 9}));
  EXPECT_NE(t.u24(d + adesc::ad_default), 0u);
}

// LOOKUP: the object's key and, when the ACCEPTed field is not part of it, the field as the key
// value; its checks.
TEST(Accept, LookUp) {
  const std::string defs =
      "field code pic x(4)\nfield other pic x(4)\nfield qty pic 9(4)\n"
      "object codes type indexed file \"codes\" record code end-record key code unique\n"
      "object plain type sequential file \"p\" record other end-record\n"
      "procedure main\n";
  tavtest::Compiled c = compile_source(defs + " accept other @ 1,1 lookup not in codes\n accept code @ 2,1 lookup codes\nend\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  auto ops = accepts(t);
  ASSERT_EQ(ops.size(), 2u);
  const uint32_t d1 = t.u24(ops[0] + acceptop::ao_desc), d0 = t.u24(ops[1] + acceptop::ao_desc);
  const uint32_t l0 = t.u24(d0 + adesc::ad_lookup), l1 = t.u24(d1 + adesc::ad_lookup);
  EXPECT_EQ(t.u24(l0 + accesskey::a_object), t.object("codes"));
  EXPECT_EQ(t.u24(t.u24(l0 + accesskey::a_list) + lookupkey::lk_field), t.field("code"));
  EXPECT_EQ(t.u24(l0 + accesskey::a_values), 0u);  // code is the key itself
  const uint32_t value = t.u24(t.u24(l1 + accesskey::a_values) + exprlist::el_list);
  EXPECT_EQ(t.opcode(value), Op::field_ref);
  EXPECT_EQ(t.u24(value + fieldref::fr_field), t.field("other"));
  EXPECT_EQ(t.u16(d1 + adesc::ad_options) & 0x0008u, 0x0008u);

  const struct {
    const char* body;
    const char* message;
  } cases[] = {
      {" accept qty @ 1,1 lookup codes\n", "ERROR  Key values not compatible with key format required"},
      {" accept other @ 1,1 lookup plain\n", "ERROR  I/O operation invalid for object's file type"},
      {" accept code @ 1,1\n accept other @ 2,1 lookup codes\n", "WARNING  ACCEPTed field not in index for LOOKUP"},
      {" accept other @ 1,1 lookup codes lookup codes\n", "ERROR  Duplicate or incompatible clause"},
  };
  for (const auto& k : cases) {
    const std::string out = compile_source(defs + k.body + "end\n").result.out;
    EXPECT_TRUE(contains(out, k.message)) << k.body << out;
  }
}

// In the DETAIL of a DATA-GRID, a dictionary field accepted in the review area without a title of
// its own takes the dictionary's column title.
TEST(Accept, DictionaryColumnTitle) {
  const tavtest::Compiled c = compile_against(
      "field cust-no pic 9(6)\nfield cust-name pic x(30)\n//% field cust-name title Customer\n"
      "object cust type indexed file \"cust\" record cust-no cust-name end-record key cust-no unique\n",
      "screen g data-grid occurs 5 primary cust\ndetail\n"
      " accept cust-name @ 3,1\n accept cust-name @ 3,40 no-title\n accept cust-name @ 9,1\n"
      " accept cust-no @ 3,60\nend\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  std::vector<uint32_t> titles;
  for (uint32_t op : t.list(t.u24(t.section_named("g") + ssym::s_detail)))
    if (t.opcode(op) == Op::accept) titles.push_back(t.u16(op + acceptop::ao_length) > adesc::ad_title ? t.u24(t.u24(op + acceptop::ao_desc) + adesc::ad_title) : 0);
  ASSERT_EQ(titles.size(), 4u);
  EXPECT_EQ(t.opcode(titles[0]), Op::text_item);
  EXPECT_EQ((Words{titles[1], titles[2], titles[3]}), (Words{0, 0, 0}));
}

// HELP-SCREEN: the hidden look-up screen its ACCEPT's descriptor leads to (bytes 75-77).
const char kLookUp[] =
    "field code pic x(4)\nfield descr pic x(20)\nfield qty pic 9(4)\nfield pick pic x(4)\n"
    "field arr pic x(4) occurs 3\nfield other pic x(4)\n"
    "object codes type indexed file \"codes\" record code descr qty end-record key code unique no-joins\n"
    "object more type indexed file \"more\" record other end-record key other unique no-joins\n"
    "screen main\ndetail\n";  // the ACCEPT is on line 11

tavtest::Compiled compile_help(const std::string& accept, std::vector<std::string> options = {}) {
  return compile_source(kLookUp + accept + "\nend\n", std::move(options));
}

uint32_t help_screen_of(const Op6& t, uint32_t accept_op) {
  EXPECT_EQ(t.u16(accept_op + acceptop::ao_length), 78u);
  return t.u24(t.u24(accept_op + acceptop::ao_desc) + adesc::ad_help_screen);
}

TEST(HelpScreen, HiddenScreenAndItsCode) {
  tavtest::Compiled c = compile_help(" accept pick @ 2,1 help-screen @ 10,1 showing code \"Code\" descr primary codes using codes.code");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  const uint32_t s = help_screen_of(t, accepts(t)[0]), codes = t.object("codes");
  EXPECT_EQ(t.text(t.u24(s + ssym::s_name)), "~-hs");
  EXPECT_EQ(t.sections(), std::vector<uint32_t>{t.section_named("main")});  // in no section list
  EXPECT_EQ((Words{t.u16(s + ssym::s_kind) & ssym::kind_mask, t.u16(s + ssym::s_flags)}), (Words{ssym::kind_screen, 0x8091}));
  std::string modes;
  for (uint32_t e : t.list(t.u24(s + ssym::s_modes))) modes += t.text(t.u24(t.u24(e + modelist::ml_mode) + mode::m_name)) + " ";
  EXPECT_EQ(modes, "~-select find next-scr prev-scr next prev ");
  EXPECT_NE(t.u24(s + ssym::s_select), 0u);
  EXPECT_EQ((Words{t.u24(s + ssym::s_primary), t.u16(s + ssym::s_occurs), t.u16(s + ssym::s_base), t.u16(s + ssym::s_review_by)}),
            (Words{codes, 10, 11, 1}));

  // BEFORE: the frame and the record put aside; AFTER: the record back.
  const auto before = t.list(t.u24(s + ssym::s_before));
  ASSERT_EQ(t.codes(before[0]), (std::vector<Op>{Op::box, Op::save}));
  const uint32_t box = t.u24(before[0] + boxop::bo_box);
  const uint32_t after = t.u24(s + ssym::s_after);
  ASSERT_EQ(t.codes(after), std::vector<Op>{Op::restore});
  EXPECT_EQ((Words{t.u24(box), t.u24(box + 3), t.u24(box + 6), t.u24(box + 9), t.u24(before[1] + objop::ob_object),
                   t.u24(after + restoreop::rs_object)}),
            (Words{10, 1, 23, 30, codes, codes}));

  // DETAIL: IF "~-select" = function 73 (), the USING field into the ACCEPTed one and EXIT; then
  // one ACCEPT per shown field under its title.
  const auto detail = t.list(t.u24(s + ssym::s_detail));
  ASSERT_EQ(t.codes(detail[0]), (std::vector<Op>{Op::if_, Op::set, Op::exit, Op::accept, Op::accept}));
  const uint32_t cond = t.u24(detail[0] + ifop::if_condition);
  ASSERT_EQ(t.codes(cond), (std::vector<Op>{Op::mode_constant, Op::function_call, Op::comparison}));
  const auto c3 = t.list(cond);
  EXPECT_EQ(t.text(t.u24(t.u32(t.u24(c3[0] + nameop::na_value)) + mode::m_name)), "~-select");
  const uint32_t value = t.u24(detail[1] + setop::st_value);
  // The name's type, the function, the comparison, the IF's false branch, the SET's field and
  // value (its object kept: the object is NO-JOINS).
  EXPECT_EQ((Words{t.u8(c3[0] + nameop::na_type), t.u16(c3[1] + funcall::fc_number), t.u16(c3[2] + cmpop::cmp_code),
                   t.u24(detail[0] + ifop::if_false), t.u24(detail[1] + setop::st_field), t.u24(value + fieldref::fr_field),
                   t.u24(value + fieldref::fr_object)}),
            (Words{'!', 73, 0x1000, detail[2], t.field("pick"), t.field("code"), codes}));
  const struct {
    uint32_t op;
    const char* field;
    uint32_t column, chain;
    const char* title;
  } shown[] = {{detail[3], "code", 3, 0, "Code"}, {detail[4], "descr", 8, detail[3], "descr"}};
  for (const auto& f : shown) {
    EXPECT_EQ(t.u16(f.op + acceptop::ao_length), 89u);
    const uint32_t d = t.u24(f.op + acceptop::ao_desc);
    EXPECT_EQ((Words{t.u24(d + adesc::ad_field), t.u16(d + adesc::ad_options), t.u24(d + adesc::ad_row), t.u24(d + adesc::ad_column),
                     t.u24(d + adesc::ad_chain)}),
              (Words{t.field(f.field), 0x1000, 11, f.column, f.chain}));
    EXPECT_EQ((Words{t.u24(d + adesc::ad_title_pos), t.u24(d + adesc::ad_title_pos + 3)}),
              (Words{10, f.column}));
    const uint32_t title = t.u24(d + adesc::ad_title);
    ASSERT_EQ(t.opcode(title), Op::text_item);
    EXPECT_EQ(t.text(t.u24(t.u24(hdr::h_text) + t.u16(title + textitem::ti_item) * textent::size + textent::te_text)), f.title);
  }

  // tavdump shows the screen where the ACCEPT names it.
  TempDir dir;
  tavtest::write_file(dir / "help.op6", t.bytes());
  const std::string dump = tavtest::run({tavtest::program("tavdump"), dir / "help.op6"}).out;
  for (const char* line : {"ad_help_screen 0x", "\"~-hs\"\n          s_prompt_pos",
                           "s_modes [\"~-select\" \"find\" \"next-scr\" \"prev-scr\" \"next\" \"prev\"]"})
    EXPECT_TRUE(contains(dump, line)) << line << dump;
}

// Under -d the generated call of the selection test carries the function's word, as a call
// written in a program does.
TEST(HelpScreen, DebugCallCarriesTheFunctionWord) {
  tavtest::Compiled c = compile_help(" accept pick @ 2,1 help-screen showing code primary codes using codes.code", {"-d"});
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  const uint32_t s = help_screen_of(t, accepts(t)[0]);
  uint32_t call = 0;
  for (uint32_t op : t.list(t.u24(s + ssym::s_detail)))
    if (t.opcode(op) == Op::if_) call = ops_of(t, t.u24(op + ifop::if_condition), Op::function_call).at(0);
  ASSERT_NE(call, 0u);
  EXPECT_EQ(t.u16(call + funcall::fc_number), 73u);
  EXPECT_EQ(t.u32(t.u24(call + funcall::fc_verb)), verb("get_system_metrics"));
}

// Where the window stands and how far it reaches: 20 - row entries by default, the fields side by
// side from two columns in, at least 12 columns wide.
TEST(HelpScreen, WindowGeometry) {
  const struct {
    const char* clauses;
    uint32_t top, left, bottom, right, occurs;
  } cases[] = {
      {"showing code descr", 10, 1, 23, 30, 10},
      {"@ 10,1 showing code descr", 10, 1, 23, 30, 10},
      {"@ 5,10 occurs 4 showing code descr", 5, 10, 12, 39, 4},
      {"@ 2,1 occurs 1 showing code", 2, 1, 6, 13, 1},
  };
  for (const auto& k : cases) {
    tavtest::Compiled c = compile_help(std::string(" accept code @ 2,1 help-screen ") + k.clauses + " primary codes");
    ASSERT_EQ(c.result.status, 0) << k.clauses << c.result.out;
    const uint32_t s = help_screen_of(c.image, accepts(c.image)[0]);
    const Op6& t = c.image;
    EXPECT_EQ((Words{t.u24(s + ssym::s_window_top), t.u24(s + ssym::s_window_top + 3),
                                     t.u24(s + ssym::s_window_bottom), t.u24(s + ssym::s_window_bottom + 3),
                                     t.u16(s + ssym::s_occurs)}),
              (Words{k.top, k.left, k.bottom, k.right, k.occurs})) << k.clauses;
    // The ACCEPTed field is the one returned: no assignment before the EXIT.
    EXPECT_EQ(t.opcode(t.list(t.u24(s + ssym::s_detail))[1]), Op::exit) << k.clauses;
  }
}

TEST(HelpScreen, Messages) {
  const struct {
    const char* accept;
    const char* message;
  } cases[] = {
      {" accept pick @ 2,1 on help-key exit end-on help-screen showing code primary codes using code",
       "line 11: ERROR  Duplicate or incompatible clause - 'help-screen'"},
      {" accept pick @ 2,1 help-screen showing code primary codes using code on help-key exit end-on",
       "line 11: ERROR  Duplicate or incompatible clause - 'help-key'"},
      {" accept code @ 2,1 help-screen @ 21,1 showing code primary codes", "line 11: ERROR  HELP-SCREEN OCCURS amount is too small"},
      {" accept code @ 2,1 help-screen @ 15,1 occurs 6 showing code primary codes", "line 11: ERROR  HELP-SCREEN extends past bottom of screen"},
      {" accept code @ 2,1 help-screen occurs 25 showing code primary codes", "line 11: ERROR  Numeric value invalid or out of range - '25'"},
      {" accept code @ 2,1 help-screen occurs x showing code primary codes", "line 11: ERROR  Numeric-literal expected - 'x'"},
      {" accept code @ 2,1 help-screen showing code", "line 11: ERROR  No PRIMARY clause for HELP-SCREEN"},
      {" accept code @ 2,1 help-screen primary codes", "line 11: ERROR  No SHOWING clause for HELP-SCREEN"},
      {" accept code @ 2,1 help-screen @ qty,1 showing code primary codes", "line 11: ERROR  HELP-SCREEN window coordinates cannot be expressions"},
      {" accept pick @ 2,1 help-screen showing code primary codes using qty", "line 11: ERROR  Incompatible field - 'qty'"},
      {" accept arr[1] @ 2,1 help-screen showing code primary codes using code",
       "line 11: ERROR  USING cannot be used if ACCEPTed field is subscripted - 'code'"},
      {" accept pick @ 2,1 help-screen showing code\n  other primary codes using code",
       "line 12: ERROR  Field not contained in help object - 'other'"},
      {" accept pick @ 2,1 help-screen\n showing code primary codes", "line 11: ERROR  Field not contained in help object - 'pick'"},
      {" accept code @ 2,1 help-screen showing codes.code more.other primary codes", "line 11: ERROR  Object prefixes are not consistent"},
      {" accept code @ 2,1 help-screen showing code code code code code code code code code code code code code code code code code "
       "code code code code primary codes", "line 11: ERROR  Too many fields in HELP-SCREEN - 'code'"},
      {" accept code @ 2,1 help-screen @ 1,60 showing code descr primary codes", "line 11: ERROR  HELP-SCREEN is too wide"},
      {" accept code @ 2,1 help-screen showing code primary codes showing descr", "line 11: ERROR  Duplicate or incompatible clause - 'showing'"},
      {" accept pick @ 2,1 help-screen showing descr primary codes using code", "line 11: WARNING  USING field not being shown - 'code'"},
  };
  for (const auto& k : cases) {
    const std::string out = compile_help(k.accept).result.out;
    EXPECT_TRUE(contains(out, k.message)) << k.accept << out;
  }
}

// A shown field of a dictionary is read with its validation text, as a written ACCEPT is.
TEST(HelpScreen, ShownFieldsTakeTheirValidationText) {
  const tavtest::Compiled c = compile_against(
      "field cust-no pic 9(6)\nfield cust-name pic x(30)\n//% field cust-name validation upper-case\n"
      "object cust type indexed file \"cust\" record cust-no cust-name end-record key cust-no unique\n",
      "screen main\ndetail\n accept cust-no @ 1,1 help-screen showing cust-name cust-no primary cust\nend\n");
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  const Op6& t = c.image;
  const auto detail = t.list(t.u24(help_screen_of(t, accepts(t)[0]) + ssym::s_detail));
  ASSERT_EQ(detail.size(), 4u);
  EXPECT_EQ(t.u16(t.u24(detail[2] + acceptop::ao_desc) + adesc::ad_options), 0x1002u);
  EXPECT_EQ(t.u16(t.u24(detail[3] + acceptop::ao_desc) + adesc::ad_options), 0x1000u);
}

}  // namespace
