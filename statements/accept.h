// ACCEPT and the chain of input ops that later statements search.
#pragma once

#include <cstdint>

namespace tav {

class Parser;

// The op of the chain from `head` that accepts `field` through `object` (0: unqualified), or 0.
// SUPPRESSed ACCEPTs are never found; READ-ONLY ones and those made from a DISPLAY only when
// `refresh`. A field of 0 finds the first op examined.
uint32_t find_accept(Parser& p, uint32_t head, uint32_t field, uint32_t object, bool refresh);

// An ACCEPT standing directly in the DETAIL of a section: when it reads a key field of the
// section's PRIMARY object, the screen keeps its "find" mode.
void mark_key_accept(Parser& p, uint32_t field);

// In the DETAIL or AFTER part of a DATA-GRID screen with a SELECT, a display item placed with @
// that shows one field the select reads is emitted as a display-only ACCEPT (which joins the
// ACCEPT chain) instead of a display op. `length` is the item's stored length. Returns whether
// it was.
bool display_as_accept(Parser& p, uint32_t item, uint32_t length);

// The column title the field's dictionary gives it, as a one-op list holding the text (a text
// item of kind 'D'); 0 for a field of no dictionary or without a title.
uint32_t dictionary_column_title(Parser& p, uint32_t field);

}  // namespace tav
