#include "listing.h"

#include "text.h"

namespace tav::pp {

namespace {

constexpr const char* kMessageTexts[] = {
#define PP_MESSAGE(id, text) text,
#include "messages.def"
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
  if (file_ == nullptr && !unavailable_ && !path_.empty()) {
    file_ = std::fopen(path_.c_str(), "a");
    unavailable_ = file_ == nullptr;
  }
  if (file_ != nullptr) {
    std::fputc('\n', file_);
    std::fwrite(text.data(), 1, text.size(), file_);
  } else {
    text += '\n';
    std::fwrite(text.data(), 1, text.size(), stderr);
  }
}

void Listing::close() {
  if (file_ == nullptr) return;
  std::fputc('\n', file_);
  std::fclose(file_);
  file_ = nullptr;
}

}  // namespace tav::pp
