// The output file, written under a temporary name beside it and renamed into place only when
// preprocessing succeeded, so that a failed or interrupted run leaves no output behind.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace tav::pp {

class OutputFile {
 public:
  using TempHook = std::function<void(const std::string&)>;

  OutputFile() = default;
  ~OutputFile() { discard(); }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Creates the temporary file; the hook (may be empty) is told its name.
  bool open(const std::string& path, TempHook hook);
  void write(std::string_view text);
  // Flushes, closes and renames the temporary file to the final name; false on any failure.
  bool commit();
  // Removes the temporary file.
  void discard();

 private:
  bool flush();
  void forget_temp();

  std::string path_;
  std::string temp_;
  TempHook hook_;
  std::string buffer_;
  int fd_ = -1;
  bool failed_ = false;
};

}  // namespace tav::pp
