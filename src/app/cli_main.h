// The whole of quillbridge-cli: reads the command line, prepares the console
// and the signals, and runs program_main with the command-line front end.
//
// Exit status: 0 the conversion finished without errors; 1 it finished with
// errors; 2 it could not start (a wrong command line, a profile that is
// missing or unreadable, a connection refused, an unusable destination, a
// source or destination database that cannot be opened);
// 130 interrupted; 255 an internal error (the error handler ends the process
// with -1). --help and --version exit with 0.
//
// Thread-safety: the main thread, once per process.
#pragma once

#include <functional>
#include <memory>

namespace qb {

class cli_console;
class cli_front_end;
class cli_interrupts;
struct cli_options;

// Makes the front end of a run; the program's own is cli_front_end.
using cli_front_end_maker =
    std::function<std::unique_ptr<cli_front_end>(const cli_options&, cli_console&, cli_interrupts&)>;

// Runs the program with the process's arguments and gives its exit status.
int cli_main(int argc, const char* const* argv, const cli_front_end_maker& make_front_end = {});

// The exit status of a run that could not start.
inline constexpr int cli_exit_not_started = 2;

}  // namespace qb
