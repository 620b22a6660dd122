#include "sql/exception.h"

#include <errmsg.h>

#include "tk/log.h"
#include "tk/strings.h"
#include "tk/utf.h"

namespace qb {

namespace {

// Exception texts are in the system code page; the library's messages are
// UTF-8 (the session speaks UTF-8). A text the code page cannot take keeps
// its UTF-8 bytes rather than being lost.
std::string exception_text(std::string_view utf8) {
  if (utf8.empty()) return "Unknown exception";
  std::string narrow;
  if (tk_unicode_to_ansi2(tk_utf8_decode(utf8), narrow) && !narrow.empty()) return narrow;
  return std::string(utf8);
}

const char* text_or_empty(const char* text) { return text != nullptr ? text : ""; }

// The server's error for a packet larger than max_allowed_packet.
constexpr unsigned packet_too_large_error = 1153;

}  // namespace

sql_exception::sql_exception(MYSQL* connection, std::string_view statement)
    : sql_exception(mysql_errno(connection), text_or_empty(mysql_error(connection)),
                    text_or_empty(mysql_sqlstate(connection)), statement) {}

sql_exception::sql_exception(MYSQL_STMT* stmt, std::string_view statement)
    : sql_exception(mysql_stmt_errno(stmt), text_or_empty(mysql_stmt_error(stmt)),
                    text_or_empty(mysql_stmt_sqlstate(stmt)), statement) {}

sql_exception::sql_exception(unsigned number, std::string_view message, std::string_view sqlstate,
                             std::string_view statement)
    : number_(number), message_(message), sqlstate_(sqlstate), statement_(statement) {
  LOG(2, "sql_exception::sql_exception( msg=%s)", message_);
  LOG(2, "Got MySQL error code=%d", number_);
  set_text(exception_text(message_));
  set_code(number_ | sql_error_code_base);
  set_level(0);
}

sql_exception::sql_exception(std::uint32_t code, std::string text, unsigned number, std::string_view message,
                             std::string_view sqlstate, std::string_view statement)
    : number_(number), message_(message), sqlstate_(sqlstate), statement_(statement) {
  set_text(std::move(text));
  set_code(code);
  set_level(0);
}

sql_auth_not_supported_exception::sql_auth_not_supported_exception()
    : sql_exception(sql_auth_not_supported_code,
                    "The program does not support authentication protocol requested by server. See "
                    "'Troubleshooting' article of the product documentation.",
                    1249, {}, {}, {}) {}

sql_prep_stmt_failed_exception::sql_prep_stmt_failed_exception(MYSQL_STMT* stmt, std::string_view statement)
    : sql_exception(sql_prep_stmt_failed_code, "Failed to execute prepared statement",
                    stmt != nullptr ? mysql_stmt_errno(stmt) : 0,
                    stmt != nullptr ? text_or_empty(mysql_stmt_error(stmt)) : "",
                    stmt != nullptr ? text_or_empty(mysql_stmt_sqlstate(stmt)) : "", statement) {}

bool sql_exception::connection_lost() const {
  return number_ == CR_SERVER_GONE_ERROR || number_ == CR_SERVER_LOST || number_ == CR_SERVER_LOST_EXTENDED;
}

sql_row_too_big_exception::sql_row_too_big_exception()
    : sql_exception(sql_error_code_base | packet_too_large_error, "Row size exceeds 'max_allowed_packet'",
                    packet_too_large_error, "Row size exceeds 'max_allowed_packet'", "08S01", {}) {}

}  // namespace qb
