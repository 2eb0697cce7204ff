// The source reader and tokenizer.
//
// The tokenizer reads the preprocessed source line by line and delivers one token per get_token
// call: its text, its class (name, literal kind, raw word, a keyword's verb code, or end of
// input) and, for literals, a value and an attribute word. It also keeps what the diagnostics
// and the summary need: the line number and file name (from the preprocessor's "# <n> <file>"
// markers), the previous token, and the source line and word counts.
//
// Token state. After each delivery the state is the token's class; on top of it:
//  - the hold bit: the next get_token delivers the same token again. A caller pushes a token
//    back by setting it (push_back()); a keyword whose class has a bit of the statement mask
//    is held automatically and re-delivered until the parser accepts it (accept()).
//  - the translation mark, set when the literal followed the keyword TRANSLATE.
// Setting the state to the raw class before a call (request_raw()) reads the next word in raw
// mode, where only blanks, tabs and the line end end it. A raw word leaves the state raw, so
// words stay raw until the parser accepts or requests otherwise.
//
// Messages raised while reading (through the Diagnostics given at construction): 8 after
// TRANSLATE without a literal, 10 for a number with two points, 68 for an unterminated literal
// or a repeat count of 512 or more, 69 for control characters and badly closed literals, and
// "Parameter substitution not allowed" for $n.
//
// Lines come from the file reader (reads of 64 KiB, lines of at most 513 characters) or
// from another LineSource installed over it; save_position/restore_position let a caller compile
// inserted text in the middle of the source and then carry on where it was.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "diag/diag.h"

namespace tav {

namespace conv {
struct DateSettings;
}

// Token classes; a keyword's class is its verb code (lexer/verbs.h).
inline constexpr uint32_t kClassName = 0;
inline constexpr uint32_t kClassAlpha = 1;
inline constexpr uint32_t kClassNumeric = 2;
inline constexpr uint32_t kClassDate = 3;
inline constexpr uint32_t kClassTime = 4;
inline constexpr uint32_t kClassRaw = 5;
inline constexpr uint32_t kClassEndOfInput = 0x7fffffff;

// Bits of the token state beside the class.
inline constexpr uint32_t kHoldBit = 0x80000000;
inline constexpr uint32_t kTranslateMark = 0x10000;

// Attribute words of literals.
inline constexpr uint16_t kNumericAttr = 0x4000;
inline constexpr uint16_t kNegativeAttr = 0x400;
inline constexpr uint16_t kDateAttr = 0x4080;
inline constexpr uint16_t kTimeAttr = 0x4100;

inline constexpr size_t kTokenMax = 511;     // longest token text; longer words are cut
inline constexpr size_t kLineMax = 513;      // longest source line kept; the rest is dropped
inline constexpr size_t kFileNameMax = 259;  // longest file name kept from a line marker
inline constexpr size_t kReadChunk = 65536;  // size of each read of the source file

class Tokenizer;

// A supplier of source lines other than the source file, for text compiled in the middle of the
// program (dictionary validation text, for example). A source may adjust the tokenizer's line
// number and file name as it goes (set_line, set_file_name).
class LineSource {
 public:
  enum class Status { line, end_of_input, end_of_insert };
  virtual ~LineSource() = default;
  // On Status::line, `line` holds the next line (with or without its "\n"); it must stay valid
  // until the next call. Lines longer than kLineMax characters are cut.
  virtual Status next_line(Tokenizer& tokenizer, std::string_view& line) = 0;
};

// Lines of a text held in memory, one per "\n"; each line read adds 1 to the tokenizer's line
// number. At the end it reports end of inserted text (or end of input when so constructed).
class TextLineSource : public LineSource {
 public:
  explicit TextLineSource(std::string_view text, bool end_is_insert = true)
      : text_(text), end_is_insert_(end_is_insert) {}
  Status next_line(Tokenizer& tokenizer, std::string_view& line) override;

 private:
  std::string_view text_;
  size_t pos_ = 0;
  bool end_is_insert_;
};

class Tokenizer : public DiagSource {
 public:
  Tokenizer(Diagnostics& diag, const conv::DateSettings& dates);
  ~Tokenizer() override;
  Tokenizer(const Tokenizer&) = delete;
  Tokenizer& operator=(const Tokenizer&) = delete;

  // Closes any open source and opens `path`; 0, or -1 when it cannot be opened. On success the
  // token state, line number and counters start from 0, the file name is the path and lines
  // come from the file.
  int open_source(std::string_view path);
  // As open_source, but the "file" is `text` in memory (it must outlive the reading) named
  // `name`; lines are cut and markers read exactly as from a file.
  void open_text(std::string_view text, std::string_view name);
  void close_source();

  // Delivers the next token (or the held one again) and returns its class.
  uint32_t get_token();
  // Reads on until a token whose class has a bit of the statement mask, which stays held.
  int skip_to_statement();
  // Reads on until a token whose class has a bit of the statement or clause mask, and holds it.
  int skip_to_clause();

  void push_back() { state_ |= kHoldBit; }
  void accept() { state_ = 0; }
  void request_raw() { state_ = kClassRaw; }

  // Keeps the position (file name, token, line, rest of the current line, line source) and
  // starts the next get_token on a fresh line from the line source.
  void save_position();
  // Returns to the saved position; the saved token also becomes the previous token.
  void restore_position();
  // nullptr goes back to the file reader.
  void set_line_source(LineSource* source) { source_ = source; }
  LineSource* line_source() const { return source_; }

  std::string_view text() const { return {text_, text_len_}; }
  uint32_t token_class() const { return class_; }
  uint32_t state() const { return state_; }
  void set_state(uint32_t state) { state_ = state; }
  bool held() const { return (state_ & kHoldBit) != 0; }
  bool translated() const { return (state_ & kTranslateMark) != 0; }
  double value() const { return value_; }
  uint16_t attribute() const { return attribute_; }
  int line() const { return line_no_; }
  void set_line(int line) { line_no_ = static_cast<int16_t>(line); }
  std::string_view file_name() const { return file_name_; }
  void set_file_name(std::string_view name);
  std::string_view prev_text() const { return {prev_, prev_len_}; }
  int prev_line() const { return prev_line_; }
  uint32_t source_lines() const { return source_lines_; }
  uint32_t source_words() const { return source_words_; }

  uint32_t statement_mask() const { return statement_mask_; }
  uint32_t clause_mask() const { return clause_mask_; }
  uint32_t function_mask() const { return function_mask_; }
  void set_statement_mask(uint32_t mask) { statement_mask_ = mask; }
  void set_clause_mask(uint32_t mask) { clause_mask_ = mask; }
  void set_function_mask(uint32_t mask) { function_mask_ = mask; }

  // Where tokens really stand. With the include chain on, the "#>" and "#<" lines of the
  // preprocessor (entering an include from a line of the current file, leaving it) are read
  // for the "in file included from" notes; without it they are not special.
  void set_include_chain(bool on) { include_chain_ = on; }
  SourceMark mark() const { return mark_; }
  SourceMark prev_mark() const { return prev_mark_; }

  // DiagSource
  SourceMark diag_token_mark() const override { return mark_; }
  SourceMark diag_prev_mark() const override { return prev_mark_; }
  SourceRange diag_range(const SourceMark& mark) const override;
  std::vector<DiagnosticNote> diag_include_notes(const SourceMark& mark) const override;
  std::string_view diag_file_name() const override { return file_name(); }
  int diag_line() const override { return line_no_; }
  std::string_view diag_token_text() const override { return text(); }
  bool diag_token_held() const override { return held(); }
  std::string_view diag_prev_text() const override { return prev_text(); }
  int diag_prev_line() const override { return prev_line_; }

 private:
  enum class Scan { word, quoted, end_of_input, restored };
  enum class LineResult { line, end_of_input, restored };

  void reset(std::string_view name);
  Scan scan_token(bool raw);   // reads the next token's text into text_
  LineResult next_line();      // from the line source, or the file reader
  bool read_file_line();       // the file reader: false at end of input
  bool read_raw_line();        // copies one line of the file into line_
  bool fill();                 // refills the read buffer; false when nothing more
  void read_word(bool raw);
  bool read_quoted();          // false when the literal gave no token
  uint32_t classify_word(bool raw);
  bool classify_number();
  bool classify_repeated();
  bool classify_parameter();
  void store_line(std::string_view line);
  void set_text(std::string_view text);
  void deliver(uint32_t cls);
  void mark_token(size_t start, size_t end);
  int32_t column_at(size_t byte) const;
  bool read_chain_line();

  Diagnostics& diag_;
  const conv::DateSettings& dates_;

  // Token state.
  char text_[kTokenMax + 1] = {};
  size_t text_len_ = 0;
  uint32_t class_ = 0;
  uint32_t state_ = 0;
  double value_ = 0;
  uint16_t attribute_ = 0;
  char prev_[kTokenMax + 1] = {};
  size_t prev_len_ = 0;
  int16_t prev_line_ = 0;
  int16_t line_no_ = 0;  // 16-bit signed, as the listings have always counted
  int32_t true_line_ = 0;  // the same line counted in full, for the places of the diagnostics
  std::string file_name_;
  uint32_t statement_mask_ = 0;
  uint32_t clause_mask_ = 0;
  uint32_t function_mask_ = 0;
  uint32_t source_lines_ = 0;
  uint32_t source_words_ = 0;

  // The current line and the scan position in it.
  char line_[kLineMax + 1] = {};
  size_t pos_ = 0;
  bool line_ascii_ = true;  // no byte of the line is above 0x7f: columns are byte offsets
  size_t token_start_ = 0;  // where in the line the token being read began

  // True places: the files read (numbered from 1, in files_[n - 1]) and the include chains, a
  // tree of (including chain, file, line of the include) nodes numbered from 1.
  struct ChainNode {
    uint32_t parent;
    uint32_t file;
    int32_t line;
  };
  SourceMark mark_;
  SourceMark prev_mark_;
  std::vector<std::string> files_;
  std::unordered_map<std::string, uint32_t> file_numbers_;
  uint32_t file_ = 0;
  std::vector<ChainNode> chains_;
  uint32_t chain_ = 0;
  bool include_chain_ = false;

  // The file reader: the open file (or memory text) and the read buffer.
  LineSource* source_ = nullptr;
  int fd_ = -1;
  std::unique_ptr<char[]> read_buf_{new char[kReadChunk]};
  const char* rp_ = nullptr;   // next unread byte of the current chunk
  const char* rend_ = nullptr;  // end of the current chunk
  std::string_view memory_;    // open_text: the whole text, handed out as one chunk
  bool memory_used_ = false;

  // The saved position of save_position.
  struct Saved {
    bool valid = false;
    std::string file_name;
    char text[kTokenMax + 1] = {};
    size_t text_len = 0;
    char line[kLineMax + 1] = {};
    size_t pos = 0;
    int16_t line_no = 0;
    uint32_t cls = 0;
    uint32_t state = 0;
    double value = 0;
    uint16_t attribute = 0;
    LineSource* source = nullptr;
    SourceMark mark;
  } saved_;
};

// The place of a token, kept for every token read: inline, since it runs once a token.
inline int32_t Tokenizer::column_at(size_t byte) const {
  if (line_ascii_) return static_cast<int32_t>(byte + 1);
  int32_t column = 1;
  for (size_t i = 0; i < byte && line_[i]; ++i)
    if ((static_cast<unsigned char>(line_[i]) & 0xc0) != 0x80) ++column;  // not a continuation byte
  return column;
}

inline void Tokenizer::mark_token(size_t start, size_t end) {
  if (saved_.valid) {
    // Inserted text (a dictionary's validation text) has no place of its own: its messages are
    // about the word that brought it in.
    mark_ = saved_.mark;
    return;
  }
  mark_ = {file_, chain_, true_line_, column_at(start), column_at(end)};
}

}  // namespace tav
