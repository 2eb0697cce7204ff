// The character-screen layer: the progress window of the compiler.
//
// open_terminal() returns nullptr when no terminal can be used (no TERM, standard input or
// output not a terminal, curses refusing to start); callers then fall back to plain output on
// standard output. Opening a terminal sets the process's LC_CTYPE from the environment.
#pragma once

#include <memory>
#include <string_view>

namespace tav {

class Terminal {
 public:
  virtual ~Terminal() = default;

  // Size of the whole screen.
  virtual int screen_rows() const = 0;
  virtual int screen_cols() const = 0;

  // Opens the one window everything below is relative to: `height` rows and `width` columns,
  // framed, with `title` in its top border. Rows and columns count from 0 inside the frame.
  virtual void open_window(int height, int width, std::string_view title) = 0;
  virtual int window_rows() const = 0;  // usable rows inside the frame
  virtual int window_cols() const = 0;  // usable columns inside the frame

  // Text in the locale's character set, clipped to the window by display columns
  // (runtime/screen_text.h tells how each byte is drawn).
  virtual void print_at(int row, int col, std::string_view text) = 0;
  virtual void clear_rows(int first, int last) = 0;                   // inclusive
  virtual void move_to(int row, int col) = 0;
  virtual void refresh() = 0;

  // Shows `prompt` on the window's last row and waits for a key: Enter gives 0, Escape gives -1.
  virtual int wait_ack(std::string_view prompt) = 0;

  // Restores the terminal; the object may not be used afterwards.
  virtual void end() = 0;
};

std::unique_ptr<Terminal> open_terminal();

}  // namespace tav
