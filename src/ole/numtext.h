// Locale-independent number text for the value types.
//
// The value types read and print numbers the way the C library and the
// automation layer of the source platform do ("%d", "%.16e", atoi, atof, the
// US-English number parser), but they must not depend on the process locale:
// a German locale must not turn "1.5" into 1 or print "1,5". Everything here is
// written on std::from_chars/std::to_chars or plain digit loops.
//
// Thread-safety: all functions are reentrant.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "ole/hresult.h"

namespace qb {

__extension__ typedef unsigned __int128 ole_u128;
__extension__ typedef __int128 ole_i128;

// The C locale's white space: space, \t, \n, \v, \f, \r.
constexpr bool ole_is_c_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// --- Reading like the C library -------------------------------------------------
// atoi: leading white space, an optional sign and the leading digits; 0 when
// there are none. A value beyond 32 bits is held at the nearest limit.
std::int32_t ole_atoi(std::string_view text);
// The 64-bit twin of ole_atoi.
std::int64_t ole_atoi64(std::string_view text);
// sscanf "%u": like ole_atoi, but a negative number wraps around and the low 32
// bits of the 64-bit reading are kept. False when no digit was found (nothing
// is stored then).
bool ole_scan_u32(std::string_view text, std::uint32_t& out);
// sscanf "%I64u": a negative number wraps around, an overflow gives the maximum.
bool ole_scan_u64(std::string_view text, std::uint64_t& out);
// atof: the longest prefix that reads as a number (decimal or "0x" hexadecimal
// with optional exponent, "inf", "infinity", "nan"); 0 when there is none. An
// overflow gives an infinity, an underflow zero.
double ole_atof(std::string_view text);

// --- Printing like printf -------------------------------------------------------
void ole_append_int(std::string& out, std::int64_t value);
void ole_append_uint(std::string& out, std::uint64_t value);
void ole_append_u128(std::string& out, ole_u128 value);
// printf "%.<precision>e" of value, byte for byte ("1.500000e+00", "inf", "-nan").
void ole_append_e(std::string& out, double value, int precision);
// printf "%.<precision>G" of value ("0.1", "1E+20", "1.5E-05", "INF").
void ole_append_upper_g(std::string& out, double value, int precision);
// Appends the decimal digits of value, at least width of them (zero-padded),
// as printf "%0<width>u" does.
void ole_append_padded(std::string& out, std::uint32_t value, int width);

// --- Number text as the automation layer reads it (US English) -----------------
// The parsed value is digits x 10^exponent. Leading and trailing zeros are not
// kept; a zero has count 0.
struct ole_number {
  static constexpr int max_digits = 64;
  std::array<std::uint8_t, max_digits> digits{};
  int count = 0;
  int exponent = 0;
  bool negative = false;
  // Non-zero digits beyond max_digits were dropped (they only matter for
  // rounding, and such a value overflows every integer type anyway).
  bool inexact = false;
};

// Reads a number in the US-English form: white space around it, a sign before
// or after it, or parentheses for a negative, an optional '$', ',' as the
// thousands separator of the integer part, '.' before the fraction, and an
// exponent "e"/"E" with an optional sign. ole_e_type_mismatch when the text is
// anything else.
ole_hresult ole_parse_number(std::string_view text, ole_number& out);
// |value| x 10^shift rounded half to even, into magnitude. False when it does
// not fit 127 bits.
bool ole_number_scaled(const ole_number& number, int shift, ole_u128& magnitude);
// The nearest double (an infinity when it is too large, zero when too small).
double ole_number_to_double(const ole_number& number);

// Rounds a double to the nearest integer, halves to even, as the automation
// layer's integer conversions do. The result keeps the sign; NaN stays NaN.
double ole_round_half_even(double value);

// 10^n for n in 0..38.
ole_u128 ole_pow10_u128(int n);

}  // namespace qb
