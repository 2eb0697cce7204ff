// The compiler's diagnostics as textDocument/publishDiagnostics parameters: grouped by the file
// they are about (a message inside an included file belongs to that file), positions in UTF-16
// code units from 0, notes with a place as relatedInformation and notes without one appended to
// the message.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "diag/diagnostic.h"

namespace tav::lsp {

// The text of line `line` (from 1) of a file, to turn character columns into UTF-16 ones.
using LineText = std::function<std::optional<std::string>(const std::string& path, int line)>;

// The protocol's Diagnostic for one of the compiler's; `document` is the file a diagnostic
// without a place is shown in (at its start).
nlohmann::json lsp_diagnostic(const Diagnostic& d, const LineText& lines);

// The diagnostics array of every file a diagnostic is about, by URI; the document's own URI is
// always there (empty when it has none).
std::map<std::string, nlohmann::json> diagnostics_by_uri(const std::vector<Diagnostic>& items,
                                                         const std::string& document_path, const LineText& lines);

}  // namespace tav::lsp
