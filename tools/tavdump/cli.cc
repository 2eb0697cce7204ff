// The command line of tavdump.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tavdump.h"

namespace tav::dump {

namespace {

constexpr char kUsage[] =
    "usage: tavdump [-h] [-r] file.op6\n"
    "Prints an operations table file: the header, the text items, the modes, each section with\n"
    "its BEFORE, DETAIL and AFTER op lists, the fields, the objects and the header's lists.\n"
    "  -h      print the header only\n"
    "  -r      also print every record as raw hex bytes under its decoding\n"
    "  --help  print this text\n"
    "Exit status: 0 done, 1 the file cannot be read or is damaged, 2 usage error.\n";

int usage_error(const char* what) {
  std::fprintf(stderr, "tavdump: %s\n%s", what, kUsage);
  return 2;
}

bool read_whole(const char* path, std::vector<uint8_t>& bytes, int& err) {
  FILE* f = std::fopen(path, "rb");
  if (!f) {
    err = errno;
    return false;
  }
  uint8_t buf[65536];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) bytes.insert(bytes.end(), buf, buf + n);
  bool ok = !std::ferror(f);
  err = ok ? 0 : errno;
  std::fclose(f);
  return ok;
}

}  // namespace

int tavdump_main(int argc, char** argv) {
  DumpOptions options;
  const char* file = nullptr;
  bool options_done = false;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (!options_done && a == "--help") {
      std::fputs(kUsage, stdout);
      return 0;
    }
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
  int err = 0;
  if (!read_whole(file, bytes, err)) {
    std::fprintf(stderr, "tavdump: %s: %s\n", file, std::strerror(err));
    return 1;
  }
  DumpResult r = dump_op6(bytes.data(), bytes.size(), options);
  std::fwrite(r.text.data(), 1, r.text.size(), stdout);
  std::fflush(stdout);
  if (!r.ok) {
    std::fprintf(stderr, "tavdump: %s: damaged: %s\n", file, r.damage.c_str());
    return 1;
  }
  return 0;
}

}  // namespace tav::dump
