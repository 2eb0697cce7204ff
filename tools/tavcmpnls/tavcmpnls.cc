#include "tavcmpnls.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string_view>

#include "codegen/bytes.h"
#include "codegen/header.h"
#include "codegen/op_records.h"
#include "codegen/opspace.h"
#include "diag/diag.h"
#include "nls/language_files.h"
#include "tav_version.h"

namespace tav::nlstool {

namespace {

constexpr char kUsage[] =
    "usage: tavcmpnls file.op6\n"
    "Records the translatable texts of a compiled program in the language file of TAVLANGUAGE\n"
    "in the directory TAVLANGDIR, under the program's number in LANGPROG.\n"
    "  --help     print this text and exit\n"
    "  --version  print the product version and exit\n"
    "Exit status: 0 done, 1 the table or the language files cannot be used, 2 usage error.\n";
constexpr int kFailed = 1;
constexpr int kUsageError = 2;
constexpr char kCompilePrefix[] = "@(#) ";
constexpr char kCompiledOn[] = " compiled on ";

int usage_error(const std::string& what) {
  std::fprintf(stderr, "tavcmpnls: %s\n%s", what.c_str(), kUsage);
  return kUsageError;
}

int failure(const std::string& message) {
  std::fprintf(stderr, "tavcmpnls: %s\n", message.c_str());
  return kFailed;
}

// A regular file no larger than the largest table there can be.
bool read_image(const char* path, std::vector<uint8_t>& bytes, std::string& why) {
  constexpr off_t kLargestTable = static_cast<off_t>(kOpSpaceSize) + kDataAreaSize;
  struct stat st {};
  if (stat(path, &st) != 0) {
    why = std::strerror(errno);
    return false;
  }
  if (!S_ISREG(st.st_mode) || st.st_size > kLargestTable) {
    why = "not an operations table";
    return false;
  }
  std::ifstream in(path, std::ios::binary);
  bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  if (in.bad() || !in.is_open()) {
    why = std::strerror(errno);
    return false;
  }
  return true;
}

// The NUL-terminated text at a link of the operations image; false when it runs out of it.
bool text_at(const std::vector<uint8_t>& image, uint32_t ops_size, uint32_t link, std::string& text) {
  if (link == 0) {
    text.clear();
    return true;
  }
  if (link >= ops_size) return false;
  const auto* start = reinterpret_cast<const char*>(image.data() + link);
  const auto* end = static_cast<const char*>(std::memchr(start, 0, ops_size - link));
  if (!end) return false;
  text.assign(start, end);
  return true;
}

// The source name inside "@(#) <source> compiled on <date>".
std::string source_of(std::string_view compile_text) {
  if (compile_text.rfind(kCompilePrefix, 0) == 0) compile_text.remove_prefix(std::strlen(kCompilePrefix));
  const size_t on = compile_text.rfind(kCompiledOn);
  return std::string(on == std::string_view::npos ? compile_text : compile_text.substr(0, on));
}

}  // namespace

bool read_table_texts(const std::vector<uint8_t>& image, TableTexts& out, std::string& why) {
  why = "not an operations table";
  if (image.size() < hdr::size || std::memcmp(image.data() + hdr::h_magic, hdr::kMagic, sizeof hdr::kMagic) != 0)
    return false;
  const uint32_t ops_size = get32(image.data() + hdr::h_ops_size);
  if (ops_size < hdr::size || ops_size > image.size()) return false;
  why = "damaged text";
  std::string compile_text;
  if (!text_at(image, ops_size, get24(image.data() + hdr::h_compile_text), compile_text) ||
      !text_at(image, ops_size, get24(image.data() + hdr::h_system_name), out.system_name))
    return false;
  out.source_name = source_of(compile_text);
  const uint32_t count = get16(image.data() + hdr::h_text_count);
  const uint32_t table = get24(image.data() + hdr::h_text);
  if (count == 0) return true;
  if (static_cast<uint64_t>(table) + uint64_t{count} * textent::size > ops_size) return false;
  for (uint32_t item = 1; item < count; ++item) {
    const uint8_t* e = image.data() + table + item * textent::size;
    TableText t{static_cast<char>(e[textent::te_kind]), {}};
    if (!text_at(image, ops_size, get24(e + textent::te_text), t.text)) return false;
    out.items.push_back(std::move(t));
  }
  return true;
}

int tavcmpnls_main(int argc, char** argv) {
  const char* file = nullptr;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "--version") return print_version("tavcmpnls");
    if (arg == "--help") {
      std::fputs(kUsage, stdout);
      return 0;
    }
    if (argv[i][0] == '-' && argv[i][1] != '\0') return usage_error("unknown option " + std::string(argv[i]));
    if (file) return usage_error("only one file can be given");
    file = argv[i];
  }
  if (!file) return usage_error("no file given");

  std::vector<uint8_t> image;
  TableTexts table;
  std::string why;
  if (!read_image(file, image, why) || !read_table_texts(image, table, why))
    return failure(std::string(file) + ": " + why);

  nls::LanguageFiles files;
  std::string message;
  const int opened = files.open(std::getenv("TAVLANGDIR"), std::getenv("TAVLANGUAGE"), message);
  if (opened == 0) return 0;
  if (opened < 0) return failure(message);
  const int prog_id = files.register_program(table.system_name, table.source_name, message);
  if (prog_id < 0) return failure(message);

  const bool in_transaction = files.begin_texts() == 0;
  for (const TableText& t : table.items) {
    if (t.text.empty() || !std::strchr(nls::kTextKinds, t.kind)) continue;
    if (int status = files.add_text(prog_id, t.kind, t.text); status != 0) {
      if (in_transaction) files.rollback_texts();
      return failure(std::string(file) + ": can't record a text (" + Diagnostics::io_error_text(status) + ")");
    }
  }
  if (in_transaction && files.commit_texts() != 0) return failure(std::string(file) + ": can't record the texts");
  return 0;
}

}  // namespace tav::nlstool
