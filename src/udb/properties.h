// udb_properties: the small base that lets the tree of user customisations
// (database, table and field mutators) be walked by name.
//
// Each object owns an ordered map of (key, value) wide strings; the mutators
// give the keys their meaning. The two lookups find a child by its source name
// and by its target name (a table of a database, a field of a table); a level
// with no children answers null.
//
// Ownership: the map is owned; the lookups return pointers to children owned
// by the object that answers, valid while that object lives and is unchanged.
// Thread-safety: none; written on the wizard's thread, read on the worker's,
// never at the same time.
#pragma once

#include <map>
#include <string>

namespace qb {

class udb_properties {
 public:
  using property_map = std::map<std::wstring, std::wstring>;

  udb_properties() = default;
  virtual ~udb_properties();
  udb_properties(const udb_properties&) = delete;
  udb_properties& operator=(const udb_properties&) = delete;

  // The property map; a level may rebuild it from its own fields first.
  virtual property_map& get_properties();
  // The child of that source name, or null.
  virtual udb_properties* find_by_source_name(const std::wstring& name) = 0;
  // The child of that target name, or null.
  virtual udb_properties* find_by_target_name(const std::wstring& name) = 0;

 protected:
  property_map properties_;
};

}  // namespace qb
