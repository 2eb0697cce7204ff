// Feeds arbitrary bytes to the language server as if a client had sent them: the framing reader
// cuts them into messages, the server handles each. Whatever the bytes (broken headers, JSON
// that is not JSON, requests with members of the wrong type, documents never opened), the server
// must answer or ignore them without crashing, hanging or reading outside what it was given.
// Its answers go to /dev/null; its private directory is one per process.
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "server.h"
#include "transport.h"

namespace {

struct Sink {
  int fd = open("/dev/null", O_WRONLY);
  std::string work;
  Sink() {
    char dir[] = "/tmp/tavls-fuzz-XXXXXX";
    if (mkdtemp(dir)) work = dir;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Sink sink;
  tav::lsp::FrameReader reader;
  reader.feed(std::string_view(reinterpret_cast<const char*>(data), size));
  // No tavpp where the server looks for it: a document it is asked to compile is reported as
  // not preprocessed, which keeps each input fast.
  tav::lsp::Server server(sink.fd, "/nonexistent", sink.work);
  while (auto frame = reader.next()) {
    if (frame->kind == tav::lsp::Frame::message)
      server.handle(frame->body);
    else
      server.bad_frame(frame->problem);
    if (server.exited()) break;
  }
  return 0;
}
