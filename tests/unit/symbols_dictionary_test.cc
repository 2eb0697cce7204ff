// Opening dictionaries: the limit of three, a dictionary without its documentation table, and the
// rows read back through the lookups.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "diag/diag.h"
#include "runtime/datafile.h"
#include "symbols/dictionary_files.h"
#include "tests/support/support.h"

namespace {

using namespace tav;
using tavtest::TempDir;

// Makes the tables of a dictionary, all of them or all but the documentation table.
void make_tables(const std::string& prefix, bool documentation = true) {
  std::filesystem::create_directories(prefix);
  for (int i = 0; i < kDictTableCount; ++i) {
    const auto t = static_cast<DictTable>(i);
    if (t == DictTable::documentation && !documentation) continue;
    int error = 0;
    ASSERT_TRUE(datafile::IndexedFile::open(prefix + std::string(dict_table_letters(t)) + "4", dict_table_desc(t),
                                            datafile::kCreate, error))
        << error;
  }
}

TEST(DictionaryFiles, AtMostThreeAndEachOnce) {
  TempDir dir;
  for (const char* d : {"a/", "b/", "c/", "d/"}) make_tables(dir / d);
  DictionaryFiles dicts(0x041F);
  EXPECT_EQ(dicts.open(dir / "a/", true), 0);
  EXPECT_EQ(dicts.open(dir / "a/", true), 0);  // already open
  EXPECT_EQ(dicts.open(dir / "b/", true), 0);
  EXPECT_EQ(dicts.open(dir / "c/", true), 0);
  EXPECT_EQ(dicts.open_count(), 3);
  try {
    dicts.open(dir / "d/", true);
    ADD_FAILURE() << "a fourth dictionary opened";
  } catch (const RunStop& stop) {
    EXPECT_EQ(stop.message, "Too many dictionaries open");
  }
}

TEST(DictionaryFiles, WithoutDocumentationTableNotCounted) {
  TempDir dir;
  make_tables(dir / "x/", false);
  make_tables(dir / "y/");
  // The environment's list stops at the first dictionary that cannot be opened.
  DictionaryFiles dicts(0x041F, [&](const char* name) -> const char* {
    static const std::string x = dir / "x/", y = dir / "y/";
    if (std::string(name) == "TAVUSRDICT") return x.c_str();
    if (std::string(name) == "TAVDICT") return y.c_str();
    return nullptr;
  });
  dicts.open_all({}, true);
  EXPECT_EQ(dicts.open_count(), 0);  // y/ is not tried after x/
}

TEST(DictionaryFiles, RowsThroughTheLookups) {
  TempDir dir;
  make_tables(dir / "a/");
  DictionaryFiles dicts(0x041F);
  ASSERT_EQ(dicts.open(dir / "a/", false), 0);
  DictRow f(DictTable::field);
  f.set(dict_field::fld_name, "amount");
  f.set(dict_field::fld_id, 7);
  f.set(dict_field::fld_size, 4);
  f.set(dict_field::fld_desc, 0x20e2);
  f.set(dict_field::fld_type, "N");
  f.set(dict_field::fld_occurs, 1);
  ASSERT_EQ(dicts.write(f, 0), 0);
  const std::optional<DictField> byname = dicts.find_field("amount");
  ASSERT_TRUE(byname);
  EXPECT_EQ(byname->id, 7);
  EXPECT_EQ(byname->desc, 0x20e2);
  EXPECT_EQ(byname->type, 'N');
  EXPECT_EQ(dicts.field_by_id(0, 7)->name, "amount");
  EXPECT_FALSE(dicts.find_field("other"));
  EXPECT_TRUE(dicts.record(0, 1).empty());
}

}  // namespace
