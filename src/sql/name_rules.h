// The rules a MySQL server puts on the names of databases, tables, views,
// columns and indexes.
//
// Two families, chosen by the server's version code:
//   new (4.1.0 and later): almost any name between back quotes; at most 64
//     characters, no blank at either end, none of a few characters (fourteen
//     for databases, tables and views, the first eight of them for columns
//     and indexes);
//   old (before 4.1.0): plain identifiers only: letters and digits of any
//     script, "_" and "$"; not only digits; none of 167 reserved words; a
//     database name may not start with a digit either.
//
// sql_name_rules holds one family's rules for one kind of name. The model's
// name validators (udb_validator with the sql_new_* and sql_old_* rule sets)
// take the lists from here (illegal_chars, restricted_words) and call the
// family's own test (check_form) and repair (repair); the base validator adds
// the length and list tests and makes names unique. accepts() runs the whole
// test of one name in the validator's order for a caller that has no list of
// taken names, such as the check of a destination database name.
//
// Thread-safety: the functions are reentrant; the objects are immutable.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace qb {

enum class sql_name_family : std::uint8_t { old_style, new_style };
enum class sql_name_kind : std::uint8_t { database, table, field, index };  // a view is a table

// The longest name, in characters, of both families.
inline constexpr std::size_t sql_name_max_len = 64;

// new_style from version code 0x040100 (4.1.0) on, old_style below.
sql_name_family sql_name_family_for(std::uint32_t version_code);

// The 167 reserved words of servers before 4.1, lower case, in stored order.
std::span<const std::wstring_view> sql_old_reserved_words();
// True when name is one of them, compared ignoring case.
bool sql_is_old_reserved_word(std::wstring_view name);

// Characters the new family refuses: all fourteen of "`\"'^*\\;+|:<>?/" in a
// database, table or view name, the first eight (back quote to plus) in a
// column or index name.
std::wstring_view sql_new_illegal_chars(sql_name_kind kind);

// A character an old-family name may hold: a letter or digit of any script
// (by the locale-aware test), "_" or "$".
bool sql_old_is_name_char(wchar_t c);
// True when every character is one of the digits 0 to 9 (false for "").
bool sql_is_all_digits(std::wstring_view name);

class sql_name_rules {
 public:
  sql_name_rules(sql_name_family family, sql_name_kind kind);

  [[nodiscard]] sql_name_family family() const { return family_; }
  [[nodiscard]] sql_name_kind kind() const { return kind_; }
  [[nodiscard]] std::size_t max_len() const { return sql_name_max_len; }
  // The characters the name may not hold (none for the old family, whose
  // test lets through only name characters).
  [[nodiscard]] std::wstring_view illegal_chars() const;
  // The names refused outright (the reserved words for the old family, none
  // for the new).
  [[nodiscard]] std::span<const std::wstring_view> restricted_words() const;

  // The family's own test. New: 1 to 64 characters ("Invalid length"), no
  // blank at either end ("ID cannot starts or ends with ' '"). Old: name
  // characters only ("Name contains invalid symbol: '%c'"), not digits only
  // ("Name consists of digits only"); for a database also not empty and not
  // starting with a digit. Logs why a name fails.
  [[nodiscard]] bool check_form(std::wstring_view name) const;
  // The family's repair, which the base validator's repair follows. New:
  // blanks trimmed at both ends. Old: every character that is not a name
  // character becomes "_", and a name of digits only gets "_" for its first
  // digit.
  [[nodiscard]] std::wstring repair(std::wstring_view name) const;
  // Every illegal character replaced by "_" (the base validator's second
  // repair step).
  [[nodiscard]] std::wstring replace_illegal(std::wstring_view name) const;

  // The whole test of one name, as a validator with no taken names runs it:
  // new: check_form, then length, restricted words, illegal characters;
  // old: length, restricted words, illegal characters, then check_form.
  // Logs why a name fails.
  [[nodiscard]] bool accepts(std::wstring_view name) const;

 private:
  [[nodiscard]] bool check_new_form(std::wstring_view name) const;
  [[nodiscard]] bool check_old_form(std::wstring_view name) const;
  [[nodiscard]] bool passes_lists(std::wstring_view name) const;

  sql_name_family family_;
  sql_name_kind kind_;
};

}  // namespace qb
