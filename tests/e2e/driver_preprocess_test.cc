// tavcmp around the preprocessor and on bad input: preprocessor failures, the temporary file,
// the termination signals, a missing product tree, and sources or output places that cannot be
// used.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>

#include "tests/e2e/driver_fixture.h"

namespace {

using namespace drvtest;
namespace fs = std::filesystem;

TEST(DriverPreprocess, FailureIsReportedAndCompilesNothing) {
  TempDir dir, tmp;
  write_file(dir / "m.spl", "#include \"gone.spl\"\nprocedure main\n  pause\nend\n");
  write_file(dir / "ok.spl", kClean);
  RunResult r = tavcmp(dir.path(), {"-ln", "m.spl", "ok.spl"}, {{"TMPDIR=" + tmp.path()}, {}});
  // The message line of the file name has no newline of its own, the failure line has one.
  EXPECT_EQ(r.out, "\nm.spl:Errors during preprocessing\n\nok.spl:\nNo errors found\n");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(read_file(dir / "m.err"), "\nm.spl, line 1: ERROR  Can't open include file - 'gone.spl'\n");
  // In plain mode the preprocessor's messages are shown too, on standard error.
  EXPECT_EQ(r.err, "m.spl, line 1: ERROR  Can't open include file - 'gone.spl'\n");
  EXPECT_FALSE(file_exists(dir / "m.op6"));
  EXPECT_TRUE(file_exists(dir / "ok.op6"));
  EXPECT_EQ(list_dir(tmp.path()), std::vector<std::string>{});  // the temporary is removed
}

// A preprocessor that cannot be started leaves the classic output; standard error names the path
// tried, the system's reason and TAVRIN.
TEST(DriverPreprocess, MissingProductTree) {
  TempDir dir, tmp, product;
  write_file(dir / "ok.spl", kClean);
  fs::create_directories(product / "bin");
  write_file(product / "bin/tavpp", "#!/bin/sh\n");  // not executable, not even for the superuser
  struct Case {
    Env env;
    std::string tried;
    std::string reason;
  };
  const std::string missing = dir / "no-such-product";
  const Case cases[] = {
      {{{"TAVRIN=" + missing}, {}}, missing + "/bin/tavpp", "No such file or directory (TAVRIN is '" + missing + "'"},
      {{{"TAVRIN=" + missing + "/"}, {}}, missing + "/bin/tavpp", "No such file or directory (TAVRIN is '"},
      {{{}, {"TAVRIN"}}, "/usr/tavrin/bin/tavpp", "(TAVRIN is not set, so /usr/tavrin is used;"},
      {{{"TAVRIN=" + product.path()}, {}}, product / "bin/tavpp", "Permission denied (TAVRIN is '"},
  };
  for (Case c : cases) {
    if (c.tried == "/usr/tavrin/bin/tavpp" && file_exists(c.tried)) continue;
    c.env.set.push_back("TMPDIR=" + tmp.path());
    RunResult r = tavcmp(dir.path(), {"-ln", "ok.spl"}, c.env);
    EXPECT_EQ(r.out, "\nok.spl:Errors during preprocessing\n\n") << c.tried;
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(r.err.starts_with(tavtest::program("tavcmp") + ": cannot run '" + c.tried + "': ")) << r.err;
    EXPECT_TRUE(contains(r.err, c.reason)) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_EQ(list_dir(dir.path()), std::vector<std::string>{"ok.spl"});
    EXPECT_EQ(list_dir(tmp.path()), std::vector<std::string>{});
  }
  // A product directory given with its trailing "/" works like one without.
  RunResult r = tavcmp(dir.path(), {"-ln", "ok.spl"}, {{"TAVRIN=" + tavtest::product_dir() + "/"}, {}});
  EXPECT_EQ(r.out, "\nok.spl:\nNo errors found\n");
}

// A fake product whose preprocessor announces itself and then waits: tavcmp receives a
// termination signal while it runs and must stop it, remove its temporary file and end with the
// signal's number as its status; the listing it has begun still ends with a newline.
TEST(DriverPreprocess, TerminationSignalsWhilePreprocessing) {
  TempDir product;
  fs::create_directories(product / "bin");
  write_file(product / "bin/tavpp", "#!/bin/sh\n: > started\nexec sleep 30\n");
  chmod((product / "bin/tavpp").c_str(), 0755);
  const std::string script =
      "\"$0\" -ln -I . ok.spl & pid=$!\n"
      "i=0; while [ ! -f started ] && [ $i -lt 200 ]; do sleep 0.05; i=$((i+1)); done\n"
      "kill -$1 $pid; wait $pid; echo \"status=$?\"\n";
  for (const auto& [name, number] : std::vector<std::pair<std::string, int>>{
           {"TERM", 15}, {"INT", 2}, {"HUP", 1}, {"QUIT", 3}}) {
    TempDir dir, tmp;
    write_file(dir / "ok.spl", kClean);
    tavtest::RunOptions options;
    options.cwd = dir.path();
    options.env = {"TAVRIN=" + product.path(), "TMPDIR=" + tmp.path()};
    options.unset = {"TERM", "TAVCMPINC"};
    RunResult r =
        tavtest::run({"/bin/sh", "-c", script, tavtest::program("tavcmp"), name}, options);
    EXPECT_EQ(r.out, "\nok.spl:\nINFO  Custom include path: - '.'\nstatus=" +
                         std::to_string(number) + "\n")
        << name;
    EXPECT_EQ(list_dir(tmp.path()), std::vector<std::string>{}) << name;
    EXPECT_EQ(list_dir(dir.path()), (std::vector<std::string>{"ok.err", "ok.spl", "started"})) << name;
    EXPECT_EQ(read_file(dir / "ok.err"), "\nINFO  Custom include path: - '.'\n") << name;
  }
}

TEST(DriverBadInput, UnreadableSources) {
  TempDir dir;
  fs::create_directories(dir / "dir.spl");  // exists, but cannot be read as a file
  RunResult r = tavcmp(dir.path(), {"-ln", "dir.spl"});
  EXPECT_EQ(r.out, "\ndir.spl:Errors during preprocessing\n\n");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(read_file(dir / "dir.err"), "\nERROR  Can't open source file - 'dir.spl'\n");

  if (geteuid() == 0) return;  // permissions do not stop the superuser
  write_file(dir / "locked.spl", kClean);
  chmod((dir / "locked.spl").c_str(), 0);
  r = tavcmp(dir.path(), {"-ln", "locked.spl"});
  EXPECT_EQ(r.out, "\nlocked.spl:Errors during preprocessing\n\n");
  EXPECT_FALSE(file_exists(dir / "locked.op6"));
}

// A FIFO named as a source is refused without being opened: before, tavcmp opened it to lock it
// and waited for a writer for ever. The watchdog plays the writer that never comes: it notices
// a reader waiting on the FIFO (and lets it go, so that the test ends either way).
TEST(DriverBadInput, FifoSourceIsRefusedWithoutOpeningIt) {
  TempDir dir;
  ASSERT_EQ(mkfifo((dir / "pipe.spl").c_str(), 0644), 0);
  std::atomic<bool> done{false}, reader_waited{false};
  std::thread watchdog([&] {
    while (!done) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      const int fd = open((dir / "pipe.spl").c_str(), O_WRONLY | O_NONBLOCK);
      if (fd >= 0) {
        reader_waited = true;
        close(fd);
      }
    }
  });
  RunResult r = tavcmp(dir.path(), {"-ln", "pipe.spl"});
  done = true;
  watchdog.join();
  EXPECT_FALSE(reader_waited);
  // As a directory named as a source is refused: by the preprocessor, into the listing.
  EXPECT_EQ(r.out, "\npipe.spl:Errors during preprocessing\n\n");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(read_file(dir / "pipe.err"), "\nERROR  Can't open source file - 'pipe.spl'\n");
  EXPECT_EQ(r.err, tavtest::program("tavcmp") + ": source 'pipe.spl' is a FIFO, not a regular file: not compiled\n"
                   "ERROR  Can't open source file - 'pipe.spl'\n");
}

// A later source that begins with "-" is a file for the preprocessor and the language-text
// post-processor too; a newline in a name survives the line markers and the make rule.
TEST(DriverBadInput, NamesThatLookLikeOptionsOrHoldNewlines) {
  TempDir dir;
  write_file(dir / "ok.spl", kClean);
  write_file(dir / "-dash.spl", kClean);
  RunResult r = tavcmp(dir.path(), {"-ln", "ok", "-dash"});
  EXPECT_EQ(r.out, "\nok:\nNo errors found\n-dash:\nNo errors found\n");
  EXPECT_EQ(r.err, "");
  EXPECT_TRUE(file_exists(dir / "-dash.op6"));

  write_file(dir / "two\nlines.spl", errors_on({4}, 5));
  r = tavcmp(dir.path(), {"-ln", "--write-dependencies", "two\nlines"});
  EXPECT_EQ(r.status, 4);
  EXPECT_EQ(read_file(dir / "two\nlines.err"), bogus_line("two\nlines.spl", 4) + "\n");
  EXPECT_EQ(read_file(dir / "two\nlines.d"), "two\\nlines.op6: two\\nlines.spl\n");
}

// A symbolic link planted by another user at the listing's name in a shared directory (sticky,
// as /tmp) is neither followed nor written through. The compile runs as an ordinary user, who
// cannot remove the link there; the link's owner also owns the directory, so that the system's
// own protection of such links does not hide the fault.
TEST(DriverBadInput, PlantedListingLinkIsNotFollowed) {
  if (geteuid() != 0 || !file_exists("/usr/bin/setpriv")) GTEST_SKIP() << "needs the superuser to plant as another user";
  const std::vector<std::string> as_nobody{"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
  std::vector<std::string> reach = as_nobody;
  reach.insert(reach.end(), {"/usr/bin/test", "-x", tavtest::program("tavpp")});
  if (tavtest::run(reach).status != 0)
    GTEST_SKIP() << "the product is out of an ordinary user's reach (a private directory above it)";
  TempDir dir;
  chmod(dir.path().c_str(), 0755);
  const std::string shared = dir / "shared";
  fs::create_directories(shared);
  ASSERT_EQ(chown(shared.c_str(), 65533, 65533), 0);
  chmod(shared.c_str(), 01777);
  write_file(dir / "target", "precious\n");
  chmod((dir / "target").c_str(), 0666);  // writable by the compiling user, but not through the link
  ASSERT_EQ(symlink((dir / "target").c_str(), (shared + "/bad.err").c_str()), 0);
  ASSERT_EQ(lchown((shared + "/bad.err").c_str(), 65533, 65533), 0);
  write_file(dir / "bad.spl", errors_on({3}, 4));

  tavtest::RunOptions options;
  options.cwd = dir.path();
  options.env = {"TAVRIN=" + tavtest::product_dir(), "TMPDIR=" + shared};
  options.unset = {"TAVCMPINC", "TAVLANGUAGE", "TAVLANGDIR", "TERM"};
  std::vector<std::string> compile = as_nobody;
  compile.insert(compile.end(), {tavtest::program("tavcmp"), "-ln", "-o", "shared", "bad.spl"});
  const RunResult r = tavtest::run(compile, options);
  EXPECT_EQ(read_file(dir / "target"), "precious\n");
  EXPECT_EQ(r.status, 3);
  EXPECT_EQ(r.out, "\nbad.spl:" + bogus_line("bad.spl", 3) + "\n*** Errors found = 1\n");
  EXPECT_TRUE(contains(r.err, "cannot write the listing 'shared/bad.err': Is a symbolic link (not followed)")) << r.err;
}

// A full disk, played by the file-size limit: the table cannot be written, standard output says
// so as it always has, standard error names the file and the system's reason, and no listing is
// left behind (an empty one least of all).
TEST(DriverBadInput, FullOutputDirectory) {
  TempDir dir, tmp;
  write_file(dir / "ok.spl", kClean);
  fs::create_directories(dir / "inc");
  auto run_limited = [&](rlim_t limit, std::vector<std::string> args) {
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    rlimit low = old;
    low.rlim_cur = limit;
    setrlimit(RLIMIT_FSIZE, &low);
    RunResult r = tavcmp(dir.path(), std::move(args), {{"TMPDIR=" + tmp.path()}, {}});
    setrlimit(RLIMIT_FSIZE, &old);
    return r;
  };
  const std::string message = tavtest::program("tavcmp") + ": error writing out operations table (errno=27)";
  RunResult r = run_limited(512, {"-ln", "ok.spl"});
  EXPECT_EQ(r.out, "\nok.spl:\n" + message + "\n*** Errors found = 1\n");
  EXPECT_EQ(r.status, 255);
  EXPECT_TRUE(contains(r.err, "cannot write 'ok.op6' (its work file 'ok.tmp'): File too large")) << r.err;
  EXPECT_FALSE(file_exists(dir / "ok.op6"));
  EXPECT_FALSE(file_exists(dir / "ok.err"));

  r = run_limited(0, {"-ln", "-I", "inc", "ok.spl"});  // nothing at all can be written
  EXPECT_EQ(r.out, "\nok.spl:\nINFO  Custom include path: - 'inc'Errors during preprocessing\n\n");
  EXPECT_EQ(list_dir(dir.path()), (std::vector<std::string>{"inc", "ok.spl"}));
  EXPECT_EQ(list_dir(tmp.path()), std::vector<std::string>{});
}

TEST(DriverBadInput, OutputThatCannotBeCreated) {
  TempDir dir;
  write_file(dir / "ok.spl", kClean);
  write_file(dir / "plain-file", "");
  const std::string prog = tavtest::program("tavcmp");
  struct Case {
    std::string out_dir;
    int errnum;
  };
  for (const Case& c : {Case{"missing", ENOENT}, Case{"plain-file", ENOTDIR}}) {
    RunResult r = tavcmp(dir.path(), {"-ln", "-o", c.out_dir, "ok.spl"});
    EXPECT_EQ(r.out, "\nok.spl:\n" + prog + ": can't create '" + c.out_dir + "/ok.tmp' (errno=" +
                         std::to_string(c.errnum) + ")\n*** Errors found = 1\n");
    EXPECT_EQ(r.status, 255);
    // Standard error has the paths and the system's words for the number.
    EXPECT_EQ(r.err, prog + ": cannot write '" + c.out_dir + "/ok.op6' (its work file '" + c.out_dir + "/ok.tmp'): " +
                         std::strerror(c.errnum) + "\n");
    // A diagnostics format has both in its one entry.
    r = tavcmp(dir.path(), {"-n", "--diagnostics-format=gcc", "-o", c.out_dir, "ok.spl"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "ok.spl: error: Operations table not written - 'cannot write '" + c.out_dir + "/ok.op6' (its work file '" +
                         c.out_dir + "/ok.tmp'): " + std::strerror(c.errnum) + "' [table_not_written]\nok.spl: note: " + prog +
                         ": can't create '" + c.out_dir + "/ok.tmp' (errno=" + std::to_string(c.errnum) + ")\n1 error generated.\n");
  }
  EXPECT_EQ(list_dir(dir.path()), (std::vector<std::string>{"ok.spl", "plain-file"}));

  if (geteuid() == 0) return;
  fs::create_directories(dir / "ro");
  chmod((dir / "ro").c_str(), 0555);
  RunResult r = tavcmp(dir.path(), {"-ln", "-o", "ro", "ok.spl"});
  EXPECT_EQ(r.status, 255);
  EXPECT_TRUE(contains(r.out, ": can't create 'ro/ok.tmp' (errno=" + std::to_string(EACCES) + ")"));
  EXPECT_EQ(list_dir(dir / "ro"), std::vector<std::string>{});
  chmod((dir / "ro").c_str(), 0755);
}

TEST(DriverBadInput, BinarySourceNeverCrashes) {
  TempDir dir;
  std::string junk;
  uint32_t x = 12345;
  for (int i = 0; i < 20000; ++i) {
    x = x * 1103515245u + 12345u;
    junk += static_cast<char>(x >> 24);
  }
  write_file(dir / "junk.spl", junk);
  RunResult r = tavcmp(dir.path(), {"-ln", "junk.spl"});
  EXPECT_TRUE(r.status == 0 || r.status == 255 || (r.status > 0 && r.status < 128)) << r.status;
  EXPECT_EQ(r.err, "");
  EXPECT_TRUE(r.out.starts_with("\njunk.spl:")) << r.out;
  EXPECT_TRUE(contains(r.out, "*** Errors found = ") || contains(r.out, "No errors found")) << r.out;
}

}  // namespace
