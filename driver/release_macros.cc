#include "driver/release_macros.h"

#include <cctype>

#include "tav_version.h"

namespace tav {

std::optional<std::vector<std::string>> release_macro_args() {
  const std::string release = std::string(kVersionString).substr(16);
  if (release.rfind("Release ", 0) != 0) return std::nullopt;
  size_t pos = 8;
  std::string major, minor;
  while (pos < release.size() && std::isdigit(static_cast<unsigned char>(release[pos]))) major += release[pos++];
  const bool have_minor = pos < release.size() && release[pos] == '.';
  if (have_minor) {
    ++pos;
    while (pos < release.size() && std::isdigit(static_cast<unsigned char>(release[pos]))) minor += release[pos++];
  }
  return std::vector<std::string>{
      "-DTAVRIN_RELEASE=" + major + minor.substr(0, 1),
      "-DTAVRIN_RELEASE_" + major,
      "-DTAVRIN_RELEASE_" + major + (have_minor ? "_" + minor : ""),
      "-DTAVRIN_RELEASE_4",
      "-DTAVRIN_RELEASE_5",
  };
}

}  // namespace tav
