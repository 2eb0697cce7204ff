// ACCEPT and the chain of input ops that later statements search.
#pragma once

#include <cstdint>

namespace tav {

class Parser;

// The op of the chain from `head` that accepts `field` through `object` (0: unqualified), or 0.
// SUPPRESSed ACCEPTs are never found; READ-ONLY ones and those made from a DISPLAY only when
// `refresh`. A field of 0 finds the first op examined.
uint32_t find_accept(Parser& p, uint32_t head, uint32_t field, uint32_t object, bool refresh);

// Whether the field's dictionary holds documentation of `kind` (kDocValidation, kDocColumnTitle)
// for it; always false for a field of no dictionary.
bool has_dictionary_text(Parser& p, uint32_t field, int kind);

}  // namespace tav
