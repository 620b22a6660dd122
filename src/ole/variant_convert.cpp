// Conversion of an ole_variant from one tag to another: change_type and the
// automation layer's conversion table behind it.
#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>

#include "ole/numtext.h"
#include "ole/variant.h"
#include "tk/log.h"
#include "tk/strings.h"

namespace qb {
namespace {

std::int32_t x86_i32(double v) {
  if (!(v > -2147483649.0 && v < 2147483648.0)) return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(v);
}

template <class T>
void put_le(std::vector<std::uint8_t>& out, T value) {
  std::uint8_t raw[sizeof(T)];
  std::memcpy(raw, &value, sizeof(T));
  out.insert(out.end(), raw, raw + sizeof(T));  // the machine is little-endian, as the layout requires
}

bool equal_ascii_no_case(std::wstring_view text, std::string_view keyword) {
  if (text.size() != keyword.size()) return false;
  for (std::size_t k = 0; k < text.size(); ++k) {
    auto c = static_cast<std::uint32_t>(text[k]);
    if (c >= 'A' && c <= 'Z') c += 'a' - 'A';
    if (c != static_cast<unsigned char>(keyword[k])) return false;
  }
  return true;
}

// Range of an integer tag.
struct integer_range {
  ole_i128 min;
  ole_i128 max;
};

bool integer_range_of(std::uint16_t vt, integer_range& r) {
  switch (vt) {
    case ole_variant::vt_i1:
      r = {-128, 127};
      return true;
    case ole_variant::vt_ui1:
      r = {0, 255};
      return true;
    case ole_variant::vt_i2:
      r = {-32768, 32767};
      return true;
    case ole_variant::vt_ui2:
      r = {0, 65535};
      return true;
    case ole_variant::vt_i4:
    case ole_variant::vt_int:
      r = {INT32_MIN, INT32_MAX};
      return true;
    case ole_variant::vt_ui4:
    case ole_variant::vt_uint:
      r = {0, UINT32_MAX};
      return true;
    case ole_variant::vt_i8:
      r = {INT64_MIN, INT64_MAX};
      return true;
    case ole_variant::vt_ui8:
      r = {0, static_cast<ole_i128>(UINT64_MAX)};
      return true;
    default:
      return false;
  }
}

bool is_signed_integer_tag(std::uint16_t vt) {
  return vt == ole_variant::vt_i1 || vt == ole_variant::vt_i2 || vt == ole_variant::vt_i4 ||
         vt == ole_variant::vt_int || vt == ole_variant::vt_i8;
}

bool is_unsigned_integer_tag(std::uint16_t vt) {
  return vt == ole_variant::vt_ui1 || vt == ole_variant::vt_ui2 || vt == ole_variant::vt_ui4 ||
         vt == ole_variant::vt_uint || vt == ole_variant::vt_ui8;
}

// A double rounded half to even into 128 bits; false when it cannot fit.
bool rounded_i128(double v, ole_i128& out) {
  const double r = ole_round_half_even(v);
  if (!(r > -1.7e38 && r < 1.7e38)) return false;
  out = static_cast<ole_i128>(r);
  return true;
}

// "True"/"False" in any case (also "#TRUE#"/"#FALSE#"), else a number that
// is true when it is not zero.
ole_hresult bool_from_text(std::wstring_view text, bool& out) {
  std::string narrow;
  for (wchar_t c : text) {
    if (static_cast<std::uint32_t>(c) >= 0x80) return ole_e_type_mismatch;
    narrow.push_back(static_cast<char>(c));
  }
  std::string_view t = narrow;
  while (!t.empty() && ole_is_c_space(t.front())) t.remove_prefix(1);
  while (!t.empty() && ole_is_c_space(t.back())) t.remove_suffix(1);
  const std::wstring wide(t.begin(), t.end());
  if (equal_ascii_no_case(wide, "true") || equal_ascii_no_case(wide, "#true#")) {
    out = true;
    return ole_s_ok;
  }
  if (equal_ascii_no_case(wide, "false") || equal_ascii_no_case(wide, "#false#")) {
    out = false;
    return ole_s_ok;
  }
  ole_number n;
  const ole_hresult hr = ole_parse_number(t, n);
  if (ole_failed(hr)) return hr;
  out = n.count != 0;
  return ole_s_ok;
}

// Number text of wide text; only ASCII can be a number.
ole_hresult number_of_text(std::wstring_view text, ole_number& out) {
  char buf[256];
  if (text.size() > sizeof buf) {
    std::string narrow;
    for (wchar_t c : text) {
      if (static_cast<std::uint32_t>(c) >= 0x80) return ole_e_type_mismatch;
      narrow.push_back(static_cast<char>(c));
    }
    return ole_parse_number(narrow, out);
  }
  for (std::size_t k = 0; k < text.size(); ++k) {
    if (static_cast<std::uint32_t>(text[k]) >= 0x80) return ole_e_type_mismatch;
    buf[k] = static_cast<char>(text[k]);
  }
  return ole_parse_number(std::string_view(buf, text.size()), out);
}

std::string narrow_of_ascii(std::wstring_view text, bool& ascii) {
  std::string out;
  ascii = true;
  for (wchar_t c : text) {
    if (static_cast<std::uint32_t>(c) >= 0x80) ascii = false;
    out.push_back(static_cast<char>(c));
  }
  return out;
}

}  // namespace

bool ole_variant::memory_bytes(std::vector<std::uint8_t>& out) const {
  out.clear();
  switch (vt_) {
    case vt_i2:
    case vt_bool:
    case vt_ui2:
      put_le(out, static_cast<std::uint16_t>(integer_value()));
      return true;
    case vt_i4:
    case vt_ui4:
    case vt_int:
    case vt_uint:
      put_le(out, static_cast<std::uint32_t>(integer_value()));
      return true;
    case vt_r4:
      put_le(out, u_.r4);
      return true;
    case vt_r8:
      put_le(out, u_.r8);
      return true;
    case vt_cy:
      put_le(out, u_.cy.value);
      return true;
    case vt_i8:
    case vt_ui8:
      put_le(out, static_cast<std::uint64_t>(integer_value()));
      return true;
    case vt_i1:
    case vt_ui1:
      out.push_back(static_cast<std::uint8_t>(integer_value()));
      return true;
    case vt_date: {
      // The 32 bytes of the date part: type, time zone, the trim flag (with
      // the offset flag and the offset in the bytes that padded it), the
      // microseconds and the eight 16-bit fields of the time.
      const ole_date& d = u_.date;
      put_le(out, static_cast<std::int32_t>(d.type));
      put_le(out, static_cast<std::int32_t>(d.timezone));
      out.push_back(d.trim_zero_time ? 1 : 0);
      out.push_back(d.has_offset ? 1 : 0);
      put_le(out, d.offset_minutes);
      put_le(out, d.microseconds);
      for (std::uint16_t field : {d.src.wYear, d.src.wMonth, d.src.wDayOfWeek, d.src.wDay, d.src.wHour, d.src.wMinute,
                                  d.src.wSecond, d.src.wMilliseconds}) {
        put_le(out, field);
      }
      return true;
    }
    case vt_bstr: {
      std::string narrow;
      const std::wstring_view text = u_.text;
      const auto nul = text.find(L'\0');
      if (!tk_unicode_to_ansi2(nul == std::wstring_view::npos ? text : text.substr(0, nul), narrow)) narrow.clear();
      out.assign(narrow.begin(), narrow.end());
      return true;
    }
    case vt_decimal: {
      std::array<std::uint8_t, 16> raw{};
      if (!u_.dec.to_ole_bytes(raw)) return false;
      out.assign(raw.begin(), raw.end());
      return true;
    }
    case vt_lpstr:
      out = u_.bytes;
      return true;
    case vt_lpwstr: {
      // As many bytes of the wide text's memory as it has characters.
      const auto* raw = reinterpret_cast<const std::uint8_t*>(u_.text.data());
      out.assign(raw, raw + u_.text.size());
      return true;
    }
    default:
      return false;
  }
}

ole_hresult ole_variant::change_type_local(std::uint16_t to) {
  const std::uint16_t from = vt_;
  const bool from_signed = is_signed_integer_tag(from);
  const bool from_unsigned = is_unsigned_integer_tag(from);
  const bool from_known = from_signed || from_unsigned || from == vt_r4 || from == vt_r8 || from == vt_cy ||
                          from == vt_decimal || from == vt_bstr || from == vt_bool;
  if (!from_known) return ole_e_bad_var_type;
  if (to == from) return ole_s_ok;
  if (to == vt_empty) {
    clear();
    return ole_s_ok;
  }
  const std::wstring_view text = from == vt_bstr ? std::wstring_view(u_.text) : std::wstring_view{};

  integer_range range{};
  if (integer_range_of(to, range)) {
    if (from == vt_bool) {  // the bits of 0 or -1, with no range test
      set_integer_bits(to, static_cast<std::uint64_t>(static_cast<std::int64_t>(u_.boolean)));
      return ole_s_ok;
    }
    ole_i128 value = 0;
    if (from_signed) {
      value = integer_value();
    } else if (from_unsigned) {
      value = from == vt_ui8 ? static_cast<ole_i128>(u_.ui8) : static_cast<ole_i128>(integer_value());
    } else if (from == vt_r4 || from == vt_r8) {
      if (!rounded_i128(from == vt_r4 ? static_cast<double>(u_.r4) : u_.r8, value)) return ole_e_overflow;
    } else if (from == vt_cy) {
      std::int64_t v = 0;
      u_.cy.to_i64(v);
      value = v;
    } else if (from == vt_decimal) {
      if (u_.dec.negative()) {
        std::int64_t v = 0;
        if (ole_failed(u_.dec.to_i64(v))) return ole_e_overflow;
        value = v;
      } else {
        std::uint64_t v = 0;
        if (ole_failed(u_.dec.to_u64(v))) return ole_e_overflow;
        value = v;
      }
    } else {
      ole_number n;
      const ole_hresult hr = number_of_text(text, n);
      if (ole_failed(hr)) return hr;
      ole_u128 magnitude = 0;
      if (!ole_number_scaled(n, 0, magnitude)) return ole_e_overflow;
      value = n.negative ? -static_cast<ole_i128>(magnitude) : static_cast<ole_i128>(magnitude);
    }
    if (value < range.min || value > range.max) return ole_e_overflow;
    set_integer_bits(to, static_cast<std::uint64_t>(value));
    return ole_s_ok;
  }

  switch (to) {
    case vt_r4:
    case vt_r8: {
      double d = 0.0;
      if (from == vt_bstr) {
        ole_number n;
        const ole_hresult hr = number_of_text(text, n);
        if (ole_failed(hr)) return hr;
        d = ole_number_to_double(n);
        if (std::isinf(d)) return ole_e_overflow;
      } else if (from == vt_r4) {
        d = static_cast<double>(u_.r4);
      } else if (from == vt_r8) {
        d = u_.r8;
      } else if (from == vt_cy) {
        d = u_.cy.to_double();
      } else if (from == vt_decimal) {
        d = u_.dec.to_double();
      } else if (to == vt_r4) {
        // Integers straight to float, without rounding twice.
        const float f = from == vt_ui8 ? static_cast<float>(u_.ui8) : static_cast<float>(integer_value());
        set_r4(f);
        return ole_s_ok;
      } else {
        d = from == vt_ui8 ? static_cast<double>(u_.ui8) : static_cast<double>(integer_value());
      }
      if (to == vt_r8) {
        set_r8(d);
        return ole_s_ok;
      }
      if (d < -FLT_MAX || d > FLT_MAX) return ole_e_overflow;
      set_r4(static_cast<float>(d));
      return ole_s_ok;
    }
    case vt_cy: {
      ole_currency cy;
      ole_hresult hr = ole_s_ok;
      if (from == vt_bstr) {
        bool ascii = true;
        const std::string narrow = narrow_of_ascii(text, ascii);
        hr = ascii ? ole_currency::from_string(narrow, cy) : ole_e_type_mismatch;
      } else if (from == vt_r4) {
        hr = ole_currency::from_double(static_cast<double>(u_.r4), cy);
      } else if (from == vt_r8) {
        hr = ole_currency::from_double(u_.r8, cy);
      } else if (from == vt_decimal) {
        hr = u_.dec.to_currency(cy.value);
      } else if (from == vt_ui8) {
        hr = ole_currency::from_u64(u_.ui8, cy);
      } else {
        hr = ole_currency::from_i64(integer_value(), cy);
      }
      if (ole_failed(hr)) return hr;
      set_currency(cy);
      return ole_s_ok;
    }
    case vt_decimal: {
      ole_decimal dec;
      ole_hresult hr = ole_s_ok;
      if (from == vt_bstr) {
        bool ascii = true;
        const std::string narrow = narrow_of_ascii(text, ascii);
        hr = ascii ? ole_decimal::from_string(narrow, dec) : ole_e_type_mismatch;
      } else if (from == vt_r4) {
        hr = ole_decimal::from_float(u_.r4, dec);
      } else if (from == vt_r8) {
        hr = ole_decimal::from_double(u_.r8, dec);
      } else if (from == vt_cy) {
        dec = ole_decimal::from_currency(u_.cy.value);
      } else if (from == vt_ui8) {
        dec = ole_decimal::from_u64(u_.ui8);
      } else {
        dec = ole_decimal::from_i64(integer_value());
      }
      if (ole_failed(hr)) return hr;
      set_decimal(dec);
      return ole_s_ok;
    }
    case vt_bstr: {
      std::string narrow;
      if (from == vt_r4) {
        ole_append_upper_g(narrow, static_cast<double>(u_.r4), 7);
      } else if (from == vt_r8) {
        ole_append_upper_g(narrow, u_.r8, 15);
      } else if (from == vt_cy) {
        u_.cy.append_to(narrow);
      } else if (from == vt_decimal) {
        u_.dec.append_to(narrow);
      } else if (from == vt_ui8) {
        ole_append_uint(narrow, u_.ui8);
      } else {
        // Integers; a boolean prints as the number it holds (-1 or 0).
        ole_append_int(narrow, integer_value());
      }
      set_text(std::wstring(narrow.begin(), narrow.end()));
      return ole_s_ok;
    }
    case vt_bool: {
      bool value = false;
      if (from == vt_bstr) {
        const ole_hresult hr = bool_from_text(text, value);
        if (ole_failed(hr)) return hr;
      } else if (from == vt_r4) {
        value = u_.r4 != 0.0F;
      } else if (from == vt_r8) {
        value = u_.r8 != 0.0;
      } else if (from == vt_cy) {
        value = u_.cy.value != 0;
      } else if (from == vt_decimal) {
        value = !u_.dec.is_zero();
      } else {
        value = integer_value() != 0;
      }
      set_bool(value);
      return ole_s_ok;
    }
    default:
      return ole_e_bad_var_type;
  }
}

void ole_variant::change_from_i8(std::uint16_t to) {
  const std::int64_t h = u_.i8;
  const auto bits = static_cast<std::uint64_t>(h);
  switch (to) {
    case vt_i2:
    case vt_bool:
    case vt_ui2:
    case vt_i4:
    case vt_ui4:
    case vt_int:
    case vt_uint:
    case vt_i1:
    case vt_ui1:
    case vt_ui8:
      set_integer_bits(to, bits);
      return;
    case vt_r4:
      set_r4(static_cast<float>(h));
      return;
    case vt_r8:
      set_r8(static_cast<double>(h));
      return;
    case vt_cy:
      // Times 1000, not 10000: the old conversion's factor, kept.
      set_currency(ole_currency{static_cast<std::int64_t>(bits * 1000U)});
      return;
    case vt_bstr: {
      std::string narrow;
      ole_append_int(narrow, h);
      set_text(std::wstring(narrow.begin(), narrow.end()));
      return;
    }
    case vt_decimal:
      set_decimal(ole_decimal::from_i64(h));
      return;
    default:
      throw ole_cast_exception();
  }
}

void ole_variant::change_from_ui8(std::uint16_t to) {
  const std::uint64_t u = u_.ui8;
  switch (to) {
    case vt_i2:
    case vt_bool:
    case vt_ui2:
    case vt_i4:
    case vt_ui4:
    case vt_int:
    case vt_uint:
    case vt_i1:
    case vt_ui1:
    case vt_i8:
      set_integer_bits(to, u);
      return;
    case vt_r4:
      set_r4(static_cast<float>(u));
      return;
    case vt_r8:
      set_r8(static_cast<double>(u));
      return;
    case vt_cy:
      set_currency(ole_currency{static_cast<std::int64_t>(u * 1000U)});
      return;
    case vt_bstr: {
      std::string narrow;
      ole_append_uint(narrow, u);
      set_text(std::wstring(narrow.begin(), narrow.end()));
      return;
    }
    case vt_decimal:
      // The old conversion read the signed slot, which is zero here.
      set_decimal(ole_decimal{});
      return;
    default:
      throw ole_cast_exception();
  }
}

void ole_variant::change_to_64(std::uint16_t to) {
  const std::uint16_t from = vt_;
  const bool unsigned_target = to == vt_ui8;
  std::uint64_t bits = 0;
  switch (from) {
    case vt_i2:
    case vt_bool:
    case vt_i4:
    case vt_int:
    case vt_i1:
    case vt_ui1:
    case vt_ui2:
    case vt_ui4:
    case vt_uint:
      bits = static_cast<std::uint64_t>(integer_value());
      break;
    case vt_r4:
    case vt_r8: {
      const double v = ole_round_half_even(from == vt_r4 ? static_cast<double>(u_.r4) : u_.r8);
      const bool fits = unsigned_target ? (v >= 0.0 && v < 18446744073709551616.0)
                                        : (v >= -9223372036854775808.0 && v < 9223372036854775808.0);
      if (!fits) {
        LOG(2, "VarI8FromR8 failed: %08X", ole_e_overflow);
      } else {
        bits =
            unsigned_target ? static_cast<std::uint64_t>(v) : static_cast<std::uint64_t>(static_cast<std::int64_t>(v));
      }
      break;
    }
    case vt_cy: {
      // The old arithmetic: the count over 100, then over 1000, rounded up by
      // the next digit; the result is a tenth of the integer part.
      const std::int64_t d = u_.cy.value / 100;
      std::int64_t r = d / 1000;
      if ((d / 100) % 10 >= 5) r += 1;
      bits = static_cast<std::uint64_t>(r);
      break;
    }
    case vt_decimal: {
      if (unsigned_target) {
        if (ole_failed(u_.dec.to_u64(bits))) throw ole_cast_exception();
      } else {
        std::int64_t v = 0;
        if (ole_failed(u_.dec.to_i64(v))) throw ole_cast_exception();
        bits = static_cast<std::uint64_t>(v);
      }
      break;
    }
    default:
      throw ole_cast_exception();
  }
  set_integer_bits(to, bits);
}

bool ole_variant::change_to_small_integer(std::uint16_t to) {
  const std::uint16_t from = vt_;
  if (from == vt_r4 || from == vt_r8) {
    const double v = from == vt_r4 ? static_cast<double>(u_.r4) : u_.r8;
    const std::int32_t r = x86_i32(v >= 0 ? v + 0.5 : v - 0.5);
    set_integer_bits(to, static_cast<std::uint64_t>(static_cast<std::int64_t>(r)));
    return true;
  }
  if (from != vt_decimal) return false;  // nothing happens
  if (to == vt_i4) LOG(1, "to_string()=%s", to_string());
  integer_range range{};
  integer_range_of(to, range);
  std::int64_t v = 0;
  if (ole_failed(u_.dec.to_integer(static_cast<std::int64_t>(range.min), static_cast<std::int64_t>(range.max), v))) {
    throw ole_cast_exception();
  }
  set_integer_bits(to, static_cast<std::uint64_t>(v));
  return true;
}

void ole_variant::change_type(std::uint16_t to) {
  const std::uint16_t from = vt_;
  // 1. The byte array's synonyms.
  if ((from == vt_bytes && (to == vt_blob || to == vt_dispatch)) ||
      (to == vt_bytes && (from == vt_blob || from == vt_dispatch))) {
    LOG(1, "Replace by synonym");
    vt_ = to;
    return;
  }
  // 2. Nothing to do; an empty value stays empty under every tag.
  if (to == from || from < 2) {
    LOG(1, "Type cannot be changed");
    return;
  }
  // 3. Bytes to bytes.
  if (is_binary_type(to) && is_binary_type(from)) {
    LOG(1, "Type cannot be changed");
    return;
  }
  // 4. Text to boolean, by keyword only.
  if (from == vt_bstr && to == vt_bool) {
    const std::wstring_view text = u_.text;
    for (std::string_view keyword : {"yes", "t", "true"}) {
      if (equal_ascii_no_case(text, keyword)) {
        set_bool(true);
        return;
      }
    }
    for (std::string_view keyword : {"no", "f", "false"}) {
      if (equal_ascii_no_case(text, keyword)) {
        set_bool(false);
        return;
      }
    }
    throw ole_cast_exception();
  }
  // 5., 6. From the 64-bit tags.
  if (from == vt_i8 || from == vt_ui8) {
    if (to < 2 || to > 23) throw ole_cast_exception();
    if (from == vt_i8) {
      change_from_i8(to);
    } else {
      change_from_ui8(to);
    }
    return;
  }
  // 7. A date only becomes text.
  if (from == vt_date) {
    if (to != vt_bstr) throw ole_cast_exception();
    set_text(u_.date.to_wstring(true));
    return;
  }
  // 8. To the 64-bit tags.
  if (to == vt_i8 || to == vt_ui8) {
    if (from < 2 || from > 23) throw ole_cast_exception();
    change_to_64(to);
    return;
  }
  // 9., 10. To the small integers: from reals and decimals only; any other
  // source is left as it is.
  if (to == vt_i4 || to == vt_ui4 || to == vt_i2 || to == vt_ui2) {
    change_to_small_integer(to);
    return;
  }
  if (to == vt_i1) {
    if (from == vt_decimal) change_to_small_integer(to);
    return;
  }
  // 11. Text to date.
  if (to == vt_date) {
    if (from != vt_bstr) throw ole_cast_exception();
    const ole_date date(to_string());
    if (!date.is_valid()) throw ole_cast_exception();
    set_date(date);
    return;
  }
  // 12. Bytes only become text, read as text of the system code page up to
  // the first zero byte.
  if (is_binary_type(from)) {
    if (to != vt_bstr) return;
    const std::vector<std::uint8_t>& bytes = u_.bytes;
    const std::size_t count = std::min(bytes.size(), max_hex_bytes);
    std::size_t length = 0;
    while (length < count && bytes[length] != 0) ++length;
    std::wstring text;
    if (length > 0 &&
        !tk_ansi_to_unicode(std::string_view(reinterpret_cast<const char*>(bytes.data()), length), text)) {
      text.clear();
    }
    set_text(std::move(text));
    return;
  }
  // 13. Anything to bytes: the value's memory.
  if (is_binary_type(to)) {
    std::vector<std::uint8_t> raw;
    if (!memory_bytes(raw)) throw ole_cast_exception();
    if (raw.empty()) return;
    set_bytes(vt_bytes) = std::move(raw);
    return;
  }
  // 14. The conversion table.
  if (ole_failed(change_type_local(to))) {
    LOG(2, "VariantChangeType failed");
    LOG(2, "%s", to_string());
    throw ole_cast_exception();
  }
}

}  // namespace qb
