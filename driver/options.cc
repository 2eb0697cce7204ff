#include "driver/options.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace tav {

const char kUsageText[] =
    "Usage: tavcmp [-dsnclwi] [-p sys] [-g dict] [-u dict]\n"
    "              [-o dir] file.spl ...\n";

const char kHelpText[] =
    "Compiles TAVRIN-4GL programs into .op6 operations tables.\n"
    "\n"
    "Options are clustered behind one \"-\" (-lwt); letters are case-insensitive except -I, -i\n"
    "and -w. Options taking an argument take the next ones, in the order -p -g -u -x -o.\n"
    "  -l        plain output on standard output instead of the progress window\n"
    "  -t        test compile only: diagnostics, no .op6\n"
    "  -w        suppress warnings, informational messages and \"No errors found\"\n"
    "  -i        suppress informational messages and \"No errors found\"\n"
    "  -d        debug compile: statement markers in the table\n"
    "  -s        compilation summary after each file (progress window only)\n"
    "  -n        compile without the data dictionaries (not with -g or -u)\n"
    "  -c        do not stop on dictionary record-layout inconsistencies\n"
    "  -o dir    write the .op6, .err and .d files into dir (an existing directory)\n"
    "  -I dir    include directory for the preprocessor (up to 10, with TAVCMPINC)\n"
    "  -p sys    register the program under system sys in the dictionaries\n"
    "  -g dict   global dictionary\n"
    "  -u dict   user dictionary\n"
    "  -x n      debug level: 1 traces the SELECT optimiser, 99 writes op statistics to\n"
    "            tavcmp.out (with -s, in the progress window only)\n"
    "  --write-dependencies\n"
    "            also write <name>.d beside each .op6: a make rule naming the source and every\n"
    "            file it includes, and an empty rule for each included file\n"
    "  --diagnostics-format=gcc|json|sarif\n"
    "            messages for tools: GCC-style lines on standard error (with the source line,\n"
    "            a caret and notes), or one GCC JSON or SARIF 2.1.0 document for the run on\n"
    "            standard output; the .err listings are written as always\n"
    "  --diagnostics-output=FILE\n"
    "            write the JSON or SARIF document (or the gcc lines) to FILE instead\n"
    "  --exit-status=errors\n"
    "            exit 1 when any file had an error or was not preprocessed, written or\n"
    "            registered, else 0 (the default with a diagnostics format)\n"
    "  --xref=FILE\n"
    "            write the cross reference of the files compiled to FILE as JSON: where each\n"
    "            name is defined and used, the objects each statement reads and writes, and\n"
    "            the index each SELECT and GET reads by\n"
    "  --help    print this text and exit\n"
    "  --version print the product version and exit\n"
    "\n"
    "Environment: TAVRIN (product directory), TMPDIR, TAVCMPINC, the dictionaries TAVUSRDICT,\n"
    "TAVDISTDICT, TAVDICT and their search path TAVPATH, ERQ (component libraries),\n"
    "TAVLANGUAGE, TAVLANGDIR, TAVDATEORDER, TAVYEAROFFSET, TAVDATESEP, TAVMONTHNAMES,\n"
    "TAVNOPREVWARN; see tavcmp(1).\n"
    "Why a run failed is told on standard error.\n"
    "Exit status: 0 when the last file compiled without errors; otherwise the line of its first\n"
    "error modulo 256 (255 without a line); 255 on a usage error or a failed start-up.\n";

namespace {

constexpr size_t kMaxSystemName = 259;
constexpr uint16_t kSystemTablesMask = 0x0380;

// Options that take an argument; a pending argument is consumed by them in this order.
enum Pending { p_system, p_global, p_user, p_debug, p_output, pending_count };

void add_include(Options& o, std::string_view dir) {
  if (static_cast<int>(o.includes.size()) >= kMaxIncludeDirs) {
    o.include_overflow = true;
    return;
  }
  o.includes.push_back("-I" + std::string(dir));
}

void take_argument(Options& o, Pending which, const char* arg) {
  switch (which) {
    case p_system:
      o.system_name = std::string(arg).substr(0, kMaxSystemName);
      break;
    case p_global:
      o.global_dict = arg;
      o.have_global_dict = true;
      break;
    case p_user:
      o.user_dict = arg;
      o.have_user_dict = true;
      break;
    case p_debug:
      o.debug_level = std::atoi(arg);
      break;
    case p_output:
      o.output_dir = arg;
      o.have_output_dir = true;
      break;
    case pending_count:
      break;
  }
}

// A decimal number, as -x takes it.
bool is_number(const char* text) {
  if (*text == '-' || *text == '+') ++text;
  if (!*text) return false;
  for (; *text; ++text)
    if (!std::isdigit(static_cast<unsigned char>(*text))) return false;
  return true;
}

std::string unknown_letter(char letter, const char* cluster) {
  std::string why = "unknown option letter '";
  if (std::isprint(static_cast<unsigned char>(letter))) {
    why += letter;
  } else {
    char code[8];
    std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(letter)));
    why += code;
  }
  why += "'";
  if (std::string_view(cluster).size() > 2) why += std::string(" in '") + cluster + "'";
  return why;
}

}  // namespace

std::optional<Options> parse_options(int argc, const char* const* argv, const char* tavcmpinc,
                                     std::string* problem) {
  auto refuse = [problem](std::string why) -> std::optional<Options> {
    if (problem) *problem = std::move(why);
    return std::nullopt;
  };
  Options o;
  bool pending[pending_count] = {};
  auto any_pending = [&] {
    for (bool b : pending)
      if (b) return true;
    return false;
  };
  const char* debug_argument = nullptr;  // what -x took, when it is not a number

  int i = 0;
  for (; i < argc; ++i) {
    const char* arg = argv[i];
    if (any_pending()) {
      for (int k = 0; k < pending_count; ++k) {
        if (pending[k]) {
          pending[k] = false;
          take_argument(o, static_cast<Pending>(k), arg);
          if (k == p_debug && !is_number(arg)) debug_argument = arg;
          break;
        }
      }
      continue;
    }
    if (arg[0] != '-') break;
    if (arg[1] == '-') {
      // A long option; any other spelling stays the usage error it was as a cluster.
      std::string_view name = arg + 2;
      if (name == "help") o.help = true;
      else if (name == "version") o.version = true;
      else if (name == "write-dependencies") o.write_dependencies = true;
      else if (name.rfind("diagnostics-format=", 0) == 0) {
        auto format = diagnostics_format_named(name.substr(19));
        if (!format) return refuse(std::string("'") + arg + "': the format is gcc, json, sarif or classic");
        o.diagnostics_format = *format;
      } else if (name.rfind("diagnostics-output=", 0) == 0) {
        if (name.size() == 19) return refuse(std::string("'") + arg + "' needs a file name after '='");
        o.diagnostics_output = std::string(name.substr(19));
      } else if (name.rfind("xref=", 0) == 0) {
        if (name.size() == 5) return refuse(std::string("'") + arg + "' needs a file name after '='");
        o.xref_output = std::string(name.substr(5));
      } else if (name == "exit-status=errors") o.error_status = true;
      else if (name == "exit-status=classic") o.error_status = false;
      else return refuse(std::string("unknown option '") + arg + "'");
      if (o.help || o.version) return o;
      continue;
    }
    for (const char* c = arg + 1; *c; ++c) {
      // I, i and w are exact; every other letter is case-insensitive.
      if (*c == 'I') {
        if (i + 1 >= argc) return refuse(std::string("option -I in '") + arg + "' needs a directory after it");
        add_include(o, argv[++i]);
        continue;
      }
      if (*c == 'i') {
        o.no_info = true;
        continue;
      }
      if (*c == 'w') {
        o.no_warning = o.no_info = true;
        continue;
      }
      switch (std::tolower(static_cast<unsigned char>(*c))) {
        case 'c': o.dict_check = false; break;
        case 'd': o.debug_ops = true; break;
        case 'g': pending[p_global] = true; break;
        case 'l': o.screen = false; break;
        case 'n': o.dictionaries = false; break;
        case 'o': pending[p_output] = true; break;
        case 'p':
          pending[p_system] = true;
          o.system = true;
          o.dict_open_mask |= kSystemTablesMask;
          break;
        case 's':
          o.summary = true;
          o.summary_start = std::time(nullptr);
          break;
        case 't': o.test_only = true; break;
        case 'u': pending[p_user] = true; break;
        case 'x': pending[p_debug] = true; break;
        default: return refuse(unknown_letter(*c, arg));
      }
    }
  }
  if (pending[p_system]) return refuse("option -p needs a system name");
  if (pending[p_global]) return refuse("option -g needs a dictionary name");
  if (pending[p_user]) return refuse("option -u needs a dictionary name");
  if (tavcmpinc && *tavcmpinc) add_include(o, tavcmpinc);
  for (; i < argc; ++i) o.sources.emplace_back(argv[i]);
  if (o.sources.empty()) {
    if (pending[p_debug]) return refuse("option -x needs a number, and no source file is named");
    if (debug_argument)
      return refuse(std::string("option -x took '") + debug_argument +
                    "' as its number, which it is not, and no source file is left");
    if (pending[p_output]) return refuse("option -o needs a directory, and no source file is named");
    return refuse("no source file is named");
  }
  if (!o.dictionaries && (o.have_global_dict || o.have_user_dict))
    return refuse(std::string("option -n (no dictionaries) cannot be used with ") +
                  (o.have_global_dict ? "-g" : "-u"));
  return o;
}

}  // namespace tav
