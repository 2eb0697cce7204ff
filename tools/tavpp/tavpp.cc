#include "tavpp.h"

#include <algorithm>
#include <array>
#include <unistd.h>

#include "dependencies.h"
#include "expr.h"
#include "listing.h"
#include "macros.h"
#include "output.h"
#include "records.h"
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

// A directive line begins with its "#": messages about a directive are at column 1.
constexpr int kHashColumn = 1;

// The column of the macro call a replacement problem is about, in `text` (a line, or the
// expression of an #if within it, which begins at byte `start` of the line): 0 unless the
// problem's context is the name written there, so that a column always shows that name.
int call_column(std::string_view line, std::size_t start, std::string_view text, const Problem& p, WordRule rule) {
  if (p.call >= text.size() || p.context.empty() || text.substr(p.call, p.context.size()) != p.context ||
      word_end(text, p.call, rule) != p.call + p.context.size())
    return 0;
  return character_column(line, start + p.call);
}

class Preprocessor {
 public:
  Preprocessor(const Options& options, MacroTable& macros, Listing& listing, MessageRecords& records,
               OutputFile& out)
      : options_(options), macros_(macros), listing_(listing), records_(records), out_(out) {}

  void run(std::unique_ptr<LineReader> main_file);
  // The source and every file it included, each once, in the order first read.
  const std::vector<std::string>& files_read() const { return files_read_; }

 private:
  void program_line(const std::string& line);
  void directive(std::string_view line);
  void include(std::string_view text);
  void enter_include(std::string path, std::unique_ptr<LineReader> reader);
  void if_directive(std::string_view text);
  void ifdef_directive(std::string_view text, bool want_defined);
  void elif_directive(std::string_view text);
  void else_directive();
  void endif_directive();
  bool condition(std::string_view text);
  void emit(std::string_view text);
  void end_of_file();
  void report(Msg msg, std::string_view context, int column) {
    report_at(files_.top().line, column, msg, context);
  }
  void report_at(int line, int column, Msg msg, std::string_view context);
  void tell(int line, int column, Msg msg, std::string_view context);
  std::size_t offset_in_line(std::string_view part) const {
    return static_cast<std::size_t>(part.data() - line_.data());
  }

  const Options& options_;
  MacroTable& macros_;
  Listing& listing_;
  MessageRecords& records_;
  OutputFile& out_;
  IncludeStack files_;
  std::string_view line_;  // the line being handled; directive texts are views into it
  bool stopped_ = false;
  std::string marker_file_;  // file and next line number the compiler assumes
  int marker_line_ = 1;
  std::vector<std::string> files_read_;
};

void Preprocessor::run(std::unique_ptr<LineReader> main_file) {
  files_.push(options_.source_named(), std::move(main_file));
  files_read_.push_back(options_.source_named());
  marker_file_ = options_.source_named();
  out_.write("# 1 " + marker_name(options_.source_named()) + "\n");
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
      report(Msg::line_too_long, "more than " + std::to_string(LineReader::kMaxLine) + " bytes", 0);
      continue;
    }
    line_ = line;
    if (!line.empty() && line[0] == '#') directive(line);
    else if (f.active()) program_line(line);
  }
}

void Preprocessor::end_of_file() {
  SourceFile& f = files_.top();
  if (f.reader->failed()) report(Msg::cant_read_file, f.path, 0);
  for (const Conditional& c : f.conditionals) report_at(c.line, kHashColumn, Msg::unterminated_if, "");
  files_.pop();
  if (options_.include_chain && !files_.empty()) out_.write("#<\n");
}

void Preprocessor::report_at(int line, int column, Msg msg, std::string_view context) {
  if (stopped_) return;
  tell(line, column, msg, context);
  if (listing_.count() >= kMaxMessages) {
    tell(line, 0, Msg::too_many_errors, "");
    stopped_ = true;
  }
}

// A message of the current file: into the listing, and into the records with the include chain.
void Preprocessor::tell(int line, int column, Msg msg, std::string_view context) {
  listing_.report(files_.top().path, line, msg, context);
  MessagePlace place{files_.top().path, line, column, {}};
  for (std::size_t i = files_.size() - 1; i-- > 0;) place.chain.emplace_back(files_.at(i).line, files_.at(i).path);
  records_.add(place, msg, context);
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
  else report(expander.problem().msg, expander.problem().context,
              call_column(line, 0, line, expander.problem(), WordRule::program));
}

void Preprocessor::directive(std::string_view line) {
  DirectiveLine d = split_directive(line);
  const DirectiveInfo* info = find_directive(d.name);
  bool active = files_.top().active();
  if (info == nullptr) {
    bool null_directive = d.name.empty() && d.rest.empty();
    if (active && !null_directive) report(Msg::unknown_directive, trim(line), kHashColumn);
    return;
  }
  if (!active && !info->conditional) return;
  switch (info->id) {
    case Directive::include_: include(d.rest); break;
    case Directive::define_:
      if (auto m = parse_define(d.rest)) macros_.define(std::move(*m));
      else report(Msg::bad_define, d.rest, kHashColumn);
      break;
    case Directive::undef_:
      if (is_identifier(d.rest)) macros_.undefine(d.rest);
      else report(Msg::bad_macro_name, d.rest, kHashColumn);
      break;
    case Directive::ifdef_: ifdef_directive(d.rest, true); break;
    case Directive::ifndef_: ifdef_directive(d.rest, false); break;
    case Directive::if_: if_directive(d.rest); break;
    case Directive::elif_: elif_directive(d.rest); break;
    case Directive::else_: else_directive(); break;
    case Directive::endif_: endif_directive(); break;
    case Directive::error_: report(Msg::error_directive, d.rest, kHashColumn); break;
  }
}

void Preprocessor::include(std::string_view text) {
  const std::size_t at = offset_in_line(text);  // the operand; the name follows its quote
  char close = text.empty() ? '\0' : text[0] == '"' ? '"' : text[0] == '<' ? '>' : '\0';
  std::size_t end = close == '\0' ? std::string_view::npos : text.find(close, 1);
  if (end == std::string_view::npos || end == 1 || end + 1 != text.size()) {
    report(Msg::bad_include, text, text.empty() ? kHashColumn : character_column(line_, at));
    return;
  }
  std::string name(text.substr(1, end - 1));
  const int name_column = character_column(line_, at + 1);
  if (files_.full()) {
    report(Msg::include_too_deep, name, name_column);
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
      enter_include(std::move(path), std::move(reader));
      return;
    }
  }
  report(Msg::cant_open_include, name, name_column);
}

// With the include chain, "#> <line>" tells the compiler that the next file is included from
// that line of the current one. The marker before it, when the last one named another file (an
// include that has just ended), makes sure the compiler knows which file that is.
void Preprocessor::enter_include(std::string path, std::unique_ptr<LineReader> reader) {
  if (options_.include_chain) {
    const SourceFile& f = files_.top();
    if (f.path != marker_file_) {
      out_.write("# " + std::to_string(f.line + 1) + " " + marker_name(f.path) + "\n");
      marker_file_ = f.path;
      marker_line_ = f.line + 1;
    }
    out_.write("#> " + std::to_string(f.line) + "\n");
  }
  files_.push(std::move(path), std::move(reader));
}

// The value of an #if or #elif expression; an error counts as false.
bool Preprocessor::condition(std::string_view text) {
  auto resolved = resolve_defined(text, macros_);
  if (!resolved) {
    report(Msg::bad_expression, text, kHashColumn);
    return false;
  }
  Expander expander(macros_, WordRule::expression);
  auto expanded = expander.expand(*resolved);
  if (!expanded) {
    // The call is found in the directive's own text only when no "defined" changed it.
    const std::string_view expression = *resolved == text ? text : std::string_view{};
    report(expander.problem().msg, expander.problem().context,
           call_column(line_, offset_in_line(text), expression, expander.problem(), WordRule::expression));
    return false;
  }
  ExprResult r = evaluate(*expanded);
  if (r.status == ExprStatus::syntax) report(Msg::bad_expression, text, kHashColumn);
  if (r.status == ExprStatus::division_by_zero) report(Msg::division_by_zero, text, kHashColumn);
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
    else report(Msg::bad_macro_name, text, kHashColumn);
  }
  f.conditionals.push_back(c);
}

void Preprocessor::elif_directive(std::string_view text) {
  auto& conds = files_.top().conditionals;
  if (conds.empty()) return report(Msg::elif_without_if, "", kHashColumn);
  if (conds.back().seen_else) return report(Msg::elif_after_else, "", kHashColumn);
  Conditional& c = conds.back();
  c.active = false;
  if (c.parent_active && !c.taken) c.taken = c.active = condition(text);
}

void Preprocessor::else_directive() {
  auto& conds = files_.top().conditionals;
  if (conds.empty()) return report(Msg::else_without_if, "", kHashColumn);
  Conditional& c = conds.back();
  if (c.seen_else) return report(Msg::else_after_else, "", kHashColumn);
  c.seen_else = true;
  c.active = c.parent_active && !c.taken;
  c.taken = true;
}

void Preprocessor::endif_directive() {
  auto& conds = files_.top().conditionals;
  if (conds.empty()) return report(Msg::endif_without_if, "", kHashColumn);
  conds.pop_back();
}

// Writes the make rules of -MF, when asked for, the same way as the output: under a temporary
// name renamed into place.
bool write_dependencies(const Options& options, const std::vector<std::string>& files) {
  if (options.dependency_file.empty()) return true;
  const std::string& target =
      options.dependency_target.empty() ? default_target(options.source_named()) : options.dependency_target;
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
    } else if (v == "--include-chain") {
      o.include_chain = true;
    } else if (v.starts_with("--message-records=") && v.size() > 18) {
      o.message_records = v.substr(18);
    } else if (v.starts_with("--source-name=") && v.size() > 14) {
      o.source_name = v.substr(14);
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
  // Rules are written again once the source has been read; a run that does not get that far
  // leaves none, rather than old ones that might name files no longer read.
  if (!options.dependency_file.empty()) ::unlink(options.dependency_file.c_str());
  MessageRecords records(options.message_records);
  Listing listing(options.listing);
  const auto tell = [&](Msg msg, std::string_view context) {
    listing.report("", 0, msg, context);
    records.add(MessagePlace{}, msg, context);
  };
  MacroTable macros;
  for (const auto& [name, value] : options.defines) macros.define(Macro{name, false, {}, value});

  auto main_file = LineReader::open(options.source);
  if (!main_file) {
    tell(Msg::cant_open_source, options.source);
    ::unlink(options.output.c_str());
    return 1;
  }
  OutputFile out;
  if (!out.open(options.output, options.on_temp_file)) {
    tell(Msg::cant_create_output, options.output);
    ::unlink(options.output.c_str());
    return 1;
  }
  Preprocessor preprocessor(options, macros, listing, records, out);
  preprocessor.run(std::move(main_file));
  if (listing.count() == 0 && !out.commit()) tell(Msg::cant_write_output, options.output);
  // The rules name every file read, also when the run failed: when one of them changes, make
  // tries again.
  if (!write_dependencies(options, preprocessor.files_read())) tell(Msg::cant_write_output, options.dependency_file);
  if (listing.count() == 0) return 0;
  out.discard();
  ::unlink(options.output.c_str());
  return 1;
}

}  // namespace tav::pp
