// tavpp: the preprocessor run by the compiler on every source before it is compiled.
//
// It reads the source, interprets the directive lines (#include, #define, #if and friends),
// replaces macros in the program text and writes the result with line markers
// "# <line> <file>" so that the compiler can report every line at its true place.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace tav::pp {

struct Options {
  std::vector<std::pair<std::string, std::string>> defines;  // -DNAME[=value], in order
  std::vector<std::string> include_dirs;                      // -Idir, in search order
  std::string listing;                                        // -o: message listing (empty: stderr)
  std::string dependency_file;    // -MF: make rules for the files read (empty: none)
  std::string dependency_target;  // -MT: the rules' target (empty: the source with ".op6")
  bool include_chain = false;     // --include-chain: "#> <line>" and "#<" around each include
  std::string message_records;    // --message-records=FILE: one record a message (empty: none)
  // --source-name=NAME: the source is read from `source` but is NAME everywhere else: in the
  // line markers, the messages and the rules, and its includes are searched beside NAME. An
  // editor's unsaved text, copied elsewhere, is preprocessed as the file it will be saved as.
  std::string source_name;
  std::string source;
  std::string output;
  // The source's name everywhere but where it is read from.
  const std::string& source_named() const { return source_name.empty() ? source : source_name; }
  // Called with the name of the temporary output file right after it is created, and with an
  // empty string once it has been renamed or removed, so that a signal handler can remove it.
  std::function<void(const std::string&)> on_temp_file;
};

inline constexpr const char* kUsage =
    "Usage: tavpp [-DNAME[=value]]... [-Idir]... -olisting source output\n";

// What --help prints after kUsage.
inline constexpr const char* kHelp =
    "Preprocesses a TAVRIN-4GL source for the compiler: directive lines (#include, #define,\n"
    "#undef, #if, #ifdef, #ifndef, #elif, #else, #endif, #error) are carried out, macros are\n"
    "replaced in the program text, and the output has line markers \"# <line> <file>\".\n"
    "  -DNAME[=value]  define a macro (value 1 when none is given)\n"
    "  -Idir           search dir for included files, after the including file's directory\n"
    "  -olisting       append messages to the listing file instead of standard error\n"
    "  -MFfile         also write make rules into file: the target depends on the source and\n"
    "                  every file it included, and each included file gets an empty rule\n"
    "  -MTtarget       the target of those rules (default: the source with .op6)\n"
    "  --include-chain also write \"#> <line>\" where an include begins (the line of its\n"
    "                  #include) and \"#<\" where it ends, for the compiler's include notes\n"
    "  --message-records=FILE\n"
    "                  also write every message into FILE, one line of tab-separated fields:\n"
    "                  line, column, message id, file, context, then the include chain\n"
    "  --source-name=NAME\n"
    "                  read the source file but call it NAME in the output, the messages and\n"
    "                  the rules, and search NAME's directory for its includes\n"
    "  --              the arguments after it are file names, even when they begin with \"-\"\n"
    "  --help          print this text and exit\n"
    "  --version       print the product version and exit\n"
    "The output is written only when there was no error; the -MF rules also after errors,\n"
    "once the source was read.\n"
    "Exit status: 0 done, 1 errors reported, 2 usage error.\n";

// Parses the arguments that follow the program name; nullopt on a usage error.
std::optional<Options> parse_args(std::span<const std::string> args);

// Preprocesses options.source into options.output.  Returns 0 on success and 1 when an error
// was reported (the output file is then removed).
int run_tavpp(const Options& options);

}  // namespace tav::pp
