// How fast the language server answers an edit, and whether it grows: opens a program in tavls,
// makes one-character edits one after the other (a blank added at the end of the first line,
// then taken away again), and times each from the change sent to the diagnostics published for
// it. Prints the median, the 95th percentile and the slowest, and the server's resident memory
// after the first edit and after the last.
//
//   tavls_edits TAVLS PRODUCT-DIR PROGRAM [EDITS]
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::json;
using Clock = std::chrono::steady_clock;

class Server {
 public:
  explicit Server(const std::string& path) {
    int in[2], out[2];
    if (pipe(in) != 0 || pipe(out) != 0) throw std::runtime_error("pipe failed");
    pid_ = fork();
    if (pid_ < 0) throw std::runtime_error("fork failed");
    if (pid_ == 0) {
      dup2(in[0], 0);
      dup2(out[1], 1);
      close(in[1]);
      close(out[0]);
      execl(path.c_str(), path.c_str(), static_cast<char*>(nullptr));
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    to_ = in[1];
    from_ = out[0];
  }
  ~Server() {
    close(to_);
    close(from_);
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }

  void send(const Json& message) {
    const std::string body = message.dump();
    const std::string framed = "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    for (size_t done = 0; done < framed.size();) {
      const ssize_t n = write(to_, framed.data() + done, framed.size() - done);
      if (n <= 0) throw std::runtime_error("the server stopped reading");
      done += static_cast<size_t>(n);
    }
  }

  // The next message, waiting at most 10 seconds for it.
  Json receive() {
    std::string headers;
    while (headers.find("\r\n\r\n") == std::string::npos) headers += read_some(1);
    const size_t at = headers.find("Content-Length:");
    if (at == std::string::npos) throw std::runtime_error("a message without Content-Length");
    const size_t length = std::stoul(headers.substr(at + 15));
    return Json::parse(read_some(length));
  }

  // The resident memory of the server, in kB.
  long rss_kb() const {
    std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
    std::string line;
    while (std::getline(status, line))
      if (line.rfind("VmRSS:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
    return -1;
  }

 private:
  std::string read_some(size_t count) {
    std::string bytes(count, '\0');
    for (size_t done = 0; done < count;) {
      pollfd p{from_, POLLIN, 0};
      if (poll(&p, 1, 10000) <= 0) throw std::runtime_error("no answer from the server in 10 s");
      const ssize_t n = read(from_, bytes.data() + done, count - done);
      if (n <= 0) throw std::runtime_error("the server closed its output");
      done += static_cast<size_t>(n);
    }
    return bytes;
  }

  pid_t pid_ = -1;
  int to_ = -1, from_ = -1;
};

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// Waits for the diagnostics of `uri`; answers the server's own requests (configuration and
// the like) with null, as a client that has nothing to add.
size_t await_diagnostics(Server& server, const std::string& uri) {
  for (;;) {
    const Json m = server.receive();
    if (m.contains("id") && m.contains("method")) {
      server.send({{"jsonrpc", "2.0"}, {"id", m["id"]}, {"result", nullptr}});
      continue;
    }
    if (m.value("method", "") == "textDocument/publishDiagnostics" && m["params"].value("uri", "") == uri)
      return m["params"]["diagnostics"].size();
  }
}

double percentile(std::vector<double> v, double p) {
  std::sort(v.begin(), v.end());
  const size_t i = static_cast<size_t>(p * static_cast<double>(v.size() - 1) + 0.5);
  return v[std::min(i, v.size() - 1)];
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: tavls_edits TAVLS PRODUCT-DIR PROGRAM [EDITS]\n");
    return 2;
  }
  const std::string program = argv[3];
  const int edits = argc > 4 ? std::atoi(argv[4]) : 1000;
  try {
    char cwd[4096];
    if (!getcwd(cwd, sizeof cwd)) throw std::runtime_error("no working directory");
    const std::string path = program.front() == '/' ? program : std::string(cwd) + "/" + program;
    const std::string root = path.substr(0, path.rfind('/'));
    const std::string uri = "file://" + path;
    const std::string text = read_file(path);
    const size_t first_line = text.find('\n');
    if (first_line == std::string::npos) throw std::runtime_error("the program needs more than one line");

    Server server(argv[1]);
    server.send({{"jsonrpc", "2.0"}, {"id", 1}, {"method", "initialize"},
                 {"params", {{"processId", getpid()}, {"rootUri", "file://" + root}, {"capabilities", Json::object()},
                             {"initializationOptions", {{"tavrin", argv[2]}, {"noDictionaries", true}}}}}});
    while (!server.receive().contains("result")) {
    }
    server.send({{"jsonrpc", "2.0"}, {"method", "initialized"}, {"params", Json::object()}});
    server.send({{"jsonrpc", "2.0"}, {"method", "textDocument/didOpen"},
                 {"params", {{"textDocument", {{"uri", uri}, {"languageId", "tavrin"}, {"version", 1}, {"text", text}}}}}});
    const size_t found = await_diagnostics(server, uri);

    const int column = static_cast<int>(first_line);  // the first line is ASCII in generated programs
    std::vector<double> ms;
    long rss_first = 0;
    for (int i = 0; i < edits; ++i) {
      const bool add = i % 2 == 0;
      const Json range = {{"start", {{"line", 0}, {"character", column}}},
                          {"end", {{"line", 0}, {"character", add ? column : column + 1}}}};
      const auto start = Clock::now();
      server.send({{"jsonrpc", "2.0"}, {"method", "textDocument/didChange"},
                   {"params", {{"textDocument", {{"uri", uri}, {"version", i + 2}}},
                               {"contentChanges", Json::array({{{"range", range}, {"text", add ? " " : ""}}})}}}});
      await_diagnostics(server, uri);
      ms.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
      if (i == 0) rss_first = server.rss_kb();
    }
    const long rss_last = server.rss_kb();
    std::printf("| %d lines, %zu diagnostics | %d edits | %.1f | %.1f | %.1f | %ld | %ld | %.2f |\n",
                static_cast<int>(std::count(text.begin(), text.end(), '\n')), found, edits, percentile(ms, 0.5),
                percentile(ms, 0.95), *std::max_element(ms.begin(), ms.end()), rss_first, rss_last,
                static_cast<double>(rss_last) / static_cast<double>(rss_first));
    server.send({{"jsonrpc", "2.0"}, {"id", 2}, {"method", "shutdown"}});
    server.send({{"jsonrpc", "2.0"}, {"method", "exit"}});
  } catch (const std::exception& e) {
    std::fprintf(stderr, "tavls_edits: %s\n", e.what());
    return 1;
  }
  return 0;
}
