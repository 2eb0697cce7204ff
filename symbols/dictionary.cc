#include "symbols/dictionary.h"

#include <cstdio>
#include <cstdlib>

namespace tav {

void NoDictionaries::stop_run(std::string_view message) {
  // Only a field or record read from a dictionary leads here, and there is none.
  std::fprintf(stderr, "%.*s\n", static_cast<int>(message.size()), message.data());
  std::abort();
}

}  // namespace tav
