#include "nls/catalogue.h"

#include <cstdio>
#include <memory>

#include "runtime/ascii.h"

namespace tav::nls {

namespace {

struct DefaultText {
  int number;
  const char* text;
};

constexpr DefaultText kDefaults[] = {
#define TAV_CATALOGUE(number, text) {number, text},
#include "nls/catalogue.def"
};

constexpr int kFirstNumberWithoutText = 10000;
constexpr int kLineBytes = 512;  // a longer line is read in pieces, each taken as a line

bool is_blank(char c) { return c == ' ' || c == '\t'; }

}  // namespace

std::optional<CatalogueLine> parse_catalogue_line(std::string_view line) {
  size_t i = 0;
  while (i < line.size() && is_blank(line[i])) ++i;
  if (i == line.size() || !ascii_digit(line[i])) return std::nullopt;
  CatalogueLine out{0, {}};
  for (; i < line.size() && ascii_digit(line[i]); ++i) {
    if (out.number < kFirstNumberWithoutText) out.number = out.number * 10 + (line[i] - '0');
  }
  const size_t open = line.find('"', i);
  if (open == std::string_view::npos) return out;
  std::string text;
  for (i = open + 1; i < line.size(); ++i) {
    if (line[i] == '"') {
      out.text = std::move(text);
      return out;
    }
    if (line[i] == '\\' && i + 1 < line.size() && (line[i + 1] == '"' || line[i + 1] == '\\')) ++i;
    text += line[i];
  }
  return out;  // no closing quote: no text
}

Catalogue::Catalogue(std::string_view product_dir, std::string_view language) {
  if (!language.empty()) directory_ = std::string(product_dir) + "nls/" + std::string(language) + "/";
  for (const DefaultText& d : kDefaults) entries_.push_back({d.number, d.text, {}});
}

Catalogue::Entry* Catalogue::entry(int number) {
  for (Entry& e : entries_)
    if (e.number == number) return &e;
  return nullptr;
}

std::string Catalogue::text(int number) {
  if (number < 1) return "";
  Entry* e = number < kFirstNumberWithoutText ? entry(number) : nullptr;
  if (!e) return std::to_string(number) + ": No Text!";
  if (e->translated.empty()) load(number);
  return e->translated.empty() ? std::string(e->default_text) : e->translated;
}

std::optional<std::string> Catalogue::translation(int number) {
  Entry* e = number >= 1 && number < kFirstNumberWithoutText ? entry(number) : nullptr;
  if (!e) return std::nullopt;
  if (e->translated.empty()) load(number);
  if (e->translated.empty()) return std::nullopt;
  return e->translated;
}

// Reads the file of `number`'s thousand: from the line of `number` on, every entry still
// without a translation takes the text its line gives.
void Catalogue::load(int number) {
  if (directory_.empty()) return;
  const std::string path = directory_ + std::to_string(number / 1000) + "999.txt";
  std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "r"), std::fclose);
  if (!file) return;
  if (files_read_) files_read_->add(path);
  char buf[kLineBytes];
  bool found = false;
  while (std::fgets(buf, sizeof buf, file.get())) load_line(buf, number, found);
}

void Catalogue::load_line(std::string_view line, int wanted, bool& found) {
  std::optional<CatalogueLine> l = parse_catalogue_line(line);
  if (!l) return;
  if (!found && l->number != wanted) return;
  found = true;
  Entry* e = entry(l->number);
  if (e && e->translated.empty()) e->translated = std::move(l->text);
}

}  // namespace tav::nls
