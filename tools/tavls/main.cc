// tavls: the language server. Speaks the protocol on standard input and output; anything else
// that would write to standard output (a stray message line) goes to standard error instead.
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "server.h"
#include "tav_version.h"
#include "transport.h"

namespace {

constexpr char kHelp[] =
    "Usage: tavls [--help] [--version]\n"
    "\n"
    "The language server of the compiler: speaks the Language Server Protocol on standard input\n"
    "and output, and publishes for each open program the diagnostics tavcmp would report.\n"
    "\n"
    "  --help     print this text and exit\n"
    "  --version  print the product version and exit\n"
    "\n"
    "Settings come from the environment (TAVRIN, TAVCMPINC, TAVDICT, ERQ, ...), then tavls.json in\n"
    "the workspace root, then the client's initializationOptions and didChangeConfiguration.\n";

std::string program_dir(const char* argv0) {
  std::error_code ec;
  std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) self = std::filesystem::absolute(argv0, ec);
  return self.parent_path().string();
}

// A private directory for the copies of the documents, removed at the end.
std::string make_work_dir() {
  const char* tmpdir = std::getenv("TMPDIR");
  std::string name = std::string(tmpdir && *tmpdir ? tmpdir : "/tmp") + "/tavls-XXXXXX";
  if (!mkdtemp(name.data())) return {};
  return name;
}

// Reads and answers messages until exit or the end of the input.
int serve(tav::lsp::Server& server) {
  tav::lsp::FrameReader reader;
  char buffer[65536];
  for (;;) {
    const int wait = server.next_due_ms();
    pollfd in{STDIN_FILENO, POLLIN, 0};
    const int ready = poll(&in, 1, wait);
    if (ready < 0 && errno != EINTR) return 1;
    if (ready > 0) {
      const ssize_t n = read(STDIN_FILENO, buffer, sizeof buffer);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return server.exit_status();  // the client went away
      reader.feed(std::string_view(buffer, static_cast<size_t>(n)));
      // A request the client cancelled in the same read is not worked on: it is answered as
      // cancelled.
      std::vector<tav::lsp::Frame> frames;
      while (std::optional<tav::lsp::Frame> frame = reader.next()) {
        if (frame->kind != tav::lsp::Frame::bad_header) server.note_cancel(frame->body);
        frames.push_back(std::move(*frame));
      }
      for (const tav::lsp::Frame& frame : frames) {
        if (frame.kind == tav::lsp::Frame::bad_header) server.bad_frame(frame.problem);
        else server.handle(frame.body);
        if (server.exited()) return server.exit_status();
      }
      server.forget_cancels();
      continue;  // read what else has come before compiling: a newer text replaces the older
    }
    server.run_due_compiles();
  }
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help") {
      std::fputs(kHelp, stdout);
      return std::fflush(stdout) == 0 ? 0 : 255;
    }
    if (arg == "--version") return tav::print_version("tavls") == 0 ? 0 : 255;
    std::fprintf(stderr, "tavls: unknown argument '%s'\n%s", argv[i], kHelp);
    return 255;
  }
  signal(SIGPIPE, SIG_IGN);
  // The protocol keeps standard output for itself.
  const int protocol = dup(STDOUT_FILENO);
  if (protocol < 0 || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
    std::fprintf(stderr, "tavls: cannot set up standard output: %s\n", std::strerror(errno));
    return 255;
  }
  const std::string work = make_work_dir();
  if (work.empty()) {
    std::fprintf(stderr, "tavls: cannot make a temporary directory: %s\n", std::strerror(errno));
    return 255;
  }
  int status = 1;
  {
    tav::lsp::Server server(protocol, program_dir(argv[0]), work);
    status = serve(server);
  }
  std::error_code ec;
  std::filesystem::remove_all(work, ec);
  return status;
}
