// The tokenizer: words, literals and their messages, lines and markers, the end of input, held
// and pushed-back tokens, recovery skips, inserted text, and reading real files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "codegen/convert.h"
#include "diag/diag.h"
#include "diag/display.h"
#include "lexer/tokenizer.h"
#include "lexer/verbs.h"
#include "tests/support/support.h"

namespace tav {
namespace {

using Lines = std::vector<std::string>;

class Lex : public ::testing::Test {
 protected:
  Lex() {
    diag.set_source(&tok);
    diag.set_listing(dir / "t.err");
  }
  void open(std::string_view text) {
    source = text;
    tok.open_text(source, "t.spl");
  }
  // The tokens up to the end of input: names as read, 'alpha', <keyword>, ~raw, and numbers,
  // dates and times as #text=value/attribute.
  std::string read_all(std::string_view text) {
    open(text);
    std::string out;
    for (uint32_t cls; (cls = tok.get_token()) != kClassEndOfInput;) {
      std::string t(tok.text());
      if (!out.empty()) out += ' ';
      if (cls == kClassAlpha) {
        out += "'" + t + "'";
      } else if (cls == kClassRaw) {
        out += "~" + t;
      } else if (cls >= kClassNumeric && cls <= kClassTime) {
        char buf[64];
        std::snprintf(buf, sizeof buf, "#%s=%g/%x", t.c_str(), tok.value(), tok.attribute());
        out += buf;
      } else {
        out += cls == kClassName ? t : "<" + t + ">";
      }
    }
    return out;
  }
  // The message lines written since the last call.
  Lines messages() {
    std::string all = tavtest::file_exists(dir / "t.err") ? tavtest::read_file(dir / "t.err") : "";
    Lines out;
    for (size_t start = seen_, nl; start < all.size(); start = nl + 1) {
      nl = std::min(all.find('\n', start), all.size());
      if (nl > start) out.push_back(all.substr(start, nl - start));
    }
    seen_ = all.size();
    return out;
  }

  tavtest::TempDir dir;
  Display display;
  Diagnostics diag{display, false, false};
  conv::DateSettings dates;
  Tokenizer tok{diag, dates};
  std::string source;
  size_t seen_ = 0;
};

struct Case {
  std::string source;
  const char* tokens;
  Lines messages;
};

TEST_F(Lex, WordsLiteralsAndTheirMessages) {
  const std::string e = "t.spl, line 1: ERROR  ";
  const Case cases[] = {
      // Words and delimiters.
      {"a , b ; c;", "a b c", {}}, {"(x)f[y]@{z}", "<(> x <)> f <[> y <]> <@> <{> z <}>", {}},
      {"x=1 x = 1", "x=1 x <=> #1=1/4020", {}},
      {"END-IF End-If ENDIF END_IF", "<end-if> <end-if> <endif> <end_if>", {}},
      {"ABC'De F'gH Cu`st `` 1- .", "abc'De f'gH cust 1- .", {}}, {"a // b c\nd //e\n//f\ng//h", "a d g//h", {}},
      {"a\rb\nc", "a c", {}},
      // A NUL is a control character like any other: reported, and the line goes on after it.
      {std::string("ab\x01" "cd ef\ngh\0ij\nk", 16), "abcd ef ghij k",
       {e + "Invalid character - 'ab'", "t.spl, line 2: ERROR  Invalid character - 'gh'"}},
      // Numeric literals.
      {"123 -1.50 007 1.500 100 0 +5 .25 0.05 -0", "#123=123/4060 #-1.50=-1.5/4421 #007=7/4020 "
       "#1.500=1.5/4021 #100=100/4060 #0=0/4020 #+5=5/4020 #.25=0.25/4002 #0.05=0.05/4002 #-0=-0/4420", {}},
      {"1.2.3", "#1.2.3=1.23/4022", {e + "Numeric value invalid or out of range - '1.2.3'"}},
      // Quoted literals.
      {"'It''s' \"Mixed Case\"('a;b') 'x'y 'open", "'It' 's' 'Mixed Case' <(> 'a;b' <)> 'x' y 'open'",
       {e + "Invalid character - 'It'", e + "Invalid character - 'x'",
        e + "Invalid alpha literal string - 'open'"}},
      {"'' a 'b\x02" "c'", "a 'bc'", {e + "Invalid character", e + "Invalid character - 'b'"}},
      // Repeated-character literals.
      {"5'*' 3'a' 3' ' x 2\"\"\" 0'x'", "'*****' 'aaa' '   ' x '\"\"' 0'x'", {}},
      {"512'-'", "'512'-''", {e + "Invalid alpha literal string - '512'-''"}},
      // Parameter references.
      {"$1 $ $a", "'' '' $a", {e + "Parameter substitution not allowed - '$1'",
                               e + "Parameter substitution not allowed - '$'"}},
      // TRANSLATE.
      {"translate abc", "abc", {e + "Alpha-literal expected - 'abc'"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.source);
    std::string got = read_all(c.source);
    EXPECT_EQ(got, c.tokens);
    EXPECT_EQ(messages(), c.messages);
  }
  open("511'-'");
  EXPECT_EQ(tok.get_token(), kClassAlpha);
  EXPECT_EQ(tok.text(), std::string(511, '-'));
  EXPECT_EQ(tok.attribute(), 511);
  EXPECT_EQ(messages(), Lines{});
}

TEST_F(Lex, TranslateDatesTimesAndRawWords) {
  open("translate 'Hello' 'x' 12/25/2020 10:30 12.25.2020 a,b(c);d e IF");
  EXPECT_EQ(tok.get_token(), kClassAlpha);
  EXPECT_TRUE(tok.translated());
  EXPECT_EQ(tok.get_token(), kClassAlpha);
  EXPECT_FALSE(tok.translated());
  EXPECT_EQ(tok.get_token(), kClassDate);
  EXPECT_EQ(tok.value(), conv::day_number(25, 12, 2020));
  EXPECT_EQ(tok.attribute(), kDateAttr);
  EXPECT_EQ(tok.get_token(), kClassTime);
  EXPECT_EQ(tok.value(), 10 * 3600 + 30 * 60);
  EXPECT_EQ(tok.attribute(), kTimeAttr);
  EXPECT_EQ(tok.get_token(), kClassNumeric);  // digits and dots are a (bad) number first
  tok.request_raw();
  EXPECT_EQ(tok.get_token(), kClassRaw);
  EXPECT_EQ(tok.text(), "a,b(c);d");
  EXPECT_EQ(tok.get_token(), kClassRaw);  // the state stays raw until the parser accepts
  tok.accept();
  EXPECT_EQ(tok.get_token(), verb("if"));
  EXPECT_EQ(tok.source_words(), 9u);  // TRANSLATE is read, though not delivered
}

TEST_F(Lex, LineMarkersAndTheEndOfInput) {
  open("a\n# 120 sub/../inc.spl\nb c\n\nd\n#\ne\n#   7\t x y \nf");
  std::vector<std::pair<std::string, int>> lines;
  while (tok.get_token() != kClassEndOfInput) {
    lines.emplace_back(tok.text(), tok.line());
    if (tok.text() == "c") diag.error(msg::syntax_error);
  }
  EXPECT_EQ(lines, (std::vector<std::pair<std::string, int>>{
                       {"a", 1}, {"b", 120}, {"c", 120}, {"d", 122}, {"e", 0}, {"f", 7}}));
  EXPECT_EQ(tok.file_name(), "x y ");
  EXPECT_EQ(tok.source_lines(), 6u);  // markers are not counted
  EXPECT_EQ(tok.source_words(), 7u);  // the end-of-input read counts once ...
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(tok.get_token(), kClassEndOfInput);
    EXPECT_EQ(tok.text(), "[EOF]");
    EXPECT_EQ(tok.line(), 0);
  }
  EXPECT_EQ(tok.source_words(), 7u);  // ... and its re-deliveries not at all
  diag.error(msg::syntax_error);
  EXPECT_EQ(messages(), (Lines{"inc.spl, line 120: ERROR  Syntax error - 'c'",
                               "x y , ERROR  Syntax error - '[EOF]'"}));
  for (const char* empty : {"", "\n\n"}) EXPECT_EQ(read_all(empty), "");
}

TEST_F(Lex, HeldVerbsPushBackAndSkips) {
  tok.set_statement_mask(kStatementVerb);
  tok.set_clause_mask(kClauseWord);
  open("a\ndisplay x y title z display");
  tok.get_token();
  EXPECT_EQ(tok.get_token(), verb("display"));
  EXPECT_TRUE(tok.held());
  diag.error(msg::syntax_error);  // held: the previous token and its line are shown
  EXPECT_EQ(tok.get_token(), verb("display"));
  EXPECT_EQ(tok.source_words(), 2u);
  EXPECT_EQ(tok.prev_text(), "a");
  tok.accept();
  tok.get_token();
  tok.push_back();
  EXPECT_EQ(tok.get_token(), kClassName);
  EXPECT_EQ(tok.text(), "x");  // pushed back: delivered exactly once more
  EXPECT_EQ(tok.skip_to_clause(), -1);
  EXPECT_EQ(tok.text(), "title");
  EXPECT_EQ(tok.get_token(), verb("title"));
  EXPECT_EQ(tok.skip_to_clause(), -1);  // a statement verb ends a clause too
  EXPECT_EQ(tok.skip_to_statement(), -1);
  EXPECT_EQ(tok.text(), "display");
  EXPECT_EQ(tok.source_words(), 7u);
  EXPECT_EQ(messages(), Lines{"t.spl, line 1: ERROR  Syntax error - 'a'"});

  tok.set_statement_mask(0);  // before a program sets the masks, skips end at the end of input
  open("a b");
  EXPECT_EQ(tok.skip_to_statement(), -1);
  EXPECT_EQ(tok.token_class(), kClassEndOfInput);
}

TEST_F(Lex, InsertedTextResumesTheSource) {
  open("qty beta\ngamma");
  tok.get_token();
  tok.save_position();
  tok.set_file_name("[cust-no]");
  tok.set_line(0);
  TextLineSource inserted("x y\nz");
  tok.set_line_source(&inserted);
  for (const char* word : {"x", "y", "z"}) {
    tok.get_token();
    EXPECT_EQ(tok.text(), word);
  }
  diag.error(msg::syntax_error);
  EXPECT_EQ(messages(), Lines{"[cust-no], line 2: ERROR  Syntax error - 'z'"});
  EXPECT_EQ(tok.get_token(), kClassName);  // the end of the text re-delivers the saved token
  EXPECT_EQ(tok.text(), "qty");
  EXPECT_EQ(tok.prev_text(), "qty");
  EXPECT_EQ(tok.file_name(), "t.spl");
  EXPECT_EQ(tok.line_source(), nullptr);
  tok.get_token();
  EXPECT_EQ(tok.text(), "beta");

  TextLineSource ending("only", false);  // a source that ends the input
  tok.set_line_source(&ending);
  tok.get_token();
  EXPECT_EQ(tok.line(), 2);
  EXPECT_EQ(tok.get_token(), kClassEndOfInput);
}

TEST_F(Lex, FilesAreReadInChunksAndLongLinesCut) {
  std::string text, expected;
  for (int i = 1; i <= 300; ++i) text += "w" + std::to_string(i) + (i % 7 ? " x\n" : "\n");
  text += std::string(510, 'a') + " bbbbbbbbbb\nnext\n";  // the line is cut after "bb"
  text += std::string(600, 'c') + "\n";                     // one word, cut to 511
  text += "'" + std::string(511, 'q') + "'\n";              // the longest literal fits
  text += "last";                                           // no final newline
  tavtest::write_file(dir / "f.spl", text);
  ASSERT_EQ(tok.open_source(dir / "f.spl"), 0);
  Lines words;
  while (tok.get_token() != kClassEndOfInput)
    if (tok.text() != "x") words.push_back(std::string(tok.text()) + "@" + std::to_string(tok.line()));
  ASSERT_EQ(words.size(), 306u);
  EXPECT_EQ(words[299], "w300@300");
  EXPECT_EQ(Lines(words.begin() + 300, words.end()),
            (Lines{std::string(510, 'a') + "@301", "bb@301", "next@302", std::string(511, 'c') + "@303",
                   std::string(511, 'q') + "@304", "last@305"}));
  EXPECT_EQ(tok.source_lines(), 305u);
  EXPECT_EQ(messages(), Lines{});

  // Lines across the boundary between two reads, a long one among them, come out as they do
  // from memory.
  std::string big;
  const size_t long_line = text.find(std::string(510, 'a'));
  for (int i = 0; big.size() + long_line + 200 < kReadChunk; ++i) big += "w" + std::to_string(i) + " x\n";
  big += text;
  auto words_of = [&] {
    std::string out;
    while (tok.get_token() != kClassEndOfInput) out += std::string(tok.text()) + "@" + std::to_string(tok.line()) + " ";
    return out;
  };
  tavtest::write_file(dir / "big.spl", big);
  ASSERT_EQ(tok.open_source(dir / "big.spl"), 0);
  const std::string from_file = words_of();
  tok.open_text(big, "big.spl");
  EXPECT_EQ(from_file, words_of());
  EXPECT_NE(from_file.find(std::string(511, 'c') + "@"), std::string::npos);

  tavtest::write_file(dir / "empty.spl", "");
  ASSERT_EQ(tok.open_source(dir / "empty.spl"), 0);
  EXPECT_EQ(tok.get_token(), kClassEndOfInput);
  EXPECT_EQ(tok.open_source(dir / "missing.spl"), -1);
}

// The places of the diagnostics model: columns in characters, through line markers and include
// chains, the end of input behind the last word, and inserted text standing for the word that
// brought it in.
TEST_F(Lex, TokensKnowWhereTheyStand) {
  tok.set_include_chain(true);
  open("# 3 main.spl\n  display \"h\u00e9llo\" x\n#> 4\n# 1 inc.spl\n\tfoo\n#<\n# 5 main.spl\ncaf\u00e9 bar\n");
  auto next = [&] {
    tok.get_token();
    tok.accept();
    SourceRange r = tok.diag_range(tok.mark());
    return r.file + ":" + std::to_string(r.line) + ":" + std::to_string(r.column) + "-" + std::to_string(r.end_column);
  };
  EXPECT_EQ(next(), "main.spl:3:3-10");   // display
  EXPECT_EQ(next(), "main.spl:3:11-18");  // the literal with its quotes, in characters
  EXPECT_EQ(next(), "main.spl:3:19-20");
  EXPECT_EQ(next(), "inc.spl:1:2-5");     // a tab is one character
  const auto notes = tok.diag_include_notes(tok.mark());
  ASSERT_EQ(notes.size(), 1u);
  EXPECT_EQ(notes[0].message, "in file included from main.spl:4");
  EXPECT_EQ(notes[0].where.line, 4);
  EXPECT_EQ(next(), "main.spl:5:1-5");
  EXPECT_TRUE(tok.diag_include_notes(tok.mark()).empty());
  EXPECT_EQ(next(), "main.spl:5:6-9");
  EXPECT_EQ(next(), "main.spl:5:9-10");  // the end of input, just behind the last word

  // The listing's line number is 16 bits wide; a place has the whole number.
  open("# 40000 big.spl\nword\n");
  tok.get_token();
  EXPECT_EQ(tok.diag_range(tok.mark()).line, 40000);
  EXPECT_EQ(tok.line(), 40000 - 65536);

  // Without the include chain the lines are what they always were: markers.
  tok.set_include_chain(false);
  open("#> 4\nx\n");
  tok.get_token();
  EXPECT_EQ(tok.file_name(), "> 4");
  EXPECT_EQ(tok.line(), 0);
}

TEST_F(Lex, InsertedTextIsAboutTheWordThatBroughtItIn) {
  open("accept cust\nnext\n");
  tok.get_token();
  tok.accept();
  tok.get_token();  // cust, at 1:8
  const SourceMark cust = tok.mark();
  TextLineSource inserted("if x > 1\n");
  tok.save_position();
  tok.set_line_source(&inserted);
  tok.get_token();
  EXPECT_EQ(tok.text(), "if");
  EXPECT_EQ(tok.diag_range(tok.mark()), tok.diag_range(cust));
}

}  // namespace
}  // namespace tav
