// The command line of tavdict and the load and dump commands.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "diag/diag.h"
#include "runtime/output_open.h"
#include "schema.h"
#include "scratch.h"
#include "tav_version.h"

namespace tav::dict_tool {

namespace {

constexpr const char* kUsage =
    "Usage: tavdict load DICT SCHEMA...\n"
    "       tavdict dump DICT\n"
    "       tavdict check DICT\n"
    "\n"
    "DICT is a dictionary's path prefix: its tables are DICT<letters>4.idx and its version text\n"
    "is the first line of DICT-dict.ver.\n"
    "\n"
    "  load   compiles the FIELD and OBJECT statements of the SCHEMA files (preprocessed like a\n"
    "         program; \"//% field|object NAME word text\" lines add descriptions, documentation,\n"
    "         validation text and column titles) and writes every field and object into DICT,\n"
    "         which is created when absent. Names DICT has keep their ids; an object loaded\n"
    "         again gets new record and key rows. Before it commits, the load checks every\n"
    "         object it touches and compiles every validation text it stores as the compiler\n"
    "         would; a schema with errors, or a load the compiler would refuse, loads nothing.\n"
    "  dump   prints DICT as a schema that load accepts.\n"
    "  check  loads every object of DICT as the compiler does and reports each problem with\n"
    "         the object's name; the exit status is 1 when any is found.\n"
    "  --help, -h  print this text and exit\n"
    "  --version   print the product version and exit\n"
    "\n"
    "Exit status: 0 done, 1 bad input or problems found, 2 usage error.\n";

constexpr int kUsageError = 2;

int usage_error(const std::string& message) {
  std::fprintf(stderr, "tavdict: %s\n%s", message.c_str(), kUsage);
  return kUsageError;
}

bool is_command(const std::string& word) { return word == "load" || word == "dump" || word == "check"; }

int run_command(const std::vector<std::string>& args, Output& out) {
  const std::string& command = args[0];
  const std::string& dict = args[1];
  try {
    if (command == "load") return load_command(dict, {args.begin() + 2, args.end()}, out);
    if (command == "dump") return dump_command(dict, out);
    return check_command(dict, out);
  } catch (const RunStop& stop) {  // a damaged table file met on the way
    return report({stop.message});
  } catch (const FileAbort& abort) {
    return report({abort.message.empty() ? "the dictionary cannot be read" : abort.message});
  }
}

}  // namespace

int report(const Problems& problems) {
  for (const std::string& p : problems) std::fprintf(stderr, "tavdict: %s\n", p.c_str());
  return problems.empty() ? 0 : 1;
}

void Output::print(std::string_view text) {
  if (error_ == 0 && std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) error_ = errno ? errno : EIO;
}

bool Output::finish() {
  if (const int closed = close_standard_output(); error_ == 0) error_ = closed;
  if (error_ == 0) return true;
  std::fprintf(stderr, "tavdict: standard output cannot be written: %s\n", std::strerror(error_));
  return false;
}

int load_command(const std::string& dict, const std::vector<std::string>& schemas, Output& out) {
  Problems problems;
  Schema schema = read_schemas(schemas, problems);
  if (problems.empty()) check_limits(schema, problems);
  if (!problems.empty()) {
    problems.push_back("nothing loaded");
    return report(problems);
  }
  std::vector<std::string> created;
  bool loaded = false;
  try {
    std::unique_ptr<Store> store = Store::open(dict, true, false, problems, &created);
    loaded = store && store->load(schema, problems);
    if (loaded)
      out.print(std::to_string(schema.fields.size()) + " field(s) and " + std::to_string(schema.objects.size()) +
                " object(s) loaded into " + store->prefix() + "\n");
  } catch (const RunStop& stop) {
    problems.push_back(stop.message);
  }
  if (loaded) return 0;
  // What a refused load made for a new dictionary goes too: nothing changes.
  Store::remove_created(dict, created);
  problems.push_back("nothing loaded");
  return report(problems);
}

int dump_command(const std::string& dict, Output& out) {
  Problems problems;
  std::unique_ptr<Store> store = Store::open(dict, false, true, problems);
  if (!store) return report(problems);
  const Schema schema = store->read(problems);
  const std::string text = problems.empty() ? write_schema(schema, problems) : std::string();
  if (!problems.empty()) return report(problems);
  out.print(text);
  return 0;
}

int tavdict_main(int argc, char** argv) {
  remove_scratch_on_signals();
  install_test_hooks();
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) return usage_error("no command given");
  const std::string& command = args[0];
  if (command == "--help" || command == "-h") {
    std::fputs(kUsage, stdout);
    return 0;
  }
  if (command == "--version") return print_version("tavdict");
  if (!is_command(command)) return usage_error("unknown command '" + command + "'");
  if (args.size() < 2) return usage_error("no dictionary given");
  if (args[1].empty()) return usage_error("an empty dictionary name");
  if (command == "load" && args.size() < 3) return usage_error("no schema file given");
  if (command != "load" && args.size() > 2) return usage_error("too many arguments for " + command);
  Output out;
  const int status = run_command(args, out);
  const bool written = out.finish();
  return status != 0 ? status : written ? 0 : 1;
}

}  // namespace tav::dict_tool
