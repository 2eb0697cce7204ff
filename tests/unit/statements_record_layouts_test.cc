// docs/op6-format.md against the rows the compiler builds records from: every record heading
// gives the record's size, every table row of a record names a member (or "—" for bytes no
// member covers) with its offset and width, and the op size table gives op_size.

#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "codegen/header.h"
#include "codegen/op_records.h"
#include "codegen/opspace.h"
#include "statements/records.h"
#include "symbols/records.h"
#include "tests/support/support.h"

namespace tav {
namespace {

struct Layout {
  const RecordRow* record;
  std::vector<const MemberRow*> members;
};

std::vector<Layout> all_layouts() {
  std::vector<Layout> out;
  auto add = [&out](const auto& records, const auto& members) {
    for (const RecordRow& r : records) {
      Layout l{&r, {}};
      for_each_member(members, r.record, [&l](const MemberRow& m) { l.members.push_back(&m); });
      out.push_back(l);
    }
  };
  add(header_rows::kRecords, header_rows::kMembers);
  add(symbol_rows::kRecords, symbol_rows::kMembers);
  add(statement_rows::kRecords, statement_rows::kMembers);
  add(op_rows::kRecords, op_rows::kMembers);
  return out;
}

std::vector<std::string> cells(const std::string& line) {
  std::vector<std::string> out;
  std::stringstream in(line.substr(1));
  for (std::string c; std::getline(in, c, '|');) {
    c = std::regex_replace(c, std::regex("^ +| +$|`"), "");
    out.push_back(c);
  }
  return out;
}

// One row of a record's table: "| a-b | member | ... |" (or "| a | ...").
void check_row(const Layout& l, const std::vector<std::string>& c, std::vector<bool>& seen) {
  std::smatch m;
  if (!std::regex_match(c[0], m, std::regex("(\\d+)(?:-(\\d+))?"))) return;
  const uint32_t first = static_cast<uint32_t>(std::stoul(m[1]));
  const uint32_t width = (m[2].matched ? static_cast<uint32_t>(std::stoul(m[2])) : first) - first + 1;
  const bool named = c.size() > 2;
  SCOPED_TRACE(std::string(l.record->title) + " bytes " + c[0]);
  for (size_t i = 0; i < l.members.size(); ++i) {
    const MemberRow& r = *l.members[i];
    const bool overlaps = r.offset < first + width && first < r.offset + r.width;
    if (named && c[1] == "—") {
      EXPECT_FALSE(overlaps) << r.name << " lies in bytes the description leaves unused";
    } else if (named ? (c[1] == r.name || c[1] == r.description) : r.offset == first) {
      EXPECT_EQ(r.offset, first) << r.name;
      EXPECT_EQ(r.width, width) << r.name;
      seen[i] = true;
    }
  }
}

TEST(RecordLayouts, AgreeWithTheFormatDescription) {
  std::stringstream doc(tavtest::read_file(tavtest::source_dir() + "/docs/op6-format.md"));
  const std::vector<Layout> layouts = all_layouts();
  const Layout* current = nullptr;
  std::vector<bool> seen;
  std::set<std::string> titles;  // the records not described yet
  for (const Layout& l : layouts) titles.insert(std::string(l.record->title));
  auto finish = [&] {
    if (current == nullptr) return;
    for (size_t i = 0; i < seen.size(); ++i)
      EXPECT_TRUE(seen[i]) << current->record->title << ": " << current->members[i]->name << " is not described";
    current = nullptr;
  };
  for (std::string line; std::getline(doc, line);) {
    std::smatch m;
    if (line.rfind("#", 0) == 0) {
      finish();
      if (!std::regex_search(line, m, std::regex("`([^`]+)`.*\\((?:[^)]*?)(\\d+) bytes"))) continue;
      for (const Layout& l : layouts)
        if (l.record->title == m[1].str()) current = &l;
      if (current == nullptr) continue;
      titles.erase(std::string(current->record->title));
      EXPECT_EQ(std::to_string(current->record->size), m[2].str()) << current->record->title;
      seen.assign(current->members.size(), false);
    } else if (current != nullptr && line.rfind("| ", 0) == 0) {
      std::vector<std::string> c = cells(line);
      if (c.size() >= 2) check_row(*current, c, seen);
    }
  }
  finish();
  for (const std::string& t : titles) ADD_FAILURE() << t << " has no table in the format description";
}

// "| 12 | 13 with `-d`; 15, 20, ..., and every opcode above 88 |": the sizes of the ops.
TEST(RecordLayouts, OpSizesAgreeWithTheFormatDescription) {
  std::stringstream doc(tavtest::read_file(tavtest::source_dir() + "/docs/op6-format.md"));
  int rows = 0;
  for (std::string line; std::getline(doc, line);) {
    std::smatch m;
    if (!std::regex_match(line, m, std::regex("\\| (\\d+) \\| (\\d.*) \\|"))) continue;
    const uint32_t size = static_cast<uint32_t>(std::stoul(m[1]));
    std::stringstream parts(std::regex_replace(m[2].str(), std::regex(";"), ","));
    for (std::string part; std::getline(parts, part, ',');) {
      std::smatch n;
      if (!std::regex_search(part, n, std::regex("(\\d+)"))) continue;
      const int code = std::stoi(n[1]);
      const bool above = part.find("above") != std::string::npos;
      const bool debug = part.find("with `-d`") != std::string::npos;
      for (int c = above ? code + 1 : code; c <= (above ? 255 : code); ++c)
        EXPECT_EQ(op_size(Op{static_cast<uint8_t>(c)}, debug), size) << "op " << c << (debug ? " with -d" : "");
    }
    ++rows;
  }
  EXPECT_EQ(rows, 7);
}

}  // namespace
}  // namespace tav
