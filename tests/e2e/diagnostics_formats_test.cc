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
