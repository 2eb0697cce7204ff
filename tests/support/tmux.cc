#include "tests/support/tmux.h"

#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <thread>

namespace tavtest {

namespace {

constexpr const char* kSession = "tav";
constexpr std::chrono::milliseconds kPoll{50};

std::string find_on_path(const std::string& name) {
  const char* path = std::getenv("PATH");
  std::string dirs = path && *path ? path : "/usr/bin:/bin";
  std::stringstream in(dirs);
  std::string dir;
  while (std::getline(in, dir, ':')) {
    if (dir.empty()) continue;
    std::string candidate = dir + "/" + name;
    if (access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return "";
}

std::string env_program() {
  if (access("/usr/bin/env", X_OK) == 0) return "/usr/bin/env";
  return find_on_path("env");
}

}  // namespace

std::string tmux_path() { return find_on_path("tmux"); }

TmuxSession::TmuxSession() : socket_(dir_ / "sock"), status_file_(dir_ / "status") {}

TmuxSession::~TmuxSession() {
  if (!tmux_path().empty()) tmux({"kill-server"});
}

RunResult TmuxSession::tmux(const std::vector<std::string>& args) const {
  std::vector<std::string> argv = {tmux_path(), "-S", socket_, "-f", "/dev/null"};
  argv.insert(argv.end(), args.begin(), args.end());
  RunOptions options;
  options.unset = {"TMUX", "TMUX_PANE"};  // tests run from inside tmux must not talk to it
  return run(argv, options);
}

bool TmuxSession::start(const std::vector<std::string>& argv, const TmuxOptions& options) {
  if (argv.empty() || tmux_path().empty()) return false;
  // The options go first, in the same command list as the session, so that a program that
  // ends at once still leaves its pane (and exit status) behind. An empty dead-pane notice
  // keeps tmux from writing a line that would scroll the program's last screen. A lone Escape
  // goes to the program at once, as a terminal sends it, instead of tmux first waiting for the
  // rest of a key sequence.
  std::vector<std::string> args = {
      "set-option", "-s", "escape-time", "0", ";",
      "set-option", "-g", "remain-on-exit", "on", ";",
      "set-option", "-g", "status", "off", ";",
      "set-option", "-gq", "remain-on-exit-format", "", ";",
      "new-session", "-d", "-s", kSession,
      "-x", std::to_string(options.cols), "-y", std::to_string(options.rows)};
  if (!options.cwd.empty()) {
    args.push_back("-c");
    args.push_back(options.cwd);
  }
  // tmux does not always learn the exit status of a program that ends very quickly, so a
  // small wrapper records it in a file; the arguments reach the program through "$@", byte
  // for byte, and env sets up its environment.
  args.push_back("--");
  args.push_back("/bin/sh");
  args.push_back("-c");
  args.push_back("\"$@\"; echo $? > \"$0.new\" && mv \"$0.new\" \"$0\"");
  args.push_back(status_file_);
  args.push_back(env_program());
  for (const auto& name : options.unset) {
    args.push_back("-u");
    args.push_back(name);
  }
  for (const auto& entry : options.env) args.push_back(entry);
  args.insert(args.end(), argv.begin(), argv.end());
  started_ = tmux(args).status == 0;
  return started_;
}

std::vector<std::string> TmuxSession::capture_lines() const {
  std::vector<std::string> lines;
  RunResult r = tmux({"capture-pane", "-p", "-t", kSession});
  if (r.status != 0) return lines;
  std::stringstream in(r.out);
  std::string line;
  while (std::getline(in, line)) {
    line.erase(line.find_last_not_of(' ') + 1);
    lines.push_back(line);
  }
  return lines;
}

std::string TmuxSession::capture() const {
  std::string text;
  for (const auto& line : capture_lines()) {
    if (!text.empty()) text += '\n';
    text += line;
  }
  return text;
}

void TmuxSession::send_keys(const std::vector<std::string>& keys) const {
  std::vector<std::string> args = {"send-keys", "-t", kSession};
  args.insert(args.end(), keys.begin(), keys.end());
  tmux(args);
}

void TmuxSession::send_text(const std::string& text) const {
  tmux({"send-keys", "-l", "-t", kSession, text});
}

bool TmuxSession::wait_for(const std::string& text, std::chrono::milliseconds timeout) const {
  auto deadline = Clock::now() + timeout;
  for (;;) {
    if (capture().find(text) != std::string::npos) return true;
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(kPoll);
  }
}

int TmuxSession::wait_exit(std::chrono::milliseconds timeout) const {
  auto deadline = Clock::now() + timeout;
  for (;;) {
    // Once the pane is dead tmux has read all of the program's output, so capture() shows
    // its last screen.
    if (file_exists(status_file_)) {
      RunResult r = tmux({"display-message", "-p", "-t", kSession, "#{pane_dead}"});
      if (r.status != 0) return -1;
      if (r.out == "1\n") return std::atoi(read_file(status_file_).c_str());
    }
    if (Clock::now() >= deadline) return -1;
    std::this_thread::sleep_for(kPoll);
  }
}

}  // namespace tavtest
