// udb_validator: judges and repairs one kind of name (tables, columns,
// indexes, databases) against the rules of a target.
//
// A name may be too long, hold characters the target refuses, be reserved, or
// collide with a name already given out. is_acceptable and is_duplicated
// judge; get_safe_name derives a name that passes both. The three are virtual
// so that an engine's rule set, derived from this class, takes effect inside
// get_safe_name's search as well.
//
// Comparisons against the restricted and existing lists ignore case.
//
// Ownership: the validator owns its lists. It is not copyable (it is used
// through pointers to derived rule sets).
// Thread-safety: none; a validator belongs to the run or statement that made it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "udb/names_map.h"

namespace qb {

class udb_validator {
 public:
  // max_len is the longest acceptable name in characters; 0 means no limit.
  explicit udb_validator(std::uint32_t max_len = 0);
  virtual ~udb_validator();
  udb_validator(const udb_validator&) = delete;
  udb_validator& operator=(const udb_validator&) = delete;

  // False when the name is too long, restricted, or holds an illegal
  // character, checked in that order. Logs "udb_validator::is_acceptable(%s)".
  [[nodiscard]] virtual bool is_acceptable(const std::wstring& name) const;
  // True when the name is among the existing names.
  [[nodiscard]] virtual bool is_duplicated(const std::wstring& name) const;
  // A name that passes both tests: cut, illegal characters replaced by '_',
  // and if still refused, a five-digit counter appended. The counter running
  // out is an internal error (tk_mail_assertion "udb_vali", 54).
  [[nodiscard]] virtual std::wstring get_safe_name(const std::wstring& name) const;

  // Counts the name as taken, with no test of its own. Logs
  // "udb_validator::add_existing_name(%s)".
  void add_existing_name(const std::wstring& name);
  // Refuses the name outright from now on (keywords; names given out during
  // a run, so that a later name differing only in letter case is refused).
  void add_restricted_name(const std::wstring& name);
  // Remembers a rename in ref_map. Logs "udb_validator::add_mapped_pair(%s,%s)".
  void add_mapped_pair(const std::wstring& old_name, const std::wstring& new_name);

  [[nodiscard]] std::uint32_t max_len() const { return max_len_; }
  [[nodiscard]] const t_names_map& ref_map() const { return ref_map_; }
  [[nodiscard]] const std::wstring& illegal_chars() const { return illegal_chars_; }
  [[nodiscard]] const std::vector<std::wstring>& restricted() const { return restricted_; }
  [[nodiscard]] const std::vector<std::wstring>& existing() const { return existing_; }

 protected:
  void set_max_len(std::uint32_t max_len) { max_len_ = max_len; }
  // Every character of chars is refused in names (appended to the list).
  void add_illegal_chars(std::wstring_view chars) { illegal_chars_.append(chars); }
  // The restricted names, appended in the order given.
  void add_restricted_names(const std::vector<std::wstring>& names);
  void add_restricted_names(std::span<const std::wstring_view> names);

 private:
  std::uint32_t max_len_ = 0;
  t_names_map ref_map_;                   // renames made by a derived rule set
  std::wstring illegal_chars_;            // characters a name may not hold
  std::vector<std::wstring> restricted_;  // names refused outright
  std::vector<std::wstring> existing_;    // names that count as taken
};

}  // namespace qb
