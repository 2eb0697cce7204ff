// tav-gen-program: writes generated programs for the compile benchmarks.
//
//   tav-gen-program [--lines N] [--seed S] [--files K] OUT
//   tav-gen-program --schema OBJECTS FIELDS OUT
//   tav-gen-program --object-program OBJECTS FIELDS NAMED [--defining] OUT
//
// With --files K, OUT is a directory and K programs named bench-<i>.spl are written into it
// (seeds S, S+1, ...); otherwise OUT is the file written.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "bench/generator.h"

namespace {

int usage() {
  std::fprintf(stderr,
               "usage: tav-gen-program [--lines N] [--seed S] [--files K] OUT\n"
               "       tav-gen-program --schema OBJECTS FIELDS OUT\n"
               "       tav-gen-program --object-program OBJECTS FIELDS NAMED [--defining] OUT\n");
  return 2;
}

bool write(const std::string& path, const std::string& text) {
  std::ofstream f(path, std::ios::binary);
  f << text;
  return static_cast<bool>(f);
}

}  // namespace

// The dictionary benchmark's schema and programs; prints the number of lines written.
int dictionary_texts(int argc, char** argv) {
  const bool schema = std::strcmp(argv[1], "--schema") == 0;
  const int need = schema ? 5 : 6;
  if (argc < need) return usage();
  tavbench::SchemaOptions o;
  o.objects = std::atoi(argv[2]);
  o.fields = std::atoi(argv[3]);
  const bool defining = !schema && argc > need && std::strcmp(argv[5], "--defining") == 0;
  const char* out = argv[argc - 1];
  const std::string text =
      schema ? tavbench::generate_schema(o) : tavbench::generate_object_program(o, std::atoi(argv[4]), defining);
  if (!write(out, text)) return 1;
  std::printf("%ld\n", tavbench::count_lines(text));
  return 0;
}

int main(int argc, char** argv) {
  if (argc > 1 && (std::strcmp(argv[1], "--schema") == 0 || std::strcmp(argv[1], "--object-program") == 0))
    return dictionary_texts(argc, argv);
  tavbench::GenOptions o;
  long files = 0;
  const char* out = nullptr;
  for (int i = 1; i < argc; ++i) {
    bool has_value = i + 1 < argc;
    if (std::strcmp(argv[i], "--lines") == 0 && has_value)
      o.lines = std::atol(argv[++i]);
    else if (std::strcmp(argv[i], "--seed") == 0 && has_value)
      o.seed = static_cast<uint32_t>(std::strtoul(argv[++i], nullptr, 10));
    else if (std::strcmp(argv[i], "--files") == 0 && has_value)
      files = std::atol(argv[++i]);
    else if (argv[i][0] != '-' && !out)
      out = argv[i];
    else
      return usage();
  }
  if (!out || o.lines < 1) return usage();
  if (files <= 0) {
    std::string text = tavbench::generate_program(o);
    if (!write(out, text)) return 1;
    std::printf("%ld\n", tavbench::count_lines(text));
    return 0;
  }
  long total = 0;
  uint32_t seed = o.seed;
  for (long i = 0; i < files; ++i) {
    o.seed = seed + static_cast<uint32_t>(i);
    std::string text = tavbench::generate_program(o);
    if (!write(std::string(out) + "/bench-" + std::to_string(i) + ".spl", text)) return 1;
    total += tavbench::count_lines(text);
  }
  std::printf("%ld\n", total);
  return 0;
}
