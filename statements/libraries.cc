// Component libraries: at the end of a program, the sections it calls but does not define are
// found among the EXPORT sections of the tables its LINK statements name; overrides of library
// sections and the argument lists of calls are checked against them.

#include "statements/libraries.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "codegen/header.h"
#include "runtime/ascii.h"
#include "statements/parser.h"
#include "statements/records.h"
#include "symbols/library_image.h"
#include "symbols/records.h"

namespace tav {

namespace {

// The largest operations image a table can have: links are 24 bits.
constexpr uint32_t kMaxImage = 1u << 24;

// "$NAME" and "${NAME}" replaced by the variable's value (nothing when it is not set).
std::string expand_environment(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size();) {
    if (text[i] != '$') {
      out += text[i++];
      continue;
    }
    const bool braced = i + 1 < text.size() && text[i + 1] == '{';
    size_t start = i + (braced ? 2 : 1), end = start;
    while (end < text.size() && (ascii_alnum(text[end]) || text[end] == '_')) ++end;
    if (end == start || (braced && (end >= text.size() || text[end] != '}'))) {
      out += text[i++];
      continue;
    }
    if (const char* v = std::getenv(text.substr(start, end - start).c_str())) out += v;
    i = end + (braced ? 1 : 0);
  }
  return out;
}

// The name with the extension of its last component replaced by ".op6".
std::string table_name(const std::string& name) {
  const size_t slash = name.find_last_of("/\\");
  const size_t dot = name.rfind('.');
  const bool has_extension = dot != std::string::npos && (slash == std::string::npos || dot > slash);
  return (has_extension ? name.substr(0, dot) : name) + ".op6";
}

// The library is the base library of this program when the table being produced is named after it.
bool is_base_library(const std::string& produced, const std::string& library) {
  const std::string tail = table_name(library);
  if (produced.size() < tail.size() || produced.compare(produced.size() - tail.size(), tail.size(), tail) != 0) return false;
  const size_t before = produced.size() - tail.size();
  return before == 0 || produced[before - 1] == '/' || produced[before - 1] == '\\';
}

bool same_file(const std::string& a, const std::string& b) {
  std::error_code ec1, ec2;
  return std::filesystem::weakly_canonical(a, ec1) == std::filesystem::weakly_canonical(b, ec2) && !ec1 && !ec2;
}

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// Where the library is found: under ERQ, then (unless it is the base library) beside the program
// and one directory up. Sets `skipped` when the ERQ candidate is the table being produced.
// The names tried are added to `tried`.
File open_library(const std::string& produced, const std::string& library, bool base, bool& skipped,
                  std::vector<std::string>& tried) {
  if (const char* erq = std::getenv("ERQ")) {
    const std::string candidate = table_name(std::string(erq) + "/" + library);
    if (same_file(candidate, produced)) {
      skipped = true;
      return nullptr;
    }
    tried.push_back(candidate);
    if (File f{std::fopen(candidate.c_str(), "rb")}) return f;
  }
  if (base) return nullptr;
  for (const std::string& candidate : {table_name(library), table_name("../" + library)}) {
    tried.push_back(candidate);
    if (File f{std::fopen(candidate.c_str(), "rb")}) return f;
  }
  return nullptr;
}

// The library's image, or nothing after reporting why it cannot be used.
std::optional<std::vector<LibrarySection>> read_library(Parser& p, std::FILE* f, const std::string& library) {
  std::vector<uint8_t> header(kLibraryHeaderSize);
  if (std::fread(header.data(), 1, header.size(), f) != header.size()) {
    p.diag.error_text(txt::library_header_unreadable, library);
    return std::nullopt;
  }
  const std::optional<uint32_t> size = library_image_size(header);
  if (!size || *size > kMaxImage) {
    p.diag.error_text(txt::library_invalid, library);
    return std::nullopt;
  }
  std::vector<uint8_t> image;
  try {
    image.resize(*size);
  } catch (const std::bad_alloc&) {
    p.diag.error_text(txt::library_no_memory, library);
    return std::nullopt;
  }
  if (std::fseek(f, 0, SEEK_SET) != 0) {
    p.diag.error_text(txt::library_seek_failed, library);
    return std::nullopt;
  }
  if (std::fread(image.data(), 1, image.size(), f) != image.size()) {
    p.diag.error_text(txt::library_unreadable, library);
    return std::nullopt;
  }
  std::optional<std::vector<LibrarySection>> sections = read_library_sections(image);
  if (!sections) p.diag.error_text(txt::library_invalid, library);
  return sections;
}

std::string text_of_link(const Parser& p, uint32_t link) { return std::string(p.ops.text_at(link)); }

// The program's list, recorded by its calls, against the library section's.
// Messages are about the first call of the section.
void compare_list(Parser& p, uint32_t head, const std::string& section, const std::vector<LibraryParameter>& library,
                  bool returning, SourceMark called) {
  OpSpace& ops = p.ops;
  uint32_t e = head;
  std::string context;
  for (const LibraryParameter& l : library) {
    context = section + ":" + l.name;
    if (e == 0) {
      if (!returning) p.diag.error_at(msg::parameter_list_mismatch, Context::at(context, called));
      return;
    }
    const bool numeric = ops.get24(e + param_entry::pe_field) != 0;
    if (numeric != l.numeric)
      p.diag.error_at(msg::parameters_not_correct_type, Context::at(context, called));
    else if (ops.get24(e + param_entry::pe_occurs) != l.occurs)
      p.diag.error_at(msg::parameter_different_field_occurrence_factor, Context::at(context, called));
    e = ops.get24(e + param_entry::pe_next);
  }
  if (e != 0) p.diag.error_at(msg::parameter_list_mismatch, Context::at(context.empty() ? section : context, called));
}

uint16_t kind_of(const Parser& p, uint32_t s) { return static_cast<uint16_t>(p.ops.get16(s + ssym::s_kind) & ssym::kind_mask); }

void give_routine_number(Parser& p, uint32_t s) {
  if (p.ops.get16(s + ssym::s_routine) == 0)
    p.ops.put16(s + ssym::s_routine, p.ops.next_count(hdr::h_library_count, "library routines") + 1);
}

// One program section against one exported library section of its name.
void bind_section(Parser& p, uint32_t s, uint32_t entry, const LibrarySection& l, bool base) {
  OpSpace& ops = p.ops;
  const std::string name = text_of_link(p, ops.get24(s + ssym::s_name));
  if (ops.get24(s + ssym::s_library) != 0) {
    p.diag.error_text(txt::library_multiple_definitions, name);
    return;
  }
  const bool defined = kind_of(p, s) != ssym::kind_undefined;
  if (defined && !base) p.diag.error_text(txt::library_override_file, name);
  else if (defined && l.no_override) p.diag.error_text(txt::library_override_refused, name);
  ops.put24(s + ssym::s_library, entry);
  give_routine_number(p, s);
  if (!defined) {
    compare_list(p, ops.get24(s + ssym::s_params), name, l.parameters, false, p.syms.first_used_at(s));
    compare_list(p, ops.get24(s + ssym::s_returning), name, l.returning, true, p.syms.first_used_at(s));
  }
}

void resolve_library(Parser& p, uint32_t entry, const std::string& produced) {
  OpSpace& ops = p.ops;
  const std::string library = text_of_link(p, ops.get24(entry + library::l_name));
  const bool base = is_base_library(produced, library);
  bool skipped = false;
  std::vector<std::string> tried;
  File f = open_library(produced, library, base, skipped, tried);
  if (skipped) return;
  if (f) p.file.libraries_read.add(tried.back());  // a prerequisite of the table's make rule
  if (!f) {
    p.diag.error_text(txt::library_not_found, Context::at(library, p.syms.defined_at(entry)));
    for (const std::string& name : tried) p.diag.add_note("searched '" + name + "'");
    return;
  }
  const std::optional<std::vector<LibrarySection>> sections = read_library(p, f.get(), library);
  if (!sections) return;
  for (uint32_t s = ops.get24(hdr::h_screens); s != 0; s = ops.get24(s + ssym::s_next)) {
    if (kind_of(p, s) != ssym::kind_undefined && ops.get16(s + ssym::s_routine) == 0) continue;
    const std::string name = text_of_link(p, ops.get24(s + ssym::s_name));
    for (const LibrarySection& l : *sections)
      if (l.exported && l.name == name) bind_section(p, s, entry, l, base);
  }
}

// Libraries are read only when some section may come from one: one not defined, or one with a
// library routine number.
bool libraries_needed(const Parser& p) {
  const OpSpace& ops = p.ops;
  for (uint32_t s = ops.get24(hdr::h_screens); s != 0; s = ops.get24(s + ssym::s_next))
    if (kind_of(p, s) == ssym::kind_undefined || ops.get16(s + ssym::s_routine) != 0) return true;
  return false;
}

}  // namespace

void resolve_libraries(Parser& p) {
  if (!libraries_needed(p)) return;
  const std::string produced = expand_environment(p.file.op6_name);
  for (uint32_t e = p.ops.get24(hdr::h_library_list); e != 0; e = p.ops.get24(e + library::l_next))
    if (p.ops.get24(e + library::l_name) != 0) resolve_library(p, e, produced);
}

}  // namespace tav
