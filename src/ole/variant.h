// ole_variant: the tagged value of every cell.
//
// Every value read from a source and written to a target travels as an
// ole_variant (udb_field derives from it). It keeps one value under a numeric
// type tag, the tag numbers of OLE Automation:
//
//   0 empty, 1 null, 2 I2, 3 I4, 4 R4 (float), 5 R8 (double), 6 CY
//   (ole_currency), 7 DATE (ole_date), 8 BSTR (wide text), 11 BOOL (0 or -1),
//   14 DECIMAL (ole_decimal), 16 I1, 17 UI1, 18 UI2, 19 UI4, 20 I8, 21 UI8,
//   22 INT, 23 UINT, 30 LPSTR and 31 LPWSTR (text that only converts to
//   bytes), 65 BLOB and 8209 (array of UI1): bytes. 9 is taken as a synonym
//   of the byte array by change_type.
//
// It prints a value as text for SQL, reads a value from text in a given tag,
// and converts between tags with the automation layer's rules, including the
// deliberate oddities the program has always had (see change_type and the
// scalar readers). "Empty" means a tag below 2.
//
// Text is held as std::wstring (one code point per element); where the
// automation layer counted UTF-16 units this type counts these characters.
// Bytes are held as std::vector<std::uint8_t>. The value owns its text and
// bytes; copies are deep. Nothing else is allocated per value: numbers,
// dates and decimals live inside the object.
//
// Not thread-safe; a value belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ole/currency.h"
#include "ole/date.h"
#include "ole/decimal.h"
#include "ole/exception.h"

namespace qb {

class ole_variant {
 public:
  // --- Tags ---------------------------------------------------------------
  static constexpr std::uint16_t vt_empty = 0;
  static constexpr std::uint16_t vt_null = 1;
  static constexpr std::uint16_t vt_i2 = 2;
  static constexpr std::uint16_t vt_i4 = 3;
  static constexpr std::uint16_t vt_r4 = 4;
  static constexpr std::uint16_t vt_r8 = 5;
  static constexpr std::uint16_t vt_cy = 6;
  static constexpr std::uint16_t vt_date = 7;
  static constexpr std::uint16_t vt_bstr = 8;
  static constexpr std::uint16_t vt_dispatch = 9;
  static constexpr std::uint16_t vt_bool = 11;
  static constexpr std::uint16_t vt_decimal = 14;
  static constexpr std::uint16_t vt_i1 = 16;
  static constexpr std::uint16_t vt_ui1 = 17;
  static constexpr std::uint16_t vt_ui2 = 18;
  static constexpr std::uint16_t vt_ui4 = 19;
  static constexpr std::uint16_t vt_i8 = 20;
  static constexpr std::uint16_t vt_ui8 = 21;
  static constexpr std::uint16_t vt_int = 22;
  static constexpr std::uint16_t vt_uint = 23;
  static constexpr std::uint16_t vt_lpstr = 30;
  static constexpr std::uint16_t vt_lpwstr = 31;
  static constexpr std::uint16_t vt_blob = 65;
  static constexpr std::uint16_t vt_blob_object = 70;
  static constexpr std::uint16_t vt_bytes = 8209;  // VT_ARRAY | VT_UI1

  // Every hexadecimal rendering of bytes stops after this many bytes.
  static constexpr std::size_t max_hex_bytes = 120000000;

  // True for the tags that value rendering treats as numbers:
  // 2, 3, 4, 5, 6, 11, 14, 16..23.
  static bool is_numeric_type(std::uint16_t vt);
  // True for 7 and 8.
  static bool is_text_or_date_type(std::uint16_t vt) { return vt == vt_date || vt == vt_bstr; }
  // True for 65, 70 and 8209.
  static bool is_binary_type(std::uint16_t vt) { return vt == vt_blob || vt == vt_blob_object || vt == vt_bytes; }

  // --- Construction -----------------------------------------------------------
  ole_variant() noexcept;
  explicit ole_variant(bool value);                // 11: -1 or 0
  explicit ole_variant(char value);                // 16
  explicit ole_variant(signed char value);         // 16
  explicit ole_variant(unsigned char value);       // 17
  explicit ole_variant(short value);               // 2
  explicit ole_variant(unsigned short value);      // 18
  explicit ole_variant(int value);                 // 3
  explicit ole_variant(unsigned int value);        // 19
  explicit ole_variant(long value);                // 20
  explicit ole_variant(unsigned long value);       // 21
  explicit ole_variant(long long value);           // 20
  explicit ole_variant(unsigned long long value);  // 21
  explicit ole_variant(float value);               // 4
  explicit ole_variant(double value);              // 5
  // Narrow text is UTF-8 (attach_string).
  explicit ole_variant(std::string_view utf8);
  explicit ole_variant(const std::string& utf8) : ole_variant(std::string_view(utf8)) {}
  explicit ole_variant(const char* utf8) : ole_variant(std::string_view(utf8 != nullptr ? utf8 : "")) {}
  // Wide text of its exact length, NULs included (attach_wstring).
  explicit ole_variant(std::wstring_view text);
  explicit ole_variant(const std::wstring& text) : ole_variant(std::wstring_view(text)) {}
  explicit ole_variant(std::wstring&& text);
  // Wide text up to its first NUL (a null pointer gives an empty text).
  explicit ole_variant(const wchar_t* text);
  explicit ole_variant(ole_currency value);        // 6
  explicit ole_variant(const ole_decimal& value);  // 14
  // 7; logs "Failed to convert SYSTEMTIME->VARIANT" (level 2) when the value
  // has no day number (a pure time, a year below 100).
  explicit ole_variant(const ole_systemtime& value);
  explicit ole_variant(const ole_date& value);
  // Bytes (attach_binary); an empty vector gives an empty value.
  explicit ole_variant(std::span<const std::uint8_t> bytes);
  explicit ole_variant(const std::vector<std::uint8_t>& bytes) : ole_variant(std::span<const std::uint8_t>(bytes)) {}
  // size bytes from data; size 0 gives an empty value, a null data pointer
  // with a size above 0 is an internal error.
  ole_variant(std::size_t size, const std::uint8_t* data);

  // A value of tag 1 (SQL NULL).
  static ole_variant make_null();
  // A byte array of no bytes: a non-NULL zero-length binary value, which an
  // empty vector cannot express (that gives an empty value). Sources use it
  // so that a stored 0x value does not arrive as NULL.
  static ole_variant make_empty_bytes();
  // Text for the two pointer tags, which only ever convert to bytes.
  static ole_variant make_lpstr(std::string_view text);
  static ole_variant make_lpwstr(std::wstring_view text);

  ole_variant(const ole_variant& other);
  ole_variant(ole_variant&& other) noexcept;
  ole_variant& operator=(const ole_variant& other);
  ole_variant& operator=(ole_variant&& other) noexcept;
  ole_variant& operator=(std::wstring_view text);  // attach_wstring
  ole_variant& operator=(const std::wstring& text) { return *this = std::wstring_view(text); }
  // Text up to its first NUL.
  ole_variant& operator=(const wchar_t* text);
  ole_variant& operator=(const std::vector<std::uint8_t>& bytes);  // attach_binary
  virtual ~ole_variant();

  // --- Changing the value ----------------------------------------------------------
  // Tag 8 from UTF-8 text.
  void attach_string(std::string_view utf8);
  // Tag 8 from wide text of its exact length.
  void attach_wstring(std::wstring_view text);
  void attach_wstring(const std::wstring& text) { attach_wstring(std::wstring_view(text)); }
  void attach_wstring(const wchar_t* text) { attach_wstring(std::wstring_view(text != nullptr ? text : L"")); }
  void attach_wstring(std::wstring&& text);
  // Bytes into the byte array (allocate_safe_array, then a copy); nothing
  // happens for no bytes.
  void attach_binary(std::span<const std::uint8_t> bytes);
  // Makes the value a byte array of size bytes. A value that already is one
  // (tag 8209 or 65) keeps its bytes and is resized, except that an array one
  // byte longer than size is left as it is (an old quirk that callers see as
  // one extra byte); an array of no bytes at all is an internal error. Any
  // other value becomes a zeroed array of tag 8209.
  void allocate_safe_array(std::size_t size);

  // --- Reading ---------------------------------------------------------------------
  [[nodiscard]] std::uint16_t get_type() const { return vt_; }
  [[nodiscard]] bool is_empty() const { return vt_ < 2; }
  // Bytes in the array; 0 for a value without one.
  [[nodiscard]] std::size_t get_safe_array_size() const;

  // The bytes of the value. Byte arrays (8209, 65): data points at the
  // value's own bytes (valid while the value lives unchanged) and the result
  // is their count. Text (8): the text up to its first NUL in the system code
  // page, placed in text_buffer, and the result is its length in bytes (the
  // character count in a single-byte code page). Empty values log
  // "OLE_Variant is empty" and give 0. Any other tag is an internal error.
  std::size_t get_bytes1(const std::uint8_t*& data, std::string& text_buffer) const;

  // One piece of a long value for streaming. Byte arrays: up to length bytes
  // from pos (of at most max_hex_bytes) as upper-case hexadecimal into out,
  // and the result is the number of bytes. Text: characters pos ..
  // pos + length in the system code page into out, and the result is the
  // number of characters taken, so that the caller advances pos by it (the
  // piece's byte length is out.size()). 0 ends the walk; out is left alone
  // then. Other tags give 0.
  std::size_t get_at(std::string& out, std::size_t pos, std::size_t length) const;

  // Text of the value for SQL (narrow; numbers, dates and decimals in ASCII,
  // text in the system code page). See to_string in variant.cpp for each tag.
  [[nodiscard]] virtual std::string to_string() const;
  // Wide text: text up to its first NUL, bytes as "0x..." hexadecimal, and
  // everything else to_string() read as UTF-8.
  [[nodiscard]] virtual std::wstring to_wstring() const;
  // What to_string() of this class gives, appended to out.
  void append_string(std::string& out) const;

  // The scalar readers, with the program's long-standing rules: to_long
  // truncates a float or double while to_i8 rounds it half away from zero;
  // to_i8/to_ui8 read 0 for a UI1; 64-bit values pass their bits unchanged.
  // Conversion failures are logged and read as 0. to_float and to_double of a
  // tag they cannot read (7, 8, 22, 23, bytes...) are internal errors.
  [[nodiscard]] bool to_bool() const;
  [[nodiscard]] std::int32_t to_long() const;
  [[nodiscard]] std::int64_t to_i8() const;
  [[nodiscard]] std::uint64_t to_ui8() const;
  [[nodiscard]] float to_float() const;
  [[nodiscard]] double to_double() const;
  // Tags 2, 3, 4, 5, 18, 19, 20 and 14; a UI8 gives 0 (kept from the old
  // reader). Anything else, and a float or double beyond 38 digits, throws
  // ole_cast_exception. A null out is an internal error.
  void to_decimal(ole_decimal* out) const;

  // --- Typed access ------------------------------------------------------------
  // Null unless the value holds a date (tag 7).
  [[nodiscard]] const ole_date* get_date() const;
  // The day number of a date (see ole_system_time_to_variant_time); 0 when
  // the date has none or the value is no date.
  [[nodiscard]] double get_date_double() const;
  // The wide text of tags 8 and 31, NULs included; empty for other values.
  [[nodiscard]] std::wstring_view text_view() const;
  // The bytes of a byte array (and of tag 30's narrow text); empty otherwise.
  [[nodiscard]] std::span<const std::uint8_t> bytes_view() const;
  // The value of tag 6 / 14; zero for other tags.
  [[nodiscard]] ole_currency get_currency() const;
  [[nodiscard]] ole_decimal get_decimal() const;

  // --- Text to value --------------------------------------------------------------
  // A new value of tag vt read from narrow text (UTF-8 for text; numbers in
  // the C locale's form, ',' taken as '.' for reals, decimals and currency).
  // Empty text gives an empty value for any tag but 8. Tags that text does
  // not convert to throw ole_type_exception.
  static ole_variant from_string(std::string_view text, std::uint16_t vt);
  // The same from wide text; tag 8 keeps the text as it is, tags 8209 and 65
  // read it as hexadecimal directly.
  static ole_variant from_wstring(std::wstring_view text, std::uint16_t vt);
  static ole_variant from_wstring(const std::wstring& text, std::uint16_t vt) {
    return from_wstring(std::wstring_view(text), vt);
  }
  static ole_variant from_wstring(const wchar_t* text, std::uint16_t vt) {
    return from_wstring(std::wstring_view(text != nullptr ? text : L""), vt);
  }
  // Text of tag 8 is taken over without a copy.
  static ole_variant from_wstring(std::wstring&& text, std::uint16_t vt);

  // --- Conversion in place -----------------------------------------------------------
  // Converts the value to tag vt; refusals throw ole_cast_exception and leave
  // the value as it was. The rules, first match wins:
  //  - 8209 <-> 65 or 9: only the tag changes. Same tag, an empty value, or
  //    bytes to bytes: nothing happens.
  //  - Text to BOOL by keyword only ("yes"/"t"/"true", "no"/"f"/"false").
  //  - I8/UI8 to 2..23 by their bits (I8 to CY multiplies by 1000, and UI8 to
  //    DECIMAL gives 0: both long-standing and kept); anything else refused.
  //  - A date only becomes text (its wide form, a pure time without the zero
  //    date); text becomes a date only when it parses.
  //  - To I8/UI8 from 2..23 only (a currency gives a tenth of its integer
  //    part, rounded by the next digit: kept as it always was).
  //  - To I4, UI4, I2, UI2: reals are rounded half away from zero and cut to
  //    the width, decimals convert with range checks; any other source is
  //    left as it is (text stays text). To I1: decimals only.
  //  - Bytes become text (system code page, up to the first zero byte) and
  //    nothing else; any other value becomes bytes as it lies in memory
  //    (a decimal only when it fits the 16-byte automation layout).
  //  - Everything else by the automation layer's conversion table: numbers
  //    and text in US-English form, integers rounded half to even with range
  //    checks, reals to text with 7 (float) or 15 (double) significant
  //    digits, a boolean to text as the number it holds ("-1" or "0", the
  //    automation default without its alphabetic-boolean flag).
  void change_type(std::uint16_t vt);

 private:
  enum class rep : std::uint8_t { none, scalar, decimal, date, text, bytes };

  union payload {
    payload() noexcept : i8(0) {}
    ~payload() {}
    payload(const payload&) = delete;
    payload& operator=(const payload&) = delete;

    std::int8_t i1;
    std::uint8_t ui1;
    std::int16_t i2;
    std::uint16_t ui2;
    std::int32_t i4;
    std::uint32_t ui4;
    float r4;
    double r8;
    std::int16_t boolean;
    std::int64_t i8;
    std::uint64_t ui8;
    ole_currency cy;
    ole_decimal dec;
    ole_date date;
    std::wstring text;
    std::vector<std::uint8_t> bytes;
  };

  // Frees text or bytes and leaves an empty value.
  void clear() noexcept;
  void copy_from(const ole_variant& other);
  void move_from(ole_variant& other) noexcept;

  void set_r4(float v);
  void set_r8(double v);
  void set_bool(bool v);
  void set_text(std::wstring_view text);
  void set_text(std::wstring&& text);
  void set_currency(ole_currency v);
  void set_decimal(const ole_decimal& v);
  void set_date(const ole_date& v);
  std::vector<std::uint8_t>& set_bytes(std::uint16_t vt);
  // A value of tag vt from integer bits, cut to the tag's width.
  void set_integer_bits(std::uint16_t vt, std::uint64_t bits);

  // The bytes of the value as they lie in memory, for a conversion to bytes;
  // false for a tag that has none.
  bool memory_bytes(std::vector<std::uint8_t>& out) const;

  // The conversions of the automation layer between the scalar tags and text
  // (VariantChangeType). Leaves the value unchanged on failure.
  ole_hresult change_type_local(std::uint16_t vt);
  // Steps of change_type.
  void change_from_i8(std::uint16_t vt);
  void change_from_ui8(std::uint16_t vt);
  void change_to_64(std::uint16_t vt);
  bool change_to_small_integer(std::uint16_t vt);

  template <class Ch>
  static ole_variant from_hex(std::basic_string_view<Ch> text, std::uint16_t vt);
  static ole_variant from_text_default(std::string_view text, std::uint16_t vt);

  // The integer value of an integer-like tag as a signed 64-bit number (UI8
  // as its bits).
  [[nodiscard]] std::int64_t integer_value() const;

  std::uint16_t vt_ = vt_empty;
  rep rep_ = rep::none;
  payload u_;
};

}  // namespace qb
