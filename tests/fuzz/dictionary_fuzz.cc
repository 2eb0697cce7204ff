// Compiles a fixed program against a dictionary whose rows are arbitrary bytes. The input is cut
// into rows of the object, field, record, key and documentation tables (a table byte, then the
// row's bytes); object and field names are made o0, o1, ... and f0, f1, ... so that the program
// names them. Whatever the rows hold, the compile may report errors, abandon the file or stop the
// run, but never crash, read outside a buffer or loop.
#include <stdio.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "diag/diag.h"
#include "diag/display.h"
#include "runtime/datafile.h"
#include "statements/program.h"
#include "symbols/compiler_stores.h"
#include "symbols/dictionary_files.h"

namespace {

constexpr const char* kProgram =
    "object c0 like o0\n"
    "object c1 like o1\n"
    "field g pic x like f1\n"
    "procedure main\n"
    "  set f0 = 1\n"
    "  set f2 = f3\n"
    "end\n";

constexpr tav::DictTable kFuzzedTables[] = {tav::DictTable::object, tav::DictTable::field, tav::DictTable::record,
                                            tav::DictTable::key, tav::DictTable::documentation};

// The dictionary lives in memory-backed storage when there is some: every row written is synced.
std::string make_dictionary() {
  const std::filesystem::path base =
      std::filesystem::is_directory("/dev/shm") ? std::filesystem::path("/dev/shm") : std::filesystem::temp_directory_path();
  const std::string prefix = (base / ("tavfuzz-dict-" + std::to_string(getpid()) + "/")).string();
  std::filesystem::create_directories(prefix);
  for (int i = 0; i < tav::kDictTableCount; ++i) {
    const auto t = static_cast<tav::DictTable>(i);
    int error = 0;
    tav::datafile::IndexedFile::open(prefix + std::string(tav::dict_table_letters(t)) + "4", tav::dict_table_desc(t),
                                     tav::datafile::kCreate, error);
  }
  return prefix;
}

// Replaces every row of the fuzzed tables by the rows the input describes.
void fill(tav::DictionaryFiles& dicts, const uint8_t* data, size_t size) {
  for (tav::DictTable t : kFuzzedTables) {
    tav::DictRow row(t);
    if (dicts.start(row, 0, 1, tav::datafile::kFirstRow) != 0) continue;
    while (dicts.next(row, 0) == 0) dicts.remove(row, 0);
  }
  int objects = 0, fields = 0;
  size_t at = 0;
  while (at < size) {
    const tav::DictTable t = kFuzzedTables[data[at++] % std::size(kFuzzedTables)];
    tav::DictRow row(t);
    const size_t n = std::min<size_t>(tav::dict_table_desc(t).row_size(), size - at);
    std::copy(data + at, data + at + n, row.data());
    at += n;
    if (t == tav::DictTable::object) row.set(tav::dict_object::obj_name, "o" + std::to_string(objects++));
    if (t == tav::DictTable::field) row.set(tav::dict_field::fld_name, "f" + std::to_string(fields++));
    dicts.write(row, 0);  // a duplicate key is refused, as it would be in a real dictionary
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  if (!freopen("/dev/null", "w", stdout)) return 0;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string prefix = make_dictionary();
  static tav::DictionaryFiles* dicts = [] {
    auto* d = new tav::DictionaryFiles(0x041F);  // lives for the whole fuzzing run
    d->open(prefix, false);
    return d;
  }();
  static tav::Display display;
  static tav::Diagnostics diag(display, false, false);
  static tav::CompilerStores* compiler = [] {
    auto* c = new tav::CompilerStores(diag, {});
    c->dictionaries = dicts;
    return c;
  }();
  if (dicts->open_count() != 1) std::abort();
  fill(*dicts, data, size);

  tav::FileContext file;
  file.source_name = "fuzz.spl";
  diag.start_file();
  diag.set_listing("");
  diag.set_source(&compiler->tok);
  compiler->tok.open_text(kProgram, "fuzz.spl");
  try {
    tav::compile_program(*compiler, file);
  } catch (const tav::FileAbort&) {
  } catch (const tav::RunStop& stop) {
    if (stop.message.empty()) std::abort();  // a stop always says why
  }
  compiler->tok.close_source();
  diag.set_source(nullptr);
  compiler->reset();
  return 0;
}
