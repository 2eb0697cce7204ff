// Make rules for the files a source was built from (runtime/make_rules.h): the target depends
// on the source and every file it included.
#pragma once

#include <string>
#include <vector>

#include "runtime/make_rules.h"

namespace tav::pp {

using tav::make_rules;

// The target used when none is given: the source with its extension replaced by ".op6".
std::string default_target(const std::string& source);

}  // namespace tav::pp
