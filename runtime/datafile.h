// The data-file layer: indexed files, text files and the file search.
//
// An indexed file named F is the single SQLite database F.idx holding one table, so that any
// SQLite tool can open it. The table has one SQL column per described column, in order and under
// the same name; a column of n > 1 occurrences is the n columns <name>_1 ... <name>_n. Numbers
// (binary decimal, dates, times) are INTEGER, texts are TEXT without their trailing blanks (a row
// buffer pads them back; NULL reads as blanks or 0), other stored forms are BLOBs of their bytes.
// Index k of the description is the SQL index <table>_<k>, UNIQUE unless duplicates are allowed,
// DESC on descending key columns. A database made by another SQLite client with the same table
// and column names works the same, with or without the indexes.
//
// A row buffer holds the columns one after the other from offset 0, each in its stored form,
// numbers most significant byte first (as in the operations table).
//
// A second engine keeps indexed files on database servers (PostgreSQL, through libpq). The servers
// are the lines of the file named by TAVSERVERS, "NAME CONNECTION-STRING" each, numbered from 0 in
// their order (at most 15). A server-qualified name "NAME:path" names the file `path` on server
// NAME, and the mode word carries the server's number + 1 in its high four bits (kServerBits);
// with TAVSERVER naming a server, every other name that does not start with ":" is on that server
// too. On a server, the indexed file `path` is the table of its description in the schema named
// `path` (files whose tables have different names may share a schema); its columns, their order
// and its indexes are those of a SQLite file, numbers as bigint, texts as text in byte order,
// other forms as bytea. A host that is not a configured server is refused with
// kNetworkNotAllowed, and a name starting with ":" names a local file (the ":" is dropped).
//
// Files that must change together are opened as one FileGroup: a write transaction on the group
// commits all its files at once or none of them (a process killed half-way through a commit, or
// a commit that fails for want of space, leaves every file as it was before), and a snapshot
// reads every file as it was at one moment, so that a reader never sees one file before a
// writer's commit and another after it. Engines keep rows in their own way; the interface is the
// same for all of them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tav::datafile {

// Mode bits of the operations.
inline constexpr uint32_t kCreate = 0x0001;    // open: create the file when it does not exist
inline constexpr uint32_t kReadOnly = 0x0004;  // open: for reading only
inline constexpr uint32_t kLocal = 0x0008;     // open: a local file, whatever the name looks like
inline constexpr uint32_t kNextRow = 0x0010;   // read: the next row in index order
inline constexpr uint32_t kFirstRow = 0x0080;  // start: the first row of the index
inline constexpr uint32_t kServerBits = 0xF0000000;  // a file server's number + 1; 0 = local

// Error numbers of the operations (0 is success).
inline constexpr int kNoSuchFile = 2;
inline constexpr int kIoError = 5;      // EIO: the file could not be read or written
inline constexpr int kNoSpace = 28;     // ENOSPC: the disk (or the process's file size limit) is full
inline constexpr int kDuplicate = 100;
inline constexpr int kNotOpen = 101;
inline constexpr int kBadArgument = 102;
inline constexpr int kBadFile = 105;  // not an indexed file of this description
inline constexpr int kLocked = 107;
inline constexpr int kEndOfFile = 110;
inline constexpr int kNoRecord = 111;
inline constexpr int kNoCurrent = 112;
inline constexpr int kServerLacks = 10008;     // the server lacks the tables (or a schema) asked for
inline constexpr int kTooManyServers = 10009;  // more servers configured than the mode word can name
inline constexpr int kNetworkNotAllowed = 10010;
inline constexpr int kMaxServers = 15;

struct Column {
  std::string name;
  uint16_t format = 0;  // the format word: class bits, digits, sign; a length for texts
  char type = 'A';      // the type letter
  uint16_t occurs = 1;
  uint32_t size = 0;    // bytes of one occurrence
};

struct KeyPart {
  std::string column;
  bool descending = false;
};

struct Index {
  std::vector<KeyPart> parts;  // up to 8
  bool duplicates = false;
  bool db_only = false;
  bool compressed = false;
};

struct TableDesc {
  std::string table;
  std::vector<Column> columns;
  std::vector<Index> indexes;  // index k is indexes[k - 1]

  // Bytes of a row: the column sizes times their occurrences.
  uint32_t row_size() const;
  // Whether the description is usable: names, sizes, at most 8 key parts naming columns.
  bool valid() const;
};

class IndexedFile {
 public:
  // Opens the indexed file `name` (the path without ".idx"). With kCreate a missing file is
  // created with its table and indexes. Nothing is returned on failure, with `error` set.
  static std::unique_ptr<IndexedFile> open(const std::string& name, const TableDesc& desc, uint32_t mode,
                                           int& error);
  // The same, with the server's own text of a failure in `detail` (empty for local files).
  static std::unique_ptr<IndexedFile> open(const std::string& name, const TableDesc& desc, uint32_t mode,
                                           int& error, std::string& detail);
  ~IndexedFile();
  IndexedFile(const IndexedFile&) = delete;
  IndexedFile& operator=(const IndexedFile&) = delete;

  const TableDesc& desc() const { return desc_; }

  // Positions on `index`: at its first row (kFirstRow), or before the first row whose key is at
  // least the key in `row`. The next read with kNextRow returns that row.
  int start(int index, const uint8_t* row, uint32_t mode);
  // Mode 0: reads the row whose key on `index` equals the key in `row`; kNextRow: the next row
  // in the order of the index last started or read (`index` is then ignored). The row read
  // becomes the current one.
  int read(int index, uint8_t* row, uint32_t mode);
  int write(const uint8_t* row);
  // Rewrites or deletes the row with the key of `row` on index 1 (the current row when index 1
  // allows duplicates).
  int rewrite(const uint8_t* row);
  int remove(const uint8_t* row);

  // A transaction: the writes between begin and commit happen together or not at all, and no
  // other writer comes between them (begin waits for one that is writing). On a file of a group
  // the transaction is the group's (FileGroup::begin).
  int begin();
  int commit();
  void rollback();

  // The server's text of the last failure on a server's file; empty for local files.
  std::string server_error() const;

  struct Impl;  // the open database and its prepared statements (datafile.cc)

 private:
  friend class FileGroup;
  explicit IndexedFile(std::unique_ptr<Impl> impl, TableDesc desc);
  std::unique_ptr<Impl> impl_;
  TableDesc desc_;
};

// Indexed files that change together and are read together (above). Every file of a group is
// opened with the mode the group was made with (kReadOnly or not; kCreate and kLocal as given).
class FileGroup {
 public:
  explicit FileGroup(uint32_t mode);
  ~FileGroup();
  FileGroup(const FileGroup&) = delete;
  FileGroup& operator=(const FileGroup&) = delete;

  // Opens the indexed file `name` as the group's next file, as IndexedFile::open does. The file
  // lives as long as the returned object (which may outlive the group).
  std::unique_ptr<IndexedFile> open(const std::string& name, const TableDesc& desc, int& error);
  std::unique_ptr<IndexedFile> open(const std::string& name, const TableDesc& desc, int& error, std::string& detail);
  int size() const;

  // A write transaction on every file of the group: committed together or not at all. Begin
  // waits for the group's snapshots in other processes to end, and for another writer.
  int begin();
  int commit();
  void rollback();

  // A snapshot: until end_snapshot, every read of every file of the group sees the files as they
  // were when it began; a writer elsewhere commits before it or waits until it ends. 0, or an
  // error number (kLocked when a writer kept the files too long).
  int begin_snapshot();
  void end_snapshot();
  bool in_snapshot() const { return in_snapshot_; }
  // The server's text of the group's last failure; empty for local files.
  std::string server_error() const;

  struct Connection;  // the engine's one connection to every file of the group (datafile.cc)

 private:
  std::unique_ptr<IndexedFile> open_on_server(const std::string& name, const TableDesc& desc, int& error,
                                              std::string& detail);
  uint32_t mode_;
  std::shared_ptr<Connection> connection_;
  bool in_snapshot_ = false;
};

// A server-qualified file name: a host part before a ":" that is not the first character (and
// no "/" before it).
bool names_server(std::string_view name);

// Removes an indexed file: the local file name.idx, or on a server the table of `desc` and its
// schema when nothing else is left in it. 0, or an error number (with the server's words in
// `detail`).
int remove_file(const std::string& name, const TableDesc& desc, uint32_t mode, std::string& detail);

// A configured server.
struct Server {
  std::string name;
  std::string connection;  // the libpq connection string
};
using Getenv = std::function<const char*(const char*)>;
// The servers of the configuration (TAVSERVERS): 0, or kTooManyServers or kNoSuchFile (the file
// cannot be read) with `detail` saying why. No TAVSERVERS: no servers.
int read_servers(std::vector<Server>& servers, std::string& detail, const Getenv& getenv_fn = {});

// Where a name leads: a path and the mode bits that say where it is (kLocal, a server's
// kServerBits, or 0: a local name as it stands).
struct FileLocation {
  std::string path;
  uint32_t mode = 0;
  std::string server;  // the server's name
};
// Resolves a name (above). 0, or an error number with `detail`: kNetworkNotAllowed for a host
// that is not a configured server (or when TAVSERVER names none), kTooManyServers.
int locate(std::string_view name, FileLocation& where, std::string& detail, const Getenv& getenv_fn = {});
// The number (0-based) of the server of a mode word; -1 for a local file.
inline int server_number(uint32_t mode) { return static_cast<int>((mode & kServerBits) >> 28) - 1; }
inline uint32_t server_mode(int number) { return static_cast<uint32_t>(number + 1) << 28; }

// The name with a leading ":" (local file) removed.
std::string_view local_name(std::string_view name);

// Searches the directories of `search_path` (separated by ":"; the current directory when empty,
// as is an empty entry or ".") for a relative `name`; an absolute name is checked as it is.
// Returns the path found: the name itself when found in the current directory.
std::optional<std::string> find_file(std::string_view name, std::string_view search_path);
// The paths find_file tries, in its order.
std::vector<std::string> search_candidates(std::string_view name, std::string_view search_path);

// The file that holds the indexed file `name` on this machine; empty when it is not a local
// file.
std::string file_path(std::string_view name);

// Reads up to `count` bytes from the start of a text file; nothing when it cannot be read or is
// not a regular file (which is not opened).
std::optional<std::string> read_text_file(const std::string& path, size_t count);

}  // namespace tav::datafile
