#include "ole/variant.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

#include "ole/numtext.h"
#include "tk/exception.h"
#include "tk/log.h"
#include "tk/strings.h"
#include "tk/utf.h"

namespace qb {
namespace {

[[noreturn]] void misuse(int line) { throw tk_mail_assertion("ole_var", line); }

// A double truncated to an integer the way the x86 conversion instruction
// does it: NaN and values out of range give the lowest value of the type.
std::int32_t x86_i32(double v) {
  if (!(v > -2147483649.0 && v < 2147483648.0)) return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(v);
}

std::int64_t x86_i64(double v) {
  if (!(v >= -9223372036854775808.0 && v < 9223372036854775808.0)) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(v);
}

std::wstring_view up_to_nul(std::wstring_view text) {
  const auto at = text.find(L'\0');
  return at == std::wstring_view::npos ? text : text.substr(0, at);
}

// Wide text in the system code page (plain ASCII without a conversion call).
bool narrow_ansi(std::wstring_view text, std::string& out) {
  out.resize(text.size());
  std::size_t k = 0;
  for (; k < text.size() && static_cast<std::uint32_t>(text[k]) < 0x80; ++k) out[k] = static_cast<char>(text[k]);
  if (k == text.size()) return true;
  return tk_unicode_to_ansi2(text, out);
}

template <class Str>
void append_hex(Str& out, const std::uint8_t* data, std::size_t count) {
  static constexpr char digits[] = "0123456789ABCDEF";
  const std::size_t start = out.size();
  out.resize(start + count * 2);
  auto* p = out.data() + start;
  for (std::size_t k = 0; k < count; ++k) {
    *p++ = static_cast<typename Str::value_type>(digits[data[k] >> 4]);
    *p++ = static_cast<typename Str::value_type>(digits[data[k] & 0x0F]);
  }
}

template <class Ch>
bool equal_ascii_no_case(std::basic_string_view<Ch> text, std::string_view keyword) {
  if (text.size() != keyword.size()) return false;
  for (std::size_t k = 0; k < text.size(); ++k) {
    auto c = static_cast<std::uint32_t>(text[k]);
    if (c >= 'A' && c <= 'Z') c += 'a' - 'A';
    if (c != static_cast<unsigned char>(keyword[k])) return false;
  }
  return true;
}

// Number text with each ',' read as '.', without a copy when there is none.
class point_text {
 public:
  explicit point_text(std::string_view text) {
    if (text.find(',') == std::string_view::npos) {
      view_ = text;
      return;
    }
    char* p = small_;
    if (text.size() > sizeof small_) {
      big_.assign(text);
      p = big_.data();
    } else {
      std::memcpy(small_, text.data(), text.size());
    }
    std::replace(p, p + text.size(), ',', '.');
    view_ = std::string_view(p, text.size());
  }
  point_text(const point_text&) = delete;
  point_text& operator=(const point_text&) = delete;
  [[nodiscard]] std::string_view view() const { return view_; }

 private:
  char small_[64];
  std::string big_;
  std::string_view view_;
};

// The digit that a character stands for in a hexadecimal text. Each character
// is looked up by a lower-bound search in "0123456789ABCDEF" and, when that
// runs off the end, in "0123456789abcdef"; the position found is the digit.
// A character that is no digit thus yields its neighbour's position (or 16).
const std::array<std::uint8_t, 256>& hex_positions() {
  static const std::array<std::uint8_t, 256> table = [] {
    static constexpr std::string_view upper = "0123456789ABCDEF";
    static constexpr std::string_view lower = "0123456789abcdef";
    std::array<std::uint8_t, 256> t{};
    for (int c = 0; c < 256; ++c) {
      const auto ch = static_cast<char>(c);
      auto cmp = [](char a, char b) { return static_cast<unsigned char>(a) < static_cast<unsigned char>(b); };
      auto it = std::lower_bound(upper.begin(), upper.end(), ch, cmp);
      if (it == upper.end()) {
        it = std::lower_bound(lower.begin(), lower.end(), ch, cmp);
        t[static_cast<std::size_t>(c)] = static_cast<std::uint8_t>(it - lower.begin());
      } else {
        t[static_cast<std::size_t>(c)] = static_cast<std::uint8_t>(it - upper.begin());
      }
    }
    return t;
  }();
  return table;
}

template <class Ch>
unsigned hex_position(Ch c) {
  const auto code = static_cast<std::uint32_t>(c);
  return code < 256 ? hex_positions()[code] : 16U;
}

void log_reader_failure(const char* format, std::int64_t result, ole_hresult hr) { LOG(2, format, result, hr); }

}  // namespace

bool ole_variant::is_numeric_type(std::uint16_t vt) {
  switch (vt) {
    case vt_i2:
    case vt_i4:
    case vt_r4:
    case vt_r8:
    case vt_cy:
    case vt_bool:
    case vt_decimal:
      return true;
    default:
      return vt >= vt_i1 && vt <= vt_uint;
  }
}

// --- Construction and ownership ---------------------------------------------------

ole_variant::ole_variant() noexcept = default;

ole_variant::ole_variant(bool value) { set_bool(value); }
ole_variant::ole_variant(char value) {
  set_integer_bits(vt_i1, static_cast<std::uint64_t>(static_cast<signed char>(value)));
}
ole_variant::ole_variant(signed char value) { set_integer_bits(vt_i1, static_cast<std::uint64_t>(value)); }
ole_variant::ole_variant(unsigned char value) { set_integer_bits(vt_ui1, value); }
ole_variant::ole_variant(short value) { set_integer_bits(vt_i2, static_cast<std::uint64_t>(value)); }
ole_variant::ole_variant(unsigned short value) { set_integer_bits(vt_ui2, value); }
ole_variant::ole_variant(int value) { set_integer_bits(vt_i4, static_cast<std::uint64_t>(value)); }
ole_variant::ole_variant(unsigned int value) { set_integer_bits(vt_ui4, value); }
ole_variant::ole_variant(long value) { set_integer_bits(vt_i8, static_cast<std::uint64_t>(value)); }
ole_variant::ole_variant(unsigned long value) { set_integer_bits(vt_ui8, value); }
ole_variant::ole_variant(long long value) { set_integer_bits(vt_i8, static_cast<std::uint64_t>(value)); }
ole_variant::ole_variant(unsigned long long value) { set_integer_bits(vt_ui8, value); }
ole_variant::ole_variant(float value) { set_r4(value); }
ole_variant::ole_variant(double value) { set_r8(value); }
ole_variant::ole_variant(std::string_view utf8) { attach_string(utf8); }
ole_variant::ole_variant(std::wstring_view text) { set_text(text); }
ole_variant::ole_variant(std::wstring&& text) { set_text(std::move(text)); }
ole_variant::ole_variant(const wchar_t* text) {
  set_text(text != nullptr ? std::wstring_view(text) : std::wstring_view{});
}
ole_variant::ole_variant(ole_currency value) { set_currency(value); }
ole_variant::ole_variant(const ole_decimal& value) { set_decimal(value); }
ole_variant::ole_variant(const ole_systemtime& value) : ole_variant(ole_date(value)) {}

ole_variant::ole_variant(const ole_date& value) {
  set_date(value);
  // The day number is computed when it is read (get_date_double); here only
  // its failure is logged.
  if (!ole_system_time_has_day_number(value.src)) LOG(2, "Failed to convert SYSTEMTIME->VARIANT");
}

ole_variant::ole_variant(std::span<const std::uint8_t> bytes) { attach_binary(bytes); }

ole_variant::ole_variant(std::size_t size, const std::uint8_t* data) {
  if (size == 0) return;
  if (data == nullptr) misuse(__LINE__);
  attach_binary(std::span<const std::uint8_t>(data, size));
}

ole_variant ole_variant::make_null() {
  ole_variant v;
  v.vt_ = vt_null;
  return v;
}

ole_variant ole_variant::make_empty_bytes() {
  ole_variant v;
  v.set_bytes(vt_bytes);
  return v;
}

ole_variant ole_variant::make_lpstr(std::string_view text) {
  ole_variant v;
  v.set_bytes(vt_lpstr).assign(text.begin(), text.end());
  return v;
}

ole_variant ole_variant::make_lpwstr(std::wstring_view text) {
  ole_variant v;
  v.set_text(text);
  v.vt_ = vt_lpwstr;
  return v;
}

ole_variant::ole_variant(const ole_variant& other) { copy_from(other); }

ole_variant::ole_variant(ole_variant&& other) noexcept { move_from(other); }

ole_variant& ole_variant::operator=(const ole_variant& other) {
  if (this != &other) copy_from(other);
  return *this;
}

ole_variant& ole_variant::operator=(ole_variant&& other) noexcept {
  if (this != &other) move_from(other);
  return *this;
}

ole_variant& ole_variant::operator=(std::wstring_view text) {
  attach_wstring(text);
  return *this;
}

ole_variant& ole_variant::operator=(const wchar_t* text) {
  set_text(text != nullptr ? std::wstring_view(text) : std::wstring_view{});
  return *this;
}

ole_variant& ole_variant::operator=(const std::vector<std::uint8_t>& bytes) {
  attach_binary(bytes);
  return *this;
}

ole_variant::~ole_variant() {
  if (vt_ == vt_bytes || vt_ == vt_blob) LOG(2, "Just before SafeArrayDestroy0");
  clear();
}

void ole_variant::clear() noexcept {
  switch (rep_) {
    case rep::text:
      std::destroy_at(&u_.text);
      break;
    case rep::bytes:
      std::destroy_at(&u_.bytes);
      break;
    default:
      break;
  }
  rep_ = rep::none;
  vt_ = vt_empty;
  u_.i8 = 0;
}

void ole_variant::copy_from(const ole_variant& other) {
  if (other.vt_ == vt_i8 || other.vt_ == vt_ui8) LOG(1, "Special processing for VT_(U)I8 type");
  switch (other.rep_) {
    case rep::text:
      set_text(std::wstring_view(other.u_.text));
      break;
    case rep::bytes:
      if (rep_ == rep::bytes) {
        u_.bytes = other.u_.bytes;
      } else {
        clear();
        std::construct_at(&u_.bytes, other.u_.bytes);
        rep_ = rep::bytes;
      }
      break;
    default:
      clear();
      std::memcpy(static_cast<void*>(&u_), static_cast<const void*>(&other.u_), sizeof u_);
      rep_ = other.rep_;
      break;
  }
  vt_ = other.vt_;
}

void ole_variant::move_from(ole_variant& other) noexcept {
  clear();
  switch (other.rep_) {
    case rep::text:
      std::construct_at(&u_.text, std::move(other.u_.text));
      break;
    case rep::bytes:
      std::construct_at(&u_.bytes, std::move(other.u_.bytes));
      break;
    default:
      std::memcpy(static_cast<void*>(&u_), static_cast<const void*>(&other.u_), sizeof u_);
      break;
  }
  rep_ = other.rep_;
  vt_ = other.vt_;
  other.clear();
}

// --- Setting values -------------------------------------------------------------------

void ole_variant::set_integer_bits(std::uint16_t vt, std::uint64_t bits) {
  clear();
  rep_ = rep::scalar;
  vt_ = vt;
  switch (vt) {
    case vt_i1:
      u_.i1 = static_cast<std::int8_t>(bits);
      break;
    case vt_ui1:
      u_.ui1 = static_cast<std::uint8_t>(bits);
      break;
    case vt_i2:
      u_.i2 = static_cast<std::int16_t>(bits);
      break;
    case vt_bool:
      u_.boolean = static_cast<std::int16_t>(bits);
      break;
    case vt_ui2:
      u_.ui2 = static_cast<std::uint16_t>(bits);
      break;
    case vt_i4:
    case vt_int:
      u_.i4 = static_cast<std::int32_t>(bits);
      break;
    case vt_ui4:
    case vt_uint:
      u_.ui4 = static_cast<std::uint32_t>(bits);
      break;
    case vt_i8:
      u_.i8 = static_cast<std::int64_t>(bits);
      break;
    case vt_ui8:
      u_.ui8 = bits;
      break;
    default:
      misuse(__LINE__);
  }
}

void ole_variant::set_r4(float v) {
  clear();
  rep_ = rep::scalar;
  vt_ = vt_r4;
  u_.r4 = v;
}

void ole_variant::set_r8(double v) {
  clear();
  rep_ = rep::scalar;
  vt_ = vt_r8;
  u_.r8 = v;
}

void ole_variant::set_bool(bool v) { set_integer_bits(vt_bool, v ? 0xFFFFU : 0U); }

void ole_variant::set_currency(ole_currency v) {
  clear();
  rep_ = rep::scalar;
  vt_ = vt_cy;
  u_.cy = v;
}

void ole_variant::set_decimal(const ole_decimal& v) {
  clear();
  rep_ = rep::decimal;
  vt_ = vt_decimal;
  u_.dec = v;
}

void ole_variant::set_date(const ole_date& v) {
  clear();
  rep_ = rep::date;
  vt_ = vt_date;
  std::construct_at(&u_.date, v);
}

void ole_variant::set_text(std::wstring_view text) {
  if (rep_ == rep::text) {
    u_.text.assign(text);
  } else {
    clear();
    std::construct_at(&u_.text, text);
    rep_ = rep::text;
  }
  vt_ = vt_bstr;
}

void ole_variant::set_text(std::wstring&& text) {
  if (rep_ == rep::text) {
    u_.text = std::move(text);
  } else {
    clear();
    std::construct_at(&u_.text, std::move(text));
    rep_ = rep::text;
  }
  vt_ = vt_bstr;
}

std::vector<std::uint8_t>& ole_variant::set_bytes(std::uint16_t vt) {
  if (rep_ == rep::bytes) {
    u_.bytes.clear();
  } else {
    clear();
    std::construct_at(&u_.bytes);
    rep_ = rep::bytes;
  }
  vt_ = vt;
  return u_.bytes;
}

void ole_variant::attach_string(std::string_view utf8) {
  if (rep_ != rep::text) {
    clear();
    std::construct_at(&u_.text);
    rep_ = rep::text;
  }
  u_.text.clear();
  tk_utf8_decode_append(u_.text, utf8);
  vt_ = vt_bstr;
}

void ole_variant::attach_wstring(std::wstring_view text) { set_text(text); }

void ole_variant::attach_wstring(std::wstring&& text) { set_text(std::move(text)); }

void ole_variant::attach_binary(std::span<const std::uint8_t> bytes) {
  if (bytes.empty()) return;
  const bool is_array = (vt_ == vt_bytes || vt_ == vt_blob) && rep_ == rep::bytes;
  if (!is_array) {
    set_bytes(vt_bytes).assign(bytes.begin(), bytes.end());
    return;
  }
  allocate_safe_array(bytes.size());
  std::memcpy(u_.bytes.data(), bytes.data(), bytes.size());
}

void ole_variant::allocate_safe_array(std::size_t size) {
  if ((vt_ == vt_bytes || vt_ == vt_blob) && rep_ == rep::bytes) {
    std::vector<std::uint8_t>& bytes = u_.bytes;
    if (bytes.empty()) misuse(__LINE__);   // upper bound below the lower bound
    if (bytes.size() - 1 == size) return;  // the old off-by-one: left one longer
    bytes.resize(size);
    return;
  }
  set_bytes(vt_bytes).assign(size, 0);
}

// --- Reading -----------------------------------------------------------------------

std::size_t ole_variant::get_safe_array_size() const { return rep_ == rep::bytes ? u_.bytes.size() : 0; }

std::size_t ole_variant::get_bytes1(const std::uint8_t*& data, std::string& text_buffer) const {
  data = nullptr;
  if (vt_ < 2) {
    LOG(1, "OLE_Variant is empty");
    return 0;
  }
  if (vt_ == vt_bstr) {
    if (!narrow_ansi(up_to_nul(u_.text), text_buffer)) return 0;
    data = reinterpret_cast<const std::uint8_t*>(text_buffer.data());
    return text_buffer.size();
  }
  if ((vt_ == vt_bytes || vt_ == vt_blob) && rep_ == rep::bytes) {
    data = u_.bytes.data();
    return u_.bytes.size();
  }
  misuse(__LINE__);
}

std::size_t ole_variant::get_at(std::string& out, std::size_t pos, std::size_t length) const {
  if ((vt_ == vt_bytes || vt_ == vt_blob) && rep_ == rep::bytes) {
    const std::size_t count = std::min(u_.bytes.size(), max_hex_bytes);
    if (pos >= count) return 0;
    length = std::min(length, count - pos);
    out.clear();
    append_hex(out, u_.bytes.data() + pos, length);
    return length;
  }
  if (vt_ == vt_bstr) {
    const std::wstring_view text = u_.text;
    if (pos >= text.size()) return 0;
    const std::wstring_view piece = text.substr(pos, length);
    if (!narrow_ansi(piece, out)) out.clear();
    return piece.size();
  }
  return 0;
}

void ole_variant::append_string(std::string& out) const {
  switch (vt_) {
    case vt_bytes:
    case vt_blob: {
      if (rep_ != rep::bytes) return;
      const std::size_t count = std::min(u_.bytes.size(), max_hex_bytes);
      if (count == 0) return;
      out.append("0x");
      append_hex(out, u_.bytes.data(), count);
      return;
    }
    case vt_decimal:
      u_.dec.append_to(out);
      return;
    case vt_date:
      u_.date.append_to(out, true);
      return;
    case vt_cy:
      u_.cy.append_to(out);
      return;
    case vt_bstr: {
      if (out.empty()) {  // the usual case: no temporary
        if (!narrow_ansi(up_to_nul(u_.text), out)) out.clear();
        return;
      }
      std::string narrow;
      if (narrow_ansi(up_to_nul(u_.text), narrow)) out.append(narrow);
      return;
    }
    case vt_bool:
      LOG(1, "Mapping BOOL like ANSI!");
      out.push_back(static_cast<std::uint16_t>(u_.boolean) < 65535 ? '0' : '1');
      return;
    case vt_i2:
      ole_append_int(out, u_.i2);
      return;
    case vt_i1:
      ole_append_int(out, u_.i1);
      return;
    case vt_i4:
      ole_append_int(out, u_.i4);
      return;
    case vt_r4:
      ole_append_e(out, static_cast<double>(u_.r4), 6);
      return;
    case vt_r8:
      ole_append_e(out, u_.r8, 16);
      return;
    case vt_ui1:
      ole_append_uint(out, u_.ui1);
      return;
    case vt_ui2:
      ole_append_uint(out, u_.ui2);
      return;
    case vt_ui4:
    case vt_uint:
      ole_append_uint(out, u_.ui4);
      return;
    case vt_i8:
      ole_append_int(out, u_.i8);
      return;
    case vt_ui8:
      ole_append_uint(out, u_.ui8);
      return;
    default:
      return;  // 0, 1, 22 and everything else print nothing
  }
}

std::string ole_variant::to_string() const {
  std::string out;
  append_string(out);
  return out;
}

std::wstring ole_variant::to_wstring() const {
  if (vt_ == vt_bstr) return std::wstring(up_to_nul(u_.text));
  if ((vt_ == vt_bytes || vt_ == vt_blob) && rep_ == rep::bytes) {
    std::wstring out;
    const std::size_t count = std::min(u_.bytes.size(), max_hex_bytes);
    if (count == 0) return out;
    out.append(L"0x");
    append_hex(out, u_.bytes.data(), count);
    return out;
  }
  const std::string narrow = to_string();
  std::wstring out(narrow.size(), L'\0');
  for (std::size_t k = 0; k < narrow.size(); ++k) {
    const auto c = static_cast<unsigned char>(narrow[k]);
    if (c >= 0x80) return tk_utf8_decode(narrow);
    out[k] = static_cast<wchar_t>(c);
  }
  return out;
}

std::int64_t ole_variant::integer_value() const {
  switch (vt_) {
    case vt_i1:
      return u_.i1;
    case vt_ui1:
      return u_.ui1;
    case vt_i2:
      return u_.i2;
    case vt_bool:
      return u_.boolean;
    case vt_ui2:
      return u_.ui2;
    case vt_i4:
    case vt_int:
      return u_.i4;
    case vt_ui4:
    case vt_uint:
      return u_.ui4;
    case vt_i8:
      return u_.i8;
    case vt_ui8:
      return static_cast<std::int64_t>(u_.ui8);
    default:
      return 0;
  }
}

bool ole_variant::to_bool() const {
  switch (vt_) {
    case vt_i2:
    case vt_i4:
    case vt_i1:
    case vt_ui1:
    case vt_ui2:
    case vt_ui4:
    case vt_i8:
    case vt_ui8:
      return integer_value() != 0;
    case vt_r4:
      return u_.r4 != 0.0F;
    case vt_r8:
      return u_.r8 != 0.0;
    case vt_cy:
    case vt_decimal:
      return to_long() != 0;
    case vt_bool:
      return static_cast<std::uint16_t>(u_.boolean) == 65535;
    default:
      return false;
  }
}

std::int32_t ole_variant::to_long() const {
  switch (vt_) {
    case vt_i2:
    case vt_i4:
    case vt_i1:
    case vt_ui1:
    case vt_ui2:
    case vt_ui4:  // bits as signed
    case vt_i8:   // low 32 bits
    case vt_ui8:
      return static_cast<std::int32_t>(static_cast<std::uint32_t>(integer_value()));
    case vt_r4:
      return x86_i32(static_cast<double>(u_.r4));
    case vt_r8:
      return x86_i32(u_.r8);
    case vt_bool:
      return to_bool() ? 1 : 0;
    case vt_cy: {
      std::int64_t v = 0;
      const ole_hresult hr = u_.cy.to_integer(INT32_MIN, INT32_MAX, v);
      if (ole_failed(hr)) log_reader_failure("from CURRECY: res=%d, hr=%08X", 0, hr);
      return static_cast<std::int32_t>(v);
    }
    case vt_decimal: {
      std::int64_t v = 0;
      const ole_hresult hr = u_.dec.to_integer(INT32_MIN, INT32_MAX, v);
      if (ole_failed(hr)) log_reader_failure("from DECIMAL: res=%d, hr=%08X", 0, hr);
      return static_cast<std::int32_t>(v);
    }
    default:
      return 0;
  }
}

std::int64_t ole_variant::to_i8() const {
  switch (vt_) {
    case vt_i2:
    case vt_i4:
    case vt_i1:
    case vt_ui2:
    case vt_ui4:
    case vt_i8:
    case vt_ui8:  // bits unchanged
      return integer_value();
    case vt_ui1:
      return 0;  // the reader has never had this case
    case vt_r4:
    case vt_r8: {
      const double v = vt_ == vt_r4 ? static_cast<double>(u_.r4) : u_.r8;
      return x86_i64(v >= 0 ? v + 0.5 : v - 0.5);
    }
    case vt_bool:
      return to_bool() ? 1 : 0;
    case vt_cy: {
      std::int64_t v = 0;
      const ole_hresult hr = u_.cy.to_i64(v);
      if (ole_failed(hr)) log_reader_failure("from CURRECY: res=%I64d, hr=%08X", 0, hr);
      return v;
    }
    case vt_decimal: {
      std::int64_t v = 0;
      const ole_hresult hr = u_.dec.to_i64(v);
      if (ole_failed(hr)) log_reader_failure("from DECIMAL: res=%I64d, hr=%08X", 0, hr);
      return v;
    }
    default:
      return 0;
  }
}

std::uint64_t ole_variant::to_ui8() const {
  switch (vt_) {
    case vt_i2:
    case vt_i4:
    case vt_i1:
    case vt_ui2:
    case vt_ui4:
    case vt_i8:
    case vt_ui8:
      return static_cast<std::uint64_t>(integer_value());
    case vt_ui1:
      return 0;  // the reader has never had this case
    case vt_r4:
    case vt_r8: {
      const double v = ole_round_half_even(vt_ == vt_r4 ? static_cast<double>(u_.r4) : u_.r8);
      if (!(v >= 0.0 && v < 18446744073709551616.0)) {
        log_reader_failure(vt_ == vt_r4 ? "from FLOAT: res=%I64u, hr=%08X" : "from DOUBLE: res=%I64u, hr=%08X", 0,
                           ole_e_overflow);
        return 0;
      }
      return static_cast<std::uint64_t>(v);
    }
    case vt_bool:
      return to_bool() ? 1 : 0;
    case vt_cy: {
      std::uint64_t v = 0;
      const ole_hresult hr = u_.cy.to_u64(v);
      if (ole_failed(hr)) log_reader_failure("from CURRECY: res=%I64u, hr=%08X", 0, hr);
      return v;
    }
    case vt_decimal: {
      std::uint64_t v = 0;
      const ole_hresult hr = u_.dec.to_u64(v);
      if (ole_failed(hr)) log_reader_failure("from DECIMAL: res=%I64u, hr=%08X", 0, hr);
      return v;
    }
    default:
      return 0;
  }
}

float ole_variant::to_float() const {
  switch (vt_) {
    case vt_empty:
    case vt_null:
      return 0.0F;
    case vt_r4:
      return u_.r4;
    case vt_r8:
      return static_cast<float>(u_.r8);
    case vt_cy:
      return u_.cy.to_float();
    case vt_decimal:
      return u_.dec.to_float();
    case vt_bool:
      return to_bool() ? 1.0F : 0.0F;
    case vt_i8:
      return static_cast<float>(u_.i8);
    case vt_ui8:
      return static_cast<float>(u_.ui8);
    case vt_i2:
    case vt_i4:
    case vt_i1:
    case vt_ui1:
    case vt_ui2:
    case vt_ui4:
      return static_cast<float>(integer_value());
    default:
      misuse(__LINE__);
  }
}

double ole_variant::to_double() const {
  switch (vt_) {
    case vt_empty:
    case vt_null:
      return 0.0;
    case vt_r4:
      return static_cast<double>(u_.r4);
    case vt_r8:
      return u_.r8;
    case vt_cy:
      return u_.cy.to_double();
    case vt_decimal:
      return u_.dec.to_double();
    case vt_bool:
      return to_bool() ? 1.0 : 0.0;
    case vt_i8:
      return static_cast<double>(u_.i8);
    case vt_ui8:
      return static_cast<double>(u_.ui8);
    case vt_i2:
    case vt_i4:
    case vt_i1:
    case vt_ui1:
    case vt_ui2:
    case vt_ui4:
      return static_cast<double>(integer_value());
    default:
      misuse(__LINE__);
  }
}

void ole_variant::to_decimal(ole_decimal* out) const {
  if (out == nullptr) misuse(__LINE__);
  ole_hresult hr = ole_s_ok;
  switch (vt_) {
    case vt_i2:
    case vt_i4:
    case vt_i8:
      *out = ole_decimal::from_i64(integer_value());
      return;
    case vt_ui2:
    case vt_ui4:
      *out = ole_decimal::from_u64(static_cast<std::uint64_t>(integer_value()));
      return;
    case vt_ui8:
      // The old reader handed the signed 64-bit slot, which is zero while
      // the value is unsigned.
      *out = ole_decimal{};
      return;
    case vt_r4:
      hr = ole_decimal::from_float(u_.r4, *out);
      break;
    case vt_r8:
      hr = ole_decimal::from_double(u_.r8, *out);
      break;
    case vt_decimal:
      *out = u_.dec;
      return;
    default:
      throw ole_cast_exception();
  }
  if (ole_failed(hr)) throw ole_cast_exception();
}

const ole_date* ole_variant::get_date() const { return rep_ == rep::date ? &u_.date : nullptr; }

double ole_variant::get_date_double() const {
  double day_number = 0.0;
  if (rep_ != rep::date || !ole_system_time_to_variant_time(u_.date.src, day_number)) return 0.0;
  return day_number;
}

std::wstring_view ole_variant::text_view() const {
  return rep_ == rep::text ? std::wstring_view(u_.text) : std::wstring_view{};
}

std::span<const std::uint8_t> ole_variant::bytes_view() const {
  return rep_ == rep::bytes ? std::span<const std::uint8_t>(u_.bytes) : std::span<const std::uint8_t>{};
}

ole_currency ole_variant::get_currency() const { return vt_ == vt_cy ? u_.cy : ole_currency{}; }

ole_decimal ole_variant::get_decimal() const { return vt_ == vt_decimal ? u_.dec : ole_decimal{}; }

// --- Text to value -------------------------------------------------------------------

template <class Ch>
ole_variant ole_variant::from_hex(std::basic_string_view<Ch> text, std::uint16_t vt) {
  if (text.empty()) {
    LOG(1, "Empty BLOB");
    return {};
  }
  if (text.size() % 2 != 0) {
    LOG(2, "Incorrect BLOB (size is odd)");
    return {};
  }
  const bool prefix = (text[0] == Ch('0') || text[0] == Ch('\\')) && (text[1] == Ch('x') || text[1] == Ch('X'));
  if (prefix) LOG(1, "b_prefix=true");
  const std::size_t count = text.size() / 2 - (prefix ? 1 : 0);
  ole_variant v;
  std::vector<std::uint8_t>& bytes = v.set_bytes(vt_bytes);
  bytes.assign(count, 0);
  std::size_t at = prefix ? 2 : 0;
  for (std::size_t k = 0; k < count; ++k, at += 2) {
    if (text[at] == Ch('\0')) break;
    const unsigned high = hex_position(text[at]);
    const unsigned low = hex_position(text[at + 1]);
    bytes[k] = static_cast<std::uint8_t>(high * 16 + low);
  }
  v.change_type(vt);
  return v;
}

ole_variant ole_variant::from_text_default(std::string_view text, std::uint16_t vt) {
  LOG(1, "default processing");
  ole_variant v;
  v.attach_string(text);
  if (ole_failed(v.change_type_local(vt))) throw ole_type_exception();
  return v;
}

ole_variant ole_variant::from_string(std::string_view text, std::uint16_t vt) {
  if (text.empty() && vt != vt_bstr) return {};
  if (vt > vt_bytes || (vt != vt_bytes && (vt < 2 || vt > vt_blob))) return from_text_default(text, vt);
  ole_variant v;
  switch (vt) {
    case vt_i2:
    case vt_i4:
    case vt_i1:
    case vt_ui1:
    case vt_ui2:
      v.set_integer_bits(vt, static_cast<std::uint64_t>(static_cast<std::int64_t>(ole_atoi(text))));
      return v;
    case vt_ui4: {
      std::uint32_t value = 0;
      ole_scan_u32(text, value);
      v.set_integer_bits(vt, value);
      return v;
    }
    case vt_i8:
      v.set_integer_bits(vt, static_cast<std::uint64_t>(ole_atoi64(text)));
      return v;
    case vt_ui8: {
      std::uint64_t value = 0;
      ole_scan_u64(text, value);
      v.set_integer_bits(vt, value);
      return v;
    }
    case vt_r4:
      v.set_r4(static_cast<float>(ole_atof(point_text(text).view())));
      return v;
    case vt_r8:
      v.set_r8(ole_atof(point_text(text).view()));
      return v;
    case vt_date: {
      const ole_date date(text);
      if (date.is_valid()) return ole_variant(date);
      return v;
    }
    case vt_cy: {
      const point_text number(text);
      ole_currency value;
      const ole_hresult hr = ole_currency::from_string(number.view(), value);
      if (ole_failed(hr)) {
        LOG(2, "VarCyFromStr failed: %08X", hr);
        return v;
      }
      v.set_currency(value);
      return v;
    }
    case vt_decimal: {
      const point_text number(text);
      ole_decimal value;
      const ole_hresult hr = ole_decimal::from_string(number.view(), value);
      if (ole_failed(hr)) {
        LOG(2, "ERROR: VarDecFromStr for '%s' failed (hr=%08X)", number.view(), hr);
        v.set_r8(ole_atof(number.view()));
        return v;
      }
      v.set_decimal(value);
      return v;
    }
    case vt_bool: {
      for (std::string_view keyword : {"1", "yes", "t", "true"}) {
        if (equal_ascii_no_case(text, keyword)) {
          v.set_bool(true);
          return v;
        }
      }
      for (std::string_view keyword : {"0", "no", "f", "false"}) {
        if (equal_ascii_no_case(text, keyword)) {
          v.set_bool(false);
          return v;
        }
      }
      v.set_bool(ole_atoi(text) != 0);
      return v;
    }
    case vt_bytes:
    case vt_blob:
      return from_hex(text, vt);
    default:
      return from_text_default(text, vt);
  }
}

ole_variant ole_variant::from_wstring(std::wstring_view text, std::uint16_t vt) {
  if (vt == vt_bytes || vt == vt_blob) return from_hex(text, vt);
  if (vt == vt_bstr) return ole_variant(text);
  // Narrow text in the thread's code page; numbers and dates are ASCII, so
  // most cells are narrowed on the stack.
  char buf[128];
  if (text.size() <= sizeof buf) {
    std::size_t n = 0;
    for (; n < text.size() && static_cast<std::uint32_t>(text[n]) < 0x80; ++n) buf[n] = static_cast<char>(text[n]);
    if (n == text.size()) return from_string(std::string_view(buf, n), vt);
  }
  std::string narrow;
  if (!tk_unicode_to_ansi2(text, narrow)) narrow.clear();
  return from_string(narrow, vt);
}

ole_variant ole_variant::from_wstring(std::wstring&& text, std::uint16_t vt) {
  if (vt == vt_bstr) return ole_variant(std::move(text));
  return from_wstring(std::wstring_view(text), vt);
}

}  // namespace qb
