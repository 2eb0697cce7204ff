// tavpp: command line and signal handling; the work is done by run_tavpp.
#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

#include "tav_version.h"
#include "tavpp.h"

namespace {

// The name of the temporary output file while it exists, for the signal handler (which may
// use nothing but this buffer).  Updated with the signals blocked.
char g_temp_name[4096];

constexpr std::array<int, 4> kSignals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};

extern "C" void on_signal(int sig) {
  if (g_temp_name[0] != '\0') ::unlink(g_temp_name);
  ::_exit(sig);
}

void set_temp_name(const std::string& name) {
  sigset_t block, old;
  sigemptyset(&block);
  for (int s : kSignals) sigaddset(&block, s);
  sigprocmask(SIG_BLOCK, &block, &old);
  std::size_t n = name.size() < sizeof g_temp_name ? name.size() : 0;  // too long: not tracked
  std::memcpy(g_temp_name, name.data(), n);
  g_temp_name[n] = '\0';
  sigprocmask(SIG_SETMASK, &old, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + (argc > 0 ? 1 : 0), argv + argc);
  for (const std::string& a : args) {
    if (a == "--version") return tav::print_version("tavpp");
    if (a == "--help") {
      std::fputs(tav::pp::kUsage, stdout);
      std::fputs(tav::pp::kHelp, stdout);
      return std::fflush(stdout) == 0 ? 0 : 1;
    }
  }
  auto options = tav::pp::parse_args(args);
  if (!options) {
    std::fputs(tav::pp::kUsage, stderr);
    return 2;
  }
  struct sigaction sa {};
  sa.sa_handler = on_signal;
  sigemptyset(&sa.sa_mask);
  for (int s : kSignals) sigaction(s, &sa, nullptr);
  // The file-size limit and a closed pipe are write errors, reported as such; the signals would
  // end the run before it removed its partial output.
  std::signal(SIGXFSZ, SIG_IGN);
  std::signal(SIGPIPE, SIG_IGN);
  options->on_temp_file = set_temp_name;
  return tav::pp::run_tavpp(*options);
}
