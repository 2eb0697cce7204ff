#include "runtime/terminal.h"

// The wide-character functions of curses: the window draws characters of the locale, not bytes.
#ifndef NCURSES_WIDECHAR
#define NCURSES_WIDECHAR 1
#endif
#include <curses.h>
#include <term.h>  // after curses.h; defines capability names as macros
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <string>

#include "runtime/screen_text.h"

namespace tav {

namespace {

constexpr int kEscape = 27;
// How long a lone Escape waits for the rest of a function-key sequence, in milliseconds.
constexpr int kEscapeDelay = 100;

bool usable_term_name(const char* term) {
  if (term == nullptr || *term == '\0') return false;
  return std::string_view(term) != "dumb";
}

class CursesTerminal final : public Terminal {
 public:
  explicit CursesTerminal(SCREEN* screen) : screen_(screen) {
    cbreak();
    noecho();
    nonl();
    set_escdelay(kEscapeDelay);
    keypad(stdscr, TRUE);
    inner_ = stdscr;
  }

  ~CursesTerminal() override { end(); }

  CursesTerminal(const CursesTerminal&) = delete;
  CursesTerminal& operator=(const CursesTerminal&) = delete;

  int screen_rows() const override { return ended() ? 0 : getmaxy(stdscr); }
  int screen_cols() const override { return ended() ? 0 : getmaxx(stdscr); }

  void open_window(int height, int width, std::string_view title) override {
    if (ended()) return;
    close_window();
    int rows = getmaxy(stdscr);
    int cols = getmaxx(stdscr);
    height = clamp(height, 3, rows);
    width = clamp(width, 3, cols);
    int top = rows > height ? (rows - height) / 2 : 0;
    int left = cols > width ? (cols - width) / 2 : 0;
    frame_ = newwin(height, width, top, left);
    if (frame_ == nullptr) return;
    inner_ = derwin(frame_, height - 2, width - 2, 1, 1);
    if (inner_ == nullptr) {
      delwin(frame_);
      frame_ = nullptr;
      inner_ = stdscr;
      return;
    }
    keypad(inner_, TRUE);
    box(frame_, 0, 0);
    draw_title(title, width);
    touchwin(frame_);
  }

  int window_rows() const override { return ended() ? 0 : getmaxy(inner_); }
  int window_cols() const override { return ended() ? 0 : getmaxx(inner_); }

  void print_at(int row, int col, std::string_view text) override {
    if (ended()) return;
    int rows = getmaxy(inner_);
    int cols = getmaxx(inner_);
    if (row < 0 || row >= rows || col >= cols) return;
    const int skip = col < 0 ? -col : 0;
    if (col < 0) col = 0;
    // Clipped by display columns, so that nothing spills into the next row.
    const std::wstring shown = screen_text::shown(text, skip, cols - col);
    if (shown.empty()) return;
    // Writing into the last cell of the window cannot advance the cursor and reports an
    // error, but the character is drawn; nothing to handle.
    mvwaddnwstr(inner_, row, col, shown.c_str(), static_cast<int>(shown.size()));
  }

  void clear_rows(int first, int last) override {
    if (ended()) return;
    int rows = getmaxy(inner_);
    if (first < 0) first = 0;
    if (last >= rows) last = rows - 1;
    for (int r = first; r <= last; ++r) {
      wmove(inner_, r, 0);
      wclrtoeol(inner_);
    }
  }

  void move_to(int row, int col) override {
    if (ended()) return;
    wmove(inner_, clamp(row, 0, getmaxy(inner_) - 1), clamp(col, 0, getmaxx(inner_) - 1));
  }

  void refresh() override {
    if (ended()) return;
    // The frame first, then the inside, so that the cursor ends where the inside left it.
    if (frame_ != nullptr) wnoutrefresh(frame_);
    wnoutrefresh(inner_);
    doupdate();
  }

  int wait_ack(std::string_view prompt) override {
    if (ended()) return -1;
    int last = getmaxy(inner_) - 1;
    int y = 0, x = 0;
    getyx(inner_, y, x);
    clear_rows(last, last);
    print_at(last, 0, prompt);
    int prompt_end = screen_text::display_width(prompt);
    move_to(last, prompt_end < getmaxx(inner_) ? prompt_end : getmaxx(inner_) - 1);
    refresh();
    int result = -1;
    for (;;) {
      int key = wgetch(inner_);
      if (key == '\n' || key == '\r' || key == KEY_ENTER) {
        result = 0;
        break;
      }
      // End of input or a read error counts as cancelling, so that nothing waits forever.
      if (key == kEscape || key == ERR) break;
    }
    clear_rows(last, last);
    wmove(inner_, y, x);
    refresh();
    return result;
  }

  void end() override {
    if (ended()) return;
    close_window();
    endwin();
    delscreen(screen_);
    screen_ = nullptr;
    inner_ = nullptr;
  }

 private:
  bool ended() const { return screen_ == nullptr; }

  static int clamp(int v, int lo, int hi) {
    if (v > hi) v = hi;
    if (v < lo) v = lo;
    return v;
  }

  void draw_title(std::string_view title, int width) {
    const int room = width - 2;
    // A blank on either side when there is room; a title too wide loses the blanks first.
    std::wstring text = screen_text::shown(title, 0, room);
    if (screen_text::display_width(title) + 2 <= room) text = L" " + text + L" ";
    const int left = (width - wcswidth(text.c_str(), text.size())) / 2;
    mvwaddnwstr(frame_, 0, left, text.c_str(), static_cast<int>(text.size()));
  }

  void close_window() {
    if (inner_ != nullptr && inner_ != stdscr) delwin(inner_);
    if (frame_ != nullptr) {
      werase(frame_);
      wnoutrefresh(frame_);
      delwin(frame_);
    }
    frame_ = nullptr;
    inner_ = stdscr;
  }

  SCREEN* screen_;
  WINDOW* frame_ = nullptr;
  WINDOW* inner_ = nullptr;
};

}  // namespace

std::unique_ptr<Terminal> open_terminal() {
  if (!usable_term_name(std::getenv("TERM"))) return nullptr;
  if (!isatty(STDIN_FILENO) || !isatty(STDOUT_FILENO)) return nullptr;
  // Look the terminal type up first: a failing newterm leaves memory behind, a failing
  // setupterm does not (and, given somewhere to put the error, neither ends the process the
  // way initscr would).
  int lookup_error = 0;
  if (setupterm(nullptr, STDOUT_FILENO, &lookup_error) != OK) return nullptr;
  del_curterm(cur_term);
  // The text's character set is the environment's, and curses reads it when it starts. Only
  // the character classes change: numbers are still written and read the C way.
  const std::string previous = std::setlocale(LC_CTYPE, nullptr);
  std::setlocale(LC_CTYPE, "");
  SCREEN* screen = newterm(nullptr, stdout, stdin);
  if (screen == nullptr) {
    std::setlocale(LC_CTYPE, previous.c_str());
    return nullptr;
  }
  set_term(screen);
  return std::make_unique<CursesTerminal>(screen);
}

}  // namespace tav
