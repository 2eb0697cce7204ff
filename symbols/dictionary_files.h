// The data dictionaries on their indexed files.
//
// A dictionary is a path prefix: each of its tables is the indexed file <prefix><letters>4 (the
// rows of symbols/dict_tables.def), and its version text is the first line of <prefix>-dict.ver.
// Up to three dictionaries are open at once, numbered in the order they were opened; a lookup
// that names no dictionary searches them in that order. A dictionary the compiler cannot work
// with stops the run (RunStop) with its message.
//
// The description tables of a dictionary (object, field, record, key, documentation) are one
// group of files (datafile::FileGroup): a write changes them together, and a dictionary opened
// for reading is read as one snapshot at a time (one per source file in a compile), so that
// everything a file's compile learns of it belongs to the same state, whatever a writer does
// meanwhile. The program and program-object tables are a group of their own, so that a program's
// row and the rows of the objects it uses are written together.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <unordered_map>
#include <utility>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/datafile.h"
#include "runtime/files_read.h"
#include "symbols/dictionary.h"

namespace tav {

// The tables of a dictionary, in the order of dict_tables.def.
enum class DictTable : int {
#define TAV_DICT_TABLE(id, table, letters, mask, size) id,
#define TAV_DICT_COLUMN(table, column, format, type, occurs, offset, size)
#define TAV_DICT_INDEX(table, number, duplicates, parts)
#include "symbols/dict_tables.def"
};
inline constexpr int kDictTableCount = static_cast<int>(DictTable::prog_obj) + 1;

// Where a column lies in a row buffer.
struct DictColumn {
  uint32_t offset;
  uint32_t size;     // of one occurrence
  uint16_t occurs;
  bool numeric;
};

// The row layouts: dict_object::obj_name, dict_object::row_size and so on.
#define TAV_DICT_TABLE(id, table, letters, mask, size) \
  namespace table {                                     \
  inline constexpr uint32_t row_size = size;            \
  inline constexpr DictTable which = DictTable::id;     \
  }
#define TAV_DICT_COLUMN(table, column, format, type, occurs, offset, size) \
  namespace table {                                                         \
  inline constexpr DictColumn column{offset, size, occurs, ((format) & 0x7800) != 0}; \
  }
#define TAV_DICT_INDEX(table, number, duplicates, parts)
#include "symbols/dict_tables.def"

// The open-mask bit and the file letters of a table.
uint16_t dict_table_mask(DictTable t);
std::string_view dict_table_letters(DictTable t);
// The description of a table for the data-file layer.
const datafile::TableDesc& dict_table_desc(DictTable t);
// On a database server: the table that holds a dictionary's version text (one row, ver_text).
const datafile::TableDesc& dict_version_desc();
// Whether a dictionary of access mode `mode` is on a database server.
bool dict_on_server(uint32_t mode);
// The name a table of the dictionary `path` is opened under: <path><letters>4 for local files;
// on a server, the dictionary's path itself (its schema there; the table is the table's name).
std::string dict_table_file(const std::string& path, uint32_t mode, DictTable t);

// A row buffer of a table: numbers most significant byte first, texts blank padded.
class DictRow {
 public:
  explicit DictRow(DictTable t);
  DictTable table() const { return table_; }
  uint8_t* data() { return bytes_.data(); }
  const uint8_t* data() const { return bytes_.data(); }

  int64_t number(const DictColumn& c, uint16_t occurrence = 0) const;
  std::string text(const DictColumn& c, uint16_t occurrence = 0) const;  // trailing blanks removed
  void set(const DictColumn& c, int64_t value, uint16_t occurrence = 0);
  void set(const DictColumn& c, std::string_view value, uint16_t occurrence = 0);
  void clear();

 private:
  DictTable table_;
  std::vector<uint8_t> bytes_;
};

class DictionaryFiles final : public Dictionaries {
 public:
  static constexpr int kMaxDictionaries = 3;
  using Getenv = std::function<const char*(const char*)>;

  // `open_mask` selects the tables opened (dict_table_mask bits; 0x0400 the version file).
  explicit DictionaryFiles(uint16_t open_mask, Getenv getenv_fn = nullptr);
  ~DictionaryFiles() override;

  // Opens the dictionaries named (the user dictionary, then the global one), or, when none is
  // named, those of TAVUSRDICT, TAVDISTDICT and TAVDICT in that order, stopping at the first
  // that cannot be opened. Stops the run when none of the three variables is set.
  void open_all(const std::vector<std::string>& names, bool read_only);
  // Opens one dictionary: 0 (opened, or open already) or -1 (its documentation table could not
  // be opened). Stops the run on the other failures.
  int open(std::string_view name, bool read_only);
  void close_all();
  // A run of several source files reads each dictionary opened for reading as one snapshot per
  // file: the compile of a file begins one (a dictionary is opened with one already begun) and
  // ends it, forgetting what it read. Between files no snapshot is held, so a load waits at most
  // for one file's compile, and the next file reads the dictionary as the load left it. A
  // snapshot that cannot be begun stops the run.
  void begin_snapshots();
  void end_snapshots();

  const std::string& path(int dictno) const { return dicts_[static_cast<size_t>(dictno)]->path; }
  // The name the dictionary was opened by (an option's or a variable's value).
  const std::string& name(int dictno) const { return dicts_[static_cast<size_t>(dictno)]->name; }
  // The files of the description tables and the version file of each dictionary opened from
  // now on are added to `files`, which must outlive this object.
  void note_files_in(FilesRead* files) { files_read_ = files; }
  const std::string& version(int dictno) const { return dicts_[static_cast<size_t>(dictno)]->version; }
  uint32_t mode(int dictno) const { return dicts_[static_cast<size_t>(dictno)]->mode; }
  // The database server's text of the last failure on a dictionary; empty for local files.
  std::string server_error(int dictno) const;

  // Row access. read: the row with the key in `row` on `index`, from dictionary `dictno`, or from
  // the first that has it when `dictno` is -1; the dictionary's number, or -1 when none has it.
  int read(DictRow& row, int dictno, int index);
  // start: positions before the first row whose key on `index` is at least the key in `row`
  // (with datafile::kFirstRow, before the first row); 0, or an I/O status.
  int start(DictRow& row, int dictno, int index, uint32_t mode = 0);
  int next(DictRow& row, int dictno);              // 0, or an I/O status (end of file)
  int write(const DictRow& row, int dictno);
  int rewrite(const DictRow& row, int dictno);
  int remove(const DictRow& row, int dictno);
  // Runs `work` as one transaction on a table of a dictionary; its result is returned, and a
  // non-zero one (or an exception) undoes what it wrote. On a description table (object, field,
  // record, key, documentation) the transaction covers all five: they commit together; on the
  // program or the program-object table it covers both.
  int in_transaction(DictTable t, int dictno, const std::function<int()>& work);

  // Dictionaries
  int open_count() const override { return static_cast<int>(dicts_.size()); }
  std::optional<DictField> find_field(std::string_view name) override;
  std::optional<DictField> find_field_in(int dictno, std::string_view name) override;
  std::optional<DictField> field_by_id(int dictno, uint16_t id) override;
  std::optional<DictObject> find_object(std::string_view name) override;
  std::optional<DictKey> key(int dictno, uint16_t obj_id, uint16_t index_no) override;
  std::vector<DictRecordEntry> record(int dictno, uint16_t obj_id) override;
  bool record_has(int dictno, uint16_t obj_id, uint16_t field_id) override;
  bool record_holds(int dictno, uint16_t obj_id, std::string_view field_name) override;
  std::string documentation(int dictno, int type, uint16_t id, uint16_t line_no) override;
  std::vector<std::string> documentation_text(int dictno, int type, uint16_t id) override;
  std::vector<std::string> object_names() override;
  std::vector<std::string> field_names() override;

 private:
  // What the compiler has read of a dictionary's descriptions, kept for the run: they do not
  // change while it runs, and every program of a run asks for much the same rows.
  struct Cache {
    std::unordered_map<std::string, std::optional<DictField>> fields_by_name;
    std::unordered_map<uint16_t, std::optional<DictField>> fields_by_id;
    std::unordered_map<std::string, std::optional<DictObject>> objects;
    std::map<std::pair<uint16_t, uint16_t>, std::optional<DictKey>> keys;
    std::unordered_map<uint16_t, std::vector<DictRecordEntry>> records;
    std::optional<std::vector<std::string>> object_names;
    std::optional<std::vector<std::string>> field_names;
  };

  struct Dictionary {
    std::string name;
    std::string path;
    uint32_t mode = 0;
    std::unique_ptr<datafile::FileGroup> descriptions;  // the group of the description tables
    std::unique_ptr<datafile::FileGroup> programs;      // the program and program-object tables
    bool snapshots = false;                              // opened for reading: read as snapshots
    std::array<std::unique_ptr<datafile::IndexedFile>, kDictTableCount> files;
    std::string version;
    Cache cache;
  };

  std::string dictionary_path(std::string_view name, uint32_t& mode) const;
  std::string read_version(const Dictionary& d) const;
  void open_table(Dictionary& d, DictTable t, uint32_t mode);
  datafile::FileGroup* group_of(DictTable t, int dictno);
  datafile::IndexedFile* file(DictTable t, int dictno);
  [[noreturn]] void read_failed(DictTable t, int dictno, int status);
  const char* env(const char* name) const;
  Cache& cache(int dictno) { return dicts_[static_cast<size_t>(dictno)]->cache; }
  void forget(DictTable t, int dictno);
  std::optional<DictField> read_field_in(int dictno, std::string_view name);
  std::optional<DictField> read_field_by_id(int dictno, uint16_t id);
  std::optional<DictObject> read_object(int dictno, std::string_view name);
  std::optional<DictKey> read_key(int dictno, uint16_t obj_id, uint16_t index_no);
  std::vector<DictRecordEntry> read_record(int dictno, uint16_t obj_id);
  std::vector<std::string> read_names(DictTable t, const DictColumn& name, int dictno);
  std::vector<std::string> all_names(DictTable t, const DictColumn& name,
                                     std::optional<std::vector<std::string>> Cache::*kept);

  uint16_t open_mask_;
  Getenv getenv_;
  FilesRead* files_read_ = nullptr;
  std::vector<std::unique_ptr<Dictionary>> dicts_;
  std::vector<std::unique_ptr<Dictionary>> uncounted_;  // opened, but without a documentation table
};

}  // namespace tav
