#include "ole/numtext.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <string>
#include <system_error>

#include <locale.h>
#include <stdlib.h>

namespace qb {
namespace {

constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }

struct sign_and_digits {
  bool negative = false;
  bool any_digit = false;
  bool overflow = false;  // beyond 64 bits
  std::uint64_t magnitude = 0;
};

// White space, an optional sign, then decimal digits, as strtol reads them.
sign_and_digits read_integer(std::string_view text) {
  sign_and_digits r;
  std::size_t i = 0;
  while (i < text.size() && ole_is_c_space(text[i])) ++i;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
    r.negative = text[i] == '-';
    ++i;
  }
  // Eighteen digits cannot overflow; only longer numbers are checked.
  const std::size_t unchecked = i + 18;
  for (; i < text.size() && i < unchecked && is_digit(text[i]); ++i) {
    r.any_digit = true;
    r.magnitude = r.magnitude * 10 + static_cast<std::uint64_t>(text[i] - '0');
  }
  for (; i < text.size() && is_digit(text[i]); ++i) {
    r.any_digit = true;
    if (r.overflow) continue;
    std::uint64_t next = 0;
    if (__builtin_mul_overflow(r.magnitude, std::uint64_t{10}, &next) ||
        __builtin_add_overflow(next, static_cast<std::uint64_t>(text[i] - '0'), &next)) {
      r.overflow = true;
      r.magnitude = std::numeric_limits<std::uint64_t>::max();
      continue;
    }
    r.magnitude = next;
  }
  return r;
}

template <class T>
T saturate_signed(const sign_and_digits& r) {
  using U = std::make_unsigned_t<T>;
  const auto max = static_cast<std::uint64_t>(std::numeric_limits<T>::max());
  if (!r.negative) return r.overflow || r.magnitude > max ? std::numeric_limits<T>::max() : static_cast<T>(r.magnitude);
  if (r.overflow || r.magnitude > max + 1) return std::numeric_limits<T>::min();
  return static_cast<T>(static_cast<U>(0) - static_cast<U>(r.magnitude));
}

// The C locale, for the rare readings that std::from_chars leaves to us.
locale_t c_locale() {
  static const locale_t loc = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  return loc;
}

double strtod_c(std::string_view text) {
  const std::string copy(text);
  return strtod_l(copy.c_str(), nullptr, c_locale());
}

char* put_u64(char* end, std::uint64_t v) {
  do {
    *--end = static_cast<char>('0' + v % 10);
    v /= 10;
  } while (v != 0);
  return end;
}

constexpr std::uint64_t ten19 = 10000000000000000000ULL;

}  // namespace

std::int32_t ole_atoi(std::string_view text) { return saturate_signed<std::int32_t>(read_integer(text)); }

std::int64_t ole_atoi64(std::string_view text) { return saturate_signed<std::int64_t>(read_integer(text)); }

bool ole_scan_u32(std::string_view text, std::uint32_t& out) {
  std::uint64_t wide = 0;
  if (!ole_scan_u64(text, wide)) return false;
  out = static_cast<std::uint32_t>(wide);
  return true;
}

bool ole_scan_u64(std::string_view text, std::uint64_t& out) {
  const sign_and_digits r = read_integer(text);
  if (!r.any_digit) return false;
  if (r.overflow) {
    out = std::numeric_limits<std::uint64_t>::max();
  } else {
    out = r.negative ? std::uint64_t{0} - r.magnitude : r.magnitude;
  }
  return true;
}

double ole_atof(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && ole_is_c_space(text[i])) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
    negative = text[i] == '-';
    ++i;
  }
  const std::string_view rest = text.substr(i);
  if (rest.empty() || rest[0] == '+' || rest[0] == '-') return 0.0;
  double value = 0.0;
  std::from_chars_result r{};
  const bool hex = rest.size() > 2 && rest[0] == '0' && (rest[1] == 'x' || rest[1] == 'X');
  if (hex) {
    r = std::from_chars(rest.data() + 2, rest.data() + rest.size(), value, std::chars_format::hex);
    // "0x" with no hexadecimal digit behind it reads as the "0" in front.
    if (r.ec == std::errc::invalid_argument) return negative ? -0.0 : 0.0;
  } else {
    r = std::from_chars(rest.data(), rest.data() + rest.size(), value, std::chars_format::general);
    if (r.ec == std::errc::invalid_argument) return 0.0;
  }
  if (r.ec == std::errc::result_out_of_range) value = strtod_c(rest);
  return negative ? -value : value;
}

void ole_append_int(std::string& out, std::int64_t value) {
  char buf[24];
  const auto r = std::to_chars(buf, buf + sizeof buf, value);
  out.append(buf, r.ptr);
}

void ole_append_uint(std::string& out, std::uint64_t value) {
  char buf[24];
  const auto r = std::to_chars(buf, buf + sizeof buf, value);
  out.append(buf, r.ptr);
}

void ole_append_u128(std::string& out, ole_u128 value) {
  if (value <= std::numeric_limits<std::uint64_t>::max()) {
    ole_append_uint(out, static_cast<std::uint64_t>(value));
    return;
  }
  // At most 39 digits: split into pieces of 19 digits.
  char buf[48];
  char* end = buf + sizeof buf;
  char* p = end;
  while (value > std::numeric_limits<std::uint64_t>::max()) {
    auto piece = static_cast<std::uint64_t>(value % ten19);
    value /= ten19;
    for (int k = 0; k < 19; ++k) {
      *--p = static_cast<char>('0' + piece % 10);
      piece /= 10;
    }
  }
  p = put_u64(p, static_cast<std::uint64_t>(value));
  out.append(p, end);
}

void ole_append_e(std::string& out, double value, int precision) {
  char buf[400];
  const auto r = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::scientific, precision);
  out.append(buf, r.ptr);
}

void ole_append_upper_g(std::string& out, double value, int precision) {
  char buf[400];
  const auto r = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::general, precision);
  for (char* p = buf; p != r.ptr; ++p) {
    if (*p >= 'a' && *p <= 'z') *p = static_cast<char>(*p - 'a' + 'A');
  }
  out.append(buf, r.ptr);
}

void ole_append_padded(std::string& out, std::uint32_t value, int width) {
  char buf[16];
  char* end = buf + sizeof buf;
  char* p = put_u64(end, value);
  while (end - p < width) *--p = '0';
  out.append(p, end);
}

ole_u128 ole_pow10_u128(int n) {
  static const auto table = [] {
    std::array<ole_u128, 39> t{};
    t[0] = 1;
    for (std::size_t i = 1; i < t.size(); ++i) t[i] = t[i - 1] * 10;
    return t;
  }();
  return table[static_cast<std::size_t>(n)];
}

namespace {

struct number_reader {
  std::string_view text;
  std::size_t i = 0;

  [[nodiscard]] bool at_end() const { return i >= text.size(); }
  [[nodiscard]] char peek() const { return at_end() ? '\0' : text[i]; }
  void skip_space() {
    while (!at_end() && ole_is_c_space(text[i])) ++i;
  }
};

// The digits of the mantissa, with ',' allowed between the digits of the
// integer part.
bool read_mantissa(number_reader& in, ole_number& out) {
  int dropped_integer = 0;
  int kept_fraction = 0;
  int leading_fraction_zeros = 0;
  bool any = false;
  auto take = [&](std::uint8_t d, bool fraction) {
    any = true;
    if (out.count == 0 && d == 0) {
      if (fraction) ++leading_fraction_zeros;
      return;
    }
    if (out.count < ole_number::max_digits) {
      out.digits[static_cast<std::size_t>(out.count++)] = d;
      if (fraction) ++kept_fraction;
      return;
    }
    if (d != 0) out.inexact = true;
    if (!fraction) ++dropped_integer;
  };
  bool seen_digit = false;
  while (!in.at_end()) {
    const char c = in.peek();
    if (is_digit(c)) {
      take(static_cast<std::uint8_t>(c - '0'), false);
      seen_digit = true;
    } else if (c == ',' && seen_digit) {
      // thousands separator
    } else {
      break;
    }
    ++in.i;
  }
  if (in.peek() == '.') {
    ++in.i;
    while (is_digit(in.peek())) {
      take(static_cast<std::uint8_t>(in.peek() - '0'), true);
      ++in.i;
    }
  }
  out.exponent = dropped_integer - kept_fraction - leading_fraction_zeros;
  return any;
}

bool read_exponent(number_reader& in, ole_number& out) {
  if (in.peek() != 'e' && in.peek() != 'E') return true;
  ++in.i;
  bool negative = false;
  if (in.peek() == '+' || in.peek() == '-') {
    negative = in.peek() == '-';
    ++in.i;
  }
  if (!is_digit(in.peek())) return false;
  long e = 0;
  while (is_digit(in.peek())) {
    if (e < 1000000) e = e * 10 + (in.peek() - '0');
    ++in.i;
  }
  out.exponent += static_cast<int>(negative ? -e : e);
  return true;
}

}  // namespace

ole_hresult ole_parse_number(std::string_view text, ole_number& out) {
  out = ole_number{};
  number_reader in{text};
  in.skip_space();
  bool sign_seen = false;
  bool paren = false;
  bool dollar = false;
  // Leading marks: sign, '(' and '$', each at most once.
  for (;;) {
    const char c = in.peek();
    if ((c == '+' || c == '-') && !sign_seen && !paren) {
      sign_seen = true;
      out.negative = c == '-';
    } else if (c == '(' && !sign_seen && !paren) {
      paren = true;
      out.negative = true;
    } else if (c == '$' && !dollar) {
      dollar = true;
    } else {
      break;
    }
    ++in.i;
  }
  if (!read_mantissa(in, out)) return ole_e_type_mismatch;
  if (!read_exponent(in, out)) return ole_e_type_mismatch;
  // Trailing marks: a sign when none came first, ')' closing a '(' and '$'.
  bool closed = !paren;
  for (;;) {
    const char c = in.peek();
    if ((c == '+' || c == '-') && !sign_seen && !paren) {
      sign_seen = true;
      out.negative = c == '-';
    } else if (c == ')' && !closed) {
      closed = true;
    } else if (c == '$' && !dollar) {
      dollar = true;
    } else {
      break;
    }
    ++in.i;
  }
  in.skip_space();
  if (!closed || !in.at_end()) return ole_e_type_mismatch;
  while (out.count > 0 && out.digits[static_cast<std::size_t>(out.count - 1)] == 0) {
    --out.count;
    ++out.exponent;
  }
  if (out.count == 0) out.exponent = 0;
  return ole_s_ok;
}

bool ole_number_scaled(const ole_number& number, int shift, ole_u128& magnitude) {
  magnitude = 0;
  if (number.count == 0) return true;
  const long e = static_cast<long>(number.exponent) + shift;
  const int count = number.count;
  constexpr ole_u128 limit = (~ole_u128{0}) >> 1;  // 127 bits
  auto accumulate = [&](int n) {
    for (int k = 0; k < n; ++k) {
      const auto d = number.digits[static_cast<std::size_t>(k)];
      if (magnitude > (limit - d) / 10) return false;
      magnitude = magnitude * 10 + d;
    }
    return true;
  };
  if (e >= 0) {
    if (count + e > 39) return false;
    if (!accumulate(count)) return false;
    for (long k = 0; k < e; ++k) {
      if (magnitude > limit / 10) return false;
      magnitude *= 10;
    }
    return true;
  }
  const long drop = -e;
  if (drop > count) return true;  // below one half: rounds to zero
  const int keep = count - static_cast<int>(drop);
  if (keep > 39 || !accumulate(keep)) return false;
  const auto round_digit = number.digits[static_cast<std::size_t>(keep)];
  bool sticky = number.inexact;
  for (int k = keep + 1; k < count && !sticky; ++k) sticky = number.digits[static_cast<std::size_t>(k)] != 0;
  const bool odd = (magnitude & 1) != 0;
  if (round_digit > 5 || (round_digit == 5 && (sticky || odd))) {
    if (magnitude == limit) return false;
    ++magnitude;
  }
  return true;
}

double ole_number_to_double(const ole_number& number) {
  if (number.count == 0) return number.negative ? -0.0 : 0.0;
  char buf[ole_number::max_digits + 24];
  char* p = buf;
  for (int k = 0; k < number.count; ++k) *p++ = static_cast<char>('0' + number.digits[static_cast<std::size_t>(k)]);
  long exponent = number.exponent;
  if (number.inexact) {
    // A trailing 1 stands for the dropped non-zero digits, so that a value
    // just above a halfway point is not rounded as the halfway point.
    *p++ = '1';
    --exponent;
  }
  *p++ = 'e';
  const auto r = std::to_chars(p, buf + sizeof buf, exponent);
  p = r.ptr;
  double value = 0.0;
  const auto parsed = std::from_chars(buf, p, value, std::chars_format::scientific);
  if (parsed.ec == std::errc::result_out_of_range) {
    const long magnitude_exp = exponent + number.count;
    value = magnitude_exp > 0 ? std::numeric_limits<double>::infinity() : 0.0;
  }
  return number.negative ? -value : value;
}

double ole_round_half_even(double value) {
  if (!std::isfinite(value)) return value;
  const double floor_value = std::floor(value);
  const double diff = value - floor_value;
  if (diff > 0.5) return floor_value + 1.0;
  if (diff < 0.5) return floor_value;
  return std::fmod(floor_value, 2.0) == 0.0 ? floor_value : floor_value + 1.0;
}

}  // namespace qb
