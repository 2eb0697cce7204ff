// Where the diagnostics of a run go in a modern format: the gcc lines of each file as soon as
// it is compiled (standard error, or the --diagnostics-output file), the JSON or SARIF document
// of the whole run when it ends (standard output, or that file).
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "diag/render.h"

namespace tav {

class DiagnosticsOutput {
 public:
  DiagnosticsOutput(DiagnosticsFormat format, std::string path, std::string version);
  ~DiagnosticsOutput();
  DiagnosticsOutput(const DiagnosticsOutput&) = delete;
  DiagnosticsOutput& operator=(const DiagnosticsOutput&) = delete;

  // Opens the output file when one is named; false, with the reason in `problem`, when it
  // cannot be written.
  bool open(std::string& problem);
  // A file of the run is done.
  void file_done(FileDiagnostics file);
  // Writes the document (json, sarif) and closes the output; false, with the reason, when the
  // output could not be written completely.
  bool finish(std::string& problem);

 private:
  std::FILE* stream() const;

  DiagnosticsFormat format_;
  std::string path_;
  std::string version_;
  std::FILE* file_ = nullptr;
  bool colour_ = false;
  SourceLineReader lines_;
  std::vector<FileDiagnostics> run_;
};

}  // namespace tav
