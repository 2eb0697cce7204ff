// What the engines of the data-file layer share: the SQL columns of a description, the row
// buffer's numbers and texts, and the conditions of reads in index order. Internal to the layer
// (datafile.cc, datafile_pg.cc).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/datafile.h"

namespace tav::datafile::engine {

enum class Kind { integer, text, blob };

// One SQL column: a described column, or one occurrence of it.
struct SqlColumn {
  std::string name;
  uint32_t offset = 0;
  uint32_t size = 0;
  Kind kind = Kind::text;
  bool is_signed = false;
};

// Where the next read in index order starts.
struct Cursor {
  enum class At { nowhere, first, at_least, after } at = At::nowhere;
  int index = 0;
  std::vector<uint8_t> key_row;  // the row whose key positions the cursor
  int64_t rowid = 0;             // with `after`: the row last read (SQLite)
  std::string row_tag;           // with `after`: the row last read (server: its tuple id)
};

// How an engine's SQL spells a parameter and a row's own identity.
struct SqlDialect {
  const char* parameter;  // "?" or "$", followed by the parameter's number
  const char* row_id;     // the column that orders rows of equal keys
};
inline constexpr SqlDialect kSqliteDialect{"?", "rowid"};
inline constexpr SqlDialect kServerDialect{"$", "ctid"};

Kind kind_of(const Column& c);
std::vector<SqlColumn> sql_columns(const TableDesc& d);
std::string quoted(std::string_view name);
std::string column_list(const std::vector<SqlColumn>& cols);
int64_t get_integer(const uint8_t* p, uint32_t size, bool is_signed);
void put_integer(uint8_t* p, uint32_t size, int64_t value);
std::string_view trimmed(const uint8_t* p, uint32_t size);
// The condition "the key is past (or, with `inclusive`, at least) parameters 1..n", and with
// `rowid` the row of parameter n+1 among equal keys, following each part's direction.
std::string order_condition(const std::vector<std::string>& parts, const std::vector<bool>& desc, bool inclusive,
                            bool rowid, const SqlDialect& dialect);

// ---- The database-server engine (datafile_pg.cc) -----------------------------------------------

struct ServerConnection;  // one session with a server
struct ServerTable;       // an open table on it
void server_close(ServerTable* t);  // frees the table
// Drops a table of server `number`, and its schema when that is left empty.
int server_drop(int number, const std::string& schema, const std::string& table, std::string& detail);
struct ServerTableDeleter {
  void operator()(ServerTable* t) const { server_close(t); }
};
using ServerTablePtr = std::unique_ptr<ServerTable, ServerTableDeleter>;

// Connects to server `number` (0-based) of the configuration; nothing, with `error` and
// `detail` set, when it cannot.
std::shared_ptr<ServerConnection> server_connect(int number, bool read_only, int& error, std::string& detail);
// Opens (with kCreate: makes when missing) the table of `desc` in the schema `schema`.
ServerTablePtr server_open(const std::shared_ptr<ServerConnection>& c, const std::string& schema,
                           const TableDesc& desc, uint32_t mode, int& error, std::string& detail);
int server_start(ServerTable& t, int index, const uint8_t* row, uint32_t mode, uint32_t row_size);
int server_read(ServerTable& t, int index, uint8_t* row, uint32_t mode, uint32_t row_size);
int server_write(ServerTable& t, const uint8_t* row);
int server_rewrite(ServerTable& t, const uint8_t* row);
int server_remove(ServerTable& t, const uint8_t* row);
// Transactions of a connection. `lock` names what writers of it wait for one another on.
int server_begin(ServerConnection& c, const std::string& lock);
int server_commit(ServerConnection& c);
void server_rollback(ServerConnection& c);
int server_begin_snapshot(ServerConnection& c);
void server_end_snapshot(ServerConnection& c);
const std::string& server_error(const ServerConnection& c);
ServerConnection& server_connection_of(ServerTable& t);
const std::string& server_lock_of(const ServerTable& t);

}  // namespace tav::datafile::engine

