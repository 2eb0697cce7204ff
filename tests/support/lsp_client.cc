#include "tests/support/lsp_client.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

extern char** environ;

namespace tavtest {

namespace {

using Clock = std::chrono::steady_clock;

int millis_left(Clock::time_point end) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
  return left < 0 ? 0 : static_cast<int>(left);
}

}  // namespace

LspClient::LspClient(const std::vector<std::string>& argv, const std::string& cwd, const std::vector<std::string>& env) {
  int in[2], out[2];
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
  std::vector<std::string> environment;
  for (char** e = environ; *e; ++e) environment.emplace_back(*e);
  for (const std::string& extra : env) {
    const std::string name = extra.substr(0, extra.find('=') + 1);
    std::erase_if(environment, [&](const std::string& e) { return e.rfind(name, 0) == 0; });
    environment.push_back(extra);
  }
  std::vector<char*> args, envp;
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  for (const std::string& e : environment) envp.push_back(const_cast<char*>(e.c_str()));
  envp.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  if (!cwd.empty()) posix_spawn_file_actions_addchdir_np(&actions, cwd.c_str());
  const int failed = posix_spawn(&pid_, args[0], &actions, nullptr, args.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  close(in[0]);
  close(out[1]);
  to_server_ = in[1];
  from_server_ = out[0];
  if (failed != 0) throw std::runtime_error("cannot start " + argv[0] + ": " + std::strerror(failed));
  signal(SIGPIPE, SIG_IGN);
}

LspClient::~LspClient() {
  close_input();
  if (pid_ > 0 && status_ < 0 && wait_exit(Millis(2000)) < 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  if (from_server_ >= 0) close(from_server_);
}

void LspClient::send_raw(const std::string& bytes) {
  for (size_t at = 0; at < bytes.size();) {
    const ssize_t n = write(to_server_, bytes.data() + at, bytes.size() - at);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;  // the server is gone; what it said is still read
    at += static_cast<size_t>(n);
  }
}

void LspClient::send(const Json& message) {
  const std::string body = message.dump();
  send_raw("Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
}

int LspClient::request(const std::string& method, Json params) {
  const int id = next_id_++;
  send({{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", std::move(params)}});
  return id;
}

void LspClient::notify(const std::string& method, Json params) {
  send({{"jsonrpc", "2.0"}, {"method", method}, {"params", std::move(params)}});
}

std::optional<LspClient::Json> LspClient::next_frame(Millis timeout) {
  const Clock::time_point end = Clock::now() + timeout;
  for (;;) {
    const size_t blank = buffer_.find("\r\n\r\n");
    if (blank != std::string::npos) {
      const size_t at = buffer_.find("Content-Length: ");
      if (at == std::string::npos || at > blank) throw std::runtime_error("a frame without Content-Length: " + buffer_);
      const size_t length = std::stoul(buffer_.substr(at + 16, blank - at - 16));
      if (buffer_.size() >= blank + 4 + length) {
        Json message = Json::parse(buffer_.substr(blank + 4, length));
        buffer_.erase(0, blank + 4 + length);
        return message;
      }
    }
    pollfd p{from_server_, POLLIN, 0};
    const int ready = poll(&p, 1, millis_left(end));
    if (ready <= 0) return std::nullopt;
    char chunk[65536];
    const ssize_t n = read(from_server_, chunk, sizeof chunk);
    if (n <= 0) return std::nullopt;
    buffer_.append(chunk, static_cast<size_t>(n));
  }
}

std::optional<LspClient::Json> LspClient::receive(Millis timeout) {
  if (!kept_.empty()) {
    Json m = std::move(kept_.front());
    kept_.pop_front();
    return m;
  }
  return next_frame(timeout);
}

std::optional<LspClient::Json> LspClient::wait_for(const std::function<bool(const Json&)>& match, Millis timeout) {
  for (auto it = kept_.begin(); it != kept_.end(); ++it) {
    if (match(*it)) {
      Json m = std::move(*it);
      kept_.erase(it);
      return m;
    }
  }
  const Clock::time_point end = Clock::now() + timeout;
  while (std::optional<Json> m = next_frame(Millis(millis_left(end)))) {
    if (match(*m)) return m;
    kept_.push_back(std::move(*m));
  }
  return std::nullopt;
}

std::optional<LspClient::Json> LspClient::response(const Json& id, Millis timeout) {
  return wait_for([&](const Json& m) { return m.contains("id") && m["id"] == id && !m.contains("method"); }, timeout);
}

std::optional<LspClient::Json> LspClient::diagnostics_for(const std::string& uri, Millis timeout) {
  return wait_for(
      [&](const Json& m) {
        return m.value("method", "") == "textDocument/publishDiagnostics" && m["params"].value("uri", "") == uri;
      },
      timeout);
}

void LspClient::close_input() {
  if (to_server_ >= 0) close(to_server_);
  to_server_ = -1;
}

int LspClient::wait_exit(Millis timeout) {
  if (status_ >= 0) return status_;
  const Clock::time_point end = Clock::now() + timeout;
  for (;;) {
    int status = 0;
    const pid_t r = waitpid(pid_, &status, WNOHANG);
    if (r == pid_) {
      status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      return status_;
    }
    if (r < 0 || Clock::now() >= end) return -1;
    usleep(10000);
  }
}

}  // namespace tavtest
