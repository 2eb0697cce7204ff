// The command line of tavdict and the load and dump commands.

#include <cstdio>
#include <string>
#include <string_view>

#include "schema.h"
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
    "         again gets new record and key rows. A schema with errors loads nothing.\n"
    "  dump   prints DICT as a schema that load accepts.\n"
    "  check  loads every object of DICT as the compiler does and reports each problem with\n"
    "         the object's name; the exit status is 1 when any is found.\n"
    "  --help, -h  print this text and exit\n"
    "  --version   print the product version and exit\n"
    "\n"
    "Exit status: 0 done, 1 bad input or problems found, 2 usage error.\n";

constexpr int kUsageError = 2;

int report(const Problems& problems) {
  for (const std::string& p : problems) std::fprintf(stderr, "tavdict: %s\n", p.c_str());
  return problems.empty() ? 0 : 1;
}

int usage_error(const std::string& message) {
  std::fprintf(stderr, "tavdict: %s\n%s", message.c_str(), kUsage);
  return kUsageError;
}

}  // namespace

int load_command(const std::string& dict, const std::vector<std::string>& schemas) {
  Problems problems;
  Schema schema = read_schemas(schemas, problems);
  if (problems.empty()) check_limits(schema, problems);
  if (!problems.empty()) {
    problems.push_back("nothing loaded");
    return report(problems);
  }
  std::unique_ptr<Store> store = Store::open(dict, true, false, problems);
  if (!store || !store->load(schema, problems)) {
    problems.push_back("nothing loaded");
    return report(problems);
  }
  std::printf("%zu field(s) and %zu object(s) loaded into %s\n", schema.fields.size(), schema.objects.size(),
              store->prefix().c_str());
  return 0;
}

int dump_command(const std::string& dict) {
  Problems problems;
  std::unique_ptr<Store> store = Store::open(dict, false, true, problems);
  if (!store) return report(problems);
  const Schema schema = store->read(problems);
  const std::string text = problems.empty() ? write_schema(schema, problems) : std::string();
  if (!problems.empty()) return report(problems);
  std::fputs(text.c_str(), stdout);
  return 0;
}

int tavdict_main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) return usage_error("no command given");
  const std::string& command = args[0];
  if (command == "--help" || command == "-h") {
    std::fputs(kUsage, stdout);
    return 0;
  }
  if (command == "--version") return print_version("tavdict");
  if (args.size() < 2) return usage_error("no dictionary given");
  const std::string& dict = args[1];
  if (dict.empty()) return usage_error("an empty dictionary name");
  if (command == "load") {
    if (args.size() < 3) return usage_error("no schema file given");
    return load_command(dict, {args.begin() + 2, args.end()});
  }
  if (args.size() > 2) return usage_error("too many arguments for " + command);
  if (command == "dump") return dump_command(dict);
  if (command == "check") return check_command(dict);
  return usage_error("unknown command '" + command + "'");
}

}  // namespace tav::dict_tool
