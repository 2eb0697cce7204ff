// The documents the editor has open: their text as the editor has it (saved or not), kept in
// step through full and incremental changes.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace tav::lsp {

struct Document {
  std::string uri;
  std::string path;  // the file the URI names; empty for a URI that is not a file
  std::string text;
  int version = 0;
};

class DocumentStore {
 public:
  Document& open(std::string uri, std::string text, int version);
  // Applies textDocument/didChange's contentChanges in order (a change with a "range" replaces
  // that range, one without replaces the whole text). False, leaving the text as it was, for an
  // unknown document or a change that is not well formed.
  bool change(const std::string& uri, int version, const nlohmann::json& changes);
  void close(const std::string& uri);
  Document* find(const std::string& uri);
  std::vector<std::string> uris() const;

 private:
  std::map<std::string, Document> documents_;
};

}  // namespace tav::lsp
