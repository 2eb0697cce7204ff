// A language server client for tests: starts a server program with pipes for its standard
// input and output, speaks the protocol's framing to it, and collects what it sends.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace tavtest {

class LspClient {
 public:
  using Json = nlohmann::json;
  using Millis = std::chrono::milliseconds;

  // Starts `argv` in `cwd` with the extra NAME=value entries of `env`.
  LspClient(const std::vector<std::string>& argv, const std::string& cwd, const std::vector<std::string>& env = {});
  ~LspClient();  // kills the server when it is still running
  LspClient(const LspClient&) = delete;
  LspClient& operator=(const LspClient&) = delete;

  void send_raw(const std::string& bytes);
  void send(const Json& message);  // framed
  int request(const std::string& method, Json params);  // the id used
  void notify(const std::string& method, Json params);

  // The next message the server sends, or nothing after `timeout`.
  std::optional<Json> receive(Millis timeout = Millis(10000));
  // The response to request `id` (other messages are kept for wait_for); nothing after `timeout`.
  std::optional<Json> response(const Json& id, Millis timeout = Millis(10000));
  // The first message, received or kept, that `match` accepts (it is taken out).
  std::optional<Json> wait_for(const std::function<bool(const Json&)>& match, Millis timeout = Millis(10000));
  // The next publishDiagnostics for `uri`.
  std::optional<Json> diagnostics_for(const std::string& uri, Millis timeout = Millis(10000));

  // Closes the server's input; waits for it to end and returns its status (128 + signal when
  // killed), or -1 when it is still running after `timeout`.
  void close_input();
  int wait_exit(Millis timeout = Millis(10000));

 private:
  std::optional<Json> next_frame(Millis timeout);

  pid_t pid_ = -1;
  int to_server_ = -1;
  int from_server_ = -1;
  std::string buffer_;
  std::deque<Json> kept_;
  int next_id_ = 1;
  int status_ = -1;
};

}  // namespace tavtest
