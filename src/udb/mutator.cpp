#include "udb/mutator.h"

#include <string>

#include "tk/format.h"

namespace qb {
namespace {

// The lists read so far, by file name. They belong to the process: read
// once, on first need, and kept to its end.
std::map<std::string, tk_yaml_config::t_map>& type_maps() {
  static std::map<std::string, tk_yaml_config::t_map> maps;
  return maps;
}

}  // namespace

udb_type_attributes udb_attributes_of(const std::vector<std::wstring>& words) {
  udb_type_attributes attributes;
  for (const std::wstring& word : words) {
    if (word.find(L"LENGTH") != std::wstring::npos) attributes.length = true;
    if (word.find(L"SCALE") != std::wstring::npos) attributes.scale = true;
    if (word.find(L"PRECISION") != std::wstring::npos) attributes.precision = true;
  }
  return attributes;
}

tk_yaml_config::t_map& udb_type_map(const char* file, bool logged_as_types_map, const std::set<std::wstring>& filter) {
  tk_yaml_config::t_map& map = type_maps()[file];
  // An empty map is one not read yet: a file without entries is read again
  // at the next use.
  if (!map.empty()) return map;
  if (logged_as_types_map) LOG(1, "Gonna load typesmap.cfg");
  tk_yaml_config config;
  if (!config.load(file, filter)) {
    throw tk_exception_ex::user_message(tk_format("Cannot find %S. Custom type mapping is not available.", file));
  }
  map = std::move(config.values);
  if (logged_as_types_map) LOG(1, "types_map.size=%d", static_cast<int>(map.size()));
  return map;
}

void udb_forget_type_maps() { type_maps().clear(); }

const std::set<std::wstring>& udb_type_filter() {
  static const std::set<std::wstring> filter;
  return filter;
}

}  // namespace qb
