// Shared by the tavcmp end-to-end tests: running the compiler in a scratch directory with a
// controlled environment, and a few small programs.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/support.h"

namespace drvtest {

using tavtest::file_exists;
using tavtest::list_dir;
using tavtest::read_file;
using tavtest::RunResult;
using tavtest::TempDir;
using tavtest::write_file;

inline const char kUsage[] =
    "Usage: tavcmp [-dsnclwi] [-p sys] [-g dict] [-u dict]\n"
    "              [-o dir] file.spl ...\n";

// A program that compiles without any message.
inline const char kClean[] = "procedure main\n  pause\nend\n";

// A program whose only errors are unknown statements on the given lines (1-based, at least 3).
inline std::string errors_on(const std::vector<int>& lines, int total) {
  std::string text = "procedure main\n  pause\n";
  size_t next = 0;
  for (int line = 3; line < total; ++line) {
    bool bad = next < lines.size() && lines[next] == line;
    if (bad) ++next;
    text += bad ? "  bogus\n" : "  pause\n";
  }
  return text + "end\n";
}

// The standard line of error 1 for the unknown word of errors_on().
inline std::string bogus_line(const std::string& file, int line) {
  return "\n" + file + ", line " + std::to_string(line) +
         ": ERROR  Statement is invalid or not known - 'bogus'";
}

struct Env {
  std::vector<std::string> set;
  std::vector<std::string> unset;
};

// Runs tavcmp in `cwd` with TAVRIN pointing at the build's product directory (unless `env`
// sets or removes it) and none of the variables that change its behaviour inherited from the
// caller.
inline RunResult tavcmp(const std::string& cwd, std::vector<std::string> args, Env env = {}) {
  args.insert(args.begin(), tavtest::program("tavcmp"));
  tavtest::RunOptions options;
  options.cwd = cwd;
  bool own_tavrin = false;
  for (const std::string& e : env.set) own_tavrin |= e.rfind("TAVRIN=", 0) == 0;
  for (const std::string& u : env.unset) own_tavrin |= u == "TAVRIN";
  if (!own_tavrin) options.env.push_back("TAVRIN=" + tavtest::product_dir());
  for (std::string& e : env.set) options.env.push_back(std::move(e));
  options.unset = {"TAVCMPINC", "TAVLANGUAGE", "TAVLANGDIR", "TERM"};
  for (std::string& u : env.unset) options.unset.push_back(std::move(u));
  return tavtest::run(args, options);
}

inline bool contains(const std::string& haystack, const std::string& needle) {
  return haystack.find(needle) != std::string::npos;
}

}  // namespace drvtest
