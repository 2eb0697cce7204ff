// The language server, started as the product's tavls over pipes: the diagnostics it publishes
// for a buffer are the ones tavcmp's json format gives for the same text, it survives what a
// broken client sends, and its lifecycle ends with the status the protocol asks for.
#include <filesystem>
#include <map>
#include <set>
#include <thread>

#include "tests/e2e/driver_fixture.h"
#include "tests/support/lsp_client.h"

namespace {

using namespace drvtest;
using Json = nlohmann::json;
using tavtest::LspClient;
namespace fs = std::filesystem;

std::string uri_of(const std::string& path) {
  std::string uri = "file://";
  for (unsigned char c : path) {
    if (std::isalnum(c) || std::string_view("/-._~").find(static_cast<char>(c)) != std::string_view::npos) {
      uri += static_cast<char>(c);
    } else {
      char hex[4];
      std::snprintf(hex, sizeof hex, "%%%02X", c);
      uri += hex;
    }
  }
  return uri;
}

// UTF-16 units of the first `bytes` bytes of a UTF-8 line (a byte that begins no sequence: one).
int utf16_units(const std::string& line, size_t bytes) {
  int units = 0;
  for (size_t at = 0; at < bytes && at < line.size();) {
    const auto c = static_cast<unsigned char>(line[at]);
    const size_t length = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
    units += length == 4 ? 2 : 1;
    at += length;
  }
  return units + static_cast<int>(bytes > line.size() ? bytes - line.size() : 0);
}

std::string line_of(const std::string& path, int line) {
  std::istringstream in(file_exists(path) ? read_file(path) : "");
  std::string text;
  for (int l = 0; l < line && std::getline(in, text);) ++l;
  return text;
}

// One diagnostic, as both sides can state it: the file's URI, the range in UTF-16 units, the
// severity, the code and the message; the notes with a place as "uri:line: message".
struct Seen {
  std::string uri;
  int line = 0, start = 0, end = 0, severity = 0;
  std::string code, message;
  std::set<std::string> related;
  int byte_start = 0;  // tavcmp's byte column, from 0 (not compared)
  bool operator<(const Seen& o) const {
    return std::tie(uri, line, start, code, message) < std::tie(o.uri, o.line, o.start, o.code, o.message);
  }
  bool operator==(const Seen& o) const {
    return std::tie(uri, line, start, end, severity, code, message, related) ==
           std::tie(o.uri, o.line, o.start, o.end, o.severity, o.code, o.message, o.related);
  }
};

void PrintTo(const Seen& s, std::ostream* os) {
  *os << s.uri << ":" << s.line << ":" << s.start << "-" << s.end << " sev " << s.severity << " [" << s.code << "] "
      << s.message;
  for (const std::string& r : s.related) *os << " {" << r << "}";
}

// tavcmp's json diagnostics for `program` in `dir`, as the server should publish them: names
// relative to `dir`, the caret's byte column turned into UTF-16 units, a diagnostic without a
// place at the start of the program, a note without a place of its own in the message.
std::vector<Seen> expected(const std::string& dir, const std::string& program, std::vector<std::string> options = {"-n"}) {
  options.insert(options.begin(), {"-t", "--diagnostics-format=json"});
  options.push_back(dir + "/" + program);  // named as the server names it
  const RunResult r = tavtest::tavcmp(dir, options);
  const Json all = Json::parse(r.out);
  std::vector<Seen> out;
  const auto place = [&](const Json& location, Seen& s) {
    const Json& caret = location["caret"];
    std::string file = caret["file"].get<std::string>();
    file = fs::path(file[0] == '/' ? file : dir + "/" + file).lexically_normal().string();
    s.uri = uri_of(file);
    s.line = caret["line"].get<int>() - 1;
    const std::string text = line_of(file, s.line + 1);
    const size_t from = caret["byte-column"].get<size_t>() - 1;
    s.start = utf16_units(text, from);
    s.byte_start = static_cast<int>(from);
    const size_t last = location.contains("finish") ? location["finish"]["byte-column"].get<size_t>() - 1 : from;
    const size_t last_length = last < text.size() ? std::max<size_t>(1, (static_cast<unsigned char>(text[last]) >= 0xF0 ? 4
                                                              : static_cast<unsigned char>(text[last]) >= 0xE0 ? 3
                                                              : static_cast<unsigned char>(text[last]) >= 0xC0 ? 2 : 1))
                                                 : 1;
    s.end = utf16_units(text, last + last_length);
  };
  for (const Json& d : all) {
    Seen s;
    s.uri = uri_of(dir + "/" + program);
    if (!d["locations"].empty()) place(d["locations"][0], s);
    const std::string kind = d["kind"];
    s.severity = kind == "error" ? 1 : kind == "warning" ? 2 : 3;
    s.code = d["code"];
    s.message = d["message"];
    for (const Json& note : d["children"]) {
      // A note the compiler placed nowhere is shown at its diagnostic's place in the json.
      Seen at;
      if (!note["locations"].empty()) place(note["locations"][0], at);
      const bool own_place = !note["locations"].empty() &&
                             !(at.uri == s.uri && at.line == s.line && at.start == s.start && at.end == s.end);
      if (own_place) s.related.insert(at.uri + ":" + std::to_string(at.line) + ":" + std::to_string(at.start) + ": " +
                                      note["message"].get<std::string>());
      else s.message += "\n" + note["message"].get<std::string>();
    }
    out.push_back(std::move(s));
  }
  std::sort(out.begin(), out.end());
  return out;
}

std::vector<Seen> published(const Json& notification) {
  std::vector<Seen> out;
  const Json& params = notification["params"];
  for (const Json& d : params["diagnostics"]) {
    Seen s;
    s.uri = params["uri"];
    s.line = d["range"]["start"]["line"];
    s.start = d["range"]["start"]["character"];
    s.end = d["range"]["end"]["character"];
    s.severity = d["severity"];
    s.code = d["code"];
    s.message = d["message"];
    for (const Json& r : d.value("relatedInformation", Json::array())) {
      const Json& loc = r["location"];
      s.related.insert(loc["uri"].get<std::string>() + ":" + std::to_string(loc["range"]["start"]["line"].get<int>()) +
                       ":" + std::to_string(loc["range"]["start"]["character"].get<int>()) + ": " +
                       r["message"].get<std::string>());
    }
    out.push_back(std::move(s));
  }
  return out;
}

// A started and initialized server, its workspace `root`.
struct Session {
  explicit Session(const std::string& root, Json options = {{"noDictionaries", true}})
      : client({tavtest::program("tavls")}, root, {"TAVRIN=" + tavtest::product_dir()}) {
    const int id = client.request("initialize", {{"processId", nullptr},
                                                 {"rootUri", uri_of(root)},
                                                 {"capabilities", Json::object()},
                                                 {"initializationOptions", std::move(options)}});
    const std::optional<Json> r = client.response(id);
    EXPECT_TRUE(r && r->contains("result")) << (r ? r->dump() : "no answer");
    if (r && r->contains("result")) capabilities = (*r)["result"]["capabilities"];
    client.notify("initialized", Json::object());
  }
  void open(const std::string& path, const std::string& text, int version = 1) {
    client.notify("textDocument/didOpen",
                  {{"textDocument", {{"uri", uri_of(path)}, {"languageId", "tavrin"}, {"version", version}, {"text", text}}}});
  }
  // Every diagnostic published for the files of `uris`, after the document's next compile.
  std::vector<Seen> diagnostics(const std::vector<std::string>& uris) {
    std::vector<Seen> all;
    for (const std::string& uri : uris) {
      std::optional<Json> n = client.diagnostics_for(uri);
      EXPECT_TRUE(n) << "nothing published for " << uri;
      if (!n) continue;
      std::vector<Seen> got = published(*n);
      all.insert(all.end(), got.begin(), got.end());
    }
    std::sort(all.begin(), all.end());
    return all;
  }
  int finish() {
    const int id = client.request("shutdown", nullptr);
    const std::optional<Json> r = client.response(id);
    EXPECT_TRUE(r && r->contains("result") && (*r)["result"].is_null());
    client.notify("exit", nullptr);
    return client.wait_exit();
  }
  LspClient client;
  Json capabilities;
};

// A headless Neovim running session.lua of `dir` with the directory, tavls and the product
// directory as its arguments.
RunResult run_nvim_session(const std::string& nvim, const std::string& dir) {
  tavtest::RunOptions options;
  options.cwd = dir;
  return tavtest::run({nvim, "--headless", "--clean", "-c",
                       "lua loadfile('session.lua')('" + dir + "', '" + tavtest::program("tavls") + "', '" +
                           tavtest::product_dir() + "')"},
                      options);
}

fs::path corpus_dir() { return fs::path(tavtest::source_dir()) / "tests/diagnostics/corpus"; }

// Every program of the diagnostics corpus, opened unsaved under another name: what the server
// publishes, for the program and for the files it includes, is what tavcmp reports for it.
TEST(Tavls, DiagnosticsAreTavcmpsForEveryCorpusProgram) {
  TempDir dir;
  fs::copy(corpus_dir(), dir.path(), fs::copy_options::recursive);
  Session session(dir.path());
  int programs = 0;
  for (const auto& entry : fs::directory_iterator(corpus_dir())) {
    if (entry.path().extension() != ".spl") continue;
    const std::string name = entry.path().filename().string();
    SCOPED_TRACE(name);
    const std::vector<Seen> want = expected(dir.path(), name);
    std::set<std::string> uris{uri_of(dir / name)};
    for (const Seen& s : want) uris.insert(s.uri);
    // The buffer is never saved: the file on disk holds something else.
    const std::string text = read_file(dir / name);
    write_file(dir / name, "procedure main\n  pause\nend\n");
    session.open(dir / name, text);
    EXPECT_EQ(session.diagnostics({uris.begin(), uris.end()}), want);
    write_file(dir / name, text);
    // Closing clears what it published, in every file.
    session.client.notify("textDocument/didClose", {{"textDocument", {{"uri", uri_of(dir / name)}}}});
    EXPECT_EQ(session.diagnostics({uris.begin(), uris.end()}), std::vector<Seen>{});
    ++programs;
  }
  EXPECT_GT(programs, 20);
  EXPECT_EQ(session.finish(), 0);
}

// Positions count UTF-16 units: a word after characters outside the BMP; includes are found
// beside the document and through the configured directories; nothing is written beside it.
TEST(Tavls, PositionsIncludesAndNoFilesWritten) {
  TempDir dir;
  fs::create_directories(dir / "src");
  fs::create_directories(dir / "inc");
  write_file(dir / "src/local.inc", "field local-one pic 9(3)\nfield count pic 9\n");
  write_file(dir / "inc/shared.inc", "field shared-one pic x(4)\n");
  const std::string program =
      "#include \"local.inc\"\n#include \"shared.inc\"\nfield n pic 9(3)\n\nprocedure main\n"
      "  set n = 1 // \xC3\xA4\xF0\x9F\x98\x80\xF0\x9F\x98\x80 and then\n"
      "  set n = \"\xF0\x9F\x98\x80\" + nope\n  set shared-one = \"\xC3\xA4\" \n  set locl-one = 2\nend\n";
  write_file(dir / "src/prog.spl", program);
  const std::vector<Seen> want = expected(dir / "src", "prog.spl", {"-n", "-I", "../inc"});
  ASSERT_FALSE(want.empty());
  const std::vector<std::string> before = list_dir(dir / "src");

  // The settings come from tavls.json in the workspace root.
  write_file(dir / "tavls.json", R"({"noDictionaries": true, "includeDirectories": ["inc"]})");
  Session session(dir.path(), nullptr);
  session.open(dir / "src/prog.spl", program);
  std::set<std::string> uris{uri_of(dir / "src/prog.spl")};
  for (const Seen& s : want) uris.insert(s.uri);
  std::vector<Seen> got = session.diagnostics({uris.begin(), uris.end()});
  // tavcmp names the configured directory as it was given.
  for (Seen& s : got)
    if (s.code == "custom_include_path") s.message.replace(s.message.find("'inc'"), 5, "'../inc'");
  EXPECT_EQ(got, want);
  EXPECT_EQ(list_dir(dir / "src"), before);

  // The client's configuration overrides the file: without the directory, shared.inc is missing.
  session.client.notify("workspace/didChangeConfiguration", {{"settings", {{"tavls", {{"includeDirectories", Json::array()}}}}}});
  const std::vector<Seen> without = expected(dir / "src", "prog.spl", {"-n"});
  ASSERT_TRUE(std::any_of(without.begin(), without.end(), [](const Seen& s) { return s.code == "pp_cant_open_include"; }));
  EXPECT_EQ(session.diagnostics({uri_of(dir / "src/prog.spl")}), without);
  EXPECT_EQ(session.finish(), 0);
}

// Incremental changes in UTF-16 positions, debounced: only the newest text is compiled; an
// include's diagnostics are cleared there when the document no longer includes it.
TEST(Tavls, ChangesAreDebouncedAndIncludesCleared) {
  TempDir dir;
  write_file(dir / "bad.inc", "field count pic 9(3)\n");
  const std::string uri = uri_of(dir / "prog.spl"), inc = uri_of(dir / "bad.inc");
  Session session(dir.path());
  session.open(dir / "prog.spl", "#include \"bad.inc\"\nprocedure main\n  pause\nend\n");
  std::optional<Json> first = session.client.diagnostics_for(inc);
  ASSERT_TRUE(first);
  EXPECT_EQ((*first)["params"]["diagnostics"].size(), 1u);
  ASSERT_TRUE(session.client.diagnostics_for(uri));

  // Three quick edits: the include goes, a word is spelt wrong, then right after a wide character.
  const auto edit = [&](int version, int line, int from, int to, const std::string& text) {
    const Json range = {{"start", {{"line", line}, {"character", from}}}, {"end", {{"line", line}, {"character", to}}}};
    Json change = Json::object();
    change["range"] = range;
    change["text"] = text;
    Json params = Json::object();
    params["textDocument"] = {{"uri", uri}, {"version", version}};
    params["contentChanges"] = Json::array({change});
    const std::string body = Json{{"jsonrpc", "2.0"}, {"method", "textDocument/didChange"}, {"params", params}}.dump();
    return "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  };
  // Sent at once, so that no pause between them lets a compile in.
  session.client.send_raw(edit(2, 0, 0, 18, "// \xF0\x9F\x98\x80") +  // "// <emoji>": 5 units
                          edit(3, 2, 2, 7, "pauze") +
                          edit(4, 0, 5, 5, " x"));  // after the emoji: "// <emoji> x"
  std::optional<Json> cleared = session.client.diagnostics_for(inc);
  ASSERT_TRUE(cleared);
  EXPECT_TRUE((*cleared)["params"]["diagnostics"].empty());
  std::optional<Json> mine = session.client.diagnostics_for(uri);
  ASSERT_TRUE(mine);
  EXPECT_EQ((*mine)["params"]["version"], 4);
  ASSERT_EQ((*mine)["params"]["diagnostics"].size(), 1u) << mine->dump();
  EXPECT_EQ((*mine)["params"]["diagnostics"][0]["range"]["start"], Json({{"line", 2}, {"character", 2}}));
  // Nothing more: the superseded versions were never compiled.
  EXPECT_FALSE(session.client.diagnostics_for(uri, LspClient::Millis(500)));

  // Closing clears what the document published.
  session.client.notify("textDocument/didClose", {{"textDocument", {{"uri", uri}}}});
  std::optional<Json> closed = session.client.diagnostics_for(uri);
  ASSERT_TRUE(closed);
  EXPECT_TRUE((*closed)["params"]["diagnostics"].empty());
  EXPECT_EQ(session.finish(), 0);
}

// The dictionaries are opened for the first compile and again when their files change; one that
// cannot be opened is reported as tavcmp reports it.
TEST(Tavls, DictionariesFollowTheirFiles) {
  TempDir dir;
  const std::string shop =
      "field cust-no pic 9(6)\nfield cust-name pic x(30)\nobject customer type indexed file \"cust\"\n"
      "  record cust-no cust-name end-record\n  key cust-no unique\n";
  load_dictionary(dir, "d/", shop + "field amount pic 9(5)v99\n");
  const std::string program = "object c2 like customer\nprocedure main\n  set amount = 1\n  set c2.cust-name = \"x\"\nend\n";
  write_file(dir / "prog.spl", program);
  const std::vector<std::string> options{"-g", dir / "d/"};
  const std::string uri = uri_of(dir / "prog.spl");
  Session session(dir.path(), {{"globalDictionary", "d/"}});
  const auto saved = [&] {
    session.client.notify("textDocument/didSave", {{"textDocument", {{"uri", uri}}}});
    return session.diagnostics({uri});
  };
  session.open(dir / "prog.spl", program);
  EXPECT_EQ(session.diagnostics({uri}), expected(dir.path(), "prog.spl", options));

  // A dictionary's field: its definition as tavdict dump writes it, in a read-only file.
  const std::optional<Json> def = session.client.response(session.client.request(
      "textDocument/definition", {{"textDocument", {{"uri", uri}}}, {"position", {{"line", 2}, {"character", 7}}}}));
  ASSERT_TRUE(def && (*def)["result"].is_object()) << (def ? def->dump() : "no answer");
  const std::string view = (*def)["result"]["uri"].get<std::string>().substr(7);
  EXPECT_TRUE(view.ends_with("/dictionary/amount.sch")) << view;
  EXPECT_EQ(line_of(view, (*def)["result"]["range"]["start"]["line"].get<int>() + 1).rfind("field amount", 0), 0u)
      << read_file(view);

  fs::remove_all(dir / "d");
  load_dictionary(dir, "d/", shop);  // no amount any more
  std::vector<Seen> want = expected(dir.path(), "prog.spl", options);
  EXPECT_TRUE(std::any_of(want.begin(), want.end(), [](const Seen& s) { return s.message == "Field not defined - 'amount'"; }));
  EXPECT_EQ(saved(), want);

  fs::remove_all(dir / "d");
  want = expected(dir.path(), "prog.spl", options);
  ASSERT_EQ(want.size(), 1u);
  EXPECT_EQ(want[0].code, "dict_open_failed");
  EXPECT_EQ(saved(), want);
  EXPECT_EQ(session.finish(), 0);
}

// The outline: fields, objects, modes, reports and sections where they are defined, a section's
// parts inside it, each section folding to its last line and each block of statements to its
// closing word; the newest text is compiled before answering.
TEST(Tavls, OutlineAndFolding) {
  TempDir dir;
  const std::string uri = uri_of(dir / "prog.spl");
  Session session(dir.path());
  EXPECT_TRUE(session.capabilities["documentSymbolProvider"].get<bool>());
  session.open(dir / "prog.spl", "procedure main\n  pause\nend\n");
  session.client.notify("textDocument/didChange", Json::parse(R"({"textDocument": {"uri": ")" + uri + R"(", "version": 2},
      "contentChanges": [{"text": "field n pic 9(3)\nobject cust type indexed file \"cust\"\n  record n end-record\n  key n unique\nmode archive prompt \"Arch\"\nscreen cust-entry\n  before\n    set n = 1\n  detail\n    accept n @ 2,2\n  after\n    pause\nend-screen\n\nprocedure main\n  do cust-entry\n  if n = 1\n    pause\n  end-if\n  report name listing title \"L\"\nend\n"}]})"));
  const std::optional<Json> symbols = session.client.response(
      session.client.request("textDocument/documentSymbol", {{"textDocument", {{"uri", uri}}}}));
  ASSERT_TRUE(symbols);
  std::vector<std::string> seen;
  const auto line = [](const Json& s) {
    return s["name"].get<std::string>() + " " + s["detail"].get<std::string>() + " " +
           std::to_string(s["range"]["start"]["line"].get<int>()) + "-" + std::to_string(s["range"]["end"]["line"].get<int>()) +
           " at " + std::to_string(s["selectionRange"]["start"]["character"].get<int>());
  };
  for (const Json& s : (*symbols)["result"]) {
    seen.push_back(line(s));
    for (const Json& c : s.value("children", Json::array())) seen.push_back("  " + line(c));
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"n field 0-0 at 6", "cust object 1-1 at 7", "archive mode 4-4 at 5",
                                            "cust-entry screen 5-12 at 7", "  before before 6-7 at 2",
                                            "  detail detail 8-9 at 2", "  after after 10-12 at 2",
                                            "main procedure 14-20 at 10", "listing report 19-19 at 14"}));
  const std::optional<Json> folds =
      session.client.response(session.client.request("textDocument/foldingRange", {{"textDocument", {{"uri", uri}}}}));
  ASSERT_TRUE(folds);
  ASSERT_EQ((*folds)["result"].size(), 6u) << folds->dump();  // the sections, their parts, the IF block
  EXPECT_EQ((*folds)["result"][0]["startLine"], 16);
  EXPECT_EQ((*folds)["result"][0]["endLine"], 18);
  // A document that is not open has no outline.
  const std::optional<Json> none = session.client.response(
      session.client.request("textDocument/documentSymbol", {{"textDocument", {{"uri", uri + "x"}}}}));
  ASSERT_TRUE(none);
  EXPECT_EQ((*none)["result"], Json::array());
  EXPECT_EQ(session.finish(), 0);
}

// Go to definition: a field defined in an include, a section's own field before the global one of
// the same name, the object before a dot, a DO target, and the file an #include line names.
TEST(Tavls, DefinitionsAcrossIncludes) {
  TempDir dir;
  write_file(dir / "fields.inc", "field amount pic 9(5)\nfield n pic 9(3)\n");
  const std::string uri = uri_of(dir / "prog.spl"), inc = uri_of(dir / "fields.inc");
  Session session(dir.path());
  EXPECT_TRUE(session.capabilities["definitionProvider"].get<bool>());
  session.open(dir / "prog.spl",
               "#include \"fields.inc\"\n"
               "object cust type indexed file \"cust\" no-joins\n"
               "  record n end-record\n"
               "  key n unique\n"
               "procedure main\n"
               "  set amount = cust.n\n"
               "  do helper parameters amount\n"
               "end\n"
               "procedure helper parameters n pic 9(5)\n"
               "  set n = 1\n"
               "end\n");
  ASSERT_TRUE(session.client.diagnostics_for(uri));
  // "uri line:from-to" of where the word at (line, character) is defined; "null" for nothing.
  const auto go = [&](int line, int character) {
    const std::optional<Json> r = session.client.response(session.client.request(
        "textDocument/definition", {{"textDocument", {{"uri", uri}}}, {"position", {{"line", line}, {"character", character}}}}));
    if (!r || !r->contains("result")) return std::string("no answer");
    const Json& l = (*r)["result"];
    if (l.is_null()) return std::string("null");
    return l["uri"].get<std::string>() + " " + std::to_string(l["range"]["start"]["line"].get<int>()) + ":" +
           std::to_string(l["range"]["start"]["character"].get<int>()) + "-" +
           std::to_string(l["range"]["end"]["character"].get<int>());
  };
  EXPECT_EQ(go(5, 7), inc + " 0:6-12");   // amount, defined in the include
  EXPECT_EQ(go(5, 15), uri + " 1:7-11");  // cust of cust.n
  EXPECT_EQ(go(5, 20), inc + " 1:6-7");   // n of cust.n: the global field
  EXPECT_EQ(go(6, 6), uri + " 8:10-16");  // the DO target
  EXPECT_EQ(go(9, 6), uri + " 8:28-29");  // n inside helper: its own parameter
  EXPECT_EQ(go(0, 3), inc + " 0:0-0");    // the included file
  EXPECT_EQ(go(4, 0), "null");            // "procedure" is no name the program defines
  EXPECT_EQ(session.finish(), 0);
}

// A routine of a component library: its EXPORT in the library's source beside the library.
TEST(Tavls, DefinitionOfALibraryRoutine) {
  TempDir dir;
  write_file(dir / "lib.spl",
             "procedure main\n  pause\nend-procedure\nprocedure close-day export\n  message \"closed\"\nend-procedure\n");
  ASSERT_EQ(tavcmp(dir.path(), {"-ln", "lib.spl"}).status, 0);
  const std::string uri = uri_of(dir / "prog.spl");
  Session session(dir.path(), {{"noDictionaries", true}, {"erq", dir.path()}});
  session.open(dir / "prog.spl", "link \"lib\"\nprocedure main\n  do close-day\nend\n");
  ASSERT_TRUE(session.client.diagnostics_for(uri));
  const std::optional<Json> r = session.client.response(session.client.request(
      "textDocument/definition", {{"textDocument", {{"uri", uri}}}, {"position", {{"line", 2}, {"character", 6}}}}));
  ASSERT_TRUE(r && (*r)["result"].is_object()) << (r ? r->dump() : "no answer");
  EXPECT_EQ((*r)["result"]["uri"], uri_of(dir / "lib.spl"));
  EXPECT_EQ((*r)["result"]["range"]["start"], Json({{"line", 3}, {"character", 10}}));
  EXPECT_EQ(session.finish(), 0);
}

// What a broken or impatient client sends gets an error and the session goes on; exit without
// shutdown and the end of the input end with status 1.
TEST(Tavls, BadInputAndLifecycle) {
  TempDir dir;
  LspClient client({tavtest::program("tavls")}, dir.path(), {"TAVRIN=" + tavtest::product_dir()});
  const auto error_code = [&](const Json& id) {
    std::optional<Json> r = client.response(id);
    return r && r->contains("error") ? (*r)["error"]["code"].get<int>() : 0;
  };
  EXPECT_EQ(error_code(client.request("textDocument/documentSymbol", Json::object())), -32002);
  client.send_raw("Content-Type: nothing\r\n\r\n");
  EXPECT_EQ(error_code(nullptr), -32700);
  client.send_raw("Content-Length: 5\r\n\r\n{oops");
  EXPECT_EQ(error_code(nullptr), -32700);
  client.send_raw("Content-Length: 5\r\n\r\n[1,2]");
  EXPECT_EQ(error_code(nullptr), -32600);
  client.send({{"jsonrpc", "2.0"}, {"id", 77}, {"params", 3}});
  EXPECT_EQ(error_code(77), -32600);

  const int init = client.request("initialize", {{"rootUri", uri_of(dir.path())}, {"capabilities", Json::object()}});
  std::optional<Json> r = client.response(init);
  ASSERT_TRUE(r && r->contains("result"));
  EXPECT_EQ((*r)["result"]["capabilities"]["textDocumentSync"]["change"], 2);
  EXPECT_EQ(error_code(client.request("initialize", Json::object())), -32600);
  EXPECT_EQ(error_code(client.request("no/such/method", Json::object())), -32601);
  // Changes and closes of documents nobody opened, a cancel of nothing, a change out of range.
  client.notify("textDocument/didChange", Json::parse(R"({"textDocument": {"uri": "file:///nowhere.spl", "version": 2},
                                                         "contentChanges": [{"text": "x"}]})"));
  client.notify("textDocument/didClose", Json::parse(R"({"textDocument": {"uri": "file:///nowhere.spl"}})"));
  client.notify("$/cancelRequest", {{"id", 12345}});
  client.notify("textDocument/didOpen", Json::parse(R"({"textDocument": {"uri": "untitled:1", "text": "x", "version": 1}})"));
  client.notify("textDocument/didChange", Json::parse(R"({"textDocument": {"uri": "untitled:1", "version": 2},
      "contentChanges": [{"range": {"start": {"line": -4, "character": 0}, "end": null}, "text": "y"}]})"));
  EXPECT_EQ(error_code(client.request("no/such/method", Json::object())), -32601);
  client.notify("exit", nullptr);
  EXPECT_EQ(client.wait_exit(), 1);

  // A body too long to take is refused; the bytes that follow are its own, dropped.
  LspClient eof({tavtest::program("tavls")}, dir.path());
  eof.send_raw("Content-Length: 99999999999\r\n\r\n{}");
  std::optional<Json> refused = eof.response(nullptr);
  ASSERT_TRUE(refused);
  EXPECT_EQ((*refused)["error"]["code"], -32700);
  eof.close_input();
  EXPECT_EQ(eof.wait_exit(), 1);
  EXPECT_EQ(list_dir(dir.path()), std::vector<std::string>{});
}

// Neovim's own client (vim.lsp, started from a script) opens a program with mistakes, then the
// buffer is changed without saving: the diagnostics it holds are tavcmp's for the changed text,
// at the byte columns tavcmp gives (the server counts UTF-16 units, Neovim turns them back).
TEST(Tavls, NeovimReceivesTavcmpsDiagnostics) {
  const std::string nvim = nvim_program();
  if (nvim.empty()) GTEST_FAIL() << "nvim is needed (Debian package neovim)";
  TempDir dir;
  const std::string first = "field n pic 9(3)\n\nprocedure main\n  if n > 1\n    set n = 2\nend-procedure\n";
  const std::string added = "  set n = \"\xC3\xA4\xF0\x9F\x98\x80\" + nope";
  write_file(dir / "prog.spl", first);
  write_file(dir / "session.lua", R"lua(
local dir, tavls, product = ...
local function session()
local prog = dir .. '/prog.spl'
local publishes = 0
local client = vim.lsp.start_client({
  name = 'tavls', cmd = { tavls }, root_dir = dir, cmd_env = { TAVRIN = product },
  init_options = { noDictionaries = true },
  handlers = {
    ['textDocument/publishDiagnostics'] = function(err, result, ctx, config)
      vim.lsp.diagnostic.on_publish_diagnostics(err, result, ctx, config)
      if result.uri == vim.uri_from_fname(prog) then publishes = publishes + 1 end
    end,
  },
})
vim.cmd('edit ' .. prog)
local buf = vim.api.nvim_get_current_buf()
vim.lsp.buf_attach_client(buf, client)
local out = {}
if not vim.wait(20000, function() return publishes >= 1 end, 20) then out = { 'no diagnostics after opening' } end
vim.api.nvim_buf_set_lines(buf, 5, 5, false, { vim.fn.readfile(dir .. '/added.txt', 'b')[1] })
if not vim.wait(20000, function() return publishes >= 2 end, 20) then out = { 'no diagnostics after the change' } end
for _, d in ipairs(vim.diagnostic.get(buf)) do
  table.insert(out, string.format('%d:%d:%s:%s', d.lnum + 1, d.col + 1, tostring(d.code), (d.message:gsub('\n', ' | '))))
end
table.sort(out)
vim.fn.writefile(out, dir .. '/seen.txt')
vim.lsp.stop_client(client)
end
local ok, problem = pcall(session)
if not ok then vim.fn.writefile({ 'error: ' .. tostring(problem) }, dir .. '/seen.txt') end
vim.cmd('qa!')
)lua");
  write_file(dir / "added.txt", added + "\n");
  // What tavcmp says of the changed text, saved under another name in the same directory.
  std::string changed = first;
  changed.insert(changed.find("end-procedure"), added + "\n");
  write_file(dir / "changed.spl", changed);
  std::vector<std::string> want;
  for (const Seen& s : expected(dir.path(), "changed.spl")) {
    std::string message = s.message;
    for (size_t at; (at = message.find('\n')) != std::string::npos;) message.replace(at, 1, " | ");
    want.push_back(std::to_string(s.line + 1) + ":" + std::to_string(s.byte_start + 1) + ":" + s.code + ":" + message);
  }
  std::sort(want.begin(), want.end());
  ASSERT_GE(want.size(), 3u);
  const RunResult r = run_nvim_session(nvim, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  std::vector<std::string> seen;
  std::istringstream lines(read_file(dir / "seen.txt"));
  for (std::string line; std::getline(lines, line);) seen.push_back(line);
  EXPECT_EQ(seen, want);
}

// Neovim's client goes to a definition: from a use of a field to its line in the include that
// defines it, with the cursor on the name.
TEST(Tavls, NeovimGoesToADefinitionInAnInclude) {
  const std::string nvim = nvim_program();
  if (nvim.empty()) GTEST_FAIL() << "nvim is needed (Debian package neovim)";
  TempDir dir;
  write_file(dir / "fields.inc", "// the shop's fields\nfield amount pic 9(5)\n");
  write_file(dir / "prog.spl", "#include \"fields.inc\"\nprocedure main\n  set amount = 1\nend\n");
  write_file(dir / "session.lua", R"lua(
local dir, tavls, product = ...
local function session()
local prog = dir .. '/prog.spl'
local published = false
local client = vim.lsp.start_client({
  name = 'tavls', cmd = { tavls }, root_dir = dir, cmd_env = { TAVRIN = product },
  init_options = { noDictionaries = true },
  handlers = { ['textDocument/publishDiagnostics'] = function() published = true end },
})
vim.cmd('edit ' .. prog)
local buf = vim.api.nvim_get_current_buf()
vim.lsp.buf_attach_client(buf, client)
if not vim.wait(20000, function() return published end, 20) then error('nothing published') end
vim.api.nvim_win_set_cursor(0, { 3, 8 })  -- on "amount"
vim.lsp.buf.definition()
if not vim.wait(20000, function() return vim.api.nvim_get_current_buf() ~= buf end, 20) then error('no jump') end
local at = vim.api.nvim_win_get_cursor(0)
vim.fn.writefile({ vim.fn.fnamemodify(vim.api.nvim_buf_get_name(0), ':t') .. ':' .. at[1] .. ':' .. at[2] }, dir .. '/seen.txt')
vim.lsp.stop_client(client)
end
local ok, problem = pcall(session)
if not ok then vim.fn.writefile({ 'error: ' .. tostring(problem) }, dir .. '/seen.txt') end
vim.cmd('qa!')
)lua");
  const RunResult r = run_nvim_session(nvim, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(read_file(dir / "seen.txt"), "fields.inc:2:6\n");  // line 2, byte 6: "amount"
}

// Hover, references, rename, completion and the workspace's symbols answered from the
// compile's cross reference, across an include.
TEST(Tavls, NamesAnsweredFromTheCrossReference) {
  TempDir dir;
  write_file(dir / "fields.inc", "field amount pic 9(5)\nfield n pic 9(3)\n");
  const std::string uri = uri_of(dir / "prog.spl"), inc = uri_of(dir / "fields.inc");
  Session session(dir.path());
  for (const char* provider : {"hoverProvider", "referencesProvider", "renameProvider", "workspaceSymbolProvider"})
    EXPECT_TRUE(session.capabilities[provider].get<bool>()) << provider;
  session.open(dir / "prog.spl",
               "#include \"fields.inc\"\n"
               "object cust type indexed file \"cust\" no-joins\n"
               "  record n amount end-record\n"
               "  key n unique\n"
               "procedure main\n"
               "  set amount = cust.n\n"
               "  select cust.n from cust where cust.n = 5\n"
               "  detail\n"
               "    do helper\n"
               "  end-select\n"
               "end\n"
               "procedure helper\n"
               "  set amount = amount + 1\n"
               "  get cust key 5 lock\n"
               "end\n");
  ASSERT_TRUE(session.client.diagnostics_for(uri));
  const auto ask = [&](const std::string& method, Json params) {
    params["textDocument"] = {{"uri", uri}};
    const std::optional<Json> r = session.client.response(session.client.request(method, std::move(params)));
    return r ? *r : Json();
  };
  const auto at = [](int line, int character) { return Json{{"line", line}, {"character", character}}; };
  const auto place = [](const Json& location) {
    return location["uri"].get<std::string>() + " " + std::to_string(location["range"]["start"]["line"].get<int>()) +
           ":" + std::to_string(location["range"]["start"]["character"].get<int>()) + "-" +
           std::to_string(location["range"]["end"]["character"].get<int>());
  };

  // A field: its picture, size and where it is defined; an object of a SELECT: how it is read.
  std::string hover = ask("textDocument/hover", {{"position", at(5, 7)}})["result"]["contents"]["value"];
  EXPECT_TRUE(contains(hover, "field amount pic 9(5)")) << hover;
  EXPECT_TRUE(contains(hover, "defined at fields.inc:1")) << hover;
  hover = ask("textDocument/hover", {{"position", at(6, 23)}})["result"]["contents"]["value"];
  EXPECT_TRUE(contains(hover, "object cust")) << hover;
  EXPECT_TRUE(contains(hover, "key 1: n")) << hover;
  EXPECT_TRUE(contains(hover, "**select** reads `cust` by index 1")) << hover;
  EXPECT_TRUE(contains(hover, "`n >= 5 and n <= 5`")) << hover;  // the key range
  EXPECT_TRUE(ask("textDocument/hover", {{"position", at(4, 2)}})["result"].is_null());  // a keyword

  // Every place of amount, the definition in the include first.
  std::vector<std::string> places;
  const Json refs = ask("textDocument/references", {{"position", at(12, 16)}, {"context", {{"includeDeclaration", true}}}});
  for (const Json& l : refs["result"]) places.push_back(place(l));
  EXPECT_EQ(places, (std::vector<std::string>{inc + " 0:6-12", uri + " 2:11-17", uri + " 5:6-12", uri + " 12:6-12",
                                              uri + " 12:15-21"}));

  // A section renamed at its definition and its DO; a keyword and a built-in name are refused.
  const Json edit = ask("textDocument/rename", {{"position", at(8, 8)}, {"newName", "worker"}})["result"];
  places.clear();
  for (const Json& e : edit["changes"][uri]) {
    EXPECT_EQ(e["newText"], "worker");
    places.push_back(std::to_string(e["range"]["start"]["line"].get<int>()) + ":" +
                     std::to_string(e["range"]["start"]["character"].get<int>()));
  }
  EXPECT_EQ(places, (std::vector<std::string>{"11:10", "8:7"}));
  const Json refused = ask("textDocument/rename", {{"position", at(8, 8)}, {"newName", "select"}});
  EXPECT_EQ(refused["error"]["message"], "'select' is a reserved word") << refused.dump();
  EXPECT_TRUE(ask("textDocument/rename", {{"position", at(4, 2)}, {"newName", "x"}}).contains("error"));

  // Completion: statement words where a statement begins, an object's fields after its dot,
  // the names in scope and the statement's clause words after a verb.
  const auto labels = [&](int line, int character) {
    std::set<std::string> out;
    const Json items = ask("textDocument/completion", {{"position", at(line, character)}});
    for (const Json& item : items["result"]) out.insert(item["label"].get<std::string>());
    return out;
  };
  std::set<std::string> got = labels(7, 2);  // "  detail": where a statement begins
  EXPECT_TRUE(got.count("select") && got.count("procedure") && got.count("set")) << got.size();
  got = labels(5, 20);  // after "cust."
  EXPECT_EQ(got, (std::set<std::string>{"n", "amount"}));
  got = labels(5, 6);  // after "set "
  EXPECT_TRUE(got.count("amount") && got.count("helper") && got.count("cust")) << got.size();
  got = labels(13, 11);  // after "get cust ": GET's clause words, not SELECT's
  EXPECT_TRUE(got.count("key") && got.count("next") && got.count("lock") && got.count("amount")) << got.size();
  EXPECT_FALSE(got.count("where") || got.count("order")) << got.size();

  // The workspace's symbols: what the open documents define.
  const std::optional<Json> symbols =
      session.client.response(session.client.request("workspace/symbol", {{"query", "help"}}));
  ASSERT_TRUE(symbols && (*symbols)["result"].size() == 1) << (symbols ? symbols->dump() : "");
  EXPECT_EQ(place((*symbols)["result"][0]["location"]), uri + " 11:10-16");

  // A request cancelled in the same write is answered as cancelled.
  const auto framed = [](const Json& m) {
    const std::string body = m.dump();
    return "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  };
  session.client.send_raw(framed({{"jsonrpc", "2.0"}, {"id", 900}, {"method", "textDocument/hover"},
                                  {"params", {{"textDocument", {{"uri", uri}}}, {"position", at(5, 7)}}}}) +
                          framed({{"jsonrpc", "2.0"}, {"method", "$/cancelRequest"}, {"params", {{"id", 900}}}}));
  const std::optional<Json> cancelled = session.client.response(900);
  ASSERT_TRUE(cancelled);
  EXPECT_EQ((*cancelled)["error"]["code"], -32800) << cancelled->dump();
  EXPECT_EQ(session.finish(), 0);
}

// Neovim's own client hovers a field, completes after "object.", renames a section and goes to
// a dictionary object's definition.
TEST(Tavls, NeovimHoversCompletesAndRenames) {
  const std::string nvim = nvim_program();
  if (nvim.empty()) GTEST_FAIL() << "nvim is needed (Debian package neovim)";
  TempDir dir;
  load_dictionary(dir, "d/",
                  "field cust-no pic 9(6)\nobject customer type indexed file \"cust\"\n"
                  "  record cust-no end-record\n  key cust-no unique\n");
  write_file(dir / "prog.spl",
             "field amount pic 9(5)\n"
             "object cust type indexed file \"cust\" no-joins\n"
             "  record amount end-record\n"
             "  key amount unique\n"
             "procedure main\n"
             "  set amount = cust.amount\n"
             "  do helper\n"
             "  get customer key 1\n"
             "end\n"
             "procedure helper\n"
             "  pause\n"
             "end\n");
  write_file(dir / "session.lua", R"lua(
local dir, tavls, product = ...
local seen = {}
local function session()
local published = false
local client = vim.lsp.start_client({
  name = 'tavls', cmd = { tavls }, root_dir = dir, cmd_env = { TAVRIN = product },
  init_options = { globalDictionary = 'd/' },
  handlers = { ['textDocument/publishDiagnostics'] = function() published = true end },
})
vim.cmd('edit ' .. dir .. '/prog.spl')
local buf = vim.api.nvim_get_current_buf()
vim.lsp.buf_attach_client(buf, client)
if not vim.wait(20000, function() return published end, 20) then error('nothing published') end
local function ask(method, line, character, extra)
  local params = { textDocument = { uri = vim.uri_from_bufnr(buf) }, position = { line = line, character = character } }
  for k, v in pairs(extra or {}) do params[k] = v end
  local answers = vim.lsp.buf_request_sync(buf, method, params, 20000)
  for _, answer in pairs(answers or {}) do return answer.result end
end
table.insert(seen, 'hover ' .. ask('textDocument/hover', 5, 7).contents.value:match('field amount pic [^\n]*'))
local labels = {}
for _, item in ipairs(ask('textDocument/completion', 5, 20)) do table.insert(labels, item.label) end
table.insert(seen, 'completion ' .. table.concat(labels, ','))
vim.api.nvim_win_set_cursor(0, { 7, 5 })  -- on "helper" of the DO
vim.lsp.buf.rename('worker')
if not vim.wait(20000, function() return vim.api.nvim_buf_get_lines(buf, 9, 10, false)[1] == 'procedure worker' end, 20) then
  error('not renamed')
end
table.insert(seen, 'renamed ' .. vim.api.nvim_buf_get_lines(buf, 6, 7, false)[1])
vim.api.nvim_win_set_cursor(0, { 8, 7 })  -- on "customer", a dictionary's object
vim.lsp.buf.definition()
if not vim.wait(20000, function() return vim.api.nvim_get_current_buf() ~= buf end, 20) then error('no jump') end
table.insert(seen, vim.fn.fnamemodify(vim.api.nvim_buf_get_name(0), ':t') .. ': ' .. vim.api.nvim_get_current_line())
vim.lsp.stop_client(client)
end
local ok, problem = pcall(session)
if not ok then table.insert(seen, 'error: ' .. tostring(problem)) end
vim.fn.writefile(seen, dir .. '/seen.txt')
vim.cmd('qa!')
)lua");
  const RunResult r = run_nvim_session(nvim, dir.path());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(read_file(dir / "seen.txt"),
            "hover field amount pic 9(5)\n"
            "completion amount\n"
            "renamed   do worker\n"
            "customer.sch: object customer type indexed file \"cust\"\n");
}

// Any buffer: the compile fuzzer's seeds and what its corpus has grown to, each opened as an
// unsaved buffer and asked about at places of its first lines; every request is answered and the
// session ends cleanly.
TEST(Tavls, FuzzCorpusReplayedThroughTheServer) {
  const fs::path build = fs::path(tavtest::product_dir()).parent_path();
  std::vector<fs::path> inputs;
  for (const fs::path& dir : {build / "tests/fuzz/inputs/seeds", build / "tests/fuzz/compile_fuzz.corpus"}) {
    std::vector<fs::path> files;
    if (fs::is_directory(dir))
      for (const auto& entry : fs::directory_iterator(dir)) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    if (files.size() > 50) files.resize(50);
    inputs.insert(inputs.end(), files.begin(), files.end());
  }
  for (const auto& entry : fs::directory_iterator(fs::path(tavtest::source_dir()) / "tests/fuzz"))
    if (entry.path().extension() == ".spl") inputs.push_back(entry.path());
  ASSERT_FALSE(inputs.empty());
  TempDir dir;
  Session session(dir.path());
  int answered = 0, asked = 0;
  for (size_t n = 0; n < inputs.size(); ++n) {
    std::string text = read_file(inputs[n]);
    if (inputs[n].extension() != ".spl" && !text.empty()) text.erase(0, 1);  // the fuzzer's option byte
    for (char& c : text)
      if (static_cast<unsigned char>(c) >= 0x80 || c == '\0') c = '?';  // the protocol carries UTF-8
    const std::string path = dir / ("in" + std::to_string(n) + ".spl");
    const std::string uri = uri_of(path);
    session.open(path, text);
    ASSERT_TRUE(session.client.diagnostics_for(uri)) << inputs[n];
    for (const char* method : {"textDocument/hover", "textDocument/completion", "textDocument/references",
                               "textDocument/definition", "textDocument/documentSymbol", "textDocument/foldingRange"}) {
      for (int line = 0; line < 4; ++line) {
        const Json params{{"textDocument", {{"uri", uri}}}, {"position", {{"line", line}, {"character", 3 * line + 2}}},
                          {"context", {{"includeDeclaration", true}}}};
        ++asked;
        const std::optional<Json> r = session.client.response(session.client.request(method, params));
        if (r && (r->contains("result") || r->contains("error"))) ++answered;
      }
    }
    session.client.notify("textDocument/didClose", {{"textDocument", {{"uri", uri}}}});
  }
  EXPECT_EQ(answered, asked);
  EXPECT_EQ(session.finish(), 0);
}

}  // namespace
