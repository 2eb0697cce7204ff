// Helpers for tests: scratch directories, files, and running the product's programs.
#pragma once

#include <string>
#include <vector>

namespace tavtest {

// A fresh directory under the system's temporary directory, removed with everything in it.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

void write_file(const std::string& path, const std::string& content);
std::string read_file(const std::string& path);  // throws std::runtime_error when missing
bool file_exists(const std::string& path);
std::vector<std::string> list_dir(const std::string& path);  // sorted names, no "." or ".."

struct RunResult {
  int status = -1;  // exit status, or 128 + signal
  std::string out;  // standard output
  std::string err;  // standard error
};

struct RunOptions {
  std::string cwd;                  // empty: the current directory
  std::vector<std::string> env;     // extra NAME=value entries (override the inherited ones)
  std::vector<std::string> unset;   // names removed from the environment
  std::string input;                // standard input
};

// Runs a program (argv[0] is a path) without a shell and collects its output.
RunResult run(const std::vector<std::string>& argv, const RunOptions& options = {});

// Paths into the build's product directory.
std::string product_dir();                        // <build>/tavrin
std::string program(const std::string& name);     // <build>/tavrin/bin/<name>
std::string source_dir();                         // the source tree

}  // namespace tavtest
