// Compiles a document's text as `tavcmp -t --diagnostics-format=json` would compile the same
// text saved in the document's file, and returns what that run would report. Nothing is
// written beside the document: the text goes to a private temporary directory, tavpp
// preprocesses it there (the document's own directory first for includes), and the program is
// compiled in process, into stores made for this compile alone, with no output at all.
#pragma once

#include <sys/types.h>

#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <string>
#include <string_view>
#include <vector>

#include "diag/diagnostic.h"
#include "definitions.h"
#include "driver/xref.h"
#include "outline.h"
#include "settings.h"

namespace tav {
class DictionaryFiles;
}

namespace tav::lsp {

// The dictionaries of the settings, opened once for reading and opened again when their files
// change or the settings name others.
class DictionaryCache {
 public:
  DictionaryCache();
  ~DictionaryCache();
  DictionaryCache(const DictionaryCache&) = delete;
  DictionaryCache& operator=(const DictionaryCache&) = delete;

  // The open dictionaries (null without dictionaries); a failure to open them is a diagnostic
  // in `stop`, as tavcmp reports it, and gives null.
  DictionaryFiles* get(const Settings& settings, std::vector<Diagnostic>& stop);
  // Closes them, so that the next compile opens them again (after a damaged read).
  void forget();

 private:
  struct Stamp {
    std::string path;
    time_t seconds = 0;
    long nanoseconds = 0;
    off_t size = -1;
    bool operator==(const Stamp&) const = default;
  };
  std::vector<Stamp> stamps() const;

  std::unique_ptr<DictionaryFiles> files_;
  std::string key_;
  std::vector<Stamp> stamps_;
};

// What one compile found: the diagnostics and the program's outline.
struct CompileResult {
  std::vector<Diagnostic> diagnostics;
  std::vector<OutlineSymbol> outline;
  std::vector<Definition> definitions;
  XrefIndex xref;                   // every name with its definition and uses
  std::vector<std::string> hovers;  // what hover shows of each of xref's symbols
  std::map<std::string, std::vector<std::string>> object_fields;  // each object's record, in order
  std::vector<std::string> library_sources;  // the sources beside the component libraries linked
};

class CompileService {
 public:
  // `program_dir` is the directory of this program (where tavpp is looked for first);
  // `work_dir` a private directory the service owns and empties.
  CompileService(std::string program_dir, std::string work_dir);
  ~CompileService();
  CompileService(const CompileService&) = delete;
  CompileService& operator=(const CompileService&) = delete;

  // The diagnostics of `text` compiled as the file `path`, in the order tavcmp's json format
  // lists them (follow-on messages left out), and its outline. Places in the text are given as
  // `path`.
  CompileResult compile(const std::string& path, std::string_view text, const Settings& settings);

  // For completion: the fields of a dictionary object's record, and the dictionaries' objects;
  // nothing without dictionaries.
  std::vector<std::string> dictionary_fields(const std::string& object, const Settings& settings);
  std::vector<std::string> dictionary_objects(const Settings& settings);

  // A dictionary's object or field as `tavdict dump` writes it (an object with the fields of its
  // record), in a read-only file of the service's directory: the file and the line (from 1) of
  // the definition; nothing when no open dictionary has the name.
  std::optional<std::pair<std::string, int>> dictionary_view(XrefKind kind, const std::string& name,
                                                             const Settings& settings);

  // The preprocessor beside this program, else the one under TAVRIN/bin.
  std::string tavpp(const Settings& settings) const;

 private:
  // Runs `read` on the settings' dictionaries inside a snapshot; false without dictionaries or
  // when reading them failed (they are opened again next time).
  bool read_dictionaries(const Settings& settings, const std::function<void(DictionaryFiles&)>& read);
  std::vector<std::string> preprocessor_args(const std::string& path, const Settings& settings) const;
  std::string program_dir_;
  std::string dir_;
  DictionaryCache dictionaries_;
};

}  // namespace tav::lsp
