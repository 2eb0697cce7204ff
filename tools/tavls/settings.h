// What decides how a document is compiled: the product directory, the include directories,
// the dictionaries and the environment the compiler reads (ERQ, TAVPATH, the date settings).
// The environment of the server is the base; a tavls.json in the workspace root, the client's
// initializationOptions and workspace/didChangeConfiguration override it in that order.
//
// The JSON object (each member optional):
//   "tavrin": "/usr/tavrin", "includeDirectories": ["inc"], "userDictionary": "u/dict",
//   "globalDictionary": "g/dict", "noDictionaries": false, "erq": "lib",
//   "dateOrder": "1", "yearOffset": "0", "dateSeparator": ".", "monthNames": "...",
//   "environment": {"TAVPATH": "..."}
// Relative directories and dictionaries are taken from the workspace root.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace tav::lsp {

struct Settings {
  std::string root;  // the workspace root; relative names are taken from it
  std::string tavrin = "/usr/tavrin";
  std::vector<std::string> includes;  // directories, as -I takes them (TAVCMPINC comes after them)
  std::string user_dict, global_dict;  // -u, -g
  bool dictionaries = true;            // -n clears
  std::map<std::string, std::string> environment;  // overrides of the server's environment

  // The server's environment (TAVRIN, TAVCMPINC, ...) under `root`.
  static Settings from_environment(std::string root);
  // Applies the members of a settings object; the problems found (a member of the wrong type)
  // are added to `problems` and the member is ignored.
  void apply(const nlohmann::json& object, std::vector<std::string>& problems);
  // Applies <root>/tavls.json when it exists.
  void apply_file(std::vector<std::string>& problems);

  // A variable as the compiler would see it in its environment; null when unset. The pointer
  // lives as long as these settings are not changed.
  const char* get(const char* name) const;
  std::function<const char*(const char*)> getenv() const;

  // The include directories as tavcmp takes them: those given, then TAVCMPINC.
  std::vector<std::string> include_dirs() const;

  // A name taken from the workspace root when it is relative.
  std::string absolute(const std::string& name) const;
  // What identifies the dictionaries to open: equal keys, same dictionaries.
  std::string dictionary_key() const;
};

}  // namespace tav::lsp
