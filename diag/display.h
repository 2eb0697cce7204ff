// The progress display: the screen window, or plain lines on standard output (-l, or when no
// terminal can be opened). The diagnostics write their message lines through it and the driver
// its titles, results and summary.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace tav {

class Terminal;

class Display {
 public:
  static constexpr int kFirstMessageRow = 4;

  Display();
  ~Display();

  // Screen mode: initialise the screen and open the progress window with its banner. Returns
  // false, leaving plain mode on, when no terminal can be used.
  bool open_screen(std::string_view banner);
  bool screen() const { return term_ != nullptr; }
  // Where plain mode writes: standard output unless changed; nullptr writes nothing (the
  // messages then reach only the listing).
  void set_plain_output(std::FILE* out) { out_ = out; }

  // The line output routine: plain mode prints the text; screen mode writes it at the current
  // row, going on at the start of the following message rows (through next_row, with its page
  // waits) when it is wider than the window. Returns -1 when the operator cancelled such a page
  // wait, else 0.
  int line_out(std::string_view text);
  void flush();  // plain: flush standard output; screen: refresh the window

  // Starts a new message line (the screen part of new_message_line). Returns -1 when the
  // operator cancelled the page wait, else 0.
  int next_row();
  void start_messages() { row_ = kFirstMessageRow - 1; }  // the next line goes to the first row
  int row() const { return row_; }
  int last_row() const;
  int rows_left() const;  // message rows below the current one (screen mode)

  // Plain: printf to standard output. Screen: nothing.
  void print(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
  // Shows a message: screen mode on the next message row, plain mode as a line of its own.
  void show(std::string_view text);
  // Waits for acknowledgement in screen mode (0, or -1 when cancelled); plain mode returns 0.
  // `lead` goes in front of the usual prompt.
  int wait_ack(std::string_view lead = {});
  // Screen mode: clear the message rows and restart at the first one.
  void clear_messages();
  void set_title_line(std::string_view text);
  void print_at(int row, int col, std::string_view text);

  void end();  // ends the screen (screen mode)

 private:
  std::unique_ptr<Terminal> term_;
  int row_ = kFirstMessageRow - 1;
  int col_ = 0;
  std::FILE* out_ = stdout;
};

}  // namespace tav
