#include "documents.h"

#include "text_positions.h"

namespace tav::lsp {

namespace {

std::optional<size_t> offset_at(std::string_view text, const nlohmann::json& position) {
  if (!position.is_object()) return std::nullopt;
  const auto line = position.find("line");
  const auto character = position.find("character");
  if (line == position.end() || character == position.end() || !line->is_number_integer() ||
      !character->is_number_integer())
    return std::nullopt;
  const long long l = line->get<long long>(), c = character->get<long long>();
  if (l < 0 || c < 0 || l > INT32_MAX || c > INT32_MAX) return std::nullopt;
  return offset_of(text, static_cast<int>(l), static_cast<int>(c));
}

// One content change applied to `text`; false when it is not well formed.
bool apply(std::string& text, const nlohmann::json& change) {
  if (!change.is_object()) return false;
  const auto replacement = change.find("text");
  if (replacement == change.end() || !replacement->is_string()) return false;
  const auto range = change.find("range");
  if (range == change.end() || range->is_null()) {
    text = replacement->get<std::string>();
    return true;
  }
  if (!range->is_object() || !range->contains("start") || !range->contains("end")) return false;
  const std::optional<size_t> from = offset_at(text, (*range)["start"]);
  const std::optional<size_t> to = offset_at(text, (*range)["end"]);
  if (!from || !to || *to < *from) return false;
  text.replace(*from, *to - *from, replacement->get<std::string>());
  return true;
}

}  // namespace

Document& DocumentStore::open(std::string uri, std::string text, int version) {
  Document& d = documents_[uri];
  d.path = path_of_uri(uri).value_or("");
  d.uri = std::move(uri);
  d.text = std::move(text);
  d.version = version;
  return d;
}

bool DocumentStore::change(const std::string& uri, int version, const nlohmann::json& changes) {
  Document* d = find(uri);
  if (!d || !changes.is_array()) return false;
  std::string text = d->text;
  for (const nlohmann::json& change : changes)
    if (!apply(text, change)) return false;
  d->text = std::move(text);
  d->version = version;
  return true;
}

void DocumentStore::close(const std::string& uri) { documents_.erase(uri); }

Document* DocumentStore::find(const std::string& uri) {
  const auto it = documents_.find(uri);
  return it == documents_.end() ? nullptr : &it->second;
}

std::vector<std::string> DocumentStore::uris() const {
  std::vector<std::string> out;
  for (const auto& [uri, d] : documents_) out.push_back(uri);
  return out;
}

}  // namespace tav::lsp
