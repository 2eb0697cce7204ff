// Make rules for the files a source was built from, as compilers write them for make: the
// target depends on the source and every file it included; each included file also gets a rule
// of its own without prerequisites, so that make does not stop when an include is removed.
#pragma once

#include <string>
#include <vector>

namespace tav::pp {

// The rules: "target: files[0] files[1] ...", continued with " \" on further lines when long,
// then an empty rule for each of files[1...]. Names are quoted for make (blank, tab and the
// backslashes before them, "#", "$"; a newline, which make cannot express, as "\n").
std::string make_rules(const std::string& target, const std::vector<std::string>& files);

// The target used when none is given: the source with its extension replaced by ".op6".
std::string default_target(const std::string& source);

}  // namespace tav::pp
