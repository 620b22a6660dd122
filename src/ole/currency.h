// ole_currency: the fixed-point money value behind the VT_CY tag.
//
// A signed 64-bit count of 1/10000, so that SQL Server's MONEY (19 digits, 4
// of them behind the point) is held exactly: -922337203685477.5808 to
// 922337203685477.5807. The conversions follow the automation layer's rules:
// rounding to 4 places and to integers takes halves to even, and a value that
// does not fit fails with ole_e_overflow.
//
// A plain value type; thread-safety is that of an int.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "ole/hresult.h"

namespace qb {

struct ole_currency {
  static constexpr std::int64_t scale = 10000;

  std::int64_t value = 0;  // count of 1/10000

  // US-English number text (see ole_parse_number), rounded to 4 places.
  static ole_hresult from_string(std::string_view text, ole_currency& out);
  // value x 10000 rounded, halves to even.
  static ole_hresult from_double(double value, ole_currency& out);
  static ole_hresult from_i64(std::int64_t value, ole_currency& out);
  static ole_hresult from_u64(std::uint64_t value, ole_currency& out);

  // Rounded to an integer, halves to even; ole_e_overflow outside [min, max].
  ole_hresult to_integer(std::int64_t min, std::int64_t max, std::int64_t& out) const;
  ole_hresult to_i64(std::int64_t& out) const;
  ole_hresult to_u64(std::uint64_t& out) const;
  [[nodiscard]] double to_double() const { return static_cast<double>(value) / 10000.0; }
  [[nodiscard]] float to_float() const { return static_cast<float>(to_double()); }

  // "12345.6789", "1.5", "-0.25", "100": up to 4 fraction digits, trailing
  // zeros dropped, as the automation layer prints a currency.
  [[nodiscard]] std::string to_string() const;
  void append_to(std::string& out) const;

  friend bool operator==(ole_currency a, ole_currency b) { return a.value == b.value; }
};

}  // namespace qb
