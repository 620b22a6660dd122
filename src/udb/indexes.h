// Indexes of one table, as plain values with no engine knowledge.
//
// udb_index describes one index: its name, the unique / primary / constraint
// flags, the key columns in key order and the non-key columns a source index
// includes. udb_indexes is the list of a recordset; the source reader fills
// it while a table initialises, the mutators rewrite its columns, and the
// driver hands a copy to create_table, where the target may rename entries.
//
// Index names compare without regard to case; column names inside
// is_idx_field compare exactly, in starts_with_fields without regard to case.
//
// Ownership: values; copying copies every index.
// Thread-safety: none; a list belongs to its recordset and to one thread.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace qb {

struct udb_index {
  std::wstring name;
  bool b_unique = false;
  bool b_primary = false;
  bool b_constraint = false;           // a unique constraint, as opposed to a unique index
  std::vector<std::wstring> fields;    // key columns in key order
  std::vector<std::wstring> included;  // non-key columns of a source index

  udb_index() = default;
  // Logs "udb_index::ctor('%s',%d,%d)" with the name and the unique and
  // primary flags.
  udb_index(std::wstring name, bool b_unique, bool b_primary, std::vector<std::wstring> fields = {},
            bool b_constraint = false);

  // True when the index's leading columns are fields, in order, compared
  // without regard to case. An empty list is true; more fields than the
  // index has is false.
  [[nodiscard]] bool starts_with_fields(const std::vector<std::wstring>& that) const;

  friend bool operator==(const udb_index&, const udb_index&) = default;
};

class udb_indexes {
 public:
  using container = std::vector<udb_index>;
  using iterator = container::iterator;
  using const_iterator = container::const_iterator;

  // The index of that name (compared without regard to case). An unknown
  // name is an internal error (tk_mail_assertion).
  [[nodiscard]] udb_index& get_index(const std::wstring& name);
  [[nodiscard]] const udb_index& get_index(const std::wstring& name) const;
  // True when no index has that name (compared without regard to case).
  [[nodiscard]] bool is_acceptable_name(const std::wstring& name) const;
  // True when field (compared exactly) is a key column of some index, or
  // with b_primary_only of a primary key.
  [[nodiscard]] bool is_idx_field(const std::wstring& field, bool b_primary_only) const;
  // True when some index starts with fields; with b_unique_only, only when
  // the first such index is unique (the first match decides).
  [[nodiscard]] bool has_index_on_fields(const std::vector<std::wstring>& fields, bool b_unique_only) const;

  // Merges a definition into the list, for sources that describe one index
  // several times: a primary key wins over a unique constraint, which wins
  // over a unique index, which wins over a plain index.
  void push_back(const udb_index& index);
  // Appends unless an index of that name exists, in which case the list stays.
  void push_back_direct(const udb_index& index);

  [[nodiscard]] std::size_t size() const { return list_.size(); }
  [[nodiscard]] bool empty() const { return list_.empty(); }
  // Range-checked; throws std::out_of_range("invalid vector subscript").
  [[nodiscard]] udb_index& operator[](std::size_t i);
  [[nodiscard]] const udb_index& operator[](std::size_t i) const;
  [[nodiscard]] iterator begin() { return list_.begin(); }
  [[nodiscard]] iterator end() { return list_.end(); }
  [[nodiscard]] const_iterator begin() const { return list_.begin(); }
  [[nodiscard]] const_iterator end() const { return list_.end(); }
  iterator erase(const_iterator it) { return list_.erase(it); }
  void clear() { list_.clear(); }

  friend bool operator==(const udb_indexes&, const udb_indexes&) = default;

 private:
  [[nodiscard]] const udb_index* find(const std::wstring& name) const;
  [[nodiscard]] udb_index* find(const std::wstring& name);

  container list_;
};

}  // namespace qb
