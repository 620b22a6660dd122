#include "app/cli_main.h"

#include <clocale>

#include "app/cli_console.h"
#include "app/cli_front_end.h"
#include "app/cli_interrupts.h"
#include "app/cli_options.h"
#include "app/program.h"
#include "tk/converter.h"
#include "tk/exception.h"
#include "tk/strings.h"

namespace qb {

namespace {

int usage_error(cli_console& console, const std::string& error) {
  console.error_line(std::string(cli_program_name) + ": " + error);
  console.error_line(std::string("Try '") + cli_program_name + " --help' for more information.");
  return cli_exit_not_started;
}

}  // namespace

int cli_main(int argc, const char* const* argv, const cli_front_end_maker& make_front_end) {
  // Text reaches the console in the encoding of the user's locale; numbers
  // keep the "C" rules that SQL text needs.
  std::setlocale(LC_CTYPE, "");
  tk_refresh_ansi_codeset();

  cli_console& console = cli_console::standard();
  const cli_parse_result parsed = cli_parse_arguments(argc, argv);
  if (!parsed.error.empty()) return usage_error(console, parsed.error);
  const cli_options& options = parsed.options;
  if (options.help) {
    console.line(cli_usage());
    return 0;
  }
  if (options.version) {
    console.line(cli_version());
    return 0;
  }
  if (!options.log_file.empty()) {
    try {
      tk_check_log_file(options.log_file);
    } catch (const tk_exception& e) {
      return usage_error(console, "--log " + options.log_file + ": " + e.what());
    }
  }

  // Before any other thread exists, so that all of them leave the signals to
  // the watcher.
  cli_interrupts interrupts(console);
  std::unique_ptr<cli_front_end> front_end = make_front_end
                                                 ? make_front_end(options, console, interrupts)
                                                 : std::make_unique<cli_front_end>(options, console, interrupts);
  const int result = program_main(*front_end, options.profile);
  // program_main gives -1 when the program ended before the conversion.
  return result < 0 ? cli_exit_not_started : result;
}

}  // namespace qb
