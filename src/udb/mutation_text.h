// udb_mutation_text: the user's changes to tables as the section
// "Type Mappings" of a profile holds them, read into (or written from) a
// plain tree of texts and numbers.
//
// The text is a list of lines whose indentation carries the tree:
//
//   database:
//     key: value                    a property of the database
//   tables:
//     - name: [dbo].[orders]        a table, by its source name
//       new_name: orders
//       fields:
//         - name:price              a column, by its source name (no blank)
//           new_name: price
//           status: changed         or "deleted"
//           type: DECIMAL
//           default_value: 0
//           character_set: utf8
//           length: 0
//           scale: 2
//           precision: 12
//       properties:
//           key: value              a property of the table
//
// parse reads such lines as a profile hands them over (leading blanks kept,
// trailing blanks gone, so "default_value: " arrives as "default_value:" and
// reads as the empty value). Its rules:
//   - the first line must be "database:"; an empty text or any other first
//     line gives an empty tree (no changes), which is not a failure;
//   - up to "tables:", lines beginning with two blanks are "key: value"
//     properties of the database, split at ":"; a line that does not split
//     into exactly two parts is skipped;
//   - "  - name:" opens a table (logged "Processing '%s'"); within a table
//     the blocks "    new_name:" (logged "tm_new_table_name=%s"),
//     "    fields:" and "    properties:" may come in any order;
//   - in "fields", "      - name:" opens a column, followed by its
//     attributes in the fixed order new_name, status, type, default_value,
//     character_set, length, scale, precision; one that is absent keeps its
//     default, one out of order is skipped; after "status: deleted" the rest
//     of the column's block is not read;
//   - in "properties", eight-blank "key: value" lines, split at ":";
//   - a table or column named twice is one entry, the later lines winning;
//   - every line that fits nothing expected at its place is logged as
//     "Skipping %s" at level 3 and has no effect. Nothing here throws.
// lines writes the tree back in that form, in map order at each level.
//
// Ownership: a value type.
// Thread-safety: none; the wizard's thread.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace qb {

class udb_profile;

struct udb_field_mutation {
  std::wstring new_name;
  bool deleted = false;
  std::wstring type;
  std::wstring default_value;
  std::wstring character_set;
  std::uint64_t length = 0;
  std::uint32_t scale = 0;
  std::uint32_t precision = 0;

  friend bool operator==(const udb_field_mutation&, const udb_field_mutation&) = default;
};

struct udb_table_mutation {
  std::wstring new_name;
  // By source column name, ordered by wide-character value.
  std::map<std::wstring, udb_field_mutation> fields;
  std::map<std::wstring, std::wstring> properties;

  friend bool operator==(const udb_table_mutation&, const udb_table_mutation&) = default;
};

struct udb_mutation_text {
  std::map<std::wstring, std::wstring> properties;
  // By source table name, ordered by wide-character value.
  std::map<std::wstring, udb_table_mutation> tables;

  // The lines of section "Type Mappings" of a profile, in file order. A
  // loaded profile keeps a line that holds "=" only among its pairs; it is
  // put together again, so that such a line is read like any other.
  static std::vector<std::wstring> section_lines(const udb_profile& profile);
  // Reads the lines of section "Type Mappings" by the rules above.
  static udb_mutation_text parse(const std::vector<std::wstring>& lines);
  // The lines of the tree; "database:" and "tables:" even when it is empty.
  [[nodiscard]] std::vector<std::wstring> lines() const;

  friend bool operator==(const udb_mutation_text&, const udb_mutation_text&) = default;
};

}  // namespace qb
