#include "sql/name_rules.h"

#include <algorithm>

#include "tk/log.h"
#include "tk/strings.h"

namespace qb {

namespace {

constexpr std::wstring_view reserved_words[] = {
    L"add", L"all", L"alter", L"and", L"as", L"asc", L"between", L"bigint", L"binary", L"blob",
    L"both", L"by", L"cascade", L"case", L"char", L"character", L"change", L"column", L"columns",
    L"constraint", L"create", L"cross", L"current_date", L"current_time", L"current_timestamp",
    L"database", L"databases", L"day_hour", L"day_minute", L"day_second", L"dec", L"decimal",
    L"default", L"delayed", L"delete", L"desc", L"describe", L"distinct", L"distinctrow", L"double",
    L"drop", L"else", L"escaped", L"enclosed", L"explain", L"exists", L"fields", L"float", L"float4",
    L"float8", L"foreign", L"from", L"for", L"grant", L"group", L"having", L"high_priority",
    L"hour_minute", L"hour_second", L"ignore", L"in", L"index", L"infile", L"inner", L"insert",
    L"insert_id", L"int", L"int1", L"int2", L"int3", L"int4", L"int8", L"integer", L"interval",
    L"into", L"if", L"is", L"join", L"key", L"keys", L"kill", L"last_insert_id", L"leading", L"left",
    L"like", L"lines", L"limit", L"load", L"lock", L"long", L"longblob", L"longtext", L"low_priority",
    L"match", L"mediumblob", L"mediumtext", L"mediumint", L"middleint", L"minute_second", L"natural",
    L"numeric", L"not", L"null", L"on", L"optimize", L"option", L"optionally", L"or", L"order",
    L"outer", L"outfile", L"partial", L"precision", L"primary", L"procedure", L"privileges", L"read",
    L"real", L"regexp", L"rename", L"replace", L"restrict", L"returns", L"revoke", L"rlike", L"select",
    L"set", L"show", L"smallint", L"soname", L"sql_big_tables", L"sql_big_selects",
    L"sql_low_priority_updates", L"sql_log_off", L"sql_log_update", L"sql_select_limit",
    L"sql_small_result", L"sql_big_result", L"sql_warnings", L"straight_join", L"starting", L"table",
    L"tables", L"terminated", L"then", L"tinyblob", L"tinytext", L"tinyint", L"trailing", L"to",
    L"usage", L"use", L"using", L"unique", L"unlock", L"unsigned", L"update", L"values", L"varchar",
    L"varying", L"varbinary", L"with", L"write", L"when", L"where", L"year_month", L"zerofill",
};

// Back quote, double quote, single quote, caret, asterisk, backslash,
// semicolon, plus | bar, colon, less, greater, question mark, slash.
constexpr std::wstring_view new_illegal_all = L"`\"'^*\\;+|:<>?/";
constexpr std::size_t new_illegal_field_count = 8;

bool is_digit(wchar_t c) { return c >= L'0' && c <= L'9'; }

}  // namespace

sql_name_family sql_name_family_for(std::uint32_t version_code) {
  return version_code < 0x040100 ? sql_name_family::old_style : sql_name_family::new_style;
}

std::span<const std::wstring_view> sql_old_reserved_words() { return reserved_words; }

bool sql_is_old_reserved_word(std::wstring_view name) {
  return std::any_of(std::begin(reserved_words), std::end(reserved_words),
                     [name](std::wstring_view word) { return tk_equal_no_case(name, word); });
}

std::wstring_view sql_new_illegal_chars(sql_name_kind kind) {
  if (kind == sql_name_kind::field || kind == sql_name_kind::index) {
    return new_illegal_all.substr(0, new_illegal_field_count);
  }
  return new_illegal_all;
}

bool sql_old_is_name_char(wchar_t c) { return c == L'_' || c == L'$' || tk_is_alnum(c); }

bool sql_is_all_digits(std::wstring_view name) {
  return !name.empty() && std::all_of(name.begin(), name.end(), is_digit);
}

sql_name_rules::sql_name_rules(sql_name_family family, sql_name_kind kind) : family_(family), kind_(kind) {}

std::wstring_view sql_name_rules::illegal_chars() const {
  return family_ == sql_name_family::new_style ? sql_new_illegal_chars(kind_) : std::wstring_view();
}

std::span<const std::wstring_view> sql_name_rules::restricted_words() const {
  if (family_ == sql_name_family::old_style) return reserved_words;
  return {};
}

bool sql_name_rules::check_form(std::wstring_view name) const {
  return family_ == sql_name_family::new_style ? check_new_form(name) : check_old_form(name);
}

bool sql_name_rules::check_new_form(std::wstring_view name) const {
  if (name.empty() || name.size() > sql_name_max_len) {
    LOG(2, "Invalid length");
    return false;
  }
  if (name.front() == L' ' || name.back() == L' ') {
    LOG(2, "ID cannot starts or ends with ' '");
    return false;
  }
  return true;
}

bool sql_name_rules::check_old_form(std::wstring_view name) const {
  if (kind_ == sql_name_kind::database && name.empty()) return false;
  for (wchar_t c : name) {
    if (!sql_old_is_name_char(c)) {
      LOG(2, "Name contains invalid symbol: '%c'", c);
      return false;
    }
  }
  if (std::all_of(name.begin(), name.end(), is_digit)) {
    LOG(2, "Name consists of digits only");
    return false;
  }
  // A database name is also a directory name, which an old server would not
  // take with a leading digit.
  if (kind_ == sql_name_kind::database && is_digit(name.front())) return false;
  return true;
}

std::wstring sql_name_rules::repair(std::wstring_view name) const {
  if (family_ == sql_name_family::new_style) return tk_trim(name);
  std::wstring safe(name);
  for (wchar_t& c : safe) {
    if (!sql_old_is_name_char(c)) c = L'_';
  }
  if (sql_is_all_digits(safe)) safe.front() = L'_';
  return safe;
}

std::wstring sql_name_rules::replace_illegal(std::wstring_view name) const {
  const std::wstring_view illegal = illegal_chars();
  std::wstring safe(name);
  for (wchar_t& c : safe) {
    if (illegal.find(c) != std::wstring_view::npos) c = L'_';
  }
  return safe;
}

bool sql_name_rules::passes_lists(std::wstring_view name) const {
  if (name.size() > sql_name_max_len) {
    LOG(2, "The name is too long");
    return false;
  }
  for (std::wstring_view word : restricted_words()) {
    if (tk_equal_no_case(name, word)) {
      LOG(2, "The name is restricted");
      return false;
    }
  }
  const std::wstring_view illegal = illegal_chars();
  for (wchar_t c : name) {
    if (illegal.find(c) != std::wstring_view::npos) {
      LOG(2, "The name contains illegal: %c", c);
      return false;
    }
  }
  return true;
}

bool sql_name_rules::accepts(std::wstring_view name) const {
  if (family_ == sql_name_family::new_style) return check_new_form(name) && passes_lists(name);
  return passes_lists(name) && check_old_form(name);
}

}  // namespace qb
