// The connection to SQL Server that starts a quick launch.
//
// A run from a profile shows no settings page, but it connects to the source
// just as the SQL Server page's connection thread does when the user presses
// Next: with a source database named, to that database with the settings
// (login and password, or Windows authentication); without one, to the
// server's default database. The engine keeps the settings and the server's
// version for the run.
//
// app_connect_mssql_server makes the connection and throws what the engine
// throws. app_connect_source adds the connection thread's handling of
// failures: a refusal of the server (odb_exception) is looked up in the table
// of SQL Server messages and shown with wizard_shell::error ("Invalid user
// name or password."); any other failure of the family goes to the error
// handler; a failure from outside the family is shown and ends the process
// with -1, as an internal error does.
//
// Thread-safety: the calling thread, with no conversion running; the front
// end may call it on a thread of its own while it shows that it waits.
#pragma once

namespace qb {

class quillbridge_convertor;

// Logs "mssql_converter_impl::connect_mssql_server(%s)" with the database, or
// "mssql_converter_impl::connect_mssql_server" without one, and connects the
// converter's mss_engine.
void app_connect_mssql_server(quillbridge_convertor& converter);

// Logs "mssql_settings_page::animation::operator()", connects, and handles a
// failure as described above. True when the source is connected.
bool app_connect_source(quillbridge_convertor& converter);

}  // namespace qb
