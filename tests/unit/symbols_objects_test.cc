#include "symbols/objects.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "statements/handlers.h"
#include "symbols/records.h"
#include "tests/unit/compiler_fixture.h"

namespace tav {
namespace {

// Compiles OBJECT and FIELD statements of a source text and keeps the messages.
class Objects : public tavtest::CompilerFixture {
 public:
  explicit Objects(const std::string& text) {
    open(text);
    try {
      while (p.next() != kClassEndOfInput) {
        const uint32_t word = p.cls();
        p.accept();
        if (word == verb("object"))
          define_object(p);
        else if (word == verb("field"))
          define_fields(p);
      }
    } catch (const FileAbort&) {  // the listing holds the FATAL line
    }
  }

  std::string messages() {
    diag.close_listing();
    return listing();
  }
  uint32_t object(const std::string& name) const { return syms.find_object(name); }
  uint32_t field(const std::string& name) { return syms.find_field(name); }
  uint32_t u16(uint32_t off) const { return ops.get16(off); }
  uint32_t u24(uint32_t off) const { return ops.get24(off); }
  char byte(uint32_t off) const { return static_cast<char>(ops.at(off)[0]); }
  std::string name(uint32_t rec, uint32_t member) const { return ops.text_at(ops.get24(rec + member)); }

  // The fields of an object's record, in record order, with their offsets.
  std::string record(uint32_t o) const {
    std::string out;
    for (uint32_t l = u24(o + osym::o_fldobj); l; l = u24(l + folink::fo_fldobj)) {
      EXPECT_EQ(u24(l + folink::fo_object), o);
      out += (out.empty() ? "" : " ") + name(u24(l + folink::fo_field), fsym::f_name) + "@" +
             std::to_string(u16(l + folink::fo_offs));
    }
    return out;
  }
  // The objects holding a field, newest first.
  std::string holders(uint32_t f) const {
    std::string out;
    for (uint32_t l = u24(f + fsym::f_join); l; l = u24(l + folink::fo_join)) {
      EXPECT_EQ(u24(l + folink::fo_field), f);
      out += (out.empty() ? "" : " ") + name(u24(l + folink::fo_object), osym::o_name);
    }
    return out;
  }
  // The keys: "index/flags:field[-] ..." separated by "; ".
  std::string keys(uint32_t o) const {
    std::string out;
    for (uint32_t k = u24(o + osym::o_keylist); k; k = u24(k + keyrec::k_next)) {
      if (!out.empty()) out += "; ";
      out += std::to_string(ops.at(k + keyrec::k_index)[0]) + "/" + std::to_string(u16(k + keyrec::k_flags)) + ":";
      for (uint32_t kp = u24(k + keyrec::k_parts); kp; kp = u24(kp + keypart::kp_next))
        out += " " + name(u24(kp + keypart::kp_field), fsym::f_name) + (u16(kp + keypart::kp_desc) ? "-" : "");
    }
    return out;
  }
};

// The messages the compiled-file tests do not already check with their lines; "" for a clean compile.
TEST(ObjectStatement, Diagnostics) {
  std::string sixteen_keys = "object o type indexed record a pic x end-record";
  for (int i = 0; i < 16; ++i) sixteen_keys += " key a";
  const std::string nine = "object o type indexed record a pic x b pic x c pic x d pic x e pic x f pic x g pic x "
                           "h pic x i pic x end-record key a b c d e f g h";
  const std::pair<std::string, const char*> cases[] = {
      {"object o type sequential record a pic x(4) end-record key a", "File cannot have keys"},
      {"object o record a pic x(4) end-record key a type sequential", "File cannot have keys"},
      {"object o type text", "No fields defined for object"},
      {"field z pic x\nobject o type indexed record a pic x end-record key z", "Field not contained in object"},
      {nine, ""},  // eight parts: the most a key may have
      {nine + " i", "Incorrect number of fields in key"}, {sixteen_keys, ""},
      {sixteen_keys + " key a", "Too many keys defined"},
      {"object 'o' record a pic x end-record", "Object name expected"},
      {"object o like o", "Defining object as itself - 'o'"},
      {"object o like nowhere", "Object not defined in dictionary - 'nowhere'"},
      {"object o record a pic x a end-record", "Field already defined in record - 'a'"},
      {"object o record a pic x\nobject p record b pic x end-record", "END-RECORD missing - 'object'"},
      {"field a pic x\nobject o record a pic 9 end-record", "Field name already exists or defined"},
      {"object o type heap record a pic x end-record", "Invalid TYPE - 'heap'"},
      {"object o file 12 record a pic x end-record", "Alpha-literal expected"},
      {"object o version 'ab' record a pic x end-record", "Invalid alpha literal string"},
      {"object o no-joins field-joins record a pic x end-record", "Duplicate or incompatible clause"},
      {"object o no-rowid no-rowid record a pic x end-record", "Duplicate or incompatible clause"},
      {"object o record a pic x end-record record b pic x end-record", "Duplicate or incompatible clause"},
      {"object o record a pic x db-column-name 'col' b pic x db-column-name 'col' end-record",
       "DB column name used by another field in object - 'b'"},
      {"object o record a pic x end-record occurs 3", "Invalid clause"},
      {"object o record nosuch end-record", "Field not defined - 'nosuch'"},
      {"object o type memory record a pic x(2) b pic 9(4) end-record key a desc b unique compress", ""},
  };
  for (const auto& [source, expected] : cases) {
    const std::string m = Objects(source).messages();
    EXPECT_EQ(m.find(*expected ? expected : "ERROR") != std::string::npos, *expected != 0) << source << "\n" << m;
  }
}

TEST(ObjectStatement, LargestRecordAndOddBuffers) {
  Objects t("object o record a pic x(1000) occurs 4 b pic x(96) end-record\nobject p record pb pic x(3) end-record\n"
            "object q record qc pic x end-record");
  EXPECT_EQ(t.messages().find("ERROR"), std::string::npos) << t.messages();
  const uint32_t o = t.object("o"), p = t.object("p"), q = t.object("q");
  EXPECT_EQ(t.u16(o + osym::o_recsize), 4096u);
  // Buffers are rounded up to an even size: p's 3 bytes take 4.
  EXPECT_EQ(t.u24(p + osym::o_record), t.u24(o + osym::o_record) + 4096);
  EXPECT_EQ(t.u24(q + osym::o_record), t.u24(p + osym::o_record) + 4);
}

// The record chains, keys and buffers common to every object are checked on the compiled file;
// these are the clauses that only change attributes, and what a LIKE copy takes or shares.
TEST(ObjectStatement, AttributeClausesAndLikeCopies) {
  Objects t(
      "object cust type isam file 'custfile' version '2' no-rowid\n"
      "  record is id pic 9(4) cname pic x(20) bal pic s9(5)v99 end-record\n"
      "  key is id unique key cname desc id compress\n"
      "object ext type external record cname bal end-record no-joins\n"
      "object copy like cust field-joins\n");
  ASSERT_EQ(t.messages().find("ERROR"), std::string::npos) << t.messages();
  const uint32_t cust = t.object("cust"), ext = t.object("ext"), copy = t.object("copy");

  EXPECT_EQ(t.u16(copy + osym::o_seq), 2u);
  EXPECT_EQ(t.byte(cust + osym::o_filtype), 'I');
  EXPECT_EQ(t.byte(cust + osym::o_version), '2');
  EXPECT_EQ(t.u16(cust + osym::o_attr), 0x0052u);  // complete, NO-ROWID (with partial)
  EXPECT_EQ(t.u16(ext + osym::o_attr), 0x0030u);
  EXPECT_EQ(t.keys(cust), "1/1: id; 2/4: cname- id");

  // The copy has key records and a buffer of its own, shares the key parts and the file name,
  // takes only the file attributes, and as the last joining object holds the joined fields.
  EXPECT_EQ(t.keys(copy), t.keys(cust));
  EXPECT_NE(t.u24(copy + osym::o_keylist), t.u24(cust + osym::o_keylist));
  EXPECT_EQ(t.u16(copy + osym::o_attr), 0x0052u);
  EXPECT_EQ(t.u24(copy + osym::o_file), t.u24(cust + osym::o_file));
  EXPECT_NE(t.u24(copy + osym::o_record), t.u24(cust + osym::o_record));
  EXPECT_EQ(t.record(copy), "id@0 cname@2 bal@22");
  EXPECT_EQ(t.holders(t.field("cname")), "copy ext cust");
  EXPECT_EQ(t.u24(t.field("cname") + fsym::f_addr), t.u24(copy + osym::o_record) + 2);
}

TEST(ObjectStatement, TypeWordsGiveLetters) {
  const std::pair<const char*, char> types[] = {
      {"indexed", 'I'}, {"memory", 'M'},     {"sequential", 'S'}, {"db-sequential", 'D'},
      {"c-isam-dat", 'C'}, {"fixed-length-text", 't'}, {"text", 'T'}, {"pipe", 'N'},
      {"csv", 'P'},     {"prn", 'P'},        {"external", 'E'},
  };
  for (const auto& [word, letter] : types) {
    Objects t(std::string("object o type ") + word + " record a pic x end-record key a");
    EXPECT_EQ(t.byte(t.object("o") + osym::o_filtype), letter) << word;
    const bool keys = letter == 'I' || letter == 'M';
    EXPECT_EQ(t.u24(t.object("o") + osym::o_keylist) != 0, keys) << word;
    EXPECT_EQ(t.messages().find("File cannot have keys") == std::string::npos, keys) << word;
  }
}

TEST(ObjectPasses, JoinedFieldData) {
  Objects t(
      "field lone pic x(3)\n"
      "object a record code pic x(2) qty pic 9(3) type zoned end-record\n"
      "object b record qty code end-record\n"
      "object c no-joins record code flag pic 9 type packed end-record\n");
  object_post_processing(t.p);
  joined_field_data(t.p);
  const std::string m = t.messages();
  ASSERT_EQ(m.find("ERROR"), std::string::npos) << m;
  EXPECT_NE(m.find("Defined field not referenced - 'lone'"), std::string::npos) << m;

  const uint32_t a = t.u24(t.object("a") + osym::o_record), b = t.u24(t.object("b") + osym::o_record);
  const uint32_t c = t.u24(t.object("c") + osym::o_record);
  const uint32_t code = t.field("code"), qty = t.field("qty"), flag = t.field("flag");
  EXPECT_EQ(t.u24(code + fsym::f_addr), b + 3);
  EXPECT_EQ(t.u24(qty + fsym::f_addr), b);
  EXPECT_EQ(t.u24(t.field("lone") + fsym::f_addr), 0u);
  EXPECT_EQ(t.u24(flag + fsym::f_addr), 0u);  // only in a NO-JOINS record

  auto bytes = [&](uint32_t at, uint32_t n) { return std::string(reinterpret_cast<const char*>(t.data.at(at)), n); };
  EXPECT_EQ(bytes(b, 5), "000  ");
  EXPECT_EQ(bytes(a, 5), "  000");  // copied into every record that holds the fields
  EXPECT_EQ(bytes(c, 2), "  ");
  EXPECT_EQ(static_cast<uint8_t>(t.data.at(c + 2)[0]), 0xC0);  // packed zero
}

TEST(ObjectPasses, EmptyValuesByType) {
  struct Case {
    uint16_t format;
    char type;
    std::vector<uint8_t> bytes;
    bool non_zero;
  };
  const Case cases[] = {
      {0x0003, 'A', {' ', ' ', ' '}, true}, {0x0003, 'S', {0, 0, 0}, false}, {0x0001, 'X', {0}, false},
      {0x25C4, 'N', std::vector<uint8_t>(8, 0), false}, {0x45C4, 'F', std::vector<uint8_t>(8, 0), false},
      {0x1060, 'Z', {'0', '0', '0'}, true}, {0x1020, 'B', {'0'}, true}, {0x0C60, 'P', {0xC0, 0, 0}, true},
      {0x2080, 'D', {0, 0}, false}, {0x2100, 'T', {0, 0, 0, 0}, false},
  };
  for (const Case& c : cases) {
    uint8_t buf[32];
    std::fill(std::begin(buf), std::end(buf), 0xEE);
    EXPECT_EQ(init_field_data(buf, c.format, c.type, 2), c.non_zero) << c.type;
    const size_t n = c.bytes.size();
    for (size_t i = 0; i < 2 * n; ++i) EXPECT_EQ(buf[i], c.bytes[i % n]) << c.type << " byte " << i;
    EXPECT_EQ(buf[2 * n], 0xEE) << c.type;
  }
}

TEST(ObjectKeys, KeyByFieldNames) {
  struct Case {
    const char* names;
    int index;       // -1: error 14
    int key_count;   // 0 for a whole-key choice
    bool warning;
  };
  const Case cases[] = {
      {"a b", 1, 0, false},
      {"a", 1, 1, false},       // leading part of key 1
      {"b c", 3, 0, false},     // whole key 3 beats the partial key 2
      {"b", 2, 1, false},
      {"b desc", 4, 1, false},  // key 4 leads with b descending
      {"a desc b", 1, 0, true}, {"c", -1, 0, false},
      {"d", -1, 0, false},      // only in the database index, which ends the search
  };
  for (const Case& c : cases) {
    Objects u("object o type indexed record a pic x b pic x c pic x d pic x end-record "
              "key a b key b c d key b c key b desc a key d db-index-only\n");
    const std::string names = std::string(c.names) + "\n";
    u.tok.open_text(names, "k.spl");
    const uint32_t block = u.ops.alloc(accesskey::size);
    const int index = key_by_field_names(u.p, u.object("o"), block);
    const std::string m = u.messages();
    EXPECT_EQ(index, c.index) << c.names << "\n" << m;
    EXPECT_EQ(m.find("Possible confusion") != std::string::npos, c.warning) << c.names;
    if (c.index < 0) {
      EXPECT_NE(m.find("No such index for object"), std::string::npos) << c.names;
      continue;
    }
    EXPECT_EQ(u.ops.at(block + accesskey::a_index)[0], c.index);
    EXPECT_EQ(u.ops.at(block + accesskey::a_key_count)[0], c.key_count) << c.names;
    EXPECT_EQ((u.u16(block + accesskey::a_flags) & accesskey::flag_partial_key) != 0, c.key_count != 0);
  }
}

TEST(ObjectOpen, ClauseRules) {
  struct Case {
    const char* type;
    std::vector<const char*> words;
    bool file;
    uint16_t flags;
    uint16_t attr;  // added to the object's attributes
    const char* message;
  };
  const Case cases[] = {
      {"sequential", {"truncate"}, true, 0x0028, 0x0100, "TEMPORARY assumed for TRUNCATE with FILE IS - 'o'"},
      {"sequential", {"truncate"}, false, 0x0020, 0x0100, "PERMANENT assumed for TRUNCATE without FILE IS - 'o'"},
      {"memory", {"truncate"}, false, 0x0020, 0x0100, ""},
      {"memory", {"permanent"}, false, 0, 0, "PERMANENT ignored for MEMORY files - 'permanent'"},
      {"sequential", {"create", "temporary"}, false, 0x0038, 0x0100, "Duplicate or incompatible clause"},
      {"sequential", {"temp", "permanent"}, false, 0x0028, 0x0100, "Duplicate or incompatible clause"},
      {"sequential", {"private"}, false, 0x0080, 0, "Duplicate or incompatible clause"},
      {"sequential", {"private", "create"}, false, 0x0090, 0x0100, ""},
      {"text", {"lock", "read-only"}, false, 0x0003, 0x0001, "I/O operation invalid for object's file type"},
      {"indexed", {"lock", "local", "index-on-close"}, false, 0x0105, 0x0101, ""},
  };
  for (const Case& c : cases) {
    std::string src = std::string("object o type ") + c.type + " record a pic x end-record";
    if (std::string(c.type) == "indexed" || std::string(c.type) == "memory") src += " key a";
    Objects t(src + "\n");
    const uint32_t o = t.object("o");
    const uint32_t before = t.u16(o + osym::o_attr);
    std::string words;
    for (const char* w : c.words) words += std::string(w) + " ";
    words += "\n";
    t.tok.open_text(words, "open.spl");
    OpenClauses clauses;
    clauses.file = c.file;
    for (size_t i = 0; i < c.words.size(); ++i) {
      t.p.next();
      EXPECT_TRUE(open_clause(t.p, o, clauses)) << c.words[i];
      t.p.accept();
    }
    finish_open_clauses(t.p, o, clauses);
    const std::string m = t.messages();
    EXPECT_EQ(clauses.flags, c.flags) << words;
    EXPECT_EQ(t.u16(o + osym::o_attr), before | c.attr) << words;
    if (*c.message)
      EXPECT_NE(m.find(c.message), std::string::npos) << words << "\n" << m;
    else
      EXPECT_EQ(m.find("line"), std::string::npos) << words << "\n" << m;
  }
}

}  // namespace
}  // namespace tav
