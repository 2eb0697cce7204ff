// tavcmp's command line: usage errors, option letters and clusters, the order in which pending
// option arguments are taken, and the include directories from -I and TAVCMPINC.
#include <filesystem>

#include "tests/e2e/driver_fixture.h"

namespace {

using namespace drvtest;

// Every usage error prints the usage text and ends with 255; standard error says which argument
// was wrong and why.
TEST(DriverOptions, UsageErrorsPrintUsageAndEndWith255) {
  TempDir dir;
  write_file(dir / "ok.spl", kClean);
  struct Case {
    std::vector<std::string> args;
    std::string why;
  };
  const Case cases[] = {
      {{}, "no source file is named"},
      {{"-ln"}, "no source file is named"},
      {{"-lx", "5"}, "no source file is named"},  // -x takes its argument, still no source
      {{"-lx"}, "option -x needs a number, and no source file is named"},
      {{"-lx", "ok"}, "option -x took 'ok' as its number, which it is not, and no source file is left"},
      {{"-lq", "ok"}, "unknown option letter 'q' in '-lq'"},
      {{"-lW", "ok"}, "unknown option letter 'W' in '-lW'"},  // w is exact: W is unknown
      {{"-l", "-I"}, "option -I in '-I' needs a directory after it"},
      {{"-lI"}, "option -I in '-lI' needs a directory after it"},  // ... also at the end of a cluster
      {{"--nonsense", "ok"}, "unknown option '--nonsense'"},
      {{"-ln", "-p"}, "option -p needs a system name"},
      {{"-lg"}, "option -g needs a dictionary name"},
      {{"-lu"}, "option -u needs a dictionary name"},
      {{"-ln", "-g", "dict", "ok"}, "option -n (no dictionaries) cannot be used with -g"},
      {{"-lun", "dict", "ok"}, "option -n (no dictionaries) cannot be used with -u"},
      {{"-N", "-G", "dict", "ok"}, "option -n (no dictionaries) cannot be used with -g"},  // case-insensitive
  };
  for (const Case& c : cases) {
    std::string shown;
    for (const auto& a : c.args) shown += a + " ";
    RunResult r = tavcmp(dir.path(), c.args);
    EXPECT_EQ(r.status, 255) << shown;
    EXPECT_EQ(r.out, kUsage) << shown;
    EXPECT_EQ(r.err, tavtest::program("tavcmp") + ": " + c.why + "\n") << shown;
    EXPECT_EQ(list_dir(dir.path()), std::vector<std::string>{"ok.spl"}) << shown;
  }
}

TEST(DriverOptions, ClustersAndCase) {
  TempDir dir;
  write_file(dir / "ok.spl", kClean);
  struct Case {
    std::vector<std::string> args;
    std::string out;
    bool op6;
  };
  const Case cases[] = {
      {{"-lnt", "ok"}, "\nok:\nNo errors found - test compile only\n", false},
      {{"-LNT", "ok"}, "\nok:\nNo errors found - test compile only\n", false},
      {{"-l", "-N", "-T", "ok"}, "\nok:\nNo errors found - test compile only\n", false},
      {{"-Lni", "ok"}, "\nok:\n", true},          // i suppresses the result line
      {{"-lnw", "ok"}, "\nok:\n", true},          // and so does w
      {{"-lnCD", "ok"}, "\nok:\nNo errors found\n", true},
      {{"-lnx", "99", "ok"}, "\nok:\nNo errors found\n", true},  // the op statistics are the screen summary's
  };
  for (const Case& c : cases) {
    std::filesystem::remove(dir / "ok.op6");
    RunResult r = tavcmp(dir.path(), c.args);
    EXPECT_EQ(r.status, 0) << c.args[0];
    EXPECT_EQ(r.out, c.out) << c.args[0];
    // A test compile writes nothing at all; no other file is written beside the table.
    const std::vector<std::string> written = c.op6 ? std::vector<std::string>{"ok.op6", "ok.spl"} : std::vector<std::string>{"ok.spl"};
    EXPECT_EQ(list_dir(dir.path()), written) << c.args[0];
  }
}

// Arguments are taken by the pending options in the fixed order -p, -g, -u, -x, -o whatever
// the order of the letters in the cluster.
TEST(DriverOptions, PendingArgumentsFollowTheFixedOrder) {
  TempDir dir;
  write_file(dir / "ok.spl", kClean);
  std::filesystem::create_directory(dir / "out");
  std::filesystem::create_directory(dir / "5");

  RunResult r = tavcmp(dir.path(), {"-lnxo", "out", "5", "ok"});  // -x gets "out", -o gets "5"
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(file_exists(dir / "5/ok.op6"));
  EXPECT_FALSE(file_exists(dir / "out/ok.op6"));

  r = tavcmp(dir.path(), {"-lnop", "acct-sys", "out", "ok"});  // -p first, then -o
  EXPECT_EQ(r.status, 0) << r.out;
  ASSERT_TRUE(file_exists(dir / "out/ok.op6"));
  EXPECT_TRUE(contains(read_file(dir / "out/ok.op6"), std::string("acct-sys\0", 9)));
  EXPECT_FALSE(file_exists(dir / "acct-sys"));

  // -I takes the very next argument even inside a cluster; the letters behind it still count.
  std::filesystem::create_directory(dir / "inc");
  write_file(dir / "inc/body.spl", "  pause\n");
  write_file(dir / "withinc.spl", "procedure main\n#include \"body.spl\"\nend\n");
  r = tavcmp(dir.path(), {"-lIt", "inc", "-n", "withinc"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out,
            "\nwithinc:"
            "\nINFO  Custom include path: - 'inc'"
            "\nNo errors found - test compile only\n");
}

std::string include_lines(const std::vector<std::string>& dirs, bool overflow) {
  std::string s;
  for (const auto& d : dirs) s += "\nINFO  Custom include path: - '" + d + "'";
  if (overflow) s += "\nINFO  Too many include directories specified, some have been ignored";
  return s;
}

TEST(DriverOptions, TavcmpincComesAfterTheCommandLine) {
  TempDir dir;
  std::filesystem::create_directories(dir / "a");
  std::filesystem::create_directories(dir / "env");
  write_file(dir / "env/body.spl", "  pause\n");
  write_file(dir / "p.spl", "procedure main\n#include \"body.spl\"\nend\n");
  RunResult r = tavcmp(dir.path(), {"-ln", "-I", "a", "p"}, {{"TAVCMPINC=env"}, {}});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "\np:" + include_lines({"a", "env"}, false) + "\nNo errors found\n");
  // The INFO lines are messages of the file like any other and go to its listing.
  EXPECT_EQ(read_file(dir / "p.err"), include_lines({"a", "env"}, false) + "\n");

  r = tavcmp(dir.path(), {"-lni", "-I", "a", "p"}, {{"TAVCMPINC=env"}, {}});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "\np:\n");
  EXPECT_FALSE(file_exists(dir / "p.err"));
}

// Ten include directories are passed on; the eleventh (here TAVCMPINC) is dropped with an INFO
// message for every file.
TEST(DriverOptions, ElevenIncludeDirectories) {
  TempDir dir;
  std::vector<std::string> args = {"-ln"}, dirs;
  for (int i = 1; i <= 11; ++i) {
    std::string d = "d" + std::to_string(i);
    std::filesystem::create_directory(dir / d);
    if (i <= 10) {
      args.push_back("-I");
      args.push_back(d);
      dirs.push_back(d);
    }
  }
  write_file(dir / "d10/tenth.spl", "  pause\n");
  write_file(dir / "d11/eleventh.spl", "  pause\n");
  write_file(dir / "ten.spl", "procedure main\n#include \"tenth.spl\"\nend\n");
  write_file(dir / "eleven.spl", "procedure main\n#include \"eleventh.spl\"\nend\n");
  args.push_back("ten");
  args.push_back("eleven");

  RunResult r = tavcmp(dir.path(), args, {{"TAVCMPINC=d11"}, {}});
  const std::string info = include_lines(dirs, true);
  EXPECT_EQ(r.out, "\nten:" + info + "\nNo errors found" +
                       "\neleven:" + info + "Errors during preprocessing\n\n");
  EXPECT_EQ(r.status, 0);  // a preprocessor failure counts no error
  EXPECT_TRUE(file_exists(dir / "ten.op6"));
  EXPECT_FALSE(file_exists(dir / "eleven.op6"));
  EXPECT_EQ(read_file(dir / "eleven.err"),
            info + "\neleven.spl, line 2: ERROR  Can't open include file - 'eleventh.spl'\n\n");

  args.insert(args.begin() + 1, "-w");
  r = tavcmp(dir.path(), args, {{"TAVCMPINC=d11"}, {}});
  EXPECT_EQ(r.out, "\nten:\neleven:Errors during preprocessing\n\n");
  EXPECT_FALSE(file_exists(dir / "ten.err"));
}

}  // namespace
