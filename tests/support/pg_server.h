// A PostgreSQL server of the tests' own: made with initdb in a scratch directory, listening only
// on a Unix socket there, stopped and removed at the end. When the tests run as root, the server
// runs as an unprivileged user (postgres, or nobody) through runuser.
#pragma once

#include <string>

#include "tests/support/support.h"

namespace tavtest {

class PgServer {
 public:
  PgServer();  // made and started; see usable()
  ~PgServer();
  PgServer(const PgServer&) = delete;
  PgServer& operator=(const PgServer&) = delete;

  // Whether the server runs; why not, otherwise (the server programs missing, say).
  bool usable() const { return problem_.empty(); }
  const std::string& problem() const { return problem_; }
  // Whether a server cannot be had here at all (root without an unprivileged user): the tests
  // then skip; any other problem fails them.
  bool impossible() const { return impossible_; }

  // The libpq connection string of its database, as user `user` (the server's own by default).
  std::string connection(const std::string& user = "tav") const;
  // A server configuration (TAVSERVERS) naming it `name`, written into `dir`; returns the path.
  std::string servers_file(const std::string& dir, const std::string& name = "db1") const;
  // Runs SQL through psql; its standard output (unaligned, tuples only).
  RunResult psql(const std::string& sql) const;

  bool start();
  void stop(bool immediate = false);

 private:
  RunResult as_owner(const std::vector<std::string>& argv) const;
  std::string bin(const std::string& program) const { return bin_dir_ + "/" + program; }
  static std::string read_file_or_empty(const std::string& path);

  TempDir dir_;
  std::string bin_dir_;
  std::string owner_;  // the user the server runs as when the tests run as root
  std::string problem_;
  int port_ = 0;
  bool running_ = false;
  bool impossible_ = false;
};

}  // namespace tavtest
