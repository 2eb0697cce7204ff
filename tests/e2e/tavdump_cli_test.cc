// tavdump as a program: its command line, exit statuses, and the listing of a compiled table.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "tests/support/op6.h"
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
std::string debug_table(const TempDir& dir, const std::string& source) {
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
  std::string op6 = debug_table(dir,
                                "procedure main\n  pause\n  do helper\n  exit\nend-procedure\n"
                                "procedure helper\n  pause\nend-procedure\nlink \"liba\"\n");
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

// A SELECT joining two objects, a screen select, ACCEPT lists, CHECK-BOX, RADIO-BUTTON and
// DISPLAY BITMAP, as one program.
const char kScreenProgram[] =
    "field a pic 9(6)\nfield region pic x(4)\nfield cname pic x(30)\nfield amount pic 9(6)v99\n"
    "field code pic x(4)\nfield n pic 9(4)\nfield p pic s9(3)v99\n"
    "object cust type indexed file \"cust\" record region a cname end-record key region a unique\n"
    "object ord type indexed file \"ord\" record a amount end-record key a\n"
    "object codes type indexed file \"codes\" record code end-record key code unique\n"
    "procedure main\n"
    " select cname amount region from cust ord where a = 5 or a > 10\n"
    " before region\n  pause\n detail\n  pause\n end-select\n"
    " do s1\n do s2\nend\n"
    "screen s1 form-entry\ndetail\n"
    " accept n @ 1,1 allowed 1 to 5 value-title \"low\" 9 disallowed 7 on up-arrow exit end-on\n"
    " accept code @ 2,1 lookup codes\n"
    " check-box n @ 3,1 values 1 0\n"
    " radio-button p @ 4,1 1 title \"one\" 2 title \"two\"\n end-radio-button\n"
    " display bitmap \"logo\" @ 2,3 to @ 10,40 foreground\nend\n"
    "screen s2 select * from cust where a > 5\ndetail\n accept cname @ 1,1\n re-select\nend\n";

TEST(TavdumpCli, ListsSelectsAndScreenInput) {
  TempDir dir;
  RunResult r = tavdump({debug_table(dir, kScreenProgram)});
  ASSERT_EQ(r.status, 0) << r.err;
  for (const char* line : {
           "      from 2 \"ord\" flags 0x0010 (named) index 0 level 0 joined to 0\n",
           "        columns \"amount\"(selected) \"a\"\n",
           " entry 4 \"a\" from 1 flags 0x0100 (referenced)\n            ring: 5 \"a\"\n"
           "            ranges: a >= 5 AND a <= 5 OR a > 10\n",
           " entry 5 \"a\" from 2 flags 0x0180 (copy referenced)\n            ring: 4 \"a\"\n",
           " select-field-ref(76) entry 4 \"a\" format 0x20c0 subscript 0\n",
           "        before 3 \"region\"\n          block:\n",
           "    detail:\n",
           "    allowed 1 to 5 title \"low\"\n        allowed 9\n",
           "    on up-arrow:\n",
           "    disallowed 7\n",
           "    ad_options 0x1000 (in-detail)\n",
           "    lookup \"codes\" key 1 key field \"code\"\n",
           "    cb_flags 0x1000 (in-detail)\n",
           "    rv_title:\n",
           "    rd_flags 0x1000 (in-detail)\n",
           " shown above\n",
           " display-bitmap(79) at 2,3 to 10,40 flags 0x0002 (foreground)\n",
           " re-select(82)\n",
           "    select record 0x",
           "      sr_flags 0x00c2 (select-* screen for-update)\n",
           "screen selects\n  select record 0x",
       })
    EXPECT_NE(r.out.find(line), std::string::npos) << line << "\n" << r.out;
  EXPECT_NE(r.out.find(" for \"s2\" (shown above)\n"), std::string::npos) << r.out;
}

// A join ring that loops without coming back to its entry, and a select link into the header,
// are reported as damage.
TEST(TavdumpCli, DamagedSelectRecordsAreReported) {
  TempDir dir;
  const std::string bytes = tavtest::read_file(debug_table(dir, kScreenProgram));
  const RunResult listing = tavdump({dir / "prog.op6"});
  const size_t at = listing.out.find("select record 0x");
  ASSERT_NE(at, std::string::npos);
  const auto rec = static_cast<uint32_t>(std::stoul(listing.out.substr(at + 16, 6), nullptr, 16));
  auto put24 = [](std::string& b, uint32_t off, uint32_t v) {
    b[off] = static_cast<char>(v >> 16), b[off + 1] = static_cast<char>(v >> 8), b[off + 2] = static_cast<char>(v);
  };
  const tavtest::Op6 table(bytes);
  const uint32_t first = table.u24(rec + 12), second = table.u24(first);  // sr_fields, sf_next
  struct Case {
    uint32_t at, value;
    const char* damage;
  };
  const Case cases[] = {
      {first + 17, second, "damaged: join ring loops back to "},  // entry 1's ring into entry 2's own
      {rec + 9, 1, "damaged: FROM entry at 0x000001 lies inside the header"},
  };
  for (const Case& c : cases) {
    std::string broken = bytes;
    put24(broken, c.at, c.value);
    tavtest::write_file(dir / "broken.op6", broken);
    const RunResult r = tavdump({dir / "broken.op6"});
    EXPECT_EQ(r.status, 1) << c.damage;
    EXPECT_NE(r.err.find(c.damage), std::string::npos) << r.err;
  }
}

// A report list whose link leads out of the file, met while a REPORT SECTION op is printed, is
// damage like any other link; a listing that cannot be written fails the run.
TEST(TavdumpCli, ReportLinksAndOutputFailures) {
  TempDir dir;
  const std::string bytes = tavtest::read_file(
      debug_table(dir, "procedure main\n report name r full-xml\n report section \"s\" on r\nend\n"));
  const tavtest::Op6 table(bytes);
  std::string broken = bytes;
  const uint32_t r = table.u24(24), far = 0xfffff0;  // the header's report list
  for (int i = 0; i < 3; ++i) broken[r + 5 + i] = static_cast<char>(far >> (16 - 8 * i));  // its r_next
  tavtest::write_file(dir / "broken.op6", broken);
  RunResult damaged = tavdump({dir / "broken.op6"});
  EXPECT_EQ(damaged.status, 1) << damaged.err;
  EXPECT_NE(damaged.err.find("damaged: "), std::string::npos) << damaged.err;

  for (const std::vector<std::string>& args : {std::vector<std::string>{dir / "prog.op6"}, {"--help"}}) {
    std::vector<std::string> argv{"/bin/sh", "-c", "exec \"$0\" \"$@\" > /dev/full", tavtest::program("tavdump")};
    argv.insert(argv.end(), args.begin(), args.end());
    const RunResult full = tavtest::run(argv);
    EXPECT_EQ(full.status, 1) << args[0];
    EXPECT_NE(full.err.find("tavdump: cannot write the listing: No space left on device"), std::string::npos) << full.err;
  }
}

// Whatever is not a table is refused at once: no endless read, no hang on a FIFO. A table cut
// short is damaged.
TEST(TavdumpCli, RefusesWhatIsNoTable) {
  TempDir dir;
  const std::string bytes = tavtest::read_file(debug_table(dir, "procedure main\n  pause\nend-procedure\n"));
  tavtest::write_file(dir / "cut.op6", bytes.substr(0, bytes.size() - 8));
  tavtest::write_file(dir / "text.op6", std::string(200, 'x'));
  ASSERT_EQ(mkfifo((dir / "fifo.op6").c_str(), 0600), 0);
  const std::pair<std::string, const char*> cases[] = {
      {"/dev/zero", "not an operations table"}, {dir / "fifo.op6", "not an operations table"},
      {dir.path(), "not an operations table"},  {dir / "text.op6", "not an operations table"},
      {dir / "cut.op6", "damaged: "},
  };
  for (const auto& [file, reason] : cases) {
    const RunResult r = tavdump({file});
    EXPECT_EQ(r.status, 1) << file;
    EXPECT_EQ(r.err.rfind("tavdump: " + file + ": " + reason, 0), 0u) << r.err;
  }
}

}  // namespace
