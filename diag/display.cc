#include "diag/display.h"

#include <cstdio>
#include <string>
#include <vector>

#include "runtime/screen_text.h"
#include "runtime/terminal.h"

namespace tav {

namespace {
constexpr int kMaxWindowWidth = 100;
constexpr int kTitleRow = 2;
constexpr std::string_view kAckPrompt = "Press RETURN to continue, ESC to cancel";
}  // namespace

Display::Display() = default;
Display::~Display() { end(); }

bool Display::open_screen(std::string_view banner) {
  term_ = open_terminal();
  if (!term_) return false;
  int width = term_->screen_cols() < kMaxWindowWidth ? term_->screen_cols() : kMaxWindowWidth;
  term_->open_window(term_->screen_rows() - 1, width, "TAVCMP");
  term_->print_at(0, 1, banner);
  term_->refresh();
  row_ = kFirstMessageRow - 1;
  col_ = 0;
  return true;
}

int Display::last_row() const { return term_ ? term_->window_rows() - 2 : 0; }

int Display::line_out(std::string_view text) {
  if (!term_) {
    if (out_) std::fwrite(text.data(), 1, text.size(), out_);
    return 0;
  }
  int result = 0;
  for (std::string_view rest = text;;) {
    // What fits from the current column on this row (a break at a space where there is one).
    const std::vector<std::string_view> pieces = screen_text::wrap(rest, term_->window_cols() - 1 - col_);
    term_->print_at(row_, 1 + col_, pieces.front());
    col_ += screen_text::display_width(pieces.front());
    if (pieces.size() == 1) break;
    rest = text.substr(static_cast<size_t>(pieces[1].data() - text.data()));
    if (next_row() < 0) result = -1;
  }
  return result;
}

void Display::flush() {
  if (term_)
    term_->refresh();
  else if (out_)
    std::fflush(out_);
}

int Display::next_row() {
  if (!term_) {
    line_out("\n");
    return 0;
  }
  int result = 0;
  ++row_;
  col_ = 0;
  if (row_ > last_row()) {
    result = term_->wait_ack(kAckPrompt);
    term_->clear_rows(kFirstMessageRow, term_->window_rows() - 1);
    row_ = kFirstMessageRow;
  }
  if (row_ < kFirstMessageRow) row_ = kFirstMessageRow;
  term_->move_to(row_, 1);
  return result;
}

void Display::print(const char* fmt, ...) {
  if (term_ || !out_) return;
  va_list args;
  va_start(args, fmt);
  std::vfprintf(out_, fmt, args);
  va_end(args);
}

void Display::show(std::string_view text) {
  if (!term_) {
    if (!out_) return;
    std::fputc('\n', out_);
    std::fwrite(text.data(), 1, text.size(), out_);
    std::fflush(out_);
    return;
  }
  next_row();
  line_out(text);
  term_->refresh();
}

int Display::wait_ack(std::string_view lead) {
  if (!term_) return 0;
  if (lead.empty()) return term_->wait_ack(kAckPrompt);
  return term_->wait_ack(std::string(lead) + std::string(kAckPrompt));
}

void Display::clear_messages() {
  if (!term_) return;
  term_->clear_rows(kFirstMessageRow, term_->window_rows() - 1);
  row_ = kFirstMessageRow - 1;
  col_ = 0;
}

void Display::set_title_line(std::string_view text) {
  if (!term_) return;
  term_->clear_rows(kTitleRow, kTitleRow);
  term_->print_at(kTitleRow, 1, text);
  term_->refresh();
}

void Display::print_at(int row, int col, std::string_view text) {
  if (term_) term_->print_at(row, col, text);
}

int Display::rows_left() const { return term_ ? last_row() - row_ : 0; }

void Display::end() {
  if (term_) {
    term_->end();
    term_.reset();
  }
}

}  // namespace tav
