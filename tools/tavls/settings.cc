#include "settings.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace tav::lsp {

namespace {

using Json = nlohmann::json;

bool take_string(const Json& object, const char* member, std::string& into, std::vector<std::string>& problems) {
  const auto it = object.find(member);
  if (it == object.end() || it->is_null()) return false;
  if (!it->is_string()) {
    problems.push_back(std::string("setting '") + member + "' is not a string");
    return false;
  }
  into = it->get<std::string>();
  return true;
}

// Date and library settings named as the compiler's variables.
struct VariableSetting {
  const char* member;
  const char* variable;
};
constexpr VariableSetting kVariables[] = {
    {"erq", "ERQ"},
    {"dateOrder", "TAVDATEORDER"},
    {"yearOffset", "TAVYEAROFFSET"},
    {"dateSeparator", "TAVDATESEP"},
    {"monthNames", "TAVMONTHNAMES"},
};

}  // namespace

Settings Settings::from_environment(std::string root) {
  Settings s;
  s.root = std::move(root);
  if (const char* v = std::getenv("TAVRIN"); v && *v) s.tavrin = v;
  return s;
}

void Settings::apply(const Json& object, std::vector<std::string>& problems) {
  if (!object.is_object()) {
    if (!object.is_null()) problems.emplace_back("settings are not a JSON object");
    return;
  }
  take_string(object, "tavrin", tavrin, problems);
  take_string(object, "userDictionary", user_dict, problems);
  take_string(object, "globalDictionary", global_dict, problems);
  if (const auto it = object.find("noDictionaries"); it != object.end() && !it->is_null()) {
    if (it->is_boolean()) dictionaries = !it->get<bool>();
    else problems.emplace_back("setting 'noDictionaries' is not true or false");
  }
  if (const auto it = object.find("includeDirectories"); it != object.end() && !it->is_null()) {
    std::vector<std::string> dirs;
    bool good = it->is_array();
    for (const Json& dir : good ? *it : Json::array()) {
      if (!dir.is_string()) good = false;
      else dirs.push_back(dir.get<std::string>());
    }
    if (good) includes = std::move(dirs);
    else problems.emplace_back("setting 'includeDirectories' is not a list of names");
  }
  for (const VariableSetting& v : kVariables) {
    std::string value;
    if (take_string(object, v.member, value, problems)) environment[v.variable] = value;
  }
  if (const auto it = object.find("environment"); it != object.end() && !it->is_null()) {
    if (!it->is_object()) problems.emplace_back("setting 'environment' is not an object");
    else
      for (const auto& [name, value] : it->items()) {
        if (value.is_string()) environment[name] = value.get<std::string>();
        else problems.push_back("setting 'environment." + name + "' is not a string");
      }
  }
}

void Settings::apply_file(std::vector<std::string>& problems) {
  if (root.empty()) return;
  const std::string name = root + "/tavls.json";
  std::ifstream in(name);
  if (!in) return;
  std::stringstream text;
  text << in.rdbuf();
  const Json object = Json::parse(text.str(), nullptr, false);
  if (object.is_discarded()) {
    problems.push_back(name + " is not valid JSON");
    return;
  }
  apply(object, problems);
}

const char* Settings::get(const char* name) const {
  if (const auto it = environment.find(name); it != environment.end()) return it->second.c_str();
  if (std::string_view(name) == "TAVRIN") return tavrin.c_str();
  return std::getenv(name);
}

std::function<const char*(const char*)> Settings::getenv() const {
  return [this](const char* name) { return get(name); };
}

std::vector<std::string> Settings::include_dirs() const {
  std::vector<std::string> dirs = includes;
  if (const char* v = get("TAVCMPINC"); v && *v) dirs.emplace_back(v);
  return dirs;
}

std::string Settings::absolute(const std::string& name) const {
  if (name.empty() || name.front() == '/' || root.empty()) return name;
  return root + "/" + name;
}

std::string Settings::dictionary_key() const {
  std::string key = dictionaries ? "on" : "off";
  for (const std::string& part : {user_dict, global_dict})
    key += '\n' + part;
  for (const char* variable : {"TAVUSRDICT", "TAVDISTDICT", "TAVDICT", "TAVPATH"}) {
    const char* v = get(variable);
    key += '\n' + std::string(v ? v : "\x01");
  }
  return key;
}

}  // namespace tav::lsp
