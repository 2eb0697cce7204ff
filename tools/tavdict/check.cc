// The consistency check: every object of a dictionary loaded as the compiler loads it, with the
// compiler's checks of keys, record and field definitions (verify.cc).

#include <cstdio>

#include "schema.h"
#include "scratch.h"

namespace tav::dict_tool {

int check_command(const std::string& dict, Output& out) {
  Problems problems;
  std::unique_ptr<Store> store = Store::open(dict, false, true, problems);
  if (!store) return report(problems);
  ScratchDir scratch;
  if (!scratch.ok()) return report({"cannot make a scratch directory"});
  const std::string listing = scratch.file("check.err");
  int bad = 0;
  const std::vector<std::string> names = store->object_names();
  for (const std::string& name : names) {
    const std::vector<std::string> found = object_problems(store->files(), name, listing);
    for (const std::string& message : found) out.print(name + ": " + message + "\n");
    bad += found.empty() ? 0 : 1;
  }
  out.print(std::to_string(names.size()) + " object(s) checked, " + std::to_string(bad) + " with problems\n");
  return bad == 0 ? 0 : 1;
}

}  // namespace tav::dict_tool
