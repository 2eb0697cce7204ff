#include "runtime/screen_text.h"

#include <cwchar>
#include <cwctype>

namespace tav::screen_text {

namespace {

constexpr wchar_t kStandIn = L'?';

// One decoded character: the bytes it takes, what is drawn for it and its columns (0 for a
// combining mark, which is drawn over the character before it).
struct Glyph {
  size_t bytes;
  wchar_t drawn;
  int width;
};

Glyph decode(std::string_view text, size_t pos) {
  if (text[pos] == '\t') return {1, L' ', 1};
  std::mbstate_t state{};
  wchar_t wc = 0;
  const size_t n = std::mbrtowc(&wc, text.data() + pos, text.size() - pos, &state);
  // A byte that starts no character of the locale (or only an incomplete one) is drawn alone.
  if (n == 0 || n == static_cast<size_t>(-1) || n == static_cast<size_t>(-2)) return {1, kStandIn, 1};
  if (!std::iswprint(static_cast<wint_t>(wc))) return {n, kStandIn, 1};
  const int width = ::wcwidth(wc);
  if (width < 0 || width > 2) return {n, kStandIn, 1};
  return {n, wc, width};
}

// A character with the combining marks after it: bytes [begin, end) of the text, drawn as
// drawn[first, first + count) of its layout.
struct Cell {
  size_t begin;
  size_t end;
  int width;
  size_t first;
  size_t count;
};

struct Layout {
  std::vector<Cell> cells;
  std::wstring drawn;
};

Layout lay_out(std::string_view text) {
  Layout layout;
  layout.cells.reserve(text.size());
  layout.drawn.reserve(text.size());
  for (size_t pos = 0; pos < text.size();) {
    Glyph g = decode(text, pos);
    if (g.width == 0 && !layout.cells.empty()) {
      Cell& base = layout.cells.back();
      base.end = pos + g.bytes;
      ++base.count;
    } else {
      if (g.width == 0) g = {g.bytes, kStandIn, 1};  // a mark with nothing to combine with
      layout.cells.push_back({pos, pos + g.bytes, g.width, layout.drawn.size(), 1});
    }
    layout.drawn += g.drawn;
    pos += g.bytes;
  }
  return layout;
}

bool is_space(std::string_view text, const Cell& cell) {
  return cell.end == cell.begin + 1 && text[cell.begin] == ' ';
}

// Where the row that starts at cell `first` ends when cell `over` does not fit in it: the end of
// the row's piece (a cell index) and the cell the next row starts at.
struct RowBreak {
  size_t piece_end;
  size_t next;
};

RowBreak break_row(std::string_view text, const std::vector<Cell>& cells, size_t first, size_t over) {
  // The last run of spaces the row reaches, if there is text in the row before it.
  size_t run = over;
  if (!is_space(text, cells[over])) {
    size_t k = over;
    while (k > first && !is_space(text, cells[k - 1])) --k;
    run = k > first ? k - 1 : over;
  }
  if (is_space(text, cells[run])) {
    while (run > first && is_space(text, cells[run - 1])) --run;
    if (run > first) {
      size_t next = run;
      while (next < cells.size() && is_space(text, cells[next])) ++next;
      return {run, next};
    }
  }
  // No space to break at: break before the cell that does not fit, but put one cell in a row.
  if (over == first) return {over + 1, over + 1};
  return {over, over};
}

}  // namespace

int display_width(std::string_view text) {
  int total = 0;
  for (const Cell& cell : lay_out(text).cells) total += cell.width;
  return total;
}

std::wstring shown(std::string_view text, int skip, int room) {
  const Layout layout = lay_out(text);
  std::wstring out;
  int col = 0;   // column of the text where the current cell starts
  int used = 0;  // columns written
  for (const Cell& cell : layout.cells) {
    const int cell_end = col + cell.width;
    if (cell_end > skip) {
      const int take = col < skip ? cell_end - skip : cell.width;
      if (used + take > room) break;
      if (col < skip)
        out.append(static_cast<size_t>(take), L' ');
      else
        out.append(layout.drawn, cell.first, cell.count);
      used += take;
    }
    col = cell_end;
  }
  return out;
}

std::vector<std::string_view> wrap(std::string_view text, int width) {
  if (width < 1) return {text};
  const std::vector<Cell> cells = lay_out(text).cells;
  std::vector<std::string_view> pieces;
  size_t first = 0;  // the cell the current row starts at
  int used = 0;
  for (size_t k = 0; k < cells.size(); ++k) {
    used += cells[k].width;
    if (used <= width) continue;
    const RowBreak b = break_row(text, cells, first, k);
    const size_t end = b.piece_end < cells.size() ? cells[b.piece_end].begin : text.size();
    pieces.push_back(text.substr(cells[first].begin, end - cells[first].begin));
    first = b.next;
    used = 0;
    k = first - 1;  // the loop goes on with the next row's first cell (first is at least 1 here)
  }
  if (first < cells.size() || pieces.empty())
    pieces.push_back(first < cells.size() ? text.substr(cells[first].begin) : text.substr(text.size()));
  return pieces;
}

}  // namespace tav::screen_text
