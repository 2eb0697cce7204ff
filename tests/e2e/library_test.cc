// Component libraries: each library is compiled by tavcmp in the test, then the program that
// links it; the library links, routine numbers and messages of the program are checked.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "codegen/header.h"
#include "symbols/records.h"
#include "tests/support/op6.h"
#include "tests/support/support.h"

namespace {

using namespace tav;
using tavtest::Op6;
using tavtest::TempDir;

const char kLibrary[] =
    "procedure helper export parameters p pic 9(4)\n pause\nend\n"
    "procedure fixed export no-override\n pause\nend\n";

tavtest::RunResult tavcmp(const TempDir& dir, const std::string& name, const std::string& source,
                          std::vector<std::string> env = {}) {
  tavtest::write_file(dir / name, source);
  return tavtest::tavcmp(dir.path(), {"-l", "-n", name}, tavtest::Env{std::move(env), {"ERQ"}});
}

void library(const TempDir& dir, const std::string& name, const std::string& source = kLibrary) {
  const tavtest::RunResult r = tavcmp(dir, name, source);
  ASSERT_EQ(r.status, 0) << r.out;
}

TEST(Libraries, CallsResolveToExportedSections) {
  TempDir dir;
  library(dir, "mylib.spl");
  const tavtest::RunResult r =
      tavcmp(dir, "prog.spl", "link \"mylib\"\nfield k pic 9(4)\nprocedure main\n do helper parameters k\nend\n");
  ASSERT_EQ(r.status, 0) << r.out;
  const Op6 t(tavtest::read_file(dir / "prog.op6"));
  const uint32_t helper = t.section_named("helper");
  // Kind 0, its library, its routine number; one library.
  EXPECT_EQ((std::vector<uint32_t>{t.u16(helper + ssym::s_kind) & ssym::kind_mask, t.u24(helper + ssym::s_library),
                                   t.u16(helper + ssym::s_routine), t.u16(hdr::h_library_count)}),
            (std::vector<uint32_t>{0, t.u24(hdr::h_library_list), 1, 1}));
  // tavdump shows the library's exports.
  const tavtest::RunResult dump = tavtest::run({tavtest::program("tavdump"), dir / "mylib.op6"});
  for (const char* line : {"exports\n  export 1 ", "\"helper\"\n"}) EXPECT_NE(dump.out.find(line), std::string::npos) << dump.out;
}

TEST(Libraries, Messages) {
  TempDir dir;
  library(dir, "mylib.spl");
  library(dir, "other.spl");
  tavtest::write_file(dir / "bad.op6", std::string(200, 'x'));
  const struct {
    std::string source;
    std::string message;
  } cases[] = {
      {"link \"mylib\"\nfield k pic x(4)\nprocedure main\n do helper parameters k\nend\n",
       "ERROR  Parameters not of correct type - 'helper:p'"},
      {"link \"mylib\"\nprocedure main\n do helper\nend\n", "ERROR  Parameter list mismatch - 'helper:p'"},
      {"link \"mylib\"\nlink \"other\"\nprocedure main\n do fixed\nend\n",
       "ERROR  External routine defined in multiple libraries - 'fixed'"},
      {"link \"mylib\"\nprocedure main\nend\nprocedure fixed export\nend\n",
       "ERROR  Overrides must be in a file the same name as the base component library - 'fixed'"},
      {"link \"nolib\"\nprocedure main\n do fixed\nend\n", "ERROR  Can't find component library - 'nolib'"},
      {"link \"bad\"\nprocedure main\n do fixed\nend\n", "ERROR  Invalid component library - 'bad'"},
      {"link \"mylib\"\nprocedure main\nend\nprocedure library-init\nend\n", ""},
  };
  for (const auto& c : cases) {
    const tavtest::RunResult r = tavcmp(dir, "prog.spl", c.source);
    EXPECT_TRUE(c.message.empty() ? r.out.find("INFO") == std::string::npos : r.out.find(c.message) != std::string::npos)
        << c.source << r.out;
  }
}

// A program named like the library (its base library, found through ERQ) may override the
// library's sections, unless the library forbids it; under ERQ, the program's own table is no
// library of itself.
TEST(Libraries, OverridesInTheBaseLibrary) {
  TempDir dir, base;
  library(base, "mylib.spl");
  const std::string erq = "ERQ=" + base.path();
  tavtest::RunResult r = tavcmp(dir, "mylib.spl", "link \"mylib\"\nprocedure main\nend\nprocedure fixed export\nend\n", {erq});
  EXPECT_NE(r.out.find("ERROR  You are not permitted to override this routine - 'fixed'"), std::string::npos) << r.out;
  r = tavcmp(dir, "mylib.spl",
             "link \"mylib\"\nfield k pic 9(4)\nprocedure main\n do next helper parameters k\nend\n"
             "procedure helper parameters p pic 9(4)\nend\n", {erq});
  EXPECT_NE(r.out.find("WARNING  Component library overrides must be defined with EXPORT - 'helper'"), std::string::npos) << r.out;
  r = tavcmp(base, "mylib.spl", "link \"mylib\"\nprocedure main\nend\n", {"ERQ=" + base.path()});
  EXPECT_EQ(r.status, 0) << r.out;
}

}  // namespace
