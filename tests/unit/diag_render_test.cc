// The modern diagnostic formats: the gcc text to the byte, the JSON and SARIF documents' shape,
// the table of message codes and the source-line reader. (Schema validation of the SARIF log is
// the sarif.* tests.)
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>
#include <algorithm>
#include <limits>
#include <set>

#include "diag/diag.h"
#include "diag/render.h"
#include "tests/support/support.h"

namespace tav {
namespace {

using Json = nlohmann::json;

Diagnostic diag(Severity severity, std::string code, std::string message, std::string context, SourceRange where) {
  Diagnostic d;
  d.severity = severity;
  d.code = std::move(code);
  d.message = std::move(message);
  d.context = std::move(context);
  d.where = std::move(where);
  return d;
}

// A program on disk, read through the real reader.
class RenderFormats : public ::testing::Test {
 protected:
  void SetUp() override {
    tavtest::write_file(src, "define cust-nme\r\n\tmove 'é€' to\tx-y\n  display cust-nme\n");
  }
  std::string gcc(std::vector<Diagnostic> items, bool colour = false) {
    return render_gcc({src, std::move(items)}, lines, colour);
  }

  tavtest::TempDir dir;
  std::string src = dir / "prog.spl";
  SourceLineReader lines = disk_line_reader();
  Diagnostic t16 = diag(Severity::error, "T16", "Field not defined", "cust-nme", {src, 3, 11, 19});
};

TEST_F(RenderFormats, GccCaretsNotesAndCount) {
  t16.notes.push_back({"first defined here", {src, 1, 8, 16}});
  t16.notes.push_back({"did you mean 'cust-name'?", {}});
  // Tabs go to the next multiple of 8 and columns count characters: the caret follows both.
  Diagnostic tabbed = diag(Severity::warning, "T60", "Truncated", "", {src, 2, 15, 18});
  Diagnostic wide = diag(Severity::info, "T61", "Literal", "", {src, 2, 8, 10});
  EXPECT_EQ(gcc({t16, tabbed, wide}),
            src + ":3:11: error: Field not defined - 'cust-nme' [T16]\n"
            "    3 |   display cust-nme\n"
            "      |           ^~~~~~~~\n" +
            src + ":1:8: note: first defined here\n"
            "    1 | define cust-nme\n"
            "      |        ^~~~~~~~\n" +
            src + ":3:11: note: did you mean 'cust-name'?\n" +
            src + ":2:15: warning: Truncated [T60]\n"
            "    2 |         move 'é€' to    x-y\n"
            "      |                         ^~~\n" +
            src + ":2:8: note: Literal [T61]\n"
            "    2 |         move 'é€' to    x-y\n"
            "      |               ^~\n"
            "1 error generated.\n");
}

TEST_F(RenderFormats, GccPlacesWithoutSource) {
  Diagnostic no_column = diag(Severity::error, "T16", "Field not defined", "", {src, 3, 0, 0});
  Diagnostic no_place = diag(Severity::fatal, "end_of_program", "Unexpected end", "", {});
  Diagnostic past_end = diag(Severity::error, "T1", "Bad", "", {src, 3, 40, 41});   // the file changed
  Diagnostic no_line = diag(Severity::error, "T1", "Bad", "", {src, 99, 1, 2});
  Diagnostic follow_on = diag(Severity::error, "T9", "Dropped", "", {src, 3, 1, 2});
  follow_on.follow_on = true;
  EXPECT_EQ(gcc({no_column, no_place, past_end, no_line, follow_on}),
            src + ":3: error: Field not defined [T16]\n" +
            src + ": error: Unexpected end [end_of_program]\n" +
            src + ":3:40: error: Bad [T1]\n" +
            src + ":99:1: error: Bad [T1]\n"
            "4 errors generated.\n");
  EXPECT_EQ(gcc({diag(Severity::warning, "T5", "Careful", "", {})}), src + ": warning: Careful [T5]\n");
  // Places from a damaged model stay within the line, however far they claim to reach.
  const int far = std::numeric_limits<int>::max();
  Diagnostic wide = diag(Severity::warning, "T5", "Careful", "", {src, 3, 11, far});
  wide.fixes.push_back({{src, 3, 11, far}, ""});
  EXPECT_EQ(gcc({wide}), src + ":3:11: warning: Careful [T5]\n"
            "    3 |   display cust-nme\n"
            "      |           ^~~~~~~~\n"
            "      |           --------\n");
  const Json json = Json::parse(render_json({{src, {diag(Severity::error, "T1", "x", "", {src, 3, far, far})}}}, lines));
  EXPECT_EQ(json[0]["locations"][0]["caret"]["column"], far);
  EXPECT_EQ(gcc({follow_on}), "");
}

TEST_F(RenderFormats, GccFixIts) {
  t16.fixes.push_back({{src, 3, 11, 19}, "cust-name"});
  t16.fixes.push_back({{src, 3, 3, 11}, ""});             // a deletion on the same line
  t16.fixes.push_back({{src, 1, 8, 16}, "cust-name"});    // and a change on another line
  EXPECT_EQ(gcc({t16}),
            src + ":3:11: error: Field not defined - 'cust-nme' [T16]\n"
            "    3 |   display cust-nme\n"
            "      |           ^~~~~~~~\n"
            "      |   --------cust-name\n"
            "    1 | define cust-nme\n"
            "      |        cust-name\n"
            "1 error generated.\n");
}

TEST_F(RenderFormats, GccColours) {
  t16.fixes.push_back({{src, 3, 11, 19}, "cust-name"});
  Diagnostic warning = diag(Severity::warning, "T5", "Careful", "", {src, 3, 0, 0});
  warning.notes.push_back({"here", {}});
  EXPECT_EQ(gcc({t16, warning}, true),
            "\33[01m\33[K" + src + ":3:11:\33[m\33[K \33[01;31m\33[Kerror: \33[m\33[KField not defined - 'cust-nme' [T16]\n"
            "    3 |   display cust-nme\n"
            "      |           \33[32m\33[K^~~~~~~~\33[m\33[K\n"
            "      |           \33[32m\33[Kcust-name\33[m\33[K\n"
            "\33[01m\33[K" + src + ":3:\33[m\33[K \33[01;35m\33[Kwarning: \33[m\33[KCareful [T5]\n"
            "\33[01m\33[K" + src + ":3:\33[m\33[K \33[01;36m\33[Knote: \33[m\33[Khere\n"
            "1 error generated.\n");
}

TEST_F(RenderFormats, JsonHasGccShape) {
  Diagnostic tabbed = diag(Severity::warning, "T60", "Truncated", "\xff\xfe", {src, 2, 15, 18});
  tabbed.notes.push_back({"opened here", {src, 1, 1, 0}});
  tabbed.fixes.push_back({{src, 2, 15, 18}, "x_y"});
  Diagnostic follow_on = t16;
  follow_on.follow_on = true;
  const Json run = Json::parse(render_json({{src, {tabbed, follow_on}}, {"b.spl", {t16}}}, lines));
  ASSERT_EQ(run.size(), 2u);
  const Json& w = run[0];
  EXPECT_EQ(w["kind"], "warning");
  EXPECT_EQ(w["message"], "Truncated - '\xef\xbf\xbd\xef\xbf\xbd'");  // not UTF-8: replaced
  EXPECT_EQ(w["code"], "T60");
  EXPECT_EQ(w["column-origin"], 1);
  EXPECT_EQ(w["escape-source"], false);
  const Json caret{{"file", src}, {"line", 2}, {"display-column", 25}, {"byte-column", 18}, {"column", 15}};
  EXPECT_EQ(w["locations"][0]["caret"], caret);
  EXPECT_EQ(w["locations"][0]["finish"]["column"], 17);
  EXPECT_EQ(w["children"][0], Json::parse(R"({"kind": "note", "message": "opened here",
      "locations": [{"caret": {"file": ")" + src + R"(", "line": 1, "display-column": 1, "byte-column": 1, "column": 1}}]})"));
  EXPECT_EQ(w["fixits"][0]["start"], caret);
  EXPECT_EQ(w["fixits"][0]["next"]["byte-column"], 21);
  EXPECT_EQ(w["fixits"][0]["string"], "x_y");
  EXPECT_EQ(run[1]["kind"], "error");
  EXPECT_EQ(run[1]["message"], "Field not defined - 'cust-nme'");
  EXPECT_FALSE(run[1].contains("fixits"));
  // Without the lines, a column is its own byte and display column; no place, no locations.
  const Json bare = Json::parse(render_json({{"b.spl", {tabbed, diag(Severity::info, "T1", "i", "", {})}}}));
  EXPECT_EQ(bare[0]["locations"][0]["caret"]["byte-column"], 15);
  EXPECT_EQ(bare[1]["kind"], "note");
  EXPECT_EQ(bare[1]["locations"], Json::array());
}

TEST_F(RenderFormats, SarifResults) {
  Diagnostic odd = diag(Severity::info, "T61", "Literal", "", {"my prog#1?%é:.spl", 2, 8, 0});
  odd.notes.push_back({"in file included from here", {"main.spl", 4, 0, 0}});
  odd.fixes.push_back({{"my prog#1?%é:.spl", 2, 8, 8}, "x"});
  Diagnostic unknown = diag(Severity::fatal, "no_such_code", "Gone", "", {});
  const Json log = Json::parse(render_sarif({{src, {t16, odd, unknown}}}, "6.5 v1.5"));
  EXPECT_EQ(log["version"], "2.1.0");
  const Json& run = log["runs"][0];
  EXPECT_EQ(run["columnKind"], "unicodeCodePoints");
  EXPECT_EQ(run["tool"]["driver"]["rules"].size(), message_rules().size());
  const Json& r = run["results"];
  EXPECT_EQ(r[0]["ruleIndex"], 16);
  EXPECT_EQ(run["tool"]["driver"]["rules"][16]["id"], "T16");
  EXPECT_EQ(r[0]["message"]["text"], "Field not defined - 'cust-nme'");
  EXPECT_EQ(r[0]["locations"][0]["physicalLocation"]["region"], Json::parse(R"({"startLine": 3, "startColumn": 11, "endColumn": 19})"));
  EXPECT_EQ(r[1]["level"], "note");
  const Json& place = r[1]["locations"][0]["physicalLocation"];
  EXPECT_EQ(place["artifactLocation"]["uri"], "my%20prog%231%3F%25%C3%A9%3A.spl");
  EXPECT_EQ(place["region"], Json::parse(R"({"startLine": 2, "startColumn": 8})"));
  EXPECT_EQ(r[1]["relatedLocations"][0]["physicalLocation"]["region"], Json::parse(R"({"startLine": 4})"));
  EXPECT_EQ(r[1]["fixes"][0]["artifactChanges"][0]["replacements"][0],
            Json::parse(R"({"deletedRegion": {"startLine": 2, "startColumn": 8, "endColumn": 8}, "insertedContent": {"text": "x"}})"));
  EXPECT_EQ(r[2]["level"], "error");
  EXPECT_FALSE(r[2].contains("ruleIndex"));
  EXPECT_FALSE(r[2]["locations"][0]["physicalLocation"].contains("region"));
}

TEST(MessageRules, EveryRowInOrder) {
  std::vector<std::string> expected;
  for (int i = 0; i < kMessageCount; ++i) expected.push_back("T" + std::to_string(i));
  for (const char* name : {
#define TAV_TEXT(name, text) #name,
#include "diag/messages.def"
#define PP_MESSAGE(id, text) "pp_" #id,
#include "diag/pp_messages.def"
#undef PP_MESSAGE
       })
    expected.push_back(name);
  std::vector<std::string> codes;
  for (const MessageRule& rule : message_rules()) codes.push_back(rule.code);
  EXPECT_EQ(codes, expected);
  EXPECT_EQ(std::count_if(codes.begin(), codes.end(), [](const std::string& c) { return c[0] == 'T'; }), 144);
  EXPECT_EQ(std::set<std::string>(codes.begin(), codes.end()).size(), codes.size());
  EXPECT_EQ(message_rules()[16].text, "Field not defined");
  EXPECT_EQ(message_rules().back().text, "Too many errors - preprocessing stopped");
}

TEST(DiskLineReader, LinesOnceAndBadFilesSafely) {
  tavtest::TempDir dir;
  const std::string text = dir / "a.spl", fifo = dir / "fifo", binary = dir / "bin";
  tavtest::write_file(text, "one\r\ntwo\n\nlast");
  tavtest::write_file(binary, std::string(100000, '\0') + "\nend");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  SourceLineReader lines = disk_line_reader();
  EXPECT_EQ(lines(text, 1), "one");
  tavtest::write_file(text, "changed\n");  // read once, kept for the run
  EXPECT_EQ(lines(text, 2), "two");
  EXPECT_EQ(lines(text, 3), "");
  EXPECT_EQ(lines(text, 4), "last");
  EXPECT_FALSE(lines(text, 5));
  EXPECT_FALSE(lines(text, 0));
  EXPECT_FALSE(lines(dir / "missing", 1));
  EXPECT_FALSE(lines(dir.path(), 1));
  EXPECT_FALSE(lines(fifo, 1));  // refused, not waited on
  EXPECT_EQ(lines(binary, 1)->size(), 513u * 4);  // a line is cut at what a line may hold
  EXPECT_EQ(lines(binary, 2), "end");
}

}  // namespace
}  // namespace tav
