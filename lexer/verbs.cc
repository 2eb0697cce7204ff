#include "lexer/verbs.h"

#include <array>

namespace tav {

namespace {

// The keyword index: an open-addressed hash table over the rows of the keyword table, keyed by
// the word with what compare_keyword may skip taken out (every "_", and every "-" but a leading
// one). Two spellings that compare equal have the same key, so a word's matching rows are all
// on its probe chain; each candidate is then confirmed with compare_keyword itself.
constexpr size_t kSlots = 2048;  // a power of two, more than twice the rows

constexpr bool skipped(char c, size_t i) { return c == '_' || (c == '-' && i != 0); }

constexpr uint32_t key_hash(std::string_view word) {
  uint32_t h = 2166136261u;  // FNV-1a
  for (size_t i = 0; i < word.size(); ++i) {
    if (skipped(word[i], i)) continue;
    h = (h ^ static_cast<unsigned char>(word[i])) * 16777619u;
  }
  return h;
}

struct Index {
  std::array<uint16_t, kSlots> slots{};  // row + 1, 0 for an empty slot
};

constexpr Index build_index() {
  Index index;
  for (int row = 0; row < kVerbCount; ++row) {
    size_t s = key_hash(kVerbTable[row].name) & (kSlots - 1);
    while (index.slots[s] != 0) s = (s + 1) & (kSlots - 1);
    index.slots[s] = static_cast<uint16_t>(row + 1);
  }
  return index;
}

constexpr bool keys_fit() {
  for (int row = 0; row < kVerbCount; ++row) {
    const std::string_view name = kVerbTable[row].name;
    // A leading "_" would let a word's leading "-" meet a table "-" after it.
    if (name.empty() || name[0] == '_') return false;
  }
  return 2 * static_cast<size_t>(kVerbCount) < kSlots;
}
static_assert(keys_fit(), "verbs.def: the keyword index needs more room");

constexpr Index kIndex = build_index();

}  // namespace

uint32_t find_keyword(std::string_view word) {
  size_t s = key_hash(word) & (kSlots - 1);
  int found = -1;
  for (; kIndex.slots[s] != 0; s = (s + 1) & (kSlots - 1)) {
    const int row = kIndex.slots[s] - 1;
    if (compare_keyword(word, kVerbTable[row].name) != 0) continue;
    // A word that matches two rows takes the row the ordered search meets.
    if (found >= 0) return lookup_verb(word);
    found = row;
  }
  return found >= 0 ? kVerbTable[found].code : 0;
}

}  // namespace tav
