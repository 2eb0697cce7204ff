// Guards the compiler's output across changes of its inside: generated programs of every shape
// the benchmark generator writes, and the bundled example, compile to the same tables as before,
// byte for byte. The compile time and the compile text (which holds the date) are the only bytes
// that change from run to run; they are blanked before the digest is taken.
//
// When a change alters the tables on purpose, the failure message prints the new digests; update
// the table below in the same commit and say why in its message.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/generator.h"
#include "codegen/header.h"
#include "tests/support/op6.h"
#include "tests/support/support.h"

namespace {

using tavtest::TempDir;

uint64_t fnv1a(const std::string& bytes) {
  uint64_t h = 0xcbf29ce484222325ull;
  for (unsigned char c : bytes) h = (h ^ c) * 0x100000001b3ull;
  return h;
}

// The digest of an image with the compile time and the compile text blanked.
uint64_t table_digest(std::string image) {
  tavtest::Op6 view(image);
  if (image.size() < tav::hdr::size) return 0;
  for (uint32_t i = 0; i < 4; ++i) image[tav::hdr::h_compile_time + i] = 0;
  uint32_t text = view.u24(tav::hdr::h_compile_text);
  for (uint32_t i = text; text != 0 && i < image.size() && image[i] != 0; ++i) image[i] = ' ';
  return fnv1a(image);
}

struct Case {
  const char* name;
  uint32_t seed;       // 0: the bundled example
  bool debug;          // compiled with -d
  uint64_t digest;
};

const Case kCases[] = {
    {"example", 0, false, 0xcb3b400fe871d8e5ull},
    {"example-d", 0, true, 0x5c88aecf808a07aeull},
    {"gen-1", 1, false, 0xdaf2e484a6825211ull},
    {"gen-2", 2, false, 0x890bd1359153ef5aull},
    {"gen-3", 3, false, 0x66a469b5f60bee38ull},
    {"gen-4", 4, true, 0x5165e86e5b1d9412ull},
    {"gen-5", 5, true, 0xc1d29d1ebe45a3bcull},
    {"gen-6", 6, false, 0xeed60ca22adf29d3ull},
};

TEST(GoldenTables, SameBytesAsRecorded) {
  std::string report;
  for (const Case& c : kCases) {
    TempDir dir;
    std::string source;
    if (c.seed == 0) {
      source = tavtest::read_file(tavtest::source_dir() + "/examples/orders.spl");
    } else {
      tavbench::GenOptions o;
      o.seed = c.seed;
      o.lines = 600;
      source = tavbench::generate_program(o);
    }
    std::vector<std::string> options;
    if (c.debug) options.push_back("-d");
    tavtest::Compiled compiled = tavtest::compile(dir, source, "prog.spl", options);
    EXPECT_EQ(compiled.result.status, 0) << c.name << "\n" << compiled.result.out;
    uint64_t got = table_digest(compiled.image.bytes());
    char line[96];
    std::snprintf(line, sizeof line, "    {\"%s\", %u, %s, 0x%016llxull},\n", c.name, c.seed,
                  c.debug ? "true" : "false", static_cast<unsigned long long>(got));
    report += line;
    EXPECT_EQ(got, c.digest) << c.name << ": the table differs from the recorded one";
  }
  if (::testing::Test::HasFailure()) std::printf("Digests of this build:\n%s", report.c_str());
}

// The shop application of examples/, compiled against its dictionary, against the table checked in
// as tests/golden/shop.op6 (compile time and text blanked). TAVGOLDEN=<dir> writes the new table
// there, for a change that alters it on purpose.
TEST(GoldenTables, TheShopApplication) {
  TempDir dir;
  const std::string examples = tavtest::source_dir() + "/examples/";
  tavtest::write_file(dir / "shop.sch", tavtest::read_file(examples + "shop.sch"));
  tavtest::write_file(dir / "shop.spl", tavtest::read_file(examples + "shop.spl"));
  tavtest::RunOptions in_dir;
  in_dir.cwd = dir.path();
  ASSERT_EQ(tavtest::run({tavtest::program("tavdict"), "load", "shop", "shop.sch"}, in_dir).status, 0);
  const tavtest::RunResult r = tavtest::tavcmp(dir.path(), {"-l", "shop.spl"},
                                               tavtest::Env{{"TAVDICT=shop"}, {"TAVUSRDICT", "TAVDISTDICT", "TAVPATH"}});
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("No errors found"), std::string::npos) << r.out;
  const std::string got = tavtest::read_file(dir / "shop.op6");
  if (const char* out = std::getenv("TAVGOLDEN")) tavtest::write_file(std::string(out) + "/shop.op6", got);
  const std::string golden = tavtest::read_file(tavtest::source_dir() + "/tests/golden/shop.op6");
  EXPECT_EQ(table_digest(got), table_digest(golden)) << "the shop application's table changed";
}

}  // namespace
