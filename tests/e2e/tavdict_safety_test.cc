// tavdict never leaves a dictionary that the compiler or `tavdict check` refuses: loads the
// compiler would refuse, loads killed at each step of their commit or by signals, a load on a full
// disk, compiles running beside loads, damaged table files, schemas that are not files, and output
// that cannot be written.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

#include "tests/e2e/driver_fixture.h"
#include "tests/support/tmux.h"

namespace {

using namespace drvtest;
namespace fs = std::filesystem;

const char* const kBefore =
    "field cust-no pic 9(6)\n"
    "field cust-name pic x(30)\n"
    "//% field cust-name validation upper-case\n"
    "field amount pic 9(5)v99\n"
    "object customer type indexed file \"cust\"\n"
    "  record cust-no cust-name end-record\n"
    "  key cust-no unique\n"
    "object orders type indexed file \"ord\"\n"
    "  record cust-no amount end-record\n"
    "  key cust-no\n";

// Changes customer's record, keys and size, and adds a field with a validation text.
const char* const kAfter =
    "field cust-no pic 9(6)\n"
    "field cust-name pic x(30)\n"
    "field region pic x(4)\n"
    "//% field region validation lower-case\n"
    "object customer type indexed file \"cust\"\n"
    "  record cust-no cust-name region end-record\n"
    "  key cust-no unique\n"
    "  key region cust-no\n";

const char* const kProgram = "object c2 like customer\nprocedure main\n  set cust-name = \"x\"\nend\n";

// A program run with its outputs in files, a time limit, and optionally a file size limit.
struct Spawn {
  Spawn(std::vector<std::string> a, std::string dir, std::vector<std::string> e = {})
      : args(std::move(a)), cwd(std::move(dir)), env(std::move(e)) {}
  std::vector<std::string> args;
  std::string cwd;
  std::vector<std::string> env;  // NAME=value, added
  std::string out_file;           // empty: a scratch file, read back
  rlim_t file_size_limit = RLIM_INFINITY;
  int seconds = 60;

  pid_t start(const std::string& out_path, const std::string& err_path) const {
    const pid_t pid = fork();
    if (pid != 0) return pid;
    const int out = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int err = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (out < 0 || err < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0 || chdir(cwd.c_str()) != 0) _exit(126);
    for (const std::string& e : env) putenv(const_cast<char*>(e.c_str()));
    if (file_size_limit != RLIM_INFINITY) {
      const rlimit limit{file_size_limit, file_size_limit};
      signal(SIGXFSZ, SIG_IGN);  // a write past the limit fails with EFBIG instead
      setrlimit(RLIMIT_FSIZE, &limit);
    }
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
  }

  // Waits for the program: its status (128 + the signal that ended it); killed when it overruns.
  static int wait(pid_t pid, int seconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > end) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        return -1;  // it hung
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  RunResult run(const TempDir& scratch) const {
    const std::string out = out_file.empty() ? scratch / "spawn.out" : out_file, err = scratch / "spawn.err";
    RunResult r;
    r.status = wait(start(out, err), seconds);
    if (out_file.empty()) r.out = read_file(out);
    r.err = read_file(err);
    return r;
  }
};

RunResult tavdict(const std::string& dir, const std::vector<std::string>& args, std::vector<std::string> env = {}) {
  std::vector<std::string> argv{tavtest::program("tavdict")};
  argv.insert(argv.end(), args.begin(), args.end());
  tavtest::RunOptions options;
  options.cwd = dir;
  options.env = std::move(env);
  return tavtest::run(argv, options);
}

RunResult load(const TempDir& dir, const std::string& schema) {
  write_file(dir / "in.sch", schema);
  return tavdict(dir.path(), {"load", "app", "in.sch"});
}

RunResult compile(const TempDir& dir) {
  write_file(dir / "prog.spl", kProgram);
  return tavtest::tavcmp(dir.path(), {"-l", "-g", "app", "prog.spl"}, {{}, {"TAVUSRDICT", "TAVDISTDICT", "TAVDICT", "TAVPATH"}});
}

// The whole state of the dictionary: its dump and the number of rows of each table it writes.
std::string state(const TempDir& dir) {
  std::string s = tavdict(dir.path(), {"dump", "app"}).out;
  for (const char* t : {"O", "F", "R", "K", "D"})
    s += std::string(t) + ":" +
         sql(dir / ("app" + std::string(t) + "4.idx"),
             std::string("SELECT count(*) FROM ") +
                 (t[0] == 'O' ? "dict_object" : t[0] == 'F' ? "dict_field" : t[0] == 'R' ? "dict_record"
                                              : t[0] == 'K' ? "dict_key" : "dict_documentation")) + " ";
  return s;
}

// The files of the directory that are neither the dictionary's tables nor what the test wrote.
std::vector<std::string> leftovers(const std::string& dir) {
  std::vector<std::string> out;
  for (const std::string& name : list_dir(dir))
    if (!name.ends_with(".idx") && !name.ends_with(".ver") && !name.ends_with(".sch") && !name.ends_with(".spl") &&
        !name.ends_with(".op6") && !name.ends_with(".err") && name != "spawn.out" && name != "spawn.err" &&
        name != "saved" && name != "tmp")
      out.push_back(name);
  return out;
}

// Saves and puts back the dictionary's files.
void save(const TempDir& dir) {
  fs::create_directories(dir / "saved");
  for (const std::string& name : list_dir(dir.path()))
    if (name.starts_with("app")) fs::copy_file(dir / name, dir / ("saved/" + name), fs::copy_options::overwrite_existing);
}
void restore(const TempDir& dir) {
  for (const std::string& name : list_dir(dir.path()))
    if (name.starts_with("app")) fs::remove(dir / name);
  for (const std::string& name : list_dir(dir / "saved"))
    fs::copy_file(dir / ("saved/" + name), dir / name, fs::copy_options::overwrite_existing);
}

// The dictionary is one the compiler and the check accept, in the state before or after a load.
void expect_whole(const TempDir& dir, const std::string& before, const std::string& after, const std::string& what,
                  int* befores = nullptr) {
  const RunResult check = tavdict(dir.path(), {"check", "app"});
  EXPECT_EQ(check.status, 0) << what << "\n" << check.out << check.err;
  const RunResult c = compile(dir);
  EXPECT_EQ(c.status, 0) << what << "\n" << c.out;
  const std::string now = state(dir);
  EXPECT_TRUE(now == before || now == after) << what << "\n" << now;
  if (befores && now == before) ++*befores;
}

TEST(TavdictSafety, LoadRefusesWhatTheCompilerWouldRefuse) {
  TempDir dir;
  ASSERT_EQ(load(dir, kBefore).status, 0);
  const std::string before = state(dir);
  const struct {
    std::string schema;
    const char* message;
  } cases[] = {
      {"field cust-name pic x(30)\n//% field cust-name validation upper-case\n//% field cust-name validation help \"x\" frob\n",
       "in.sch, line 3: field cust-name: validation: ERROR  Invalid clause - 'frob'"},
      {"field amount pic 9(5)v99\n//% field amount validation when amount > 1\n",
       "in.sch, line 2: field amount: validation: ERROR  Clause cannot be specified in dictionary - 'when'"},
      {"field cust-name pic x(30)\n//% field cust-name validation tag 9" + std::string(74, ' ') + "1\n",
       "in.sch, line 2: the validation text is longer than 79 characters"},
      // The size of a field that objects outside the load hold.
      {"field cust-no pic 9(12)\n",
       "in.sch, line 1: field cust-no: its size changes from 4 to 6 bytes, but the record of customer, orders holds it"},
      // The same size, but no longer a field a key may hold.
      {"field cust-no pic x(2) occurs 2\n",
       "in.sch, line 1: field cust-no: object customer, which holds it: FATAL  dict_error: key field is subscripted in "
       "object - 'customer'"},
  };
  for (const auto& c : cases) {
    const RunResult r = load(dir, c.schema);
    EXPECT_EQ(r.status, 1) << c.schema;
    EXPECT_TRUE(contains(r.err, c.message) && contains(r.err, "nothing loaded")) << c.message << "\n" << r.err;
    EXPECT_EQ(state(dir), before) << c.schema;
  }

  // A new size goes with the objects that hold the field, laid out again in the same load.
  ASSERT_EQ(load(dir, "field cust-no pic 9(12)\n" + std::string(kBefore).substr(std::string(kBefore).find("field cust-name")))
                .status,
            0);
  EXPECT_EQ(sql(dir / "appO4.idx", "SELECT obj_recsize FROM dict_object WHERE obj_name = 'orders'"), "10");
  expect_whole(dir, "", state(dir), "the size changed with its objects");

  // A refused load into a new dictionary leaves nothing behind.
  TempDir fresh;
  write_file(fresh / "in.sch", cases[0].schema);
  EXPECT_EQ(tavdict(fresh.path(), {"load", "new/app", "in.sch"}).status, 1);
  EXPECT_EQ(list_dir(fresh.path()), std::vector<std::string>{"in.sch"});
}

TEST(TavdictSafety, DumpSaysWhatTheRowSaysAndOutputIsChecked) {
  TempDir dir;
  ASSERT_EQ(load(dir, "field code pic 9(5)\nfield hue type colour\n").status, 0);
  const std::string text = tavdict(dir.path(), {"dump", "app"}).out;
  EXPECT_EQ(text, "field code pic 9(5)\nfield hue pic 9(5)\n");

  // A row no definition gives back is reported, not dumped as something else.
  for (const char* damage : {"UPDATE dict_field SET fld_flags = 9 WHERE fld_name = 'code'",
                             "UPDATE dict_field SET fld_size = 3 WHERE fld_name = 'code'"}) {
    TempDir copy;
    for (const std::string& name : list_dir(dir.path())) fs::copy_file(dir / name, copy / name);
    sql(copy / "appF4.idx", damage);
    const RunResult d = tavdict(copy.path(), {"dump", "app"});
    EXPECT_EQ(d.status, 1) << damage;
    EXPECT_TRUE(contains(d.err, "field code: no definition gives its row")) << damage << "\n" << d.err;
  }

  Spawn full{{tavtest::program("tavdict"), "dump", "app"}, dir.path()};
  full.out_file = "/dev/full";
  const RunResult r = full.run(dir);
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(contains(r.err, "standard output cannot be written: No space left on device")) << r.err;

  for (const std::vector<std::string>& args : {std::vector<std::string>{"frob"}, {"frob", "app"}, {"frob", "app", "x"}}) {
    const RunResult u = tavdict(dir.path(), args);
    EXPECT_EQ(u.status, 2);
    EXPECT_TRUE(contains(u.err, "unknown command 'frob'")) << u.err;
  }
}

TEST(TavdictSafety, SchemasAreRegularFiles) {
  TempDir dir;
  ASSERT_EQ(mkfifo((dir / "fifo.sch").c_str(), 0644), 0);
  fs::create_directory(dir / "dir.sch");
  for (const auto& [name, kind] : {std::pair{"fifo.sch", "a FIFO"}, {"dir.sch", "a directory"}, {"/dev/null", "a character device"}}) {
    Spawn s{{tavtest::program("tavdict"), "load", "app", name}, dir.path()};
    s.seconds = 20;
    const RunResult r = s.run(dir);
    EXPECT_EQ(r.status, 1) << name;
    EXPECT_TRUE(contains(r.err, std::string(name) + ": not a regular file (" + kind + ")")) << r.err;
  }
  EXPECT_FALSE(file_exists(dir / "appO4.idx"));
}

TEST(TavdictSafety, DamagedTableFilesAreReported) {
  TempDir pristine;
  ASSERT_EQ(load(pristine, kBefore).status, 0);
  for (const char* table : {"O", "F", "R", "K", "D"}) {
    for (const long offset : {100L, 4096L}) {  // in the header, in the first page of rows
      TempDir dir;
      for (const std::string& name : list_dir(pristine.path())) fs::copy_file(pristine / name, dir / name);
      fs::create_directory(dir / "tmp");
      const std::string file = std::string("app") + table + "4";
      {
        FILE* f = std::fopen((dir / (file + ".idx")).c_str(), "r+b");
        ASSERT_NE(f, nullptr);
        std::fseek(f, offset, SEEK_SET);
        for (int i = 0; i < 256; ++i) std::fputs("\xde\xad\xbe\xef", f);
        std::fclose(f);
      }
      const std::string what = file + " at " + std::to_string(offset);
      for (const std::vector<std::string>& args : {std::vector<std::string>{"check", "app"}, {"dump", "app"},
                                                   {"load", "app", "in.sch"}}) {
        const RunResult r = tavdict(dir.path(), args, {"TMPDIR=" + (dir / "tmp")});
        EXPECT_NE(r.status, 134) << what << " " << args[0];
        if (args[0] != "check") {
          EXPECT_EQ(r.status, 1) << what << " " << args[0];
        }
        if (r.status != 0) {
          EXPECT_TRUE(contains(r.out + r.err, file)) << what << " " << args[0] << "\n" << r.out << r.err;
        }
        EXPECT_EQ(leftovers(dir.path()), std::vector<std::string>{}) << what << " " << args[0];
        EXPECT_EQ(list_dir(dir / "tmp"), std::vector<std::string>{}) << what << " " << args[0];
      }
    }
  }
}

// A load killed at each durable step of its commit (the test hook), and by signals at real
// times, leaves the dictionary as it was before or as the load makes it; never between.
TEST(TavdictSafety, KilledLoadLeavesBeforeOrAfter) {
  TempDir dir;
  ASSERT_EQ(load(dir, kBefore).status, 0);
  save(dir);
  const std::string before = state(dir);
  ASSERT_EQ(load(dir, kAfter).status, 0);
  const std::string after = state(dir);
  ASSERT_NE(before, after);

  write_file(dir / "in.sch", kAfter);
  int steps = 0, befores = 0;
  for (int n = 1; n < 100; ++n) {
    restore(dir);
    const RunResult r = tavdict(dir.path(), {"load", "app", "in.sch"}, {"TAVDICT_TEST_KILL_AT=" + std::to_string(n)});
    if (r.status == 0) break;
    ASSERT_EQ(r.status, 128 + SIGKILL) << "step " << n << ": " << r.err;
    ++steps;
    expect_whole(dir, before, after, "killed at step " + std::to_string(n), &befores);
  }
  EXPECT_GE(steps, 3);                           // the hook stopped the load inside its commit
  EXPECT_TRUE(befores > 0 && befores < steps);  // and some stops came after the commit point

  fs::create_directory(dir / "tmp");
  for (const int sig : {SIGINT, SIGTERM, SIGKILL}) {
    for (const int ms : {100, 400}) {
      restore(dir);
      Spawn s{{tavtest::program("tavdict"), "load", "app", "in.sch"}, dir.path(), {"TMPDIR=" + (dir / "tmp")}};
      const pid_t pid = s.start(dir / "spawn.out", dir / "spawn.err");
      std::this_thread::sleep_for(std::chrono::milliseconds(ms));
      kill(pid, sig);
      const int status = Spawn::wait(pid, 60);
      const std::string what = "signal " + std::to_string(sig) + " after " + std::to_string(ms) + " ms";
      EXPECT_TRUE(status == 0 || status == 128 + sig) << what << ": " << status;
      expect_whole(dir, before, after, what);
      if (sig != SIGKILL) {
        EXPECT_EQ(list_dir(dir / "tmp"), std::vector<std::string>{}) << what;
      }
      for (const std::string& name : list_dir(dir / "tmp")) fs::remove_all(dir / ("tmp/" + name));
    }
  }
}

// Objects enough to make the objects' table much the largest of the dictionary.
std::string many_objects() {
  std::string s;
  for (int i = 0; i < 300; ++i) {
    const std::string name = "obj" + std::to_string(i);
    s += "object " + name + " type sequential file \"" + std::string(30, 'f') + name + "\"\n  record cust-no end-record\n"
         "//% object " + name + " description " + std::string(40, 'd') + "\n";
  }
  return s;
}

// A load that runs out of space (here the file size limit of its process) changes nothing, even
// though all its tables but one would have fitted.
TEST(TavdictSafety, FullDiskLoadsNothing) {
  const std::string start = kBefore + many_objects();
  const std::string more = kAfter + std::string("object zzz type sequential file \"z\" record cust-no end-record\n");
  // How large each table grows, without a limit: the limit leaves room for all but the objects.
  TempDir trial;
  ASSERT_EQ(load(trial, start).status, 0);
  ASSERT_EQ(load(trial, more).status, 0);
  uintmax_t others = 0;
  for (const char* t : {"F", "R", "K", "D"}) others = std::max(others, fs::file_size(trial / ("app" + std::string(t) + "4.idx")));
  const uintmax_t limit = others + 8192;
  ASSERT_LT(limit + 8192, fs::file_size(trial / "appO4.idx"));

  TempDir dir;
  ASSERT_EQ(load(dir, start).status, 0);
  const std::string before = state(dir);
  write_file(dir / "in.sch", more);
  Spawn s{{tavtest::program("tavdict"), "load", "app", "in.sch"}, dir.path()};
  s.file_size_limit = limit;
  const RunResult r = s.run(dir);
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_TRUE(contains(r.err, "the load cannot be committed") && contains(r.err, "nothing loaded")) << r.err;
  EXPECT_EQ(state(dir), before);
  EXPECT_EQ(leftovers(dir.path()), std::vector<std::string>{});
  expect_whole(dir, before, before, "after the full disk");
}

// Compiles running while loads change the record they use see the dictionary before or after
// each load, never half of it.
TEST(TavdictSafety, CompilesBesideLoads) {
  TempDir dir;
  ASSERT_EQ(load(dir, kBefore).status, 0);
  write_file(dir / "before.sch", kBefore);
  write_file(dir / "after.sch", kAfter);
  write_file(dir / "prog.spl", kProgram);
  std::atomic<bool> done{false};
  std::vector<RunResult> loads;
  std::thread loader([&] {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(4);
    for (int i = 0; std::chrono::steady_clock::now() < end; ++i)
      loads.push_back(tavdict(dir.path(), {"load", "app", i % 2 ? "before.sch" : "after.sch"}));
    done = true;
  });
  int compiles = 0;
  while (!done) {
    const RunResult c = tavtest::tavcmp(dir.path(), {"-l", "-g", "app", "prog.spl"},
                                        {{}, {"TAVUSRDICT", "TAVDISTDICT", "TAVDICT", "TAVPATH"}});
    ++compiles;
    EXPECT_EQ(c.status, 0) << c.out;
  }
  loader.join();
  EXPECT_GE(loads.size(), 2u);
  EXPECT_GE(compiles, 2);
  for (const RunResult& l : loads) EXPECT_EQ(l.status, 0) << l.err;
}

// A run of several programs holds the dictionary only while it compiles a file: while the
// progress window waits for the operator after the first file, a load goes through at once, and
// the next file is compiled against what the load left.
TEST(TavdictSafety, ALoadGoesInBetweenTheFilesOfARun) {
  TAV_REQUIRE_TMUX();
  TempDir dir;
  ASSERT_EQ(load(dir, kBefore).status, 0);
  write_file(dir / "bad.spl", "procedure main\n  bogus\nend\n");
  write_file(dir / "uses.spl", "procedure main\n  set region = \"x\"\nend\n");  // region comes with kAfter
  tavtest::TmuxOptions o;
  o.cwd = dir.path();
  o.env = {"TERM=xterm", "TAVRIN=" + tavtest::product_dir(), "LANG=C", "LC_ALL=C"};
  o.unset = {"TAVUSRDICT", "TAVDISTDICT", "TAVDICT", "TAVPATH", "TAVLANGUAGE", "TAVLANGDIR"};
  tavtest::TmuxSession s;
  ASSERT_TRUE(s.start({tavtest::program("tavcmp"), "-g", "app", "bad.spl", "uses.spl"}, o));
  ASSERT_TRUE(s.wait_for("Press RETURN to continue")) << s.capture();
  const auto started = std::chrono::steady_clock::now();
  const RunResult loaded = load(dir, kAfter);
  EXPECT_EQ(loaded.status, 0) << loaded.err;
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(30)) << "the load waited for the run";
  s.send_keys({"Enter"});
  ASSERT_TRUE(s.wait_for("Files = 2")) << s.capture();
  s.send_keys({"Enter"});
  EXPECT_EQ(s.wait_exit(), 0) << s.capture();
  EXPECT_TRUE(file_exists(dir / "uses.op6"));
}

}  // namespace
