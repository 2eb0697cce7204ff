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

// A slot keeps the row's whole hash, so that a probe compares words only when the hashes agree,
// and whether another row has the same hash: only then can a word match two rows.
struct Slot {
  uint32_t hash = 0;
  uint16_t row = 0;  // row + 1, 0 for an empty slot
  bool shared = false;
};

struct Index {
  std::array<Slot, kSlots> slots{};
};

constexpr Index build_index() {
  Index index;
  for (int row = 0; row < kVerbCount; ++row) {
    const uint32_t h = key_hash(kVerbTable[row].name);
    size_t s = h & (kSlots - 1);
    bool shared = false;
    // Rows of equal hash start at the same slot, so every earlier one lies on this probe.
    for (; index.slots[s].row != 0; s = (s + 1) & (kSlots - 1)) {
      if (index.slots[s].hash != h) continue;
      index.slots[s].shared = true;
      shared = true;
    }
    index.slots[s] = Slot{h, static_cast<uint16_t>(row + 1), shared};
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
  const uint32_t h = key_hash(word);
  for (size_t s = h & (kSlots - 1); kIndex.slots[s].row != 0; s = (s + 1) & (kSlots - 1)) {
    const Slot& slot = kIndex.slots[s];
    if (slot.hash != h || compare_keyword(word, kVerbTable[slot.row - 1].name) != 0) continue;
    // A word that may match two rows takes the row the ordered search meets.
    return slot.shared ? lookup_verb(word) : kVerbTable[slot.row - 1].code;
  }
  return 0;
}

}  // namespace tav
