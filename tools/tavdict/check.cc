// The consistency check: every object of a dictionary loaded as the compiler loads it, in a
// scratch compile of its own, with the compiler's checks of keys, record and field definitions.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "codegen/header.h"
#include "diag/display.h"
#include "lexer/verbs.h"
#include "schema.h"
#include "symbols/compiler_stores.h"
#include "symbols/object_keys.h"
#include "symbols/objects.h"
#include "symbols/parser_core.h"

namespace tav::dict_tool {

namespace {

// The message lines of a listing file.
std::vector<std::string> listing_lines(const std::string& path) {
  std::vector<std::string> lines;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);)
    if (!line.empty()) lines.push_back(line);
  return lines;
}

// Loads one object, its keys and its whole record; the problems found, as messages.
std::vector<std::string> check_object(DictionaryFiles& files, const std::string& name, const std::string& listing) {
  Display display;
  display.set_plain_output(nullptr);  // the messages are read back from the listing
  Diagnostics diag(display, false, true);
  unlink(listing.c_str());
  diag.start_file();
  diag.set_listing(listing);
  CompilerStores compiler(diag, {});
  compiler.dictionaries = &files;
  FileContext file;
  ParserCore p(compiler, file);
  p.ops.alloc(hdr::size);
  p.data.alloc(2);
  compiler.syms.reset();
  p.ob.start_program();
  compiler.tok.open_text("", name);
  std::vector<std::string> problems;
  try {
    if (const uint32_t o = find_or_load_object(p, name); o != 0) load_dictionary_record(p, o, true);
  } catch (const FileAbort& abort) {
    if (!abort.message.empty()) problems.push_back(abort.message);
  } catch (const RunStop& stop) {
    problems.push_back(stop.message);
  }
  compiler.tok.close_source();
  diag.close_listing();
  std::vector<std::string> reported = listing_lines(listing);
  problems.insert(problems.begin(), reported.begin(), reported.end());
  if (problems.empty() && diag.error_count() > 0) problems.push_back("the object cannot be loaded");
  return problems;
}

}  // namespace

int check_command(const std::string& dict) {
  Problems problems;
  std::unique_ptr<Store> store = Store::open(dict, false, true, problems);
  if (!store) {
    for (const std::string& p : problems) std::fprintf(stderr, "tavdict: %s\n", p.c_str());
    return 1;
  }
  const char* tmp = std::getenv("TMPDIR");
  std::string listing = std::string(tmp && *tmp ? tmp : "/tmp") + "/tavdictXXXXXX";
  const int fd = mkstemp(listing.data());
  if (fd < 0) {
    std::fprintf(stderr, "tavdict: cannot make a scratch file\n");
    return 1;
  }
  close(fd);
  int bad = 0;
  const std::vector<std::string> names = store->object_names();
  for (const std::string& name : names) {
    const std::vector<std::string> found = check_object(store->files(), name, listing);
    for (const std::string& message : found) std::printf("%s: %s\n", name.c_str(), message.c_str());
    bad += found.empty() ? 0 : 1;
  }
  unlink(listing.c_str());
  std::printf("%zu object(s) checked, %d with problems\n", names.size(), bad);
  return bad == 0 ? 0 : 1;
}

}  // namespace tav::dict_tool
