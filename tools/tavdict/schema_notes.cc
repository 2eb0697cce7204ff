// The notes of a schema: comment lines the compiler passes over and tavdict reads.
//
//   //% field NAME word TEXT
//   //% object NAME word TEXT
//
// with the words of notes.def. The preprocessor keeps comments and marks where its output
// lines come from ("# n file"), so notes may sit in included files and conditional parts.

#include <cctype>
#include <span>
#include <string>

#include "schema.h"

namespace tav::dict_tool {

namespace {

constexpr std::string_view kNoteStart = "//%";
constexpr std::string_view kValidationNote = "validation";
// The compiler reads this much of each line of a validation text (its line source ends a line
// after the 79th character).
constexpr size_t kValidationWidth = 79;

bool put(std::string& member, std::string_view text) {
  if (!member.empty()) return false;
  member = text;
  return true;
}
bool put(std::vector<std::string>& member, std::string_view text) {
  member.emplace_back(text);
  return true;
}

template <typename Entry>
struct NoteRow {
  std::string_view word;
  size_t limit;
  bool (*apply)(Entry&, std::string_view);  // false when the note was given already
};

constexpr NoteRow<FieldEntry> kFieldNotes[] = {
#define TAV_FIELD_NOTE(word, member, limit) {word, limit, [](FieldEntry& e, std::string_view t) { return put(e.member, t); }},
#define TAV_OBJECT_NOTE(word, member, limit)
#include "notes.def"
};
constexpr NoteRow<ObjectEntry> kObjectNotes[] = {
#define TAV_FIELD_NOTE(word, member, limit)
#define TAV_OBJECT_NOTE(word, member, limit) {word, limit, [](ObjectEntry& e, std::string_view t) { return put(e.member, t); }},
#include "notes.def"
};

std::string lower(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

// The next blank-separated word of `rest`, taken off it.
std::string_view word(std::string_view& rest) {
  size_t start = rest.find_first_not_of(" \t");
  if (start == std::string_view::npos) start = rest.size();
  rest.remove_prefix(start);
  size_t end = rest.find_first_of(" \t");
  if (end == std::string_view::npos) end = rest.size();
  std::string_view w = rest.substr(0, end);
  rest.remove_prefix(end);
  return w;
}

// A "# n file" line of the preprocessor: the next line is line n of that file.
bool line_marker(std::string_view line, int& number, std::string& file) {
  if (!line.starts_with("# ")) return false;
  line.remove_prefix(2);
  size_t digits = 0;
  while (digits < line.size() && std::isdigit(static_cast<unsigned char>(line[digits]))) ++digits;
  if (digits == 0 || digits > 9 || digits == line.size() || line[digits] != ' ') return false;
  number = std::stoi(std::string(line.substr(0, digits)));
  file = std::string(line.substr(digits + 1));
  return true;
}

template <typename Entry>
const NoteRow<Entry>* find_row(std::span<const NoteRow<Entry>> rows, std::string_view w) {
  for (const NoteRow<Entry>& row : rows)
    if (row.word == w) return &row;
  return nullptr;
}

// The entry the note was applied to; nothing after reporting why it could not be.
template <typename Entry>
Entry* apply_to(std::vector<Entry>& entries, std::span<const NoteRow<Entry>> rows, const Note& note,
                Problems& problems) {
  const NoteRow<Entry>* row = find_row(rows, note.word);
  Entry* entry = nullptr;
  for (Entry& e : entries)
    if (e.name == note.name) entry = &e;
  const char* what = note.object ? "object" : "field";
  if (row == nullptr) {
    problems.push_back(note.where + ": unknown " + what + " note '" + note.word + "'");
  } else if (entry == nullptr) {
    problems.push_back(note.where + ": the schema has no " + what + " '" + note.name + "'");
  } else if (note.text.size() > row->limit) {
    problems.push_back(note.where + ": the " + note.word + " text is longer than " + std::to_string(row->limit) +
                       " characters");
  } else if (note.word == kValidationNote && note.text.size() > kValidationWidth) {
    problems.push_back(note.where + ": the validation text is longer than " + std::to_string(kValidationWidth) +
                       " characters (the compiler reads no more of a line)");
  } else if (!row->apply(*entry, note.text)) {
    problems.push_back(note.where + ": the " + note.word + " of " + what + " '" + note.name + "' is given twice");
  } else {
    return entry;
  }
  return nullptr;
}

}  // namespace

std::vector<Note> read_notes(std::string_view text, Problems& problems) {
  std::vector<Note> notes;
  std::string file = "schema";
  int number = 1;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line_marker(line, number, file)) continue;
    const std::string where = file + ", line " + std::to_string(number++);
    const size_t start = line.find_first_not_of(" \t");
    if (start == std::string_view::npos || line.substr(start, kNoteStart.size()) != kNoteStart) continue;
    std::string_view rest = line.substr(start + kNoteStart.size());
    Note note;
    note.where = where;
    const std::string target = lower(word(rest));
    note.object = target == "object";
    note.name = lower(word(rest));
    note.word = lower(word(rest));
    if ((target != "field" && !note.object) || note.name.empty() || note.word.empty()) {
      problems.push_back(where + ": a note is \"//% field|object NAME word text\"");
      continue;
    }
    if (!rest.empty()) rest.remove_prefix(1);  // the blank after the word
    note.text = std::string(rest.substr(0, rest.find_last_not_of(" \t\r") + 1));
    notes.push_back(std::move(note));
  }
  return notes;
}

void apply_notes(const std::vector<Note>& notes, Schema& schema, Problems& problems) {
  for (const Note& note : notes) {
    if (note.object) {
      apply_to<ObjectEntry>(schema.objects, kObjectNotes, note, problems);
    } else if (FieldEntry* field = apply_to<FieldEntry>(schema.fields, kFieldNotes, note, problems)) {
      if (note.word == kValidationNote) field->validation_where.push_back(note.where);
    }
  }
}

}  // namespace tav::dict_tool
