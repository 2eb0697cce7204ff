// The scratch files of tavdict (the preprocessor's output, the listings of its checks): removed
// when they go out of use, and when SIGINT, SIGTERM or SIGHUP ends the program, whose handler
// removes them before the signal takes its usual course. What a load had written is then undone
// by the data-file layer the next time the dictionary is opened.
#pragma once

#include <string>
#include <vector>

namespace tav::dict_tool {

// Installs the handler of the signals above.
void remove_scratch_on_signals();

// A scratch directory under TMPDIR (or /tmp), removed with the files named through it.
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  bool ok() const { return !path_.empty(); }
  // The path of a file in the directory; the file is removed with it.
  std::string file(const std::string& name);

 private:
  std::string path_;
  std::vector<std::string> files_;
  std::vector<int> slots_;  // of the signal handler's list, the directory's first
};

}  // namespace tav::dict_tool
