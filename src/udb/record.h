// One row in flight between two recordsets.
//
// A udb_field is one value of a row: an ole_variant that also knows its
// column's name and length, so that a row can be routed by name without the
// schema at hand. A udb_record is the row: its fields in the source
// recordset's column order.
//
// Rows are made for every row read, so the record is built to be reused: it
// holds its fields by value in one vector, and a recordset that reads rows
// keeps one record and refills it (assigning a field keeps the storage of
// its name), instead of allocating fields per row. The engines build values
// into udb_field rather than deriving field classes of their own.
//
// Ownership: a record owns its fields. A record that a recordset or a mutator
// hands out belongs to the giver and is valid until the giver's next call; a
// destination must not keep it.
// Thread-safety: none; a record belongs to the worker while it is in flight.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ole/variant.h"

namespace qb {

class udb_field : public ole_variant {
 public:
  std::uint32_t size = 0;  // length as the source delivered it, or the column's declared size
  std::wstring name;       // column name
  bool b_auto_num = false;
  bool b_not_null = false;

  // An empty value with an empty name. Logs "udb_field::empty ctor".
  udb_field();
  // Logs "udb_field::ctor #2" and "name=%s, size=%d".
  udb_field(std::wstring name, std::uint32_t size, const ole_variant& value, bool b_auto_num = false,
            bool b_not_null = false);
  // Logs "udb_field::copy ctor".
  udb_field(const udb_field& that);
  udb_field(udb_field&& that) noexcept;
  udb_field& operator=(const udb_field& that);
  udb_field& operator=(udb_field&& that) noexcept;
  ~udb_field() override;

  // The value's type tag. Logs "ole_variant::get_type".
  [[nodiscard]] std::uint16_t get_type() const;
  // The size in bytes or characters that the value will take in a
  // statement: the element count of a byte array, the length of a text,
  // otherwise size.
  [[nodiscard]] std::uint32_t get_length() const;
};

class udb_record {
 public:
  using container = std::vector<udb_field>;
  using iterator = container::iterator;
  using const_iterator = container::const_iterator;

  udb_record() = default;
  // Logs "udb_record::dtor" and "udb_record::reset".
  ~udb_record();
  udb_record(const udb_record&) = default;
  udb_record(udb_record&&) noexcept = default;
  udb_record& operator=(const udb_record&) = default;
  udb_record& operator=(udb_record&&) noexcept = default;

  // The field of that name (compared without regard to case), or null.
  [[nodiscard]] udb_field* get_field(std::wstring_view name);
  [[nodiscard]] const udb_field* get_field(std::wstring_view name) const;
  [[nodiscard]] bool has_field(std::wstring_view name) const;
  // Position of the named field without any log line, or -1; hint is tried first.
  [[nodiscard]] int index_of(std::wstring_view name, std::size_t hint = 0) const;
  // The sum of get_length over the fields that hold a value (tag not 0).
  [[nodiscard]] std::uint32_t get_total_size() const;

  // Range-checked; throws std::out_of_range("invalid vector subscript").
  [[nodiscard]] udb_field& operator[](std::size_t i);
  [[nodiscard]] const udb_field& operator[](std::size_t i) const;
  [[nodiscard]] std::size_t size() const { return fields_.size(); }
  [[nodiscard]] bool empty() const { return fields_.empty(); }
  [[nodiscard]] iterator begin() { return fields_.begin(); }
  [[nodiscard]] iterator end() { return fields_.end(); }
  [[nodiscard]] const_iterator begin() const { return fields_.begin(); }
  [[nodiscard]] const_iterator end() const { return fields_.end(); }
  void push_back(udb_field field) { fields_.push_back(std::move(field)); }
  template <class... A>
  udb_field& emplace_back(A&&... args) {
    return fields_.emplace_back(std::forward<A>(args)...);
  }
  iterator erase(const_iterator pos) { return fields_.erase(pos); }
  // Sets the number of fields, keeping the storage of the ones that stay.
  void resize(std::size_t n) { fields_.resize(n); }
  void reserve(std::size_t n) { fields_.reserve(n); }
  // Drops every field; the storage is kept for the next row. Logs
  // "udb_record::reset".
  void reset();

 private:
  container fields_;
};

}  // namespace qb
