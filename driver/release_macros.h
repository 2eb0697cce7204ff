// The release macros tavcmp defines for the preprocessor, read from the product version text.
// The language server preprocesses with the same ones, so that a program's #if on the release
// takes the same branch in the editor as in the build.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tav {

// "-DTAVRIN_RELEASE=65", "-DTAVRIN_RELEASE_6", ... from "Release <major>[.<minor>]" behind the
// first 16 characters of the version text; nothing when the text holds no release number.
std::optional<std::vector<std::string>> release_macro_args();

}  // namespace tav
