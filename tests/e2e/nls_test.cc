// Language text: the language files created and refused, programs registered under their system
// and program names (also by eight compiles at once), the texts tavcmpnls records without
// touching translations, and catalogue files that change the texts a table holds.

#include <filesystem>
#include <thread>

#include "codegen/header.h"
#include "codegen/op_records.h"
#include "tests/e2e/driver_fixture.h"

namespace {

using namespace tav;
using namespace drvtest;
using tavtest::Op6;

// The language variables for `dir`, which is made when missing.
Env language_env(const std::string& dir, const std::string& language = "fra") {
  std::filesystem::create_directories(dir);
  return Env{{"TAVLANGDIR=" + dir, "TAVLANGUAGE=" + language}, {}};
}

// Writes `source` as dir/name and compiles it with -l -n, from dir.
RunResult compile(const TempDir& dir, const std::string& name, Env env, std::vector<std::string> options = {},
                  const std::string& source = kClean) {
  std::filesystem::create_directories(std::filesystem::path(dir / name).parent_path());
  write_file(dir / name, source);
  options.insert(options.begin(), {"-l", "-n"});
  options.push_back(name);
  return tavcmp(dir.path(), options, std::move(env));
}

// Text item `item` of a table: its kind letter and its text.
std::string text_item(const Op6& t, int item) {
  const uint32_t e = t.u24(hdr::h_text) + static_cast<uint32_t>(item) * textent::size;
  return std::string(1, static_cast<char>(t.u8(e + textent::te_kind))) + ":" + t.text(t.u24(e + textent::te_text));
}

TEST(LanguageFiles, OpenedCreatedOrRefused) {
  struct Case {
    const char* language;
    bool dir_exists;
    const char* message;  // "" for none
    const char* lang_file;
  };
  const Case cases[] = {
      {"fra", true, "", "LANGfra1.idx"},
      {"fr", true, "", "LANGfr1.idx"},
      {"fren", true, "Invalid foreign language code in TAVLANGUAGE", ""},
      {"f1", true, "Invalid foreign language code in TAVLANGUAGE", ""},
      {"fr", false, "Can't open/create '%DIR%/LANGPROG' (iserrno=2)", ""},
  };
  for (const Case& c : cases) {
    TempDir dir;
    std::filesystem::create_directory(dir / "lang");
    const std::string lang = dir / (c.dir_exists ? "lang" : "none");
    const RunResult r = compile(dir, "prog.spl", Env{{"TAVLANGDIR=" + lang, "TAVLANGUAGE=" + std::string(c.language)}, {}});
    EXPECT_EQ(r.status, 0) << c.language;  // compiling goes on without the files
    EXPECT_TRUE(file_exists(dir / "prog.op6")) << c.language;
    std::string message = c.message;
    if (size_t at = message.find("%DIR%"); at != std::string::npos) message.replace(at, 5, lang);
    if (message.empty()) {
      EXPECT_EQ(r.out, "\nprog.spl:\nNo errors found\n") << c.language;
      EXPECT_EQ(list_dir(dir / "lang"), (std::vector<std::string>{"LANGPROG.idx", c.lang_file}));
    } else {
      EXPECT_TRUE(contains(r.out, "\n" + message + "\n") && contains(r.out, "Errors during NLS processing")) << r.out;
      EXPECT_TRUE(list_dir(dir / "lang").empty()) << c.language;
    }
  }
  // Without TAVLANGUAGE nothing is opened and tavcmpnls is not run.
  TempDir dir;
  const RunResult r = compile(dir, "prog.spl", Env{{"TAVLANGDIR=" + dir.path()}, {}});
  EXPECT_EQ(r.out, "\nprog.spl:\nNo errors found\n");
  EXPECT_EQ(list_dir(dir.path()), (std::vector<std::string>{"prog.op6", "prog.spl"}));
}

TEST(LanguageFiles, ProgramsRegisteredByName) {
  TempDir dir;
  const std::string lang = dir / "lang", prog = lang + "/LANGPROG.idx";
  std::filesystem::create_directory(dir / "out");
  struct Case {
    std::string file;  // written under dir
    std::string argument;
    std::vector<std::string> options;
  };
  const Case cases[] = {
      {"src/acct/gl001.spl", dir / "src/acct/gl001.spl", {}},            // system acct, program gl001
      {"src/acct/gl001.spl", "src/acct/gl001", {}},                      // the same program again
      {"gl002.v2.spl", "gl002.v2.spl", {"-o", "out"}},  // system: the current directory; the table elsewhere
      {"sub/a_rather_long_name.spl", "sub/a_rather_long_name.spl", {"-p", "sales/east"}},
  };
  for (const Case& c : cases) {
    std::filesystem::create_directories(std::filesystem::path(dir / c.file).parent_path());
    write_file(dir / c.file, kClean);
    std::vector<std::string> args = c.options;
    args.insert(args.begin(), {"-l", "-n"});
    args.push_back(c.argument);
    EXPECT_FALSE(contains(tavcmp(dir.path(), args, language_env(lang)).out, "Errors during NLS")) << c.file;
  }
  const std::string cwd = std::filesystem::path(dir.path()).filename().string().substr(0, 10);
  // tavcmpnls found each program under the number the compiler gave it.
  EXPECT_EQ(sql(prog, "SELECT sp_sys || '|' || sp_prog || '|' || sp_prog_id FROM langprog ORDER BY sp_prog_id"),
            "acct|gl001|1," + cwd + "|gl002|2,sales|a_rather_l|3");
  EXPECT_EQ(sql(lang + "/LANGfra1.idx", "SELECT group_concat(DISTINCT lang_prog_id) FROM lang"), "1,2,3");
}

// A product directory whose programs are the build's, with catalogue files for "fra".
std::string product_with_catalogue(const TempDir& dir, const std::string& units, const std::string& thousands) {
  const std::string product = dir / "tavrin";
  std::filesystem::create_directories(product + "/nls/fra");
  std::filesystem::create_directory_symlink(tavtest::product_dir() + "/bin", product + "/bin");
  write_file(product + "/nls/fra/0999.txt", units);
  write_file(product + "/nls/fra/1999.txt", thousands);
  return product;
}

TEST(Catalogue, FilesTranslateTheBuiltInTexts) {
  TempDir dir;
  // 11 translated, 14 left empty, 12 without a text; the help of find with escapes.
  const std::string product = product_with_catalogue(
      dir, "\t11 \"Chercher\"\n14 \"\"\n  12\n4 \"Oui\"\n", "1011 \"Chercher un \\\"enregistrement\\\" \\\\ cl\\u00e9\"\n");
  const Env env{{"TAVRIN=" + product, "TAVLANGUAGE=fra"}, {}};
  const char confirm[] = "screen main\n  confirm default oui\n  end-confirm\nend-screen\n";
  ASSERT_EQ(compile(dir, "prog.spl", env, {}, confirm).status, 0);
  const Op6 t(read_file(dir / "prog.op6"));
  // Items 1 to 28 are the built-in modes' prompts and helps: next-scr first, find third.
  EXPECT_EQ(text_item(t, 1), "N:Next-scr");
  EXPECT_EQ(text_item(t, 5), "N:Chercher");
  EXPECT_EQ(text_item(t, 6), "H:Chercher un \"enregistrement\" \\ cl\\u00e9");
  EXPECT_EQ(text_item(t, 7), "N:Next");
  EXPECT_EQ(text_item(t, 13), "N:Correct");
  // Without the language the same product keeps every text, and OUI is no answer.
  const RunResult plain = compile(dir, "prog.spl", Env{{"TAVRIN=" + product}, {}}, {}, confirm);
  EXPECT_TRUE(contains(plain.out, "Syntax error - 'oui'")) << plain.out;
  ASSERT_EQ(compile(dir, "prog.spl", Env{{"TAVRIN=" + product}, {}}).status, 0);
  EXPECT_EQ(text_item(Op6(read_file(dir / "prog.op6")), 5), "N:Find");
}

TEST(Tavcmpnls, RecordsNewTextsAndKeepsTranslations) {
  TempDir dir;
  const std::string lang = dir / "lang", file = lang + "/LANGfra1.idx";
  ASSERT_EQ(compile(dir, "prog.spl", language_env(lang)).status, 0);
  // 28 mode texts, the two ENTRY-ONCE modes repeating those of ENTRY.
  EXPECT_EQ(sql(file, "SELECT count(*) FROM lang WHERE lang_prog_id = 1 AND lang_ref = 'Y'"), "24");
  EXPECT_EQ(sql(file, "SELECT lang_type || lang_local FROM lang WHERE lang_local LIKE 'Find%' ORDER BY 1"),
            "HFind record by key,NFind");
  sql(file, "UPDATE lang SET lang_foreign = 'Chercher' WHERE lang_type = 'N' AND lang_local = 'Find'");

  const std::string source = "field a pic x(100)\nprocedure main\n  set a = translate \"" + std::string(90, 'b') +
                             "\"\n  confirm prompt \"Sure?\"\n  end-confirm\nend\n";
  const RunResult r = compile(dir, "prog.spl", language_env(lang), {}, source);
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(sql(file, "SELECT count(*) FROM lang"), "26");
  EXPECT_EQ(sql(file, "SELECT lang_foreign FROM lang WHERE lang_type = 'N' AND lang_local = 'Find'"), "Chercher");
  EXPECT_EQ(sql(file, "SELECT lang_type || lang_local FROM lang WHERE lang_type IN ('G', 'D') ORDER BY 1"),
            "DSure?,G" + std::string(80, 'b'));
}

TEST(Tavcmpnls, UsageAndBadTables) {
  TempDir dir;
  write_file(dir / "junk.op6", "not a table");
  struct Case {
    std::vector<std::string> args;
    int status;
    std::string first_line;
  };
  const Case cases[] = {
      {{}, 2, "tavcmpnls: no file given"},
      {{"--verbose"}, 2, "tavcmpnls: unknown option --verbose"},
      {{"a.op6", "b.op6"}, 2, "tavcmpnls: only one file can be given"},
      {{dir / "junk.op6"}, 1, "tavcmpnls: "},
  };
  for (const Case& c : cases) {
    std::vector<std::string> argv = c.args;
    argv.insert(argv.begin(), tavtest::program("tavcmpnls"));
    tavtest::RunOptions options;
    options.env = {"TAVLANGDIR=" + dir.path(), "TAVLANGUAGE=fra"};
    const RunResult r = tavtest::run(argv, options);
    EXPECT_EQ(r.status, c.status) << r.err;
    EXPECT_EQ(r.err.rfind(c.first_line, 0), 0u) << r.err;
    EXPECT_EQ(r.err.find("usage: tavcmpnls file.op6\n") != std::string::npos, c.status == 2) << r.err;
  }
}

TEST(LanguageFiles, EightCompilesRegisterAtOnce) {
  TempDir dir;
  const std::string lang = dir / "lang";
  std::vector<std::thread> runs;
  std::vector<std::string> outs(8);
  for (int i = 0; i < 8; ++i) {
    write_file(dir / ("p" + std::to_string(i) + ".spl"), kClean);
    runs.emplace_back([&, i] {
      outs[static_cast<size_t>(i)] =
          tavcmp(dir.path(), {"-l", "-n", "p" + std::to_string(i) + ".spl"}, language_env(lang)).out;
    });
  }
  for (std::thread& t : runs) t.join();
  for (const std::string& out : outs) EXPECT_TRUE(contains(out, "No errors found") && !contains(out, "Errors during NLS")) << out;
  EXPECT_EQ(sql(lang + "/LANGPROG.idx", "SELECT count(DISTINCT sp_prog_id) || ' ' || min(sp_prog_id) || ' ' || "
                                        "max(sp_prog_id) FROM langprog"),
            "8 1 8");
  EXPECT_EQ(sql(lang + "/LANGfra1.idx", "SELECT count(DISTINCT lang_prog_id) || ' ' || count(*) FROM lang"), "8 192");
}

}  // namespace
