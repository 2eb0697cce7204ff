// Google Benchmark targets that run the built compiler on generated programs.
//
// BM_CompileLines/<n>: one program of about n lines; reports source lines per second.
// BM_CompileManySmall/<k>: k small programs compiled by one run; reports files per second.
// Rates are measured on wall time (the work happens in the child). Both report the peak
// resident size of the compiler runs (kB) as a counter.
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fcntl.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bench/generator.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

struct Scratch {
  fs::path dir;
  Scratch() {
    std::string templ = (fs::temp_directory_path() / "tavbench-XXXXXX").string();
    dir = ::mkdtemp(templ.data()) ? fs::path(templ) : fs::temp_directory_path();
  }
  ~Scratch() {
    std::error_code ec;
    fs::remove_all(dir, ec);
  }
};

// Runs tavcmp -l -n on the files with stdout and stderr to /dev/null; returns its exit status.
int run_compiler(const std::vector<std::string>& files) {
  std::string product = TAV_PRODUCT_DIR;
  std::string program = product + "/bin/tavcmp";
  std::vector<std::string> args = {program, "-l", "-n"};
  args.insert(args.end(), files.begin(), files.end());
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  std::string tavrin = "TAVRIN=" + product;
  std::vector<char*> env;
  for (char** e = environ; *e; ++e)
    if (std::strncmp(*e, "TAVRIN=", 7) != 0) env.push_back(*e);
  env.push_back(tavrin.data());
  env.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  int rc = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), env.data());
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) return -1;
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

long peak_child_kb() {
  rusage ru{};
  getrusage(RUSAGE_CHILDREN, &ru);
  return ru.ru_maxrss;
}

void write(const fs::path& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

void BM_CompileLines(benchmark::State& state) {
  Scratch scratch;
  tavbench::GenOptions o;
  o.lines = state.range(0);
  std::string text = tavbench::generate_program(o);
  fs::path file = scratch.dir / "big.spl";
  write(file, text);
  long lines = tavbench::count_lines(text);
  for (auto _ : state) benchmark::DoNotOptimize(run_compiler({file.string()}));
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * lines);
  state.counters["lines"] = static_cast<double>(lines);
  state.counters["peak_kB"] = static_cast<double>(peak_child_kb());
}
BENCHMARK(BM_CompileLines)->Arg(1000)->Arg(10000)->Arg(50000)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_CompileManySmall(benchmark::State& state) {
  Scratch scratch;
  std::vector<std::string> files;
  tavbench::GenOptions o;
  o.lines = 200;
  for (int64_t i = 0; i < state.range(0); ++i) {
    o.seed = static_cast<uint32_t>(i + 1);
    fs::path file = scratch.dir / ("small-" + std::to_string(i) + ".spl");
    write(file, tavbench::generate_program(o));
    files.push_back(file.string());
  }
  for (auto _ : state) benchmark::DoNotOptimize(run_compiler(files));
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
  state.counters["peak_kB"] = static_cast<double>(peak_child_kb());
}
BENCHMARK(BM_CompileManySmall)->Arg(100)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
