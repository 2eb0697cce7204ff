// Suggestions for names that are not known: "did you mean 'cust-name'?" when a name in scope is
// near enough to be what was meant, and "'print' is a reserved word" for a keyword used as a
// name. They are notes of the diagnostics model, added only while the diagnostics collect.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "diag/diag.h"

namespace tav {

class ParserCore;

// The candidate nearest to `name` (case is ignored) when at most a third of its characters,
// and at least one, must change: one edit in a short name, more in a long one. Empty when none
// is near enough, or when two are equally near (a guess would then be a coin toss).
std::string nearest_name(std::string_view name, const std::vector<std::string_view>& candidates);

// The program's fields that a reference made now can reach: the current section's locals and
// the global fields.
std::vector<std::string_view> fields_in_scope(const ParserCore& p);
std::vector<std::string_view> object_names(const ParserCore& p);
std::vector<std::string_view> section_names(const ParserCore& p);
std::vector<std::string_view> mode_names(const ParserCore& p);
std::vector<std::string_view> defined_report_names(const ParserCore& p);

// Adds "did you mean '<nearest>'?" to the message just raised about `name`, with the exact
// replacement as its fix when the message's place holds just that name.
void suggest_name(ParserCore& p, std::string_view name, const std::vector<std::string_view>& candidates);
// The same among the fields (the objects) a reference can reach: the program's and, while the
// diagnostics collect, the dictionaries'.
void suggest_field(ParserCore& p, std::string_view name);
void suggest_object(ParserCore& p, std::string_view name);
// The same among the fields of an object's record, for a field named with the wrong object.
void suggest_record_field(ParserCore& p, std::string_view name, uint32_t object);
// Adds "'<name>' is a reserved word" when it is one.
void note_reserved_word(ParserCore& p, std::string_view name);

}  // namespace tav
