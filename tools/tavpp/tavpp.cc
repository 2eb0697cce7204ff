#include "tavpp.h"

#include <algorithm>
#include <array>
#include <unistd.h>

#include "dependencies.h"
#include "expr.h"
#include "listing.h"
#include "macros.h"
#include "output.h"
#include "source.h"
#include "text.h"

namespace tav::pp {

namespace {

enum class Directive {
#define PP_DIRECTIVE(id, name, conditional) id,
#include "directives.def"
#undef PP_DIRECTIVE
};

struct DirectiveInfo {
  std::string_view name;
  Directive id;
  bool conditional;
};

constexpr std::array kDirectives{
#define PP_DIRECTIVE(id, name, conditional) DirectiveInfo{name, Directive::id, conditional},
#include "directives.def"
#undef PP_DIRECTIVE
};

const DirectiveInfo* find_directive(std::string_view name) {
  for (const DirectiveInfo& d : kDirectives)
    if (d.name == name) return &d;
  return nullptr;
}

// After this many messages the rest of the input is not read.
constexpr int kMaxMessages = 40;

class Preprocessor {
 public:
  Preprocessor(const Options& options, MacroTable& macros, Listing& listing, OutputFile& out)
      : options_(options), macros_(macros), listing_(listing), out_(out) {}

  void run(std::unique_ptr<LineReader> main_file);
  // The source and every file it included, each once, in the order first read.
  const std::vector<std::string>& files_read() const { return files_read_; }

 private:
  void program_line(const std::string& line);
  void directive(std::string_view line);
  void include(std::string_view text);
  void if_directive(std::string_view text);
  void ifdef_directive(std::string_view text, bool want_defined);
  void elif_directive(std::string_view text);
  void else_directive();
  void endif_directive();
  bool condition(std::string_view text);
  void emit(std::string_view text);
  void end_of_file();
  void report(Msg msg, std::string_view context) { report_at(files_.top().line, msg, context); }
  void report_at(int line, Msg msg, std::string_view context);

  const Options& options_;
  MacroTable& macros_;
  Listing& listing_;
  OutputFile& out_;
  IncludeStack files_;
  bool stopped_ = false;
  std::string marker_file_;  // file and next line number the compiler assumes
  int marker_line_ = 1;
  std::vector<std::string> files_read_;
};

void Preprocessor::run(std::unique_ptr<LineReader> main_file) {
  files_.push(options_.source, std::move(main_file));
  files_read_.push_back(options_.source);
  marker_file_ = options_.source;
  out_.write("# 1 " + marker_name(options_.source) + "\n");
  std::string line;
  while (!files_.empty() && !stopped_) {
    SourceFile& f = files_.top();
    if (!f.reader->next(line)) {
      end_of_file();
      continue;
    }
    ++f.line;
    if (f.reader->line_cut()) {
      // The line is not handled at all: a cut directive or program line would mean something else.
      report(Msg::line_too_long, "more than " + std::to_string(LineReader::kMaxLine) + " bytes");
      continue;
    }
    if (!line.empty() && line[0] == '#') directive(line);
    else if (f.active()) program_line(line);
  }
}

void Preprocessor::end_of_file() {
  SourceFile& f = files_.top();
  if (f.reader->failed()) report(Msg::cant_read_file, f.path);
  for (const Conditional& c : f.conditionals) report_at(c.line, Msg::unterminated_if, "");
  files_.pop();
}

void Preprocessor::report_at(int line, Msg msg, std::string_view context) {
  if (stopped_) return;
  listing_.report(files_.top().path, line, msg, context);
  if (listing_.count() >= kMaxMessages) {
    listing_.report(files_.top().path, line, Msg::too_many_errors, "");
    stopped_ = true;
  }
}

// Writes one program line of the current file, preceded by a line marker when the compiler
// would otherwise assume another file or line.
void Preprocessor::emit(std::string_view text) {
  const SourceFile& f = files_.top();
  if (f.path != marker_file_ || f.line != marker_line_) {
    out_.write("# " + std::to_string(f.line) + " " + marker_name(f.path) + "\n");
    marker_file_ = f.path;
  }
  // A program line must not look like a line marker.
  if (!text.empty() && text[0] == '#') out_.write(" ");
  out_.write(text);
  out_.write("\n");
  marker_line_ = f.line + 1;
}

void Preprocessor::program_line(const std::string& line) {
  Expander expander(macros_, WordRule::program);
  if (auto text = expander.expand(line)) emit(*text);
  else report(expander.problem().msg, expander.problem().context);
}

void Preprocessor::directive(std::string_view line) {
  DirectiveLine d = split_directive(line);
  const DirectiveInfo* info = find_directive(d.name);
  bool active = files_.top().active();
  if (info == nullptr) {
    bool null_directive = d.name.empty() && d.rest.empty();
    if (active && !null_directive) report(Msg::unknown_directive, trim(line));
    return;
  }
  if (!active && !info->conditional) return;
  switch (info->id) {
    case Directive::include_: include(d.rest); break;
    case Directive::define_:
      if (auto m = parse_define(d.rest)) macros_.define(std::move(*m));
      else report(Msg::bad_define, d.rest);
      break;
    case Directive::undef_:
      if (is_identifier(d.rest)) macros_.undefine(d.rest);
      else report(Msg::bad_macro_name, d.rest);
      break;
    case Directive::ifdef_: ifdef_directive(d.rest, true); break;
    case Directive::ifndef_: ifdef_directive(d.rest, false); break;
    case Directive::if_: if_directive(d.rest); break;
    case Directive::elif_: elif_directive(d.rest); break;
    case Directive::else_: else_directive(); break;
    case Directive::endif_: endif_directive(); break;
    case Directive::error_: report(Msg::error_directive, d.rest); break;
  }
}

void Preprocessor::include(std::string_view text) {
  char close = text.empty() ? '\0' : text[0] == '"' ? '"' : text[0] == '<' ? '>' : '\0';
  std::size_t end = close == '\0' ? std::string_view::npos : text.find(close, 1);
  if (end == std::string_view::npos || end == 1 || end + 1 != text.size()) {
    report(Msg::bad_include, text);
    return;
  }
  std::string name(text.substr(1, end - 1));
  if (files_.full()) {
    report(Msg::include_too_deep, name);
    stopped_ = true;  // a file that includes itself twice would otherwise take for ever
    return;
  }
  std::vector<std::string> candidates;
  if (name[0] == '/') {
    candidates.push_back(name);
  } else {
    candidates.push_back(std::string(dir_part(files_.top().path)) + name);
    for (const std::string& dir : options_.include_dirs)
      candidates.push_back(dir + (dir.back() == '/' ? "" : "/") + name);
  }
  for (std::string& path : candidates) {
    if (auto reader = LineReader::open(path)) {
      if (std::find(files_read_.begin(), files_read_.end(), path) == files_read_.end()) files_read_.push_back(path);
      files_.push(std::move(path), std::move(reader));
      return;
    }
  }
  report(Msg::cant_open_include, name);
}

// The value of an #if or #elif expression; an error counts as false.
bool Preprocessor::condition(std::string_view text) {
  auto resolved = resolve_defined(text, macros_);
  if (!resolved) {
    report(Msg::bad_expression, text);
    return false;
  }
  Expander expander(macros_, WordRule::expression);
  auto expanded = expander.expand(*resolved);
  if (!expanded) {
    report(expander.problem().msg, expander.problem().context);
    return false;
  }
  ExprResult r = evaluate(*expanded);
  if (r.status == ExprStatus::syntax) report(Msg::bad_expression, text);
  if (r.status == ExprStatus::division_by_zero) report(Msg::division_by_zero, text);
  return r.status == ExprStatus::ok && r.value != 0;
}

void Preprocessor::if_directive(std::string_view text) {
  SourceFile& f = files_.top();
  Conditional c{f.line, f.active(), false, true, false};
  if (c.parent_active) c.taken = c.active = condition(text);
  files_.top().conditionals.push_back(c);
}

void Preprocessor::ifdef_directive(std::string_view text, bool want_defined) {
  SourceFile& f = files_.top();
  Conditional c{f.line, f.active(), false, true, false};
  if (c.parent_active) {
    if (is_identifier(text)) c.taken = c.active = macros_.defined(text) == want_defined;
    else report(Msg::bad_macro_name, text);
  }
  f.conditionals.push_back(c);
}

void Preprocessor::elif_directive(std::string_view text) {
  auto& conds = files_.top().conditionals;
  if (conds.empty()) return report(Msg::elif_without_if, "");
  if (conds.back().seen_else) return report(Msg::elif_after_else, "");
  Conditional& c = conds.back();
  c.active = false;
  if (c.parent_active && !c.taken) c.taken = c.active = condition(text);
}

void Preprocessor::else_directive() {
  auto& conds = files_.top().conditionals;
  if (conds.empty()) return report(Msg::else_without_if, "");
  Conditional& c = conds.back();
  if (c.seen_else) return report(Msg::else_after_else, "");
  c.seen_else = true;
  c.active = c.parent_active && !c.taken;
  c.taken = true;
}

void Preprocessor::endif_directive() {
  auto& conds = files_.top().conditionals;
  if (conds.empty()) return report(Msg::endif_without_if, "");
  conds.pop_back();
}

// Writes the make rules of -MF, when asked for, the same way as the output: under a temporary
// name renamed into place.
bool write_dependencies(const Options& options, const std::vector<std::string>& files) {
  if (options.dependency_file.empty()) return true;
  const std::string& target =
      options.dependency_target.empty() ? default_target(options.source) : options.dependency_target;
  OutputFile rules;
  if (!rules.open(options.dependency_file, options.on_temp_file)) return false;
  rules.write(make_rules(target, files));
  return rules.commit();
}

}  // namespace

std::optional<Options> parse_args(std::span<const std::string> args) {
  Options o;
  std::vector<std::string> files;
  bool options_ended = false;  // after "--" every argument is a file name
  for (const std::string& a : args) {
    std::string_view v = a;
    if (options_ended) {
      if (v.empty()) return std::nullopt;
      files.push_back(a);
    } else if (v == "--") {
      options_ended = true;
    } else if (v.starts_with("-D")) {
      std::string_view def = v.substr(2);
      std::size_t eq = def.find('=');
      std::string_view name = def.substr(0, eq);
      if (!is_identifier(name)) return std::nullopt;
      o.defines.emplace_back(name, eq == std::string_view::npos ? "1" : def.substr(eq + 1));
    } else if (v.starts_with("-I") && v.size() > 2) {
      o.include_dirs.emplace_back(v.substr(2));
    } else if (v.starts_with("-MF") && v.size() > 3) {
      o.dependency_file = v.substr(3);
    } else if (v.starts_with("-MT") && v.size() > 3) {
      o.dependency_target = v.substr(3);
    } else if (v.starts_with("-o") && v.size() > 2) {
      o.listing = v.substr(2);
    } else if (v.starts_with("-") || v.empty()) {
      return std::nullopt;
    } else {
      files.push_back(a);
    }
  }
  if (files.size() != 2) return std::nullopt;
  o.source = files[0];
  o.output = files[1];
  return o;
}

int run_tavpp(const Options& options) {
  // A failed run leaves no rules behind: stale ones could name a file that is gone.
  if (!options.dependency_file.empty()) ::unlink(options.dependency_file.c_str());
  Listing listing(options.listing);
  MacroTable macros;
  for (const auto& [name, value] : options.defines) macros.define(Macro{name, false, {}, value});

  auto main_file = LineReader::open(options.source);
  if (!main_file) {
    listing.report("", 0, Msg::cant_open_source, options.source);
    ::unlink(options.output.c_str());
    return 1;
  }
  OutputFile out;
  if (!out.open(options.output, options.on_temp_file)) {
    listing.report("", 0, Msg::cant_create_output, options.output);
    ::unlink(options.output.c_str());
    return 1;
  }
  Preprocessor preprocessor(options, macros, listing, out);
  preprocessor.run(std::move(main_file));
  if (listing.count() == 0) {
    if (!out.commit()) {
      listing.report("", 0, Msg::cant_write_output, options.output);
    } else if (!write_dependencies(options, preprocessor.files_read())) {
      listing.report("", 0, Msg::cant_write_output, options.dependency_file);
    } else {
      return 0;
    }
  }
  out.discard();
  ::unlink(options.output.c_str());
  return 1;
}

}  // namespace tav::pp
