// The corpus of faulty programs (tests/diagnostics/corpus): each keeps its classic output, its
// gcc output is the golden one (columns and notes included), every JSON location points at the
// word its message is about, and Neovim's quickfix list reads the gcc lines as they were meant.
//
// TAV_UPDATE_GOLDEN=1 rewrites the .gcc files from this build, and the .classic files from the
// product directory TAV_CLASSIC_TAVRIN names (a build from before the formats existed).
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <regex>

#include "tests/e2e/driver_fixture.h"

namespace drvtest {
namespace {

namespace fs = std::filesystem;

std::string corpus_dir() { return tavtest::source_dir() + "/tests/diagnostics/corpus"; }

std::vector<std::string> corpus_programs() {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(corpus_dir()))
    if (entry.path().extension() == ".spl") names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

// The corpus, includes and all, in a scratch directory.
void copy_corpus(const TempDir& dir) {
  fs::copy(corpus_dir(), dir.path(), fs::copy_options::recursive | fs::copy_options::overwrite_existing);
  for (const auto& entry : fs::directory_iterator(dir.path()))
    if (entry.path().extension() == ".gcc" || entry.path().extension() == ".classic") fs::remove(entry.path());
}

std::string base_name(const std::string& program) { return program.substr(0, program.size() - 4); }

// What a classic run shows: standard output, the listing and the status.
std::string classic_outcome(const RunResult& r, const TempDir& dir, const std::string& program) {
  const std::string listing = dir / (base_name(program) + ".err");
  return r.out + "\n--- listing\n" + (file_exists(listing) ? read_file(listing) : "") + "\n--- status " +
         std::to_string(r.status) + "\n";
}

bool updating() {
  const char* update = std::getenv("TAV_UPDATE_GOLDEN");
  return update && *update == '1';
}

void check_golden(const std::string& name, const std::string& actual) {
  const std::string path = corpus_dir() + "/" + name;
  if (updating()) {
    write_file(path, actual);
    return;
  }
  ASSERT_TRUE(file_exists(path)) << path << " is missing: run with TAV_UPDATE_GOLDEN=1";
  EXPECT_EQ(actual, read_file(path)) << name;
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

// The characters [from, to) of a line, columns counted in characters from 1.
std::string columns(const std::string& line, int from, int to) {
  std::string out;
  int column = 1;
  for (size_t i = 0; i < line.size(); ++i) {
    if ((static_cast<unsigned char>(line[i]) & 0xc0) != 0x80 && i > 0) ++column;
    if (column >= from && column < to) out += line[i];
  }
  return out;
}

std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

// Every location of a JSON diagnostic lies in its file, and a message that quotes a word is
// placed on that word.
void check_locations(const TempDir& dir, const nlohmann::json& diagnostic, const std::string& program) {
  const std::string message = diagnostic.value("message", "");
  for (const auto& location : diagnostic.value("locations", nlohmann::json::array())) {
    const auto& caret = location["caret"];
    const std::string file = caret.value("file", "");
    SCOPED_TRACE(program + ": " + message + " at " + caret.dump());
    ASSERT_TRUE(file_exists(dir / file));
    const std::vector<std::string> lines = lines_of(read_file(dir / file));
    const int line = caret.value("line", 0);
    ASSERT_GE(line, 1);
    ASSERT_LE(line, static_cast<int>(lines.size()));
    if (!caret.contains("column")) continue;
    const int column = caret["column"];
    const int finish = location.contains("finish") ? location["finish"].value("column", column) + 1 : column + 1;
    const std::string& text = lines[static_cast<size_t>(line - 1)];
    ASSERT_GE(column, 1);
    ASSERT_LE(finish - 1, static_cast<int>(text.size()) + 1);
    const size_t quote = message.find(" - '");
    if (quote == std::string::npos || message.back() == ']') continue;
    const std::string word = message.substr(quote + 4, message.size() - quote - 5);
    if (word == "[EOF]" || diagnostic.value("code", "").rfind("pp_", 0) == 0) continue;
    // A literal is quoted without its quotes; a name is quoted as it was read (lower case).
    std::string at = lower(columns(text, column, finish));
    if (!at.empty() && (at.front() == '"' || at.front() == '\'')) {
      const char mark = at.front();
      at.erase(0, 1);
      if (!at.empty() && at.back() == mark) at.pop_back();  // an unterminated literal has no closing quote
    }
    EXPECT_EQ(at, lower(word));
  }
  for (const auto& child : diagnostic.value("children", nlohmann::json::array())) check_locations(dir, child, program);
}

TEST(DiagnosticsCorpus, ClassicOutputGccGoldenAndJsonPlaces) {
  const std::vector<std::string> programs = corpus_programs();
  ASSERT_GE(programs.size(), 60u);
  const char* classic_tavrin = std::getenv("TAV_CLASSIC_TAVRIN");
  for (const std::string& program : programs) {
    SCOPED_TRACE(program);
    TempDir dir;
    copy_corpus(dir);
    const std::string base = base_name(program);

    Env classic_env;
    if (updating() && classic_tavrin) classic_env.set.push_back(std::string("TAVRIN=") + classic_tavrin);
    if (updating() && !classic_tavrin) ADD_FAILURE() << "TAV_CLASSIC_TAVRIN must name the product to take the classic output from";
    std::vector<std::string> classic_args{"-l", "-n", program};
    if (updating() && classic_tavrin) classic_args.insert(classic_args.begin(), std::string(classic_tavrin) + "/bin/tavcmp");
    const RunResult classic =
        updating() && classic_tavrin ? tavtest::run(classic_args, {dir.path(), classic_env.set, {}, {}}) : tavcmp(dir.path(), classic_args);
    const std::string classic_text = classic_outcome(classic, dir, program);
    check_golden(base + ".classic", classic_text);
    const std::string listing = dir / (base + ".err");
    const std::string classic_listing = file_exists(listing) ? read_file(listing) : "";

    const RunResult gcc = tavcmp(dir.path(), {"-n", "--diagnostics-format=gcc", program});
    EXPECT_EQ(gcc.out, "");
    EXPECT_EQ(file_exists(listing) ? read_file(listing) : "", classic_listing);  // the same listing
    check_golden(base + ".gcc", gcc.err);
    EXPECT_EQ(gcc.status, contains(gcc.err, ": error: ") ? 1 : 0);

    const RunResult json = tavcmp(dir.path(), {"-n", "--diagnostics-format=json", program});
    const auto doc = nlohmann::json::parse(json.out, nullptr, false);
    ASSERT_TRUE(doc.is_array()) << json.out;
    for (const auto& diagnostic : doc) check_locations(dir, diagnostic, program);
  }
}

// Neovim's quickfix list, under its default errorformat, holds every located line of the gcc
// output with its file, line and column.
TEST(DiagnosticsCorpus, NeovimReadsTheGccLines) {
  const std::string nvim_path = nvim_program();
  if (nvim_path.empty()) GTEST_FAIL() << "nvim is needed (Debian package neovim)";
  TempDir dir;
  copy_corpus(dir);
  std::string all;
  for (const std::string& program : corpus_programs()) all += tavcmp(dir.path(), {"-n", "--diagnostics-format=gcc", program}).err;
  write_file(dir / "errors.txt", all);

  std::vector<std::string> expected;
  // A line without a column is read with column 0.
  const std::regex located(R"(^([^ :][^:]*):(\d+):(?:(\d+):)? (error|warning|note): )");
  for (const std::string& line : lines_of(all)) {
    std::smatch m;
    if (std::regex_search(line, m, located))
      expected.push_back(m[1].str() + ":" + m[2].str() + ":" + (m[3].matched ? m[3].str() : "0"));
  }
  ASSERT_GT(expected.size(), 60u);

  const RunResult nvim = tavtest::run(
      {nvim_path, "--headless", "--clean", "-c", "cfile errors.txt", "-c",
       "call writefile(map(filter(getqflist(), 'v:val.valid'), 'bufname(v:val.bufnr) . \":\" . v:val.lnum . \":\" . v:val.col'), 'qf.txt')",
       "-c", "qa!"},
      {dir.path(), {}, {}, {}});
  ASSERT_EQ(nvim.status, 0) << nvim.err;
  std::vector<std::string> read = lines_of(read_file(dir / "qf.txt"));
  if (!read.empty() && read.back().empty()) read.pop_back();
  EXPECT_EQ(read, expected);
}

}  // namespace
}  // namespace drvtest
