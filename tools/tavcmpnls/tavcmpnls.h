// tavcmpnls: records the translatable texts of a compiled program in the language file.
//
//   tavcmpnls file.op6
//
// With TAVLANGDIR and TAVLANGUAGE set, the program of the table is looked up in (or added to)
// the program index LANGPROG under its system and program name, both taken from the table (its
// system name and the source name of its compile text) the way the compiler registers it; then
// every text item of the kinds N, H, D, O and G that the language file does not hold yet for
// that program is added with an empty translation, marked referenced. Rows already there, with
// their translations, are kept. Without the two variables there is nothing to do.
//
// Exit status: 0 done (or nothing to do), 1 the table or the language files cannot be used,
// 2 usage error.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tav::nlstool {

struct TableText {
  char kind;
  std::string text;
};

// What the language files need of a table: the source name of its compile text, its system
// name, and its text items in item order.
struct TableTexts {
  std::string source_name;
  std::string system_name;
  std::vector<TableText> items;
};

// Reads an operations table image; false with `why` set when it is not one or is damaged.
bool read_table_texts(const std::vector<uint8_t>& image, TableTexts& out, std::string& why);

int tavcmpnls_main(int argc, char** argv);

}  // namespace tav::nlstool
