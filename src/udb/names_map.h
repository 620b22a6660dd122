// Source-to-target name maps.
//
// A source identifier that the target refuses is renamed (udb_validator); the
// pair is remembered here so that foreign keys, index columns and view texts
// written later still refer to the right objects.
//
// t_names_map is an ordered map from wide string to wide string. Keys order by
// wide-character value and are case-sensitive; that order is the order in
// which view texts are rewritten, so it must not depend on the locale.
//
// udb_names_map belongs to a udb_database: the table-name map and, per table,
// a field-name map. Both grow during a run and die with the database. Lookups
// that find nothing return the name they were given: an unmapped name is not
// an error.
//
// Ownership: plain values; copying copies the maps.
// Thread-safety: none; a map belongs to the database that holds it and to the
// thread that uses that database.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "tk/strings.h"

namespace qb {

// The comparison of table, column and index names: without regard to case.
// Equal text, the usual case when a row meets its own table's columns, is
// recognised before any character is folded.
inline bool udb_equal_names(std::wstring_view a, std::wstring_view b) {
  return a.size() == b.size() && (a == b || tk_equal_no_case(a, b));
}

class t_names_map {
 public:
  using map_type = std::map<std::wstring, std::wstring>;
  using const_iterator = map_type::const_iterator;

  // Inserts the pair; a key that is already present keeps its old value.
  // Logs "t_names_map::add(%s,%s)".
  void add(const std::wstring& old_name, const std::wstring& new_name);
  // Same as add, without the log line; for callers that log for themselves.
  bool insert(const std::wstring& old_name, const std::wstring& new_name);

  // The new name of old_name, compared without regard to case, the keys
  // being walked in map order; old_name itself when no key matches. Logs
  // "t_names_map::get_mapped_name(%s)".
  [[nodiscard]] std::wstring get_mapped_name(const std::wstring& old_name) const;

  // Exact (case-sensitive) lookup; null when the key is absent.
  [[nodiscard]] const std::wstring* find(const std::wstring& old_name) const;

  [[nodiscard]] const_iterator begin() const { return map_.begin(); }
  [[nodiscard]] const_iterator end() const { return map_.end(); }
  [[nodiscard]] std::size_t size() const { return map_.size(); }
  [[nodiscard]] bool empty() const { return map_.empty(); }
  void clear() { map_.clear(); }

  friend bool operator==(const t_names_map&, const t_names_map&) = default;

 private:
  map_type map_;
};

class udb_names_map {
 public:
  using field_maps = std::map<std::wstring, t_names_map>;

  // Enters (source table name, generated name) in the table map; an existing
  // key keeps its old value. Logs "udb_names_map::add_tn_mapping(%s,%s)".
  void add_tn_mapping(const std::wstring& source, const std::wstring& generated);
  // Stores a copy of the whole field map under the table's name, replacing
  // an older one. Logs "udb_names_map::add_fn_map(%s)".
  void add_fn_map(const std::wstring& table, const t_names_map& map);

  // The generated name of a table, or name itself. With b_exact the names
  // compare by length and wide character, otherwise without regard to case;
  // the map is walked in order and the first match wins.
  [[nodiscard]] std::wstring get_tn_mapped_name(const std::wstring& name, bool b_exact) const;
  // The generated name of a field of a table, or field itself. The table is
  // matched exactly; the field as b_exact says.
  [[nodiscard]] std::wstring get_fn_mapped_name(const std::wstring& table, const std::wstring& field,
                                                bool b_exact) const;
  // The reverse lookup of the table map: the source name whose generated
  // name is exactly generated, or generated itself (a table that kept its
  // name).
  [[nodiscard]] std::wstring get_tn_orig_name(const std::wstring& generated) const;
  // The reverse lookup: the source name of a generated field name of a table
  // (compared without regard to case), or generated itself.
  [[nodiscard]] std::wstring get_fn_orig_name(const std::wstring& table, const std::wstring& generated) const;

  // Rewrites a piece of SQL (typically a view body) so that it refers to the
  // generated names: first the table map, then each table's field map in map
  // order, each pass working on the output of the one before. left and right
  // are the target's quote strings; either may be empty.
  [[nodiscard]] std::wstring do_global_replace1(const std::wstring& text, const std::wstring& left,
                                                const std::wstring& right) const;
  // One pass of that rewrite with one map: every whole-word occurrence of an
  // old name, found without regard to case, becomes the quoted new name.
  [[nodiscard]] static std::wstring do_global_replace2(const std::wstring& text, const t_names_map& map,
                                                       const std::wstring& left, const std::wstring& right);

  [[nodiscard]] const t_names_map& tn_map() const { return tn_map_; }
  [[nodiscard]] const field_maps& fn_map() const { return fn_map_; }
  // The field map of a table (exact match), or null.
  [[nodiscard]] const t_names_map* find_fn_map(const std::wstring& table) const;

 private:
  t_names_map tn_map_;
  field_maps fn_map_;
};

}  // namespace qb
