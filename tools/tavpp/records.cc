#include "records.h"

#include <unistd.h>

#include "runtime/output_open.h"
#include "text.h"

namespace tav::pp {

namespace {

constexpr const char* kMessageIds[] = {
#define PP_MESSAGE(id, text) #id,
#include "diag/pp_messages.def"
#undef PP_MESSAGE
};

bool continues_character(char c) { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; }

// At most `limit` bytes of the text, not cutting a character in two.
std::string_view cut(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text;
  std::size_t end = limit;
  while (end > 0 && continues_character(text[end])) --end;
  return text.substr(0, end);
}

}  // namespace

const char* message_id(Msg msg) { return kMessageIds[static_cast<std::size_t>(msg)]; }

int character_column(std::string_view line, std::size_t offset) {
  int column = 1;
  for (std::size_t i = 0; i < offset && i < line.size(); ++i)
    if (!continues_character(line[i])) ++column;
  return column;
}

std::string format_record(const MessagePlace& place, Msg msg, std::string_view context) {
  std::string record = std::to_string(place.line) + '\t' + std::to_string(place.column) + '\t' + message_id(msg) +
                       '\t' + marker_name(place.file) + '\t' +
                       marker_name(cut(context, MessageRecords::kMaxContext));
  for (const auto& [line, file] : place.chain) record += '\t' + std::to_string(line) + '\t' + marker_name(file);
  record += '\n';
  return record;
}

MessageRecords::MessageRecords(const std::string& path) : path_(path) {
  if (path_.empty()) return;
  const OpenedOutput opened = open_output(path_, OutputMode::truncate);
  if (opened.fd >= 0) file_ = fdopen(opened.fd, "w");
  if (file_ != nullptr) return;
  if (opened.fd >= 0) ::close(opened.fd);
  std::fprintf(stderr, "tavpp: cannot write the message records '%s': %s\n", path_.c_str(),
               opened.problem.empty() ? "out of memory" : opened.problem.c_str());
}

void MessageRecords::add(const MessagePlace& place, Msg msg, std::string_view context) {
  if (file_ == nullptr) return;
  const std::string record = format_record(place, msg, context);
  std::fwrite(record.data(), 1, record.size(), file_);
}

void MessageRecords::close() {
  if (file_ == nullptr) return;
  const bool failed = std::fflush(file_) != 0 || std::ferror(file_) != 0;
  const bool closed = std::fclose(file_) == 0;
  file_ = nullptr;
  if (failed || !closed)
    std::fprintf(stderr, "tavpp: cannot write the message records '%s': some records are missing\n", path_.c_str());
}

}  // namespace tav::pp
