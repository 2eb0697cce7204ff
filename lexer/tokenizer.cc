#include "lexer/tokenizer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cfloat>
#include <cmath>
#include <cstring>

#include "codegen/convert.h"
#include "lexer/verbs.h"
#include "runtime/ascii.h"

namespace tav {

namespace {

// Character classes of the scanner, one table lookup per character.
enum : uint8_t {
  kEnd = 1,        // terminator, "\n", "\r": the line ends here
  kBlank = 2,      // blank, tab: end a word, skipped between tokens
  kSeparator = 4,  // ";" ",": end a word (except in raw mode), skipped between tokens
  kDelimiter = 8,  // ( ) [ ] @ { }: a token of their own
  kControl = 16,   // other control characters: dropped with a message
  kUpper = 32,     // A to Z
  kQuote = 64,     // ' and "
  kDropped = 128,  // ` is left out of words
};

constexpr std::array<uint8_t, 256> make_char_classes() {
  std::array<uint8_t, 256> t{};
  for (int c = 0; c < 0x20; ++c) t[c] = kControl;
  t['\0'] = kEnd;
  t['\n'] = kEnd;
  t['\r'] = kEnd;
  t[' '] = kBlank;
  t['\t'] = kBlank;
  t[';'] = kSeparator;
  t[','] = kSeparator;
  for (char c : {'(', ')', '[', ']', '@', '{', '}'}) t[static_cast<unsigned char>(c)] = kDelimiter;
  for (int c = 'A'; c <= 'Z'; ++c) t[c] = kUpper;
  t['\''] = kQuote;
  t['"'] = kQuote;
  t['`'] = kDropped;
  return t;
}
constexpr std::array<uint8_t, 256> kCharClass = make_char_classes();

inline uint8_t char_class(char c) { return kCharClass[static_cast<unsigned char>(c)]; }

constexpr std::string_view kEofText = "[EOF]";
constexpr unsigned kRepeatMax = 511;  // a repeated-character literal must fit a token
constexpr unsigned kDigitsMax = 31;   // the attribute's digit fields are 5 bits wide

}  // namespace

LineSource::Status TextLineSource::next_line(Tokenizer& tokenizer, std::string_view& line) {
  if (pos_ >= text_.size()) return end_is_insert_ ? Status::end_of_insert : Status::end_of_input;
  size_t nl = text_.find('\n', pos_);
  size_t end = nl == std::string_view::npos ? text_.size() : nl + 1;
  line = text_.substr(pos_, end - pos_);
  pos_ = end;
  tokenizer.set_line(tokenizer.line() + 1);
  return Status::line;
}

Tokenizer::Tokenizer(Diagnostics& diag, const conv::DateSettings& dates)
    : diag_(diag), dates_(dates) {
  file_name_.reserve(kFileNameMax);
}

Tokenizer::~Tokenizer() { close_source(); }

void Tokenizer::reset(std::string_view name) {
  text_len_ = 0;
  text_[0] = 0;
  prev_len_ = 0;
  prev_[0] = 0;
  prev_line_ = 0;
  class_ = 0;
  state_ = 0;
  value_ = 0;
  attribute_ = 0;
  line_no_ = 0;
  true_line_ = 0;
  source_lines_ = 0;
  source_words_ = 0;
  line_[0] = 0;
  pos_ = 0;
  rp_ = rend_ = nullptr;
  source_ = nullptr;
  saved_.valid = false;
  mark_ = prev_mark_ = {};
  files_.clear();
  file_numbers_.clear();
  file_ = 0;
  chains_.clear();
  chain_ = 0;
  line_ascii_ = true;
  set_file_name(name);
}

int Tokenizer::open_source(std::string_view path) {
  close_source();
  std::string p(path);
  int fd;
  do {
    fd = ::open(p.c_str(), O_RDONLY);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return -1;
  fd_ = fd;
  reset(path);
  return 0;
}

void Tokenizer::open_text(std::string_view text, std::string_view name) {
  close_source();
  memory_ = text;
  memory_used_ = false;
  reset(name);
}

void Tokenizer::close_source() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  memory_ = {};
  memory_used_ = true;
  rp_ = rend_ = nullptr;
}

void Tokenizer::set_file_name(std::string_view name) {
  file_name_.assign(name.substr(0, kFileNameMax));
  if (file_ != 0 && files_[file_ - 1] == file_name_) return;
  auto [it, added] = file_numbers_.try_emplace(file_name_, static_cast<uint32_t>(files_.size() + 1));
  if (added) files_.push_back(file_name_);
  file_ = it->second;
}

SourceRange Tokenizer::diag_range(const SourceMark& mark) const {
  if (!mark.known() || mark.file > files_.size()) return {};
  return {files_[mark.file - 1], mark.line, mark.column, mark.end_column};
}

std::vector<DiagnosticNote> Tokenizer::diag_include_notes(const SourceMark& mark) const {
  std::vector<DiagnosticNote> notes;
  // Each node names its parent, which came before it, so the walk ends.
  for (uint32_t chain = mark.chain; chain != 0 && chain <= chains_.size(); chain = chains_[chain - 1].parent) {
    const ChainNode& node = chains_[chain - 1];
    if (node.file == 0 || node.file > files_.size() || node.parent >= chain) break;
    const std::string& file = files_[node.file - 1];
    notes.push_back({"in file included from " + file + ":" + std::to_string(node.line), {file, node.line, 1, 2}});
  }
  return notes;
}

void Tokenizer::set_text(std::string_view text) {
  text_len_ = text.size() < kTokenMax ? text.size() : kTokenMax;
  std::memcpy(text_, text.data(), text_len_);
  text_[text_len_] = 0;
}

void Tokenizer::deliver(uint32_t cls) {
  class_ = cls;
  state_ = cls | ((cls & statement_mask_) ? kHoldBit : 0);
}

uint32_t Tokenizer::get_token() {
  // A held token, a statement verb not yet accepted, and the end of input are delivered again.
  if ((state_ & kHoldBit) || (state_ & statement_mask_) || class_ == kClassEndOfInput) {
    state_ = class_ | (state_ & kTranslateMark) | ((class_ & statement_mask_) ? kHoldBit : 0);
    return class_;
  }
  const bool raw = state_ == kClassRaw;
  bool translating = false;
  for (;;) {
    std::memcpy(prev_, text_, text_len_ + 1);
    prev_len_ = text_len_;
    prev_line_ = line_no_;
    prev_mark_ = mark_;
    ++source_words_;
    value_ = 0;
    attribute_ = 0;

    Scan scan = scan_token(raw);
    if (scan == Scan::end_of_input) {
      line_no_ = 0;
      set_text(kEofText);
      deliver(kClassEndOfInput);
      // The end of the program is just behind its last word.
      mark_ = prev_mark_;
      mark_.column = mark_.end_column;
      ++mark_.end_column;
    } else if (scan == Scan::restored) {
      state_ = class_ | (state_ & kTranslateMark) | ((class_ & statement_mask_) ? kHoldBit : 0);
      return class_;
    } else if (scan == Scan::quoted) {
      attribute_ = static_cast<uint16_t>(text_len_);
      mark_token(token_start_, pos_);
      deliver(kClassAlpha);
    } else {
      mark_token(token_start_, pos_);
      const size_t end = pos_;
      const uint32_t cls = classify_word(raw);
      if (pos_ != end) mark_token(token_start_, pos_);  // a repeated-character literal took more
      deliver(cls);
      if (class_ == verb("translate") && !translating) {
        // TRANSLATE marks the literal after it for the language files; it is not delivered.
        translating = true;
        continue;
      }
    }
    break;
  }
  if (translating) {
    if (class_ == kClassAlpha)
      state_ |= kTranslateMark;
    else
      diag_.error(msg::alpha_literal_expected);
  }
  return class_;
}

int Tokenizer::skip_to_statement() {
  for (;;) {
    uint32_t cls = get_token();
    if ((cls & statement_mask_) || cls == kClassEndOfInput) return -1;
  }
}

int Tokenizer::skip_to_clause() {
  for (;;) {
    uint32_t cls = get_token();
    if ((cls & (statement_mask_ | clause_mask_)) || cls == kClassEndOfInput) break;
  }
  state_ |= kHoldBit;
  return -1;
}

void Tokenizer::save_position() {
  saved_.valid = true;
  saved_.file_name = file_name_;
  std::memcpy(saved_.text, text_, text_len_ + 1);
  saved_.text_len = text_len_;
  std::memcpy(saved_.line, line_, sizeof line_);
  saved_.pos = pos_;
  saved_.line_no = line_no_;
  saved_.cls = class_;
  saved_.state = state_;
  saved_.value = value_;
  saved_.attribute = attribute_;
  saved_.source = source_;
  saved_.mark = mark_;
  line_[0] = 0;
  pos_ = 0;
  state_ = 0;
  // The inserted text is read from its start even when the position saved is the end of input,
  // which is otherwise delivered again and again.
  class_ = kClassName;
}

void Tokenizer::restore_position() {
  if (!saved_.valid) return;
  saved_.valid = false;
  set_file_name(saved_.file_name);  // its number too: the places after it name the file again
  std::memcpy(text_, saved_.text, saved_.text_len + 1);
  text_len_ = saved_.text_len;
  std::memcpy(prev_, saved_.text, saved_.text_len + 1);
  prev_len_ = saved_.text_len;
  std::memcpy(line_, saved_.line, sizeof line_);
  pos_ = saved_.pos;
  line_no_ = saved_.line_no;
  prev_line_ = saved_.line_no;
  class_ = saved_.cls;
  state_ = saved_.state;
  value_ = saved_.value;
  attribute_ = saved_.attribute;
  source_ = saved_.source;
  mark_ = prev_mark_ = saved_.mark;
}

// ---------------------------------------------------------------------------------------------
// Lines

void Tokenizer::store_line(std::string_view line) {
  size_t n = line.size() < kLineMax ? line.size() : kLineMax;
  std::memcpy(line_, line.data(), n);
  line_[n] = 0;
  pos_ = 0;
  line_ascii_ = std::none_of(line_, line_ + n, [](char c) { return (static_cast<unsigned char>(c) & 0x80) != 0; });
}

Tokenizer::LineResult Tokenizer::next_line() {
  if (source_) {
    std::string_view line;
    switch (source_->next_line(*this, line)) {
      case LineSource::Status::line:
        store_line(line);
        return LineResult::line;
      case LineSource::Status::end_of_insert:
        if (saved_.valid) {
          restore_position();
          return LineResult::restored;
        }
        return LineResult::end_of_input;
      case LineSource::Status::end_of_input:
        break;
    }
    return LineResult::end_of_input;
  }
  return read_file_line() ? LineResult::line : LineResult::end_of_input;
}

bool Tokenizer::fill() {
  if (fd_ >= 0) {
    ssize_t n;
    do {
      n = ::read(fd_, read_buf_.get(), kReadChunk);
    } while (n < 0 && errno == EINTR);
    if (n <= 0) return false;
    rp_ = read_buf_.get();
    rend_ = rp_ + n;
    return true;
  }
  if (memory_used_ || memory_.empty()) return false;
  memory_used_ = true;
  rp_ = memory_.data();
  rend_ = rp_ + memory_.size();
  return true;
}

// What a NUL byte of the source is read as: a control character like any other.
constexpr char kNulStandIn = '\x01';

bool Tokenizer::read_raw_line() {
  size_t n = 0;
  bool any = false;
  unsigned char high = 0;  // the high bits of every byte: a line without any has byte columns
  for (;;) {
    if (rp_ == rend_ && !fill()) break;
    any = true;
    auto avail = static_cast<size_t>(rend_ - rp_);
    const void* nl = std::memchr(rp_, '\n', avail);
    size_t chunk = nl ? static_cast<size_t>(static_cast<const char*>(nl) - rp_) + 1 : avail;
    size_t take = chunk < kLineMax - n ? chunk : kLineMax - n;  // the rest of a long line is dropped
    // A NUL inside the line would end it unseen; it becomes a control character, which the
    // scanner reports where it stands.
    for (size_t i = 0; i < take; ++i) {
      const char c = rp_[i];
      high |= static_cast<unsigned char>(c);
      line_[n + i] = c == '\0' ? kNulStandIn : c;
    }
    n += take;
    rp_ += chunk;
    if (nl) break;
  }
  line_[n] = 0;
  pos_ = 0;
  line_ascii_ = (high & 0x80) == 0;
  return any;
}

namespace {

// The file name of a line marker: the preprocessor escapes a name as a C string literal is
// escaped ("\\", "\n", "\t", "\r", octal), so that a newline in a name cannot end the marker.
// A backslash before anything else is kept as it is.
std::string marker_file_name(std::string_view text) {
  std::string name;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      name += text[i];
      continue;
    }
    const char next = text[i + 1];
    if (next == '\\' || next == 'n' || next == 't' || next == 'r') {
      name += next == 'n' ? '\n' : next == 't' ? '\t' : next == 'r' ? '\r' : '\\';
      ++i;
    } else if (next >= '0' && next <= '7') {
      unsigned value = 0;
      size_t digits = 0;
      while (digits < 3 && i + 1 + digits < text.size() && text[i + 1 + digits] >= '0' && text[i + 1 + digits] <= '7')
        value = value * 8 + static_cast<unsigned>(text[i + 1 + digits++] - '0');
      name += static_cast<char>(value & 0xff);
      i += digits;
    } else {
      name += '\\';
    }
  }
  return name;
}

}  // namespace

bool Tokenizer::read_file_line() {
  line_no_ = static_cast<int16_t>(line_no_ + 1);
  if (true_line_ < INT32_MAX) ++true_line_;
  for (;;) {
    if (!read_raw_line()) return false;
    if (line_[0] != '#') break;
    if (include_chain_ && read_chain_line()) continue;
    // A line marker "# <number> <file>": the next line carries that number in that file.
    const char* p = line_ + 1;
    while (*p == ' ' || *p == '\t') ++p;
    uint32_t number = 0;
    for (; ascii_digit(*p); ++p) number = number * 10 + static_cast<uint32_t>(*p - '0');
    line_no_ = static_cast<int16_t>(number);
    true_line_ = static_cast<int32_t>(std::min<uint32_t>(number, INT32_MAX));
    while (*p == ' ' || *p == '\t') ++p;
    const char* name = p;
    while (!(char_class(*p) & kEnd)) ++p;
    set_file_name(marker_file_name({name, static_cast<size_t>(p - name)}));
  }
  ++source_lines_;
  return true;
}

// "#> <line>": the next file is included from that line of the current one; "#<": the
// included file has ended.
bool Tokenizer::read_chain_line() {
  if (line_[1] == '>') {
    int32_t line = 0;
    for (const char* p = line_ + 2 + (line_[2] == ' '); ascii_digit(*p) && line < 1000000; ++p)
      line = line * 10 + (*p - '0');
    chains_.push_back({chain_, file_, line});
    chain_ = static_cast<uint32_t>(chains_.size());
    return true;
  }
  if (line_[1] == '<') {
    if (chain_ != 0) chain_ = chains_[chain_ - 1].parent;
    return true;
  }
  return false;
}

// ---------------------------------------------------------------------------------------------
// Tokens

Tokenizer::Scan Tokenizer::scan_token(bool raw) {
  for (;;) {
    char c = line_[pos_];
    uint8_t cc = char_class(c);
    if (cc & kEnd) {
      switch (next_line()) {
        case LineResult::line:
          continue;
        case LineResult::end_of_input:
          return Scan::end_of_input;
        case LineResult::restored:
          return Scan::restored;
      }
    }
    if (cc & (kBlank | kSeparator)) {
      ++pos_;
      continue;
    }
    token_start_ = pos_;  // each message raised while the token is read places it first
    if (cc & kQuote) {
      if (read_quoted()) return Scan::quoted;
      continue;
    }
    if (c == '/' && line_[pos_ + 1] == '/') {  // a comment: the rest of the line is dropped
      line_[pos_] = 0;
      continue;
    }
    read_word(raw);
    if (text_len_ > 0) return Scan::word;
  }
}

void Tokenizer::read_word(bool raw) {
  const uint8_t stop = raw ? (kEnd | kBlank) : (kEnd | kBlank | kSeparator | kDelimiter);
  size_t n = 0;
  size_t p = pos_;
  if (!raw && (char_class(line_[p]) & kDelimiter)) {
    text_[n++] = line_[p++];
  } else {
    bool keep_case = false;  // letters keep their case once a quote is in the word
    for (;;) {
      char c = line_[p];
      uint8_t cc = char_class(c);
      if (cc & stop) break;
      ++p;
      if (cc & (kControl | kDropped | kUpper | kQuote)) {
        if (cc & kDropped) continue;
        if (cc & kControl) {
          pos_ = p;
          text_len_ = n;
          text_[n] = 0;
          mark_token(token_start_, p - 1 > token_start_ ? p - 1 : p);  // the word so far, or the character
          diag_.error_with(msg::invalid_character, text());
          continue;
        }
        if (cc & kQuote)
          keep_case = true;
        else if (!keep_case)
          c = static_cast<char>(c + ('a' - 'A'));
      }
      if (n < kTokenMax) text_[n++] = c;
    }
  }
  pos_ = p;
  text_len_ = n;
  text_[n] = 0;
}

bool Tokenizer::read_quoted() {
  const char quote = line_[pos_];
  size_t p = pos_ + 1;
  size_t n = 0;
  for (;;) {
    char c = line_[p];
    uint8_t cc = char_class(c);
    if (cc & kEnd) {
      pos_ = p;
      text_len_ = n;
      text_[n] = 0;
      mark_token(token_start_, p);
      diag_.error(msg::invalid_alpha_literal_string);
      return n > 0;
    }
    ++p;
    if (c == quote) break;
    if (cc & kControl) {
      pos_ = p;
      text_len_ = n;
      text_[n] = 0;
      mark_token(token_start_, p - 1);  // the literal so far, with its opening quote
      diag_.error_with(msg::invalid_character, text());
      continue;
    }
    if (n < kTokenMax) text_[n++] = c;
  }
  pos_ = p;
  text_len_ = n;
  text_[n] = 0;
  if (n == 0 || !(char_class(line_[p]) & (kEnd | kBlank | kSeparator | kDelimiter))) {
    mark_token(token_start_, p);
    diag_.error(msg::invalid_character);
  }
  return n > 0;
}

uint32_t Tokenizer::classify_word(bool raw) {
  if (uint32_t code = find_keyword(text())) return code;
  if (raw) return kClassRaw;
  if (classify_number()) return kClassNumeric;
  // Every date has a day or a year and every time its hours, so most names, having no digit,
  // are spared the two parsers. A date begins with its first number or a month name, a time
  // with its hours, so a word that begins otherwise is not given to them either.
  if (std::any_of(text_, text_ + text_len_, ascii_digit)) {
    const char first = text_[0];
    if (ascii_digit(first) || conv::is_month_letter(first)) {
      if (int32_t day = conv::parse_date(text(), dates_); day >= 0) {
        value_ = day;
        attribute_ = kDateAttr;
        return kClassDate;
      }
    }
    if (ascii_digit(first)) {
      if (int32_t seconds = conv::parse_time(text()); seconds >= 0) {
        value_ = seconds;
        attribute_ = kTimeAttr;
        return kClassTime;
      }
    }
    if (classify_repeated()) return kClassAlpha;
  }
  if (classify_parameter()) return kClassAlpha;
  return kClassName;
}

bool Tokenizer::classify_number() {
  size_t i = 0;
  bool negative = false;
  if (text_[0] == '-' || text_[0] == '+') {
    negative = text_[0] == '-';
    i = 1;
  }
  double digits = 0;
  unsigned integer_digits = 0, decimals = 0, after_point = 0, points = 0;
  bool any_digit = false, significant = false;
  for (; i < text_len_; ++i) {
    char c = text_[i];
    if (c == '.') {
      ++points;
      continue;
    }
    if (!ascii_digit(c)) return false;
    any_digit = true;
    int d = c - '0';
    digits = digits * 10 + d;
    if (points == 0) {
      // Leading zeros of the integer part are not digits of the number.
      if (d != 0) significant = true;
      if (significant) ++integer_digits;
    } else {
      // Trailing zeros of the decimal part do not count as decimal places.
      ++after_point;
      if (d != 0) decimals = after_point;
    }
  }
  if (!any_digit) return false;
  if (points > 1) diag_.error(msg::numeric_value_invalid_out_range);
  if (integer_digits == 0 && decimals == 0) integer_digits = 1;  // zero has one digit
  if (integer_digits > kDigitsMax) integer_digits = kDigitsMax;
  if (decimals > kDigitsMax) decimals = kDigitsMax;

  double value = std::isinf(digits) ? DBL_MAX : digits / std::pow(10.0, after_point);
  value_ = negative ? -value : value;
  attribute_ = static_cast<uint16_t>(kNumericAttr + integer_digits * 32 + (negative ? kNegativeAttr : 0) +
                                     decimals);
  return true;
}

bool Tokenizer::classify_repeated() {
  // <count><quote><character><quote>: count copies of the character.
  size_t i = 0;
  unsigned count = 0;
  for (; i < text_len_ && ascii_digit(text_[i]); ++i) {
    if (count <= kRepeatMax) count = count * 10 + static_cast<unsigned>(text_[i] - '0');
  }
  if (i == 0 || count == 0 || i >= text_len_ || !(char_class(text_[i]) & kQuote)) return false;
  const char quote = text_[i];
  if (i + 1 == text_len_) {
    // The blank form: the word ends at the blank, so look ahead for <blank><quote><blank>.
    const char* p = line_ + pos_;
    if (!(p[0] == ' ' && p[1] == quote && (p[2] == ' ' || p[2] == '\t'))) return false;
    if (text_len_ + 2 > kTokenMax) return false;
    text_[text_len_++] = ' ';
    text_[text_len_++] = quote;
    text_[text_len_] = 0;
    pos_ += 2;
  }
  if (text_len_ != i + 3 || text_[i + 2] != quote) return false;
  if (count > kRepeatMax) {
    diag_.error(msg::invalid_alpha_literal_string);
    attribute_ = static_cast<uint16_t>(text_len_);
    return true;
  }
  std::memset(text_, text_[i + 1], count);
  text_len_ = count;
  text_[count] = 0;
  attribute_ = static_cast<uint16_t>(count);
  return true;
}

bool Tokenizer::classify_parameter() {
  if (text_[0] != '$') return false;
  for (size_t i = 1; i < text_len_; ++i)
    if (!ascii_digit(text_[i])) return false;
  diag_.error_text(txt::parameter_substitution, Context(text()));
  text_len_ = 0;
  text_[0] = 0;
  attribute_ = 0;
  return true;
}

}  // namespace tav
