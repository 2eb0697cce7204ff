// What the compiler makes of a dictionary: an object loaded as a program loads it, with every
// consistency check of its keys, its record and its fields; a field's validation text read as an
// ACCEPT of the field reads it. Each runs in a scratch compile of its own, whose messages are read
// back from its listing. The check command runs the first on every object; a load runs both on
// what it touches before it commits.

#include <unistd.h>

#include <fstream>

#include "codegen/header.h"
#include "diag/display.h"
#include "lexer/verbs.h"
#include "schema.h"
#include "statements/program.h"
#include "symbols/compiler_stores.h"
#include "symbols/object_keys.h"
#include "symbols/objects.h"
#include "symbols/parser_core.h"

namespace tav::dict_tool {

namespace {

// The name a validation probe's program goes by in its messages.
constexpr std::string_view kProbeName = "tavdict-probe";

std::vector<std::string> listing_lines(const std::string& path) {
  std::vector<std::string> lines;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);)
    if (!line.empty()) lines.push_back(line);
  return lines;
}

// A compile of its own on the dictionary, its messages going to `listing`.
class ScratchCompile {
 public:
  ScratchCompile(DictionaryFiles& files, const std::string& listing)
      : listing_(listing), diag_(display_, false, true), compiler_(diag_, {}), p_(on(compiler_, files), file_) {
    display_.set_plain_output(nullptr);
    unlink(listing.c_str());
    diag_.start_file();
    diag_.set_listing(listing);
  }
  CompilerStores& compiler() { return compiler_; }
  ParserCore& parser() { return p_; }
  FileContext& file() { return file_; }
  Diagnostics& diag() { return diag_; }

  // Runs `work`; the messages it gave, each a line of the listing or the text of a stop.
  template <typename Work>
  std::vector<std::string> run(Work work) {
    std::vector<std::string> stops;
    try {
      work();
    } catch (const FileAbort& abort) {
      if (!abort.message.empty()) stops.push_back(abort.message);
    } catch (const RunStop& stop) {
      stops.push_back(stop.message);
    }
    compiler_.tok.close_source();
    diag_.set_source(nullptr);
    diag_.close_listing();
    std::vector<std::string> messages = listing_lines(listing_);
    unlink(listing_.c_str());
    messages.insert(messages.end(), stops.begin(), stops.end());
    return messages;
  }

 private:
  // The compiler on the dictionary (before the parser takes its dictionaries from it).
  static CompilerStores& on(CompilerStores& c, DictionaryFiles& files) {
    c.dictionaries = &files;
    return c;
  }

  std::string listing_;
  Display display_;
  Diagnostics diag_;
  CompilerStores compiler_;
  FileContext file_;
  ParserCore p_;
};

bool is_error(const std::string& message) {
  return message.find("WARNING ") == std::string::npos && message.find("INFO ") == std::string::npos;
}

}  // namespace

std::vector<std::string> object_problems(DictionaryFiles& files, const std::string& name, const std::string& listing) {
  ScratchCompile c(files, listing);
  ParserCore& p = c.parser();
  p.ops.alloc(hdr::size);
  p.data.alloc(2);
  c.compiler().syms.reset();
  p.ob.start_program();
  c.compiler().tok.open_text("", name);
  std::vector<std::string> problems = c.run([&] {
    if (const uint32_t o = find_or_load_object(p, name); o != 0) load_dictionary_record(p, o, true);
  });
  if (problems.empty() && c.diag().error_count() > 0) problems.push_back("the object cannot be loaded");
  return problems;
}

std::vector<ValidationError> validation_errors(DictionaryFiles& files, const std::string& field,
                                               const std::string& listing) {
  ScratchCompile c(files, listing);
  const std::string program = "procedure main\n  accept " + field + " @ 1,1\nend\n";
  c.file().source_name = std::string(kProbeName);
  c.diag().set_source(&c.compiler().tok);
  c.compiler().tok.open_text(program, kProbeName);
  const std::vector<std::string> messages = c.run([&] { compile_program(c.compiler(), c.file()); });
  // "[field], line n: ..." is line n of the text; the probe's own lines are the ACCEPT's end.
  std::vector<ValidationError> errors;
  for (const std::string& m : messages) {
    if (!is_error(m)) continue;
    ValidationError e{0, m};
    if (const size_t at = m.find("], line "); m.starts_with("[") && at != std::string::npos) {
      e.line = std::atoi(m.c_str() + at + 8);
      e.message = m.substr(std::min(m.size(), m.find(": ", at) + 2));
    } else if (m.starts_with(kProbeName)) {
      e.message = m.substr(std::min(m.size(), m.find(": ") + 2));
    }
    errors.push_back(std::move(e));
  }
  if (errors.empty() && c.diag().error_count() > 0) errors.push_back({0, "the field cannot be accepted"});
  return errors;
}

}  // namespace tav::dict_tool
