#include "sql/mutator.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <vector>

#include "ole/variant.h"
#include "tk/log.h"
#include "tk/strings.h"

namespace qb {
namespace {

using vt = ole_variant;

struct type_tags {
  std::uint16_t plain;
  std::uint16_t unsigned_;
};

// The first word of a MySQL type name and the value tag that get_vartype
// gives for the field type the server reports for such a column. The client
// library reports TEXT columns as BLOB types; the name tells them apart,
// so the TEXT family is text (8) and the BLOB family a byte array (8209).
const std::map<std::wstring, type_tags>& tags_by_name() {
  static const std::map<std::wstring, type_tags> tags = {
      {L"BIT", {vt::vt_bool, vt::vt_bool}},
      {L"BOOL", {vt::vt_i1, vt::vt_i1}},
      {L"BOOLEAN", {vt::vt_i1, vt::vt_i1}},
      {L"TINYINT", {vt::vt_i1, vt::vt_ui1}},
      {L"SMALLINT", {vt::vt_i2, vt::vt_ui2}},
      {L"MEDIUMINT", {vt::vt_i4, vt::vt_i4}},
      {L"INT", {vt::vt_i4, vt::vt_ui4}},
      {L"INTEGER", {vt::vt_i4, vt::vt_ui4}},
      {L"BIGINT", {vt::vt_i8, vt::vt_ui8}},
      {L"FLOAT", {vt::vt_r4, vt::vt_r4}},
      {L"DOUBLE", {vt::vt_r8, vt::vt_r8}},
      {L"REAL", {vt::vt_r8, vt::vt_r8}},
      {L"DECIMAL", {vt::vt_decimal, vt::vt_decimal}},
      {L"DEC", {vt::vt_decimal, vt::vt_decimal}},
      {L"NUMERIC", {vt::vt_decimal, vt::vt_decimal}},
      {L"FIXED", {vt::vt_decimal, vt::vt_decimal}},
      {L"DATE", {vt::vt_date, vt::vt_date}},
      {L"TIME", {vt::vt_date, vt::vt_date}},
      {L"DATETIME", {vt::vt_date, vt::vt_date}},
      {L"TIMESTAMP", {vt::vt_date, vt::vt_date}},
      {L"YEAR", {vt::vt_ui2, vt::vt_ui2}},
      {L"CHAR", {vt::vt_bstr, vt::vt_bstr}},
      {L"VARCHAR", {vt::vt_bstr, vt::vt_bstr}},
      {L"TINYTEXT", {vt::vt_bstr, vt::vt_bstr}},
      {L"TEXT", {vt::vt_bstr, vt::vt_bstr}},
      {L"MEDIUMTEXT", {vt::vt_bstr, vt::vt_bstr}},
      {L"LONGTEXT", {vt::vt_bstr, vt::vt_bstr}},
      {L"ENUM", {vt::vt_bstr, vt::vt_bstr}},
      {L"SET", {vt::vt_bstr, vt::vt_bstr}},
      {L"JSON", {vt::vt_bstr, vt::vt_bstr}},
      {L"GEOMETRY", {vt::vt_bstr, vt::vt_bstr}},
      {L"BINARY", {vt::vt_bytes, vt::vt_bytes}},
      {L"VARBINARY", {vt::vt_bytes, vt::vt_bytes}},
      {L"TINYBLOB", {vt::vt_bytes, vt::vt_bytes}},
      {L"BLOB", {vt::vt_bytes, vt::vt_bytes}},
      {L"MEDIUMBLOB", {vt::vt_bytes, vt::vt_bytes}},
      {L"LONGBLOB", {vt::vt_bytes, vt::vt_bytes}},
  };
  return tags;
}

// The words of a type name in upper case, without a size in parentheses.
std::vector<std::wstring> type_words(const std::wstring& name) {
  std::wstring text;
  int depth = 0;
  for (const wchar_t c : name) {
    if (c == L'(') ++depth;
    if (depth == 0) text.push_back(c == L'\t' ? L' ' : tk_to_upper(c));
    if (c == L')' && depth > 0) --depth;
  }
  std::vector<std::wstring> words;
  std::vector<std::wstring> pieces;
  tk_wstring::split(text, L' ', pieces);
  for (std::wstring& piece : pieces) {
    if (!piece.empty()) words.push_back(std::move(piece));
  }
  return words;
}

}  // namespace

std::uint16_t sql_vartype_of_type_name(const std::wstring& name) {
  std::uint16_t tag = udb_keep_vartype;
  const std::vector<std::wstring> words = type_words(name);
  if (!words.empty()) {
    const auto it = tags_by_name().find(words.front());
    if (it != tags_by_name().end()) {
      const bool is_unsigned = std::find(words.begin() + 1, words.end(), L"UNSIGNED") != words.end();
      tag = is_unsigned ? it->second.unsigned_ : it->second.plain;
    }
  }
  LOG(1, "sql_vartype_of_type_name(%s)=%d", name, tag);
  return tag;
}

void sql_describe_column(t_ftd& column, sql_native_type& out) {
  out = sql_native_type{};
  out.name = get_sql_native_type2(column, true);
  out.size = column.size;
  out.default_value = make_mysql_def_val(column);
  if (column.vartype == vt::vt_decimal) {
    out.precision = column.prec;
    out.scale = column.scale;
  } else if (column.vartype == vt::vt_cy) {
    // Money is DECIMAL(19,4) whatever the column says.
    out.precision = 19;
    out.scale = 4;
  } else if (column.vartype == vt::vt_date && out.name == sql_type_name(sql_type_id::char_)) {
    // A date of no stated kind is the text of a date and time.
    out.size = 19;
  }
  column.native_type = get_sql_native_type1(out);
}

}  // namespace qb
