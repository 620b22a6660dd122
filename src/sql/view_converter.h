// sql_view_converter: the text functions that turn the body of a SQL Server
// view into the body of a MySQL view, shared by the server destination
// (sql_database) and the dump destination (dmp_database).
//
// The translation is deliberately textual. Nothing here parses SQL: every
// rule is a search and replace with no idea of tokens, comments or string
// literals, and its exact trigger and order decide what comes out. A result
// that MySQL does not accept is refused there, one view at a time, and the
// caller reports it; no function here fails.
//
// The text has already been cleaned on the source side (see
// mss/view_cleaner.h): it begins with "select", and the brackets, TOP 100
// PERCENT, NOLOCK hints and "dbo." owners are gone. refine_view_in then:
//   1. compresses runs of blanks and line breaks outside quotes to one blank;
//   2. writes the generated names of renamed tables and columns into the text
//      (udb_names_map::do_global_replace1, quoted with the target's quotes);
//   3. turns every [ and ] into the target's quotes, inside literals too;
//   4. rewrites functions, each word searched without regard to case and
//      replaced by the text in the case written here:
//        isnull     -> ifnull    when the call has exactly one comma
//        getdate    -> curdate   (the time part of the value is lost)
//        time       -> curtime   anywhere, also inside longer words
//        len(       -> length(
//        datediff(  loses its first argument (the unit) up to the comma
//        dateadd    -> date_add  when the call has exactly one comma
//        replicate  -> repeat    when the call has exactly one comma
//      After each hit the search goes on at the hit plus the length of the
//      searched word (not of the replacement), so text that the same rule
//      just wrote is not searched again, and what follows a shortened word
//      may be passed over;
//   5. appends ";".
// DATEDIFF's result then counts days whatever the unit was, with MySQL's
// sign (first date minus second), the opposite of SQL Server's. GETDATE
// gives today's date without the time. Both are the intended translation.
//
// refine_view_out takes the decoration off a view definition that MySQL
// reports in information_schema.views.
//
// Searches ignore case by comparing each character folded to lower case.
//
// Thread-safety: all functions are reentrant; they only log.
#pragma once

#include <string>
#include <string_view>

#include "udb/names_map.h"

namespace qb {

// Which destination runs the translation; it names the entry line of the
// log ("sql_database::refine_view_in(%s)" or "dmp_database::refine_view_in(%s)").
enum class sql_view_destination { server, dump };

class sql_view_converter {
 public:
  // The target's quote strings of the name rewrite and of the bracket rule.
  static constexpr std::wstring_view backtick = L"`";

  // The whole rewrite of a view body for the destination: the steps above,
  // in order, with names from names. The result ends in ";" (in two when the
  // text ended in one already). left and right are the target's quotes: the
  // left one replaces "[", the right one "]", and both quote the generated
  // names; MySQL's is the back quote on both sides.
  [[nodiscard]] static std::wstring refine_view_in(sql_view_destination destination, const std::wstring& text,
                                                   const udb_names_map& names, std::wstring_view left = backtick,
                                                   std::wstring_view right = backtick);

  // Outside single and double quotes, each run of CR, LF, tab and blank
  // becomes one blank (a run at the very start too). Inside quotes every
  // character is copied. A quote of one kind inside a literal of the other
  // kind does not count.
  [[nodiscard]] static std::wstring compress_blanks(const std::wstring& text);

  // The test behind the isnull, dateadd and replicate rules, for the word
  // found at pos: walking from pos + 6 (the length of "isnull", whatever the
  // word), counting "(" and ")" and every comma at any depth, up to the ")"
  // that closes the first depth or the end of the text; true when exactly one
  // comma was seen. Quotes are not looked at. False when pos is -1 or pos or
  // pos + 6 is outside the text. Logs
  // "sql_view_converter::check_isnull_for_replace(%s,%d)" at level 1.
  [[nodiscard]] static bool check_isnull_for_replace(const std::wstring& text, int pos);

  // A view definition as MySQL reports it, made fit to be written again:
  // the first comment /* ... */ goes (only the first), then every
  // "`database`." qualifier, found without regard to case. Logs
  // "sql_database::refine_view_out(%s)" at level 2 and
  // "Remove template found at pos=%d" at level 1 for each qualifier.
  [[nodiscard]] static std::wstring refine_view_out(const std::wstring& text, const std::wstring& database);

  // True when the first six characters of text are "select" in any case: the
  // only texts the destinations translate ("Skip non-select query" for the
  // rest). A text that begins with a blank or a comment is not one.
  [[nodiscard]] static bool is_select_text(std::wstring_view text);

  // "CREATE OR REPLACE VIEW " + quoted_name + " AS " + refined. The refined
  // text carries its own ";".
  [[nodiscard]] static std::wstring create_view_statement(std::wstring_view quoted_name, std::wstring_view refined);

  // Position of the first occurrence of word in text at or after from,
  // without regard to case; npos when there is none (also when from is past
  // the end or the text is shorter than the word).
  [[nodiscard]] static std::size_t find_no_case(std::wstring_view text, std::wstring_view word, std::size_t from);
};

}  // namespace qb
