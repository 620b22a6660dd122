// ole_decimal: the exact decimal number behind the VT_DECIMAL tag.
//
// A value is sign x mantissa / 10^scale. The automation DECIMAL this stands in
// for has a 96-bit mantissa and a scale of 0..28, which is not enough for SQL
// Server, whose DECIMAL and NUMERIC go to 38 digits. This type therefore keeps
// a 128-bit mantissa limited to 38 decimal digits (below 10^38) and a scale of
// 0..38, so that every DECIMAL(p, s) of SQL Server is held exactly. Everything
// else keeps the automation rules: integer conversions round halves to even
// and fail with ole_e_overflow when the result does not fit; text is read in
// the US-English number form and printed without trailing zeros.
//
// Where a value must be laid out as the 16 bytes of the automation DECIMAL
// (as the bytes of a binary value), only values with a mantissa below 2^96
// and a scale of at most 28 can be; see to_ole_bytes.
//
// A plain value type; thread-safety is that of an int.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "ole/hresult.h"
#include "ole/numtext.h"

namespace qb {

class ole_decimal {
 public:
  static constexpr int max_scale = 38;
  static constexpr int max_digits = 38;

  constexpr ole_decimal() = default;

  // A value from its parts; false (and zero) when the mantissa has more than
  // 38 digits or the scale is above 38.
  static bool make(ole_u128 mantissa, int scale, bool negative, ole_decimal& out);

  [[nodiscard]] ole_u128 mantissa() const { return mantissa_; }
  [[nodiscard]] int scale() const { return scale_; }
  [[nodiscard]] bool negative() const { return negative_; }
  [[nodiscard]] bool is_zero() const { return mantissa_ == 0; }

  // --- Building (the automation layer's VarDecFrom...) ---------------------------
  // US-English number text (see ole_parse_number). ole_e_type_mismatch for
  // text that is no number, ole_e_overflow for more than 38 significant
  // digits or more than 38 digits behind the point.
  static ole_hresult from_string(std::string_view text, ole_decimal& out);
  static ole_decimal from_i64(std::int64_t value);
  static ole_decimal from_u64(std::uint64_t value);
  // 15 significant digits of a double, 7 of a float, as the automation layer
  // takes them; ole_e_overflow for infinities, NaN and magnitudes of 10^38 or
  // more. Digits finer than 10^-38 are rounded away.
  static ole_hresult from_double(double value, ole_decimal& out);
  static ole_hresult from_float(float value, ole_decimal& out);
  // A currency count of 1/10000.
  static ole_decimal from_currency(std::int64_t count);

  // --- Reading (VarXxFromDec) -------------------------------------------------------
  // Rounded to an integer, halves to even; ole_e_overflow outside [min, max].
  ole_hresult to_integer(std::int64_t min, std::int64_t max, std::int64_t& out) const;
  ole_hresult to_i64(std::int64_t& out) const;
  ole_hresult to_u64(std::uint64_t& out) const;
  // Rounded to 4 places (halves to even) as a currency count; ole_e_overflow
  // when it does not fit 64 bits.
  ole_hresult to_currency(std::int64_t& count) const;
  // The nearest double; the float is the double narrowed.
  [[nodiscard]] double to_double() const;
  [[nodiscard]] float to_float() const;

  // --- Text -------------------------------------------------------------------------
  // The exact value without trailing zeros: "0", "-1.5", "0.0009", "12".
  [[nodiscard]] std::string to_string() const;
  void append_to(std::string& out) const;

  // The 16 bytes of the automation DECIMAL as they lie in memory, the
  // two-byte tag 14 in front (reserved word, scale, sign 0x80, high 32 bits,
  // low 64 bits, little-endian). Trailing zeros of the fraction are dropped
  // first; false when the value still needs more than 96 bits or scale 28.
  bool to_ole_bytes(std::array<std::uint8_t, 16>& out) const;

  // Numeric equality: 1.50 equals 1.5, and zero equals minus zero.
  friend bool operator==(const ole_decimal& a, const ole_decimal& b);

 private:
  constexpr ole_decimal(ole_u128 mantissa, std::uint8_t scale, bool negative)
      : mantissa_(mantissa), scale_(scale), negative_(negative) {}
  // The same value with the trailing zeros of the fraction dropped.
  [[nodiscard]] ole_decimal normalized() const;
  // sign x mantissa / 10^scale rounded half to even.
  [[nodiscard]] ole_u128 rounded_magnitude(int scale_left) const;

  ole_u128 mantissa_ = 0;
  std::uint8_t scale_ = 0;
  bool negative_ = false;
};

}  // namespace qb
