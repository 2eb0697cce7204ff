#include "listing.h"

#include "runtime/output_open.h"
#include "text.h"

namespace tav::pp {

namespace {

constexpr const char* kMessageTexts[] = {
#define PP_MESSAGE(id, text) text,
#include "diag/pp_messages.def"
#undef PP_MESSAGE
};

constexpr std::size_t kMaxLine = 512;

}  // namespace

const char* message_text(Msg msg) { return kMessageTexts[static_cast<std::size_t>(msg)]; }

std::string format_message(std::string_view file, int line, std::string_view text,
                           std::string_view context) {
  std::string out;
  if (!file.empty()) out += normalise_path(file) + ", ";
  if (line > 0) out += "line " + std::to_string(line) + ": ";
  out += "ERROR  ";
  out += text;
  if (!context.empty()) {
    out += " - '";
    out += context;
    out += "'";
  }
  if (out.size() > kMaxLine) out.resize(kMaxLine);
  return out;
}

void Listing::report(std::string_view file, int line, Msg msg, std::string_view context) {
  ++count_;
  std::string text = format_message(file, line, message_text(msg), context);
  if (file_ == nullptr && !unavailable_ && !path_.empty()) open();
  if (file_ != nullptr) {
    std::fputc('\n', file_);
    std::fwrite(text.data(), 1, text.size(), file_);
  } else {
    text += '\n';
    std::fwrite(text.data(), 1, text.size(), stderr);
  }
}

// The listing is appended to without following a symbolic link planted at its name, and only
// when it is a regular file; otherwise the messages go to standard error after a line that says
// why.
void Listing::open() {
  const OpenedOutput opened = open_output(path_, OutputMode::append);
  if (opened.fd >= 0) file_ = fdopen(opened.fd, "a");
  if (file_ != nullptr) return;
  if (opened.fd >= 0) ::close(opened.fd);
  unavailable_ = true;
  std::fprintf(stderr, "tavpp: cannot write the listing '%s': %s\n", path_.c_str(),
               opened.problem.empty() ? "out of memory" : opened.problem.c_str());
}

void Listing::close() {
  if (file_ == nullptr) return;
  std::fputc('\n', file_);
  std::fflush(file_);
  remove_if_empty(path_, fileno(file_));  // nothing could be written (a full disk)
  std::fclose(file_);
  file_ = nullptr;
}

}  // namespace tav::pp
