// The dictionary rows of a schema: made, written and read back through the compiler's
// dictionary files.

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>

#include "diag/diag.h"
#include "schema.h"
#include "scratch.h"

namespace tav::dict_tool {

namespace {

using datafile::IndexedFile;

constexpr const char* kFirstVersion = "1";  // the version text of a new dictionary
constexpr int kRefused = -1;                 // a load the checks refused, with its problems

bool exists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }

std::string table_name(const std::string& prefix, DictTable t) {
  return prefix + std::string(dict_table_letters(t)) + "4";
}

// Makes the tables the dictionary lacks, and its version file; the directory of the prefix too
// when it does not exist yet. What it made is added to `created`, in the order made.
bool create_missing(const std::string& prefix, Problems& problems, std::vector<std::string>& created) {
  if (const size_t slash = prefix.find_last_of('/'); slash != std::string::npos && slash > 0) {
    const std::filesystem::path dir = prefix.substr(0, slash);
    std::error_code ec;
    std::vector<std::string> made;
    for (std::filesystem::path d = dir; !d.empty() && !std::filesystem::exists(d, ec); d = d.parent_path()) {
      made.insert(made.begin(), d.string());
      if (d == d.parent_path()) break;
    }
    std::filesystem::create_directories(dir, ec);
    created.insert(created.end(), made.begin(), made.end());
  }
  for (int i = 0; i < kDictTableCount; ++i) {
    const DictTable t = static_cast<DictTable>(i);
    const std::string name = table_name(prefix, t);
    if (exists(name + ".idx")) continue;
    int error = 0;
    if (!IndexedFile::open(name, dict_table_desc(t), datafile::kLocal | datafile::kCreate, error)) {
      problems.push_back(name + ".idx: cannot be created: " + Diagnostics::io_error_text(error));
      return false;
    }
    created.push_back(name + ".idx");
  }
  const std::string version = prefix + "-dict.ver";
  if (exists(version)) return true;
  FILE* f = std::fopen(version.c_str(), "w");
  if (f) created.push_back(version);
  if (!f || std::fprintf(f, "%s\n", kFirstVersion) < 0 || std::fclose(f) != 0) {
    problems.push_back(version + ": cannot be written");
    return false;
  }
  return true;
}

// What a failure on a database server was, in the server's own words when it gave any.
std::string failure_text(int error, const std::string& detail) {
  return Diagnostics::io_error_text(error) + (detail.empty() ? "" : ": " + detail);
}

// Makes the tables a dictionary on a server lacks, and its version row (the text of a new
// dictionary) when it has none.
bool create_missing_on_server(const datafile::FileLocation& where, Problems& problems, std::vector<std::string>& created) {
  const uint32_t mode = where.mode | datafile::kCreate;
  int error = 0;
  std::string detail;
  for (int i = 0; i < kDictTableCount; ++i) {
    const DictTable t = static_cast<DictTable>(i);
    if (IndexedFile::open(where.path, dict_table_desc(t), where.mode | datafile::kReadOnly, error, detail)) continue;
    if (error == datafile::kNoSuchFile) created.push_back(dict_table_desc(t).table);
    if (!IndexedFile::open(where.path, dict_table_desc(t), mode, error, detail)) {
      problems.push_back(where.server + ":" + where.path + ": " + std::string(dict_table_desc(t).table) +
                         " cannot be made: " + failure_text(error, detail));
      return false;
    }
  }
  if (!IndexedFile::open(where.path, dict_version_desc(), where.mode | datafile::kReadOnly, error, detail) &&
      error == datafile::kNoSuchFile)
    created.push_back(dict_version_desc().table);
  std::unique_ptr<IndexedFile> version = IndexedFile::open(where.path, dict_version_desc(), mode, error, detail);
  std::vector<uint8_t> row(dict_version_desc().row_size(), ' ');
  if (version && version->start(1, row.data(), datafile::kFirstRow) == 0 &&
      version->read(1, row.data(), datafile::kNextRow) == 0)
    return true;
  if (version) {
    std::fill(row.begin(), row.end(), ' ');
    row[0] = static_cast<uint8_t>(kFirstVersion[0]);
    error = version->write(row.data());
    detail = version->server_error();
  }
  if (!version || error != 0) {
    problems.push_back(where.server + ":" + where.path + ": the version cannot be written: " + failure_text(error, detail));
    return false;
  }
  return true;
}

// A dictionary's object table on a server: there, or why not.
bool on_server_already(const datafile::FileLocation& where, Problems& problems) {
  int error = 0;
  std::string detail;
  if (IndexedFile::open(where.path, dict_table_desc(DictTable::object), where.mode | datafile::kReadOnly, error, detail))
    return true;
  if (error == datafile::kNoSuchFile)
    problems.push_back(where.server + ":" + where.path + ": no dictionary here (" + detail + ")");
  else
    problems.push_back(where.server + ":" + where.path + ": " + failure_text(error, detail));
  return false;
}

// Each table file of the dictionary that cannot be opened, with why: the compiler's messages
// name the dictionary, or the first file it met.
void name_unusable_tables(const std::string& prefix, Problems& problems) {
  for (int i = 0; i < kDictTableCount; ++i) {
    const DictTable t = static_cast<DictTable>(i);
    int error = 0;
    if (!IndexedFile::open(table_name(prefix, t), dict_table_desc(t), datafile::kLocal | datafile::kReadOnly, error))
      problems.push_back(table_name(prefix, t) + ".idx: cannot be opened: " + Diagnostics::io_error_text(error));
  }
}

// The highest id on an index whose first column is the id, descending; 0 when the table is empty.
uint16_t highest_id(DictionaryFiles& files, DictTable t, const DictColumn& id) {
  DictRow r(t);
  if (files.start(r, 0, 2, datafile::kFirstRow) != 0 || files.next(r, 0) != 0) return 0;
  return static_cast<uint16_t>(r.number(id));
}

// Every row of a table in the order of an index.
std::vector<DictRow> all_rows(DictionaryFiles& files, DictTable t, int index) {
  std::vector<DictRow> rows;
  DictRow r(t);
  if (files.start(r, 0, index, datafile::kFirstRow) != 0) return rows;
  while (files.next(r, 0) == 0) rows.push_back(r);
  return rows;
}

// The rows of a table whose leading key columns equal those set in `key`, on index `index`.
template <typename Same>
std::vector<DictRow> rows_from(DictionaryFiles& files, DictRow key, int index, Same same) {
  std::vector<DictRow> rows;
  if (files.start(key, 0, index) != 0) return rows;
  while (files.next(key, 0) == 0 && same(key)) rows.push_back(key);
  return rows;
}

std::vector<DictRow> doc_rows(DictionaryFiles& files, DocKind kind, uint16_t id) {
  DictRow key(DictTable::documentation);
  key.set(dict_documentation::doc_type, static_cast<int>(kind));
  key.set(dict_documentation::doc_id, id);
  return rows_from(files, key, 1, [&](const DictRow& r) {
    return r.number(dict_documentation::doc_type) == static_cast<int>(kind) && r.number(dict_documentation::doc_id) == id;
  });
}

std::vector<std::string> doc_lines(DictionaryFiles& files, DocKind kind, uint16_t id) {
  std::vector<std::string> lines;
  for (const DictRow& r : doc_rows(files, kind, id)) lines.push_back(r.text(dict_documentation::doc_line));
  return lines;
}

std::string first_line(DictionaryFiles& files, DocKind kind, uint16_t id) {
  std::vector<std::string> lines = doc_lines(files, kind, id);
  return lines.empty() ? std::string() : lines.front();
}

// Writes the rows of one load; the first failing status ends it.
class Writer {
 public:
  Writer(DictionaryFiles& files, Problems& problems) : files_(files), problems_(problems) {}

  int fields(const std::vector<FieldEntry>& fields);
  int objects(const std::vector<ObjectEntry>& objects);
  const std::map<std::string, uint16_t>& field_ids() const { return field_ids_; }

 private:
  int put(const DictRow& row, bool replace, const std::string& what);
  int remove_all(const std::vector<DictRow>& rows, const std::string& what);
  int docs(DocKind kind, uint16_t id, const std::vector<std::string>& lines, const std::string& what);
  int field(const FieldEntry& f, uint16_t id, bool replace);
  int object(const ObjectEntry& o, uint16_t id, bool replace);
  int record_and_keys(const ObjectEntry& o, uint16_t id);

  DictionaryFiles& files_;
  Problems& problems_;
  std::map<std::string, uint16_t> field_ids_;
};

std::string file_of(DictionaryFiles& files, const DictRow& row) {
  if (dict_on_server(files.mode(0))) return files.path(0) + "." + dict_table_desc(row.table()).table;
  return table_name(files.path(0), row.table()) + ".idx";
}

int Writer::put(const DictRow& row, bool replace, const std::string& what) {
  const int status = replace ? files_.rewrite(row, 0) : files_.write(row, 0);
  if (status != 0)
    problems_.push_back(what + ": cannot be written into " + file_of(files_, row) + ": " +
                        failure_text(status, files_.server_error(0)));
  return status;
}

int Writer::remove_all(const std::vector<DictRow>& rows, const std::string& what) {
  for (const DictRow& r : rows) {
    if (const int status = files_.remove(r, 0); status != 0) {
      problems_.push_back(what + ": old rows cannot be removed from " + file_of(files_, r) + ": " +
                          Diagnostics::io_error_text(status));
      return status;
    }
  }
  return 0;
}

// Replaces the documentation lines of one kind: lines numbered from 1, or the single line 0.
int Writer::docs(DocKind kind, uint16_t id, const std::vector<std::string>& lines, const std::string& what) {
  if (int status = remove_all(doc_rows(files_, kind, id), what); status != 0) return status;
  const bool numbered = kind == DocKind::object || kind == DocKind::field || kind == DocKind::validation;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (!numbered && lines[i].empty()) continue;
    DictRow r(DictTable::documentation);
    r.set(dict_documentation::doc_type, static_cast<int>(kind));
    r.set(dict_documentation::doc_id, id);
    r.set(dict_documentation::doc_line_no, numbered ? static_cast<int64_t>(i + 1) : 0);
    r.set(dict_documentation::doc_line, lines[i]);
    if (int status = put(r, false, what); status != 0) return status;
  }
  return 0;
}

int Writer::field(const FieldEntry& f, uint16_t id, bool replace) {
  DictRow r(DictTable::field);
  r.set(dict_field::fld_name, f.name);
  r.set(dict_field::fld_id, id);
  r.set(dict_field::fld_size, f.size);
  r.set(dict_field::fld_desc, f.format);
  r.set(dict_field::fld_type, std::string_view(&f.type, 1));
  r.set(dict_field::fld_occurs, f.occurs);
  r.set(dict_field::fld_doc, f.description);
  r.set(dict_field::fld_col_name, f.column);
  r.set(dict_field::fld_flags, f.flags);
  const std::string what = "field " + f.name;
  if (int status = put(r, replace, what); status != 0) return status;
  for (auto [kind, lines] : {std::pair{DocKind::field, f.doc}, std::pair{DocKind::validation, f.validation},
                             std::pair{DocKind::title, std::vector{f.title}},
                             std::pair{DocKind::drill_back, std::vector{f.drill_back}}})
    if (int status = docs(kind, id, lines, what); status != 0) return status;
  return 0;
}

int Writer::fields(const std::vector<FieldEntry>& fields) {
  uint16_t next = highest_id(files_, DictTable::field, dict_field::fld_id);
  for (const FieldEntry& f : fields) {
    const std::optional<DictField> old = files_.find_field_in(0, f.name);
    const uint16_t id = old ? old->id : ++next;
    field_ids_[f.name] = id;
    if (int status = field(f, id, old.has_value()); status != 0) return status;
  }
  return 0;
}

int Writer::object(const ObjectEntry& o, uint16_t id, bool replace) {
  DictRow r(DictTable::object);
  r.set(dict_object::obj_name, o.name);
  r.set(dict_object::obj_id, id);
  r.set(dict_object::obj_doc, o.description);
  r.set(dict_object::obj_recsize, o.recsize);
  r.set(dict_object::obj_file, o.file);
  r.set(dict_object::obj_version, std::string_view(&o.version, 1));
  r.set(dict_object::obj_type, std::string_view(&o.type, 1));
  r.set(dict_object::obj_sep, std::string_view(&o.separator, 1));
  const std::string what = "object " + o.name;
  if (int status = put(r, replace, what); status != 0) return status;
  if (int status = docs(DocKind::object, id, o.doc, what); status != 0) return status;
  return record_and_keys(o, id);
}

int Writer::record_and_keys(const ObjectEntry& o, uint16_t id) {
  const std::string what = "object " + o.name;
  DictRow rec_key(DictTable::record);
  rec_key.set(dict_record::obj_id, id);
  const auto same_object = [&](const DictRow& r) { return r.number(dict_record::obj_id) == id; };
  if (int status = remove_all(rows_from(files_, rec_key, 1, same_object), what); status != 0) return status;
  DictRow key_key(DictTable::key);
  key_key.set(dict_key::obj_id, id);
  const auto same_keys = [&](const DictRow& r) { return r.number(dict_key::obj_id) == id; };
  if (int status = remove_all(rows_from(files_, key_key, 1, same_keys), what); status != 0) return status;

  for (const RecordEntry& e : o.record) {
    DictRow r(DictTable::record);
    r.set(dict_record::obj_id, id);
    r.set(dict_record::fld_id, field_ids_.at(e.field));
    r.set(dict_record::rec_offset, e.offset);
    if (int status = put(r, false, what); status != 0) return status;
  }
  for (size_t k = 0; k < o.keys.size(); ++k) {
    const KeyEntry& key = o.keys[k];
    DictRow r(DictTable::key);
    r.set(dict_key::obj_id, id);
    r.set(dict_key::index_no, static_cast<int64_t>(k + 1));
    r.set(dict_key::key_flags, key.flags);
    r.set(dict_key::num_fields, static_cast<int64_t>(key.fields.size()));
    for (uint16_t i = 0; i < key.fields.size(); ++i) {
      r.set(dict_key::k_fld_id, field_ids_.at(key.fields[i]), i);
      r.set(dict_key::k_desc_flag, key.descending[i] ? "Y" : "", i);
    }
    if (int status = put(r, false, what); status != 0) return status;
  }
  return 0;
}

int Writer::objects(const std::vector<ObjectEntry>& objects) {
  uint16_t next = highest_id(files_, DictTable::object, dict_object::obj_id);
  for (const ObjectEntry& o : objects) {
    const std::optional<DictObject> old = files_.find_object(o.name);
    if (int status = object(o, old ? old->id : ++next, old.has_value()); status != 0) return status;
  }
  return 0;
}

FieldEntry field_entry(DictionaryFiles& files, const DictRow& r) {
  FieldEntry f;
  const uint16_t id = static_cast<uint16_t>(r.number(dict_field::fld_id));
  f.name = r.text(dict_field::fld_name);
  f.size = static_cast<uint16_t>(r.number(dict_field::fld_size));
  f.format = static_cast<uint16_t>(r.number(dict_field::fld_desc));
  const std::string type = r.text(dict_field::fld_type);
  f.type = type.empty() ? ' ' : type[0];
  f.occurs = static_cast<uint16_t>(r.number(dict_field::fld_occurs));
  f.flags = static_cast<uint16_t>(r.number(dict_field::fld_flags));
  f.column = r.text(dict_field::fld_col_name);
  f.description = r.text(dict_field::fld_doc);
  f.doc = doc_lines(files, DocKind::field, id);
  f.validation = doc_lines(files, DocKind::validation, id);
  f.title = first_line(files, DocKind::title, id);
  f.drill_back = first_line(files, DocKind::drill_back, id);
  return f;
}

char first_char(const std::string& s, char none) { return s.empty() ? none : s[0]; }

// The ids of the objects whose records hold field `id`.
std::vector<uint16_t> objects_holding(DictionaryFiles& files, uint16_t id) {
  DictRow key(DictTable::record);
  key.set(dict_record::fld_id, id);
  std::vector<uint16_t> ids;
  for (const DictRow& r : rows_from(files, key, 2, [&](const DictRow& row) { return row.number(dict_record::fld_id) == id; }))
    ids.push_back(static_cast<uint16_t>(r.number(dict_record::obj_id)));
  return ids;
}

std::string object_name(DictionaryFiles& files, uint16_t id) {
  DictRow r(DictTable::object);
  r.set(dict_object::obj_id, id);
  return files.read(r, 0, 2) < 0 ? "#" + std::to_string(id) : r.text(dict_object::obj_name);
}

bool loads_object(const Schema& schema, const std::string& name) {
  return std::any_of(schema.objects.begin(), schema.objects.end(), [&](const ObjectEntry& o) { return o.name == name; });
}

std::string joined(const std::vector<std::string>& names) {
  std::string s;
  for (const std::string& n : names) s += (s.empty() ? "" : ", ") + n;
  return s;
}

// A field whose storage changes size while objects that this load does not lay out again hold it
// is refused: their records would no longer add up. (The load does not lay them out again itself:
// their files were written with the old layout, and only their owner can say what is to become of
// them.) Loading those objects in the same load is the way to change such a field.
bool sizes_kept(DictionaryFiles& files, const Schema& schema, Problems& problems) {
  bool kept = true;
  for (const FieldEntry& f : schema.fields) {
    const std::optional<DictField> old = files.find_field_in(0, f.name);
    const uint32_t before = old ? static_cast<uint32_t>(old->size) * old->occurs : 0, after = static_cast<uint32_t>(f.size) * f.occurs;
    if (!old || before == after) continue;
    std::vector<std::string> holders;
    for (uint16_t id : objects_holding(files, old->id))
      if (const std::string name = object_name(files, id); !loads_object(schema, name)) holders.push_back(name);
    if (holders.empty()) continue;
    problems.push_back(f.where + ": field " + f.name + ": its size changes from " + std::to_string(before) + " to " +
                       std::to_string(after) + " bytes, but the record of " + joined(holders) +
                       " holds it and is not in this load; load " + (holders.size() > 1 ? "those objects" : "that object") +
                       " again with it (tavdict dump shows the definition), or keep the size");
    kept = false;
  }
  return kept;
}

// What the compiler makes of the dictionary as the load leaves it: every object the load wrote
// or whose record holds a field it wrote loads without a problem, and every validation text it
// wrote compiles as an ACCEPT of its field. Each problem names where the schema gave the thing.
bool compiler_accepts(DictionaryFiles& files, const Schema& schema, const std::map<std::string, uint16_t>& field_ids,
                      Problems& problems) {
  ScratchDir scratch;
  if (!scratch.ok()) {
    problems.push_back("cannot make a scratch directory");
    return false;
  }
  const std::string listing = scratch.file("verify.err");
  std::vector<std::pair<std::string, std::string>> touched;  // name, what to call it
  const auto touch = [&](const std::string& name, const std::string& what) {
    for (const auto& t : touched)
      if (t.first == name) return;
    touched.emplace_back(name, what);
  };
  for (const ObjectEntry& o : schema.objects) touch(o.name, o.where + ": object " + o.name);
  for (const FieldEntry& f : schema.fields) {
    for (uint16_t id : objects_holding(files, field_ids.at(f.name))) {
      const std::string name = object_name(files, id);
      touch(name, f.where + ": field " + f.name + ": object " + name + ", which holds it");
    }
  }
  const size_t before = problems.size();
  for (const auto& [name, what] : touched)
    for (const std::string& message : object_problems(files, name, listing)) problems.push_back(what + ": " + message);
  for (const FieldEntry& f : schema.fields) {
    if (f.validation.empty()) continue;
    for (const ValidationError& e : validation_errors(files, f.name, listing)) {
      const std::vector<std::string>& at = f.validation_where;
      const std::string where = e.line >= 1 && static_cast<size_t>(e.line) <= at.size() ? at[static_cast<size_t>(e.line - 1)]
                                : at.empty()                                             ? f.where
                                                                                         : at.front();
      problems.push_back(where + ": field " + f.name + ": validation: " + e.message);
    }
  }
  return problems.size() == before;
}

}  // namespace

Store::Store(std::string prefix) : prefix_(std::move(prefix)), files_(kAllTables) {}

std::unique_ptr<Store> Store::open_on_server(const std::string& name, const datafile::FileLocation& where, bool create,
                                             bool read_only, Problems& problems, std::vector<std::string>* created) {
  std::vector<std::string> made;
  const bool ready = create ? create_missing_on_server(where, problems, made) : on_server_already(where, problems);
  if (created) created->insert(created->end(), made.begin(), made.end());
  if (!ready) return nullptr;
  std::unique_ptr<Store> store(new Store(name));
  try {
    if (store->files_.open(name, read_only) != 0) {
      problems.push_back(name + ": the documentation table cannot be opened");
      return nullptr;
    }
  } catch (const RunStop& stop) {
    problems.push_back(stop.message + (stop.explanation.empty() ? "" : ": " + stop.explanation));
    return nullptr;
  }
  return store;
}

std::unique_ptr<Store> Store::open(const std::string& prefix, bool create, bool read_only, Problems& problems,
                                   std::vector<std::string>* created) {
  datafile::FileLocation where;
  std::string detail;
  const int located = datafile::locate(prefix, where, detail);
  if (located == 0 && (where.mode & datafile::kServerBits))
    return open_on_server(prefix, where, create, read_only, problems, created);
  if (located != 0 && !(located == datafile::kNetworkNotAllowed && datafile::names_server(prefix))) {
    problems.push_back(prefix + ": " + failure_text(located, detail));
    return nullptr;
  }
  if (datafile::names_server(prefix)) {
    problems.push_back(prefix + ": names a file server that TAVSERVERS does not name (a leading ':' names a local file)");
    return nullptr;
  }
  const std::string local(datafile::local_name(prefix));
  std::vector<std::string> made;
  const bool ready = !create || create_missing(local, problems, made);
  if (created) created->insert(created->end(), made.begin(), made.end());
  if (!ready) return nullptr;
  if (!create && !exists(table_name(local, DictTable::object) + ".idx")) {
    problems.push_back(local + ": no dictionary here (" + table_name(local, DictTable::object) + ".idx is missing)");
    return nullptr;
  }
  std::unique_ptr<Store> store(new Store(local));
  try {
    if (store->files_.open(":" + local, read_only) != 0) {
      problems.push_back(table_name(local, DictTable::documentation) + ".idx: cannot be opened");
      name_unusable_tables(local, problems);
      return nullptr;
    }
  } catch (const RunStop& stop) {
    problems.push_back(stop.message);
    name_unusable_tables(local, problems);
    return nullptr;
  }
  return store;
}

void Store::remove_created(const std::string& prefix, const std::vector<std::string>& created) {
  datafile::FileLocation where;
  std::string detail;
  if (datafile::locate(prefix, where, detail) != 0 || !(where.mode & datafile::kServerBits)) {
    for (auto it = created.rbegin(); it != created.rend(); ++it) std::remove(it->c_str());
    return;
  }
  // On a server `created` names the tables made.
  for (auto it = created.rbegin(); it != created.rend(); ++it) {
    const datafile::TableDesc* desc = &dict_version_desc();
    for (int i = 0; i < kDictTableCount; ++i)
      if (dict_table_desc(static_cast<DictTable>(i)).table == *it) desc = &dict_table_desc(static_cast<DictTable>(i));
    datafile::remove_file(where.path, *desc, where.mode, detail);
  }
}

bool Store::load(const Schema& schema, Problems& problems) {
  Writer writer(files_, problems);
  // One transaction on all the tables a load writes: they commit together or not at all.
  const int status = files_.in_transaction(DictTable::object, 0, [&] {
    if (!sizes_kept(files_, schema, problems)) return kRefused;
    if (int s = writer.fields(schema.fields); s != 0) return s;
    if (int s = writer.objects(schema.objects); s != 0) return s;
    return compiler_accepts(files_, schema, writer.field_ids(), problems) ? 0 : kRefused;
  });
  if (status != 0 && problems.empty())
    problems.push_back(prefix_ + ": the load cannot be committed: " + failure_text(status, files_.server_error(0)));
  return status == 0;
}

std::vector<std::string> Store::object_names() {
  std::vector<std::string> names;
  for (const DictRow& r : all_rows(files_, DictTable::object, 1)) names.push_back(r.text(dict_object::obj_name));
  return names;
}

Schema Store::read(Problems& problems) {
  Schema s;
  std::map<uint16_t, std::string> names;
  std::vector<DictRow> fields = all_rows(files_, DictTable::field, 2);
  std::reverse(fields.begin(), fields.end());  // index 2 is descending
  for (const DictRow& r : fields) {
    s.fields.push_back(field_entry(files_, r));
    names[static_cast<uint16_t>(r.number(dict_field::fld_id))] = s.fields.back().name;
  }
  const auto name_of = [&](const std::string& object, uint16_t id) {
    auto it = names.find(id);
    if (it != names.end()) return it->second;
    problems.push_back("object " + object + ": field id " + std::to_string(id) + " is not in the dictionary");
    return std::string();
  };
  std::vector<DictRow> objects = all_rows(files_, DictTable::object, 2);
  std::reverse(objects.begin(), objects.end());
  for (const DictRow& r : objects) {
    ObjectEntry o;
    const uint16_t id = static_cast<uint16_t>(r.number(dict_object::obj_id));
    o.name = r.text(dict_object::obj_name);
    o.file = r.text(dict_object::obj_file);
    o.type = first_char(r.text(dict_object::obj_type), ' ');
    o.version = first_char(r.text(dict_object::obj_version), ObjectEntry::kDefaultVersion);
    o.separator = first_char(r.text(dict_object::obj_sep), ' ');
    o.recsize = static_cast<uint16_t>(r.number(dict_object::obj_recsize));
    o.description = r.text(dict_object::obj_doc);
    o.doc = doc_lines(files_, DocKind::object, id);
    for (const DictRecordEntry& e : files_.record(0, id)) o.record.push_back({name_of(o.name, e.field_id), e.offset});
    for (uint16_t n = 1;; ++n) {
      const std::optional<DictKey> k = files_.key(0, id, n);
      if (!k) break;
      KeyEntry key;
      key.flags = k->flags;
      for (uint16_t i = 0; i < std::min<uint16_t>(k->num_fields, 8); ++i) {
        key.fields.push_back(name_of(o.name, k->field_ids[i]));
        key.descending.push_back(k->descending[i]);
      }
      o.keys.push_back(std::move(key));
    }
    s.objects.push_back(std::move(o));
  }
  return s;
}

}  // namespace tav::dict_tool
