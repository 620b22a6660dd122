#include "ole/currency.h"

#include <cmath>
#include <limits>

#include "ole/numtext.h"

namespace qb {
namespace {

constexpr std::int64_t i64_min = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t i64_max = std::numeric_limits<std::int64_t>::max();

// A signed magnitude into a count; ole_e_overflow when it does not fit.
ole_hresult signed_count(ole_u128 magnitude, bool negative, std::int64_t& out) {
  const auto max = static_cast<ole_u128>(i64_max);
  if (negative && magnitude == max + 1) {
    out = i64_min;
    return ole_s_ok;
  }
  if (magnitude > max) return ole_e_overflow;
  out = negative ? -static_cast<std::int64_t>(magnitude) : static_cast<std::int64_t>(magnitude);
  return ole_s_ok;
}

std::uint64_t magnitude_of(std::int64_t v) {
  return v < 0 ? std::uint64_t{0} - static_cast<std::uint64_t>(v) : static_cast<std::uint64_t>(v);
}

}  // namespace

ole_hresult ole_currency::from_string(std::string_view text, ole_currency& out) {
  ole_number n;
  const ole_hresult hr = ole_parse_number(text, n);
  if (ole_failed(hr)) return hr;
  ole_u128 magnitude = 0;
  if (!ole_number_scaled(n, 4, magnitude)) return ole_e_overflow;
  std::int64_t count = 0;
  const ole_hresult fit = signed_count(magnitude, n.negative, count);
  if (ole_failed(fit)) return fit;
  out.value = count;
  return ole_s_ok;
}

ole_hresult ole_currency::from_double(double value, ole_currency& out) {
  const double scaled = ole_round_half_even(value * 10000.0);
  // 2^63 is exactly representable; everything at or beyond it overflows.
  if (!(scaled >= -9223372036854775808.0 && scaled < 9223372036854775808.0)) return ole_e_overflow;
  out.value = static_cast<std::int64_t>(scaled);
  return ole_s_ok;
}

ole_hresult ole_currency::from_i64(std::int64_t value, ole_currency& out) {
  if (value > i64_max / scale || value < i64_min / scale) return ole_e_overflow;
  out.value = value * scale;
  return ole_s_ok;
}

ole_hresult ole_currency::from_u64(std::uint64_t value, ole_currency& out) {
  if (value > static_cast<std::uint64_t>(i64_max / scale)) return ole_e_overflow;
  out.value = static_cast<std::int64_t>(value) * scale;
  return ole_s_ok;
}

ole_hresult ole_currency::to_integer(std::int64_t min, std::int64_t max, std::int64_t& out) const {
  std::int64_t q = value / scale;
  const std::int64_t r = value % scale;  // same sign as value
  const std::int64_t twice = 2 * (r < 0 ? -r : r);
  if (twice > scale || (twice == scale && (q % 2) != 0)) q += value < 0 ? -1 : 1;
  if (q < min || q > max) return ole_e_overflow;
  out = q;
  return ole_s_ok;
}

ole_hresult ole_currency::to_i64(std::int64_t& out) const { return to_integer(i64_min, i64_max, out); }

ole_hresult ole_currency::to_u64(std::uint64_t& out) const {
  std::int64_t v = 0;
  const ole_hresult hr = to_integer(0, i64_max, v);
  if (ole_failed(hr)) return hr;
  out = static_cast<std::uint64_t>(v);
  return ole_s_ok;
}

void ole_currency::append_to(std::string& out) const {
  const std::uint64_t m = magnitude_of(value);
  if (value < 0) out.push_back('-');
  ole_append_uint(out, m / scale);
  auto fraction = static_cast<std::uint32_t>(m % scale);
  if (fraction == 0) return;
  int digits = 4;
  while (fraction % 10 == 0) {
    fraction /= 10;
    --digits;
  }
  out.push_back('.');
  ole_append_padded(out, fraction, digits);
}

std::string ole_currency::to_string() const {
  std::string out;
  append_to(out);
  return out;
}

}  // namespace qb
