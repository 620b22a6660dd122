// The program's start and end: the long-lived objects in their order, the
// quick launch from a profile, and the last guard of the main thread.
//
// program_main builds, as locals and in this order: the log (the file
// "Quillbridge.log" in the user's documents folder unless the front end names
// another, every level, no time stamps), the error handler with the messages of the SQL Server side and
// then those of the MySQL side, the user interface (the front end's
// initialize_ui, after the log line "gui_initialize"), the converter (which
// loads the per-user settings). A non-empty command line is the path of a
// profile, taken as it stands (quotes and all): it is logged as "QUICK LAUNCH:
// profile=%s", loaded and given to the converter. Then the front end makes
// its shell. A quick launch connects to the source (the front end's
// connect_source), then, for a MySQL server, connects to it, and checks the
// destination. Then the front end runs its sheet, whose result is the exit
// code. Everything is taken down in the reverse order: shell, converter,
// error handler, log.
//
// From the log on, the steps stand in one guard: a tk_exception goes to the
// error handler (no_abort), any other std::exception to wizard_shell::error;
// either way the program is taken down in order and the exit code is -1.
// A quick launch whose source connection fails ends with -1 as well.
//
// Ownership: program_main owns every long-lived object but the shell and
// pages, which the front end makes and destroys when asked, in their place in
// the order.
// Thread-safety: the main thread.
#pragma once

#include <string>

#include "tk/shell.h"

namespace qb {

class quillbridge_convertor;

// The user interface that runs on top: the Qt wizard or the headless runner.
class program_front_end {
 public:
  program_front_end() = default;
  virtual ~program_front_end();
  program_front_end(const program_front_end&) = delete;
  program_front_end& operator=(const program_front_end&) = delete;

  // The file the log is opened on at the start (emptied, as every run's log
  // is): app_log_file_path() unless the front end names another.
  virtual std::string log_file_path();
  // Initialises the user-interface library. False ends the program with -1;
  // the front end has told the user why.
  virtual bool initialize_ui() = 0;
  // Called once the converter exists, before a profile is loaded into it: the
  // place to plug in engines (set_source_engine, set_target). Nothing by
  // default.
  virtual void converter_created(quillbridge_convertor& converter);
  // Makes the shell (with its pages), after the converter. The front end
  // owns it; the program asks for its end with destroy_shell, before the
  // converter goes.
  virtual wizard_shell& create_shell(quillbridge_convertor& converter, bool quick_launch) = 0;
  // Destroys the shell made by create_shell. Called once, only when it was
  // made.
  virtual void destroy_shell() = 0;
  // Quick launch only: connects to the SQL Server with the loaded settings,
  // showing its progress as the front end does. False ends the program.
  virtual bool connect_source(quillbridge_convertor& converter) = 0;
  // Runs the sheet: the whole wizard, or for a quick launch the progress and
  // finish pages alone, the run starting at once. Returns the exit code.
  virtual int run_sheet(quillbridge_convertor& converter, wizard_shell& shell, bool quick_launch) = 0;
};

// The log file of the program: "Quillbridge.log" in the documents folder.
std::string app_log_file_path();

// Runs the program with the raw command line (the whole text is the path of
// a profile; empty: the full wizard). Returns the exit code.
int program_main(program_front_end& front_end, const std::string& command_line);
// The same with the arguments as the system split them: they are joined
// again with single blanks.
int program_main(program_front_end& front_end, int argc, const char* const* argv);

// The arguments after the program's name joined with single blanks.
std::string app_command_line(int argc, const char* const* argv);

}  // namespace qb
