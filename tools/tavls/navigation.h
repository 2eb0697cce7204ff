// Requests answered from a compile's cross reference: the name at a position, its references,
// a rename of it, completion, and the workspace's symbols. Positions go between the
// compiler's (1-based lines, characters from 1) and the protocol's (0-based, UTF-16).
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "driver/xref.h"
#include "text_positions.h"

namespace tav::lsp {

// Lines of the program's files: an open document's text, else the file on disk.
class SourceLines {
 public:
  using OpenText = std::function<const std::string*(const std::string& path)>;
  explicit SourceLines(OpenText open) : open_(std::move(open)) {}
  std::string line(const std::string& path, int line);  // from 1; empty when unknown

 private:
  OpenText open_;
  DiskLines disk_;
};

// A compiler place as a protocol Location.
nlohmann::json location_of(const SourceRange& at, SourceLines& lines);

// The character column (from 1) of byte `at` of `line`.
int character_column(std::string_view line, size_t at);

// The symbol whose place covers the position, and the use or definition there.
const XrefSymbol* symbol_at(const XrefIndex& index, const std::string& path, int line, int column);

// textDocument/references: every place of the symbol, its definition first when asked for.
nlohmann::json references(const XrefSymbol& symbol, bool with_definition, SourceLines& lines);

// Why `symbol` cannot be renamed to `name` (empty when it can).
std::string rename_refusal(const XrefSymbol& symbol, std::string_view name);
// textDocument/rename's WorkspaceEdit: the new name at every place of the symbol.
nlohmann::json rename_edit(const XrefSymbol& symbol, const std::string& name, SourceLines& lines);

// What completion offers at a place of a line (`before`: the line's text before the cursor).
struct CompletionContext {
  enum class Kind { statement, clause, names, object_fields } kind = Kind::names;
  std::string object;  // for object_fields: the name before the dot
  std::string prefix;  // the part of the word already typed
};
CompletionContext completion_context(std::string_view before);

// CompletionItem[] for the context: keywords (after a verb, the clause words the statement's
// compile offered on that line, or every clause word), the program's names (a section's own fields only
// inside it), or an object's fields (`object_fields`, from the program and the dictionaries).
nlohmann::json completion_items(const CompletionContext& context, const XrefIndex* index, const std::string& path,
                                int line, const std::vector<std::string>& object_fields,
                                const std::vector<std::string>& dictionary_objects);

// Where the source of a component library defines the routine `name` with EXPORT: a section
// header "procedure name ... export" (or screen, menu, api); nothing when it does not.
std::optional<SourceRange> exported_routine(const std::string& source, const std::string& name);

// SymbolInformation[] of the names a document defines whose name holds `query` (any case).
void workspace_symbols(const XrefIndex& index, const std::string& query, SourceLines& lines, nlohmann::json& out);

}  // namespace tav::lsp
