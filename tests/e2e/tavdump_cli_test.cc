// tavdump as a program: its command line, exit statuses, and the listing of a compiled table.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "tests/support/support.h"

namespace {

using tavtest::RunResult;
using tavtest::TempDir;

RunResult tavdump(const std::vector<std::string>& args) {
  std::vector<std::string> argv{tavtest::program("tavdump")};
  argv.insert(argv.end(), args.begin(), args.end());
  return tavtest::run(argv);
}

// Compiles prog.spl in dir with -d and returns the path of its table.
std::string compile(const TempDir& dir, const std::string& source) {
  tavtest::write_file(dir / "prog.spl", source);
  tavtest::RunOptions run;
  run.cwd = dir.path();
  run.env = {"TAVRIN=" + tavtest::product_dir()};
  RunResult r = tavtest::run({tavtest::program("tavcmp"), "-l", "-n", "-d", "prog.spl"}, run);
  EXPECT_EQ(r.status, 0) << r.out;
  return dir / "prog.op6";
}

TEST(TavdumpCli, UsageAndUnreadableFiles) {
  struct Case {
    std::vector<std::string> args;
    int status;
    const char* err;
  };
  const Case cases[] = {
      {{}, 2, "tavdump: no file given"},
      {{"-x", "a.op6"}, 2, "unknown option -x"},
      {{"a.op6", "b.op6"}, 2, "only one file"},
      {{"/nonexistent/a.op6"}, 1, "tavdump: /nonexistent/a.op6: No such file or directory"},
  };
  for (const Case& c : cases) {
    RunResult r = tavdump(c.args);
    EXPECT_EQ(r.status, c.status) << c.err;
    EXPECT_NE(r.err.find(c.err), std::string::npos) << r.err;
  }
  RunResult help = tavdump({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("-r "), std::string::npos);
}

TEST(TavdumpCli, ListsACompiledProgram) {
  TempDir dir;
  std::string op6 = compile(dir,
                            "procedure main\n  pause\n  do helper\n  exit\nend-procedure\n"
                            "procedure helper\n  pause\nend-procedure\n"
                            "link \"liba\"\n");
  RunResult r = tavdump({op6});
  ASSERT_EQ(r.status, 0) << r.err;
  // The lines of the listing that do not depend on offsets or the time.
  for (const char* line : {
           "  table version     6.6\n",
           "  flags             0x4007 (debug ops)\n",
           "  text item count   29\n",
           "  1 'N' length 8 \"Next-scr\"\n",
           "  mode 0x00005f \"next-scr\"\n",
           "    m_flags 0x4080 (next-scr process)\n",
           " \"main\" procedure\n",
           "    s_kind 0x0003 (0x0003)\n",
           "    s_modes [\"entry\"]\n",
           " statement-marker(81) verb 0x30e00460 detail prev 0x000000 next ",
           " statement-marker(81) verb 0x30000c9e pause prev ",
           " pause(73)\n",
           " do(57) section ",
           " \"helper\" flags 0x0000 modes [] initial none\n",
           " exit(61) value none\n",
           "    l_index 0\n    l_name \"liba\"\n",
           "data image: 8 bytes at file offset ",
       })
    EXPECT_NE(r.out.find(line), std::string::npos) << line << "\n" << r.out;

  RunResult header = tavdump({"-h", op6});
  EXPECT_EQ(header.status, 0);
  EXPECT_EQ(header.out.find("sections"), std::string::npos);
  EXPECT_EQ(r.out.rfind(header.out, 0), 0u) << "-h prints the start of the full listing";
}

TEST(TavdumpCli, DamagedFileExitsOneWithItsReason) {
  TempDir dir;
  std::string op6 = compile(dir, "procedure main\n  pause\nend-procedure\n");
  std::string bytes = tavtest::read_file(op6);
  tavtest::write_file(dir / "cut.op6", bytes.substr(0, bytes.size() - 8));
  RunResult r = tavdump({dir / "cut.op6"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err.rfind("tavdump: " + (dir / "cut.op6") + ": damaged: ", 0), 0u) << r.err;
}

// Whatever is not a table is refused at once: no endless read, no hang on a FIFO.
TEST(TavdumpCli, RefusesWhatIsNoTable) {
  TempDir dir;
  tavtest::write_file(dir / "text.op6", std::string(200, 'x'));
  ASSERT_EQ(mkfifo((dir / "fifo.op6").c_str(), 0600), 0);
  for (const std::string& file : {std::string("/dev/zero"), dir / "fifo.op6", dir.path(), dir / "text.op6"}) {
    const RunResult r = tavdump({file});
    EXPECT_EQ(r.status, 1) << file;
    EXPECT_EQ(r.err.rfind("tavdump: " + file + ": not an operations table", 0), 0u) << r.err;
  }
}

}  // namespace
