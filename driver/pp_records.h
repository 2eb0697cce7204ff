// The preprocessor's messages as diagnostics: tavpp --message-records writes one record a
// message (docs/tavpp.md, "Message records"); these read them back. The file is untrusted input:
// a record that is not exactly as tavpp writes it is left out, and the rest are still read.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "diag/diagnostic.h"

namespace tav {

// The diagnostics of the records in the file at `path`; none when it cannot be read or is not a
// regular file.
std::vector<Diagnostic> read_pp_records(const std::string& path);

// The diagnostics of the records in `text`, the contents of such a file.
std::vector<Diagnostic> parse_pp_records(std::string_view text);

}  // namespace tav
