// The language server: the protocol's lifecycle (initialize, initialized, shutdown, exit), the
// open documents, and their diagnostics, compiled a little after the last change (the newest text
// wins) and at once on open and save. One Server is one session's whole state.
#pragma once

#include <chrono>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "compile_service.h"
#include "documents.h"
#include "navigation.h"
#include "settings.h"

namespace tav::lsp {

class Server {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::milliseconds kDebounce{10};  // edits made during a compile are taken together anyway

  // Messages go out on `out_fd`; `program_dir` is where tavls lives, `work_dir` its private
  // temporary directory.
  Server(int out_fd, std::string program_dir, std::string work_dir);

  // One framed message's body, or a header block that could not be read.
  void handle(std::string_view body);
  void bad_frame(const std::string& problem);

  // $/cancelRequest: a request of the same read with that id is answered as cancelled rather
  // than worked on (later requests are answered before anything else is read).
  void note_cancel(std::string_view body);
  void forget_cancels() { cancelled_.clear(); }

  // The milliseconds until the next compile is due (0: due now), -1 when none is waiting.
  int next_due_ms() const;
  // Compiles every document whose time has come and publishes what it found.
  void run_due_compiles();

  bool exited() const { return exited_; }
  // 0 after shutdown then exit, 1 when the session ended any other way.
  int exit_status() const { return state_ == State::shut_down ? 0 : 1; }

 private:
  enum class State { starting, running, shut_down };
  using Json = nlohmann::json;

  void request(const Json& id, const std::string& method, const Json& params);
  void notification(const std::string& method, const Json& params);
  Json initialize(const Json& params);
  void did_open(const Json& params);
  void did_change(const Json& params);
  void did_save(const Json& params);
  void did_close(const Json& params);
  void did_change_configuration(const Json& params);
  void load_settings(const Json& client_settings);
  void schedule(const std::string& uri, Clock::duration delay);
  void compile_and_publish(Document& d);
  // The outline of the document's newest text (compiled now when a compile is waiting); null
  // for a document that is not open.
  const std::vector<OutlineSymbol>* outline(const Json& params);
  Json definition(const Json& params);
  // The document of a request's textDocument, compiled first when a compile is waiting; null
  // when it is not open.
  Document* current(const Json& params);
  // The position of a request in the compiler's terms: the line (from 1), the character column
  // (from 1), and the line's text before it. False outside the text.
  bool position(const Document& d, const Json& params, int& line, int& column, std::string& before) const;
  const XrefSymbol* symbol_at_position(const Json& params, Document*& d);
  SourceLines source_lines();
  Json hover(const Json& params);
  Json references(const Json& params);
  void rename(const Json& id, const Json& params);
  Json completion(const Json& params);
  Json workspace_symbol(const Json& params);
  std::string find_include(const Document& d, const std::string& name) const;
  void publish(const std::string& uri, Json diagnostics, const Document* d);

  void respond(const Json& id, Json result);
  void respond_error(const Json& id, int code, const std::string& message);
  void notify(const std::string& method, Json params);
  void log(const std::string& message);
  void send(const Json& message);

  int out_fd_;
  State state_ = State::starting;
  bool exited_ = false;
  std::string root_;
  Json init_options_;
  Json client_settings_;
  Settings settings_;
  DocumentStore documents_;
  CompileService compiler_;
  std::map<std::string, Clock::time_point> due_;            // documents waiting to be compiled
  std::map<std::string, std::set<std::string>> published_;  // per document, the URIs it published for
  std::map<std::string, std::vector<OutlineSymbol>> outlines_;  // per document, of its last compile
  std::map<std::string, std::vector<Definition>> definitions_;  // the same
  // The same: the cross reference, hover texts and objects' fields.
  struct Index {
    XrefIndex xref;
    std::vector<std::string> hovers;
    std::map<std::string, std::vector<std::string>> object_fields;
    std::vector<std::string> library_sources;
  };
  std::map<std::string, Index> indexes_;
  std::set<std::string> cancelled_;  // the ids (as JSON text) of requests cancelled
};

}  // namespace tav::lsp
