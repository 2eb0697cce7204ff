// Writing the operations table file (.op6): the op space from the optable_header to its break,
// then the program's data area, each padded with zeros to a multiple of 8.
//
// The file is written under a work name (the .op6 name with ".tmp") created exclusively, and
// then renamed over the .op6, so that a reader sees either the previous table or the new one,
// never a half-written file. Every failure removes the work file and abandons the source file
// with a message for the driver to show.
#pragma once

#include <functional>
#include <string>

namespace tav {

struct CompileSettings;
struct FileContext;
struct Stores;

class OptableWriter {
 public:
  // `note_work_file` is told the work file's name while it exists ("" afterwards), so that a
  // signal arriving meanwhile can remove it.
  using WorkFileHook = std::function<void(const std::string&)>;

  // `program` names the compiler in the messages of a failure.
  OptableWriter(Stores& stores, const CompileSettings& settings, FileContext& file, std::string program,
                WorkFileHook note_work_file = nullptr);
  void write();

 private:
  void fill_header();
  // Abandons the table with the classic message and, for standard error, the file concerned
  // (`path`) and the system's text for `err`.
  [[noreturn]] void fail(const std::string& message, const std::string& path, int err);

  Stores& stores_;
  const CompileSettings& settings_;
  FileContext& file_;
  std::string program_;
  WorkFileHook note_;
  std::string work_name_;
};

}  // namespace tav
