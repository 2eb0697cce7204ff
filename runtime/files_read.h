// The files a compile read besides its source and includes (dictionary tables, component
// libraries, catalogue files): the prerequisites the driver adds to a table's make rule. Each
// path is kept once, spelt as it was opened, in the order first read.
#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace tav {

class FilesRead {
 public:
  void add(std::string path) {
    if (path.empty() || std::find(paths_.begin(), paths_.end(), path) != paths_.end()) return;
    paths_.push_back(std::move(path));
  }
  const std::vector<std::string>& paths() const { return paths_; }

 private:
  std::vector<std::string> paths_;
};

}  // namespace tav
