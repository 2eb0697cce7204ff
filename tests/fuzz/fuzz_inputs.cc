// Writes what the whole-compile fuzz target starts from: a dictionary of the language's keywords
// (libFuzzer's -dict format) and a seed corpus of real programs: the bundled examples, generated
// programs of every statement shape, a long one and a deeply nested one. Each seed starts with
// the option byte of the target (0: plain compile, 1: debug ops).
//
//   tav-fuzz-inputs SOURCE-DIR OUT-DIR      writes OUT-DIR/keywords.dict and OUT-DIR/seeds/
#include <filesystem>
#include <fstream>
#include <string>

#include "bench/generator.h"
#include "lexer/verbs.h"

namespace fs = std::filesystem;

namespace {

void write(const fs::path& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

void seed(const fs::path& dir, const std::string& name, const std::string& program) {
  write(dir / (name + "-0"), std::string(1, '\0') + program);
  write(dir / (name + "-1"), std::string(1, '\1') + program);
}

std::string keywords() {
  std::string dict;
  for (int i = 0; i < tav::kVerbCount; ++i) {
    std::string word(tav::kVerbTable[i].name);
    for (char& c : word)
      if (c == '_') c = '-';
    std::string quoted;
    for (char c : word) quoted += (c == '"' || c == '\\') ? std::string("\\") + c : std::string(1, c);
    dict += "\"" + quoted + "\"\n";
  }
  return dict;
}

std::string nested(int depth) {
  std::string text = "field a pic 9\nprocedure main\n";
  for (int i = 0; i < depth; ++i) text += i % 2 ? "while a < 9\n" : "if a = 1\n";
  for (int i = depth - 1; i >= 0; --i) text += i % 2 ? "end-while\n" : "end-if\n";
  return text + "end\n";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const fs::path source = argv[1], out = argv[2];
  fs::create_directories(out / "seeds");
  write(out / "keywords.dict", keywords());
  for (const auto& e : fs::directory_iterator(source / "examples")) {
    std::ifstream in(e.path(), std::ios::binary);
    seed(out / "seeds", e.path().stem().string(), std::string(std::istreambuf_iterator<char>(in), {}));
  }
  for (uint32_t s = 1; s <= 6; ++s) {
    tavbench::GenOptions o;
    o.seed = s;
    o.lines = 150;
    seed(out / "seeds", "gen-" + std::to_string(s), tavbench::generate_program(o));
  }
  tavbench::GenOptions big;
  big.lines = 4000;
  seed(out / "seeds", "long", tavbench::generate_program(big));
  seed(out / "seeds", "deep", nested(300));
  return 0;
}
