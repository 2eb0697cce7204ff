// Compiling against data dictionaries made with tavdict: which dictionaries open and in what
// order, the search along TAVPATH, the consistency checks and their messages, the program and
// program-object rows of -p (also from eight compiles at once) with the access flags the record
// access statements give them, and a read-only dictionary.

#include <sys/stat.h>

#include <filesystem>
#include <set>
#include <thread>

#include "codegen/header.h"
#include "statements/records.h"
#include "symbols/objects.h"
#include "symbols/records.h"
#include "tests/e2e/driver_fixture.h"

namespace {

using namespace tav;
using namespace drvtest;
using tavtest::Op6;

const char* const kShop =
    "field cust-no pic 9(6)\n"
    "field cust-name pic x(30)\n"
    "field amount pic 9(5)v99\n"
    "object customer type indexed file \"%FILE%\"\n"
    "  record cust-no cust-name end-record\n"
    "  key cust-no unique\n"
    "object orders type indexed file \"ord\"\n"
    "  record cust-no amount end-record\n"
    "  key cust-no\n";

const char* const kProgram =
    "object c2 like customer\n"
    "procedure main\n"
    "  set cust-name = \"x\"\n"
    "end\n";

// Loads the shop schema (customer's file named `file`) into dictionary `dict` under `dir`.
void make_dictionary(const TempDir& dir, const std::string& dict, const std::string& file = "cust",
                     const std::string& extra = "") {
  std::string schema = kShop;
  load_dictionary(dir, dict, schema.replace(schema.find("%FILE%"), 6, file) + extra);
}

// The variables that name dictionaries are the test's to set.
Env dictionary_env(std::vector<std::string> set = {}) {
  Env env;
  env.set = std::move(set);
  for (const char* name : {"TAVUSRDICT", "TAVDISTDICT", "TAVDICT", "TAVPATH"}) {
    bool given = false;
    for (const std::string& s : env.set) given |= s.rfind(std::string(name) + "=", 0) == 0;
    if (!given) env.unset.push_back(name);
  }
  return env;
}

RunResult compile_with(const TempDir& dir, std::vector<std::string> args, Env env = dictionary_env(),
                  const std::string& source = kProgram, const std::string& name = "prog.spl") {
  write_file(dir / name, source);
  args.insert(args.begin(), "-l");
  args.push_back(name);
  return tavtest::tavcmp(dir.path(), args, std::move(env));
}

Op6 table(const TempDir& dir) { return Op6(read_file(dir / "prog.op6")); }

TEST(Dictionaries, WhichOpenAndInWhatOrder) {
  TempDir dir;
  make_dictionary(dir, "u/", "ucust");
  make_dictionary(dir, "m/", "mcust", "field only-main pic x(4)\nobject extra type indexed file \"x\"\n"
                                      "  record only-main end-record key only-main unique\n");

  // The user dictionary first; an object in both comes from it, a field only in the main one
  // from that.
  const std::string both = std::string(kProgram).replace(std::string(kProgram).find("end\n"), 4,
                                                         "  set only-main = \"y\"\nend\n");
  RunResult r = compile_with(dir, {}, dictionary_env({"TAVUSRDICT=u/", "TAVDICT=m/"}), both);
  ASSERT_EQ(r.status, 0) << r.out;
  Op6 img = table(dir);
  EXPECT_EQ(img.text(img.u24(hdr::h_dict0)), "u/");
  EXPECT_EQ(img.text(img.u24(hdr::h_dict1)), "m/");
  EXPECT_EQ(img.text(img.u24(hdr::h_dict0_version)), "1");
  const uint32_t c2 = img.object("c2");
  EXPECT_EQ(img.text(img.u24(c2 + osym::o_file)), "ucust");
  EXPECT_EQ(img.u16(c2 + osym::o_dictno), 0u);
  EXPECT_EQ(img.u16(img.field("only-main") + fsym::f_dictno), 1u);

  // The same dictionary named twice is opened once.
  ASSERT_EQ(compile_with(dir, {"-u", "m/", "-g", "m/"}).status, 0);
  img = table(dir);
  EXPECT_EQ(img.text(img.u24(hdr::h_dict0)), "m/");
  EXPECT_EQ(img.u24(hdr::h_dict1), 0u);

  // None of the three variables set: the run stops. One set to nothing opens nothing.
  r = compile_with(dir, {});
  EXPECT_EQ(r.status, 255);
  EXPECT_TRUE(contains(r.out, "Dictionary (TAVDICT) environments not set")) << r.out;
  r = compile_with(dir, {}, dictionary_env({"TAVDICT="}), "procedure main\nend\n");
  EXPECT_EQ(r.status, 0) << r.out;
}

TEST(Dictionaries, SearchAlongTavpath) {
  TempDir dir;
  std::filesystem::create_directories(dir / "lib/apps");
  TempDir cwd;
  make_dictionary(dir, "lib/apps/shop/");
  RunResult r = compile_with(cwd, {"-g", "shop/"}, dictionary_env({"TAVPATH=/nowhere:" + (dir / "lib/apps")}));
  ASSERT_EQ(r.status, 0) << r.out;
  Op6 img = table(cwd);
  EXPECT_EQ(img.text(img.u24(hdr::h_dict0)), dir / "lib/apps/shop/");

  std::filesystem::remove(cwd / "prog.op6");
  r = compile_with(cwd, {"-g", "shop/"}, dictionary_env({"TAVPATH=/nowhere"}));
  EXPECT_EQ(r.status, 255);
  EXPECT_TRUE(contains(r.out, "Can't find dict. 'shop/' in search path")) << r.out;
  EXPECT_FALSE(file_exists(cwd / "prog.op6"));

  // No file servers: a server-style name is refused with a message.
  r = compile_with(cwd, {"-g", "host:/dict/"});
  EXPECT_EQ(r.status, 255);
  EXPECT_TRUE(contains(r.out, "Can't open/access dictionary 'host:/dict/' error 10010")) << r.out;
}

// A record whose offsets skip a byte stops the run, unless -c; so does a record size that is not
// the sum of its fields; a text of 40 characters cannot be 41 bytes long.
TEST(Dictionaries, ConsistencyChecks) {
  const struct {
    const char* file;
    const char* damage;
    const char* message;
    bool passes_with_c;
  } cases[] = {
      {"d/R4.idx", "UPDATE dict_record SET rec_offset = 5 WHERE rec_offset = 4", "dict_err: rec offsets invalid for object c2", true},
      {"d/O4.idx", "UPDATE dict_object SET obj_recsize = 36 WHERE obj_name = 'customer'",
       "dict_err: record size wrong for object 'c2'", true},
      {"d/F4.idx", "UPDATE dict_field SET fld_desc = 40, fld_size = 41 WHERE fld_name = 'cust-name'",
       "dict_err: definition of field 'cust-name' invalid", false},
  };
  for (const auto& c : cases) {
    TempDir dir;
    make_dictionary(dir, "d/");
    sql(dir / c.file, c.damage);
    const RunResult r = compile_with(dir, {"-g", "d/"});
    EXPECT_EQ(r.status, 255) << c.damage;
    EXPECT_TRUE(contains(r.out, c.message)) << r.out;
    if (c.passes_with_c) {
      EXPECT_EQ(compile_with(dir, {"-c", "-g", "d/"}).status, 0) << c.damage;
    }
  }
}

TEST(Dictionaries, MessagesOfDefinitions) {
  TempDir dir;
  make_dictionary(dir, "d/");
  const RunResult r = compile_with(dir, {"-g", "d/"}, dictionary_env(),
                                   "field cust-no pic 9(6)\n"
                                   "object customer type indexed file \"c\" record cust-no end-record key cust-no\n"
                                   "object c3 like nosuch\nprocedure main\n  set nosuch-field = 1\nend\n");
  for (const char* message : {"WARNING  Defined field is present in Object/s - 'cust-no'",
                              "ERROR  Object contained in dictionary - 'customer'",
                              "ERROR  Object not defined in dictionary - 'nosuch'", "ERROR  Field not defined - 'nosuch-field'"})
    EXPECT_TRUE(contains(r.out, message)) << message << r.out;

  // An object of the second dictionary holds a field the first describes otherwise.
  TempDir two;
  make_dictionary(two, "a/", "cust", "field qty pic 9(3)\n");
  make_dictionary(two, "b/", "cust",
                  "field qty pic x(3)\nobject stock type indexed file \"s\" record qty end-record key qty unique\n");
  const RunResult mixed = compile_with(two, {"-u", "a/", "-g", "b/"}, dictionary_env(),
                                  "object s2 like stock\nprocedure main\n  set qty = 1\nend\n");
  EXPECT_TRUE(contains(mixed.out, "ERROR  Dictionary field definitions are different - 'qty'")) << mixed.out;
}

TEST(Dictionaries, ProgramRowsWithSystemName) {
  TempDir dir;
  make_dictionary(dir, "d/");
  const std::string po = dir / "d/PO4.idx", pr = dir / "d/PR4.idx";
  ASSERT_EQ(compile_with(dir, {"-p", "shop", "-g", "d/"}).status, 0);
  EXPECT_EQ(sql(pr, "SELECT prog_id FROM dict_prog_rel WHERE prog_name = 'prog' AND sys_name = 'shop'"), "32766");
  EXPECT_EQ(sql(po, "SELECT count(*) FROM dict_prog_obj WHERE prog_id = 32766"), "1");
  // Compiled again: the same id, its object rows replaced, not added.
  ASSERT_EQ(compile_with(dir, {"-p", "shop", "-g", "d/"}).status, 0);
  EXPECT_EQ(sql(pr, "SELECT count(*) FROM dict_prog_rel"), "1");
  EXPECT_EQ(sql(po, "SELECT count(*) FROM dict_prog_obj"), "1");

  // Eight compiles at once, each of another program: all succeed, eight distinct ids.
  std::vector<std::thread> runs;
  std::vector<int> statuses(8, -1);
  for (int i = 0; i < 8; ++i) {
    write_file(dir / ("p" + std::to_string(i) + ".spl"), kProgram);
    runs.emplace_back([&, i] {
      statuses[static_cast<size_t>(i)] =
          tavtest::tavcmp(dir.path(), {"-l", "-p", "shop", "-g", "d/", "p" + std::to_string(i) + ".spl"},
                          dictionary_env())
              .status;
    });
  }
  for (std::thread& t : runs) t.join();
  for (int s : statuses) EXPECT_EQ(s, 0);
  EXPECT_EQ(sql(pr, "SELECT count(DISTINCT prog_id) FROM dict_prog_rel"), "9");
  EXPECT_EQ(sql(pr, "SELECT min(prog_id) FROM dict_prog_rel"), "32758");
  EXPECT_EQ(sql(po, "SELECT count(*) FROM dict_prog_obj"), "9");
}

// A registration that fails after the program's row was made (its program-object table refuses
// new rows, as a damaged or foreign file may) leaves no program row behind: the rows of a
// program are written together or not at all. The classic message and status stay.
TEST(Dictionaries, FailedRegistrationLeavesNoProgramRow) {
  TempDir dir;
  make_dictionary(dir, "d/");
  const std::string po = dir / "d/PO4.idx", pr = dir / "d/PR4.idx";
  ASSERT_EQ(compile_with(dir, {"-p", "shop", "-g", "d/"}).status, 0);
  sql(po, "CREATE TRIGGER refuse BEFORE INSERT ON dict_prog_obj BEGIN SELECT RAISE(ABORT, 'refused'); END");

  const RunResult r = compile_with(dir, {"-p", "shop", "-g", "d/"}, dictionary_env(), kProgram, "other.spl");
  EXPECT_TRUE(contains(r.out, "Error writing PO entry in 'd/'")) << r.out;
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(file_exists(dir / "other.op6")) << "the table is written as before";
  EXPECT_EQ(sql(pr, "SELECT count(*) FROM dict_prog_rel WHERE prog_name = 'other'"), "0");
  // The program registered before keeps its rows.
  EXPECT_EQ(sql(pr, "SELECT prog_id FROM dict_prog_rel"), "32766");
  EXPECT_EQ(sql(po, "SELECT count(*) FROM dict_prog_obj WHERE prog_id = 32766"), "1");
}

// What each record access statement does to an object is what its PO row's flags say: 1 OPEN
// with LOCK, 2 GET with LOCK, 4 INSERT (or OPEN LOCAL and its kin), 8 UPDATE, 16 DELETE.
TEST(Dictionaries, ProgramObjectFlagsFollowTheRecordAccess) {
  TempDir dir;
  make_dictionary(dir, "d/", "cust",
                  "object stock type indexed file \"stk\"\n  record cust-no end-record\n  key cust-no\n"
                  "object parts type indexed file \"prt\"\n  record cust-no end-record\n  key cust-no\n"
                  "object notes type indexed file \"nts\"\n  record cust-no end-record\n  key cust-no\n");
  const std::string program =
      "procedure main\n"
      "  get customer key 1 lock\n  update customer\n"
      "  insert orders\n  delete orders no-warning\n"
      "  open stock lock\n  open notes local\n"
      "  get parts key 1\n  unlock parts\n  save parts\n"
      "end\n";
  const RunResult r = compile_with(dir, {"-p", "shop", "-g", "d/"}, dictionary_env(), program);
  ASSERT_EQ(r.status, 0) << r.out;
  const std::string objects = dir / "d/O4.idx", po = dir / "d/PO4.idx";
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"customer", "10"}, {"orders", "20"}, {"stock", "1"}, {"notes", "4"}, {"parts", "0"}};
  for (const auto& [name, flags] : expected) {
    const std::string id = sql(objects, "SELECT obj_id FROM dict_object WHERE trim(obj_name) = '" + name + "'");
    ASSERT_FALSE(id.empty()) << name;
    EXPECT_EQ(sql(po, "SELECT prog_flags FROM dict_prog_obj WHERE obj_id = " + id), flags) << name;
  }
  const Op6 t = table(dir);
  for (const auto& [name, flags] : expected)
    EXPECT_EQ(t.u16(t.object(name) + osym::o_attr) & ~osym::attr_file_mask, 0u) << name << ": usage bits stay out of the file";
  // The loaded key describes the GET: one key field, so one value is a full key.
  const uint32_t get = t.list(t.detail()).at(0);
  ASSERT_EQ(t.opcode(get), Op::get);
  const uint32_t block = t.u24(get + recio::rio_block);
  EXPECT_EQ(t.u24(block + accesskey::a_object), t.object("customer"));
  EXPECT_EQ(t.u16(block + accesskey::a_flags),
            static_cast<uint32_t>(accesskey::flag_full_key | accesskey::flag_default_index | access::lock));
  EXPECT_EQ(t.list(t.u24(block + accesskey::a_values)).size(), 1u);
}

TEST(Dictionaries, ReadOnlyDictionaryCompilesWithoutSystemName) {
  TempDir dir;
  make_dictionary(dir, "d/");
  const auto files = [&] {  // name, size and time of each file
    std::set<std::string> out;
    for (const auto& e : std::filesystem::directory_iterator(dir / "d"))
      out.insert(e.path().filename().string() + ":" + std::to_string(std::filesystem::file_size(e.path())) + ":" +
                 std::to_string(std::filesystem::last_write_time(e.path()).time_since_epoch().count()));
    return out;
  };
  const std::set<std::string> before = files();
  for (const auto& e : std::filesystem::directory_iterator(dir / "d")) chmod(e.path().c_str(), 0444);
  chmod((dir / "d").c_str(), 0555);
  const RunResult r = compile_with(dir, {"-g", "d/"});
  chmod((dir / "d").c_str(), 0755);
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(files(), before);  // nothing written, nothing left behind
}

}  // namespace
