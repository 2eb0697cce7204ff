// tavdict as a program: schemas loaded into dictionaries and dumped back, reloads, refused
// input, the consistency check on damaged rows, and a compile against a loaded dictionary.

#include "symbols/records.h"
#include "tests/e2e/driver_fixture.h"

namespace {

using namespace drvtest;

RunResult tavdict(const TempDir& dir, const std::vector<std::string>& args) {
  std::vector<std::string> argv{tavtest::program("tavdict")};
  argv.insert(argv.end(), args.begin(), args.end());
  tavtest::RunOptions options;
  options.cwd = dir.path();
  return tavtest::run(argv, options);
}

const char* const kShop =
    "// The shop's files.\n"
    "field cust-no pic 9(6)\n"
    "//% field cust-no description Customer number\n"
    "//% field cust-no doc The number a customer is known by.\n"
    "//% field cust-no doc\n"
    "field cust-name pic x(30) upper-case db-column-name \"name\"\n"
    "//% field cust-name title Customer\n"
    "//% field cust-name validation help \"The customer's name\"\n"
    "field balance pic s9(7)v99 type packed\n"
    "#define WITH_DATES\n"
    "#ifdef WITH_DATES\n"
    "field opened type date\n"
    "#endif\n"
    "field tags pic x(4) occurs 3 justify\n"
    "object customer type indexed file \"cust\" version \"5\"\n"
    "  record cust-no cust-name balance opened tags end-record\n"
    "  key cust-no unique\n"
    "  key cust-name desc cust-no compress\n"
    "//% object customer description Customers\n"
    "//% object customer doc One row per customer.\n"
    "object orders type sequential file \"orders.dat\"\n"
    "  record order-no pic 9(8) drill-back \"show-order %order-no%\" cust-no\n"
    "    amount pic 9(7)v99 rounded end-record\n";

std::string dump(const TempDir& dir, const std::string& dict) {
  const RunResult r = tavdict(dir, {"dump", dict});
  EXPECT_EQ(r.status, 0) << r.err;
  return r.out;
}

TEST(Tavdict, DumpLoadsBackToTheSameRows) {
  TempDir dir;
  load_dictionary(dir, "app", kShop);
  for (const char* file : {"appO4.idx", "appF4.idx", "appR4.idx", "appK4.idx", "appD4.idx", "appOR4.idx",
                           "appPR4.idx", "appPO4.idx", "app-dict.ver"})
    EXPECT_TRUE(file_exists(dir / file)) << file;
  const std::string first = dump(dir, "app");
  for (const char* line : {"field balance pic s9(7)v9(2) type packed\n", "field opened type date\n",
                           "field tags pic x(4) occurs 3 justify\n",
                           "field order-no pic 9(8) drill-back \"show-order %order-no%\"\n",
                           "field amount pic 9(7)v9(2) rounded\n", "  key cust-name desc cust-no compress\n",
                           "//% field cust-name validation help \"The customer's name\"\n"})
    EXPECT_TRUE(contains(first, line)) << line << first;

  load_dictionary(dir, "copy", first);
  EXPECT_EQ(dump(dir, "copy"), first);
  // The rows themselves: ids in order, flags and documentation kinds as the compiler reads them.
  EXPECT_EQ(sql(dir / "copyF4.idx", "SELECT fld_id || ':' || fld_desc || ':' || fld_type || ':' || fld_flags || "
                                      "':' || fld_col_name FROM dict_field WHERE fld_name = 'cust-name'"),
            "2:30:A:1:name");
  EXPECT_EQ(sql(dir / "copyK4.idx", "SELECT key_flags || ':' || num_fields || ':' || k_fld_id_1 || ':' || "
                                      "k_desc_flag_1 FROM dict_key WHERE obj_id = 1 AND index_no = 2"),
            "5:2:2:Y");
  EXPECT_EQ(sql(dir / "copyD4.idx", "SELECT doc_line FROM dict_documentation WHERE doc_type = 5 AND doc_line_no = 0"),
            "show-order %order-no%");
  EXPECT_EQ(sql(dir / "copyR4.idx", "SELECT group_concat(rec_offset) FROM dict_record WHERE obj_id = 2"), "0,4,8");
}

TEST(Tavdict, ReloadKeepsIdsAndReplacesTheObject) {
  TempDir dir;
  load_dictionary(dir, "app", kShop);
  load_dictionary(dir, "app",
       "field added pic x(2)\n"
       "field cust-no pic 9(6)\n"
       "object customer type indexed file \"cust2\" record cust-no added end-record key cust-no unique\n");
  const std::string text = dump(dir, "app");
  EXPECT_TRUE(contains(text, "object customer type indexed file \"cust2\"\n  record cust-no added end-record\n  key cust-no unique\n"))
      << text;
  EXPECT_EQ(sql(dir / "appF4.idx", "SELECT fld_id FROM dict_field WHERE fld_name = 'cust-no'"), "1");
  EXPECT_EQ(sql(dir / "appF4.idx", "SELECT fld_id FROM dict_field WHERE fld_name = 'added'"), "8");
  EXPECT_EQ(sql(dir / "appO4.idx", "SELECT obj_id FROM dict_object WHERE obj_name = 'customer'"), "1");
  EXPECT_EQ(sql(dir / "appK4.idx", "SELECT count(*) FROM dict_key WHERE obj_id = 1"), "1");
  // The reload's documentation replaced the old lines of the fields it names.
  EXPECT_EQ(sql(dir / "appD4.idx", "SELECT count(*) FROM dict_documentation WHERE doc_type = 2 AND doc_id = 1"), "0");
}

TEST(Tavdict, BadInputLoadsNothing) {
  TempDir dir;
  load_dictionary(dir, "app", kShop);
  const std::string before = dump(dir, "app");
  struct Case {
    std::string schema;
    std::vector<std::string> args;
    const char* err;
  };
  const Case cases[] = {
      {"field a pic x(5)\nobject o type indexed record a b end-record key a\n", {}, "Field not defined - 'b'"},
      {"field a pic x(5)\n//% field zz doc x\n", {}, "in.sch, line 2: the schema has no field 'zz'"},
      {"field a pic x(5)\n//% field a description " + std::string(41, 'd') + "\n", {}, "longer than 40"},
      {"field a pic x(5) db-column-name \"a-column-name-too-long\"\n", {}, "longer than 16"},
      {"field a pic x(5)\nscreen main\n", {}, "error"},
      {"", {"load", "srv:/x/app", "in.sch"}, "names a file server"},
      {"", {"load", "app", "missing.sch"}, "missing.sch: cannot be read"},
      {"", {"dump", "nowhere"}, "no dictionary here"},
  };
  for (const Case& c : cases) {
    write_file(dir / "in.sch", c.schema);
    const RunResult r = tavdict(dir, c.args.empty() ? std::vector<std::string>{"load", "app", "in.sch"} : c.args);
    EXPECT_EQ(r.status, 1) << c.err;
    EXPECT_TRUE(contains(r.err, c.err)) << c.err << "\n" << r.err;
  }
  EXPECT_EQ(dump(dir, "app"), before);

  write_file(dir / "junkO4.idx", "not a database");
  const RunResult junk = tavdict(dir, {"check", "junk"});
  EXPECT_EQ(junk.status, 1);
  EXPECT_TRUE(contains(junk.err, "Can't open/access dictionary 'junk'")) << junk.err;

  for (const std::vector<std::string>& usage : {std::vector<std::string>{}, {"frob", "app"}, {"dump", "app", "extra"}})
    EXPECT_EQ(tavdict(dir, usage).status, 2) << usage.size();
  const RunResult help = tavdict(dir, {"--help"});
  EXPECT_EQ(help.status, 0);
  for (const char* command : {"tavdict load", "tavdict dump", "tavdict check"}) EXPECT_TRUE(contains(help.out, command)) << command;
}

TEST(Tavdict, CheckNamesTheObjectOfEachDamage) {
  struct Case {
    const char* table;
    const char* sql;
    const char* report;
  };
  const Case cases[] = {
      {"R", "UPDATE dict_record SET rec_offset = 35 WHERE obj_id = 1 AND fld_id = 3",
       "customer: dict_err: rec offsets invalid for object customer"},
      {"O", "UPDATE dict_object SET obj_recsize = 13 WHERE obj_name = 'orders'",
       "orders: dict_err: record size wrong for object 'orders'"},
      {"F", "UPDATE dict_field SET fld_size = 41 WHERE fld_name = 'order-no'",
       "orders: dict_err: definition of field 'order-no' invalid"},
      {"K", "UPDATE dict_key SET k_fld_id_1 = 7 WHERE obj_id = 1 AND index_no = 2",
       "customer: FATAL  dict_error: key field not in record for object - 'customer'"},
      {"K", "UPDATE dict_key SET k_fld_id_1 = 5 WHERE obj_id = 1 AND index_no = 1",
       "customer: FATAL  dict_error: key field is subscripted in object - 'customer'"},
      {"K", "UPDATE dict_key SET key_flags = 2 WHERE obj_id = 1 AND index_no = 1",
       "customer: FATAL  dict_err: DB-only index preceeds normal index - 'customer'"},
      {"K", "DELETE FROM dict_key WHERE obj_id = 1",
       "customer: FATAL  Can't access key info. for object - 'customer'"},
  };
  for (const Case& c : cases) {
    TempDir dir;
    load_dictionary(dir, "app", kShop);
    EXPECT_EQ(tavdict(dir, {"check", "app"}).status, 0);
    sql(dir / (std::string("app") + c.table + "4.idx"), c.sql);
    const RunResult r = tavdict(dir, {"check", "app"});
    EXPECT_EQ(r.status, 1) << c.sql;
    EXPECT_TRUE(contains(r.out, c.report) && contains(r.out, "2 object(s) checked, 1 with problems")) << c.sql << "\n" << r.out;
  }
}

TEST(Tavdict, CompilerUsesALoadedDictionary) {
  TempDir dir;
  load_dictionary(dir, "app", kShop);
  write_file(dir / "prog.spl", "object cust2 like customer\nprocedure main\n  set cust-name = \"x\"\n  pause\nend-procedure\n");
  const RunResult r = tavcmp(dir.path(), {"-l", "-g", "app", "prog.spl"});
  ASSERT_EQ(r.status, 0) << r.out;
  const tavtest::Op6 img(read_file(dir / "prog.op6"));
  const uint32_t o = img.object("cust2"), f = img.field("cust-name");
  ASSERT_NE(o, 0u);
  ASSERT_NE(f, 0u);
  namespace osym = tav::osym;
  namespace fsym = tav::fsym;
  EXPECT_EQ(img.text(img.u24(o + osym::o_file)), "cust");
  // Record size, object id, dictionary number, file type and version of the object.
  EXPECT_EQ((std::vector<uint32_t>{img.u16(o + osym::o_recsize), img.u16(o + osym::o_objid), img.u16(o + osym::o_dictno),
                                   img.u8(o + osym::o_filtype), img.u8(o + osym::o_version)}),
            (std::vector<uint32_t>{54, 1, 0, 'I', '5'}));
  // Format, size, type, field id and case flags of the field.
  EXPECT_EQ((std::vector<uint32_t>{img.u16(f + fsym::f_format), img.u16(f + fsym::f_size), img.u8(f + fsym::f_type),
                                   img.u16(f + fsym::f_fldid), img.u16(f + fsym::f_flags) & 7u}),
            (std::vector<uint32_t>{30, 30, 'A', 2, 1}));
}

}  // namespace
