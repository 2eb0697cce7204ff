// Field definitions compiled by tavcmp: the field records written to the .op6 file and the
// messages of faulty definitions.

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>

#include "symbols/records.h"
#include "tests/support/op6.h"
#include "tests/support/support.h"

namespace {

using namespace tav;
using tavtest::compile;
using tavtest::Compiled;
using tavtest::Op6;
using tavtest::TempDir;

const std::string kMain = "procedure main\n  pause\nend\n";

// The global field list of an image, by name: each record's address.
std::map<std::string, uint32_t> global_fields(const Op6& img) {
  std::map<std::string, uint32_t> out;
  for (uint32_t f = img.u24(hdr::h_fields); f != 0; f = img.u24(f + fsym::f_next)) out[img.text(img.u24(f + fsym::f_name))] = f;
  return out;
}

TEST(Fields, DefinitionsSettleFormatSizeAndType) {
  TempDir dir;
  const Compiled c = compile(dir,
                             "field n type numeric, a type alpha, d type date\n"
                             "fields b pic 9(5)v99\n"
                             "  z pic is 9(5)v99 type zoned\n"
                             "  pk pic 9(5)v99 type packed\n"
                             "  fl pic 9(5)v99 type float\n"
                             "  f4 pic 9(4)v99 type float\n"
                             "  sr pic s9(3) rounded\n"
                             "  x picture 'xxxxxxxxxx' occurs 3 times\n"
                             "  st type string upper-case justify\n"
                             "  hue type colour\n"
                             "  cp like x db-column-name is 'COL_X' lower-case\n"
                             "define dt type date-time drill-back 'prog2' use-name-in-db\n"
                             "field ul pic x(3) upper-case lower-case\n"
                             "mode review-all\n"
                             "field review-all pic x\n" +
                                 kMain);
  // Warnings only: the table is written.
  ASSERT_EQ(c.result.status, 0) << c.result.out;
  EXPECT_NE(c.result.out.find("WARNING  Both upper & lower case specified, last specified used"),
            std::string::npos);
  EXPECT_NE(c.result.out.find("WARNING  Potential conflict between field and mode of same name - 'review-all'"),
            std::string::npos);
  const Op6& t = c.image;
  const auto fields = global_fields(t);
  struct Want {
    const char* name;
    uint16_t format, size;
    char type;
    uint16_t occurs = 1;
  };
  const Want wants[] = {
      {"n", 0x25C4, 8, 'N'},      {"a", 0x0028, 40, 'A'},      {"d", 0x2080, 2, 'D'},
      {"b", 0x20A2, 4, 'N'},      {"z", 0x10A2, 7, 'Z'},       {"pk", 0x08A2, 5, 'P'},
      {"fl", 0x40A2, 8, 'F'},     {"f4", 0x4082, 4, 'F'},      {"sr", 0xA460, 2, 'N'},
      {"x", 0x000A, 10, 'A', 3},  {"st", 0x0028, 40, 'S'},     {"hue", 0x20A0, 4, 'N'},
      {"cp", 0x000A, 10, 'A', 3}, {"dt", 0x2100, 4, 'J'},      {"ul", 0x0003, 3, 'A'},
      {"review-all", 0x0001, 1, 'A'},
  };
  ASSERT_EQ(fields.size(), std::size(wants));
  for (const Want& w : wants) {
    const uint32_t f = fields.at(w.name);
    // Format, size, type, occurrences; no dictionary (-1).
    EXPECT_EQ((std::vector<uint32_t>{t.u16(f + fsym::f_format), t.u16(f + fsym::f_size), t.u8(f + fsym::f_type),
                                     t.u16(f + fsym::f_occurs), t.u16(f + fsym::f_dictno)}),
              (std::vector<uint32_t>{w.format, w.size, static_cast<uint8_t>(w.type), w.occurs, 0xffff}))
        << w.name;
  }
  const auto flags = [&](const char* name) { return t.u16(fields.at(name) + fsym::f_flags); };
  const auto dbcol = [&](const char* name) { return t.text(t.u24(fields.at(name) + fsym::f_dbcol)); };
  EXPECT_EQ((std::vector<uint32_t>{flags("st"), flags("cp"), flags("ul")}), (std::vector<uint32_t>{0x0005, 0x0002, 0x0002}))
      << "LIKE copies x's flags (none), then LOWER-CASE";
  EXPECT_EQ(dbcol("cp"), "COL_X");
  EXPECT_EQ(dbcol("dt"), "dt");
}

TEST(Fields, FaultyDefinitionsReportAndWriteNothing) {
  // Definitions of a FIELD statement, or (from "procedure") a section header with field lists.
  struct Case {
    const char* definition;
    const char* message;
  } const cases[] = {
      {"bad type date pic 9(5)", "ERROR  PICTURE & TYPE not compatible"},
      {"bad type date pic x(8)", "ERROR  PICTURE & TYPE not compatible"},
      {"o pic 9 occurs 0", "ERROR  Invalid field occurrence - '0'"},
      {"o pic 9 occurs 32768", "ERROR  Invalid field occurrence - '32768'"},
      {"o pic 9 occurs 2.5", "ERROR  Invalid field occurrence - '2.5'"},
      {"big pic 9(5) occurs 10000", "ERROR  Storage allocation for field too large"},
      {"me like me", "ERROR  Field defined as itself - 'me'"},
      {"r pic x(4) rounded", "ERROR  Invalid PICTURE string - 'rounded'"},
      {"e pic zz9.99", "ERROR  Invalid PICTURE string"},
      {"p pic 9 pic 9", "ERROR  Duplicate or incompatible clause"},
      {"t type alpha type alpha", "ERROR  Duplicate or incompatible clause"},
      {"l type alpha like other", "ERROR  Duplicate or incompatible clause"},
      {"u pic 9(3) upper-case", "ERROR  Duplicate or incompatible clause"},
      {"w type wide", "ERROR  Invalid TYPE - 'wide'"},
      {"nothing", "ERROR  PICTURE/TYPE missing"},
      {"k like unknown_field", "ERROR  Field not defined - 'unknown_field'"},
      {"c pic x db-column-name 7", "ERROR  Syntax error - '7'"},
      {"v pic x(3) key", "ERROR  Invalid clause - 'key'"},
      {"today pic x", "ERROR  Name invalid or reserved word"},
      {"12345 pic x", "ERROR  Name invalid or reserved word"},
      {"s pic today(3)", "ERROR  Expression not allowed"},
      {"other pic x\nfield other pic x", "ERROR  Field name already exists or defined - 'other'"},
      {"procedure main local a pic x, a pic 9", "ERROR  Field name already exists or defined - 'a'"},
      {"procedure main parameters a pic x, a", "ERROR  Field name duplicated in list - 'a'"},
      {"procedure main local a pic x parameters a type numeric",
       "ERROR  Field name already exists or defined - 'a'"},
      {"procedure main parameters a pic x parameters b pic x", "ERROR  Duplicate or incompatible clause"},
      {"procedure main returning a pic x returning b pic x", "ERROR  Duplicate or incompatible clause"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.definition);
    TempDir dir;
    const std::string text(c.definition);
    const Compiled out = compile(dir, text.starts_with("procedure")
                                          ? text + "\n  pause\nend\n"
                                          : "field other pic 9\nfield " + text + "\n" + kMain);
    EXPECT_NE(out.result.out.find(c.message), std::string::npos) << out.result.out;
    EXPECT_NE(out.result.status, 0);
    EXPECT_TRUE(out.image.empty());
  }
}

TEST(Fields, SectionFieldLists) {
  TempDir dir;
  const Compiled c = compile(dir,
                             "procedure main local l1 pic x(10), l2 type numeric\n"
                             "    parameters p1 pic 9, p2 type alpha returning r1 pic 9\n"
                             "  do helper\n"
                             "end\n"
                             "procedure helper local field is h1 pic x\n"
                             "  pause\n"
                             "end\n");
  // Locals never referenced are reported in declaration order; parameters and results are not.
  const std::string& out = c.result.out;
  const size_t l1 = out.find("INFO  Defined field not referenced - 'l1'");
  const size_t l2 = out.find("INFO  Defined field not referenced - 'l2'");
  ASSERT_NE(l1, std::string::npos) << out;
  ASSERT_NE(l2, std::string::npos) << out;
  EXPECT_LT(l1, l2);
  EXPECT_NE(out.find("- 'h1'"), std::string::npos);
  EXPECT_EQ(out.find("- 'p1'"), std::string::npos);
  EXPECT_EQ(out.find("- 'r1'"), std::string::npos);
  // Locals are not global fields.
  EXPECT_TRUE(global_fields(c.image).empty());
}

}  // namespace
