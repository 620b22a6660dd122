// Column descriptors and the schema of a table, in terms neutral between the
// engines.
//
// t_ftd (field type descriptor) describes one column: its name, value type
// (the ole_variant tag), declared size, precision and scale, the engine's own
// spelling of the type, the auto-number and not-null flags, the default value
// and a sub-type word (dw_reserved) set by the source reader. udb_schema is
// the ordered list of a table's columns.
//
// A source table's schema is filled by the source reader, changed in place by
// the mutators, rendered into DDL by a target, and compared with an existing
// target table through conform_to: the one place where the program judges
// whether data of one column fits another.
//
// Ownership: a schema owns its descriptors by value. Copying a schema copies
// every descriptor, so a copy (such as the one the wizard keeps to show a
// table's columns) is independent of the recordset it came from and stays
// valid after that recordset is gone. The owner flag that the recordsets pass
// is recorded and copied with the schema, as are the two 32-bit words, but
// none of them governs lifetime.
//
// References returned by the lookups stay valid until the schema's list
// changes (push_back, insert, erase, reset, assignment).
//
// Thread-safety: none; a schema belongs to its recordset and to one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ole/variant.h"

namespace qb {

struct t_ftd {
  std::uint32_t size = 0;   // characters for text, bytes for binary; 0 when unlimited
  std::uint32_t prec = 0;   // numeric precision
  std::uint32_t scale = 0;  // numeric scale
  std::wstring name;
  std::uint16_t vartype = 0;  // ole_variant tag of the column's values
  std::wstring native_type;   // the type as the engine spells it
  bool b_auto_num = false;    // identity / auto-increment
  bool b_not_null = false;
  ole_variant def_value;  // empty when there is no default
  // Sub-type word set by the source reader: 1 date and time or GUID text,
  // 2 pure date, 3 pure time, 9 date whose default is a function, 11 XML,
  // bit 16 "datetimeoffset" carried as a date.
  std::uint32_t dw_reserved = 0;
  std::wstring description;  // column comment

  // A quiet, all-zero descriptor.
  t_ftd() = default;
  // Logs "t_ftd::ctor2" and the column's attributes at level 1.
  t_ftd(std::uint32_t size, std::wstring name, std::uint16_t vartype, bool b_not_null, bool b_auto_num,
        ole_variant def_value, std::uint32_t dw_reserved, std::wstring native_type);

  // Same column type: the tags match (VT_DECIMAL and VT_CY count as one),
  // and for text the sizes match as well. Names are not compared.
  [[nodiscard]] bool operator==(const t_ftd& that) const;
  // Whether values of this (source) column fit the destination column that.
  [[nodiscard]] bool conform_to(const t_ftd& that) const;
};

class udb_schema {
 public:
  using container = std::vector<t_ftd>;
  using iterator = container::iterator;
  using const_iterator = container::const_iterator;

  explicit udb_schema(bool b_owner = true) : b_owner_(b_owner) {}

  // True when a column of that name exists (compared without regard to case).
  [[nodiscard]] bool find_field(std::wstring_view name) const;
  // The named column. An absent name logs "Field '%s' not found" and gives
  // an empty descriptor, which the schema keeps until the next miss.
  [[nodiscard]] t_ftd& get_field1(std::wstring_view name);
  [[nodiscard]] const t_ftd& get_field1(std::wstring_view name) const;
  // The same lookup under its second log label.
  [[nodiscard]] t_ftd& get_field2(std::wstring_view name);
  [[nodiscard]] const t_ftd& get_field2(std::wstring_view name) const;
  // Position of the named column, or -1.
  [[nodiscard]] int get_field_idx(std::wstring_view name) const;
  // size and vartype of the named column; 0 when absent.
  [[nodiscard]] std::uint32_t get_field_size(std::wstring_view name) const;
  [[nodiscard]] std::uint16_t get_field_type(std::wstring_view name) const;

  // Whether rows of this (source) schema fit the destination schema that:
  // the same number of columns, each conforming, position by position or,
  // with by_name, to the destination column of the same name.
  [[nodiscard]] bool conform_to(const udb_schema& that, bool by_name) const;

  // Empties the list. Logs "udb_schema::reset" and "udb_schema::reset - END".
  void reset();

  // Position of the named column without any log line, or -1. hint is the
  // position to try first; lookups that usually hit the same position (a
  // record against its table's schema) then cost one comparison.
  [[nodiscard]] int index_of(std::wstring_view name, std::size_t hint = 0) const;

  [[nodiscard]] std::size_t size() const { return fields_.size(); }
  [[nodiscard]] bool empty() const { return fields_.empty(); }
  // Range-checked; throws std::out_of_range("invalid vector subscript").
  [[nodiscard]] t_ftd& operator[](std::size_t i);
  [[nodiscard]] const t_ftd& operator[](std::size_t i) const;
  [[nodiscard]] iterator begin() { return fields_.begin(); }
  [[nodiscard]] iterator end() { return fields_.end(); }
  [[nodiscard]] const_iterator begin() const { return fields_.begin(); }
  [[nodiscard]] const_iterator end() const { return fields_.end(); }
  void push_back(t_ftd field) { fields_.push_back(std::move(field)); }
  iterator insert(const_iterator pos, t_ftd field) { return fields_.insert(pos, std::move(field)); }
  iterator erase(const_iterator pos) { return fields_.erase(pos); }
  void reserve(std::size_t n) { fields_.reserve(n); }
  // Replaces the columns by fields and takes the flags of from (the mutators
  // hand over a rebuilt column list this way).
  void assign_fields(const udb_schema& from);

  [[nodiscard]] bool b_owner() const { return b_owner_; }
  void set_owner(bool b_owner) { b_owner_ = b_owner; }
  [[nodiscard]] std::uint32_t word1() const { return word1_; }
  [[nodiscard]] std::uint32_t word2() const { return word2_; }
  void set_words(std::uint32_t word1, std::uint32_t word2) {
    word1_ = word1;
    word2_ = word2;
  }

 private:
  [[nodiscard]] const t_ftd& lookup(const char* label, std::wstring_view name) const;

  container fields_;
  bool b_owner_ = true;
  // Two words carried with the schema; no rule of the program reads them.
  std::uint32_t word1_ = 1;
  std::uint32_t word2_ = 1;
  // The empty descriptor handed out for an absent name.
  mutable t_ftd absent_;
};

}  // namespace qb
