// What the stack limits: deep nesting stops with a message; a NUL byte is reported. And faults of
// the machine: a closed output pipe, the file-size limit, and compilers writing the same table at
// once.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "bench/generator.h"
#include "codegen/header.h"
#include "tests/support/op6.h"
#include "tests/support/support.h"

namespace {

using tavtest::TempDir;

TEST(Limits, NestingStopsWithAMessage) {
  TempDir dir;
  std::string source = "field a pic 9\nprocedure main\n";
  for (int i = 0; i < 5000; ++i) source += "if a = 1\n";
  for (int i = 0; i < 5000; ++i) source += "end-if\n";
  source += "end\n";
  const tavtest::Compiled c = tavtest::compile(dir, source);
  EXPECT_NE(c.result.out.find("FATAL  Statements nested too deeply"), std::string::npos) << c.result.out;
  EXPECT_TRUE(c.image.empty());
}

TEST(Limits, NulBytesAreReported) {
  TempDir dir;
  static const char kSource[] = "field a pic 9\nprocedure main\n  set a = 1 \0 set a = b\nend\n";
  const tavtest::Compiled c = tavtest::compile(dir, std::string(kSource, sizeof kSource - 1));
  EXPECT_NE(c.result.out.find("prog.spl, line 3: ERROR  Invalid character"), std::string::npos) << c.result.out;
  // The rest of the line is read: its unknown field is found too.
  EXPECT_NE(c.result.out.find("Field not defined - 'b'"), std::string::npos) << c.result.out;
}

// Runs a shell command line with bash in `dir`, TAVRIN set to the build's product.
tavtest::RunResult bash(const TempDir& dir, const std::string& command) {
  tavtest::RunOptions options;
  options.cwd = dir.path();
  options.env = {"TAVRIN=" + tavtest::product_dir(), "TMPDIR=" + (dir / "tmp")};
  return tavtest::run({"/bin/bash", "-c", command}, options);
}

// A closed output pipe and the file-size limit are write errors with a message and a failing
// status; nothing is left behind: no temporary file, no work file, no partial table.
TEST(Faults, ClosedPipeAndFileSizeLimit) {
  TempDir dir;
  std::filesystem::create_directory(dir / "tmp");
  tavtest::write_file(dir / "ok.spl", "procedure main\nend\n");
  const std::string tavcmp = tavtest::program("tavcmp");
  tavtest::RunResult r = bash(dir, tavcmp + " -l -n ok.spl ok.spl ok.spl | (exec 0<&-; sleep 0.2); "
                                             "echo \"status=${PIPESTATUS[0]}\"");
  EXPECT_NE(r.out.find("status=255"), std::string::npos) << r.out << r.err;
  EXPECT_NE(r.err.find("standard output: Broken pipe"), std::string::npos) << r.err;
  EXPECT_TRUE(tavtest::list_dir(dir / "tmp").empty());

  std::filesystem::remove(dir / "ok.op6");
  r = bash(dir, "ulimit -f 1; " + tavcmp + " -l -n ok.spl; echo \"status=$?\"");
  EXPECT_NE(r.out.find("error writing out operations table (errno=27)"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("status=255"), std::string::npos) << r.out;
  EXPECT_EQ(tavtest::list_dir(dir.path()), (std::vector<std::string>{"ok.spl", "tmp"}));
  EXPECT_TRUE(tavtest::list_dir(dir / "tmp").empty());
}

// The table without the two things that change from run to run: the compile time and the date
// in the compile text.
std::string without_time(std::string image) {
  const tavtest::Op6 view(image);
  if (image.size() < tav::hdr::size) return image;
  for (uint32_t i = 0; i < 4; ++i) image[tav::hdr::h_compile_time + i] = 0;
  for (uint32_t i = view.u24(tav::hdr::h_compile_text); i != 0 && i < image.size() && image[i] != 0; ++i) image[i] = ' ';
  return image;
}

// Eight compilers writing the same table into one directory, twenty times each: every run
// succeeds and the table left is whole.
TEST(Faults, ConcurrentCompilesOfOneProgram) {
  TempDir dir;
  tavbench::GenOptions o;
  o.lines = 300;
  tavtest::write_file(dir / "prog.spl", tavbench::generate_program(o));
  ASSERT_EQ(tavtest::tavcmp(dir.path(), {"-l", "-n", "prog.spl"}).status, 0);
  const std::string single = without_time(tavtest::read_file(dir / "prog.op6"));
  const std::string listing = tavtest::read_file(dir / "prog.err");
  std::vector<std::thread> runs;
  std::vector<int> failures(8, 0);
  for (int w = 0; w < 8; ++w)
    runs.emplace_back([&, w] {
      for (int i = 0; i < 20; ++i)
        failures[static_cast<size_t>(w)] += tavtest::tavcmp(dir.path(), {"-l", "-n", "prog.spl"}).status != 0;
    });
  for (std::thread& t : runs) t.join();
  for (int f : failures) EXPECT_EQ(f, 0);
  EXPECT_EQ(without_time(tavtest::read_file(dir / "prog.op6")), single);
  EXPECT_EQ(tavtest::read_file(dir / "prog.err"), listing);
  EXPECT_EQ(tavtest::list_dir(dir.path()), (std::vector<std::string>{"prog.err", "prog.op6", "prog.spl"}));
}

}  // namespace
