// Shared by the end-to-end tests: running the compiler in a scratch directory with a controlled
// environment (tavtest::tavcmp), a few small programs, reading listings, tables and dictionaries.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <utility>
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

// Compiles `source` as prog.spl in a scratch directory with "tavcmp -l -n <options>".
inline tavtest::Compiled compile_source(const std::string& source, std::vector<std::string> options = {},
                                        Env env = {}) {
  TempDir dir;
  return tavtest::compile(dir, source, "prog.spl", std::move(options), std::move(env));
}

// The ops with opcode `code` along the op list from `head`.
inline std::vector<uint32_t> ops_of(const tavtest::Op6& t, uint32_t head, tav::Op code) {
  std::vector<uint32_t> out;
  for (uint32_t op : t.list(head))
    if (t.opcode(op) == code) out.push_back(op);
  return out;
}

// "line N: text" in a listing, on one message line.
inline bool reports(const std::string& out, int line, const std::string& text) {
  return contains(out, "line " + std::to_string(line) + ": " + text);
}

// Every message line of a listing that has a line number, in order, from "line " on.
inline std::vector<std::string> message_lines(const std::string& out) {
  std::vector<std::string> lines;
  for (size_t at = out.find("line "); at != std::string::npos; at = out.find("line ", at)) {
    const size_t end = out.find('\n', at);
    lines.push_back(out.substr(at, end == std::string::npos ? std::string::npos : end - at));
    if (end == std::string::npos) break;
    at = end;
  }
  return lines;
}

// Loads the schema text into dictionary `dict` with "tavdict load", run in `dir`.
inline void load_dictionary(const TempDir& dir, const std::string& dict, const std::string& schema) {
  write_file(dir / "in.sch", schema);
  tavtest::RunOptions options;
  options.cwd = dir.path();
  const RunResult r = tavtest::run({tavtest::program("tavdict"), "load", dict, "in.sch"}, options);
  ASSERT_EQ(r.status, 0) << r.err;
}

// Neovim's program (Debian package neovim), or empty when it is not installed.
inline std::string nvim_program() {
  for (const char* dir : {"/usr/bin", "/usr/local/bin", "/bin"})
    if (file_exists(std::string(dir) + "/nvim")) return std::string(dir) + "/nvim";
  return {};
}

// Runs one SQL statement on an existing database file (the test links SQLite); returns the first
// column of each row, joined by ",", or "<no database>".
inline std::string sql(const std::string& file, const std::string& statement) {
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
    sqlite3_close(db);
    return "<no database>";
  }
  std::string out;
  sqlite3_stmt* st = nullptr;
  EXPECT_EQ(sqlite3_prepare_v2(db, statement.c_str(), -1, &st, nullptr), SQLITE_OK) << statement;
  int rc = SQLITE_DONE;
  while (st != nullptr && (rc = sqlite3_step(st)) == SQLITE_ROW) {
    const unsigned char* text = sqlite3_column_text(st, 0);
    out += (out.empty() ? "" : ",") + std::string(text ? reinterpret_cast<const char*>(text) : "");
  }
  EXPECT_EQ(rc, SQLITE_DONE) << statement;
  sqlite3_finalize(st);
  sqlite3_close(db);
  return out;
}

}  // namespace drvtest
