#include "app/program.h"

#include <optional>

#include "app/convertor.h"
#include "tk/error_handler.h"
#include "tk/error_tables.h"
#include "tk/exception.h"
#include "tk/files.h"
#include "tk/log.h"
#include "tk/paths.h"
#include "tk/strings.h"
#include "udb/profile.h"

namespace qb {

program_front_end::~program_front_end() = default;

std::string program_front_end::log_file_path() { return app_log_file_path(); }

void program_front_end::converter_created(quillbridge_convertor& /*converter*/) {}

std::string app_log_file_path() {
  std::string folder = tk_get_user_home_path();
  // The folder is a directory: split as one, so that its last part stays.
  if (!folder.empty() && folder.back() != '/') folder += '/';
  tk_file_name parts(folder);
  parts.name = "Quillbridge";
  parts.ext = "log";
  return parts.path();
}

std::string app_command_line(int argc, const char* const* argv) {
  std::string line;
  for (int i = 1; i < argc; ++i) {
    if (i > 1) line += ' ';
    if (argv[i] != nullptr) line += argv[i];
  }
  return line;
}

namespace {

// The steps between the error handler and the end of the sheet. The
// converter and the shell live in the caller, so that a failure is reported
// while they still exist.
int run_program(program_front_end& front_end, const std::string& command_line,
                std::optional<quillbridge_convertor>& converter, wizard_shell*& shell) {
  LOG(1, "gui_initialize");
  if (!front_end.initialize_ui()) return -1;

  converter.emplace();
  front_end.converter_created(*converter);

  const bool quick_launch = !command_line.empty();
  if (quick_launch) {
    // The whole text is the path: no switches, no quoting rule.
    LOG(2, "QUICK LAUNCH: profile=%s", tk_ansi_to_wide(command_line));
    udb_profile profile;
    if (profile.load(command_line)) converter->load_profile(profile);
  }

  shell = &front_end.create_shell(*converter, quick_launch);

  if (quick_launch) {
    if (!front_end.connect_source(*converter)) return -1;
    if (converter->direct != 0) converter->connect_mysql_server();
    converter->check_dest();
  }
  return front_end.run_sheet(*converter, *shell, quick_launch);
}

}  // namespace

int program_main(program_front_end& front_end, const std::string& command_line) {
  std::optional<tk_logger> logger;
  std::optional<error_handler> handler;
  try {
    logger.emplace(front_end.log_file_path(), true, 1, false);
    handler.emplace(tk_source_errors);
    handler->load_err_map(tk_destination_errors);
  } catch (...) {
    // Nothing can be reported without the handler.
    return -1;
  }

  // Destroyed in the reverse order: shell, converter; then the handler and
  // the log at the end of the function.
  std::optional<quillbridge_convertor> converter;
  wizard_shell* shell = nullptr;
  int result = -1;
  try {
    result = run_program(front_end, command_line, converter, shell);
  } catch (const tk_final_exception&) {
    result = -1;
  } catch (const tk_exception& e) {
    handler->handle(e, true);
    result = -1;
  } catch (const std::exception& e) {
    wizard_shell::error(tk_ansi_to_wide(e.what()));
    result = -1;
  }
  if (shell != nullptr) front_end.destroy_shell();
  converter.reset();
  return result;
}

int program_main(program_front_end& front_end, int argc, const char* const* argv) {
  return program_main(front_end, app_command_line(argc, argv));
}

}  // namespace qb
