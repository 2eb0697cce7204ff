#include "symbols/dictionary_files.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "diag/diag.h"

namespace tav {

namespace {

using datafile::IndexedFile;

struct TableRow {
  std::string_view letters;
  uint16_t mask;
  uint32_t size;
};

constexpr TableRow kTables[] = {
#define TAV_DICT_TABLE(id, table, letters, mask, size) {letters, mask, size},
#define TAV_DICT_COLUMN(table, column, format, type, occurs, offset, size)
#define TAV_DICT_INDEX(table, number, duplicates, parts)
#include "symbols/dict_tables.def"
};
static_assert(std::size(kTables) == kDictTableCount);

struct ColumnRow {
  DictTable table;
  std::string_view name;
  uint16_t format;
  char type;
  uint16_t occurs;
  uint32_t offset;
  uint32_t size;
};

constexpr ColumnRow kColumns[] = {
#define TAV_DICT_TABLE(id, table, letters, mask, size)
#define TAV_DICT_COLUMN(table, column, format, type, occurs, offset, size) \
  {table::which, #column, format, type, occurs, offset, size},
#define TAV_DICT_INDEX(table, number, duplicates, parts)
#include "symbols/dict_tables.def"
};

struct IndexRow {
  DictTable table;
  int number;
  bool duplicates;
  std::string_view parts;
};

constexpr IndexRow kIndexes[] = {
#define TAV_DICT_TABLE(id, table, letters, mask, size)
#define TAV_DICT_COLUMN(table, column, format, type, occurs, offset, size)
#define TAV_DICT_INDEX(table, number, duplicates, parts) {table::which, number, duplicates, parts},
#include "symbols/dict_tables.def"
};

// Every table's columns follow each other from offset 0 and fill its row; its indexes are
// numbered 1, 2, ... in order.
constexpr bool layouts_sound() {
  for (int t = 0; t < kDictTableCount; ++t) {
    uint32_t at = 0;
    for (const ColumnRow& c : kColumns) {
      if (static_cast<int>(c.table) != t) continue;
      if (c.offset != at) return false;
      at += c.size * c.occurs;
    }
    if (at != kTables[t].size) return false;
    int number = 0;
    for (const IndexRow& i : kIndexes)
      if (static_cast<int>(i.table) == t && i.number != ++number) return false;
  }
  return true;
}
static_assert(layouts_sound(), "dict_tables.def: columns or indexes out of place");

constexpr std::string_view kTableNames[] = {
#define TAV_DICT_TABLE(id, table, letters, mask, size) #table,
#define TAV_DICT_COLUMN(table, column, format, type, occurs, offset, size)
#define TAV_DICT_INDEX(table, number, duplicates, parts)
#include "symbols/dict_tables.def"
};

datafile::Index parse_index(const IndexRow& row) {
  datafile::Index index;
  index.duplicates = row.duplicates;
  std::string_view rest = row.parts;
  while (!rest.empty()) {
    size_t comma = rest.find(", ");
    std::string_view part = rest.substr(0, comma);
    rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 2);
    datafile::KeyPart k;
    k.descending = part.ends_with(" DESC");
    k.column = std::string(k.descending ? part.substr(0, part.size() - 5) : part);
    index.parts.push_back(std::move(k));
  }
  return index;
}

datafile::TableDesc make_desc(DictTable t) {
  datafile::TableDesc d;
  d.table = std::string(kTableNames[static_cast<int>(t)]);
  for (const ColumnRow& c : kColumns)
    if (c.table == t) d.columns.push_back({std::string(c.name), c.format, c.type, c.occurs, c.size});
  for (const IndexRow& i : kIndexes)
    if (i.table == t) d.indexes.push_back(parse_index(i));
  return d;
}

// The status of a read that found nothing.
bool not_found(int status) { return status == datafile::kNoRecord || status == datafile::kEndOfFile; }

// Table letters in the order they are opened; the documentation table comes last.
constexpr DictTable kOpenOrder[] = {DictTable::object,  DictTable::field,    DictTable::record,  DictTable::key,
                                    DictTable::obj_rel, DictTable::prog_rel, DictTable::prog_obj};
// The tables that change together and are read as one snapshot.
bool in_description_group(DictTable t) {
  return t == DictTable::object || t == DictTable::field || t == DictTable::record || t == DictTable::key ||
         t == DictTable::documentation;
}
// The tables of a program's registration (-p): its row and the rows of the objects it uses.
bool in_program_group(DictTable t) { return t == DictTable::prog_rel || t == DictTable::prog_obj; }
constexpr uint16_t kVersionMask = 0x0400;
constexpr size_t kVersionLength = 19;
constexpr uint32_t kLocalMode = 8;

// On a server a dictionary's tables share the schema named by its path, and its version text is
// the one row of a table of its own.
datafile::TableDesc make_version_desc() {
  datafile::TableDesc d;
  d.table = "dict_version";
  d.columns.push_back({"ver_text", static_cast<uint16_t>(kVersionLength), 'S', 1, static_cast<uint32_t>(kVersionLength)});
  d.indexes.resize(1);
  d.indexes[0].parts = {{"ver_text", false}};
  d.indexes[0].duplicates = true;
  return d;
}

// The number a failure to open a dictionary's table is reported with: on a server, a missing
// table is a server that lacks what the compiler needs.
int server_code(uint32_t mode, int error) {
  const bool server = !(mode & datafile::kLocal) && datafile::server_number(mode) >= 0;
  return server && error == datafile::kNoSuchFile ? datafile::kServerLacks : error;
}

RunStop with_explanation(RunStop stop, const std::string& detail) {
  stop.explanation = detail;
  return stop;
}

}  // namespace

uint16_t dict_table_mask(DictTable t) { return kTables[static_cast<int>(t)].mask; }
std::string_view dict_table_letters(DictTable t) { return kTables[static_cast<int>(t)].letters; }

const datafile::TableDesc& dict_version_desc() {
  static const datafile::TableDesc desc = make_version_desc();
  return desc;
}

bool dict_on_server(uint32_t mode) { return !(mode & datafile::kLocal) && datafile::server_number(mode) >= 0; }

std::string dict_table_file(const std::string& path, uint32_t mode, DictTable t) {
  return dict_on_server(mode) ? path : path + std::string(dict_table_letters(t)) + "4";
}

const datafile::TableDesc& dict_table_desc(DictTable t) {
  static const std::array<datafile::TableDesc, kDictTableCount> descs = [] {
    std::array<datafile::TableDesc, kDictTableCount> a;
    for (int i = 0; i < kDictTableCount; ++i) a[static_cast<size_t>(i)] = make_desc(static_cast<DictTable>(i));
    return a;
  }();
  return descs[static_cast<size_t>(t)];
}

// ---- Row buffers -------------------------------------------------------------------------------

DictRow::DictRow(DictTable t) : table_(t), bytes_(kTables[static_cast<int>(t)].size) { clear(); }

void DictRow::clear() {
  std::fill(bytes_.begin(), bytes_.end(), uint8_t{' '});
  for (const ColumnRow& c : kColumns)
    if (c.table == table_ && (c.format & 0x7800) != 0)
      std::fill_n(bytes_.begin() + c.offset, c.size * c.occurs, uint8_t{0});
}

int64_t DictRow::number(const DictColumn& c, uint16_t occurrence) const {
  const uint8_t* p = bytes_.data() + c.offset + c.size * occurrence;
  uint64_t v = 0;
  for (uint32_t i = 0; i < c.size; ++i) v = v << 8 | p[i];
  return static_cast<int64_t>(v);  // every dictionary number is unsigned
}

std::string DictRow::text(const DictColumn& c, uint16_t occurrence) const {
  const auto* p = reinterpret_cast<const char*>(bytes_.data() + c.offset + c.size * occurrence);
  std::string s(p, c.size);
  s.erase(s.find_last_not_of(std::string_view(" \0", 2)) + 1);
  return s;
}

void DictRow::set(const DictColumn& c, int64_t value, uint16_t occurrence) {
  uint8_t* p = bytes_.data() + c.offset + c.size * occurrence;
  auto v = static_cast<uint64_t>(value);
  for (uint32_t i = c.size; i-- > 0;) {
    p[i] = static_cast<uint8_t>(v);
    v >>= 8;
  }
}

void DictRow::set(const DictColumn& c, std::string_view value, uint16_t occurrence) {
  uint8_t* p = bytes_.data() + c.offset + c.size * occurrence;
  for (uint32_t i = 0; i < c.size; ++i) p[i] = i < value.size() ? static_cast<uint8_t>(value[i]) : ' ';
}

// ---- Opening -----------------------------------------------------------------------------------

DictionaryFiles::DictionaryFiles(uint16_t open_mask, Getenv getenv_fn)
    : open_mask_(open_mask), getenv_(std::move(getenv_fn)) {}

DictionaryFiles::~DictionaryFiles() = default;

const char* DictionaryFiles::env(const char* name) const { return getenv_ ? getenv_(name) : std::getenv(name); }

void DictionaryFiles::open_all(const std::vector<std::string>& names, bool read_only) {
  if (!names.empty()) {
    for (const std::string& name : names) open(name, read_only);
    return;
  }
  bool any_set = false;
  for (const char* var : {"TAVUSRDICT", "TAVDISTDICT", "TAVDICT"}) {
    const char* value = env(var);
    if (!value) continue;
    any_set = true;
    if (*value && open(value, read_only) != 0) break;
  }
  if (!any_set) throw run_stop(txt::dict_env_not_set);
}

std::string DictionaryFiles::dictionary_path(std::string_view name, uint32_t& mode) const {
  mode = 0;
  if (name.starts_with(':')) {
    mode = kLocalMode;
    return std::string(name.substr(1));
  }
  datafile::FileLocation where;
  std::string detail;
  const int error = datafile::locate(name, where, detail, getenv_);
  if (error == datafile::kNetworkNotAllowed && datafile::names_server(name)) {
    return std::string(name);  // no such server: refused when a table is opened
  }
  if (error != 0) throw with_explanation(run_stop(txt::dict_open_failed, {name, std::to_string(error)}), detail);
  if (where.mode & datafile::kServerBits) {
    mode = where.mode;
    return where.path;
  }
  std::string first = std::string(name) + std::string(dict_table_letters(DictTable::object)) + "4.idx";
  if (first.starts_with('/') || first.starts_with('\\')) return std::string(name);
  const char* search = env("TAVPATH");
  std::optional<std::string> found = datafile::find_file(first, search ? search : "");
  if (!found) {
    RunStop stop = run_stop(txt::dict_not_found, {name});
    for (const std::string& tried : datafile::search_candidates(first, search ? search : ""))
      stop.notes.push_back("searched '" + tried + "'");
    throw stop;
  }
  return found->substr(0, found->size() - 6);
}

int DictionaryFiles::open(std::string_view name, bool read_only) {
  if (dicts_.size() == kMaxDictionaries) throw run_stop(txt::too_many_dictionaries);
  auto d = std::make_unique<Dictionary>();
  d->name = name;
  d->path = dictionary_path(name, d->mode);
  for (const auto& open : dicts_)
    if (open->path == d->path && (open->mode & datafile::kServerBits) == (d->mode & datafile::kServerBits)) return 0;
  const uint32_t read_mode = d->mode | (read_only ? datafile::kReadOnly : 0);
  d->descriptions = std::make_unique<datafile::FileGroup>(read_mode);
  d->programs = std::make_unique<datafile::FileGroup>(d->mode);
  for (DictTable t : kOpenOrder) {
    if (!(open_mask_ & dict_table_mask(t))) continue;
    const bool program_table = t == DictTable::obj_rel || t == DictTable::prog_rel || t == DictTable::prog_obj;
    open_table(*d, t, program_table ? d->mode : read_mode);
  }
  if (open_mask_ & kVersionMask) d->version = read_version(*d);
  int error = 0;
  const DictTable doc = DictTable::documentation;
  d->files[static_cast<size_t>(doc)] =
      d->descriptions->open(dict_table_file(d->path, d->mode, doc), dict_table_desc(doc), error);
  if (d->files[static_cast<size_t>(doc)] && files_read_ && !dict_on_server(d->mode))
    files_read_->add(datafile::file_path(dict_table_file(d->path, d->mode, doc)));
  if (!d->files[static_cast<size_t>(doc)]) {
    uncounted_.push_back(std::move(d));
    return -1;
  }
  d->snapshots = read_only;
  dicts_.push_back(std::move(d));
  begin_snapshots();
  return 0;
}

std::string DictionaryFiles::read_version(const Dictionary& d) const {
  if (dict_on_server(d.mode)) {
    int error = 0;
    std::unique_ptr<IndexedFile> f = IndexedFile::open(d.path, dict_version_desc(), d.mode | datafile::kReadOnly, error);
    std::vector<uint8_t> row(kVersionLength, ' ');
    if (!f || f->start(1, row.data(), datafile::kFirstRow) != 0 || f->read(1, row.data(), datafile::kNextRow) != 0) return "";
    std::string text(row.begin(), row.end());
    return text.erase(text.find_last_not_of(' ') + 1);
  }
  const std::optional<std::string> read = datafile::read_text_file(d.path + "-dict.ver", kVersionLength);
  if (read && files_read_) files_read_->add(d.path + "-dict.ver");
  std::string text = read.value_or("");
  text = text.substr(0, text.find('\n'));
  if (text.size() == kVersionLength && text.back() == ' ') text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

std::string DictionaryFiles::server_error(int dictno) const {
  if (dictno < 0 || dictno >= open_count()) return "";
  const Dictionary& d = *dicts_[static_cast<size_t>(dictno)];
  std::string text = d.descriptions ? d.descriptions->server_error() : "";
  return text.empty() && d.programs ? d.programs->server_error() : text;
}

void DictionaryFiles::begin_snapshots() {
  for (const auto& d : dicts_) {
    if (!d->snapshots || d->descriptions->in_snapshot()) continue;
    if (const int status = d->descriptions->begin_snapshot(); status != 0)
      throw with_explanation(run_stop(txt::dict_open_failed, {d->path, std::to_string(status)}),
                             d->descriptions->server_error());
  }
}

void DictionaryFiles::end_snapshots() {
  for (const auto& d : dicts_) {
    if (!d->descriptions || !d->descriptions->in_snapshot()) continue;
    d->descriptions->end_snapshot();
    d->cache = {};  // what the next snapshot reads may differ
  }
}

void DictionaryFiles::open_table(Dictionary& d, DictTable t, uint32_t mode) {
  const datafile::TableDesc& desc = dict_table_desc(t);
  const std::string name = dict_table_file(d.path, d.mode, t);
  if (!desc.valid()) throw run_stop(txt::dict_define_failed, {name});
  int error = 0;
  std::string detail;
  auto& slot = d.files[static_cast<size_t>(t)];
  if (in_program_group(t)) {
    // Made when missing, as the other tables below, then opened in its group.
    slot = d.programs->open(name, desc, error, detail);
    if (!slot && error == datafile::kNoSuchFile && IndexedFile::open(name, desc, mode | datafile::kCreate, error, detail))
      slot = d.programs->open(name, desc, error, detail);
    if (!slot && dict_on_server(d.mode))
      throw with_explanation(run_stop(txt::dict_open_failed, {d.path, std::to_string(server_code(d.mode, error))}), detail);
    return;
  }
  slot = in_description_group(t) ? d.descriptions->open(name, desc, error, detail)
                                 : IndexedFile::open(name, desc, mode, error, detail);
  if (slot && files_read_ && in_description_group(t) && !dict_on_server(d.mode))
    files_read_->add(datafile::file_path(name));
  if (slot) return;
  switch (t) {
    case DictTable::object:
      throw with_explanation(run_stop(txt::dict_open_failed, {d.path, std::to_string(server_code(d.mode, error))}), detail);
    case DictTable::field:
    case DictTable::record:
    case DictTable::key:
      throw with_explanation(run_stop(txt::dict_file_open_failed, {name}), detail);
    default:
      if (error == datafile::kNoSuchFile) slot = IndexedFile::open(name, desc, mode | datafile::kCreate, error);
  }
}

void DictionaryFiles::close_all() {
  dicts_.clear();
  uncounted_.clear();
}

// ---- Rows --------------------------------------------------------------------------------------

IndexedFile* DictionaryFiles::file(DictTable t, int dictno) {
  if (dictno < 0 || dictno >= open_count()) return nullptr;
  return dicts_[static_cast<size_t>(dictno)]->files[static_cast<size_t>(t)].get();
}

void DictionaryFiles::read_failed(DictTable t, int dictno, int status) {
  const std::string name = dict_table_file(path(dictno), dicts_[static_cast<size_t>(dictno)]->mode, t);
  throw with_explanation(run_stop(txt::dict_read_failed, {name, Diagnostics::io_error_text(status)}), server_error(dictno));
}

int DictionaryFiles::read(DictRow& row, int dictno, int index) {
  const int first = dictno < 0 ? 0 : dictno;
  const int last = dictno < 0 ? open_count() - 1 : dictno;
  const std::vector<uint8_t> key(row.data(), row.data() + kTables[static_cast<int>(row.table())].size);
  for (int d = first; d <= last; ++d) {
    IndexedFile* f = file(row.table(), d);
    if (!f) continue;
    std::copy(key.begin(), key.end(), row.data());
    const int status = f->read(index, row.data(), 0);
    if (status == 0) return d;
    if (!not_found(status)) read_failed(row.table(), d, status);
  }
  std::copy(key.begin(), key.end(), row.data());
  return -1;
}

int DictionaryFiles::start(DictRow& row, int dictno, int index, uint32_t mode) {
  IndexedFile* f = file(row.table(), dictno);
  return f ? f->start(index, row.data(), mode) : datafile::kNotOpen;
}

int DictionaryFiles::next(DictRow& row, int dictno) {
  IndexedFile* f = file(row.table(), dictno);
  if (!f) return datafile::kNotOpen;
  const int status = f->read(0, row.data(), datafile::kNextRow);
  if (status != 0 && !not_found(status)) read_failed(row.table(), dictno, status);
  return status;
}

// A write to a table whose rows the lookups keep makes them read again.
void DictionaryFiles::forget(DictTable t, int dictno) {
  if (t == DictTable::object || t == DictTable::field || t == DictTable::record || t == DictTable::key)
    cache(dictno) = {};
}

int DictionaryFiles::write(const DictRow& row, int dictno) {
  IndexedFile* f = file(row.table(), dictno);
  if (!f) return datafile::kNotOpen;
  forget(row.table(), dictno);
  return f->write(row.data());
}

int DictionaryFiles::rewrite(const DictRow& row, int dictno) {
  IndexedFile* f = file(row.table(), dictno);
  if (!f) return datafile::kNotOpen;
  forget(row.table(), dictno);
  return f->rewrite(row.data());
}

int DictionaryFiles::remove(const DictRow& row, int dictno) {
  IndexedFile* f = file(row.table(), dictno);
  if (!f) return datafile::kNotOpen;
  forget(row.table(), dictno);
  return f->remove(row.data());
}

datafile::FileGroup* DictionaryFiles::group_of(DictTable t, int dictno) {
  Dictionary& d = *dicts_[static_cast<size_t>(dictno)];
  if (in_description_group(t)) return d.descriptions.get();
  if (in_program_group(t)) return d.programs.get();
  return nullptr;
}

int DictionaryFiles::in_transaction(DictTable t, int dictno, const std::function<int()>& work) {
  IndexedFile* f = file(t, dictno);
  if (!f) return datafile::kNotOpen;
  datafile::FileGroup* group = group_of(t, dictno);
  const auto undo = [&] {
    if (group)
      group->rollback();
    else
      f->rollback();
    cache(dictno) = {};  // it may hold rows that were never committed
  };
  if (int status = group ? group->begin() : f->begin(); status != 0) return status;
  int result = 0;
  try {
    result = work();
  } catch (...) {
    undo();
    throw;
  }
  if (result != 0) {
    undo();
    return result;
  }
  result = group ? group->commit() : f->commit();
  if (result != 0) cache(dictno) = {};
  return result;
}

// ---- What the symbol layer asks ----------------------------------------------------------------

namespace {

DictField field_of(const DictRow& r, int dictno) {
  DictField f;
  f.dictno = static_cast<int16_t>(dictno);
  f.name = r.text(dict_field::fld_name);
  f.id = static_cast<uint16_t>(r.number(dict_field::fld_id));
  f.size = static_cast<uint16_t>(r.number(dict_field::fld_size));
  f.desc = static_cast<uint16_t>(r.number(dict_field::fld_desc));
  const std::string type = r.text(dict_field::fld_type);
  f.type = type.empty() ? ' ' : type[0];
  f.occurs = static_cast<uint16_t>(r.number(dict_field::fld_occurs));
  f.flags = static_cast<uint16_t>(r.number(dict_field::fld_flags));
  f.col_name = r.text(dict_field::fld_col_name);
  return f;
}

char first_char(const std::string& s) { return s.empty() ? ' ' : s[0]; }

}  // namespace

// The lookups read each row once per run; the dictionaries are searched in order.

std::optional<DictField> DictionaryFiles::find_field(std::string_view name) {
  for (int d = 0; d < open_count(); ++d)
    if (std::optional<DictField> f = find_field_in(d, name)) return f;
  return std::nullopt;
}

std::optional<DictField> DictionaryFiles::find_field_in(int dictno, std::string_view name) {
  if (dictno < 0) return find_field(name);
  if (dictno >= open_count()) return std::nullopt;
  const std::string key(name.substr(0, dict_field::fld_name.size));
  auto [it, fresh] = cache(dictno).fields_by_name.try_emplace(key);
  if (fresh) it->second = read_field_in(dictno, key);
  return it->second;
}

std::optional<DictField> DictionaryFiles::field_by_id(int dictno, uint16_t id) {
  if (dictno < 0 || dictno >= open_count()) return std::nullopt;
  auto [it, fresh] = cache(dictno).fields_by_id.try_emplace(id);
  if (fresh) it->second = read_field_by_id(dictno, id);
  return it->second;
}

std::optional<DictObject> DictionaryFiles::find_object(std::string_view name) {
  const std::string key(name.substr(0, dict_object::obj_name.size));
  for (int d = 0; d < open_count(); ++d) {
    auto [it, fresh] = cache(d).objects.try_emplace(key);
    if (fresh) it->second = read_object(d, key);
    if (it->second) return it->second;
  }
  return std::nullopt;
}

std::optional<DictKey> DictionaryFiles::key(int dictno, uint16_t obj_id, uint16_t index_no) {
  if (dictno < 0 || dictno >= open_count()) return std::nullopt;
  auto [it, fresh] = cache(dictno).keys.try_emplace({obj_id, index_no});
  if (fresh) it->second = read_key(dictno, obj_id, index_no);
  return it->second;
}

std::vector<DictRecordEntry> DictionaryFiles::record(int dictno, uint16_t obj_id) {
  if (dictno < 0 || dictno >= open_count()) return {};
  auto [it, fresh] = cache(dictno).records.try_emplace(obj_id);
  if (fresh) it->second = read_record(dictno, obj_id);
  return it->second;
}

std::vector<std::string> DictionaryFiles::object_names() {
  return all_names(DictTable::object, dict_object::obj_name, &Cache::object_names);
}

std::vector<std::string> DictionaryFiles::field_names() {
  return all_names(DictTable::field, dict_field::fld_name, &Cache::field_names);
}

// The names of a table over the open dictionaries, merged; each dictionary's list is kept.
std::vector<std::string> DictionaryFiles::all_names(DictTable t, const DictColumn& name,
                                                    std::optional<std::vector<std::string>> Cache::*kept) {
  std::vector<std::string> names;
  for (int d = 0; d < open_count(); ++d) {
    std::optional<std::vector<std::string>>& list = cache(d).*kept;
    if (!list) list = read_names(t, name, d);
    names.insert(names.end(), list->begin(), list->end());
  }
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

// Every name of a table of one dictionary, along index 1.
std::vector<std::string> DictionaryFiles::read_names(DictTable t, const DictColumn& name, int dictno) {
  std::vector<std::string> names;
  DictRow r(t);
  if (start(r, dictno, 1, datafile::kFirstRow) != 0) return names;
  while (next(r, dictno) == 0) names.push_back(r.text(name));
  return names;
}

std::optional<DictField> DictionaryFiles::read_field_in(int dictno, std::string_view name) {
  DictRow r(DictTable::field);
  r.set(dict_field::fld_name, name);
  if (read(r, dictno, 1) < 0) return std::nullopt;
  return field_of(r, dictno);
}

std::optional<DictField> DictionaryFiles::read_field_by_id(int dictno, uint16_t id) {
  DictRow r(DictTable::field);
  r.set(dict_field::fld_id, id);
  if (read(r, dictno, 2) < 0) return std::nullopt;
  return field_of(r, dictno);
}

std::optional<DictObject> DictionaryFiles::read_object(int dictno, std::string_view name) {
  DictRow r(DictTable::object);
  r.set(dict_object::obj_name, name);
  const int d = read(r, dictno, 1);
  if (d < 0) return std::nullopt;
  DictObject o;
  o.dictno = static_cast<int16_t>(d);
  o.id = static_cast<uint16_t>(r.number(dict_object::obj_id));
  o.recsize = static_cast<uint16_t>(r.number(dict_object::obj_recsize));
  o.file = r.text(dict_object::obj_file);
  o.type = first_char(r.text(dict_object::obj_type));
  o.version = first_char(r.text(dict_object::obj_version));
  o.separator = first_char(r.text(dict_object::obj_sep));
  o.filler1 = first_char(r.text(dict_object::obj_filler1));
  return o;
}

std::optional<DictKey> DictionaryFiles::read_key(int dictno, uint16_t obj_id, uint16_t index_no) {
  DictRow r(DictTable::key);
  r.set(dict_key::obj_id, obj_id);
  r.set(dict_key::index_no, index_no);
  if (read(r, dictno, 1) < 0) return std::nullopt;
  DictKey k;
  k.index_no = index_no;
  k.flags = static_cast<uint16_t>(r.number(dict_key::key_flags));
  k.num_fields = static_cast<uint16_t>(r.number(dict_key::num_fields));
  for (uint16_t i = 0; i < dict_key::k_fld_id.occurs; ++i) {
    k.field_ids[i] = static_cast<uint16_t>(r.number(dict_key::k_fld_id, i));
    k.descending[i] = r.text(dict_key::k_desc_flag, i) == "Y";
  }
  return k;
}

std::vector<DictRecordEntry> DictionaryFiles::read_record(int dictno, uint16_t obj_id) {
  std::vector<DictRecordEntry> out;
  DictRow r(DictTable::record);
  r.set(dict_record::obj_id, obj_id);
  r.set(dict_record::rec_offset, 0);
  if (start(r, dictno, 1) != 0) return out;
  while (next(r, dictno) == 0 && r.number(dict_record::obj_id) == obj_id)
    out.push_back({static_cast<uint16_t>(r.number(dict_record::fld_id)),
                   static_cast<uint16_t>(r.number(dict_record::rec_offset))});
  return out;
}

bool DictionaryFiles::record_has(int dictno, uint16_t obj_id, uint16_t field_id) {
  for (const DictRecordEntry& e : record(dictno, obj_id))
    if (e.field_id == field_id) return true;
  return false;
}

bool DictionaryFiles::record_holds(int dictno, uint16_t obj_id, std::string_view field_name) {
  const std::optional<DictField> f = find_field_in(dictno, field_name);
  return f && record_has(dictno, obj_id, f->id);
}

std::string DictionaryFiles::documentation(int dictno, int type, uint16_t id, uint16_t line_no) {
  DictRow r(DictTable::documentation);
  r.set(dict_documentation::doc_type, type);
  r.set(dict_documentation::doc_id, id);
  r.set(dict_documentation::doc_line_no, line_no);
  if (read(r, dictno, 1) < 0) return {};
  return r.text(dict_documentation::doc_line);
}

std::vector<std::string> DictionaryFiles::documentation_text(int dictno, int type, uint16_t id) {
  std::vector<std::string> lines;
  DictRow r(DictTable::documentation);
  r.set(dict_documentation::doc_type, type);
  r.set(dict_documentation::doc_id, id);
  r.set(dict_documentation::doc_line_no, 1);
  if (start(r, dictno, 1) != 0) return lines;
  while (next(r, dictno) == 0 && r.number(dict_documentation::doc_type) == type &&
         r.number(dict_documentation::doc_id) == id)
    lines.push_back(r.text(dict_documentation::doc_line));
  return lines;
}

}  // namespace tav
