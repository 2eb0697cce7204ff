// Every program explains itself: --help and --version, the manual pages of the product
// directory, and one product version everywhere it is shown.
#include <regex>

#include "tav_version.h"
#include "tests/e2e/driver_fixture.h"

namespace {

using namespace drvtest;

// A manual page as the reader sees its words: font changes and joins dropped, "\-" as "-".
std::string man_text(const std::string& roff) {
  return std::regex_replace(std::regex_replace(roff, std::regex(R"(\\f[BIRP]|\\c)"), ""), std::regex(R"(\\-)"), "-");
}

// The options an option list names: "  -x ..." gives "-x", "  --name ..." gives "--name".
std::vector<std::string> listed_options(const std::string& help) {
  std::vector<std::string> options;
  const std::regex option(R"((?:^|\n) +(--[a-z-]+|-[A-Za-z]))");
  for (auto it = std::sregex_iterator(help.begin(), help.end(), option); it != std::sregex_iterator(); ++it)
    options.push_back((*it)[1]);
  return options;
}

TEST(ProgramHelp, EveryProgramHasHelpVersionAndManualPage) {
  struct Case {
    std::string program;
    std::vector<std::string> must_list;  // options the help cannot leave out
  };
  const std::vector<Case> cases = {
      {"tavcmp", {"-l", "-t", "-w", "-i", "-d", "-s", "-n", "-c", "-o", "-I", "-p", "-g", "-u", "-x",
                  "--write-dependencies", "--diagnostics-format", "--diagnostics-output", "--exit-status", "--help",
                  "--version"}},
      {"tavpp", {"-D", "-I", "-o", "-M", "--help", "--version"}},
      {"tavdump", {"-h", "-r", "--help", "--version"}},
      {"tavdict", {"--help", "--version"}},
      {"tavcmpnls", {"--help", "--version"}},
      {"tavls", {"--help", "--version"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.program);
    RunResult version = tavtest::run({tavtest::program(c.program), "--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, c.program + " " + tav::kVersionText + "\n");
    EXPECT_EQ(version.err, "");

    RunResult help = tavtest::run({tavtest::program(c.program), "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.err, "");
    const std::vector<std::string> listed = listed_options(help.out);
    for (const std::string& option : c.must_list)
      EXPECT_NE(std::find(listed.begin(), listed.end(), option), listed.end()) << option << " missing in\n" << help.out;

    const std::string page_name = tavtest::product_dir() + "/share/man/man1/" + c.program + ".1";
    ASSERT_TRUE(file_exists(page_name)) << page_name;
    const std::string page = man_text(read_file(page_name));
    EXPECT_TRUE(contains(page, tav::kVersionText)) << "the manual page shows another version";
    for (const std::string& option : listed) EXPECT_TRUE(contains(page, option)) << option << " not in the manual page";
  }
}

// --help and --version take effect wherever the options are, with or without sources, and
// compile nothing; other long options are usage errors like any unknown option.
TEST(ProgramHelp, TavcmpLongOptions) {
  TempDir dir;
  write_file(dir / "ok.spl", kClean);
  RunResult help = tavcmp(dir.path(), {"-l", "--help", "ok"});
  EXPECT_EQ(help.status, 0);
  EXPECT_TRUE(help.out.starts_with(std::string(kUsage) + "\n")) << help.out;
  RunResult version = tavcmp(dir.path(), {"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out, std::string("tavcmp ") + tav::kVersionText + "\n");
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"--verbose", "ok"}, {"--", "ok"}, {"-l", "--HELP", "ok"}, {"--write-dependencies"}}) {
    RunResult r = tavcmp(dir.path(), args);
    EXPECT_EQ(r.status, 255) << args[0];
    EXPECT_EQ(r.out, kUsage) << args[0];
  }
  EXPECT_EQ(list_dir(dir.path()), std::vector<std::string>{"ok.spl"});
}

// The README names the version the programs report.
TEST(ProgramHelp, ReadmeNamesTheProductVersion) {
  const std::string readme = read_file(tavtest::source_dir() + "/README.md");
  EXPECT_TRUE(contains(readme, tav::kVersionText));
  EXPECT_TRUE(contains(readme, "--write-dependencies"));
}

}  // namespace
