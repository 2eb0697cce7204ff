// The message records of --message-records: every message also goes, as one line of
// tab-separated fields, into a file the compiler reads back for its own diagnostic formats:
//
//   <line> TAB <column> TAB <message id> TAB <file> TAB <context> [TAB <incl-line> TAB <incl-file>]... LF
//
// The names and the context are escaped as the line markers escape names (a tab is "\t"), so no
// field holds a tab or a newline. The include pairs are the chain of the file the message is in,
// innermost first: the line of the #include and the file that holds it.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "messages.h"

namespace tav::pp {

// Where a message is: the file and line (empty and 0 when none), the 1-based character column
// (0 when not known) and the include chain, innermost first.
struct MessagePlace {
  std::string_view file;
  int line = 0;
  int column = 0;
  std::vector<std::pair<int, std::string_view>> chain;
};

// The id of a message as diag/pp_messages.def names it ("cant_open_include").
const char* message_id(Msg msg);

// One record, with its "\n". A context longer than kMaxContext bytes is cut on a character
// boundary.
std::string format_record(const MessagePlace& place, Msg msg, std::string_view context);

// The 1-based column of the character that starts at byte `offset` of a line (UTF-8: the bytes
// that continue a character do not count).
int character_column(std::string_view line, std::size_t offset);

class MessageRecords {
 public:
  static constexpr std::size_t kMaxContext = 4096;

  // With an empty path nothing is written. Otherwise the file is created or emptied now; when it
  // cannot be, standard error says why and the run goes on without records.
  explicit MessageRecords(const std::string& path);
  ~MessageRecords() { close(); }
  MessageRecords(const MessageRecords&) = delete;
  MessageRecords& operator=(const MessageRecords&) = delete;

  void add(const MessagePlace& place, Msg msg, std::string_view context);
  // Closes the file; a write that failed is told on standard error.
  void close();

 private:
  std::string path_;
  std::FILE* file_ = nullptr;
};

}  // namespace tav::pp
