#include "symbols/fields.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "statements/handlers.h"
#include "tests/unit/compiler_fixture.h"

namespace tav {
namespace {

// A dictionary holding one field, "dfield".
class OneFieldDictionary : public NoDictionaries {
 public:
  DictField row{1, "dfield", 77, 2, 0x2080, 'N', 1, 0x0001, "dfield          "};
  int open_count() const override { return 1; }
  std::optional<DictField> find_field(std::string_view name) override {
    return name == "dfield" ? std::optional(row) : std::nullopt;
  }
  std::optional<DictField> field_by_id(int, uint16_t id) override {
    return id == row.id ? std::optional(row) : std::nullopt;
  }
  std::string documentation(int dictno, int type, uint16_t id, uint16_t line) override {
    return dictno == 1 && type == kDocDrillBack && id == row.id && line == 0 ? "show %dfield% (%dfield%)" : "";
  }
};

class FieldsTest : public ::testing::Test, public tavtest::CompilerFixture {
 protected:
  // Compiles FIELD statements.
  void fields(const std::string& text) {
    open(text);
    while (p.next() != kClassEndOfInput) {
      p.accept();
      define_fields(p);
    }
  }
  // Makes `name` the current section and reads `header` as one of its field lists.
  uint32_t section(const std::string& name, FieldListKind kind, const std::string& header) {
    const uint32_t s = syms.find_or_declare_section(name, true);
    syms.set_current_section(s);
    open(header);
    compile_section_field_list(p, s, kind);
    return s;
  }
  uint32_t ref(std::string_view name, uint32_t* object = nullptr) { return reference_field(p, name, object); }
  uint32_t addr(uint32_t f) { return ops.get24(f + fsym::f_addr); }
};

TEST_F(FieldsTest, GlobalStorageOnFirstReferenceFollowsDataAlignment) {
  fields("field a pic x, b pic 9(3), c pic x(3), d type numeric");
  // Odd sizes go where the break is; even sizes start at a multiple of 4.
  for (auto [name, want] : {std::pair{"a", 2u}, {"b", 4u}, {"c", 6u}, {"d", 12u}})
    EXPECT_EQ(addr(ref(name)), want) << name;
  EXPECT_EQ(addr(ref("b")), 4u);  // allocated once
  EXPECT_EQ(diag.error_count(), 0);
}

TEST_F(FieldsTest, LocalStorageStartsAtTwoAndReportsTheCrossingField) {
  const uint32_t s = section("main", FieldListKind::local,
                             "l1 pic x(10), l2 pic x(1000) occurs 30, l3 pic x(1000) occurs 30,"
                             " l4 pic x(1000) occurs 10, l5 pic x");
  for (auto [name, want] : {std::pair{"l1", 2u}, {"l2", 12u}, {"l3", 30012u}, {"l4", 60012u}, {"l5", 60012u}})
    EXPECT_EQ(addr(ref(name)), want) << name;
  EXPECT_EQ(ops.get16(s + ssym::s_local_size), 60013u);
  EXPECT_EQ(diag.error_count(), 1);
  EXPECT_NE(listing().find("ERROR  Local field data storage size overflow - 'l4'"), std::string::npos);
  EXPECT_EQ(syms.find_field("l1") != 0, true);
  syms.set_current_section(0);
  EXPECT_EQ(syms.find_field("l1"), 0u);  // locals are not global
}

TEST_F(FieldsTest, ObjectPrefix) {
  fields("field f pic x, g pic x");
  syms.add_object("joined");
  const uint32_t apart = syms.add_object("apart");
  ops.put16(apart + osym::o_attr, osym::attr_no_joins);
  const uint32_t link = ops.alloc(folink::size);  // apart's record holds f only
  ops.put24(link + folink::fo_object, apart);
  ops.put24(link + folink::fo_field, syms.find_field("f"));
  ops.put24(apart + osym::o_fldobj, link);

  uint32_t obj = 99;
  EXPECT_EQ(ref("apart.f", &obj), syms.find_field("f"));
  EXPECT_EQ(obj, apart);
  EXPECT_NE(ref("apart.f"), 0u);   // 120: no prefix allowed here
  ref("joined.f", &obj);           // 123
  EXPECT_EQ(obj, 0u);
  ref("apart.g", &obj);            // 81
  EXPECT_EQ(obj, 0u);
  EXPECT_EQ(ref("nowhere.f", &obj), 0u);  // 15
  const std::string out = listing();
  for (const char* m : {"Object name prefix is not allowed here", "Object not declared as NO-JOINS",
                        "Field not contained in object", "Object not defined in dictionary - 'nowhere'"})
    EXPECT_NE(out.find(m), std::string::npos) << m;
}

TEST_F(FieldsTest, DictionaryFieldsThroughTheSeam) {
  EXPECT_EQ(ref("dfield"), 0u);  // no dictionary: not defined
  EXPECT_NE(listing().find("ERROR  Field not defined - 'dfield'"), std::string::npos);
  EXPECT_FALSE(field_is_known(p, "dfield"));

  OneFieldDictionary dict;
  p.dictionaries = &dict;
  EXPECT_TRUE(field_is_known(p, "obj.dfield"));
  const uint32_t f = ref("dfield");
  ASSERT_NE(f, 0u);
  EXPECT_EQ(ops.get16(f + fsym::f_dictno), 1u);
  EXPECT_EQ(ops.get16(f + fsym::f_fldid), 77u);
  EXPECT_EQ(ops.get16(f + fsym::f_size), 2u);
  EXPECT_EQ(ops.get24(f + fsym::f_dbcol), ops.get24(f + fsym::f_name));  // the column is its name
  EXPECT_EQ(addr(f), 0u);  // shares its object's record once loaded
  EXPECT_EQ(ops.get24(hdr::h_fields), f);

  fields("field lk like dfield occurs 3\nfield dfield pic x");
  const uint32_t lk = syms.find_field("lk");
  EXPECT_EQ(ops.get16(lk + fsym::f_format), 0x2080u);
  EXPECT_EQ(ops.get16(lk + fsym::f_ldictno), 1u);
  EXPECT_EQ(ops.get16(lk + fsym::f_occurs), 3u);
  EXPECT_EQ(ops.get16(lk + fsym::f_flags), 1u);
  EXPECT_NE(listing().find("WARNING  Defined field is present in Object/s - 'dfield'"), std::string::npos);

  // The dictionary's drill-back, under the field's own name; never over a DRILL-BACK of its own.
  fields("field own pic x drill-back \"mine\"");
  const uint32_t own = syms.find_field("own");
  ops.put16(own + fsym::f_ldictno, 1);
  ops.put16(own + fsym::f_fldid, 77);
  dictionary_drill_back(p, lk);
  dictionary_drill_back(p, own);
  EXPECT_EQ(std::string_view(ops.text_at(ops.get24(lk + fsym::f_drill))), "show %lk% (%lk%)");
  EXPECT_EQ(std::string_view(ops.text_at(ops.get24(own + fsym::f_drill))), "mine");

  dict.row.occurs = 3000;  // 6000 bytes: more than a dictionary field may hold
  syms.reset();
  ops.put24(hdr::h_fields, 0);
  EXPECT_THROW(ref("dfield"), tav::RunStop);
}

TEST_F(FieldsTest, ParametersMatchTheListOfAnEarlierCall) {
  // A DO before the definition recorded {numeric, 1 occurrence}, {alphanumeric, 2 occurrences}.
  const uint32_t s = syms.find_or_declare_section("sub", false);
  uint32_t e1 = ops.alloc(param_entry::size), e2 = ops.alloc(param_entry::size);
  ops.put24(s + ssym::s_params, e1);
  ops.put24(e1 + param_entry::pe_next, e2);
  ops.put24(e1 + param_entry::pe_field, 1);
  ops.put24(e1 + param_entry::pe_occurs, 1);
  ops.put24(e2 + param_entry::pe_occurs, 2);

  section("sub", FieldListKind::parameters, "a pic x, b pic x occurs 3, c pic 9");
  EXPECT_EQ(ops.get24(e1 + param_entry::pe_field), syms.find_field("a"));
  EXPECT_EQ(ops.get24(e1 + param_entry::pe_occurs), 0u);
  const std::string out = listing();
  EXPECT_NE(out.find("Parameters not of correct type"), std::string::npos);
  EXPECT_NE(out.find("Parameter has different field occurrence factor"), std::string::npos);
  EXPECT_NE(out.find("Parameter list mismatch"), std::string::npos);
  EXPECT_EQ(diag.error_count(), 3);

  // RETURNING without an earlier list builds it in order.
  section("sub", FieldListKind::returning, "r1 pic 9, r2 pic x");
  const uint32_t r = ops.get24(s + ssym::s_returning);
  EXPECT_EQ(ops.get24(r + param_entry::pe_field), syms.find_field("r1"));
  EXPECT_EQ(ops.get24(ops.get24(r + param_entry::pe_next) + param_entry::pe_field), syms.find_field("r2"));
}

TEST_F(FieldsTest, TypeNotesKeepTheLargest) {
  fields("field a pic x(20), n pic 9(5)v99, m pic 9(7), d type date");
  for (const char* name : {"a", "n", "m", "d"}) ref(name);
  EXPECT_EQ(p.field_notes.last_type, 'D');
  EXPECT_EQ(p.field_notes.alpha_length, 20);
  EXPECT_EQ(p.field_notes.digits, 7);
  EXPECT_EQ(p.field_notes.decimals, 2);
}

TEST_F(FieldsTest, ExhaustedDataAreaAbandonsOnlyThatProgram) {
  std::string huge = "field";
  for (int i = 1; i <= 9; ++i) huge += " h" + std::to_string(i) + " pic x(1023) occurs 32";  // 32736 bytes
  fields(huge);
  auto reference_all = [&] {
    for (int i = 1; i <= 9; ++i) ref("h" + std::to_string(i));
  };
  EXPECT_THROW(reference_all(), FileAbort);
  EXPECT_NE(listing().find("FATAL  Can't allocate sufficient data space"), std::string::npos);

  start_program();  // what the driver does before the next file
  fields("field a pic x(1023) occurs 32");
  EXPECT_EQ(addr(ref("a")), 4u);
  EXPECT_EQ(diag.error_count(), 0);
}

}  // namespace
}  // namespace tav
