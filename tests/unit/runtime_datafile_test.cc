// The indexed-file engine: index order with ascending and descending parts, duplicates, start
// and read-next at the ends, rewrite and delete, create on open, a database made by another
// client, and files that are not indexed files.

#include "runtime/datafile.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/support.h"

namespace {

using namespace tav::datafile;
using tavtest::TempDir;

// name TEXT(6) at 0, grp INTEGER(2, signed) at 6, seq INTEGER(4) at 8; index 1 unique on name,
// index 2 on grp ascending then seq descending, index 3 on seq descending, both with duplicates.
TableDesc people() {
  TableDesc d;
  d.table = "people";
  d.columns = {{"name", 6, 'S', 1, 6}, {"grp", 0x2480, 'N', 1, 2}, {"seq", 0x2100, 'N', 1, 4}};
  d.indexes = {{{{"name", false}}, false}, {{{"grp", false}, {"seq", true}}, true}, {{{"seq", true}}, true}};
  return d;
}

struct Row {
  std::string name;
  int grp = 0;
  int seq = 0;
};

std::vector<uint8_t> bytes(const Row& r) {
  std::vector<uint8_t> b(12, ' ');
  for (size_t i = 0; i < 6; ++i) b[i] = i < r.name.size() ? static_cast<uint8_t>(r.name[i]) : ' ';
  b[6] = static_cast<uint8_t>(r.grp >> 8);
  b[7] = static_cast<uint8_t>(r.grp);
  for (int i = 0; i < 4; ++i) b[static_cast<size_t>(8 + i)] = static_cast<uint8_t>(r.seq >> (8 * (3 - i)));
  return b;
}

Row row_of(const std::vector<uint8_t>& b) {
  Row r;
  r.name.assign(b.begin(), b.begin() + 6);
  r.name.erase(r.name.find_last_not_of(' ') + 1);
  r.grp = static_cast<int16_t>(b[6] << 8 | b[7]);
  r.seq = b[8] << 24 | b[9] << 16 | b[10] << 8 | b[11];
  return r;
}

// Reads the rest of the index in order, as "name" words.
std::string rest(IndexedFile& f) {
  std::string out;
  std::vector<uint8_t> b(12);
  int rc;
  while ((rc = f.read(0, b.data(), kNextRow)) == 0) out += (out.empty() ? "" : " ") + row_of(b).name;
  EXPECT_EQ(rc, kEndOfFile);
  return out;
}

std::unique_ptr<IndexedFile> open_people(const std::string& name, uint32_t mode = kCreate) {
  int error = -1;
  auto f = IndexedFile::open(name, people(), mode, error);
  EXPECT_TRUE(f) << "error " << error;
  return f;
}

TEST(IndexedFile, OrderDuplicatesAndTheEnds) {
  TempDir dir;
  auto f = open_people(dir / "P4");
  ASSERT_TRUE(f);
  EXPECT_TRUE(tavtest::file_exists(dir / "P4.idx"));
  for (const Row& r : {Row{"carl", 2, 1}, Row{"anna", 1, 5}, Row{"bert", 2, 7}, Row{"dora", -1, 3},
                       Row{"emil", 2, 7}})
    ASSERT_EQ(f->write(bytes(r).data()), 0) << r.name;
  EXPECT_EQ(f->write(bytes({"anna", 9, 9}).data()), kDuplicate);  // index 1 is unique

  // Each start and the rest of its index from there. Index 2: grp ascending, seq descending;
  // index 3: one descending part; equal keys in the order written in both.
  const std::tuple<int, Row, uint32_t, const char*> starts[] = {
      {1, {}, kFirstRow, "anna bert carl dora emil"}, {2, {}, kFirstRow, "dora anna bert emil carl"},
      {2, {"", 2, 7}, 0, "bert emil carl"},  // at least (2, 7): the first of the equal keys
      {2, {"", 2, 6}, 0, "carl"},            // (2, 6) comes after (2, 7) in this order
      {2, {"", 3, 0}, 0, ""}, {3, {}, kFirstRow, "bert emil anna dora carl"}, {3, {"", 0, 6}, 0, "anna dora carl"},
  };
  std::vector<uint8_t> b;
  for (const auto& [index, key, mode, names] : starts) {
    b = bytes(key);
    EXPECT_EQ(f->start(index, b.data(), mode), 0) << index << " " << names;
    EXPECT_EQ(rest(*f), names) << index << " " << names;
  }
  EXPECT_EQ(f->read(0, b.data(), kNextRow), kEndOfFile);  // stays at the end

  // Read equal, then on from there.
  b = bytes({"bert"});
  ASSERT_EQ(f->read(1, b.data(), 0), 0);
  EXPECT_EQ(row_of(b).seq, 7);
  EXPECT_EQ(rest(*f), "carl dora emil");
  b = bytes({"zack"});
  EXPECT_EQ(f->read(1, b.data(), 0), kNoRecord);
}

TEST(IndexedFile, RewriteDeleteAndReopen) {
  TempDir dir;
  {
    auto f = open_people(dir / "P4");
    ASSERT_TRUE(f);
    ASSERT_EQ(f->write(bytes({"anna", 1, 1}).data()), 0);
    ASSERT_EQ(f->write(bytes({"bert", 1, 2}).data()), 0);
    EXPECT_EQ(f->rewrite(bytes({"anna", -7, 42}).data()), 0);
    EXPECT_EQ(f->remove(bytes({"bert"}).data()), 0);
    EXPECT_EQ(f->remove(bytes({"bert"}).data()), kNoRecord);
    EXPECT_EQ(f->rewrite(bytes({"zack", 1, 1}).data()), kNoRecord);
  }
  auto f = open_people(dir / "P4", kReadOnly);
  ASSERT_TRUE(f);
  std::vector<uint8_t> b = bytes({"anna"});
  ASSERT_EQ(f->read(1, b.data(), 0), 0);
  EXPECT_EQ(row_of(b).grp, -7);
  EXPECT_EQ(row_of(b).seq, 42);
  EXPECT_EQ(f->write(bytes({"carl"}).data()), 13);  // read only
}

TEST(IndexedFile, OpeningFailures) {
  TempDir dir;
  int error = 0;
  EXPECT_FALSE(IndexedFile::open(dir / "none", people(), 0, error));
  EXPECT_EQ(error, kNoSuchFile);
  EXPECT_FALSE(tavtest::file_exists(dir / "none.idx"));

  // Not an SQLite database: refused, with or without create, and left as it was.
  tavtest::write_file(dir / "junk.idx", "this is not a database, and never was\n");
  EXPECT_FALSE(IndexedFile::open(dir / "junk", people(), 0, error));
  EXPECT_EQ(error, kBadFile);
  EXPECT_FALSE(IndexedFile::open(dir / "junk", people(), kCreate, error));
  EXPECT_EQ(error, kBadFile);
  EXPECT_EQ(tavtest::read_file(dir / "junk.idx"), "this is not a database, and never was\n");

  // A database without the table, and one whose table lacks a column.
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open((dir / "other.idx").c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db, "CREATE TABLE people (name TEXT, grp INTEGER)", nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(db);
  EXPECT_FALSE(IndexedFile::open(dir / "other", people(), 0, error));
  EXPECT_EQ(error, kBadFile);

  // File servers do not exist here; ":" names a local file.
  EXPECT_FALSE(IndexedFile::open("host:/dict/P4", people(), kCreate, error));
  EXPECT_EQ(error, kNetworkNotAllowed);
  EXPECT_TRUE(IndexedFile::open(":" + (dir / "local"), people(), kCreate, error));
  EXPECT_TRUE(tavtest::file_exists(dir / "local.idx"));
}

TEST(IndexedFile, DatabaseOfAnotherClient) {
  TempDir dir;
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open((dir / "P4.idx").c_str(), &db), SQLITE_OK);
  // Other column types, an extra column, NULLs, and no indexes at all.
  ASSERT_EQ(sqlite3_exec(db,
                         "CREATE TABLE people (extra, seq NUMERIC, grp, name VARCHAR(20));"
                         "INSERT INTO people VALUES (1, 9, 2, 'bea');"
                         "INSERT INTO people VALUES (2, NULL, 1, 'al');",
                         nullptr, nullptr, nullptr),
            SQLITE_OK);
  sqlite3_close(db);
  auto f = open_people(dir / "P4", kReadOnly);
  ASSERT_TRUE(f);
  std::vector<uint8_t> b(12);
  EXPECT_EQ(f->start(1, b.data(), kFirstRow), 0);
  EXPECT_EQ(rest(*f), "al bea");
  b = bytes({"al"});
  ASSERT_EQ(f->read(1, b.data(), 0), 0);
  EXPECT_EQ(row_of(b).seq, 0);  // NULL reads as 0
  EXPECT_EQ(row_of(b).grp, 1);
}

// Writers in several processes at once wait for each other: no write fails, none is lost.
TEST(IndexedFile, ConcurrentWriters) {
  TempDir dir;
  constexpr int kWriters = 8, kRows = 40;
  std::vector<pid_t> children;
  for (int w = 0; w < kWriters; ++w) {
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      int error = 0;
      auto f = IndexedFile::open(dir / "P4", people(), kCreate, error);
      int failures = f ? 0 : 1;
      for (int i = 0; f && i < kRows; ++i)
        failures += f->write(bytes({std::to_string(w * 100 + i), w, i}).data()) != 0;
      _exit(failures);
    }
    children.push_back(pid);
  }
  for (pid_t pid : children) {
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a writer failed";
  }
  auto f = open_people(dir / "P4", kReadOnly);
  ASSERT_TRUE(f);
  std::vector<uint8_t> b(12);
  f->start(1, b.data(), kFirstRow);
  int rows = 0;
  while (f->read(0, b.data(), kNextRow) == 0) ++rows;
  EXPECT_EQ(rows, kWriters * kRows);
}

// The number of rows of a file, read through its own connection.
int rows_of(const std::string& name) {
  int error = 0;
  auto f = IndexedFile::open(name, people(), kReadOnly, error);
  if (!f) return -1;
  std::vector<uint8_t> b(12);
  f->start(1, b.data(), kFirstRow);
  int rows = 0;
  while (f->read(0, b.data(), kNextRow) == 0) ++rows;
  return rows;
}

// Files of a group commit together or not at all, and a snapshot sees them as of one moment: a
// writer in another process commits only once the snapshot has ended.
TEST(FileGroup, CommitsTogetherAndReadsOneMoment) {
  TempDir dir;
  const std::string a = dir / "A4", b = dir / "B4";
  {
    FileGroup group(kCreate);
    int error = 0;
    auto fa = group.open(a, people(), error), fb = group.open(b, people(), error);
    ASSERT_TRUE(fa && fb) << error;
    EXPECT_EQ(group.size(), 2);
    ASSERT_EQ(group.begin(), 0);
    ASSERT_EQ(fa->write(bytes({"anna", 1, 1}).data()), 0);
    ASSERT_EQ(fb->write(bytes({"anna", 1, 1}).data()), 0);
    group.rollback();
    EXPECT_EQ(rows_of(a) + rows_of(b), 0);
    ASSERT_EQ(group.begin(), 0);
    ASSERT_EQ(fa->write(bytes({"bert", 1, 1}).data()), 0);
    ASSERT_EQ(fb->write(bytes({"bert", 1, 1}).data()), 0);
    ASSERT_EQ(group.commit(), 0);
    EXPECT_EQ(rows_of(a), 1);
    EXPECT_EQ(rows_of(b), 1);
  }

  // The writer is forked before this process opens anything (open files must not cross a fork),
  // and starts once the snapshot has begun.
  int go[2], ready[2];
  ASSERT_EQ(pipe(go), 0);
  ASSERT_EQ(pipe(ready), 0);
  const pid_t writer = fork();
  ASSERT_GE(writer, 0);
  if (writer == 0) {
    char g = 0;
    if (read(go[0], &g, 1) != 1) _exit(2);
    FileGroup group(0);
    int e = 0;
    auto fa = group.open(a, people(), e), fb = group.open(b, people(), e);
    const bool ok = fa && fb && group.begin() == 0 && fa->write(bytes({"carl", 2, 2}).data()) == 0 &&
                    fb->write(bytes({"carl", 2, 2}).data()) == 0;
    if (write(ready[1], &g, 1) != 1) _exit(2);
    _exit(ok && group.commit() == 0 ? 0 : 1);  // waits for the snapshot to end
  }
  FileGroup reader(kReadOnly);
  int error = 0;
  auto ra = reader.open(a, people(), error), rb = reader.open(b, people(), error);
  ASSERT_TRUE(ra && rb) << error;
  ASSERT_EQ(reader.begin_snapshot(), 0);
  ASSERT_EQ(write(go[1], "g", 1), 1);
  char c = 0;
  ASSERT_EQ(read(ready[0], &c, 1), 1);
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  std::vector<uint8_t> row = bytes({"carl"});
  EXPECT_EQ(ra->read(1, row.data(), 0), kNoRecord);
  EXPECT_EQ(rb->read(1, row.data(), 0), kNoRecord);
  int status = 0;
  EXPECT_EQ(waitpid(writer, &status, WNOHANG), 0);  // still waiting to commit
  reader.end_snapshot();
  waitpid(writer, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  ASSERT_EQ(reader.begin_snapshot(), 0);
  EXPECT_EQ(ra->read(1, row.data(), 0), 0);
  EXPECT_EQ(rb->read(1, row.data(), 0), 0);
  for (int fd : {go[0], go[1], ready[0], ready[1]}) close(fd);
}

TEST(FileSearch, PathsAndNames) {
  TempDir dir;
  std::filesystem::create_directory(dir / "b");
  tavtest::write_file(dir / "b/x", "");
  const std::string path = (dir / "a") + ":" + (dir / "b");
  EXPECT_EQ(find_file("x", path), dir / "b/x");
  EXPECT_EQ(find_file("y", path), std::nullopt);
  EXPECT_EQ(find_file(dir / "b/x", "/nowhere"), dir / "b/x");  // absolute: as given
  EXPECT_TRUE(names_server("host:/dict/"));
  EXPECT_FALSE(names_server(":/dict/"));
  EXPECT_FALSE(names_server("/a:b/dict"));
  EXPECT_EQ(local_name(":/dict/"), "/dict/");
  EXPECT_EQ(read_text_file(dir / "b/x", 19), "");
  EXPECT_EQ(read_text_file(dir / "none", 19), std::nullopt);
  ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0644), 0);
  EXPECT_EQ(read_text_file(dir / "fifo", 19), std::nullopt);  // refused, not waited on
}

// Where names lead under a server configuration: a configured host, TAVSERVER for the rest, ":"
// for local files, and the configurations that are refused.
TEST(FileSearch, ServerNamesAndTheirModeWord) {
  TempDir dir;
  std::map<std::string, std::string> vars{{"TAVSERVERS", dir / "servers"}};
  const Getenv env = [&](const char* name) -> const char* {
    auto it = vars.find(name);
    return it == vars.end() ? nullptr : it->second.c_str();
  };
  tavtest::write_file(dir / "servers", "# comment\n\nmain host=/x dbname=a\n  spare\tservice=b\n");
  std::vector<Server> servers;
  std::string detail;
  ASSERT_EQ(read_servers(servers, detail, env), 0) << detail;
  ASSERT_EQ(servers.size(), 2u);
  EXPECT_EQ(servers[1].name, "spare");
  EXPECT_EQ(servers[1].connection, "service=b");

  FileLocation at;
  EXPECT_EQ(locate("spare:app/shop", at, detail, env), 0);
  EXPECT_EQ(at.path, "app/shop");
  EXPECT_EQ(at.mode, 0x20000000u);  // server 1: its number + 1 in the high bits
  EXPECT_EQ(server_number(at.mode), 1);
  EXPECT_EQ(locate("app/shop", at, detail, env), 0);
  EXPECT_EQ(at.mode, 0u);
  vars["TAVSERVER"] = "main";
  EXPECT_EQ(locate("app/shop", at, detail, env), 0);
  EXPECT_EQ(at.mode, 0x10000000u);
  EXPECT_EQ(locate(":app/shop", at, detail, env), 0);  // local even so
  EXPECT_EQ(at.mode, kLocal);
  EXPECT_EQ(at.path, "app/shop");
  EXPECT_EQ(locate("other:app/shop", at, detail, env), kNetworkNotAllowed);
  EXPECT_EQ(at.path, "other:app/shop");
  EXPECT_EQ(locate("main:" + std::string(64, 'x'), at, detail, env), kBadArgument);  // longer than a server's names

  std::string many;
  for (int i = 0; i < 16; ++i) many += "s" + std::to_string(i) + " dbname=x\n";
  tavtest::write_file(dir / "servers", many);
  EXPECT_EQ(read_servers(servers, detail, env), kTooManyServers);
  tavtest::write_file(dir / "servers", "bad/name dbname=x\n");
  EXPECT_EQ(read_servers(servers, detail, env), kBadArgument);
  EXPECT_NE(detail.find(":1:"), std::string::npos) << detail;
  vars["TAVSERVERS"] = dir / "none";
  EXPECT_EQ(locate("main:x", at, detail, env), kNoSuchFile);
  // A file on a server whose configuration is gone is refused, not taken for a local one.
  int error = 0;
  EXPECT_EQ(IndexedFile::open("x", people(), server_mode(0), error), nullptr);
  EXPECT_NE(error, 0);
}

}  // namespace
