// sql_fk_parser: the foreign keys of an existing table, read from the text
// of SHOW CREATE TABLE.
//
// The text is split at line feeds; each line that holds "CONSTRAINT " and
// " FOREIGN KEY" and "REFERENCES " is one key:
//
//   CONSTRAINT `fk_name` FOREIGN KEY (`a`, `b`) REFERENCES `parent` (`x`, `y`) ON DELETE CASCADE,
//
// gives the name, the child columns, the parent table and columns, and the
// rule behind the parent's column list ("ON DELETE CASCADE"), as it stands. A
// line that lacks one of the keywords (a column, an index, a CHECK) is passed
// over with a log line.
//
// Ownership: values. Thread-safety: none.
#pragma once

#include <string>
#include <vector>

#include "udb/relationships.h"

namespace qb {

class sql_fk_parser {
 public:
  // The table whose SHOW CREATE TABLE text this is. Logs
  // "sql_fk_parser::ctor(%s)".
  sql_fk_parser(std::wstring table, const std::wstring& create_text);

  // Reads every key of the text into relationships() (the child table is
  // this table). Logs "sql_fk_parser::do_parse" and "Got %d chunks".
  void do_parse();

  // The names of a parenthesised, comma-separated list of back-quoted names:
  // "(`a`, `b`)" gives a and b. Logs "GOT FK COLUMN: %s" for each.
  static std::vector<std::wstring> get_columns(const std::wstring& text);

  [[nodiscard]] const udb_relationships& relationships() const { return relationships_; }
  [[nodiscard]] const std::vector<std::wstring>& chunks() const { return chunks_; }

 private:
  void parse_chunk(const std::wstring& chunk);

  std::wstring table_;
  std::vector<std::wstring> chunks_;
  udb_relationships relationships_;
};

}  // namespace qb
