#include "tests/support/support.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace tavtest {

namespace fs = std::filesystem;

TempDir::TempDir() {
  std::string tmpl = (fs::temp_directory_path() / "tavtest-XXXXXX").string();
  if (!mkdtemp(tmpl.data())) throw std::runtime_error("mkdtemp failed");
  path_ = tmpl;
}

TempDir::~TempDir() {
  std::error_code ec;
  // Make everything writable first so that tests of read-only files clean up too.
  for (auto it = fs::recursive_directory_iterator(path_, ec); !ec && it != fs::recursive_directory_iterator(); it.increment(ec))
    fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
  fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ec);
  fs::remove_all(path_, ec);
}

void write_file(const std::string& path, const std::string& content) {
  std::ofstream f(path, std::ios::binary | std::ios::trunc);
  if (!f) throw std::runtime_error("cannot write " + path);
  f << content;
}

std::string read_file(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  if (!f) throw std::runtime_error("cannot read " + path);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

bool file_exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

std::vector<std::string> list_dir(const std::string& path) {
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(path)) names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

RunResult run(const std::vector<std::string>& argv, const RunOptions& options) {
  signal(SIGPIPE, SIG_IGN);  // a program that stops reading must not end the test
  // Close-on-exec: a program another thread starts meanwhile must not keep these pipes open, or
  // this run would wait for that program's end to see the end of its output.
  int in[2], out[2], err[2];
  if (pipe2(in, O_CLOEXEC) || pipe2(out, O_CLOEXEC) || pipe2(err, O_CLOEXEC)) throw std::runtime_error("pipe failed");

  std::vector<std::string> env_strings;
  for (char** e = environ; *e; ++e) {
    std::string entry = *e;
    std::string name = entry.substr(0, entry.find('='));
    bool drop = std::find(options.unset.begin(), options.unset.end(), name) != options.unset.end();
    for (const auto& over : options.env)
      if (over.substr(0, over.find('=')) == name) drop = true;
    if (!drop) env_strings.push_back(entry);
  }
  for (const auto& over : options.env) env_strings.push_back(over);
  std::vector<char*> envp, args;
  for (auto& s : env_strings) envp.push_back(s.data());
  envp.push_back(nullptr);
  std::vector<std::string> argv_copy = argv;
  for (auto& s : argv_copy) args.push_back(s.data());
  args.push_back(nullptr);

  pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    dup2(in[0], 0);
    dup2(out[1], 1);
    dup2(err[1], 2);
    for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]}) close(fd);
    if (!options.cwd.empty() && chdir(options.cwd.c_str()) != 0) _exit(126);
    execve(args[0], args.data(), envp.data());
    _exit(127);
  }
  close(in[0]);
  close(out[1]);
  close(err[1]);
  // Feed standard input while draining both outputs, so that no pipe fills up.
  RunResult result;
  size_t fed = 0;
  if (options.input.empty()) {
    close(in[1]);
    in[1] = -1;
  }
  bool out_open = true, err_open = true;
  while (out_open || err_open || in[1] >= 0) {
    pollfd fds[3];
    int n = 0;
    if (out_open) fds[n++] = {out[0], POLLIN, 0};
    if (err_open) fds[n++] = {err[0], POLLIN, 0};
    if (in[1] >= 0) fds[n++] = {in[1], POLLOUT, 0};
    if (poll(fds, static_cast<nfds_t>(n), -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    for (int i = 0; i < n; ++i) {
      if (!fds[i].revents) continue;
      if (fds[i].fd == in[1]) {
        ssize_t w = write(in[1], options.input.data() + fed, options.input.size() - fed);
        if (w > 0) fed += static_cast<size_t>(w);
        if (w < 0 || fed == options.input.size()) {
          close(in[1]);
          in[1] = -1;
        }
        continue;
      }
      char buf[4096];
      ssize_t r = read(fds[i].fd, buf, sizeof buf);
      std::string& dest = fds[i].fd == out[0] ? result.out : result.err;
      if (r > 0) {
        dest.append(buf, static_cast<size_t>(r));
      } else {
        (fds[i].fd == out[0] ? out_open : err_open) = false;
      }
    }
  }
  close(out[0]);
  close(err[0]);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

std::string product_dir() { return TAV_PRODUCT_DIR; }
std::string program(const std::string& name) { return product_dir() + "/bin/" + name; }
std::string source_dir() { return TAV_SOURCE_DIR; }

}  // namespace tavtest
