#include "app/source_connect.h"

#include <cstdio>
#include <cstdlib>

#include "app/convertor.h"
#include "mss/exception.h"
#include "tk/error_converter.h"
#include "tk/error_handler.h"
#include "tk/error_tables.h"
#include "tk/exception.h"
#include "tk/log.h"
#include "tk/shell.h"
#include "tk/strings.h"

namespace qb {

void app_connect_mssql_server(quillbridge_convertor& converter) {
  mss_engine& engine = converter.mssql_engine();
  const std::wstring& server = converter.mssql_converter_impl::host;
  const bool windows = converter.b_sec_log != 0;
  // Windows authentication gives the engine no login: an empty user name
  // asks the driver for a trusted connection.
  const std::wstring none;
  const std::wstring& user = windows ? none : converter.mssql_converter_impl::user;
  const std::wstring& password = windows ? none : converter.mssql_converter_impl::password;
  if (!converter.src.empty()) {
    LOG(2, "mssql_converter_impl::connect_mssql_server(%s)", converter.src);
    engine.connect(server, user, password, converter.src, true);
    return;
  }
  LOG(2, "mssql_converter_impl::connect_mssql_server");
  if (windows) {
    engine.connect(server, true);
  } else {
    engine.connect(server, user, password, true);
  }
}

bool app_connect_source(quillbridge_convertor& converter) {
  LOG(2, "mssql_settings_page::animation::operator()");
  try {
    app_connect_mssql_server(converter);
    return true;
  } catch (const odb_exception& e) {
    // The server's refusal, in the words of the SQL Server message table.
    const tk_error_converter messages(tk_source_errors);
    std::string text = messages.convert(e.code());
    if (text.empty()) text = e.what();
    wizard_shell::error(tk_ansi_to_wide(text));
  } catch (const tk_exception& e) {
    try {
      error_handler::instance().handle(e, false);
    } catch (const tk_final_exception&) {
      LOG(2, "Connecting was aborted by the user");
    }
  } catch (const tk_final_exception&) {
    LOG(2, "Connecting was aborted by the user");
  } catch (const std::exception& e) {
    wizard_shell::error(tk_ansi_to_wide(e.what()));
    std::fflush(nullptr);
    std::_Exit(-1);
  }
  return false;
}

}  // namespace qb
