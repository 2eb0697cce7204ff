#include "tests/support/pg_server.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

namespace tavtest {

namespace {

// The directory of initdb, pg_ctl, postgres and psql: TAV_PG_BINDIR, or the newest of Debian's.
std::string find_bin_dir() {
  if (const char* dir = std::getenv("TAV_PG_BINDIR"); dir && *dir) return dir;
  std::vector<std::string> found;
  std::error_code ec;
  for (const auto& e : std::filesystem::directory_iterator("/usr/lib/postgresql", ec))
    if (file_exists(e.path().string() + "/bin/initdb")) found.push_back(e.path().string() + "/bin");
  std::sort(found.begin(), found.end(), [](const std::string& a, const std::string& b) {
    return a.size() != b.size() ? a.size() < b.size() : a < b;
  });
  return found.empty() ? "" : found.back();
}

std::string unprivileged_user() {
  for (const char* name : {"postgres", "nobody"})
    if (getpwnam(name)) return name;
  return "";
}

}  // namespace

PgServer::PgServer() {
  bin_dir_ = find_bin_dir();
  if (bin_dir_.empty()) {
    problem_ = "no PostgreSQL server programs (initdb) under /usr/lib/postgresql (the postgresql package); "
               "TAV_PG_BINDIR may name their directory";
    return;
  }
  if (geteuid() == 0) {
    owner_ = unprivileged_user();
    if (owner_.empty() || (!file_exists("/usr/sbin/runuser") && !file_exists("/sbin/runuser"))) {
      problem_ = "running as root without an unprivileged user and runuser for the server";
      impossible_ = true;
      return;
    }
    const passwd* pw = getpwnam(owner_.c_str());
    if (chown(dir_.path().c_str(), pw->pw_uid, pw->pw_gid) != 0) {
      problem_ = "cannot give the server's directory to " + owner_;
      return;
    }
  }
  ::chmod(dir_.path().c_str(), 0755);
  port_ = 20000 + static_cast<int>(getpid() % 20000);
  const RunResult init = as_owner({bin("initdb"), "-D", dir_ / "data", "-U", "tav", "-A", "trust", "-E", "SQL_ASCII",
                                   "--locale=C", "--no-sync", "--no-instructions"});
  if (init.status != 0) {
    problem_ = "initdb failed: " + init.err;
    return;
  }
  if (!start()) problem_ = "the server did not start: " + read_file_or_empty(dir_ / "log");
}

PgServer::~PgServer() {
  if (running_) stop(true);
}

std::string PgServer::read_file_or_empty(const std::string& path) {
  return file_exists(path) ? read_file(path) : std::string();
}

RunResult PgServer::as_owner(const std::vector<std::string>& argv) const {
  if (owner_.empty()) return run(argv);
  std::vector<std::string> full{file_exists("/usr/sbin/runuser") ? "/usr/sbin/runuser" : "/sbin/runuser", "-u", owner_, "--"};
  full.insert(full.end(), argv.begin(), argv.end());
  RunOptions options;
  options.cwd = dir_.path();
  return run(full, options);
}

bool PgServer::start() {
  // No fsync: the tests stop the server, never the machine. Commits stay synchronous, so that an
  // immediate stop loses nothing a program was told is written.
  const std::string options = "-c listen_addresses='' -k " + dir_.path() + " -p " + std::to_string(port_) +
                              " -c fsync=off -c full_page_writes=off -c max_connections=150";
  const RunResult r = as_owner({bin("pg_ctl"), "-D", dir_ / "data", "-l", dir_ / "log", "-w", "-t", "60", "-o", options, "start"});
  running_ = r.status == 0;
  return running_;
}

void PgServer::stop(bool immediate) {
  as_owner({bin("pg_ctl"), "-D", dir_ / "data", "-w", "-m", immediate ? "immediate" : "fast", "stop"});
  running_ = false;
}

std::string PgServer::connection(const std::string& user) const {
  return "host=" + dir_.path() + " port=" + std::to_string(port_) + " dbname=postgres user=" + user;
}

std::string PgServer::servers_file(const std::string& dir, const std::string& name) const {
  const std::string path = dir + "/servers";
  write_file(path, "# the tests' server\n" + name + " " + connection() + "\n");
  return path;
}

RunResult PgServer::psql(const std::string& sql) const {
  return run({bin("psql"), "-X", "-q", "-A", "-t", "-v", "ON_ERROR_STOP=1", "-d", connection(), "-c", sql});
}

}  // namespace tavtest
