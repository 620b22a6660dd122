#include "ole/decimal.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

namespace qb {
namespace {

const ole_u128 ten38 = ole_pow10_u128(38);

// Fills a number from the digits of a mantissa and an exponent.
ole_number number_of(ole_u128 mantissa, int scale, bool negative) {
  ole_number n;
  n.negative = negative;
  std::string digits;
  ole_append_u128(digits, mantissa);
  for (char c : digits) n.digits[static_cast<std::size_t>(n.count++)] = static_cast<std::uint8_t>(c - '0');
  n.exponent = -scale;
  while (n.count > 0 && n.digits[static_cast<std::size_t>(n.count - 1)] == 0) {
    --n.count;
    ++n.exponent;
  }
  if (n.count == 0) n.exponent = 0;
  return n;
}

ole_hresult from_number(const ole_number& n, ole_decimal& out) {
  out = ole_decimal{};
  if (n.count == 0) return ole_s_ok;
  if (n.inexact || n.count > ole_decimal::max_digits) return ole_e_overflow;
  ole_u128 mantissa = 0;
  for (int k = 0; k < n.count; ++k) mantissa = mantissa * 10 + n.digits[static_cast<std::size_t>(k)];
  if (n.exponent >= 0) {
    if (n.count + n.exponent > ole_decimal::max_digits) return ole_e_overflow;
    mantissa *= ole_pow10_u128(n.exponent);
    return ole_decimal::make(mantissa, 0, n.negative, out) ? ole_s_ok : ole_e_overflow;
  }
  if (-n.exponent > ole_decimal::max_scale) return ole_e_overflow;
  return ole_decimal::make(mantissa, -n.exponent, n.negative, out) ? ole_s_ok : ole_e_overflow;
}

// Significant digits of a double, rounded as printf does, into a decimal.
ole_hresult from_digits_of(double value, int significant, ole_decimal& out) {
  out = ole_decimal{};
  if (!std::isfinite(value)) return ole_e_overflow;
  if (value == 0.0) return ole_s_ok;
  char buf[64];
  const auto r = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::scientific, significant - 1);
  ole_number n;
  if (ole_parse_number(std::string_view(buf, static_cast<std::size_t>(r.ptr - buf)), n) != ole_s_ok) {
    return ole_e_overflow;
  }
  if (n.count + n.exponent > ole_decimal::max_digits) return ole_e_overflow;
  if (-n.exponent > ole_decimal::max_scale) {
    // Finer than the scale can hold: round to 38 places.
    ole_u128 magnitude = 0;
    ole_number_scaled(n, ole_decimal::max_scale, magnitude);
    return ole_decimal::make(magnitude, ole_decimal::max_scale, n.negative, out) ? ole_s_ok : ole_e_overflow;
  }
  return from_number(n, out);
}

void put_le(std::uint8_t* p, std::uint64_t v, int bytes) {
  for (int k = 0; k < bytes; ++k) p[k] = static_cast<std::uint8_t>(v >> (8 * k));
}

}  // namespace

bool ole_decimal::make(ole_u128 mantissa, int scale, bool negative, ole_decimal& out) {
  if (mantissa >= ten38 || scale < 0 || scale > max_scale) {
    out = ole_decimal{};
    return false;
  }
  out = ole_decimal(mantissa, static_cast<std::uint8_t>(scale), negative);
  return true;
}

namespace {

// The common form "[-]digits[.digits]" of up to 38 significant digits, read
// without the general parser. False when the text has any other form.
bool from_plain_text(std::string_view text, ole_decimal& out) {
  std::size_t i = 0;
  const bool negative = !text.empty() && text[0] == '-';
  if (negative) ++i;
  const std::size_t int_start = i;
  while (i < text.size() && text[i] >= '0' && text[i] <= '9') ++i;
  const std::size_t int_end = i;
  std::size_t frac_start = i;
  std::size_t frac_end = i;
  if (i < text.size() && text[i] == '.') {
    frac_start = ++i;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9') ++i;
    frac_end = i;
    if (frac_end == frac_start) return false;
  }
  if (i != text.size() || int_end == int_start) return false;
  std::size_t first = int_start;
  while (first < int_end && text[first] == '0') ++first;
  while (frac_end > frac_start && text[frac_end - 1] == '0') --frac_end;
  const std::size_t int_digits = int_end - first;
  const std::size_t frac_digits = frac_end - frac_start;
  if (int_digits + frac_digits > 38) return false;
  // Up to 19 digits fit 64 bits; longer mantissas take a second word.
  ole_u128 mantissa = 0;
  std::uint64_t chunk = 0;
  int chunk_digits = 0;
  auto take = [&](char c) {
    chunk = chunk * 10 + static_cast<std::uint64_t>(c - '0');
    if (++chunk_digits == 19) {
      mantissa = mantissa * ole_pow10_u128(19) + chunk;
      chunk = 0;
      chunk_digits = 0;
    }
  };
  for (std::size_t k = first; k < int_end; ++k) take(text[k]);
  for (std::size_t k = frac_start; k < frac_end; ++k) take(text[k]);
  mantissa = mantissa * ole_pow10_u128(chunk_digits) + chunk;
  return ole_decimal::make(mantissa, static_cast<int>(frac_digits), negative, out);
}

}  // namespace

ole_hresult ole_decimal::from_string(std::string_view text, ole_decimal& out) {
  if (from_plain_text(text, out)) return ole_s_ok;
  out = ole_decimal{};
  ole_number n;
  const ole_hresult hr = ole_parse_number(text, n);
  if (ole_failed(hr)) return hr;
  return from_number(n, out);
}

ole_decimal ole_decimal::from_i64(std::int64_t value) {
  const bool negative = value < 0;
  const std::uint64_t magnitude =
      negative ? std::uint64_t{0} - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
  return {magnitude, 0, negative};
}

ole_decimal ole_decimal::from_u64(std::uint64_t value) { return {value, 0, false}; }

ole_hresult ole_decimal::from_double(double value, ole_decimal& out) { return from_digits_of(value, 15, out); }

ole_hresult ole_decimal::from_float(float value, ole_decimal& out) {
  return from_digits_of(static_cast<double>(value), 7, out);
}

ole_decimal ole_decimal::from_currency(std::int64_t count) {
  const bool negative = count < 0;
  const std::uint64_t magnitude =
      negative ? std::uint64_t{0} - static_cast<std::uint64_t>(count) : static_cast<std::uint64_t>(count);
  return {magnitude, 4, negative};
}

ole_u128 ole_decimal::rounded_magnitude(int scale_left) const {
  // The mantissa with (scale - scale_left) digits dropped, halves to even.
  const int drop = scale_ - scale_left;
  if (drop <= 0) return mantissa_ * ole_pow10_u128(-drop);
  const ole_u128 divisor = ole_pow10_u128(drop);
  ole_u128 q = mantissa_ / divisor;
  const ole_u128 rest = mantissa_ % divisor;
  const ole_u128 half = divisor / 2;
  if (rest > half || (rest == half && (q & 1) != 0)) ++q;
  return q;
}

ole_hresult ole_decimal::to_integer(std::int64_t min, std::int64_t max, std::int64_t& out) const {
  const ole_u128 q = rounded_magnitude(0);
  if (q == 0) {
    out = 0;
    return ole_s_ok;
  }
  if (negative_) {
    const ole_u128 limit = static_cast<ole_u128>(-(static_cast<ole_i128>(min)));
    if (q > limit) return ole_e_overflow;
    out = static_cast<std::int64_t>(-static_cast<ole_i128>(q));
    return ole_s_ok;
  }
  if (q > static_cast<ole_u128>(max)) return ole_e_overflow;
  out = static_cast<std::int64_t>(q);
  return ole_s_ok;
}

ole_hresult ole_decimal::to_i64(std::int64_t& out) const {
  return to_integer(std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max(), out);
}

ole_hresult ole_decimal::to_u64(std::uint64_t& out) const {
  const ole_u128 q = rounded_magnitude(0);
  if (q == 0) {
    out = 0;
    return ole_s_ok;
  }
  if (negative_ || q > std::numeric_limits<std::uint64_t>::max()) return ole_e_overflow;
  out = static_cast<std::uint64_t>(q);
  return ole_s_ok;
}

ole_hresult ole_decimal::to_currency(std::int64_t& count) const {
  if (scale_ < 4 && mantissa_ >= ole_pow10_u128(38 - (4 - scale_))) return ole_e_overflow;
  const ole_u128 q = rounded_magnitude(4);
  const auto max = static_cast<ole_u128>(std::numeric_limits<std::int64_t>::max());
  if (negative_ && q == max + 1) {
    count = std::numeric_limits<std::int64_t>::min();
    return ole_s_ok;
  }
  if (q > max) return ole_e_overflow;
  count = negative_ ? -static_cast<std::int64_t>(q) : static_cast<std::int64_t>(q);
  return ole_s_ok;
}

double ole_decimal::to_double() const {
  // Both operands exact: one correctly rounded division.
  constexpr ole_u128 exact_limit = ole_u128{1} << 53;
  if (mantissa_ < exact_limit && scale_ <= 22) {
    static constexpr double powers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                        1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    const double v = static_cast<double>(static_cast<std::uint64_t>(mantissa_)) / powers[scale_];
    return negative_ ? -v : v;
  }
  return ole_number_to_double(number_of(mantissa_, scale_, negative_));
}

float ole_decimal::to_float() const { return static_cast<float>(to_double()); }

ole_decimal ole_decimal::normalized() const {
  ole_decimal d = *this;
  while (d.scale_ > 0 && d.mantissa_ > std::numeric_limits<std::uint64_t>::max() && d.mantissa_ % 10 == 0) {
    d.mantissa_ /= 10;
    --d.scale_;
  }
  // The common case in 64 bits, without the 128-bit division routine.
  if (d.mantissa_ <= std::numeric_limits<std::uint64_t>::max()) {
    auto m = static_cast<std::uint64_t>(d.mantissa_);
    while (d.scale_ > 0 && m % 10 == 0) {
      m /= 10;
      --d.scale_;
    }
    d.mantissa_ = m;
  }
  return d;
}

void ole_decimal::append_to(std::string& out) const {
  if (mantissa_ == 0) {
    out.push_back('0');
    return;
  }
  const ole_decimal d = normalized();
  // The digits from the right, then the point and leading zeros as needed.
  char buf[96];
  char* const end = buf + sizeof buf;
  char* p = end;
  ole_u128 m = d.mantissa_;
  int written = 0;
  while (m > std::numeric_limits<std::uint64_t>::max()) {
    auto piece = static_cast<std::uint64_t>(m % ole_pow10_u128(19));
    m /= ole_pow10_u128(19);
    for (int k = 0; k < 19; ++k, ++written) {
      if (written == d.scale_ && written > 0) *--p = '.';
      *--p = static_cast<char>('0' + piece % 10);
      piece /= 10;
    }
  }
  auto rest = static_cast<std::uint64_t>(m);
  while (rest != 0 || written <= d.scale_) {
    if (written == d.scale_ && written > 0) *--p = '.';
    *--p = static_cast<char>('0' + rest % 10);
    rest /= 10;
    ++written;
  }
  if (d.negative_) *--p = '-';
  out.append(p, end);
}

std::string ole_decimal::to_string() const {
  std::string out;
  append_to(out);
  return out;
}

bool ole_decimal::to_ole_bytes(std::array<std::uint8_t, 16>& out) const {
  const ole_decimal d = normalized();
  if (d.scale_ > 28 || d.mantissa_ >= (ole_u128{1} << 96)) return false;
  out.fill(0);
  out[0] = 14;  // the tag, which shares the decimal's reserved word
  out[2] = d.scale_;
  out[3] = d.negative_ ? 0x80 : 0;
  put_le(out.data() + 4, static_cast<std::uint64_t>(d.mantissa_ >> 64), 4);
  put_le(out.data() + 8, static_cast<std::uint64_t>(d.mantissa_), 8);
  return true;
}

bool operator==(const ole_decimal& a, const ole_decimal& b) {
  const ole_decimal x = a.normalized();
  const ole_decimal y = b.normalized();
  if (x.mantissa_ == 0 || y.mantissa_ == 0) return x.mantissa_ == y.mantissa_;
  return x.mantissa_ == y.mantissa_ && x.scale_ == y.scale_ && x.negative_ == y.negative_;
}

}  // namespace qb
