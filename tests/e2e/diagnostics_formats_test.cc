// The diagnostics formats as a build tool meets them: the listing stays what it always was, the
// formats own their stream, the status tells whether any file of the run failed.
#include <nlohmann/json.hpp>

#include "tests/e2e/driver_fixture.h"

namespace drvtest {
namespace {

const char kFaulty[] =
    "field cust-name pic x(10)\n"
    "procedure main\n"
    "  display cust-nme @ 1,1\n"
    "end-procedure\n";

struct Outcome {
  tavtest::RunResult result;
  std::string listing;
};

Outcome compile_in(const TempDir& dir, std::vector<std::string> args) {
  Outcome r;
  r.result = tavcmp(dir.path(), std::move(args));
  r.listing = file_exists(dir / "prog.err") ? read_file(dir / "prog.err") : "";
  return r;
}

TEST(DiagnosticsFormats, TheListingIsTheSameWhateverTheFormat) {
  TempDir dir;
  write_file(dir / "prog.spl", kFaulty);
  const Outcome classic = compile_in(dir, {"-l", "-n", "prog.spl"});
  EXPECT_EQ(classic.result.status, 3);  // the line of the first error
  for (const char* format : {"gcc", "json", "sarif"}) {
    SCOPED_TRACE(format);
    const Outcome modern = compile_in(dir, {"-n", std::string("--diagnostics-format=") + format, "prog.spl"});
    EXPECT_EQ(modern.listing, classic.listing);
    EXPECT_EQ(modern.result.status, 1);
    if (std::string(format) == "gcc") {
      EXPECT_EQ(modern.result.out, "");  // no progress lines, no results
      EXPECT_TRUE(contains(modern.result.err, "prog.spl:3:11: error: Field not defined - 'cust-nme' [T16]"))
          << modern.result.err;
      EXPECT_TRUE(contains(modern.result.err, "did you mean 'cust-name'?")) << modern.result.err;
      EXPECT_TRUE(contains(modern.result.err, "1 error generated.")) << modern.result.err;
    } else {
      // Standard output is the document and nothing else.
      const auto doc = nlohmann::json::parse(modern.result.out, nullptr, false);
      EXPECT_FALSE(doc.is_discarded()) << modern.result.out;
    }
  }
}

TEST(DiagnosticsFormats, SilentOnSuccessAndTheDocumentCanGoToAFile) {
  TempDir dir;
  write_file(dir / "prog.spl", kClean);
  const Outcome gcc = compile_in(dir, {"-n", "--diagnostics-format=gcc", "prog.spl"});
  EXPECT_EQ(gcc.result.status, 0);
  EXPECT_EQ(gcc.result.out + gcc.result.err, "");
  EXPECT_TRUE(file_exists(dir / "prog.op6"));

  const Outcome sarif = compile_in(dir, {"-n", "--diagnostics-format=sarif", "--diagnostics-output=run.sarif", "prog.spl"});
  EXPECT_EQ(sarif.result.status, 0);
  EXPECT_EQ(sarif.result.out, "");
  const auto log = nlohmann::json::parse(read_file(dir / "run.sarif"), nullptr, false);
  ASSERT_FALSE(log.is_discarded());
  EXPECT_EQ(log["version"], "2.1.0");
  EXPECT_TRUE(log["runs"][0]["results"].empty());

  const Outcome refused = compile_in(dir, {"-n", "--diagnostics-format=json", "--diagnostics-output=" + (dir / "none/x.json"), "prog.spl"});
  EXPECT_EQ(refused.result.status, 255);
  EXPECT_TRUE(contains(refused.result.err, "none/x.json")) << refused.result.err;
}

// The classic status is the line of the last file's first error, and 0 after a file the
// preprocessor refused; the build-tool status is 1 when any file failed.
TEST(DiagnosticsFormats, TheBuildToolStatusCoversEveryFile) {
  TempDir dir;
  write_file(dir / "bad.spl", errors_on({4}, 6));
  write_file(dir / "good.spl", kClean);
  write_file(dir / "refused.spl", "#include \"missing.inc\"\n" + std::string(kClean));

  EXPECT_EQ(tavcmp(dir.path(), {"-l", "-n", "bad.spl", "good.spl"}).status, 0);
  EXPECT_EQ(tavcmp(dir.path(), {"-l", "-n", "refused.spl"}).status, 0);

  const auto with_errors = tavcmp(dir.path(), {"-l", "-n", "--exit-status=errors", "bad.spl", "good.spl"});
  EXPECT_EQ(with_errors.status, 1);
  EXPECT_EQ(with_errors.out, tavcmp(dir.path(), {"-l", "-n", "bad.spl", "good.spl"}).out);  // the classic text
  EXPECT_EQ(tavcmp(dir.path(), {"-l", "-n", "--exit-status=errors", "refused.spl"}).status, 1);
  EXPECT_EQ(tavcmp(dir.path(), {"-l", "-n", "--exit-status=errors", "good.spl"}).status, 0);
  EXPECT_EQ(tavcmp(dir.path(), {"-n", "--diagnostics-format=gcc", "refused.spl", "good.spl"}).status, 1);
}

// The dictionaries' names are suggested beside the program's, and a dictionary's trouble is part
// of the document: a registration that failed, a dictionary that is not on the search path.
const char kShop[] =
    "field cust-no pic 9(6)\n"
    "field cust-name pic x(30)\n"
    "field amount pic 9(5)v99\n"
    "object customer type indexed file \"cust\"\n"
    "  record cust-no cust-name end-record\n"
    "  key cust-no unique\n"
    "object orders type indexed file \"ord\"\n"
    "  record cust-no amount end-record\n"
    "  key cust-no\n";

// The notes of the JSON diagnostic whose message contains `about`, joined by "|".
std::string notes_of(const nlohmann::json& doc, const std::string& about) {
  for (const auto& d : doc) {
    if (d.value("message", "").find(about) == std::string::npos) continue;
    std::string notes;
    for (const auto& child : d.value("children", nlohmann::json::array())) notes += child.value("message", "") + "|";
    return notes;
  }
  return "(no message about " + about + ")";
}

TEST(DiagnosticsFormats, DictionaryNamesAndDictionaryTrouble) {
  TempDir dir;
  load_dictionary(dir, "d/", kShop);
  write_file(dir / "prog.spl",
             "object c2 like custmer\n"
             "object ord2 like orders no-joins\n"
             "field x pic x(30)\n"
             "procedure main\n"
             "  set amont = 1\n"
             "  set x = ord2.cust-name\n"
             "  select cust-no from ordrs\n"
             "    detail\n"
             "      pause\n"
             "  end-select\n"
             "end\n");
  Env env;
  env.unset = {"TAVUSRDICT", "TAVDISTDICT", "TAVDICT", "TAVPATH"};
  const auto json = tavcmp(dir.path(), {"-g", "d/", "--diagnostics-format=json", "prog.spl"}, env);
  const auto doc = nlohmann::json::parse(json.out, nullptr, false);
  ASSERT_TRUE(doc.is_array()) << json.out;
  EXPECT_EQ(notes_of(doc, "'custmer'"), "did you mean 'customer'?|");
  EXPECT_EQ(notes_of(doc, "'amont'"), "did you mean 'amount'?|");
  EXPECT_EQ(notes_of(doc, "'ordrs'"), "did you mean 'orders'?|");
  // The record of orders holds cust-no, not cust-name: the suggestion comes from the record.
  EXPECT_EQ(notes_of(doc, "'ord2.cust-name'"), "did you mean 'cust-no'?|");
  // The fields of an object that could not be found are no host fields.
  EXPECT_EQ(json.out.find("Host fields"), std::string::npos) << json.out;

  write_file(dir / "good.spl", "object c2 like customer\nprocedure main\n  set cust-name = \"x\"\nend\n");
  ASSERT_EQ(tavcmp(dir.path(), {"-l", "-p", "shop", "-g", "d/", "good.spl"}, env).status, 0);
  sql(dir / "d/PO4.idx", "CREATE TRIGGER refuse BEFORE INSERT ON dict_prog_obj BEGIN SELECT RAISE(ABORT, 'refused'); END");
  const auto refused = tavcmp(dir.path(), {"-p", "shop", "-g", "d/", "--diagnostics-format=json", "good.spl"}, env);
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.err, "");
  const auto entries = nlohmann::json::parse(refused.out, nullptr, false);
  ASSERT_TRUE(entries.is_array() && entries.size() == 1) << refused.out;
  EXPECT_EQ(entries[0]["code"], "po_write_failed");
  EXPECT_TRUE(contains(entries[0]["message"], "Error writing PO entry in 'd/'")) << refused.out;

  env.set = {"TAVPATH=lib:."};
  const auto missing = tavcmp(dir.path(), {"-g", "nowhere/", "--diagnostics-format=sarif", "good.spl"}, env);
  EXPECT_EQ(missing.status, 255);
  const auto log = nlohmann::json::parse(missing.out, nullptr, false);
  ASSERT_FALSE(log.is_discarded()) << missing.out;
  const auto& result = log["runs"][0]["results"][0];
  EXPECT_EQ(result["ruleId"], "dict_not_found");
  EXPECT_FALSE(result.contains("locations"));  // about the run, not a file
  ASSERT_EQ(result["relatedLocations"].size(), 2u);
  EXPECT_EQ(result["relatedLocations"][0]["message"]["text"], "searched 'lib/nowhere/O4.idx'");
  EXPECT_EQ(result["relatedLocations"][1]["message"]["text"], "searched 'nowhere/O4.idx'");
  const auto gcc = tavcmp(dir.path(), {"-g", "nowhere/", "--diagnostics-format=gcc", "good.spl"}, env);
  EXPECT_TRUE(contains(gcc.err, "tavcmp: error: Can't find dict. 'nowhere/' in search path [dict_not_found]\n"
                                "tavcmp: note: searched 'lib/nowhere/O4.idx'\n")) << gcc.err;
}

TEST(DiagnosticsFormats, UsageErrors) {
  TempDir dir;
  for (const char* bad : {"--diagnostics-format=xml", "--diagnostics-output=", "--exit-status=maybe"}) {
    const auto r = tavcmp(dir.path(), {bad, "prog.spl"});
    EXPECT_EQ(r.status, 255) << bad;
    EXPECT_TRUE(contains(r.err, bad)) << r.err;
  }
}

}  // namespace
}  // namespace drvtest
