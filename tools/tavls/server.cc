#include "server.h"

#include <fstream>
#include <map>

#include "hover.h"
#include "outline.h"
#include "publish.h"
#include "tav_version.h"
#include "text_positions.h"
#include "transport.h"

namespace tav::lsp {

namespace {

// JSON-RPC and protocol error codes.
constexpr int kParseError = -32700;
constexpr int kInvalidRequest = -32600;
constexpr int kMethodNotFound = -32601;
constexpr int kServerNotInitialized = -32002;
constexpr int kRequestFailed = -32803;
constexpr int kRequestCancelled = -32800;

using Json = nlohmann::json;

std::string string_member(const Json& object, const char* name) {
  if (!object.is_object()) return {};
  const auto it = object.find(name);
  return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

int int_member(const Json& object, const char* name) {
  if (!object.is_object()) return 0;
  const auto it = object.find(name);
  if (it == object.end() || !it->is_number_integer()) return 0;
  const long long v = it->get<long long>();
  return v < INT32_MIN || v > INT32_MAX ? 0 : static_cast<int>(v);
}

const Json& member(const Json& object, const char* name) {
  static const Json kNull;
  if (!object.is_object()) return kNull;
  const auto it = object.find(name);
  return it == object.end() ? kNull : *it;
}

// The workspace root the client names: rootUri, else rootPath, else the first workspace folder.
std::string root_of(const Json& params) {
  if (std::optional<std::string> p = path_of_uri(string_member(params, "rootUri"))) return *p;
  if (std::string p = string_member(params, "rootPath"); !p.empty()) return p;
  const Json& folders = member(params, "workspaceFolders");
  if (folders.is_array() && !folders.empty())
    if (std::optional<std::string> p = path_of_uri(string_member(folders[0], "uri"))) return *p;
  return {};
}

}  // namespace

Server::Server(int out_fd, std::string program_dir, std::string work_dir)
    : out_fd_(out_fd), compiler_(std::move(program_dir), std::move(work_dir)) {}

void Server::bad_frame(const std::string& problem) { respond_error(nullptr, kParseError, problem); }

void Server::note_cancel(std::string_view body) {
  if (body.find("$/cancelRequest") == std::string_view::npos) return;
  const Json message = Json::parse(body, nullptr, false);
  if (message.is_discarded() || string_member(message, "method") != "$/cancelRequest") return;
  const Json& id = member(member(message, "params"), "id");
  if (id.is_string() || id.is_number_integer()) cancelled_.insert(id.dump());
}

void Server::handle(std::string_view body) {
  const Json message = Json::parse(body, nullptr, false);
  if (message.is_discarded()) {
    respond_error(nullptr, kParseError, "the message is not valid JSON");
    return;
  }
  const Json& id = member(message, "id");
  const bool has_id = message.is_object() && message.contains("id");
  if (!message.is_object() || string_member(message, "jsonrpc") != "2.0" ||
      (has_id && !id.is_string() && !id.is_number_integer() && !id.is_null())) {
    respond_error(has_id && (id.is_string() || id.is_number_integer()) ? id : Json(nullptr), kInvalidRequest,
                  "not a JSON-RPC 2.0 request or notification");
    return;
  }
  const Json& method = member(message, "method");
  if (!method.is_string()) {
    // A response to a request of ours (we send none that expect one), or nothing at all.
    if (!message.contains("result") && !message.contains("error"))
      respond_error(has_id ? id : Json(nullptr), kInvalidRequest, "a request without a method");
    return;
  }
  const Json& params = member(message, "params");
  if (has_id) request(id, method.get<std::string>(), params);
  else notification(method.get<std::string>(), params);
}

void Server::request(const Json& id, const std::string& method, const Json& params) {
  if (cancelled_.erase(id.dump()) > 0) {
    respond_error(id, kRequestCancelled, "the request was cancelled");
    return;
  }
  if (state_ == State::starting && method != "initialize") {
    respond_error(id, kServerNotInitialized, "the server is not initialized");
    return;
  }
  if (state_ == State::shut_down) {
    respond_error(id, kInvalidRequest, "the server is shut down");
    return;
  }
  if (method == "initialize") {
    if (state_ != State::starting) {
      respond_error(id, kInvalidRequest, "the server is already initialized");
      return;
    }
    respond(id, initialize(params));
  } else if (method == "textDocument/documentSymbol") {
    const std::vector<OutlineSymbol>* symbols = outline(params);
    const Document* d = documents_.find(string_member(member(params, "textDocument"), "uri"));
    respond(id, symbols && d ? document_symbols(*symbols, d->text) : Json::array());
  } else if (method == "textDocument/definition") {
    respond(id, definition(params));
  } else if (method == "textDocument/hover") {
    respond(id, hover(params));
  } else if (method == "textDocument/references") {
    respond(id, references(params));
  } else if (method == "textDocument/rename") {
    rename(id, params);
  } else if (method == "textDocument/completion") {
    respond(id, completion(params));
  } else if (method == "workspace/symbol") {
    respond(id, workspace_symbol(params));
  } else if (method == "textDocument/foldingRange") {
    const std::vector<OutlineSymbol>* symbols = outline(params);
    const Document* d = documents_.find(string_member(member(params, "textDocument"), "uri"));
    const auto index = d ? indexes_.find(d->uri) : indexes_.end();
    respond(id, symbols && index != indexes_.end() ? folding_ranges(*symbols, index->second.xref.blocks, d->path)
                                                   : Json::array());
  } else if (method == "shutdown") {
    state_ = State::shut_down;
    due_.clear();
    respond(id, nullptr);
  } else {
    respond_error(id, kMethodNotFound, "method not supported: " + method);
  }
}

void Server::notification(const std::string& method, const Json& params) {
  if (method == "exit") {
    exited_ = true;
    return;
  }
  if (state_ != State::running) return;  // before initialize and after shutdown: dropped
  if (method == "textDocument/didOpen") did_open(params);
  else if (method == "textDocument/didChange") did_change(params);
  else if (method == "textDocument/didSave") did_save(params);
  else if (method == "textDocument/didClose") did_close(params);
  else if (method == "workspace/didChangeConfiguration") did_change_configuration(params);
  // "initialized", "$/cancelRequest" (taken before the requests of its read: note_cancel) and
  // the rest need nothing.
}

Json Server::initialize(const Json& params) {
  root_ = root_of(params);
  init_options_ = member(params, "initializationOptions");
  load_settings(nullptr);
  state_ = State::running;
  std::string version = kVersionText;
  return {{"capabilities",
           {{"positionEncoding", "utf-16"},
            {"documentSymbolProvider", true},
            {"foldingRangeProvider", true},
            {"definitionProvider", true},
            {"hoverProvider", true},
            {"referencesProvider", true},
            {"renameProvider", true},
            {"completionProvider", {{"triggerCharacters", {"."}}}},
            {"workspaceSymbolProvider", true},
            {"textDocumentSync", {{"openClose", true}, {"change", 2}, {"save", {{"includeText", true}}}}}}},
          {"serverInfo", {{"name", "tavls"}, {"version", version}}}};
}

// The environment, then tavls.json, then the client's initializationOptions, then what the client
// last sent with didChangeConfiguration.
void Server::load_settings(const Json& client_settings) {
  std::vector<std::string> problems;
  settings_ = Settings::from_environment(root_);
  settings_.apply_file(problems);
  settings_.apply(init_options_, problems);
  if (!client_settings.is_null()) client_settings_ = client_settings;
  settings_.apply(client_settings_, problems);
  for (const std::string& p : problems) log(p);
}

void Server::did_open(const Json& params) {
  const Json& item = member(params, "textDocument");
  const std::string uri = string_member(item, "uri");
  const Json& text = member(item, "text");
  if (uri.empty() || !text.is_string()) return;
  documents_.open(uri, text.get<std::string>(), int_member(item, "version"));
  schedule(uri, Clock::duration::zero());
}

void Server::did_change(const Json& params) {
  const Json& item = member(params, "textDocument");
  const std::string uri = string_member(item, "uri");
  if (!documents_.change(uri, int_member(item, "version"), member(params, "contentChanges"))) {
    if (documents_.find(uri)) log("a change of " + uri + " could not be applied; the text may be out of step");
    return;
  }
  schedule(uri, kDebounce);
}

void Server::did_save(const Json& params) {
  const std::string uri = string_member(member(params, "textDocument"), "uri");
  Document* d = documents_.find(uri);
  if (!d) return;
  if (const Json& text = member(params, "text"); text.is_string()) d->text = text.get<std::string>();
  schedule(uri, Clock::duration::zero());
}

void Server::did_close(const Json& params) {
  const std::string uri = string_member(member(params, "textDocument"), "uri");
  due_.erase(uri);
  outlines_.erase(uri);
  definitions_.erase(uri);
  indexes_.erase(uri);
  documents_.close(uri);
  for (const std::string& published : published_[uri]) publish(published, Json::array(), nullptr);
  published_.erase(uri);
}

void Server::did_change_configuration(const Json& params) {
  Json settings = member(params, "settings");
  if (settings.is_object() && settings.contains("tavls")) settings = settings["tavls"];
  load_settings(settings.is_null() ? Json::object() : settings);
  for (const std::string& uri : documents_.uris()) schedule(uri, Clock::duration::zero());
}

void Server::schedule(const std::string& uri, Clock::duration delay) { due_[uri] = Clock::now() + delay; }

int Server::next_due_ms() const {
  if (due_.empty()) return -1;
  Clock::time_point first = Clock::time_point::max();
  for (const auto& [uri, when] : due_) first = std::min(first, when);
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(first - Clock::now()).count();
  return left <= 0 ? 0 : static_cast<int>(std::min<long long>(left, 60000));
}

void Server::run_due_compiles() {
  const Clock::time_point now = Clock::now();
  std::vector<std::string> ready;
  for (const auto& [uri, when] : due_)
    if (when <= now) ready.push_back(uri);
  for (const std::string& uri : ready) {
    due_.erase(uri);
    if (Document* d = documents_.find(uri)) compile_and_publish(*d);
  }
}

void Server::compile_and_publish(Document& d) {
  if (d.path.empty()) return;  // not a file: nothing to compile it as
  CompileResult result = compiler_.compile(d.path, d.text, settings_);
  outlines_[d.uri] = std::move(result.outline);
  definitions_[d.uri] = std::move(result.definitions);
  indexes_[d.uri] = {std::move(result.xref), std::move(result.hovers), std::move(result.object_fields),
                     std::move(result.library_sources)};
  const std::vector<Diagnostic>& items = result.diagnostics;
  DiskLines disk;
  const LineIndex own(d.text);
  const LineText lines = [&](const std::string& path, int line) -> std::optional<std::string> {
    if (path == d.path) return std::string(own.line(line - 1));
    return disk.line(path, line);
  };
  std::map<std::string, Json> by_uri = diagnostics_by_uri(items, d.path, lines);
  std::set<std::string>& before = published_[d.uri];
  for (const std::string& uri : before)
    if (!by_uri.count(uri)) by_uri[uri] = Json::array();  // gone from that file: cleared there
  before.clear();
  for (auto& [uri, list] : by_uri) {
    if (!list.empty() || uri == d.uri) before.insert(uri);
    publish(uri, std::move(list), uri == d.uri ? &d : nullptr);
  }
}

const std::vector<OutlineSymbol>* Server::outline(const Json& params) {
  const std::string uri = string_member(member(params, "textDocument"), "uri");
  Document* d = documents_.find(uri);
  if (!d) return nullptr;
  if (due_.erase(uri) > 0 || !outlines_.count(uri)) compile_and_publish(*d);
  const auto it = outlines_.find(uri);
  return it == outlines_.end() ? nullptr : &it->second;
}

void Server::publish(const std::string& uri, Json diagnostics, const Document* d) {
  Json params{{"uri", uri}, {"diagnostics", std::move(diagnostics)}};
  if (d) params["version"] = d->version;
  notify("textDocument/publishDiagnostics", std::move(params));
}

void Server::respond(const Json& id, Json result) {
  send({{"jsonrpc", "2.0"}, {"id", id}, {"result", std::move(result)}});
}

void Server::respond_error(const Json& id, int code, const std::string& message) {
  send({{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", code}, {"message", message}}}});
}

void Server::notify(const std::string& method, Json params) {
  send({{"jsonrpc", "2.0"}, {"method", method}, {"params", std::move(params)}});
}

void Server::log(const std::string& message) {
  notify("window/logMessage", {{"type", 2}, {"message", "tavls: " + message}});
}

void Server::send(const Json& message) {
  // Texts come from users' files: bytes that are not UTF-8 become U+FFFD.
  write_all(out_fd_, framed(message.dump(-1, ' ', false, Json::error_handler_t::replace)));
}

// textDocument/definition: the file an #include line names, or where the program defines the name
// under the cursor (the newest text is compiled first when a compile is waiting).
Json Server::definition(const Json& params) {
  const std::string uri = string_member(member(params, "textDocument"), "uri");
  Document* d = documents_.find(uri);
  if (!d) return nullptr;
  if (due_.erase(uri) > 0 || !definitions_.count(uri)) compile_and_publish(*d);
  const Json& position = member(params, "position");
  const int line = int_member(position, "line");
  const LineIndex lines(d->text);
  if (line < 0 || line >= lines.count()) return nullptr;
  const std::string_view text = lines.line(line);
  const size_t line_start = static_cast<size_t>(text.data() - d->text.data());
  const size_t at = offset_of(d->text, line, int_member(position, "character")) - line_start;
  const auto location = [](const std::string& path, int l, int from, int to) {
    return Json{{"uri", uri_of_path(path)},
                {"range", {{"start", {{"line", l}, {"character", from}}}, {"end", {{"line", l}, {"character", to}}}}}};
  };
  if (const std::string name = included_name(text); !name.empty()) {
    const std::string found = find_include(*d, name);
    return found.empty() ? Json(nullptr) : location(found, 0, 0, 0);
  }
  SourceLines source = source_lines();
  if (const Definition* def = resolve(definitions_[uri], word_at(text, at), d->path, line + 1))
    return location_of(def->where, source);
  const XrefSymbol* s = symbol_at(indexes_[uri].xref, d->path, line + 1, character_column(text, at));
  if (!s) return nullptr;
  // Reports and modes, and any other name the cross reference places.
  if (s->definition.known()) return location_of(s->definition, source);
  // A routine of a component library: its EXPORT in the library's source, when that is there.
  if (s->kind == XrefKind::section)
    for (const std::string& library : indexes_[uri].library_sources)
      if (const std::optional<SourceRange> exported = exported_routine(library, s->name))
        return location_of(*exported, source);
  // A dictionary's field or object: its definition as tavdict dump shows it, read only.
  if (s->origin == XrefSymbol::Origin::dictionary)
    if (const auto view = compiler_.dictionary_view(s->kind, s->name, settings_))
      return location(view->first, view->second - 1, 0, 0);
  return nullptr;
}

// An include as tavpp finds it: beside the document, then in the include directories.
std::string Server::find_include(const Document& d, const std::string& name) const {
  std::vector<std::string> candidates;
  if (!name.empty() && name.front() == '/') candidates.push_back(name);
  else {
    candidates.push_back(d.path.substr(0, d.path.rfind('/') + 1) + name);
    for (const std::string& dir : settings_.include_dirs()) candidates.push_back(settings_.absolute(dir) + "/" + name);
  }
  for (const std::string& c : candidates)
    if (std::ifstream(c).good()) return c;
  return {};
}

Document* Server::current(const Json& params) {
  const std::string uri = string_member(member(params, "textDocument"), "uri");
  Document* d = documents_.find(uri);
  if (d && (due_.erase(uri) > 0 || !indexes_.count(uri))) compile_and_publish(*d);
  return d;
}

bool Server::position(const Document& d, const Json& params, int& line, int& column, std::string& before) const {
  const Json& at = member(params, "position");
  const int l = int_member(at, "line");
  const LineIndex lines(d.text);
  if (l < 0 || l >= lines.count()) return false;
  const std::string_view text = lines.line(l);
  const size_t start = static_cast<size_t>(text.data() - d.text.data());
  const size_t offset = offset_of(d.text, l, int_member(at, "character")) - start;
  line = l + 1;
  column = character_column(text, offset);
  before = std::string(text.substr(0, offset));
  return true;
}

const XrefSymbol* Server::symbol_at_position(const Json& params, Document*& d) {
  d = current(params);
  int line = 0, column = 0;
  std::string before;
  if (!d || !position(*d, params, line, column, before)) return nullptr;
  const auto it = indexes_.find(d->uri);
  if (it == indexes_.end()) return nullptr;
  // The cursor may stand just after the word.
  const XrefSymbol* s = lsp::symbol_at(it->second.xref, d->path, line, column);
  return s || column <= 1 ? s : lsp::symbol_at(it->second.xref, d->path, line, column - 1);
}

SourceLines Server::source_lines() {
  return SourceLines([this](const std::string& path) -> const std::string* {
    for (const std::string& uri : documents_.uris())
      if (const Document* d = documents_.find(uri); d && d->path == path) return &d->text;
    return nullptr;
  });
}

// textDocument/hover: what the name under the cursor is, and how a SELECT or GET reads the
// object named there.
Json Server::hover(const Json& params) {
  Document* d = nullptr;
  const XrefSymbol* s = symbol_at_position(params, d);
  if (!s) return nullptr;
  const Index& index = indexes_[d->uri];
  const size_t n = static_cast<size_t>(s - index.xref.symbols.data());
  std::string text = n < index.hovers.size() ? index.hovers[n] : std::string();
  int line = 0, column = 0;
  std::string before;
  position(*d, params, line, column, before);
  for (const XrefObjectRead& r : index.xref.reads)
    if (r.at.file == d->path && r.at.line == line && column >= r.at.column && column <= r.at.end_column)
      text += "\n\n" + read_text(r);
  if (text.empty()) return nullptr;
  return {{"contents", {{"kind", "markdown"}, {"value", text}}}};
}

// textDocument/references: every place of the name, across the program's files.
Json Server::references(const Json& params) {
  Document* d = nullptr;
  const XrefSymbol* s = symbol_at_position(params, d);
  if (!s) return Json::array();
  const bool with_definition = member(member(params, "context"), "includeDeclaration") != Json(false);
  SourceLines lines = source_lines();
  return lsp::references(*s, with_definition, lines);
}

// textDocument/rename: the new name at every place, or an error that says why not.
void Server::rename(const Json& id, const Json& params) {
  Document* d = nullptr;
  const XrefSymbol* s = symbol_at_position(params, d);
  if (!s) {
    respond_error(id, kRequestFailed, "no name the program defines is here");
    return;
  }
  const std::string name = string_member(params, "newName");
  if (const std::string why = rename_refusal(*s, name); !why.empty()) {
    respond_error(id, kRequestFailed, why);
    return;
  }
  SourceLines lines = source_lines();
  respond(id, rename_edit(*s, name, lines));
}

// textDocument/completion: statement words where a statement begins, clause words after a
// verb, the names in scope, and an object's fields after "object.".
Json Server::completion(const Json& params) {
  Document* d = current(params);
  int line = 0, column = 0;
  std::string before;
  if (!d || !position(*d, params, line, column, before)) return Json::array();
  const CompletionContext context = completion_context(before);
  const auto it = indexes_.find(d->uri);
  const Index* index = it == indexes_.end() ? nullptr : &it->second;
  std::vector<std::string> fields;
  if (context.kind == CompletionContext::Kind::object_fields) {
    // The program's objects first; one it has not named may be a dictionary's.
    if (index)
      if (const auto known = index->object_fields.find(context.object); known != index->object_fields.end())
        fields = known->second;
    if (fields.empty()) fields = compiler_.dictionary_fields(context.object, settings_);
  }
  const std::vector<std::string> objects =
      context.kind == CompletionContext::Kind::names ? compiler_.dictionary_objects(settings_) : std::vector<std::string>();
  return completion_items(context, index ? &index->xref : nullptr, d->path, line, fields, objects);
}

// workspace/symbol: the names every open document defines.
Json Server::workspace_symbol(const Json& params) {
  const std::string query = string_member(params, "query");
  Json out = Json::array();
  SourceLines lines = source_lines();
  for (const std::string& uri : documents_.uris()) {
    Document* d = documents_.find(uri);
    if (!d) continue;
    if (due_.erase(uri) > 0 || !indexes_.count(uri)) compile_and_publish(*d);
    workspace_symbols(indexes_[uri].xref, query, lines, out);
  }
  return out;
}

}  // namespace tav::lsp
