// Values as MySQL statements spell them, and MySQL result cells as values.
//
// The server target and the dump target render every cell of every row
// through append_fld_str, so that both write the same literal for the same
// value. Rendering is the hot path of a conversion: the appenders write
// straight into the caller's UTF-8 buffer, escaping text in one pass, with no
// text made per cell. The functions that return a string are the same rules
// for callers that want one literal (defaults, keys, tests).
//
// Text literals. A text goes between single quotes. A backslash and a single
// quote get a backslash in front. A NUL becomes \0 and a carriage return \r:
// the mysql command-line client refuses a raw NUL in its input and drops a
// carriage return that stands before a line feed, so a dump replayed through
// it would lose them. Every other character, line feeds and double quotes
// included, is written as it is, in UTF-8.
//
// Data values and SQL text differ in one rule. The text of a data value is
// escaped completely: every quote gets its backslash, so a value "it''s"
// arrives as "it''s" and a value "''" as two quotes. Text that arrives from
// the source as SQL (a default value, read by to_mysql_str and
// to_mysql_wstr) keeps a pair of single quotes as it stands, since there it
// is the SQL way of writing one quote, and a text that is exactly such a
// pair is the empty text. (The rule once applied to data values too, which
// changed every value holding two quotes in a row; it now holds for SQL text
// alone.)
//
// Numbers print their value; a FLOAT or DOUBLE value the shortest text that
// reads back to the same float or double.
//
// Thread-safety: reentrant. Some decisions read switches of the sql_engine
// singleton (blob_to_text), without locks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "ole/variant.h"
#include "udb/record.h"
#include "udb/schema.h"

namespace qb {

// A value longer than this (in bytes, or characters for text) does not go
// into a statement's text on the server path: it is bound as long data. The
// dump streams it into the file instead.
inline constexpr std::uint32_t sql_max_field_size = 1048576;

// What the rendering of one cell noticed, for a caller that wants to know.
struct sql_render_note {
  // The text held a character beyond U+FFFF, which MySQL's "utf8" (three
  // bytes a character at most) cannot store.
  bool beyond_bmp = false;
};

// --- Escaping ---------------------------------------------------------------------
// The escaped text of a data value without the enclosing quotes, appended as
// UTF-8.
void sql_append_escaped(std::string& out, std::wstring_view text, sql_render_note* note = nullptr);
// A data value's text as a quoted literal, as UTF-8.
void sql_append_quoted(std::string& out, std::wstring_view text, sql_render_note* note = nullptr);
// SQL text from the source as a quoted literal (the pair rule above), as
// UTF-8.
void sql_append_sql_text_quoted(std::string& out, std::wstring_view text);

// --- Literals from text -------------------------------------------------------------
// The literal of SQL text (a default value) given as UTF-8 and its value tag:
//   tag below 2: NULL; empty text: ''; tag 7: the text read as a date and
//   printed in MySQL's form; tags 7 and 8: a quoted text (a GUID text of tag
//   8 too); binary tags (65, 70, 8209): a text "0x" followed by hexadecimal
//   digits stands as it is, any other is quoted; numbers: the text as it is.
std::string to_mysql_str(std::string_view text, std::uint16_t vartype);
// The same rules on wide text (for DDL: default values).
std::wstring to_mysql_wstr(std::wstring_view text, std::uint16_t vartype);

// --- Literals from values -----------------------------------------------------------
// The literal of a field's own value: a byte array as "0x" and two
// upper-case hexadecimal digits a byte, a byte array of no bytes (a stored
// zero-length binary, ole_variant::make_empty_bytes) as the empty literal '';
// anything else its text rendered by the rules above with the value's own
// tag (an empty value, which is also what a vector of no bytes makes, is
// NULL). A null field is an internal error.
std::string to_mysql_str(const udb_field* field);
void append_mysql_str(std::string& out, const udb_field& field);

// The literal of one cell of a row statement, for a column of descriptor
// column:
//  - prepared, and a value longer than sql_max_field_size: "?";
//  - a text column: the value's text, quoted (a GUID stays a GUID text); a
//    geometry column (dw_reserved 2 or 8) wraps it in ST_GeomFromText('...');
//  - a numeric column never gets a quoted text: a value of another kind is
//    written as its text;
//  - an empty or null value: NULL in a nullable column; in a not-null column
//    the column's default, or 0 for a value of a numeric tag; text and binary
//    columns keep what rendering made ('' for an empty text, NULL for a null);
//  - a date of no stated kind (a CHAR(19) column) without the fraction of a
//    second, which the nineteen characters cannot hold.
// Null pointers are an internal error.
std::string get_fld_append_str(const udb_field* field, const t_ftd* column, bool prepared);
void append_fld_str(std::string& out, const udb_field& field, const t_ftd& column, bool prepared,
                    sql_render_note* note = nullptr);

// True when a cell of column takes the streamed path of a dump: a text or
// byte array longer than sql_max_field_size.
bool sql_is_long_value(const udb_field& field);

// --- Values from a MySQL result ---------------------------------------------------------
// One cell of a result row as a value. value and length are the bytes the
// client library gives (a null value pointer is SQL NULL and gives an empty
// value); type and flags are the column's MYSQL_FIELD type and flags.
// VAR_STRING and the blob types are text or bytes by BINARY_FLAG (blobs are
// text while the engine's blob_to_text is set), a binary cell of no bytes
// being a zero-length byte array, not an empty value; a BIT is true when its
// first byte is not zero; every other type is read from its text by
// get_vartype.
ole_variant get_variant(const char* value, unsigned long length, std::uint32_t type, std::uint32_t flags);
// The same for a cell given as wide text; for a binary cell each character
// stands for one byte.
ole_variant get_variant(const wchar_t* value, std::size_t length, std::uint32_t type, std::uint32_t flags);

}  // namespace qb
