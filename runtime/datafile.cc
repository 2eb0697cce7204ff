#include "runtime/datafile.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <utility>

#include "runtime/datafile_engine.h"
#include "runtime/file_lock.h"

namespace tav::datafile {

// The parts of an open file, named so that IndexedFile::Impl may hold them.
namespace engine {

class Statement {
 public:
  Statement() = default;
  Statement(Statement&& other) noexcept : stmt_(std::exchange(other.stmt_, nullptr)) {}
  Statement& operator=(Statement&&) = delete;
  ~Statement() { sqlite3_finalize(stmt_); }

  int prepare(sqlite3* db, const std::string& sql) {
    return sqlite3_prepare_v3(db, sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &stmt_, nullptr);
  }
  sqlite3_stmt* get() const { return stmt_; }
  explicit operator bool() const { return stmt_ != nullptr; }

 private:
  sqlite3_stmt* stmt_ = nullptr;
};

}  // namespace engine

// One engine connection: to a single file, or to every file of a group (the first file is the
// main database, the others are attached to it in the order they were opened, as "f1", "f2", ...).
struct FileGroup::Connection {
  sqlite3* db = nullptr;
  int files = 0;
  std::shared_ptr<engine::ServerConnection> server;  // a group on a server: its session instead
  std::string lock;                                   // what the group's writers wait on, there
  ~Connection() { sqlite3_close_v2(db); }
};

struct IndexedFile::Impl {
  using Statement = engine::Statement;
  std::shared_ptr<FileGroup::Connection> connection;  // first: the statements go before it
  sqlite3* db = nullptr;
  std::string schema;  // the database of the connection that holds the table
  std::vector<engine::SqlColumn> columns;
  std::string table;
  engine::Cursor cursor;
  int64_t current = 0;  // rowid of the current row; 0 = none
  Statement insert;
  Statement update_by_key;
  Statement delete_by_key;
  // Per index (slot k - 1): read equal, read after a row, read from a key on.
  std::vector<Statement> equal, after, at_least, first;
  std::vector<std::vector<int>> key_columns;  // the SQL columns of each index's parts
  std::vector<std::vector<bool>> descending;
  engine::ServerTablePtr server;  // a file on a server: the rest is unused
};

namespace {

using engine::column_list;
using engine::Cursor;
using engine::get_integer;
using engine::Kind;
using engine::kind_of;
using engine::kSqliteDialect;
using engine::order_condition;
using engine::put_integer;
using engine::quoted;
using engine::sql_columns;
using engine::SqlColumn;
using engine::Statement;
using engine::trimmed;

constexpr int kMaxKeyParts = 8;
constexpr int kBusyMilliseconds = 60000;  // how long a writer waits for another one or for snapshots

// Format word classes, tested in this order.
constexpr uint16_t kBinary = 0x2000;
constexpr uint16_t kZoned = 0x1000;
constexpr uint16_t kFloat = 0x4000;
constexpr uint16_t kPacked = 0x0800;
constexpr uint16_t kSigned = 0x0400;

}  // namespace

namespace engine {

Kind kind_of(const Column& c) {
  if (c.type == 'X') return Kind::blob;
  if (c.format & kBinary) return Kind::integer;
  if (c.format & (kZoned | kFloat | kPacked)) return Kind::blob;
  return Kind::text;
}

std::vector<SqlColumn> sql_columns(const TableDesc& d) {
  std::vector<SqlColumn> out;
  uint32_t offset = 0;
  for (const Column& c : d.columns) {
    for (uint16_t k = 1; k <= c.occurs; ++k) {
      SqlColumn s;
      s.name = c.occurs > 1 ? c.name + "_" + std::to_string(k) : c.name;
      s.offset = offset;
      s.size = c.size;
      s.kind = kind_of(c);
      s.is_signed = (c.format & kSigned) != 0;
      out.push_back(s);
      offset += c.size;
    }
  }
  return out;
}

// SQL names are quoted, so that any column name of a description is safe.
std::string quoted(std::string_view name) {
  std::string q = "\"";
  for (char c : name) {
    if (c == '"') q += '"';
    q += c;
  }
  return q + "\"";
}

int64_t get_integer(const uint8_t* p, uint32_t size, bool is_signed) {
  uint64_t v = 0;
  for (uint32_t i = 0; i < size; ++i) v = v << 8 | p[i];
  if (is_signed && size < 8 && (p[0] & 0x80)) v |= ~uint64_t{0} << (8 * size);
  return static_cast<int64_t>(v);
}

void put_integer(uint8_t* p, uint32_t size, int64_t value) {
  auto v = static_cast<uint64_t>(value);
  for (uint32_t i = size; i-- > 0;) {
    p[i] = static_cast<uint8_t>(v);
    v >>= 8;
  }
}

// A text column's value: its bytes without trailing blanks (or NULs).
std::string_view trimmed(const uint8_t* p, uint32_t size) {
  uint32_t n = size;
  while (n > 0 && (p[n - 1] == ' ' || p[n - 1] == 0)) --n;
  return {reinterpret_cast<const char*>(p), n};
}

}  // namespace engine

namespace {

int error_of(int rc) {
  switch (rc & 0xff) {
    case SQLITE_OK:
    case SQLITE_DONE:
    case SQLITE_ROW:
      return 0;
    case SQLITE_CONSTRAINT:
      return kDuplicate;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return kLocked;
    case SQLITE_NOTADB:
    case SQLITE_CORRUPT:
    case SQLITE_ERROR:  // no such table or column: not a file of this description
      return kBadFile;
    case SQLITE_CANTOPEN:
      return kNoSuchFile;
    case SQLITE_FULL:
      return kNoSpace;
    case SQLITE_IOERR:
      return kIoError;
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH:
      return 13;  // EACCES
    default:
      return kBadFile;
  }
}

int run(sqlite3* db, const std::string& sql) { return sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr); }

// The table's name qualified by the database of the connection that holds it.
std::string qualified(std::string_view schema, std::string_view table) { return quoted(schema) + "." + quoted(table); }

std::string create_sql(const std::string& schema, const TableDesc& d, const std::vector<SqlColumn>& cols) {
  std::string sql = "CREATE TABLE IF NOT EXISTS " + qualified(schema, d.table) + " (";
  for (size_t i = 0; i < cols.size(); ++i) {
    if (i) sql += ", ";
    sql += quoted(cols[i].name);
    sql += cols[i].kind == Kind::integer ? " INTEGER" : cols[i].kind == Kind::text ? " TEXT" : " BLOB";
  }
  sql += ");";
  for (size_t k = 0; k < d.indexes.size(); ++k) {
    const Index& index = d.indexes[k];
    sql += index.duplicates ? "CREATE INDEX IF NOT EXISTS " : "CREATE UNIQUE INDEX IF NOT EXISTS ";
    sql += qualified(schema, d.table + "_" + std::to_string(k + 1)) + " ON " + quoted(d.table) + " (";
    for (size_t i = 0; i < index.parts.size(); ++i) {
      if (i) sql += ", ";
      sql += quoted(index.parts[i].column) + (index.parts[i].descending ? " DESC" : "");
    }
    sql += ");";
  }
  return sql;
}

// Every described column is a column of the table.
bool table_matches(sqlite3* db, const std::string& schema, const std::string& table, const std::vector<SqlColumn>& cols,
                   int& error) {
  Statement info;
  if (int rc = info.prepare(db, "PRAGMA " + quoted(schema) + ".table_info(" + quoted(table) + ")"); rc != SQLITE_OK) {
    error = error_of(rc);
    return false;
  }
  std::vector<std::string> names;
  int rc;
  while ((rc = sqlite3_step(info.get())) == SQLITE_ROW)
    names.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(info.get(), 1)));
  if (rc != SQLITE_DONE) {
    error = error_of(rc);
    return false;
  }
  for (const SqlColumn& c : cols) {
    bool found = false;
    for (const std::string& n : names) found |= n == c.name;
    if (!found) {
      error = kBadFile;
      return false;
    }
  }
  return true;
}

}  // namespace

namespace engine {

std::string column_list(const std::vector<SqlColumn>& cols) {
  std::string s;
  for (size_t i = 0; i < cols.size(); ++i) s += (i ? ", " : "") + quoted(cols[i].name);
  return s;
}

// The condition "the key is past (or, with `inclusive`, at least) ?1..?n", and with `rowid`
// the row ?(n+1) among equal keys, following each part's direction. When all parts go one way
// it is a comparison of row values, which the index serves; mixed directions are spelled out.
std::string order_condition(const std::vector<std::string>& parts, const std::vector<bool>& desc, bool inclusive,
                            bool rowid, const SqlDialect& dialect) {
  const size_t n = parts.size();
  const auto param = [&](size_t k) { return dialect.parameter + std::to_string(k); };
  const std::string row_id = dialect.row_id;
  std::string key = "(", values = "(";
  for (size_t i = 0; i < n; ++i) {
    key += (i ? ", " : "") + parts[i];
    values += (i ? ", " : "") + param(i + 1);
  }
  key += ")";
  values += ")";
  const std::string last_rowid = param(n + 1);
  bool same_way = true;
  for (size_t i = 1; i < n; ++i) same_way &= desc[i] == desc[0];
  if (same_way && !desc[0]) {
    if (!rowid) return key + (inclusive ? " >= " : " > ") + values;
    return key.substr(0, key.size() - 1) + ", " + row_id + ") > " + values.substr(0, values.size() - 1) + ", " +
           last_rowid + ")";
  }
  if (same_way) {
    if (!rowid) return key + (inclusive ? " <= " : " < ") + values;
    return key + " <= " + values + " AND NOT (" + key + " = " + values + " AND " + row_id + " <= " + last_rowid + ")";
  }
  std::string sql;
  for (size_t i = 0; i <= n; ++i) {
    if (i == n && !inclusive && !rowid) break;
    std::string term;
    for (size_t j = 0; j < i; ++j) term += (j ? " AND " : "") + parts[j] + " = " + param(j + 1);
    if (i < n) {
      term += (i ? " AND " : "") + parts[i] + (desc[i] ? " < " : " > ") + param(i + 1);
    } else if (rowid) {
      term += (n ? " AND " : "") + row_id + " > " + last_rowid;
    }
    sql += (sql.empty() ? "(" : " OR (") + term + ")";
  }
  return sql;
}

}  // namespace engine

namespace {

void bind_column(sqlite3_stmt* s, int param, const SqlColumn& c, const uint8_t* row) {
  const uint8_t* p = row + c.offset;
  switch (c.kind) {
    case Kind::integer:
      sqlite3_bind_int64(s, param, get_integer(p, c.size, c.is_signed));
      break;
    case Kind::text: {
      std::string_view t = trimmed(p, c.size);
      sqlite3_bind_text(s, param, t.data(), static_cast<int>(t.size()), SQLITE_TRANSIENT);
      break;
    }
    case Kind::blob:
      sqlite3_bind_blob(s, param, p, static_cast<int>(c.size), SQLITE_TRANSIENT);
      break;
  }
}

void fetch_column(sqlite3_stmt* s, int col, const SqlColumn& c, uint8_t* row) {
  uint8_t* p = row + c.offset;
  const bool null = sqlite3_column_type(s, col) == SQLITE_NULL;
  switch (c.kind) {
    case Kind::integer:
      put_integer(p, c.size, null ? 0 : sqlite3_column_int64(s, col));
      break;
    case Kind::text: {
      const auto* t = sqlite3_column_text(s, col);
      const auto n = static_cast<uint32_t>(null || !t ? 0 : sqlite3_column_bytes(s, col));
      for (uint32_t i = 0; i < c.size; ++i) p[i] = i < n ? t[i] : ' ';
      break;
    }
    case Kind::blob: {
      const auto* b = static_cast<const uint8_t*>(sqlite3_column_blob(s, col));
      const auto n = static_cast<uint32_t>(null || !b ? 0 : sqlite3_column_bytes(s, col));
      for (uint32_t i = 0; i < c.size; ++i) p[i] = i < n ? b[i] : 0;
      break;
    }
  }
}

// Runs a query that yields at most one row into `row`; the rowid is its last result column.
int fetch_one(IndexedFile::Impl& f, sqlite3_stmt* s, uint8_t* row, int64_t& rowid, int missing) {
  int rc = sqlite3_step(s);
  int result = 0;
  if (rc == SQLITE_ROW) {
    for (size_t i = 0; i < f.columns.size(); ++i) fetch_column(s, static_cast<int>(i), f.columns[i], row);
    rowid = sqlite3_column_int64(s, static_cast<int>(f.columns.size()));
  } else {
    result = rc == SQLITE_DONE ? missing : error_of(rc);
  }
  sqlite3_reset(s);
  sqlite3_clear_bindings(s);
  return result;
}

// The reads of an index: the row of a key, the next row after a row, the first row from a key on,
// the first row.
enum class Query { equal, after, at_least, first };

// The queries of an index are prepared the first time they are needed and kept.
sqlite3_stmt* index_query(IndexedFile::Impl& f, int index, Query which) {
  const size_t k = static_cast<size_t>(index - 1);
  Statement& slot = which == Query::equal      ? f.equal[k]
                    : which == Query::after    ? f.after[k]
                    : which == Query::at_least ? f.at_least[k]
                                               : f.first[k];
  if (slot) return slot.get();
  std::vector<std::string> parts;
  std::string order;
  for (size_t i = 0; i < f.key_columns[k].size(); ++i) {
    parts.push_back(quoted(f.columns[static_cast<size_t>(f.key_columns[k][i])].name));
    order += parts.back() + (f.descending[k][i] ? " DESC, " : ", ");
  }
  std::string sql = "SELECT " + column_list(f.columns) + ", rowid FROM " + qualified(f.schema, f.table);
  if (which == Query::equal) {
    std::string where;
    for (size_t i = 0; i < parts.size(); ++i) where += (i ? " AND " : "") + parts[i] + " = ?" + std::to_string(i + 1);
    sql += " WHERE " + where;
  } else if (which == Query::after) {
    sql += " WHERE " + order_condition(parts, f.descending[k], false, true, kSqliteDialect);
  } else if (which == Query::at_least) {
    sql += " WHERE " + order_condition(parts, f.descending[k], true, false, kSqliteDialect);
  }
  sql += " ORDER BY " + order + "rowid LIMIT 1";
  if (slot.prepare(f.db, sql) != SQLITE_OK) return nullptr;
  return slot.get();
}

void bind_key(IndexedFile::Impl& f, sqlite3_stmt* s, int index, const uint8_t* row) {
  const std::vector<int>& cols = f.key_columns[static_cast<size_t>(index - 1)];
  for (size_t i = 0; i < cols.size(); ++i)
    bind_column(s, static_cast<int>(i + 1), f.columns[static_cast<size_t>(cols[i])], row);
}

int step_change(sqlite3* db, sqlite3_stmt* s) {
  int rc = sqlite3_step(s);
  sqlite3_reset(s);
  sqlite3_clear_bindings(s);
  if (rc != SQLITE_DONE) return error_of(rc);
  return sqlite3_changes(db) > 0 ? 0 : kNoRecord;
}

// "WHERE" of rewrite and delete: the key of index 1, or the current row.
std::string row_condition(const IndexedFile::Impl& f, const TableDesc& d, int first_param) {
  if (d.indexes.empty() || d.indexes[0].duplicates) return "rowid = ?" + std::to_string(first_param);
  std::string where;
  const std::vector<int>& cols = f.key_columns[0];
  for (size_t i = 0; i < cols.size(); ++i)
    where += (i ? " AND " : "") + quoted(f.columns[static_cast<size_t>(cols[i])].name) + " = ?" +
             std::to_string(first_param + static_cast<int>(i));
  return where;
}

void bind_row_condition(IndexedFile::Impl& f, const TableDesc& d, sqlite3_stmt* s, int first_param,
                        const uint8_t* row) {
  if (d.indexes.empty() || d.indexes[0].duplicates) {
    sqlite3_bind_int64(s, first_param, f.current);
    return;
  }
  const std::vector<int>& cols = f.key_columns[0];
  for (size_t i = 0; i < cols.size(); ++i)
    bind_column(s, first_param + static_cast<int>(i), f.columns[static_cast<size_t>(cols[i])], row);
}

}  // namespace

uint32_t TableDesc::row_size() const {
  uint32_t n = 0;
  for (const Column& c : columns) n += c.size * c.occurs;
  return n;
}

bool TableDesc::valid() const {
  if (table.empty() || columns.empty()) return false;
  for (const Column& c : columns)
    if (c.name.empty() || c.size == 0 || c.occurs == 0) return false;
  for (const Index& index : indexes) {
    if (index.parts.empty() || index.parts.size() > static_cast<size_t>(kMaxKeyParts)) return false;
    for (const KeyPart& part : index.parts) {
      bool found = false;
      for (const Column& c : columns) found |= c.name == part.column && c.occurs == 1;
      if (!found) return false;
    }
  }
  return true;
}

IndexedFile::IndexedFile(std::unique_ptr<Impl> impl, TableDesc desc) : impl_(std::move(impl)), desc_(std::move(desc)) {}
IndexedFile::~IndexedFile() = default;

namespace {

// The database of the indexed file `name` when it may be opened: a usable description, a local
// name, a regular file (or none, when it may be created). Nothing, with `error` set, otherwise.
std::optional<std::string> database_path(const std::string& name, const TableDesc& desc, uint32_t mode, int& error) {
  error = 0;
  if (!desc.valid()) {
    error = kBadArgument;
    return std::nullopt;
  }
  std::string_view local = local_name(name);
  if (!(mode & kLocal) && local.size() == name.size() && names_server(name)) {
    error = kNetworkNotAllowed;
    return std::nullopt;
  }
  std::string path = std::string(local) + ".idx";
  struct stat st {};
  const bool exists = stat(path.c_str(), &st) == 0;
  if (!exists && !(mode & kCreate)) {
    error = kNoSuchFile;
    return std::nullopt;
  }
  if (exists && !S_ISREG(st.st_mode)) {
    error = kBadFile;
    return std::nullopt;
  }
  return path;
}

// A writer that was killed in the middle of a commit leaves the old contents of what it changed
// in the file's journal, and the next writer or reader puts them back. A read-only connection
// cannot; so when this process may write the file, a connection that can does it first.
void recover_interrupted_write(const std::string& path) {
  if (::access((path + "-journal").c_str(), F_OK) != 0) return;
  if (::access(path.c_str(), W_OK) != 0 || ::access(directory_of(path).c_str(), W_OK) != 0) return;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) == SQLITE_OK) {
    sqlite3_busy_timeout(db, kBusyMilliseconds);
    run(db, "SELECT count(*) FROM sqlite_master");
  }
  sqlite3_close_v2(db);
}

std::shared_ptr<FileGroup::Connection> connect(const std::string& path, uint32_t mode, int& error) {
  if (mode & kReadOnly) recover_interrupted_write(path);
  auto c = std::make_shared<FileGroup::Connection>();
  const int flags = mode & kReadOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | (mode & kCreate ? SQLITE_OPEN_CREATE : 0);
  if (int rc = sqlite3_open_v2(path.c_str(), &c->db, flags | SQLITE_OPEN_NOMUTEX, nullptr); rc != SQLITE_OK) {
    error = error_of(rc);
    return nullptr;
  }
  sqlite3_busy_timeout(c->db, kBusyMilliseconds);
  sqlite3_extended_result_codes(c->db, 0);
  return c;
}

// The table of an open file on database `schema` of the connection: made with kCreate, checked
// against the description, its indexes' key columns noted.
std::unique_ptr<IndexedFile::Impl> open_table(const std::shared_ptr<FileGroup::Connection>& c, const std::string& schema,
                                              const TableDesc& desc, uint32_t mode, int& error) {
  auto impl = std::make_unique<IndexedFile::Impl>();
  impl->connection = c;
  impl->db = c->db;
  impl->schema = schema;
  impl->table = desc.table;
  impl->columns = sql_columns(desc);
  if (!(mode & kReadOnly) && (mode & kCreate)) {
    int rc = run(impl->db, "BEGIN IMMEDIATE;" + create_sql(schema, desc, impl->columns) + "COMMIT;");
    if (rc != SQLITE_OK) {
      run(impl->db, "ROLLBACK");
      error = error_of(rc);
      return nullptr;
    }
  }
  if (!table_matches(impl->db, schema, desc.table, impl->columns, error)) return nullptr;
  for (const Index& index : desc.indexes) {
    std::vector<int> cols;
    std::vector<bool> desc_flags;
    for (const KeyPart& part : index.parts) {
      for (size_t i = 0; i < impl->columns.size(); ++i)
        if (impl->columns[i].name == part.column) cols.push_back(static_cast<int>(i));
      desc_flags.push_back(part.descending);
    }
    impl->key_columns.push_back(cols);
    impl->descending.push_back(desc_flags);
  }
  const size_t n = desc.indexes.size();
  impl->equal.resize(n);
  impl->after.resize(n);
  impl->at_least.resize(n);
  impl->first.resize(n);
  return impl;
}

// Ends a transaction with COMMIT; one that cannot be committed is rolled back.
int commit_or_undo(sqlite3* db) {
  const int rc = run(db, "COMMIT");
  if (rc != SQLITE_OK && !sqlite3_get_autocommit(db)) run(db, "ROLLBACK");
  return error_of(rc);
}

bool on_server(uint32_t mode) { return !(mode & kLocal) && server_number(mode) >= 0; }

// A file on a server, in its own session.
std::unique_ptr<IndexedFile::Impl> open_on_server(const std::string& name, const TableDesc& desc, uint32_t mode,
                                                  int& error, std::string& detail) {
  if (!desc.valid()) {
    error = kBadArgument;
    return nullptr;
  }
  std::shared_ptr<engine::ServerConnection> c =
      engine::server_connect(server_number(mode), (mode & kReadOnly) != 0, error, detail);
  if (!c) return nullptr;
  engine::ServerTablePtr table = engine::server_open(c, std::string(local_name(name)), desc, mode, error, detail);
  if (!table) return nullptr;
  auto impl = std::make_unique<IndexedFile::Impl>();
  impl->server = std::move(table);
  return impl;
}

}  // namespace

std::unique_ptr<IndexedFile> IndexedFile::open(const std::string& name, const TableDesc& desc, uint32_t mode,
                                               int& error) {
  std::string detail;
  return open(name, desc, mode, error, detail);
}

std::unique_ptr<IndexedFile> IndexedFile::open(const std::string& name, const TableDesc& desc, uint32_t mode,
                                               int& error, std::string& detail) {
  error = 0;
  detail.clear();
  if (on_server(mode)) {
    std::unique_ptr<Impl> impl = open_on_server(name, desc, mode, error, detail);
    if (!impl) return nullptr;
    return std::unique_ptr<IndexedFile>(new IndexedFile(std::move(impl), desc));
  }
  const std::optional<std::string> path = database_path(name, desc, mode, error);
  if (!path) return nullptr;
  const std::shared_ptr<FileGroup::Connection> c = connect(*path, mode, error);
  if (!c) return nullptr;
  std::unique_ptr<Impl> impl = open_table(c, "main", desc, mode, error);
  if (!impl) return nullptr;
  return std::unique_ptr<IndexedFile>(new IndexedFile(std::move(impl), desc));
}

int IndexedFile::start(int index, const uint8_t* row, uint32_t mode) {
  Impl& f = *impl_;
  if (f.server) return engine::server_start(*f.server, index, row, mode, desc_.row_size());
  if (index < 1 || static_cast<size_t>(index) > desc_.indexes.size()) return kBadArgument;
  f.cursor.index = index;
  f.cursor.at = (mode & kFirstRow) ? Cursor::At::first : Cursor::At::at_least;
  if (!(mode & kFirstRow)) f.cursor.key_row.assign(row, row + desc_.row_size());
  return 0;
}

int IndexedFile::read(int index, uint8_t* row, uint32_t mode) {
  Impl& f = *impl_;
  if (f.server) return engine::server_read(*f.server, index, row, mode, desc_.row_size());
  sqlite3_stmt* s = nullptr;
  int missing = kNoRecord;
  if (!(mode & kNextRow)) {
    if (index < 1 || static_cast<size_t>(index) > desc_.indexes.size()) return kBadArgument;
    if (!(s = index_query(f, index, Query::equal))) return kBadFile;
    bind_key(f, s, index, row);
    f.cursor.index = index;
  } else {
    Cursor& c = f.cursor;
    if (c.at == Cursor::At::nowhere) return kNoCurrent;
    missing = kEndOfFile;
    if (c.at == Cursor::At::first) {
      s = index_query(f, c.index, Query::first);
    } else if ((s = index_query(f, c.index, c.at == Cursor::At::after ? Query::after : Query::at_least))) {
      bind_key(f, s, c.index, c.key_row.data());
      const int n = static_cast<int>(f.key_columns[static_cast<size_t>(c.index - 1)].size());
      if (c.at == Cursor::At::after) sqlite3_bind_int64(s, n + 1, c.rowid);
    }
    if (!s) return kBadFile;
  }
  int64_t rowid = 0;
  int result = fetch_one(f, s, row, rowid, missing);
  if (result == 0) {
    f.current = rowid;
    f.cursor.at = Cursor::At::after;
    f.cursor.key_row.assign(row, row + desc_.row_size());
    f.cursor.rowid = rowid;
  }
  return result;
}

int IndexedFile::write(const uint8_t* row) {
  Impl& f = *impl_;
  if (f.server) return engine::server_write(*f.server, row);
  if (!f.insert) {
    std::string values;
    for (size_t i = 0; i < f.columns.size(); ++i) values += (i ? ", ?" : "?");
    if (f.insert.prepare(f.db, "INSERT INTO " + qualified(f.schema, f.table) + " (" + column_list(f.columns) + ") VALUES (" +
                                   values + ")") != SQLITE_OK)
      return kBadFile;
  }
  for (size_t i = 0; i < f.columns.size(); ++i) bind_column(f.insert.get(), static_cast<int>(i + 1), f.columns[i], row);
  int result = step_change(f.db, f.insert.get());
  if (result == 0) f.current = sqlite3_last_insert_rowid(f.db);
  return result;
}

int IndexedFile::rewrite(const uint8_t* row) {
  Impl& f = *impl_;
  if (f.server) return engine::server_rewrite(*f.server, row);
  const int n = static_cast<int>(f.columns.size());
  if (!f.update_by_key) {
    std::string set;
    for (int i = 0; i < n; ++i) set += (i ? ", " : "") + quoted(f.columns[static_cast<size_t>(i)].name) + " = ?" + std::to_string(i + 1);
    if (f.update_by_key.prepare(f.db, "UPDATE " + qualified(f.schema, f.table) + " SET " + set + " WHERE " +
                                          row_condition(f, desc_, n + 1)) != SQLITE_OK)
      return kBadFile;
  }
  sqlite3_stmt* s = f.update_by_key.get();
  for (int i = 0; i < n; ++i) bind_column(s, i + 1, f.columns[static_cast<size_t>(i)], row);
  bind_row_condition(f, desc_, s, n + 1, row);
  return step_change(f.db, s);
}

int IndexedFile::remove(const uint8_t* row) {
  Impl& f = *impl_;
  if (f.server) return engine::server_remove(*f.server, row);
  if (!f.delete_by_key &&
      f.delete_by_key.prepare(f.db, "DELETE FROM " + qualified(f.schema, f.table) + " WHERE " + row_condition(f, desc_, 1)) != SQLITE_OK)
    return kBadFile;
  sqlite3_stmt* s = f.delete_by_key.get();
  bind_row_condition(f, desc_, s, 1, row);
  return step_change(f.db, s);
}

int IndexedFile::begin() {
  if (impl_->server) return engine::server_begin(engine::server_connection_of(*impl_->server), engine::server_lock_of(*impl_->server));
  return error_of(run(impl_->db, "BEGIN IMMEDIATE"));
}
int IndexedFile::commit() {
  if (impl_->server) return engine::server_commit(engine::server_connection_of(*impl_->server));
  return commit_or_undo(impl_->db);
}
void IndexedFile::rollback() {
  if (impl_->server)
    engine::server_rollback(engine::server_connection_of(*impl_->server));
  else
    run(impl_->db, "ROLLBACK");
}
std::string IndexedFile::server_error() const {
  return impl_->server ? engine::server_error(engine::server_connection_of(*impl_->server)) : std::string();
}

// ---- Groups --------------------------------------------------------------------------------------
//
// A group is one connection: the first file is its main database and the others are attached to
// it, so that the engine commits them together through a journal of the whole transaction (the
// files keep the rollback journal; a write-ahead log would commit each file by itself). Writers
// lock the files in the order they were opened, first for writing, then, when committing, for
// committing; a snapshot takes its read locks in that order too and keeps them to its end, so a
// writer that waits for a snapshot holds no file the snapshot still needs. Nothing written is
// spilled to the files before the commit, which would lock a file out of that order.

FileGroup::FileGroup(uint32_t mode) : mode_(mode) {}

FileGroup::~FileGroup() {
  if (in_snapshot_) end_snapshot();
}

int FileGroup::size() const { return connection_ ? connection_->files : 0; }

std::unique_ptr<IndexedFile> FileGroup::open(const std::string& name, const TableDesc& desc, int& error) {
  std::string detail;
  return open(name, desc, error, detail);
}

// A file of a group on a server: every file of the group is a table in the group's one session.
std::unique_ptr<IndexedFile> FileGroup::open_on_server(const std::string& name, const TableDesc& desc, int& error,
                                                       std::string& detail) {
  if (!desc.valid() || in_snapshot_) {
    error = kBadArgument;
    return nullptr;
  }
  std::shared_ptr<Connection> c = connection_;
  if (!c) {
    c = std::make_shared<Connection>();
    c->server = engine::server_connect(server_number(mode_), (mode_ & kReadOnly) != 0, error, detail);
    if (!c->server) return nullptr;
    c->lock = std::string(local_name(name)) + "/" + desc.table;
  }
  engine::ServerTablePtr table = engine::server_open(c->server, std::string(local_name(name)), desc, mode_, error, detail);
  if (!table) return nullptr;
  connection_ = c;
  ++connection_->files;
  auto impl = std::make_unique<IndexedFile::Impl>();
  impl->connection = connection_;
  impl->server = std::move(table);
  return std::unique_ptr<IndexedFile>(new IndexedFile(std::move(impl), desc));
}

std::unique_ptr<IndexedFile> FileGroup::open(const std::string& name, const TableDesc& desc, int& error,
                                             std::string& detail) {
  error = 0;
  detail.clear();
  if (on_server(mode_)) return open_on_server(name, desc, error, detail);
  const std::optional<std::string> path = database_path(name, desc, mode_, error);
  if (!path) return nullptr;
  if (in_snapshot_) {
    error = kBadArgument;
    return nullptr;
  }
  std::string schema = "main";
  if (!connection_) {
    connection_ = connect(*path, mode_, error);
    if (!connection_) return nullptr;
    run(connection_->db, "PRAGMA cache_spill = OFF");
  } else {
    if (mode_ & kReadOnly) recover_interrupted_write(*path);
    schema = "f" + std::to_string(connection_->files);
    Statement attach;
    int rc = attach.prepare(connection_->db, "ATTACH ?1 AS " + quoted(schema));
    if (rc == SQLITE_OK) {
      sqlite3_bind_text(attach.get(), 1, path->c_str(), -1, SQLITE_TRANSIENT);
      rc = sqlite3_step(attach.get());
    }
    if (rc != SQLITE_DONE && rc != SQLITE_OK) {
      error = error_of(rc);
      return nullptr;
    }
  }
  std::unique_ptr<IndexedFile::Impl> impl = open_table(connection_, schema, desc, mode_, error);
  if (!impl) {
    if (connection_->files == 0)
      connection_.reset();
    else
      run(connection_->db, "DETACH " + quoted(schema));
    return nullptr;
  }
  ++connection_->files;
  return std::unique_ptr<IndexedFile>(new IndexedFile(std::move(impl), desc));
}

int FileGroup::begin() {
  if (!connection_) return kNotOpen;
  if (connection_->server) return engine::server_begin(*connection_->server, connection_->lock);
  return error_of(run(connection_->db, "BEGIN IMMEDIATE"));
}
int FileGroup::commit() {
  if (!connection_) return kNotOpen;
  if (connection_->server) return engine::server_commit(*connection_->server);
  return commit_or_undo(connection_->db);
}
void FileGroup::rollback() {
  if (!connection_) return;
  if (connection_->server)
    engine::server_rollback(*connection_->server);
  else
    run(connection_->db, "ROLLBACK");
}

std::string FileGroup::server_error() const {
  return connection_ && connection_->server ? engine::server_error(*connection_->server) : std::string();
}

int FileGroup::begin_snapshot() {
  if (!connection_) return kNotOpen;
  if (in_snapshot_) return 0;
  if (connection_->server) {
    const int status = engine::server_begin_snapshot(*connection_->server);
    in_snapshot_ = status == 0;
    return status;
  }
  if (int rc = run(connection_->db, "BEGIN"); rc != SQLITE_OK) return error_of(rc);
  for (int i = 0; i < connection_->files; ++i) {
    const std::string schema = i == 0 ? "main" : "f" + std::to_string(i);
    if (int rc = run(connection_->db, "SELECT count(*) FROM " + qualified(schema, "sqlite_master")); rc != SQLITE_OK) {
      run(connection_->db, "ROLLBACK");
      return error_of(rc);
    }
  }
  in_snapshot_ = true;
  return 0;
}

void FileGroup::end_snapshot() {
  if (!in_snapshot_) return;
  if (connection_->server)
    engine::server_end_snapshot(*connection_->server);
  else
    run(connection_->db, "COMMIT");
  in_snapshot_ = false;
}

int remove_file(const std::string& name, const TableDesc& desc, uint32_t mode, std::string& detail) {
  detail.clear();
  if (on_server(mode)) return engine::server_drop(server_number(mode), std::string(local_name(name)), desc.table, detail);
  const std::string path = std::string(local_name(name)) + ".idx";
  return std::remove(path.c_str()) == 0 || errno == ENOENT ? 0 : errno;
}

bool names_server(std::string_view name) {
  const size_t colon = name.find(':');
  if (colon == std::string_view::npos || colon == 0) return false;
  return name.substr(0, colon).find_first_of("/\\") == std::string_view::npos;
}

std::string_view local_name(std::string_view name) {
  return !name.empty() && name[0] == ':' ? name.substr(1) : name;
}

std::string file_path(std::string_view name) {
  const std::string_view local = local_name(name);
  if (local.size() == name.size() && names_server(name)) return {};
  return std::string(local) + ".idx";
}

std::vector<std::string> search_candidates(std::string_view name, std::string_view search_path) {
  if (!name.empty() && (name[0] == '/' || name[0] == '\\')) return {std::string(name)};
  if (search_path.empty()) search_path = ".";
  std::vector<std::string> paths;
  size_t pos = 0;
  while (pos <= search_path.size()) {
    size_t end = search_path.find(':', pos);
    if (end == std::string_view::npos) end = search_path.size();
    const std::string dir(search_path.substr(pos, end - pos));
    // The current directory is the name itself, so that paths read as they were given.
    paths.push_back(dir.empty() || dir == "." ? std::string(name) : dir + (dir.back() == '/' ? "" : "/") + std::string(name));
    pos = end + 1;
  }
  return paths;
}

std::optional<std::string> find_file(std::string_view name, std::string_view search_path) {
  for (const std::string& p : search_candidates(name, search_path)) {
    struct stat st {};
    if (stat(p.c_str(), &st) == 0) return p;
  }
  return std::nullopt;
}

std::optional<std::string> read_text_file(const std::string& path, size_t count) {
  struct stat st {};
  if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return std::nullopt;  // a FIFO would wait for ever
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::string text(count, '\0');
  in.read(text.data(), static_cast<std::streamsize>(count));
  if (in.bad()) return std::nullopt;
  text.resize(static_cast<size_t>(in.gcount()));
  return text;
}

}  // namespace tav::datafile
