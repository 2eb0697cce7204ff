#include "driver/diagnostics_output.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "runtime/output_open.h"

namespace tav {

DiagnosticsOutput::DiagnosticsOutput(DiagnosticsFormat format, std::string path, std::string version)
    : format_(format), path_(std::move(path)), version_(std::move(version)), lines_(disk_line_reader()) {}

DiagnosticsOutput::~DiagnosticsOutput() {
  if (file_) std::fclose(file_);
}

bool DiagnosticsOutput::open(std::string& problem) {
  if (!path_.empty()) {
    const OpenedOutput opened = open_output(path_, OutputMode::truncate);
    if (opened.fd >= 0) file_ = fdopen(opened.fd, "w");
    if (!file_) {
      if (opened.fd >= 0) close(opened.fd);
      problem = "cannot write '" + path_ + "': " + (opened.problem.empty() ? std::strerror(errno) : opened.problem);
      return false;
    }
  }
  // Colours as GCC gives them: only on a terminal, and never when NO_COLOR is set.
  const char* no_color = std::getenv("NO_COLOR");
  colour_ = format_ == DiagnosticsFormat::gcc && !file_ && isatty(STDERR_FILENO) && !(no_color && *no_color);
  return true;
}

std::FILE* DiagnosticsOutput::stream() const {
  if (file_) return file_;
  return format_ == DiagnosticsFormat::gcc ? stderr : stdout;
}

void DiagnosticsOutput::file_done(FileDiagnostics file) {
  if (format_ == DiagnosticsFormat::gcc) {
    const std::string text = render_gcc(file, lines_, colour_);
    std::fwrite(text.data(), 1, text.size(), stream());
    std::fflush(stream());
    return;
  }
  run_.push_back(std::move(file));
}

bool DiagnosticsOutput::finish(std::string& problem) {
  std::string document;
  if (format_ == DiagnosticsFormat::json) document = render_json(run_, lines_) + "\n";
  if (format_ == DiagnosticsFormat::sarif) document = render_sarif(run_, version_) + "\n";
  std::FILE* out = stream();
  std::fwrite(document.data(), 1, document.size(), out);
  bool ok = std::fflush(out) == 0 && !std::ferror(out);
  if (file_) {
    ok = std::fclose(file_) == 0 && ok;
    file_ = nullptr;
  }
  if (!ok) problem = "cannot write the diagnostics to " + (path_.empty() ? std::string("standard output") : "'" + path_ + "'") + ": " + std::strerror(errno);
  return ok;
}

}  // namespace tav
