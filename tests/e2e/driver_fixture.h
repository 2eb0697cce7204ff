// Shared by the tavcmp end-to-end tests: running the compiler in a scratch directory with a
// controlled environment (tavtest::tavcmp), and a few small programs.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/op6.h"
#include "tests/support/support.h"

namespace drvtest {

using tavtest::Env;
using tavtest::file_exists;
using tavtest::list_dir;
using tavtest::read_file;
using tavtest::RunResult;
using tavtest::tavcmp;
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

inline bool contains(const std::string& haystack, const std::string& needle) {
  return haystack.find(needle) != std::string::npos;
}

}  // namespace drvtest
