// The language files: the program index LANGPROG, which gives every program a number under its
// system and program name, and the language file LANG<code>1 of one foreign language, which
// maps each program's texts to their translations. Both are indexed files of the data-file layer
// in the language directory (TAVLANGDIR), created when absent:
//
//   <dir>/LANGPROG.idx, table `langprog`: sp_sys (10), sp_prog (10), sp_prog_id (4-byte number);
//     key 1 (sp_sys, sp_prog), key 2 (sp_prog_id, highest first)
//   <dir>/LANG<code>1.idx, table `lang`: lang_prog_id (4-byte number), lang_type (1),
//     lang_local (80), lang_foreign (80), lang_ref (1); key 1 (lang_prog_id, lang_type, lang_local)
//
// Failures come back as the text of a message about the run, for the caller to show; they leave
// the files closed, and compiling goes on without them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "runtime/datafile.h"

namespace tav::nls {

inline constexpr char kTextKinds[] = "NHDOG";  // the kinds of text items that are translated
inline constexpr size_t kNameSize = 10;        // sp_sys, sp_prog
inline constexpr size_t kTextSize = 80;        // lang_local, lang_foreign

const datafile::TableDesc& langprog_desc();
const datafile::TableDesc& lang_desc();

// The program name of a source path: its last component up to the first ".", cut to 10.
std::string program_name(std::string_view source);
// The system name: `given` when not empty, else the name of the directory holding the source,
// else (a source without a directory) the last component of the current directory; cut at a
// "/" or "\" and to 10 characters.
std::string system_name(std::string_view given, std::string_view source);

class LanguageFiles {
 public:
  LanguageFiles() = default;
  ~LanguageFiles();
  LanguageFiles(const LanguageFiles&) = delete;
  LanguageFiles& operator=(const LanguageFiles&) = delete;

  // Opens (creating when absent) the files of `language` in `dir`. Returns 1 when they are open,
  // 0 when either value is missing or empty (nothing to do), -1 with `message` set on failure.
  int open(const char* dir, const char* language, std::string& message);
  void close();
  bool active() const { return active_; }

  // Registers the program of `source` under its system name (see system_name) and returns its
  // number; 0 when the files are not open, -1 with `message` set (and the files closed) when no
  // number could be given to it.
  int register_program(std::string_view given_system, std::string_view source, std::string& message);
  int program_id() const { return program_id_; }

  // Adds the text of `kind` of program `prog_id` with an empty translation, marked referenced,
  // unless the program has that text already. Returns 0 or the data-file layer's error number.
  int add_text(int prog_id, char kind, std::string_view text);

  // The writes between these happen together (see datafile::IndexedFile::begin).
  int begin_texts() { return lang_ ? lang_->begin() : datafile::kNotOpen; }
  int commit_texts() { return lang_ ? lang_->commit() : datafile::kNotOpen; }
  void rollback_texts() {
    if (lang_) lang_->rollback();
  }

 private:
  std::unique_ptr<datafile::IndexedFile> open_file(const std::string& path, const datafile::TableDesc& desc,
                                                   uint32_t mode, std::string& message);
  int insert_program(const std::string& sys, const std::string& prog);

  bool active_ = false;
  int program_id_ = 0;
  std::unique_ptr<datafile::IndexedFile> langprog_;
  std::unique_ptr<datafile::IndexedFile> lang_;
};

}  // namespace tav::nls
