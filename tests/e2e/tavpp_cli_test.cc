// The tavpp program: command line, exact output, listing and exit statuses.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

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

// --source-name: the text is read from a copy elsewhere, but the markers, the messages, the rules
// and the search for includes are those of the file it is named after.
TEST(TavppCli, SourceNameStandsForTheCopy) {
  tavtest::TempDir dir;
  std::filesystem::create_directories(dir / "app/inc");
  std::filesystem::create_directories(dir / "copy/inc");
  write_file(dir / "app/inc/near.inc", "near\n");
  write_file(dir / "copy/inc/near.inc", "wrong\n");
  write_file(dir / "copy/buffer", "#include \"inc/near.inc\"\n#include \"gone.inc\"\nlast\n");
  auto r = tavpp(dir, {"--source-name=app/prog.spl", "-MFprog.d", "-oprog.err", "copy/buffer", "prog.pp"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(read_file(dir / "prog.err"), "\napp/prog.spl, line 2: ERROR  Can't open include file - 'gone.inc'\n");
  EXPECT_EQ(read_file(dir / "prog.d"), "app/prog.op6: app/prog.spl app/inc/near.inc\n\napp/inc/near.inc:\n");
  write_file(dir / "copy/buffer", "#include \"inc/near.inc\"\nlast\n");
  r = tavpp(dir, {"--source-name=app/prog.spl", "-oprog.err", "copy/buffer", "prog.pp"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(read_file(dir / "prog.pp"), "# 1 app/prog.spl\n# 1 app/inc/near.inc\nnear\n# 2 app/prog.spl\nlast\n");
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

  // A missing source, and a listing that cannot be opened: the message goes to stderr, after a
  // line that says why.
  r = tavpp(dir, {"-ono/such/dir.err", "none.spl", "none.pp"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "tavpp: cannot write the listing 'no/such/dir.err': No such file or directory\n"
                   "ERROR  Can't open source file - 'none.spl'\n");
}

// File names are never options after "--"; names with a newline, a backslash or a leading blank
// are escaped in the line markers, and quoted for make in the rules.
TEST(TavppCli, OddFileNames) {
  tavtest::TempDir dir;
  write_file(dir / "-a\nb.spl", "#include \" lead\\ing.spl\"\nend\n");
  write_file(dir / " lead\\ing.spl", "lead\n");
  auto r = tavpp(dir, {"-oa.err", "-MFa.d", "--", "-a\nb.spl", "-a.pp"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(read_file(dir / "-a.pp"),
            "# 1 -a\\nb.spl\n"
            "# 1 \\040lead\\\\ing.spl\n"
            "lead\n"
            "# 2 -a\\nb.spl\n"
            "end\n");
  // As make reads them: a blank after a backslash needs both quoted, a newline cannot be said.
  EXPECT_EQ(read_file(dir / "a.d"),
            "-a\\nb.op6: -a\\nb.spl \\ lead\\ing.spl\n"
            "\n\\ lead\\ing.spl:\n");
  write_file(dir / "b $#\\ c.spl", "b\n");
  r = tavpp(dir, {"-ob.err", "-MFb.d", "-MTout/b $#\\ c.op6", "b $#\\ c.spl", "b.pp"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(read_file(dir / "b.d"), "out/b\\ $$\\#\\\\\\ c.op6: b\\ $$\\#\\\\\\ c.spl\n");
  // Without "--" a name that begins with "-" stays a usage error.
  r = tavpp(dir, {"-oa.err", "-a.spl", "a.pp"});
  EXPECT_EQ(r.status, 2);
}

// A symbolic link planted at the listing's name in a shared (sticky) directory is not followed:
// the messages go to standard error instead, and the file the link names keeps its bytes. As the
// superuser the link and the directory belong to another user, as they would in /tmp.
TEST(TavppCli, PlantedListingLinkIsNotFollowed) {
  tavtest::TempDir dir;
  const std::string shared = dir / "shared";
  std::filesystem::create_directory(shared);
  write_file(dir / "target", "precious\n");
  ASSERT_EQ(symlink((dir / "target").c_str(), (shared + "/bad.err").c_str()), 0);
  if (geteuid() == 0) {
    ASSERT_EQ(chown(shared.c_str(), 65534, 65534), 0);
    ASSERT_EQ(lchown((shared + "/bad.err").c_str(), 65534, 65534), 0);
  }
  chmod(shared.c_str(), 01777);
  write_file(dir / "bad.spl", "#error stop\n");
  auto r = tavpp(dir, {"-oshared/bad.err", "bad.spl", "bad.pp"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(read_file(dir / "target"), "precious\n");
  EXPECT_EQ(r.err, "tavpp: cannot write the listing 'shared/bad.err': Is a symbolic link (not followed)\n"
                   "bad.spl, line 1: ERROR  #error - 'stop'\n");
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
