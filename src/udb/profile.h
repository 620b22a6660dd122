// udb_profile: the saved choices of a wizard pass, as the ".qbr" profile file
// holds them (doc/profile-format.md).
//
// The object is a plain in-memory copy of the file: for each section, the
// (key, value) pairs in file order, and apart from them the lines that had no
// "=". The converter fills it and stores it (the finish page), or loads it and
// reads its fields from it (the quick launch). It knows nothing of the
// converter's fields; the small reading helpers below carry the rules by which
// the converter turns texts into flags and numbers.
//
// Ownership: a value type; a profile is a temporary of the code that loads or
// stores it.
// Thread-safety: one thread at a time (the wizard thread).
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qb {

// The sections the converter reads and writes.
inline constexpr wchar_t udb_profile_available_queries[] = L"Available Queries";
inline constexpr wchar_t udb_profile_selected_tables[] = L"Selected Tables";
inline constexpr wchar_t udb_profile_selected_views[] = L"Selected Views";
inline constexpr wchar_t udb_profile_generic_settings[] = L"Generic settings";
inline constexpr wchar_t udb_profile_mss_settings[] = L"MS SQL Server settings";
inline constexpr wchar_t udb_profile_mysql_settings[] = L"MySQL settings";
inline constexpr wchar_t udb_profile_type_mappings[] = L"Type Mappings";

class udb_profile {
 public:
  using t_pair = std::pair<std::wstring, std::wstring>;

  // The longest line, in bytes of UTF-8 without the line end, that a profile
  // may hold; a longer line fails the load, and store refuses to write one.
  static constexpr std::size_t max_line_bytes = 4095;

  // Every line of every section, in file order: "key=value" as (key, value),
  // a line without "=" as (text, ""). Sections order by wide-character value.
  std::map<std::wstring, std::vector<t_pair>> sections;
  // For each section, the lines that have no "=".
  std::map<std::wstring, std::vector<std::wstring>> lists;

  // The value of the first pair of the section whose key is `key` (both
  // compared exactly), or an empty text when the section or the key is
  // absent. An absent key and an empty value are the same to a reader.
  [[nodiscard]] std::wstring get_value(std::wstring_view section, std::wstring_view key) const;
  // The lines without "=" of the section; empty when it has none.
  [[nodiscard]] const std::vector<std::wstring>& get_lines(std::wstring_view section) const;

  // Appends a pair to the section (creating it); an earlier pair of the same
  // key stays and is the one get_value finds.
  void set_value(const std::wstring& section, const std::wstring& key, const std::wstring& value);
  // Writes a flag as "0" or "1".
  void set_flag(const std::wstring& section, const std::wstring& key, bool value);
  // Appends a line to the section's entry in `lists` (creating it).
  void add_line(const std::wstring& section, const std::wstring& text);

  // Reads the file at `path` (a narrow path of the file system) in place of
  // what the object held. Logs "udb_profile::load(%s)". Returns true; every
  // failure throws, and leaves the object as it was:
  //   - a missing file: tk_exception_ex "Profile does not exist. Please
  //     verify the correct path/name was given.";
  //   - a file that cannot be opened or read: tk_exception_ex with the
  //     system's text for the error;
  //   - a line of more than max_line_bytes bytes, or a line that is not
  //     UTF-8: tk_exception (level 1) naming the file and the line number.
  bool load(const std::string& path);

  // Writes the profile to `path`, replacing the file as a whole (it is
  // written beside it under a temporary name and renamed into place) with
  // mode 0600, since a profile may hold passwords. Logs "udb_profile::store)".
  // Returns true; every failure throws, and leaves the file at `path` as it
  // was:
  //   - an entry that would not read back as it is (a text holding a line
  //     break, a key holding "=", a line that reads as a section header or
  //     as an empty line, a line over max_line_bytes, a character that UTF-8
  //     cannot carry): tk_exception (level 1) naming the section and entry;
  //   - a failure to write (a full disk, a missing folder): tk_exception_ex
  //     with the system's text for the error.
  bool store(const std::string& path) const;

  // --- Reading helpers of the converter ----------------------------------------
  // Each takes the value of (section, key); an empty or absent value leaves
  // the field as it stands.

  // "0" is the only false: any other non-empty value means true.
  void get_flag_zero_false(std::wstring_view section, std::wstring_view key, std::uint8_t& field) const;
  void get_flag_zero_false(std::wstring_view section, std::wstring_view key, bool& field) const;
  // "1" is the only true: any other non-empty value means false.
  void get_flag_one_true(std::wstring_view section, std::wstring_view key, std::uint8_t& field) const;
  void get_flag_one_true(std::wstring_view section, std::wstring_view key, bool& field) const;
  // A value of exactly one character gives that character's code minus 48,
  // with no range check ("9" gives 9, "a" gives 49); any other length leaves
  // the field.
  void get_mode(std::wstring_view section, std::wstring_view key, std::uint32_t& mode) const;

  // The same rules on a value.
  static void read_flag_zero_false(std::wstring_view value, std::uint8_t& field);
  static void read_flag_one_true(std::wstring_view value, std::uint8_t& field);
  static void read_mode(std::wstring_view value, std::uint32_t& mode);

  // A query text made fit for one line: each CR LF, then each LF, then each
  // CR becomes a single blank.
  static std::wstring to_single_line(std::wstring_view text);
};

}  // namespace qb
