// tavcmp --xref=FILE: every name with its definition and uses (in includes too), the objects
// each statement reads and writes, the index each SELECT and GET reads by; the classic output
// does not change with it.
#include <nlohmann/json.hpp>

#include "tests/e2e/driver_fixture.h"

namespace {

using namespace drvtest;
using Json = nlohmann::json;

// Lines: 1 the include, 2-7 the objects, 9 the first section, whose parameter is a field of its own.
// Line 17 has an error (ord is no NO-JOINS object): the cross reference is made all the same.
const char* const kProgram =
    "#include \"fields.inc\"\n"
    "object cust type indexed file \"cust\"\n"
    "  record region cno cname end-record\n"
    "  key region cno unique\n"
    "object ord type indexed file \"ord\"\n"
    "  record cno amount end-record\n"
    "  key cno\n"
    "\n"
    "procedure main parameters tally pic 9(8)\n"
    "\n"
    "  select cno, cname from cust where region = \"EU\" and cno > 10\n"
    "  detail\n"
    "    set tally = tally + 1\n"
    "  end-select\n"
    "  select cno, amount from ord\n"
    "  detail\n"
    "    set tally = ord.amount\n"
    "  end-select\n"
    "  get cust key \"EU\" 1\n"
    "  delete cust\n"
    "  do report-it\n"
    "end\n"
    "procedure report-it\n"
    "  pause\n"
    "end\n";

const char* const kInclude =
    "field cno pic 9(6)\nfield region pic x(4)\nfield cname pic x(30)\nfield amount pic 9(6)v99\n";

const Json* symbol(const Json& program, const std::string& kind, const std::string& name) {
  for (const Json& s : program["symbols"])
    if (s["kind"] == kind && s["name"] == name) return &s;
  return nullptr;
}

// file:line:column of each reference, for short comparisons.
std::vector<std::string> places(const Json& s) {
  std::vector<std::string> out;
  for (const Json& r : s["references"])
    out.push_back(r["file"].get<std::string>() + ":" + std::to_string(r["line"].get<int>()) + ":" +
                  std::to_string(r["column"].get<int>()) + "-" + std::to_string(r["endColumn"].get<int>()));
  return out;
}

TEST(Xref, NamesReadsAndClassicOutputUnchanged) {
  TempDir dir;
  write_file(dir / "prog.spl", kProgram);
  write_file(dir / "fields.inc", kInclude);
  const RunResult plain = tavcmp(dir.path(), {"-lnt", "prog.spl"});
  const RunResult r = tavcmp(dir.path(), {"-lnt", "--xref=prog.xref.json", "prog.spl"});
  ASSERT_EQ(r.status, plain.status) << r.out;
  EXPECT_EQ(r.out, plain.out);
  ASSERT_TRUE(file_exists(dir / "prog.xref.json")) << r.out;
  const Json doc = Json::parse(read_file(dir / "prog.xref.json"));
  ASSERT_EQ(doc["programs"].size(), 1u);
  const Json& p = doc["programs"][0];
  EXPECT_EQ(p["source"], "prog.spl");

  // A field defined in the include, used qualified and not.
  const Json* amount = symbol(p, "field", "amount");
  ASSERT_NE(amount, nullptr);
  EXPECT_EQ((*amount)["origin"], "program");
  EXPECT_EQ((*amount)["definition"]["file"], "fields.inc");
  EXPECT_EQ((*amount)["definition"]["line"], 4);
  EXPECT_EQ(places(*amount),
            (std::vector<std::string>{"prog.spl:6:14-20", "prog.spl:15:15-21", "prog.spl:17:21-27"}));
  // The local field of a section.
  const Json* tally = symbol(p, "field", "tally");  // PARAMETERS makes it main's own
  ASSERT_NE(tally, nullptr);
  EXPECT_EQ((*tally)["section"], "main");
  EXPECT_EQ((*tally)["references"].size(), 3u);
  EXPECT_EQ((*tally)["references"][0]["statement"], "set");

  // Objects with what each statement does to them.
  const Json* cust = symbol(p, "object", "cust");
  ASSERT_NE(cust, nullptr);
  std::vector<std::string> accesses;
  for (const Json& ref : (*cust)["references"])
    accesses.push_back(ref["statement"].get<std::string>() + " " + ref["access"].get<std::string>());
  EXPECT_EQ(accesses, (std::vector<std::string>{"select reads", "get reads", "delete writes"}));
  const Json* ord = symbol(p, "object", "ord");
  ASSERT_NE(ord, nullptr);
  EXPECT_EQ(places(*ord), (std::vector<std::string>{"prog.spl:15:27-30", "prog.spl:17:17-20"}));
  EXPECT_EQ((*ord)["references"][1]["access"], "uses");

  // A DO target and its definition.
  const Json* section = symbol(p, "section", "report-it");
  ASSERT_NE(section, nullptr);
  EXPECT_EQ((*section)["definition"]["line"], 23);
  EXPECT_EQ(places(*section), (std::vector<std::string>{"prog.spl:21:6-15"}));

  // The first select reads cust by its key; the second reads all of ord; GET reads by key 1.
  ASSERT_EQ(p["reads"].size(), 3u);
  const Json& by_key = p["reads"][0];
  EXPECT_EQ(by_key["object"], "cust");
  EXPECT_EQ(by_key["index"], 1);
  EXPECT_EQ(by_key["keyFields"], Json::array({"cno", "region"}));
  EXPECT_EQ(by_key["keyRanges"], Json::array({"cno > 10", "region >= \"EU\" and region <= \"EU\""}));
  EXPECT_FALSE(by_key["wholeTable"].get<bool>());
  const Json& whole = p["reads"][1];
  EXPECT_EQ(whole["object"], "ord");
  EXPECT_TRUE(whole["wholeTable"].get<bool>());
  EXPECT_EQ(whole["location"]["line"], 15);
  const Json& get = p["reads"][2];
  EXPECT_EQ(get["statement"], "get");
  EXPECT_EQ(get["index"], 1);
  EXPECT_FALSE(get["wholeTable"].get<bool>());
}

TEST(Xref, OneDocumentPerRunAndAFileThatCannotBeWritten) {
  TempDir dir;
  write_file(dir / "fields.inc", kInclude);
  write_file(dir / "a.spl", kProgram);
  write_file(dir / "b.spl", "procedure main\n  set x = 1\nend\n");  // an error: x is unknown
  RunResult r = tavcmp(dir.path(), {"-lnt", "--xref=all.json", "a.spl", "b.spl"});
  const Json doc = Json::parse(read_file(dir / "all.json"));
  ASSERT_EQ(doc["programs"].size(), 2u) << r.out;
  EXPECT_EQ(doc["programs"][1]["source"], "b.spl");
  EXPECT_NE(symbol(doc["programs"][1], "section", "main"), nullptr);

  r = tavcmp(dir.path(), {"-lnt", "--xref=no/such/dir/x.json", "a.spl"});
  EXPECT_EQ(r.status, 255);
  EXPECT_TRUE(contains(r.err, "cannot write the cross reference 'no/such/dir/x.json'")) << r.err;
}

}  // namespace
