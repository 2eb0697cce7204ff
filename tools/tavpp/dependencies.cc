#include "dependencies.h"

namespace tav::pp {

std::string default_target(const std::string& source) {
  const std::size_t slash = source.find_last_of('/');
  const std::size_t dot = source.rfind('.');
  const bool has_extension = dot != std::string::npos && (slash == std::string::npos || dot > slash);
  return (has_extension ? source.substr(0, dot) : source) + ".op6";
}

}  // namespace tav::pp
