// Screen modes: the built-in modes, the MODE statement, and the allowed-mode lists of sections.
#pragma once

#include <cstdint>
#include <string_view>

namespace tav {

class Parser;

// Creates the built-in modes of a program, in their fixed order.
void create_builtin_modes(Parser& p);
// The mode_entry of that name (30 characters compared), or 0.
uint32_t find_mode(Parser& p, std::string_view name);
// Appends a mode to a mode list (a section's allowed modes, the modes of a DO) unless it is in it
// already; `head` is the list's head, updated when the list was empty. Returns false when no mode
// has that name.
bool add_mode_to_list(Parser& p, uint32_t& head, std::string_view name);
// Adds to and removes from a section's allowed-mode list.
void allow_mode(Parser& p, uint32_t section, std::string_view name);
void disallow_mode(Parser& p, uint32_t section, std::string_view name);
// End of program: sections that allowed no mode get the default ones.
void assign_default_modes(Parser& p);
// A one-op list holding a literal text as a text item of the given kind; returns its head.
uint32_t text_item_list(Parser& p, std::string_view text, char kind);

}  // namespace tav
