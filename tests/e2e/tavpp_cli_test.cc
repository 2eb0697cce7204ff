// The tavpp program: command line, exact output, listing and exit statuses.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/support.h"

namespace {

using tavtest::file_exists;
using tavtest::read_file;
using tavtest::run;
using tavtest::write_file;

tavtest::RunResult tavpp(const tavtest::TempDir& dir, std::vector<std::string> args) {
  args.insert(args.begin(), tavtest::program("tavpp"));
  tavtest::RunOptions options;
  options.cwd = dir.path();
  return run(args, options);
}

TEST(TavppCli, OutputWithIncludesAndMarkers) {
  tavtest::TempDir dir;
  std::filesystem::create_directory(dir / "inc");
  write_file(dir / "prog.spl",
             "// prog\n"
             "#include \"defs.spl\"\n"
             "field x pic 9(MAX)\n"
             "#ifdef TAVRIN_RELEASE_6\n"
             "x = MAX-ROWS + MAX\n"
             "#endif\n"
             "HASH\n");
  write_file(dir / "inc/defs.spl", "#define MAX 12\n#include \"more.spl\"\ndefs\n");
  write_file(dir / "inc/more.spl", "#define HASH #no marker\n");
  auto r = tavpp(dir, {"-DTAVRIN_RELEASE=65", "-DTAVRIN_RELEASE_6", "-Iinc", "-oprog.err",
                       "prog.spl", "prog.pp"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out + r.err, "");
  EXPECT_FALSE(file_exists(dir / "prog.err"));
  EXPECT_EQ(read_file(dir / "prog.pp"),
            "# 1 prog.spl\n"
            "// prog\n"
            "# 3 inc/defs.spl\n"
            "defs\n"
            "# 3 prog.spl\n"
            "field x pic 9(12)\n"
            "# 5 prog.spl\n"
            "x = MAX-ROWS + 12\n"
            "# 7 prog.spl\n"
            " #no marker\n");
  EXPECT_EQ(tavtest::list_dir(dir.path()),
            (std::vector<std::string>{"inc", "prog.pp", "prog.spl"}));
}

TEST(TavppCli, UsageErrors) {
  tavtest::TempDir dir;
  write_file(dir / "a.spl", "a\n");
  for (std::vector<std::string> args : std::vector<std::vector<std::string>>{
           {}, {"a.spl"}, {"a.spl", "b", "c"}, {"-x", "a.spl", "b"}, {"-D", "a.spl", "b"},
           {"-D1=2", "a.spl", "b"}, {"-I", "a.spl", "b"}, {"-o", "a.spl", "b"}}) {
    auto r = tavpp(dir, args);
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "Usage: tavpp [-DNAME[=value]]... [-Idir]... -olisting source output\n");
    EXPECT_FALSE(file_exists(dir / "b"));
  }
}

TEST(TavppCli, ErrorsAppendToListing) {
  tavtest::TempDir dir;
  write_file(dir / "bad.spl", "ok\n#include <gone.spl>\n#error Release too old\n");
  write_file(dir / "bad.err", "earlier");
  write_file(dir / "bad.pp", "placeholder");
  auto r = tavpp(dir, {"-obad.err", "bad.spl", "bad.pp"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out + r.err, "");
  EXPECT_EQ(read_file(dir / "bad.err"),
            "earlier\n"
            "bad.spl, line 2: ERROR  Can't open include file - 'gone.spl'\n"
            "bad.spl, line 3: ERROR  #error - 'Release too old'\n");
  EXPECT_EQ(tavtest::list_dir(dir.path()), (std::vector<std::string>{"bad.err", "bad.spl"}));

  // A missing source, and a listing that cannot be opened: the message goes to stderr.
  r = tavpp(dir, {"-ono/such/dir.err", "none.spl", "none.pp"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "ERROR  Can't open source file - 'none.spl'\n");
}

TEST(TavppCli, BinaryInput) {
  tavtest::TempDir dir;
  std::string junk;
  std::uint32_t seed = 7;
  for (int i = 0; i < 300000; ++i) {
    seed = seed * 1664525u + 1013904223u;
    char c = static_cast<char>(seed >> 24);
    junk += (i % 97 == 0) ? '\n' : (i % 89 == 0) ? '#' : c;
  }
  write_file(dir / "junk.spl", junk);
  auto r = tavpp(dir, {"-ojunk.err", "junk.spl", "junk.pp"});
  EXPECT_TRUE(r.status == 0 || r.status == 1) << r.status;
  EXPECT_EQ(file_exists(dir / "junk.pp"), r.status == 0);
  // a directory or a device is not a source
  r = tavpp(dir, {"-ojunk.err", "/dev/zero", "junk.pp"});
  EXPECT_EQ(r.status, 1);
}

}  // namespace
