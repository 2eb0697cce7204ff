// tavcmp around the preprocessor and on bad input: preprocessor failures, the temporary file,
// the termination signals, a missing product tree, and sources or output places that cannot be
// used.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

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
  EXPECT_FALSE(file_exists(dir / "m.op6"));
  EXPECT_TRUE(file_exists(dir / "ok.op6"));
  EXPECT_EQ(list_dir(tmp.path()), std::vector<std::string>{});  // the temporary is removed
}

TEST(DriverPreprocess, MissingProductTree) {
  TempDir dir, tmp;
  write_file(dir / "ok.spl", kClean);
  for (const std::string& tavrin : {dir / "no-such-product", dir / "no-such-product/"}) {
    RunResult r = tavcmp(dir.path(), {"-ln", "ok.spl"},
                         {{"TAVRIN=" + tavrin, "TMPDIR=" + tmp.path()}, {}});
    EXPECT_EQ(r.out, "\nok.spl:Errors during preprocessing\n\n") << tavrin;
    EXPECT_EQ(r.status, 0);
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
