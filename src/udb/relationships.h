// Foreign keys of a database, as plain values with no engine knowledge.
//
// udb_rel is one foreign key: the child table (fk_table) holds the key
// columns that refer to the parent table (pk_table). A source reads its keys
// one row per column pair: it asks find for (name, parent, child), then either
// get and append the pair, or makes a new record. A name repeated between
// different tables therefore stays two records.
//
// The hook by which a product could register per-column conversion rules is
// not built: this program registers none, so every question to it would
// answer false, and the callers simply do without it.
//
// Ownership: values; copying copies every record.
// Thread-safety: none; the list belongs to its database and to one thread.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace qb {

struct udb_rel {
  std::wstring name;
  std::wstring owner;                   // schema of the key, when the source gives one
  std::wstring fk_table;                // child table, the one that holds the key
  std::wstring pk_table;                // parent table, the referenced one
  std::wstring properties;              // " ON UPDATE <rule>" and/or " ON DELETE <rule>"
  std::vector<std::wstring> fk_fields;  // child columns, in key order
  std::vector<std::wstring> pk_fields;  // parent columns, in the same order

  udb_rel() = default;
  udb_rel(std::wstring name, std::wstring owner, std::wstring fk_table, std::wstring pk_table,
          std::vector<std::wstring> fk_fields, std::vector<std::wstring> pk_fields, std::wstring properties);

  friend bool operator==(const udb_rel&, const udb_rel&) = default;
};

class udb_relationships {
 public:
  using container = std::vector<udb_rel>;
  using iterator = container::iterator;
  using const_iterator = container::const_iterator;

  // True when a record has this name, parent and child, each compared
  // without regard to case.
  [[nodiscard]] bool find(const std::wstring& name, const std::wstring& pk_table, const std::wstring& fk_table) const;
  // That record; an unknown triple is an internal error ("udb_rel", 177).
  [[nodiscard]] udb_rel& get(const std::wstring& name, const std::wstring& pk_table, const std::wstring& fk_table);
  // The first record of that name; an unknown name is an internal error
  // ("udb_rel", 160).
  [[nodiscard]] udb_rel& get_index(const std::wstring& name);
  // True when no record has that name (compared without regard to case).
  [[nodiscard]] bool is_acceptable_name(const std::wstring& name) const;

  void push_back(udb_rel rel) { list_.push_back(std::move(rel)); }
  [[nodiscard]] std::size_t size() const { return list_.size(); }
  [[nodiscard]] bool empty() const { return list_.empty(); }
  // Range-checked; throws std::out_of_range("invalid vector subscript").
  [[nodiscard]] udb_rel& operator[](std::size_t i);
  [[nodiscard]] const udb_rel& operator[](std::size_t i) const;
  [[nodiscard]] iterator begin() { return list_.begin(); }
  [[nodiscard]] iterator end() { return list_.end(); }
  [[nodiscard]] const_iterator begin() const { return list_.begin(); }
  [[nodiscard]] const_iterator end() const { return list_.end(); }
  void clear() { list_.clear(); }

  friend bool operator==(const udb_relationships&, const udb_relationships&) = default;

 private:
  [[nodiscard]] const udb_rel* find_rel(const std::wstring& name, const std::wstring& pk_table,
                                        const std::wstring& fk_table) const;

  container list_;
};

}  // namespace qb
