// The command line of tavdump.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "codegen/opspace.h"
#include "runtime/output_open.h"
#include "tav_version.h"
#include "tavdump.h"

namespace tav::dump {

namespace {

constexpr char kUsage[] =
    "usage: tavdump [-h] [-r] file.op6\n"
    "Prints an operations table file: the header, the text items, the modes, each section with\n"
    "its BEFORE, DETAIL and AFTER op lists, the fields, the objects and the header's lists.\n"
    "  -h         print the header only\n"
    "  -r         also print every record as raw hex bytes under its decoding\n"
    "  --help     print this text and exit\n"
    "  --version  print the product version and exit\n"
    "Exit status: 0 done, 1 the file cannot be read or is damaged, 2 usage error.\n";

int usage_error(const char* what) {
  std::fprintf(stderr, "tavdump: %s\n%s", what, kUsage);
  return 2;
}

// The largest table there can be: a full op space and a full data area.
constexpr off_t kLargestTable = static_cast<off_t>(kOpSpaceSize) + kDataAreaSize;

// Reads a regular file of at most kLargestTable bytes; anything else (a directory, a FIFO, a
// device, a file too large to be a table) is refused with `why` set, without reading it.
bool read_table_file(const char* path, std::vector<uint8_t>& bytes, std::string& why) {
  const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    why = std::strerror(errno);
    return false;
  }
  struct stat st {};
  bool ok = fstat(fd, &st) == 0;
  if (!ok) {
    why = std::strerror(errno);
  } else if (!S_ISREG(st.st_mode)) {
    why = "not an operations table (not a regular file)";
    ok = false;
  } else if (st.st_size > kLargestTable) {
    why = "not an operations table (" + std::to_string(st.st_size) + " bytes, more than any table)";
    ok = false;
  }
  uint8_t buf[65536];
  ssize_t n = 0;
  while (ok && (n = read(fd, buf, sizeof buf)) != 0) {
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 || bytes.size() + static_cast<size_t>(n) > static_cast<size_t>(kLargestTable)) {
      why = n < 0 ? std::strerror(errno) : "not an operations table (more bytes than any table)";
      ok = false;
      break;
    }
    bytes.insert(bytes.end(), buf, buf + n);
  }
  close(fd);
  return ok;
}

// Standard output flushed and closed: a listing that did not reach its file (a full disk, a
// closed pipe) is a failure of the run, said on standard error. The caller clears errno before
// its writes, so that the reason of a failed write before the flush is kept.
bool output_written() {
  const int error = close_standard_output();
  if (error == 0) return true;
  std::fprintf(stderr, "tavdump: cannot write the listing: %s\n", std::strerror(error));
  return false;
}

}  // namespace

int tavdump_main(int argc, char** argv) {
  DumpOptions options;
  const char* file = nullptr;
  bool options_done = false;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (!options_done && a == "--help") {
      errno = 0;
      std::fputs(kUsage, stdout);
      return output_written() ? 0 : 1;
    }
    if (!options_done && a == "--version") return print_version("tavdump");
    if (!options_done && a == "--") {
      options_done = true;
    } else if (!options_done && a.size() > 1 && a[0] == '-') {
      for (size_t j = 1; j < a.size(); ++j) {
        if (a[j] == 'h')
          options.header_only = true;
        else if (a[j] == 'r')
          options.raw = true;
        else
          return usage_error(("unknown option -" + std::string(1, a[j])).c_str());
      }
    } else if (file) {
      return usage_error("only one file can be dumped at a time");
    } else {
      file = argv[i];
    }
  }
  if (!file) return usage_error("no file given");

  std::vector<uint8_t> bytes;
  std::string why;
  if (!read_table_file(file, bytes, why)) {
    std::fprintf(stderr, "tavdump: %s: %s\n", file, why.c_str());
    return 1;
  }
  DumpResult r = dump_op6(bytes.data(), bytes.size(), options);
  errno = 0;
  std::fwrite(r.text.data(), 1, r.text.size(), stdout);
  if (!output_written()) return 1;
  if (!r.ok) {
    std::fprintf(stderr, "tavdump: %s: %s: %s\n", file, r.not_a_table ? "not an operations table" : "damaged",
                 r.damage.c_str());
    return 1;
  }
  return 0;
}

}  // namespace tav::dump
