// Dictionaries and language files on a PostgreSQL server of the tests' own: the same tables as
// with local files, registrations, tavdict's commands and tavcmpnls there, compiles and loads at
// the same time, a server that goes away in the middle of a load, and the messages of a server
// that cannot be reached, refuses the login or lacks the tables.

#include <filesystem>
#include <future>
#include <thread>

#include "codegen/header.h"
#include "tests/e2e/driver_fixture.h"
#include "tests/support/pg_server.h"

namespace {

using namespace tav;
using namespace drvtest;
using tavtest::Op6;
using tavtest::PgServer;

tavtest::RunOptions in_dir(const std::string& cwd, std::vector<std::string> env) {
  tavtest::RunOptions o;
  o.cwd = cwd;
  o.env = std::move(env);
  o.unset = {"TAVSERVER"};
  return o;
}

// One server for the whole suite: making one takes a few seconds.
PgServer* server = nullptr;

class OnServer : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (!server) server = new PgServer;
  }
  static void TearDownTestSuite() {
    delete server;
    server = nullptr;
  }
  void SetUp() override {
    if (server->impossible()) GTEST_SKIP() << server->problem();
    ASSERT_TRUE(server->usable()) << server->problem();
    servers_ = server->servers_file(dir.path());
  }

  std::vector<std::string> env(std::vector<std::string> more = {}) const {
    more.push_back("TAVSERVERS=" + servers_);
    return more;
  }
  RunResult tavdict(std::vector<std::string> args, std::vector<std::string> more = {}) const {
    args.insert(args.begin(), tavtest::program("tavdict"));
    return tavtest::run(args, in_dir(dir.path(), env(std::move(more))));
  }
  RunResult compile(std::vector<std::string> args, std::vector<std::string> more = {}) const {
    return tavcmp(dir.path(), std::move(args), Env{env(std::move(more)), {"TAVSERVER"}});
  }
  std::string query(const std::string& sql) const {
    const RunResult r = server->psql(sql);
    EXPECT_EQ(r.status, 0) << sql << "\n" << r.err;
    return r.out;
  }
  // Whether the count `sql` asks for leaves 0 within 30 seconds.
  bool wait_for(const std::string& sql) const {
    for (int i = 0; i < 600; ++i) {
      if (query(sql) != "0\n") return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
  }
  // The shop example's schema and program in the scratch directory.
  void shop() const {
    write_file(dir / "shop.sch", read_file(tavtest::source_dir() + "/examples/shop.sch"));
    write_file(dir / "shop.spl", read_file(tavtest::source_dir() + "/examples/shop.spl"));
  }

  TempDir dir;
  std::string servers_;
};

// A table without its compile time and "compiled on" text, which differ from run to run.
std::string timeless(const std::string& bytes) {
  std::string out = bytes;
  const Op6 t(bytes);
  for (uint32_t i = 0; i < 4; ++i) out[hdr::h_compile_time + i] = 0;
  const uint32_t text = t.u24(hdr::h_compile_text);
  for (uint32_t i = text; text != 0 && i < out.size() && out[i] != 0; ++i) out[i] = 0;
  return out;
}

TEST_F(OnServer, CompilesRegistersAndDumpsAsWithLocalFiles) {
  shop();
  ASSERT_EQ(tavdict({"load", "shop", "shop.sch"}).status, 0);
  const RunResult loaded = tavdict({"load", "db1:shop", "shop.sch"});
  ASSERT_EQ(loaded.status, 0) << loaded.err;
  // psql reads the tables under the schema of the dictionary's path, columns as with SQLite.
  EXPECT_EQ(query("SELECT fld_id, fld_name, fld_size FROM shop.dict_field ORDER BY fld_id LIMIT 2"),
            "1|cust-no|4\n2|cust-name|30\n");
  EXPECT_EQ(query("SELECT ver_text FROM shop.dict_version"), "1\n");
  EXPECT_EQ(query("SELECT string_agg(column_name::text, ',' ORDER BY ordinal_position) FROM "
                  "information_schema.columns WHERE table_schema = 'shop' AND table_name = 'dict_key'"),
            "obj_id,index_no,key_flags,num_fields,k_fld_id_1,k_fld_id_2,k_fld_id_3,k_fld_id_4,k_fld_id_5,k_fld_id_6,"
            "k_fld_id_7,k_fld_id_8,k_desc_flag_1,k_desc_flag_2,k_desc_flag_3,k_desc_flag_4,k_desc_flag_5,"
            "k_desc_flag_6,k_desc_flag_7,k_desc_flag_8\n");
  EXPECT_EQ(query("SELECT indexdef FROM pg_indexes WHERE schemaname = 'shop' AND indexname = 'dict_field_2'"),
            "CREATE UNIQUE INDEX dict_field_2 ON shop.dict_field USING btree (fld_id DESC)\n");

  // The same table bytes from either dictionary, with -g, -u and TAVDICT; -p registers on the server.
  const auto table_with = [&](std::vector<std::string> args, std::vector<std::string> more = {}) {
    std::filesystem::remove(dir / "shop.op6");
    const RunResult r = compile(std::move(args), std::move(more));
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    return timeless(file_exists(dir / "shop.op6") ? read_file(dir / "shop.op6") : "");
  };
  EXPECT_EQ(table_with({"-l", "-g", "db1:shop", "-p", "shopsys", "shop.spl"}),
            table_with({"-l", "-g", ":shop", "-p", "shopsys", "shop.spl"}));
  const std::string local = table_with({"-l", "-u", ":shop", "shop.spl"});
  EXPECT_EQ(table_with({"-l", "-u", "db1:shop", "shop.spl"}), local);
  EXPECT_EQ(table_with({"-l", "shop.spl"}, {"TAVDICT=db1:shop"}), local);
  EXPECT_EQ(query("SELECT count(*) FROM shop.dict_prog_rel"), "1\n");
  EXPECT_EQ(query("SELECT count(*) > 0 FROM shop.dict_prog_obj"), "t\n");

  // dump and check read the server's rows as the local files'.
  const RunResult dumped = tavdict({"dump", "db1:shop"});
  ASSERT_EQ(dumped.status, 0) << dumped.err;
  EXPECT_EQ(dumped.out, tavdict({"dump", "shop"}).out);
  write_file(dir / "again.sch", dumped.out);
  ASSERT_EQ(tavdict({"load", "db1:copy", "again.sch"}).status, 0);
  EXPECT_EQ(tavdict({"dump", "db1:copy"}).out, dumped.out);
  const RunResult checked = tavdict({"check", "db1:shop"});
  EXPECT_EQ(checked.status, 0) << checked.out << checked.err;
  // With TAVSERVER every name goes to that server, and ":" keeps a name local.
  EXPECT_EQ(tavdict({"dump", "shop"}, {"TAVSERVER=db1"}).out, dumped.out);
  EXPECT_EQ(tavdict({"dump", ":shop"}, {"TAVSERVER=db1"}).out, dumped.out);
  EXPECT_NE(tavdict({"dump", "nowhere"}, {"TAVSERVER=db1"}).status, 0);
}

TEST_F(OnServer, LanguageFilesAndTavcmpnls) {
  write_file(dir / "menu.spl", "field a pic x(20)\nprocedure main\n  set a = translate \"Bonjour\"\nend\n");
  const RunResult r = compile({"-l", "-n", "menu.spl"}, {"TAVLANGDIR=db1:lang", "TAVLANGUAGE=fra"});
  ASSERT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_EQ(query("SELECT sp_prog, sp_prog_id FROM \"lang/LANGPROG\".langprog"), "menu|1\n");
  EXPECT_EQ(query("SELECT lang_prog_id, lang_type, lang_local, lang_ref FROM \"lang/LANGfra1\".lang WHERE "
                  "lang_type = 'G'"),
            "1|G|Bonjour|Y\n");
  const std::string rows = query("SELECT count(*) FROM \"lang/LANGfra1\".lang");
  // tavcmpnls on its own adds nothing twice and keeps a translation.
  query("UPDATE \"lang/LANGfra1\".lang SET lang_foreign = 'Hello' WHERE lang_type = 'G'");
  const RunResult nls = tavtest::run({tavtest::program("tavcmpnls"), "menu.op6"},
                                     in_dir(dir.path(), env({"TAVLANGDIR=db1:lang", "TAVLANGUAGE=fra"})));
  EXPECT_EQ(nls.status, 0) << nls.err;
  EXPECT_EQ(query("SELECT count(*) FROM \"lang/LANGfra1\".lang"), rows);
  EXPECT_EQ(query("SELECT lang_foreign FROM \"lang/LANGfra1\".lang WHERE lang_type = 'G'"), "Hello\n");
}

// Eight registering compiles and four loads into one dictionary at once, twenty times: every run
// succeeds, and every program and every loaded object is there at the end.
TEST_F(OnServer, CompilesAndLoadsAtTheSameTime) {
  shop();
  ASSERT_EQ(tavdict({"load", "db1:busy", "shop.sch"}).status, 0);
  for (int p = 0; p < 8; ++p)
    write_file(dir / ("p" + std::to_string(p) + ".spl"),
               "procedure main\n  get customer key 1\n  insert orders\nend\n");
  for (int l = 0; l < 4; ++l) {
    const std::string n = std::to_string(l);
    write_file(dir / ("l" + n + ".sch"), "field code" + n + " pic x(" + std::to_string(4 + l) + ")\nobject extra" + n +
                                             " type indexed file \"extra" + n + "\"\n  record code" + n +
                                             " cust-no end-record\n  key code" + n + " unique\n");
  }
  for (int round = 0; round < 20; ++round) {
    std::vector<std::future<RunResult>> runs;
    for (int p = 0; p < 8; ++p)
      runs.push_back(std::async(std::launch::async, [&, p] {
        return compile({"-l", "-g", "db1:busy", "-p", "sys", "p" + std::to_string(p) + ".spl"});
      }));
    for (int l = 0; l < 4; ++l)
      runs.push_back(std::async(std::launch::async, [&, l] {
        return tavdict({"load", "db1:busy", "shop.sch", "l" + std::to_string(l) + ".sch"});
      }));
    for (size_t i = 0; i < runs.size(); ++i) {
      const RunResult r = runs[i].get();
      ASSERT_EQ(r.status, 0) << "round " << round << ", run " << i << ":\n" << r.out << r.err;
    }
  }
  EXPECT_EQ(query("SELECT count(*) FROM busy.dict_prog_rel"), "8\n");
  EXPECT_EQ(query("SELECT count(*) FROM busy.dict_object"), "6\n");
  EXPECT_EQ(query("SELECT count(DISTINCT fld_id) FROM busy.dict_field"), "9\n");
  EXPECT_EQ(tavdict({"check", "db1:busy"}).status, 0);
}

// The server stops while a load waits for a table another session holds: the load fails with the
// server's words, and the dictionary holds what it held before.
TEST_F(OnServer, ServerStoppedInTheMiddleOfALoad) {
  write_file(dir / "one.sch", "field fone pic x(4)\n");
  ASSERT_EQ(tavdict({"load", "db1:stopped", "one.sch"}).status, 0);
  std::string big;
  for (int i = 0; i < 50; ++i) big += "field f" + std::to_string(i) + " pic 9(4)\n//% field f" + std::to_string(i) + " doc line\n";
  write_file(dir / "big.sch", big);
  std::future<RunResult> holder = std::async(std::launch::async, [] {
    return server->psql("BEGIN; LOCK TABLE stopped.dict_documentation IN EXCLUSIVE MODE; SELECT pg_sleep(60);");
  });
  ASSERT_TRUE(wait_for("SELECT count(*) FROM pg_locks WHERE mode = 'ExclusiveLock' AND locktype = 'relation' AND "
                       "relation = 'stopped.dict_documentation'::regclass AND granted"))
      << "the lock was never taken";
  std::future<RunResult> load = std::async(std::launch::async, [&] { return tavdict({"load", "db1:stopped", "big.sch"}); });
  // Until the load waits for the lock, having written its fields.
  const bool waits = wait_for("SELECT count(*) FROM pg_locks WHERE NOT granted");
  server->stop(true);
  const RunResult r = load.get();
  holder.get();
  ASSERT_TRUE(server->start());
  ASSERT_TRUE(waits) << "the load never waited for the lock";
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(contains(r.err, "cannot be written into stopped.dict_documentation: System error 5")) << r.err;
  // libpq's words, on the same line.
  EXPECT_TRUE(contains(r.err, "Input/output error: server closed the connection") ||
              contains(r.err, "Input/output error: FATAL: terminating connection"))
      << r.err;
  EXPECT_TRUE(contains(r.err, "nothing loaded")) << r.err;
  EXPECT_EQ(query("SELECT string_agg(fld_name, ',') FROM stopped.dict_field"), "fone\n");
  EXPECT_EQ(query("SELECT count(*) FROM stopped.dict_documentation"), "0\n");
}

TEST_F(OnServer, ServersThatCannotServe) {
  write_file(dir / "prog.spl", kClean);
  const std::string bad = dir / "bad";
  write_file(bad, "gone host=/nonexistent-socket-dir port=1\nstranger " + server->connection("nosuch") +
                      "\ndb1 " + server->connection() + "\n");
  struct Case {
    std::string dict, stdout_has, stderr_has;
  };
  for (const Case& c : {Case{"gone:shop", "Can't open/access dictionary 'shop' error 5", "server 'gone': connection"},
                        Case{"stranger:shop", "Can't open/access dictionary 'shop' error 5", "\"nosuch\""},
                        Case{"db1:nothing", "Can't open/access dictionary 'nothing' error 10008", "no table"},
                        Case{"other:shop", "Can't open/access dictionary 'other:shop' error 10010", ""}}) {
    const RunResult r = tavcmp(dir.path(), {"-l", "-g", c.dict, "prog.spl"}, Env{{"TAVSERVERS=" + bad}, {"TAVSERVER"}});
    EXPECT_EQ(r.status, 255) << c.dict;
    EXPECT_TRUE(contains(r.out, c.stdout_has)) << c.dict << ": " << r.out;
    EXPECT_TRUE(contains(r.err, c.stderr_has)) << c.dict << ": " << r.err;
    const RunResult d = tavtest::run({tavtest::program("tavdict"), "check", c.dict},
                                     in_dir(dir.path(), {"TAVSERVERS=" + bad}));
    EXPECT_EQ(d.status, 1) << c.dict << ": " << d.err;
  }
  // A refused load leaves no new dictionary behind on the server either.
  write_file(dir / "refused.sch", "field a pic x(4)\n//% field a validation bogus words\n");
  const RunResult refused = tavdict({"load", "db1:fresh", "refused.sch"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_TRUE(contains(refused.err, "nothing loaded")) << refused.err;
  EXPECT_EQ(query("SELECT count(*) FROM pg_namespace WHERE nspname = 'fresh'"), "0\n");
  // Sixteen servers are more than the mode word can name.
  std::string many;
  for (int i = 0; i < 16; ++i) many += "s" + std::to_string(i) + " " + server->connection() + "\n";
  write_file(bad, many);
  const RunResult r = tavcmp(dir.path(), {"-l", "-g", "s1:shop", "prog.spl"}, Env{{"TAVSERVERS=" + bad}, {"TAVSERVER"}});
  EXPECT_TRUE(contains(r.out, "error 10009")) << r.out;
}

}  // namespace
