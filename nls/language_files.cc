#include "nls/language_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstring>

#include "diag/diag.h"
#include "runtime/ascii.h"

namespace tav::nls {

namespace {

using datafile::Column;
using datafile::IndexedFile;
using datafile::TableDesc;

constexpr uint16_t kNumberFormat = 0x2120;  // binary, 9 integer digits: a 4-byte number
constexpr size_t kMaxCodeLength = 3;
constexpr size_t kCodeChars = 4;            // the language code is taken from the first four
constexpr int kInsertTries = 10;

// The rows' layouts.
namespace langprog {
constexpr size_t sp_sys = 0, sp_prog = 10, sp_prog_id = 20, size = 24;
}
namespace lang {
constexpr size_t lang_prog_id = 0, lang_type = 4, lang_local = 5, lang_foreign = 85, lang_ref = 165, size = 166;
}

Column text_column(const char* name, uint32_t size) { return {name, static_cast<uint16_t>(size), 'S', 1, size}; }
Column number_column(const char* name) { return {name, kNumberFormat, 'N', 1, 4}; }
datafile::KeyPart key_part(const char* column, bool descending = false) { return {column, descending}; }

void put_text(uint8_t* row, size_t at, size_t size, std::string_view text) {
  for (size_t i = 0; i < size; ++i) row[at + i] = i < text.size() ? static_cast<uint8_t>(text[i]) : ' ';
}

void put_number(uint8_t* row, size_t at, int value) {
  const auto v = static_cast<uint32_t>(value);
  for (size_t i = 0; i < 4; ++i) row[at + i] = static_cast<uint8_t>(v >> (24 - 8 * i));
}

int get_number(const uint8_t* row, size_t at) {
  uint32_t v = 0;
  for (size_t i = 0; i < 4; ++i) v = v << 8 | row[at + i];
  return static_cast<int>(v);
}

// A name cut to 10 characters.
std::string cut_name(std::string_view name) { return std::string(name.substr(0, kNameSize)); }

std::string_view last_component(std::string_view path) {
  const size_t slash = path.find_last_of("/\\");
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

bool empty_file(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && st.st_size == 0;
}

bool valid_language(std::string_view language) {
  for (char c : language)
    if (!ascii_alpha(c)) return false;
  return language.substr(0, kCodeChars).size() <= kMaxCodeLength;
}

}  // namespace

const TableDesc& langprog_desc() {
  static const TableDesc desc = [] {
    TableDesc d;
    d.table = "langprog";
    d.columns = {text_column("sp_sys", kNameSize), text_column("sp_prog", kNameSize), number_column("sp_prog_id")};
    d.indexes.resize(2);
    d.indexes[0].parts = {key_part("sp_sys"), key_part("sp_prog")};
    d.indexes[1].parts = {key_part("sp_prog_id", true)};  // the highest number first
    return d;
  }();
  return desc;
}

const TableDesc& lang_desc() {
  static const TableDesc desc = [] {
    TableDesc d;
    d.table = "lang";
    d.columns = {number_column("lang_prog_id"), text_column("lang_type", 1), text_column("lang_local", kTextSize),
                 text_column("lang_foreign", kTextSize), text_column("lang_ref", 1)};
    d.indexes.resize(1);
    d.indexes[0].parts = {key_part("lang_prog_id"), key_part("lang_type"), key_part("lang_local")};
    return d;
  }();
  return desc;
}

std::string program_name(std::string_view source) {
  std::string_view name = last_component(source);
  return cut_name(name.substr(0, name.find('.')));
}

std::string system_name(std::string_view given, std::string_view source) {
  if (!given.empty()) return cut_name(given.substr(0, given.find_first_of("/\\")));
  const size_t slash = source.find_last_of("/\\");
  if (slash != std::string_view::npos) return cut_name(last_component(source.substr(0, slash)));
  char cwd[PATH_MAX];
  if (!getcwd(cwd, sizeof cwd)) return "";
  return cut_name(last_component(cwd));
}

LanguageFiles::~LanguageFiles() = default;

void LanguageFiles::close() {
  active_ = false;
  program_id_ = 0;
  langprog_.reset();
  lang_.reset();
}

std::unique_ptr<IndexedFile> LanguageFiles::open_file(const std::string& path, const TableDesc& desc, uint32_t mode,
                                                      std::string& message) {
  int error = 0;
  std::string detail;
  std::unique_ptr<IndexedFile> f = IndexedFile::open(path, desc, mode, error, detail);
  // An empty file is one another compiler is creating at this moment: creating it too waits for
  // that one and then finds the table made.
  if (!f && (error == datafile::kNoSuchFile || (error == datafile::kBadFile && empty_file(path + ".idx"))))
    f = IndexedFile::open(path, desc, mode | datafile::kCreate, error, detail);
  if (f) return f;
  message = error == datafile::kBadArgument && detail.empty()
                ? format_text(txt::language_define_failed, {path})
                : format_text(txt::language_open_failed, {path, std::to_string(error)});
  if (!detail.empty()) message += ": " + detail;  // the database server's own words
  return nullptr;
}

int LanguageFiles::open(const char* dir, const char* language, std::string& message) {
  close();
  if (!dir || !*dir || !language || !*language) return 0;
  if (!valid_language(language)) {
    message = std::string(text_of(txt::invalid_language_code));
    return -1;
  }
  const std::string code = std::string(language).substr(0, kCodeChars);
  // The directory may be on a database server: each file is then a schema of its own there.
  datafile::FileLocation where;
  std::string detail;
  const int located = datafile::locate(dir, where, detail);
  uint32_t mode = datafile::kLocal;
  std::string base = dir;
  if (located == 0 && (where.mode & datafile::kServerBits)) {
    mode = where.mode;
    base = where.path;
  } else if (located != 0 && located != datafile::kNetworkNotAllowed) {
    message = format_text(txt::language_open_failed, {std::string(dir) + "/LANGPROG", std::to_string(located)}) + ": " + detail;
    return -1;
  }
  langprog_ = open_file(base + "/LANGPROG", langprog_desc(), mode, message);
  if (langprog_) lang_ = open_file(base + "/LANG" + code + "1", lang_desc(), mode, message);
  if (!lang_) {
    close();
    return -1;
  }
  uint8_t row[lang::size] = {};
  lang_->start(1, row, datafile::kFirstRow);
  active_ = true;
  return 1;
}

// Gives the pair the number after the highest one given so far; another compiler may take a
// number at the same moment, so up to ten following numbers are tried.
int LanguageFiles::insert_program(const std::string& sys, const std::string& prog) {
  uint8_t row[langprog::size] = {};
  int highest = 0;
  if (langprog_->start(2, row, datafile::kFirstRow) == 0 && langprog_->read(2, row, datafile::kNextRow) == 0)
    highest = get_number(row, langprog::sp_prog_id);
  put_text(row, langprog::sp_sys, kNameSize, sys);
  put_text(row, langprog::sp_prog, kNameSize, prog);
  for (int tries = 1; tries <= kInsertTries; ++tries) {
    put_number(row, langprog::sp_prog_id, highest + tries);
    if (langprog_->write(row) == 0) return highest + tries;
  }
  return -1;
}

int LanguageFiles::register_program(std::string_view given_system, std::string_view source, std::string& message) {
  program_id_ = 0;
  if (!active_) return 0;
  const std::string sys = system_name(given_system, source), prog = program_name(source);
  uint8_t row[langprog::size] = {};
  put_text(row, langprog::sp_sys, kNameSize, sys);
  put_text(row, langprog::sp_prog, kNameSize, prog);
  put_number(row, langprog::sp_prog_id, 0);
  // Inside a transaction no other compiler writes between the look-up and the insert; without
  // one the ten tries still keep two programs from sharing a number.
  const bool in_transaction = langprog_->begin() == 0;
  int id = langprog_->read(1, row, 0) == 0 ? get_number(row, langprog::sp_prog_id) : insert_program(sys, prog);
  if (in_transaction && (id < 0 || langprog_->commit() != 0)) {
    langprog_->rollback();
    id = -1;
  }
  if (id < 0) {
    message = std::string(text_of(txt::language_register_failed));
    close();
    return -1;
  }
  program_id_ = id;
  return id;
}

int LanguageFiles::add_text(int prog_id, char kind, std::string_view text) {
  if (!lang_) return datafile::kNotOpen;
  uint8_t row[lang::size];
  put_number(row, lang::lang_prog_id, prog_id);
  row[lang::lang_type] = static_cast<uint8_t>(kind);
  put_text(row, lang::lang_local, kTextSize, text);
  put_text(row, lang::lang_foreign, kTextSize, "");
  row[lang::lang_ref] = 'Y';
  uint8_t existing[lang::size];
  std::memcpy(existing, row, sizeof row);
  if (lang_->read(1, existing, 0) == 0) return 0;  // kept as it is, with its translation
  return lang_->write(row);
}

}  // namespace tav::nls
