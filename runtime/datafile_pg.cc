// The data-file layer's database-server engine: indexed files as tables of a PostgreSQL server,
// through libpq. Rows travel in the binary format: numbers as int8, texts as their bytes, other
// stored forms as bytea, a row's identity as its tuple id (ctid), which orders rows of equal keys
// as SQLite's rowid does.
//
// Writers of a file (or of a group) wait for one another on an advisory lock named after it,
// taken at the start of their READ COMMITTED transaction: no other writer comes between a reader's
// look-up and its insert, as with SQLite's BEGIN IMMEDIATE, and no serialization failure can meet
// a writer's own work. A snapshot is a REPEATABLE READ, READ ONLY transaction: it sees the files
// as they were when it began, and writers need not wait for it. What the layer runs by itself
// (beginning a transaction or a snapshot, making a table) is tried again, a bounded number of
// times, when the server reports a serialization failure or a deadlock.
#include <libpq-fe.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <thread>
#include <unordered_map>
#include <utility>

#include "runtime/datafile_engine.h"

namespace tav::datafile {

namespace engine {

struct ServerConnection {
  PGconn* conn = nullptr;
  std::unordered_map<std::string, std::string> prepared;  // SQL -> the name it was prepared under
  std::string server;      // its name, for messages
  std::string last_error;  // the server's text of the last failure
  ~ServerConnection() { PQfinish(conn); }
};

struct ServerTable {
  std::shared_ptr<ServerConnection> c;
  std::string schema;
  std::string table;
  std::string lock;  // the name writers of this file alone wait on
  std::vector<SqlColumn> columns;
  std::vector<std::vector<int>> key_columns;
  std::vector<std::vector<bool>> descending;
  bool first_index_unique = false;
  Cursor cursor;
  std::string current;  // the tuple id of the current row (6 bytes); empty = none
};

}  // namespace engine

namespace {

using engine::Cursor;
using engine::Kind;
using engine::ServerConnection;
using engine::ServerTable;
using engine::SqlColumn;

constexpr Oid kInt8Oid = 20;
constexpr Oid kTextOid = 25;
constexpr Oid kByteaOid = 17;
constexpr Oid kTidOid = 27;
constexpr int kTries = 5;           // attempts of the layer's own statements
constexpr int kBinaryFormat = 1;
constexpr size_t kTidSize = 6;
constexpr size_t kMaxIdentifier = 63;  // the server's longest name
constexpr const char* kLockWait = "60s";  // how long a writer waits for another one

// ---- Results and errors ------------------------------------------------------------------------

struct Result {
  PGresult* r = nullptr;
  explicit Result(PGresult* res) : r(res) {}
  ~Result() { PQclear(r); }
  Result(Result&& other) noexcept : r(std::exchange(other.r, nullptr)) {}
  Result(const Result&) = delete;
  Result& operator=(const Result&) = delete;
  bool ok() const {
    const ExecStatusType s = PQresultStatus(r);
    return s == PGRES_COMMAND_OK || s == PGRES_TUPLES_OK;
  }
  std::string state() const {
    const char* s = r ? PQresultErrorField(r, PG_DIAG_SQLSTATE) : nullptr;
    return s ? s : "";
  }
};

// The server's text on one line: its line breaks and indentation become single blanks.
std::string one_line(std::string_view text) {
  std::string s;
  for (char ch : text) {
    const bool blank = ch == '\n' || ch == '\t' || ch == ' ';
    if (!blank)
      s += ch;
    else if (!s.empty() && s.back() != ' ')
      s += ' ';
  }
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s;
}

// The layer's error number of a failed statement, its text kept on the connection.
int error_of(ServerConnection& c, const Result& res) {
  c.last_error = one_line(PQerrorMessage(c.conn));
  if (PQstatus(c.conn) != CONNECTION_OK) return kIoError;
  const std::string s = res.state();
  if (s == "23505") return kDuplicate;
  if (s == "40001" || s == "40P01" || s == "55P03") return kLocked;
  if (s == "42P01" || s == "3F000") return kNoSuchFile;
  if (s == "53100") return kNoSpace;
  if (s == "42501" || s == "25006") return 13;  // EACCES
  if (s.starts_with("08") || s.starts_with("57")) return kIoError;
  return kBadFile;
}

bool retryable(const Result& res) {
  const std::string s = res.state();
  return s == "40001" || s == "40P01" || s == "23505";  // a table made at the same moment by another
}

Result exec(ServerConnection& c, const std::string& sql) { return Result(PQexec(c.conn, sql.c_str())); }

// A statement with binary parameters and results.
struct Params {
  std::vector<Oid> types;
  std::vector<std::string> values;
  std::vector<bool> null;
  void add(Oid type, std::string value) {
    types.push_back(type);
    values.push_back(std::move(value));
  }
};

// The statements of reads and writes are prepared once per session: the server then plans them
// once, not at every row.
Result exec(ServerConnection& c, const std::string& sql, const Params& p) {
  auto it = c.prepared.find(sql);
  if (it == c.prepared.end()) {
    const std::string name = "s" + std::to_string(c.prepared.size() + 1);
    Result made(PQprepare(c.conn, name.c_str(), sql.c_str(), static_cast<int>(p.types.size()), p.types.data()));
    if (!made.ok()) return made;
    it = c.prepared.emplace(sql, name).first;
  }
  std::vector<const char*> values;
  std::vector<int> lengths, formats;
  for (const std::string& v : p.values) {
    values.push_back(v.data());
    lengths.push_back(static_cast<int>(v.size()));
    formats.push_back(kBinaryFormat);
  }
  return Result(PQexecPrepared(c.conn, it->second.c_str(), static_cast<int>(values.size()), values.data(),
                               lengths.data(), formats.data(), kBinaryFormat));
}

std::string big_endian(uint64_t v, size_t n) {
  std::string out(n, '\0');
  for (size_t i = n; i-- > 0;) {
    out[i] = static_cast<char>(v & 0xff);
    v >>= 8;
  }
  return out;
}

uint64_t from_big_endian(const char* p, size_t n) {
  uint64_t v = 0;
  for (size_t i = 0; i < n; ++i) v = v << 8 | static_cast<uint8_t>(p[i]);
  return v;
}

void add_column(Params& p, const SqlColumn& col, const uint8_t* row) {
  const uint8_t* at = row + col.offset;
  switch (col.kind) {
    case Kind::integer:
      p.add(kInt8Oid, big_endian(static_cast<uint64_t>(engine::get_integer(at, col.size, col.is_signed)), 8));
      break;
    case Kind::text:
      p.add(kTextOid, std::string(engine::trimmed(at, col.size)));
      break;
    case Kind::blob:
      p.add(kByteaOid, std::string(reinterpret_cast<const char*>(at), col.size));
      break;
  }
}

void fetch_column(const PGresult* r, int field, const SqlColumn& col, uint8_t* row) {
  uint8_t* at = row + col.offset;
  const bool null = PQgetisnull(r, 0, field) != 0;
  const char* v = PQgetvalue(r, 0, field);
  const auto n = static_cast<uint32_t>(null ? 0 : PQgetlength(r, 0, field));
  switch (col.kind) {
    case Kind::integer:
      engine::put_integer(at, col.size, null || n != 8 ? 0 : static_cast<int64_t>(from_big_endian(v, 8)));
      break;
    case Kind::text:
      for (uint32_t i = 0; i < col.size; ++i) at[i] = i < n ? static_cast<uint8_t>(v[i]) : ' ';
      break;
    case Kind::blob:
      for (uint32_t i = 0; i < col.size; ++i) at[i] = i < n ? static_cast<uint8_t>(v[i]) : 0;
      break;
  }
}

std::string qualified(const ServerTable& t) { return engine::quoted(t.schema) + "." + engine::quoted(t.table); }

// ---- Making and checking tables ----------------------------------------------------------------

std::string column_type(const SqlColumn& col) {
  switch (col.kind) {
    case Kind::integer:
      return "bigint";
    case Kind::text:
      return "text COLLATE \"C\"";
    case Kind::blob:
      return "bytea";
  }
  return "bytea";
}

std::string create_sql(const ServerTable& t, const TableDesc& d) {
  std::string sql = "CREATE SCHEMA IF NOT EXISTS " + engine::quoted(t.schema) + "; CREATE TABLE IF NOT EXISTS " +
                    qualified(t) + " (";
  for (size_t i = 0; i < t.columns.size(); ++i)
    sql += (i ? ", " : "") + engine::quoted(t.columns[i].name) + " " + column_type(t.columns[i]);
  sql += ");";
  for (size_t k = 0; k < d.indexes.size(); ++k) {
    const Index& index = d.indexes[k];
    sql += index.duplicates ? " CREATE INDEX IF NOT EXISTS " : " CREATE UNIQUE INDEX IF NOT EXISTS ";
    sql += engine::quoted(d.table + "_" + std::to_string(k + 1)) + " ON " + qualified(t) + " (";
    for (size_t i = 0; i < index.parts.size(); ++i)
      sql += (i ? ", " : "") + engine::quoted(index.parts[i].column) + (index.parts[i].descending ? " DESC" : "");
    sql += ");";
  }
  return sql;
}

// The names of the table's columns; nothing when there is no such table.
std::optional<std::vector<std::string>> table_columns(ServerTable& t, int& error) {
  Params p;
  p.add(kTextOid, qualified(t));
  Result r = exec(*t.c,
                  "SELECT attname::text FROM pg_attribute WHERE attrelid = to_regclass($1) AND attnum > 0 AND NOT "
                  "attisdropped ORDER BY attnum",
                  p);
  if (!r.ok()) {
    error = error_of(*t.c, r);
    return std::nullopt;
  }
  std::vector<std::string> names;
  for (int i = 0; i < PQntuples(r.r); ++i) names.emplace_back(PQgetvalue(r.r, i, 0), static_cast<size_t>(PQgetlength(r.r, i, 0)));
  return names;
}

// Makes the table when it is missing, inside a transaction that waits for others making it.
int create_table(ServerTable& t, const TableDesc& d) {
  ServerConnection& c = *t.c;
  for (int attempt = 1;; ++attempt) {
    Params p;
    p.add(kTextOid, "create:" + t.schema);
    Result begin = exec(c, "BEGIN");
    Result lock = exec(c, "SELECT pg_advisory_xact_lock(hashtext($1))", p);
    Result made = lock.ok() ? exec(c, create_sql(t, d)) : Result(nullptr);
    if (lock.ok() && made.ok()) {
      Result commit = exec(c, "COMMIT");
      if (commit.ok()) return 0;
      return error_of(c, commit);
    }
    const Result& failed = lock.ok() ? made : lock;
    const int error = error_of(c, failed);
    exec(c, "ROLLBACK");
    if (attempt == kTries || !retryable(failed)) return error;
  }
}

void note_keys(ServerTable& t, const TableDesc& d) {
  for (const Index& index : d.indexes) {
    std::vector<int> cols;
    std::vector<bool> desc_flags;
    for (const KeyPart& part : index.parts) {
      for (size_t i = 0; i < t.columns.size(); ++i)
        if (t.columns[i].name == part.column) cols.push_back(static_cast<int>(i));
      desc_flags.push_back(part.descending);
    }
    t.key_columns.push_back(cols);
    t.descending.push_back(desc_flags);
  }
  t.first_index_unique = !d.indexes.empty() && !d.indexes[0].duplicates;
}

// ---- Reading -----------------------------------------------------------------------------------

enum class Query { equal, after, at_least, first };

std::string select_sql(const ServerTable& t, int index, Query which) {
  const size_t k = static_cast<size_t>(index - 1);
  std::vector<std::string> parts;
  std::string order;
  for (size_t i = 0; i < t.key_columns[k].size(); ++i) {
    parts.push_back(engine::quoted(t.columns[static_cast<size_t>(t.key_columns[k][i])].name));
    order += parts.back() + (t.descending[k][i] ? " DESC, " : ", ");
  }
  std::string sql = "SELECT " + engine::column_list(t.columns) + ", ctid FROM " + qualified(t);
  if (which == Query::equal) {
    std::string where;
    for (size_t i = 0; i < parts.size(); ++i) where += (i ? " AND " : "") + parts[i] + " = $" + std::to_string(i + 1);
    sql += " WHERE " + where;
  } else if (which != Query::first) {
    sql += " WHERE " + engine::order_condition(parts, t.descending[k], which == Query::at_least,
                                               which == Query::after, engine::kServerDialect);
  }
  return sql + " ORDER BY " + order + "ctid LIMIT 1";
}

void add_key(Params& p, const ServerTable& t, int index, const uint8_t* row) {
  for (int col : t.key_columns[static_cast<size_t>(index - 1)]) add_column(p, t.columns[static_cast<size_t>(col)], row);
}

int fetch_one(ServerTable& t, const std::string& sql, const Params& p, uint8_t* row, int missing) {
  Result r = exec(*t.c, sql, p);
  if (!r.ok()) return error_of(*t.c, r);
  if (PQntuples(r.r) == 0) return missing;
  if (PQnfields(r.r) != static_cast<int>(t.columns.size()) + 1) return kBadFile;
  for (size_t i = 0; i < t.columns.size(); ++i) fetch_column(r.r, static_cast<int>(i), t.columns[i], row);
  const int tid = static_cast<int>(t.columns.size());
  t.current.assign(PQgetvalue(r.r, 0, tid), static_cast<size_t>(PQgetlength(r.r, 0, tid)));
  return 0;
}

// ---- Changing ----------------------------------------------------------------------------------

// "WHERE" of rewrite and delete: the key of index 1, or the current row.
std::string row_condition(const ServerTable& t, int first_param) {
  if (!t.first_index_unique) return "ctid = $" + std::to_string(first_param);
  std::string where;
  const std::vector<int>& cols = t.key_columns[0];
  for (size_t i = 0; i < cols.size(); ++i)
    where += (i ? " AND " : "") + engine::quoted(t.columns[static_cast<size_t>(cols[i])].name) + " = $" +
             std::to_string(first_param + static_cast<int>(i));
  return where;
}

void add_row_condition(Params& p, const ServerTable& t, const uint8_t* row) {
  if (!t.first_index_unique)
    p.add(kTidOid, t.current);
  else
    add_key(p, t, 1, row);
}

int run_change(ServerTable& t, const std::string& sql, const Params& p) {
  Result r = exec(*t.c, sql, p);
  if (!r.ok()) return error_of(*t.c, r);
  const char* n = PQcmdTuples(r.r);
  return n && std::atoi(n) > 0 ? 0 : kNoRecord;
}

// ---- The configuration -------------------------------------------------------------------------

const char* env_value(const Getenv& getenv_fn, const char* name) { return getenv_fn ? getenv_fn(name) : std::getenv(name); }

bool valid_server_name(std::string_view name) {
  if (name.empty()) return false;
  for (char ch : name)
    if (!(std::isalnum(static_cast<unsigned char>(ch)) || ch == '_' || ch == '-' || ch == '.')) return false;
  return true;
}

}  // namespace

int read_servers(std::vector<Server>& servers, std::string& detail, const Getenv& getenv_fn) {
  servers.clear();
  const char* path = env_value(getenv_fn, "TAVSERVERS");
  if (!path || !*path) return 0;
  std::ifstream in(path);
  if (!in) {
    detail = std::string("TAVSERVERS: ") + path + ": cannot be read";
    return kNoSuchFile;
  }
  std::string line;
  for (int line_no = 1; std::getline(in, line); ++line_no) {
    const size_t start = line.find_first_not_of(" \t");
    if (start == std::string::npos || line[start] == '#') continue;
    const size_t end = line.find_first_of(" \t", start);
    Server s;
    s.name = line.substr(start, end == std::string::npos ? std::string::npos : end - start);
    const size_t conn = end == std::string::npos ? std::string::npos : line.find_first_not_of(" \t", end);
    s.connection = conn == std::string::npos ? "" : line.substr(conn);
    if (!valid_server_name(s.name)) {
      detail = std::string(path) + ":" + std::to_string(line_no) + ": not a server name: '" + s.name + "'";
      return kBadArgument;
    }
    servers.push_back(std::move(s));
  }
  if (servers.size() > static_cast<size_t>(kMaxServers)) {
    detail = std::string(path) + ": " + std::to_string(servers.size()) + " servers; at most " +
             std::to_string(kMaxServers) + " can be named";
    return kTooManyServers;
  }
  return 0;
}

int locate(std::string_view name, FileLocation& where, std::string& detail, const Getenv& getenv_fn) {
  where = {};
  if (name.starts_with(':')) {
    where.path = std::string(name.substr(1));
    where.mode = kLocal;
    return 0;
  }
  const bool qualified_name = names_server(name);
  const char* fallback = env_value(getenv_fn, "TAVSERVER");
  std::string host = qualified_name ? std::string(name.substr(0, name.find(':'))) : fallback ? fallback : "";
  where.path = std::string(qualified_name ? name.substr(name.find(':') + 1) : name);
  if (host.empty()) return 0;
  std::vector<Server> servers;
  if (const int error = read_servers(servers, detail, getenv_fn); error != 0) return error;
  for (size_t i = 0; i < servers.size(); ++i) {
    if (servers[i].name != host) continue;
    where.mode = server_mode(static_cast<int>(i));
    where.server = host;
    if (where.path.empty() || where.path.size() > kMaxIdentifier) {
      detail = "'" + where.path + "': a file on a server is named by 1 to " + std::to_string(kMaxIdentifier) + " bytes";
      return kBadArgument;
    }
    return 0;
  }
  // A host that is no configured server: the name is what it was before there were servers.
  where.path = std::string(name);
  if (qualified_name) {
    detail = "'" + host + "' is not a server of TAVSERVERS";
    return kNetworkNotAllowed;
  }
  detail = "TAVSERVER names '" + host + "', which is not a server of TAVSERVERS";
  return kNetworkNotAllowed;
}

namespace engine {

std::shared_ptr<ServerConnection> server_connect(int number, bool read_only, int& error, std::string& detail) {
  std::vector<Server> servers;
  if ((error = read_servers(servers, detail)) != 0) return nullptr;
  if (number < 0 || static_cast<size_t>(number) >= servers.size()) {
    error = kNetworkNotAllowed;
    detail = "server number " + std::to_string(number) + " is not configured (TAVSERVERS)";
    return nullptr;
  }
  auto c = std::make_shared<ServerConnection>();
  c->server = servers[static_cast<size_t>(number)].name;
  c->conn = PQconnectdb(servers[static_cast<size_t>(number)].connection.c_str());
  if (!c->conn || PQstatus(c->conn) != CONNECTION_OK) {
    error = kIoError;
    detail = "server '" + c->server + "': " + (c->conn ? one_line(PQerrorMessage(c->conn)) : "out of memory");
    return nullptr;
  }
  PQsetNoticeProcessor(c->conn, [](void*, const char*) {}, nullptr);  // failures come back as errors
  std::string setup = std::string("SET lock_timeout = '") + kLockWait + "'; SET client_min_messages = warning;";
  if (read_only) setup += " SET default_transaction_read_only = on;";
  if (Result r = exec(*c, setup); !r.ok()) {
    error = error_of(*c, r);
    detail = "server '" + c->server + "': " + c->last_error;
    return nullptr;
  }
  return c;
}

ServerTablePtr server_open(const std::shared_ptr<ServerConnection>& c, const std::string& schema,
                           const TableDesc& desc, uint32_t mode, int& error, std::string& detail) {
  ServerTablePtr t(new ServerTable);
  t->c = c;
  t->schema = schema;
  t->table = desc.table;
  t->lock = schema + "/" + desc.table;
  t->columns = sql_columns(desc);
  if (schema.empty() || schema.size() > kMaxIdentifier) {
    error = kBadArgument;
    detail = "'" + schema + "': a file on a server is named by 1 to " + std::to_string(kMaxIdentifier) + " bytes";
    return nullptr;
  }
  std::optional<std::vector<std::string>> names = table_columns(*t, error);
  if (names && names->empty() && (mode & kCreate) && !(mode & kReadOnly)) {
    if ((error = create_table(*t, desc)) == 0) names = table_columns(*t, error);
  }
  const std::string where = "server '" + c->server + "': ";
  if (!names) {
    detail = where + c->last_error;
    return nullptr;
  }
  if (names->empty()) {
    error = kNoSuchFile;
    detail = where + "no table " + qualified(*t);
    return nullptr;
  }
  for (const SqlColumn& col : t->columns) {
    bool found = false;
    for (const std::string& n : *names) found |= n == col.name;
    if (!found) {
      error = kBadFile;
      detail = where + "table " + qualified(*t) + " has no column " + quoted(col.name);
      return nullptr;
    }
  }
  note_keys(*t, desc);
  return t;
}

void server_close(ServerTable* t) { delete t; }

int server_drop(int number, const std::string& schema, const std::string& table, std::string& detail) {
  int error = 0;
  std::shared_ptr<ServerConnection> c = server_connect(number, false, error, detail);
  if (!c) return error;
  if (Result r = exec(*c, "DROP TABLE IF EXISTS " + quoted(schema) + "." + quoted(table)); !r.ok()) {
    error = error_of(*c, r);
    detail = "server '" + c->server + "': " + c->last_error;
    return error;
  }
  exec(*c, "DROP SCHEMA IF EXISTS " + quoted(schema));  // refused while other tables are in it
  return 0;
}

int server_start(ServerTable& t, int index, const uint8_t* row, uint32_t mode, uint32_t row_size) {
  if (index < 1 || static_cast<size_t>(index) > t.key_columns.size()) return kBadArgument;
  t.cursor.index = index;
  t.cursor.at = (mode & kFirstRow) ? Cursor::At::first : Cursor::At::at_least;
  if (!(mode & kFirstRow)) t.cursor.key_row.assign(row, row + row_size);
  return 0;
}

int server_read(ServerTable& t, int index, uint8_t* row, uint32_t mode, uint32_t row_size) {
  Params p;
  std::string sql;
  int missing = kNoRecord;
  if (!(mode & kNextRow)) {
    if (index < 1 || static_cast<size_t>(index) > t.key_columns.size()) return kBadArgument;
    sql = select_sql(t, index, Query::equal);
    add_key(p, t, index, row);
    t.cursor.index = index;
  } else {
    Cursor& c = t.cursor;
    if (c.at == Cursor::At::nowhere) return kNoCurrent;
    missing = kEndOfFile;
    const Query which = c.at == Cursor::At::first ? Query::first : c.at == Cursor::At::after ? Query::after : Query::at_least;
    sql = select_sql(t, c.index, which);
    if (which != Query::first) add_key(p, t, c.index, c.key_row.data());
    if (which == Query::after) p.add(kTidOid, c.row_tag);
  }
  const int result = fetch_one(t, sql, p, row, missing);
  if (result == 0) {
    t.cursor.at = Cursor::At::after;
    t.cursor.key_row.assign(row, row + row_size);
    t.cursor.row_tag = t.current;
  }
  return result;
}

int server_write(ServerTable& t, const uint8_t* row) {
  Params p;
  std::string values;
  for (size_t i = 0; i < t.columns.size(); ++i) {
    values += (i ? ", $" : "$") + std::to_string(i + 1);
    add_column(p, t.columns[i], row);
  }
  Result r = exec(*t.c, "INSERT INTO " + qualified(t) + " (" + column_list(t.columns) + ") VALUES (" + values + ") RETURNING ctid", p);
  if (!r.ok()) return error_of(*t.c, r);
  if (PQntuples(r.r) == 1) t.current.assign(PQgetvalue(r.r, 0, 0), static_cast<size_t>(PQgetlength(r.r, 0, 0)));
  return 0;
}

int server_rewrite(ServerTable& t, const uint8_t* row) {
  if (!t.first_index_unique && t.current.size() != kTidSize) return kNoCurrent;
  Params p;
  std::string set;
  const int n = static_cast<int>(t.columns.size());
  for (int i = 0; i < n; ++i) {
    set += (i ? ", " : "") + quoted(t.columns[static_cast<size_t>(i)].name) + " = $" + std::to_string(i + 1);
    add_column(p, t.columns[static_cast<size_t>(i)], row);
  }
  add_row_condition(p, t, row);
  return run_change(t, "UPDATE " + qualified(t) + " SET " + set + " WHERE " + row_condition(t, n + 1), p);
}

int server_remove(ServerTable& t, const uint8_t* row) {
  if (!t.first_index_unique && t.current.size() != kTidSize) return kNoCurrent;
  Params p;
  add_row_condition(p, t, row);
  return run_change(t, "DELETE FROM " + qualified(t) + " WHERE " + row_condition(t, 1), p);
}

int server_begin(ServerConnection& c, const std::string& lock) {
  for (int attempt = 1;; ++attempt) {
    Result begin = exec(c, "BEGIN ISOLATION LEVEL READ COMMITTED");
    if (!begin.ok()) return error_of(c, begin);
    Params p;
    p.add(kTextOid, lock);
    Result locked = exec(c, "SELECT pg_advisory_xact_lock(hashtext($1))", p);
    if (locked.ok()) return 0;
    const int error = error_of(c, locked);
    exec(c, "ROLLBACK");
    if (attempt == kTries || !retryable(locked)) return error;
  }
}

int server_commit(ServerConnection& c) {
  Result r = exec(c, "COMMIT");
  // A transaction that failed ends with COMMIT too, and the server says ROLLBACK.
  if (r.ok() && std::strcmp(PQcmdStatus(r.r), "COMMIT") == 0) return 0;
  if (r.ok()) {
    if (c.last_error.empty()) c.last_error = "the transaction was rolled back";
    return kLocked;
  }
  const int error = error_of(c, r);
  if (PQtransactionStatus(c.conn) != PQTRANS_IDLE) exec(c, "ROLLBACK");
  return error;
}

void server_rollback(ServerConnection& c) {
  if (PQtransactionStatus(c.conn) != PQTRANS_IDLE) exec(c, "ROLLBACK");
}

int server_begin_snapshot(ServerConnection& c) {
  for (int attempt = 1;; ++attempt) {
    Result begin = exec(c, "BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY");
    if (!begin.ok()) return error_of(c, begin);
    Result taken = exec(c, "SELECT 1");  // the snapshot is taken by the first query
    if (taken.ok()) return 0;
    const int error = error_of(c, taken);
    exec(c, "ROLLBACK");
    if (attempt == kTries || !retryable(taken)) return error;
  }
}

void server_end_snapshot(ServerConnection& c) {
  if (PQtransactionStatus(c.conn) != PQTRANS_IDLE) exec(c, "COMMIT");
}

const std::string& server_error(const ServerConnection& c) { return c.last_error; }
ServerConnection& server_connection_of(ServerTable& t) { return *t.c; }
const std::string& server_lock_of(const ServerTable& t) { return t.lock; }

}  // namespace engine

}  // namespace tav::datafile
