#include "sql/literal.h"

#include <charconv>
#include <cmath>
#include <type_traits>

#include <mysql.h>

#include "ole/date.h"
#include "ole/guid.h"
#include "sql/engine.h"
#include "sql/native_type.h"
#include "tk/exception.h"
#include "tk/log.h"
#include "tk/strings.h"
#include "tk/utf.h"

namespace qb {

namespace {

using vt = ole_variant;

constexpr std::uint32_t replacement_char = 0xFFFD;
constexpr char hex_digits[] = "0123456789ABCDEF";

// --- One character out ------------------------------------------------------------------
// Writes c at p as UTF-8 (wide input) and returns the new end.
inline char* put_utf8(char* p, wchar_t c, sql_render_note* note) {
  auto cp = static_cast<std::uint32_t>(c);
  if (cp > 0x10FFFF) cp = replacement_char;
  if (cp < 0x80) {
    *p++ = static_cast<char>(cp);
  } else if (cp < 0x800) {
    *p++ = static_cast<char>(0xC0 | (cp >> 6));
    *p++ = static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    *p++ = static_cast<char>(0xE0 | (cp >> 12));
    *p++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    *p++ = static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    if (note != nullptr) note->beyond_bmp = true;
    *p++ = static_cast<char>(0xF0 | (cp >> 18));
    *p++ = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    *p++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    *p++ = static_cast<char>(0x80 | (cp & 0x3F));
  }
  return p;
}

// Output of the escaper: a buffer grown once for the worst case, filled
// through a pointer and cut to size at the end. Wide input goes out as UTF-8
// (at most four bytes a character, two for an escaped one); narrow input is
// copied byte for byte.
template <class Str, class Ch>
class sink {
 public:
  sink(Str& out, std::size_t chars) : out_(out), start_(out.size()) {
    constexpr std::size_t widest = (sizeof(Ch) > 1 && sizeof(typename Str::value_type) == 1) ? 4 : 2;
    out_.resize(start_ + chars * widest + 2);
    p_ = out_.data() + start_;
  }
  sink(const sink&) = delete;
  sink& operator=(const sink&) = delete;
  ~sink() { out_.resize(static_cast<std::size_t>(p_ - out_.data())); }

  void raw(Ch c, sql_render_note* note) {
    if constexpr (sizeof(Ch) > 1 && sizeof(typename Str::value_type) == 1) {
      p_ = put_utf8(p_, c, note);
    } else {
      *p_++ = static_cast<typename Str::value_type>(c);
    }
  }
  // Where the next unit goes, for a caller that writes a run of units itself
  // (one unit a character below 0x80 in every output) and then moves on.
  typename Str::value_type* position() const { return p_; }
  void move_to(typename Str::value_type* p) { p_ = p; }
  void escaped(char c) {
    *p_++ = '\\';
    *p_++ = c;
  }

 private:
  Str& out_;
  std::size_t start_;
  typename Str::value_type* p_;
};

template <class Ch>
void log_mask(Ch c) {
  if constexpr (sizeof(Ch) == 1) {
    LOG(1, "Got symbol to mask (2): %c", c);
  } else {
    LOG(1, "Got symbol to mask (1): %c", c);
  }
}

// How a text is escaped: a data value completely (each quote escaped), SQL
// text from the source (a default value) with its doubled quotes kept.
enum class quote_pairs { escape, keep };

// The ASCII characters that go out as they are: all but the quote, the
// backslash, NUL and CR.
constexpr bool plain_ascii(std::uint32_t c) { return c < 0x80 && c != '\'' && c != '\\' && c != 0 && c != '\r'; }

struct plain_ascii_table {
  bool plain[128] = {};
  constexpr plain_ascii_table() {
    for (std::uint32_t c = 0; c < 128; ++c) plain[c] = plain_ascii(c);
  }
};
constexpr plain_ascii_table plain_table;

// The code of a character, narrow ones taken as unsigned bytes.
template <class Ch>
std::uint32_t code_of(Ch c) {
  if constexpr (sizeof(Ch) == 1) {
    return static_cast<unsigned char>(c);
  } else {
    return static_cast<std::uint32_t>(c);
  }
}

template <class Ch>
bool is_plain(Ch c) {
  const std::uint32_t code = code_of(c);
  return code < 128 && plain_table.plain[code];
}

// The escaped body of a text literal (see the header for the rules).
template <quote_pairs Pairs, class Str, class Ch>
void escape_into(Str& out, std::basic_string_view<Ch> text, sql_render_note* note) {
  sink<Str, Ch> s(out, text.size());
  const std::size_t n = text.size();
  for (std::size_t i = 0; i < n; ++i) {
    Ch c = text[i];
    if (is_plain(c)) {
      // The common case: a run of characters that go out as they are,
      // written through a local pointer the compiler keeps in a register.
      auto* p = s.position();
      do {
        *p++ = static_cast<std::remove_pointer_t<decltype(p)>>(c);
        if (++i == n) break;
        c = text[i];
      } while (is_plain(c));
      s.move_to(p);
      if (i == n) break;
    }
    switch (c) {
      case Ch('\''):
        if (Pairs == quote_pairs::keep && i + 1 < n && text[i + 1] == Ch('\'')) {
          // A doubled quote already stands for one quote.
          s.raw(c, note);
          s.raw(c, note);
          ++i;
        } else {
          log_mask(c);
          s.escaped('\'');
        }
        break;
      case Ch('\\'):
        log_mask(c);
        s.escaped('\\');
        break;
      case Ch('\0'):
        s.escaped('0');
        break;
      case Ch('\r'):
        s.escaped('r');
        break;
      default:
        s.raw(c, note);
        break;
    }
  }
}

// A quoted literal of SQL text: doubled quotes kept, and a text that is
// exactly a doubled quote stands for the empty text.
template <class Str, class Ch>
void quote_into(Str& out, std::basic_string_view<Ch> text, sql_render_note* note) {
  using Out = typename Str::value_type;
  if (text.size() == 2 && text[0] == Ch('\'') && text[1] == Ch('\'')) {
    // Exactly a doubled quote: the empty text, already a literal.
    out.push_back(Out('\''));
    out.push_back(Out('\''));
    return;
  }
  out.push_back(Out('\''));
  escape_into<quote_pairs::keep>(out, text, note);
  out.push_back(Out('\''));
}

// A quoted literal of a data value: every character as it is, each quote
// escaped, so that the text "it''s" arrives as "it''s".
void quote_value_into(std::string& out, std::wstring_view text, sql_render_note* note) {
  out.push_back('\'');
  escape_into<quote_pairs::escape>(out, text, note);
  out.push_back('\'');
}

// The shortest text that reads back to the same value (a FLOAT value to the
// same float, a DOUBLE to the same double), rather than a fixed number of
// digits. A float beyond FLT_MAX's shortest print ("3.4028235e+38", which as a
// double lies above FLT_MAX and would be refused as out of range) is printed
// as its double. Not-a-number and the infinities have no SQL literal: NULL.
template <class T>
void append_shortest(std::string& out, T value) {
  if (!std::isfinite(value)) {
    LOG(2, "A floating-point value that is not a number or infinite is written as NULL");
    out.append("NULL");
    return;
  }
  char buf[64];
  std::to_chars_result r{};
  if constexpr (std::is_same_v<T, float>) {
    if (std::fabs(value) > 3.4e38F) {
      r = std::to_chars(buf, buf + sizeof buf, static_cast<double>(value));
      out.append(buf, r.ptr);
      return;
    }
  }
  r = std::to_chars(buf, buf + sizeof buf, value);
  out.append(buf, r.ptr);
}

template <class Ch>
bool is_hex_literal(std::basic_string_view<Ch> text) {
  if (text.size() < 3 || text[0] != Ch('0') || (text[1] != Ch('x') && text[1] != Ch('X'))) return false;
  for (std::size_t i = 2; i < text.size(); ++i) {
    const Ch c = text[i];
    const bool hex = (c >= Ch('0') && c <= Ch('9')) || (c >= Ch('a') && c <= Ch('f')) || (c >= Ch('A') && c <= Ch('F'));
    if (!hex) return false;
  }
  return true;
}

bool is_text_or_date(std::uint16_t type) { return vt::is_text_or_date_type(type); }

// The shared rules of to_mysql_str and to_mysql_wstr on text that is
// already a date's print when the tag is 7.
template <class Str, class Ch>
void literal_into(Str& out, std::basic_string_view<Ch> text, std::uint16_t type) {
  using Out = typename Str::value_type;
  if (type == vt::vt_bstr && ole_guid_extractor(text).is_valid()) {
    LOG(1, "BSTR IS AN GUID");
    quote_into(out, text, nullptr);
    return;
  }
  if (is_text_or_date(type)) {
    quote_into(out, text, nullptr);
    return;
  }
  if (vt::is_binary_type(type)) {
    LOG(1, "GOT BLOB");
    if (text.size() >= 2 && is_hex_literal(text)) {
      LOG(1, "BLOB IS VALID");
      out.append(text.begin(), text.end());
      return;
    }
    quote_into(out, text, nullptr);
    return;
  }
  for (Ch c : text) out.push_back(static_cast<Out>(c));
}

void append_hex(std::string& out, const std::uint8_t* data, std::size_t count) {
  const std::size_t start = out.size();
  out.resize(start + count * 2);
  char* p = out.data() + start;
  for (std::size_t k = 0; k < count; ++k) {
    *p++ = hex_digits[data[k] >> 4];
    *p++ = hex_digits[data[k] & 0x0F];
  }
}

// The printed number of a value of tag 22 (VT_INT), which the value layer
// does not print: through the automation layer's conversion to text.
void append_int_tag(std::string& out, const ole_variant& value) {
  ole_variant copy(value);
  try {
    copy.change_type(vt::vt_bstr);
  } catch (const tk_exception&) {
    return;
  }
  tk_utf8_append(out, copy.text_view());
}

// A date of no stated kind becomes CHAR(19) (see get_sql_native_type2).
bool is_text_date_column(const t_ftd& column) {
  if (column.vartype != vt::vt_date || !column.native_type.empty()) return false;
  if ((column.dw_reserved & 3) != 0 || column.dw_reserved == 9 || column.dw_reserved == 10) return false;
  if (column.def_value.is_empty()) return true;
  return get_sql_native_type2(column, true) == sql_type_name(sql_type_id::char_);
}

// The literal of a field's value, with the date printed with or without the
// fraction of a second.
void append_value_literal(std::string& out, const udb_field& field, bool with_fraction, sql_render_note* note) {
  LOG(1, "to_mysql_str");
  const std::uint16_t type = field.ole_variant::get_type();
  if (type == vt::vt_bytes || type == vt::vt_blob) {
    LOG(1, "special processing for BLOBs");
    const auto bytes = field.bytes_view();
    if (bytes.empty()) {
      // A stored binary of no bytes: the empty literal, not NULL.
      out.append("''");
    } else {
      out.append("0x");
      append_hex(out, bytes.data(), bytes.size());
    }
    LOG(1, "to_mysql_str - at the END");
    return;
  }
  if (type < 2) {
    LOG(1, "******* NULL VALUE ******");
    out.append("NULL");
    return;
  }
  if (type == vt::vt_bstr) {
    const std::wstring_view text = field.text_view();
    if (text.empty()) {
      out.append("''");
      return;
    }
    if (ole_guid_extractor(text).is_valid()) LOG(1, "BSTR IS AN GUID");
    quote_value_into(out, text, note);
    return;
  }
  if (type == vt::vt_r4) {
    append_shortest(out, field.to_float());
    return;
  }
  if (type == vt::vt_r8) {
    append_shortest(out, field.to_double());
    return;
  }
  if (type == vt::vt_date) {
    // The text of a date value is its MySQL print; reading that print back
    // gives the same date, so it is printed once.
    const ole_date* date = field.get_date();
    out.push_back('\'');
    const std::size_t start = out.size();
    if (date != nullptr) date->append_to(out, with_fraction);
    if (out.size() == start) {
      out.pop_back();
      out.append("''");
      return;
    }
    out.push_back('\'');
    return;
  }
  const std::size_t start = out.size();
  if (type == vt::vt_int) {
    append_int_tag(out, field);
  } else {
    field.append_string(out);
  }
  // A value that prints nothing is the empty text.
  if (out.size() == start) out.append("''");
}

bool is_quote_pair(std::string_view text) { return text == "''" || text == "\"\""; }

void append_text_column(std::string& out, const udb_field& field, const t_ftd& column, sql_render_note* note) {
  std::wstring converted;
  std::wstring_view text;
  if (field.ole_variant::get_type() == vt::vt_bstr) {
    text = field.text_view();
  } else {
    converted = field.to_wstring();
    text = converted;
  }
  LOG(1, "Got BSTR value: %s, flags=%d", text, column.dw_reserved);
  if (column.dw_reserved == 2 || column.dw_reserved == 8) {
    out.append("ST_GeomFromText(");
    quote_value_into(out, text, note);
    out.push_back(')');
    return;
  }
  if (text.empty()) {
    out.append("''");
    return;
  }
  if (ole_guid_extractor(text).is_valid()) LOG(1, "BSTR IS AN GUID");
  quote_value_into(out, text, note);
}

}  // namespace

void sql_append_escaped(std::string& out, std::wstring_view text, sql_render_note* note) {
  escape_into<quote_pairs::escape>(out, text, note);
}

void sql_append_quoted(std::string& out, std::wstring_view text, sql_render_note* note) {
  quote_value_into(out, text, note);
}

void sql_append_sql_text_quoted(std::string& out, std::wstring_view text) { quote_into(out, text, nullptr); }

std::string to_mysql_str(std::string_view text, std::uint16_t vartype) {
  LOG(1, "to_mysql_str(%s)", text);
  if (vartype < 2) {
    LOG(1, "******* NULL VALUE ******");
    return "NULL";
  }
  if (text.empty()) return "''";
  std::string out;
  if (vartype == vt::vt_date) {
    const std::string printed = ole_date(text).to_string(true);
    literal_into(out, std::string_view(printed), vartype);
    return out;
  }
  literal_into(out, text, vartype);
  return out;
}

std::wstring to_mysql_wstr(std::wstring_view text, std::uint16_t vartype) {
  LOG(1, "to_mysql_wstr(%s)", text);
  if (vartype < 2) {
    LOG(1, "******* NULL VALUE ******");
    return L"NULL";
  }
  if (text.empty()) return L"''";
  std::wstring out;
  if (vartype == vt::vt_date) {
    const std::wstring printed = tk_utf8_decode(ole_date(text).to_string(true));
    literal_into(out, std::wstring_view(printed), vartype);
    return out;
  }
  literal_into(out, text, vartype);
  return out;
}

std::string to_mysql_str(const udb_field* field) {
  if (field == nullptr) throw tk_mail_assertion("sql_util", __LINE__);
  std::string out;
  append_value_literal(out, *field, true, nullptr);
  return out;
}

void append_mysql_str(std::string& out, const udb_field& field) { append_value_literal(out, field, true, nullptr); }

bool sql_is_long_value(const udb_field& field) {
  const std::uint16_t type = field.ole_variant::get_type();
  if (type == vt::vt_bstr) return field.text_view().size() > sql_max_field_size;
  if (type == vt::vt_bytes || type == vt::vt_blob) return field.bytes_view().size() > sql_max_field_size;
  return false;
}

std::string get_fld_append_str(const udb_field* field, const t_ftd* column, bool prepared) {
  if (field == nullptr || column == nullptr) throw tk_mail_assertion("sql_util", __LINE__);
  std::string out;
  append_fld_str(out, *field, *column, prepared);
  return out;
}

void append_fld_str(std::string& out, const udb_field& field, const t_ftd& column, bool prepared,
                    sql_render_note* note) {
  LOG(1, "get_fld_append_str");
  const std::uint16_t value_type = field.get_type();
  const bool is_null = value_type < 2;
  if (prepared && !is_null && field.get_length() > sql_max_field_size) {
    LOG(1, "fld->get_size()=%d", field.get_length());
    LOG(1, "Returns placeholder for prepared statement");
    out.push_back('?');
    return;
  }
  // A null has no text: it takes the rules of an empty value below, in a
  // text column too.
  if (column.vartype == vt::vt_bstr && !is_null) {
    append_text_column(out, field, column, note);
    return;
  }

  const std::size_t start = out.size();
  append_value_literal(out, field, !is_text_date_column(column), note);
  if (vt::is_numeric_type(column.vartype) && !vt::is_numeric_type(value_type)) {
    // A numeric column never gets a quoted text.
    out.resize(start);
    const std::string text = tk_utf8_encode(field.to_wstring());
    out.append(to_mysql_str(text, column.vartype));
  }
  const std::string_view rendered(out.data() + start, out.size() - start);
  LOG(1, "Got field: %s, type=%08X", rendered, value_type);
  if (!is_null && !rendered.empty() && !is_quote_pair(rendered)) return;
  if (column.vartype == vt::vt_bstr || vt::is_binary_type(column.vartype)) return;
  if (column.b_not_null) {
    LOG(1, "Put default value");
    const std::wstring def = column.def_value.to_wstring();
    if (!def.empty()) {
      out.resize(start);
      out.append(to_mysql_str(tk_utf8_encode(def), column.vartype));
    }
    if (vt::is_numeric_type(value_type)) {
      out.resize(start);
      out.push_back('0');
    }
    return;
  }
  LOG(1, "Put NULL-field");
  out.resize(start);
  out.append("NULL");
}

namespace {

// A cell of a MySQL result, narrow (the client's bytes) or wide; binary
// cells take one byte per character.
template <class Char>
ole_variant variant_of_cell(const Char* value, std::size_t length, std::uint32_t type, std::uint32_t flags) {
  LOG(1, "get_variant(2), type=%d, lenght=%d", type, length);
  if (value == nullptr) {
    LOG(1, "process NULL-values");
    return ole_variant::make_null();
  }
  const std::basic_string_view<Char> text(value, length);
  const bool binary = (flags & BINARY_FLAG) != 0;
  // A binary cell of no bytes is a value of its own, not NULL.
  const auto bytes = [&] {
    if (length == 0) return ole_variant::make_empty_bytes();
    if constexpr (std::is_same_v<Char, char>) {
      return ole_variant(length, reinterpret_cast<const std::uint8_t*>(value));
    } else {
      std::vector<std::uint8_t> data(length);
      for (std::size_t i = 0; i < length; ++i) data[i] = static_cast<std::uint8_t>(text[i]);
      return ole_variant(data);
    }
  };
  if (type == MYSQL_TYPE_VAR_STRING) {
    if (!binary) {
      LOG(1, "Extract TEXT value");
      return ole_variant(text);
    }
    LOG(1, "Process TEXT as BINARY");
    return bytes();
  }
  if (type >= MYSQL_TYPE_TINY_BLOB && type <= MYSQL_TYPE_BLOB) {
    const sql_engine* engine = sql_engine::try_instance();
    if ((engine != nullptr && engine->blob_to_text()) || !binary) {
      LOG(1, "Process BINARY as TEXT");
      return ole_variant(text);
    }
    LOG(1, "Extract BINARY value");
    return bytes();
  }
  const std::uint16_t code = get_vartype(type, flags);
  LOG(1, "Type=%d, src=%s", code, text);
  if (code == vt::vt_bool) return ole_variant(length > 0 && value[0] != Char{});
  if constexpr (std::is_same_v<Char, char>) {
    return ole_variant::from_string(text, code);
  } else {
    return ole_variant::from_wstring(text, code);
  }
}

}  // namespace

ole_variant get_variant(const char* value, unsigned long length, std::uint32_t type, std::uint32_t flags) {
  return variant_of_cell(value, length, type, flags);
}

ole_variant get_variant(const wchar_t* value, std::size_t length, std::uint32_t type, std::uint32_t flags) {
  return variant_of_cell(value, length, type, flags);
}

}  // namespace qb
