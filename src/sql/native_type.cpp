#include "sql/native_type.h"

#include <algorithm>

#include <map>
#include <string_view>

#include <mysql.h>

#include "ole/date.h"
#include "ole/numtext.h"
#include "sql/engine.h"
#include "sql/literal.h"
#include "tk/exception.h"
#include "tk/format.h"
#include "tk/log.h"
#include "tk/strings.h"

namespace qb {

namespace {

using vt = ole_variant;

// Low two bits of dw_reserved of a date column: its kind.
constexpr std::uint32_t date_kind_mask = 3;
constexpr std::uint32_t date_kind_none = 0;
constexpr std::uint32_t date_kind_date = 2;
constexpr std::uint32_t date_kind_time = 3;
// dw_reserved of a date column whose default is the current moment, date or time.
constexpr std::uint32_t date_default_now = 9;
constexpr std::uint32_t date_default_date = 10;
constexpr std::uint32_t date_default_time = 11;
// dw_reserved of a text column: geometry text, geography text, fixed width.
constexpr std::uint32_t text_geometry = 2;
constexpr std::uint32_t text_geography = 8;
constexpr std::uint32_t text_fixed = 16;

bool is_geometry_text(const t_ftd& field) {
  return field.dw_reserved == text_geometry || field.dw_reserved == text_geography;
}

const std::map<int, std::wstring>& type_names() {
  static const std::map<int, std::wstring> names = {
      {0, L"BINARY"},      {1, L"BIT"},
      {2, L"TINYINT"},     {3, L"TINYINT UNSIGNED"},
      {4, L"SMALLINT"},    {5, L"SMALLINT UNSIGNED"},
      {6, L"INT"},         {7, L"INT UNSIGNED"},
      {8, L"BIGINT"},      {9, L"BIGINT UNSIGNED"},
      {10, L"FLOAT"},      {11, L"DECIMAL"},
      {12, L"DOUBLE"},     {13, L"CHAR"},
      {14, L"VARBINARY"},  {15, L"VARCHAR"},
      {16, L"DATETIME"},   {17, L"DATE"},
      {18, L"TIME"},       {19, L"TIMESTAMP"},
      {20, L"LONGBLOB"},   {21, L"TINYBLOB"},
      {22, L"BLOB"},       {23, L"MEDIUMBLOB"},
      {24, L"TEXT"},       {25, L"LONGTEXT"},
      {26, L"MEDIUMTEXT"}, {27, L"TINYTEXT"},
  };
  return names;
}

const std::wstring& name_of(sql_type_id id) { return sql_type_name(id); }

// name followed by "(size)" unless no_size.
std::wstring sized(sql_type_id id, std::uint32_t size, bool no_size) {
  if (no_size) return name_of(id);
  return tk_wformat(L"%s(%d)", name_of(id), size);
}

bool binary_text() {
  const sql_engine* engine = sql_engine::try_instance();
  return engine != nullptr && engine->binary_text();
}

bool fractional_seconds() {
  const sql_engine* engine = sql_engine::try_instance();
  return engine != nullptr && engine->fractional_seconds();
}

bool blob_to_text() {
  const sql_engine* engine = sql_engine::try_instance();
  return engine != nullptr && engine->blob_to_text();
}

bool equals_any_no_case(std::wstring_view text, std::initializer_list<std::wstring_view> words) {
  for (std::wstring_view word : words) {
    if (tk_equal_no_case(text, word)) return true;
  }
  return false;
}

// DATETIME or TIME with the fraction digits the source column carries
// (its scale: SQL Server's datetime 3, datetime2(n), time(n) and
// datetimeoffset(n) n), at most 6, when the destination keeps fractions of a
// second (sql_engine::fractional_seconds: MySQL 5.6.4, MariaDB 5.3, the dump's
// new dialect). Elsewhere the plain type, which drops the fraction.
std::wstring with_fraction(sql_type_id id, const t_ftd& field, bool no_size) {
  if (no_size || field.scale == 0 || !fractional_seconds()) return name_of(id);
  return sized(id, std::min<std::uint32_t>(field.scale, sql_max_fraction_digits), false);
}

std::wstring date_type(const t_ftd& field, bool no_size) {
  const std::wstring def = field.def_value.to_wstring();
  LOG(1, "Got date def.value: '%s'", def);
  if (field.dw_reserved == date_default_now ||
      equals_any_no_case(def, {L"NOW()", L"sysdate", L"getdate()", L"getutcdate()", L"CURRENT_TIMESTAMP"})) {
    LOG(1, "Customize date type due to NOW() def.value");
    return name_of(sql_type_id::timestamp);
  }
  if (field.dw_reserved == date_default_date || tk_equal_no_case(def, L"date()")) {
    LOG(1, "Customize date type due to date() def.value");
    return name_of(sql_type_id::date);
  }
  switch (field.dw_reserved & date_kind_mask) {
    case date_kind_none:
      // A date of no stated kind becomes a nineteen-character text column on
      // purpose: "yyyy-mm-dd hh:mm:ss".
      return sized(sql_type_id::char_, 19, no_size);
    case 1:
      LOG(1, "MySQL ver >= 5.6.4, modern datetime can be used");
      return with_fraction(sql_type_id::datetime, field, no_size);
    case date_kind_date:
      LOG(1, "Got pure date");
      return name_of(sql_type_id::date);
    default:
      LOG(1, "MySQL ver >= 5.6.4, modern time can be used");
      return with_fraction(sql_type_id::time, field, no_size);
  }
}

std::wstring text_type(const t_ftd& field, bool no_size) {
  LOG(1, "process as text");
  if (is_geometry_text(field)) {
    LOG(1, "process VT_BSTR as geometry");
    return L"geometry";
  }
  if (field.dw_reserved == text_fixed) {
    LOG(1, "process VT_BSTR as fixed width CHAR");
    return sized(sql_type_id::char_, field.size, no_size);
  }
  if (field.size == 0 || field.size > sql_max_mediumtext_size) return name_of(sql_type_id::longtext);
  const bool is_medium = field.size > sql_max_varchar_size;
  std::wstring result = is_medium ? name_of(sql_type_id::mediumtext) : sized(sql_type_id::varchar, field.size, no_size);
  const char* what = is_medium ? "MEDIUMTEXT" : "VARCHAR";
  if (binary_text()) {
    LOG(1, "settings BINARY for %s", what);
    result += L" BINARY";
  } else {
    LOG(1, "case insensitive %s", what);
  }
  return result;
}

std::wstring decimal_type(const t_ftd& field, bool no_size) {
  LOG(1, "Scale/precision for decimal column: (%d, %d)", field.scale, field.prec);
  if (field.prec == 0) return name_of(sql_type_id::double_);
  if (no_size) return name_of(sql_type_id::decimal);
  return tk_wformat(L"%s(%d,%d)", name_of(sql_type_id::decimal), field.prec, field.scale);
}

std::wstring binary_type(const t_ftd& field, bool no_size) {
  LOG(1, "process as blob");
  if (field.size == 0 || field.size > sql_max_mediumblob_size) return name_of(sql_type_id::longblob);
  if (field.size > sql_max_blob_size) return name_of(sql_type_id::mediumblob);
  if (field.size > sql_max_varbinary_size) return name_of(sql_type_id::blob);
  return sized(sql_type_id::varbinary, field.size, no_size);
}

// Narrow ASCII copy of a number text; other characters become '?', which no
// number reader takes.
std::string ascii_of(std::wstring_view text) {
  std::string narrow(text.size(), '?');
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (static_cast<std::uint32_t>(text[i]) < 0x80) narrow[i] = static_cast<char>(text[i]);
  }
  return narrow;
}

bool is_integer_family(std::uint16_t type) {
  switch (type) {
    case vt::vt_i2:
    case vt::vt_i4:
    case vt::vt_bool:
    case vt::vt_i1:
    case vt::vt_ui1:
    case vt::vt_ui2:
    case vt::vt_ui4:
    case vt::vt_int:
    case vt::vt_uint:
      return true;
    default:
      return false;
  }
}

bool is_floating_family(std::uint16_t type) {
  return type == vt::vt_r4 || type == vt::vt_r8 || type == vt::vt_cy || type == vt::vt_decimal;
}

// A zero that is written as a zero: "0", or nothing but the characters of a
// number's form (e E - + . , and the digit 0).
bool is_zero_form(std::wstring_view text) {
  if (text == L"0") return true;
  return !text.empty() && text.find_first_not_of(L"eE-+.,0") == std::wstring_view::npos;
}

std::wstring integer_default(const std::wstring& def) {
  const std::int32_t value = ole_atoi(ascii_of(def));
  if (std::to_wstring(value) != def) return {};
  LOG(1, "Int/long default value is correct");
  return def;
}

std::wstring i8_default(const std::wstring& def) {
  const std::int64_t value = ole_atoi64(ascii_of(def));
  if (std::to_wstring(value) != def) return {};
  LOG(1, "__int64 default value is correct");
  return def;
}

std::wstring ui8_default(const std::wstring& def) {
  std::uint64_t value = 0;
  if (!ole_scan_u64(ascii_of(def), value)) return {};
  if (std::to_wstring(value) != def) return {};
  LOG(1, "unsigned __int64 default value is correct");
  return def;
}

std::wstring floating_default(const std::wstring& def) {
  const double value = ole_atof(ascii_of(def));
  // A NaN counts as not zero.
  if (!(value == 0.0)) return def;
  return is_zero_form(def) ? def : std::wstring();
}

std::wstring date_default(const t_ftd& field, const std::wstring& def) {
  LOG(1, "Got DATE def value");
  if (equals_any_no_case(def, {L"getdate()", L"sysdate()", L"sysdate"})) {
    LOG(1, "Special processing for getdate()");
    return L"CURRENT_TIMESTAMP";
  }
  ole_date date{std::wstring_view(def)};
  const std::uint32_t kind = field.dw_reserved & date_kind_mask;
  if (date.is_valid() && kind == date_kind_date) date.type = ole_date::type_date;
  if (date.is_valid() && kind == date_kind_time) date.type = ole_date::type_time;
  const std::wstring printed = date.to_wstring(true);
  LOG(1, "After canonization: %s", printed);
  if (printed.empty()) return {};
  // Double quotes here, unlike the single quotes of a text default.
  return L"\"" + printed + L"\"";
}

}  // namespace

const std::wstring& sql_type_name(int id) {
  const auto& names = type_names();
  const auto it = names.find(id);
  if (it != names.end()) return it->second;
  LOG(2, "Type %d wasn't found", id);
  static const std::wstring unknown = L"<Unknown type>";
  return unknown;
}

std::wstring get_sql_native_type2(const t_ftd& field, bool no_size) {
  LOG(1, "get_sql_native_type2: %s(%d,%d,%d)", field.name, field.vartype, field.size, field.dw_reserved);
  switch (field.vartype) {
    case vt::vt_i2:
      return name_of(sql_type_id::smallint);
    case vt::vt_i4:
    case vt::vt_int:
      return name_of(sql_type_id::int_);
    case vt::vt_r4:
      return name_of(sql_type_id::float_);
    case vt::vt_r8:
      return name_of(sql_type_id::double_);
    case vt::vt_cy:
      return no_size ? name_of(sql_type_id::decimal) : name_of(sql_type_id::decimal) + L"(19,4)";
    case vt::vt_date:
      return date_type(field, no_size);
    case vt::vt_bstr:
      return text_type(field, no_size);
    case vt::vt_bool:
      return name_of(sql_type_id::bit);
    case vt::vt_decimal:
      return decimal_type(field, no_size);
    case vt::vt_i1:
      return name_of(sql_type_id::tinyint);
    case vt::vt_ui1:
      return name_of(sql_type_id::tinyint_unsigned);
    case vt::vt_ui2:
      return name_of(sql_type_id::smallint_unsigned);
    case vt::vt_ui4:
    case vt::vt_uint:
      return name_of(sql_type_id::int_unsigned);
    case vt::vt_i8:
      return name_of(sql_type_id::bigint);
    case vt::vt_ui8:
      return name_of(sql_type_id::bigint_unsigned);
    case vt::vt_blob:
    case vt::vt_bytes:
      return binary_type(field, no_size);
    default:
      throw tk_mail_assertion("sql_util", __LINE__);
  }
}

std::wstring get_sql_native_type1(const sql_native_type& type) {
  LOG(1, "get_sql_native_type1");
  const std::wstring_view name = type.name;
  std::wstring buf;
  if (name.starts_with(L"VARCHAR") || name.starts_with(L"CHAR")) {
    buf = tk_wformat(L"%s(%d)", type.name, static_cast<std::uint32_t>(type.size));
  } else if (name.starts_with(L"VARBINARY") || name.starts_with(L"BINARY")) {
    // MySQL refuses a VARBINARY without a length, and reads a bare BINARY
    // as BINARY(1): the row's size goes behind the name. A row without a
    // size has no such length; it becomes the type of a binary column of
    // unknown size, which takes every value.
    if (type.size == 0) {
      LOG(2, "Binary type '%s' without a length; LONGBLOB takes its values", type.name);
      buf = name_of(sql_type_id::longblob);
    } else {
      buf = tk_wformat(L"%s(%d)", type.name, static_cast<std::uint32_t>(type.size));
    }
  } else if (name.starts_with(L"DECIMAL")) {
    buf = tk_wformat(L"%s(%d,%d)", type.name, type.precision, type.scale);
  } else {
    buf = type.name;
  }
  // The text was formatted into a buffer of 256 wide characters.
  if (buf.size() > 255) buf.resize(255);
  LOG(1, "buf=%s", buf);
  return buf;
}

std::uint16_t get_vartype(std::uint32_t mysql_type, std::uint32_t mysql_flags) {
  LOG(1, "get_vartype(%d,%d)", mysql_type, mysql_flags);
  const bool is_unsigned = (mysql_flags & UNSIGNED_FLAG) != 0;
  switch (mysql_type) {
    case MYSQL_TYPE_DECIMAL:
    case MYSQL_TYPE_NEWDECIMAL:
      return vt::vt_decimal;
    case MYSQL_TYPE_TINY:
      return is_unsigned ? vt::vt_ui1 : vt::vt_i1;
    case MYSQL_TYPE_SHORT:
      return is_unsigned ? vt::vt_ui2 : vt::vt_i2;
    case MYSQL_TYPE_LONG:
      return is_unsigned ? vt::vt_ui4 : vt::vt_i4;
    case MYSQL_TYPE_FLOAT:
      return vt::vt_r4;
    case MYSQL_TYPE_DOUBLE:
      return vt::vt_r8;
    case MYSQL_TYPE_TIMESTAMP:
    case MYSQL_TYPE_DATE:
    case MYSQL_TYPE_TIME:
    case MYSQL_TYPE_DATETIME:
      return vt::vt_date;
    case MYSQL_TYPE_LONGLONG:
      return is_unsigned ? vt::vt_ui8 : vt::vt_i8;
    case MYSQL_TYPE_INT24:
      return vt::vt_i4;
    case MYSQL_TYPE_YEAR:
      return vt::vt_ui2;
    case MYSQL_TYPE_BIT:
      return vt::vt_bool;
    case MYSQL_TYPE_TINY_BLOB:
    case MYSQL_TYPE_MEDIUM_BLOB:
    case MYSQL_TYPE_LONG_BLOB:
    case MYSQL_TYPE_BLOB:
      LOG(1, "Processing BLOB, blob_to_text=%d", blob_to_text() ? 1 : 0);
      return blob_to_text() ? vt::vt_bstr : vt::vt_bytes;
    case MYSQL_TYPE_VAR_STRING:
      return (mysql_flags & BINARY_FLAG) != 0 ? vt::vt_bytes : vt::vt_bstr;
    default:
      return vt::vt_bstr;
  }
}

std::wstring make_mysql_def_val(const t_ftd* field) {
  if (field == nullptr) throw tk_mail_assertion("sql_util", __LINE__);
  const std::wstring def = field->def_value.to_wstring();
  LOG(1, "make_mysql_def_val(%d,%s)", field->vartype, def);
  if (def == L"to_char(sysdate,'yyyy-mm-dd hh24:mi:ss')") {
    LOG(3, "Cannot set def.value as current timetsamp for varchar column");
    return {};
  }
  if (field->vartype == vt::vt_date) {
    if (field->dw_reserved == date_default_now) {
      LOG(1, "Got NOW() def.value");
      return L"CURRENT_TIMESTAMP";
    }
    if (field->dw_reserved == date_default_date) return L"CURRENT_DATE()";
    if (field->dw_reserved == date_default_time) return L"CURRENT_TIME()";
  }
  if (field->vartype == vt::vt_bstr && !def.empty()) {
    LOG(1, "Got BSTR def value: %s", def);
    return to_mysql_wstr(def, vt::vt_bstr);
  }
  if (def.empty()) {
    LOG(1, "Got empty def value");
    return {};
  }
  if (tk_equal_no_case(def, L"newid()")) {
    LOG(1, "newid() is not supported");
    return {};
  }
  if (is_integer_family(field->vartype)) return integer_default(def);
  if (field->vartype == vt::vt_i8) return i8_default(def);
  if (field->vartype == vt::vt_ui8) return ui8_default(def);
  if (is_floating_family(field->vartype)) return floating_default(def);
  if (field->vartype == vt::vt_date) return date_default(*field, def);
  return {};
}

}  // namespace qb
