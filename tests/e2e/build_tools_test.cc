// Tables for build tools: with SOURCE_DATE_EPOCH the same inputs give the same bytes wherever and
// whenever they are compiled, the make rules name every file a table was made from, and the
// ninja build of examples/ compiles again exactly the tables whose inputs changed.
#include <chrono>
#include <filesystem>
#include <set>
#include <sstream>
#include <thread>

#include "tests/e2e/driver_fixture.h"

namespace {

using namespace drvtest;
namespace fs = std::filesystem;

constexpr char kEpoch[] = "1700000000";  // Tue Nov 14 22:13:20 2023 UTC

// The examples (sources, include, schema, ninja build) copied into `dir`.
void copy_examples(const std::string& dir) {
  fs::create_directories(dir);
  for (const auto& e : fs::directory_iterator(tavtest::source_dir() + "/examples"))
    fs::copy_file(e.path(), dir + "/" + e.path().filename().string());
}

RunResult run_in(const std::string& cwd, const std::vector<std::string>& argv, std::vector<std::string> env = {}) {
  tavtest::RunOptions options;
  options.cwd = cwd;
  options.env = std::move(env);
  options.env.push_back("TAVRIN=" + tavtest::product_dir());
  options.unset = {"SOURCE_DATE_EPOCH", "ERQ", "TAVLANGUAGE", "TAVLANGDIR", "TAVPATH", "TAVDICT", "TAVUSRDICT",
                   "TAVDISTDICT"};
  return tavtest::run(argv, options);
}

// Compiles the library, the programs and the shop in `dir` (which holds the dictionary).
void compile_examples(const std::string& dir, const std::vector<std::string>& env, bool shop_by_tavpath) {
  std::vector<std::string> lib_env = env;
  lib_env.push_back("ERQ=.");
  RunResult r = run_in(dir, {tavtest::program("tavcmp"), "-l", "-n", "common.spl", "daily.spl", "orders.spl"}, lib_env);
  ASSERT_EQ(r.status, 0) << r.out << r.err;
  ASSERT_FALSE(contains(r.out, "Errors found")) << r.out;
  std::vector<std::string> shop_env = env;
  std::vector<std::string> argv{tavtest::program("tavcmp"), "-l", "-g", "shop", "shop.spl"};
  if (shop_by_tavpath) {
    // The dictionary found along an absolute TAVPATH: the table still names it "shop".
    shop_env.push_back("TAVPATH=" + dir);
    shop_env.push_back("TAVDICT=shop");
    argv = {tavtest::program("tavcmp"), "-l", "shop.spl"};
  }
  r = run_in(dir, argv, shop_env);
  ASSERT_EQ(r.status, 0) << r.out << r.err;
  ASSERT_TRUE(contains(r.out, "No errors found")) << r.out;
}

TEST(ReproducibleTables, SameBytesInAnotherDirectoryTmpdirZoneAndTime) {
  TempDir a, b;
  const std::string first = a / "work", second = b / "elsewhere/deeper";
  copy_examples(first);
  copy_examples(second);
  fs::create_directories(a / "tmp");
  fs::create_directories(b / "tmp");
  load_dictionary(a, "work/shop", read_file(first + "/shop.sch"));
  for (const auto& e : fs::directory_iterator(first))
    if (e.path().filename().string().starts_with("shop") && e.path().extension() != ".spl")
      fs::copy_file(e.path(), second + "/" + e.path().filename().string(), fs::copy_options::overwrite_existing);

  const std::string epoch = std::string("SOURCE_DATE_EPOCH=") + kEpoch;
  compile_examples(first, {epoch, "TMPDIR=" + (a / "tmp"), "TZ=UTC0"}, false);
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));  // another second on the clock
  compile_examples(second, {epoch, "TMPDIR=" + (b / "tmp"), "TZ=JST-9"}, true);

  for (const char* table : {"common.op6", "daily.op6", "orders.op6", "shop.op6"}) {
    const std::string bytes = read_file(first + "/" + table);
    EXPECT_EQ(bytes, read_file(second + "/" + table)) << table;
    tavtest::Op6 t(bytes);
    EXPECT_EQ(t.u32(0), 1700000000u) << table;
  }
  const std::string shop = read_file(first + "/shop.op6");
  EXPECT_TRUE(contains(shop, "@(#) shop.spl compiled on Tue Nov 14 22:13:20 2023\n"));
  EXPECT_FALSE(contains(shop, a.path()));
  EXPECT_FALSE(contains(shop, b.path()));

  // A value that is no count of seconds is told on standard error; the table gets the clock's
  // time and the classic output stays as it is.
  const auto now = static_cast<uint32_t>(std::time(nullptr));
  RunResult r = run_in(first, {tavtest::program("tavcmp"), "-l", "-n", "orders.spl"}, {"SOURCE_DATE_EPOCH=@1700000000"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "\norders.spl:\nNo errors found\n");
  EXPECT_TRUE(contains(r.err, "SOURCE_DATE_EPOCH '@1700000000' is not a count of seconds since 1970")) << r.err;
  EXPECT_GE(tavtest::Op6(read_file(first + "/orders.op6")).u32(0), now);
}

// The words of the first rule of a .d, its continuations joined (the test's names hold no blank).
std::vector<std::string> prerequisites(const std::string& rules) {
  std::string rule = rules.substr(0, rules.find("\n\n"));
  std::vector<std::string> words;
  std::istringstream in(rule);
  for (std::string w; in >> w;)
    if (w != "\\") words.push_back(w);
  return words;
}

TEST(Dependencies, RulesAddTheDictionaryCatalogueAndLibraryFilesRead) {
  TempDir dir;
  copy_examples(dir.path());
  load_dictionary(dir, "shop", read_file(dir / "shop.sch"));
  // A product directory of our own, for a catalogue file of the language.
  const std::string product = dir / "product";
  fs::create_directories(product + "/nls/fr");
  fs::create_directory_symlink(tavtest::product_dir() + "/bin", product + "/bin");
  write_file(product + "/nls/fr/0999.txt", "1 \"Au debut\"\n");
  const std::vector<std::string> env{"TAVRIN=" + product, "TAVLANGUAGE=fr"};

  tavtest::RunOptions options;
  options.cwd = dir.path();
  options.env = env;
  options.unset = {"SOURCE_DATE_EPOCH", "ERQ", "TAVLANGDIR", "TAVPATH"};
  RunResult r = tavtest::run({tavtest::program("tavcmp"), "-l", "-n", "--write-dependencies", "common.spl"}, options);
  ASSERT_EQ(r.status, 0) << r.out << r.err;
  r = tavtest::run({tavtest::program("tavcmp"), "-l", "-g", "shop", "--write-dependencies", "shop.spl", "daily.spl"},
                   options);
  ASSERT_EQ(r.status, 0) << r.out << r.err;
  ASSERT_FALSE(contains(r.out, "Errors found")) << r.out;

  const std::string catalogue = product + "/nls/fr/0999.txt";
  const std::string rules = read_file(dir / "shop.d");
  const std::vector<std::string> expected{"shop.op6:",   "shop.spl",   "shopO4.idx", "shopF4.idx", "shopR4.idx",
                                          "shopK4.idx",  "shop-dict.ver", "shopD4.idx", catalogue};
  EXPECT_EQ(prerequisites(rules), expected) << rules;
  for (size_t i = 2; i < expected.size(); ++i) EXPECT_TRUE(contains(rules, "\n" + expected[i] + ":\n")) << expected[i];
  // The program tables are written by -p, not read for the table.
  EXPECT_FALSE(contains(rules, "shopPO4")) << rules;
  // The second file of the run lists what the run read so far, and the library it linked.
  std::vector<std::string> daily{"daily.op6:", "daily.spl", "daily.inc"};
  daily.insert(daily.end(), expected.begin() + 2, expected.end());
  daily.push_back("common.op6");
  EXPECT_EQ(prerequisites(read_file(dir / "daily.d")), daily);
  // Without a dictionary, only the catalogue is added.
  EXPECT_EQ(prerequisites(read_file(dir / "common.d")),
            (std::vector<std::string>{"common.op6:", "common.spl", catalogue}));
}

// The outputs `ninja -n` would build, from its "[k/n] TAVCMP x.op6" lines.
std::set<std::string> planned(const std::string& dir) {
  const RunResult r = run_in(dir, {"/usr/bin/ninja", "-n"});
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  std::set<std::string> tables;
  std::istringstream in(r.out);
  for (std::string line; std::getline(in, line);)
    if (const size_t at = line.find("TAVCMP "); at != std::string::npos) tables.insert(line.substr(at + 7));
  return tables;
}

void build(const std::string& dir) {
  const RunResult r = run_in(dir, {"/usr/bin/ninja"});
  ASSERT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_TRUE(planned(dir).empty());
  // The next change must come after the outputs on the file system's clock.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

void append(const std::string& path, const std::string& text) { write_file(path, read_file(path) + text); }

TEST(NinjaBuild, RebuildsExactlyTheTablesWhoseInputsChanged) {
  ASSERT_TRUE(file_exists("/usr/bin/ninja")) << "ninja (Debian package ninja-build) is needed";
  TempDir dir;
  copy_examples(dir.path());
  build(dir.path());
  EXPECT_TRUE(file_exists(dir / "shop.op6"));

  append(dir / "daily.inc", "// touched\n");
  EXPECT_EQ(planned(dir.path()), std::set<std::string>{"daily.op6"});
  build(dir.path());

  const RunResult r = run_in(dir.path(), {tavtest::program("tavdict"), "load", "shop", "shop.sch"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(planned(dir.path()), std::set<std::string>{"shop.op6"});
  build(dir.path());

  append(dir / "common.spl", "// changed\n");
  EXPECT_EQ(planned(dir.path()), (std::set<std::string>{"common.op6", "daily.op6"}));
  build(dir.path());
}

}  // namespace
