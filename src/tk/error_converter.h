// tk_error_converter: from a failure's code to the friendly message shown
// in its place.
//
// A message table is a plain array of rows (code, text), as compiled into the
// program (tk/error_tables.h). The converter copies the rows into an ordered
// map; the first table loaded wins for a code that two tables share.
//
// Ownership: the converter owns its copies of the texts; the tables are only
// read while they are loaded.
// Thread-safety: load before sharing; convert may then be called from any
// thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>

namespace qb {

struct tk_error_row {
  std::uint32_t code;
  const char* text;
};

class tk_error_converter {
 public:
  tk_error_converter() = default;
  // Builds the map from the table (see load_map).
  tk_error_converter(std::size_t count, const tk_error_row* table);
  explicit tk_error_converter(std::span<const tk_error_row> table);

  // Logs "tk_error_converter::load_map (map size=%d)" with the count. A null
  // table is an internal error (source "tk_errco", line 43). Rows are added in
  // table order; a code that is present already keeps its first text.
  void load_map(std::size_t count, const tk_error_row* table);
  void load_map(std::span<const tk_error_row> table) { load_map(table.size(), table.data()); }

  // Logs "tk_error_converter::convert(%d)", then "Error message has been
  // found: %s" or "Error message not found!". The message, or empty text.
  [[nodiscard]] std::string convert(std::uint32_t code) const;

  [[nodiscard]] std::size_t size() const { return map_.size(); }

 private:
  std::map<std::uint32_t, std::string> map_;
};

}  // namespace qb
