// A small program on top of the terminal layer for the screen tests: opens a titled window
// like the compiler's progress window, writes a banner and a few rows that exercise clipping,
// waits for acknowledgement, and after restoring the terminal prints what it saw:
//   result=<wait_ack result> screen=<rows>x<cols> window_rows=<rows inside the frame>
// Without a usable terminal it prints "no terminal" and exits with status 2.
#include <cstdio>
#include <string>

#include "runtime/terminal.h"

int main() {
  auto term = tav::open_terminal();
  if (!term) {
    std::printf("no terminal\n");
    return 2;
  }
  int rows = term->screen_rows();
  int cols = term->screen_cols();
  term->open_window(rows - 1, cols < 100 ? cols : 100, "DEMO");
  int inner = term->window_rows();
  term->print_at(0, 0, "BANNER LINE");
  term->print_at(1, 0, std::string(300, 'x'));  // clipped at the right border
  term->print_at(2, -3, "abcLEFT");             // clipped at the left border
  term->print_at(3, 0, "GONE");
  term->clear_rows(3, 3);
  term->print_at(inner, 0, "BELOW");  // outside the window: not shown
  term->print_at(-1, 0, "ABOVE");
  term->move_to(4, 0);
  term->refresh();
  int result = term->wait_ack("Press RETURN");
  term->end();
  std::printf("result=%d screen=%dx%d window_rows=%d\n", result, rows, cols, inner);
  return 0;
}
