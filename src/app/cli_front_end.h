// cli_front_end: the program_front_end of quillbridge-cli.
//
// program_main runs the quick launch of a profile exactly as it does for the
// wizard (the same start-up order, per-user settings, profile loading,
// connections, destination check and log); this front end stands for the
// windows:
//   - log_file_path: the file of --log, else the program's own log;
//   - create_shell: a cli_shell that prints (tk/headless_shell.h policy from
//     --on-error), after it has applied what the command line adds to the
//     loaded settings: the log of --log wins over the profile's "logfile",
//     and an empty password is taken from the environment;
//   - connect_source: the SQL Server page's connection, without the page
//     (app/source_connect.h);
//   - run_sheet: the progress and finish pages: the conversion runs on a
//     worker thread (tk_converter_thread) while this thread draws the
//     progress and takes the signals' requests to stop; at the end the
//     report is printed and its outcome is the exit status (0, 1, 130).
//
// Passwords. A profile need not hold them: when the profile's password of a
// side is empty or absent, QB_MSSQL_PASSWORD (SQL Server login) or
// QB_MYSQL_PASSWORD (MySQL user) gives it, if set and not empty. So the order
// is: the profile, then the environment, then the password kept in the
// per-user settings. A password from the environment is used for this run
// only: the per-user settings are saved with the password they had.
//
// Ownership: the front end owns the shell; the console and the interrupt
// watcher belong to the caller and outlive it.
// Thread-safety: the main thread (the shell's hooks are also called on the
// worker).
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "app/cli_options.h"
#include "app/cli_report.h"
#include "app/cli_shell.h"
#include "app/program.h"

namespace qb {

class cli_console;
class cli_interrupts;

// The profile's own passwords: whether each side's is set (not empty).
struct cli_profile_passwords {
  bool mssql = false;
  bool mysql = false;
};
// Reads them from the profile at path without logging; a profile that cannot
// be read has none (loading it for the run reports why).
cli_profile_passwords cli_read_profile_passwords(const std::string& path);

// The environment variables of the passwords.
inline constexpr char cli_mssql_password_variable[] = "QB_MSSQL_PASSWORD";
inline constexpr char cli_mysql_password_variable[] = "QB_MYSQL_PASSWORD";

class cli_front_end : public program_front_end {
 public:
  cli_front_end(const cli_options& options, cli_console& console, cli_interrupts& interrupts);
  ~cli_front_end() override;

  std::string log_file_path() override;
  bool initialize_ui() override;
  wizard_shell& create_shell(quillbridge_convertor& converter, bool quick_launch) override;
  void destroy_shell() override;
  bool connect_source(quillbridge_convertor& converter) override;
  int run_sheet(quillbridge_convertor& converter, wizard_shell& shell, bool quick_launch) override;

 protected:
  [[nodiscard]] const cli_options& options() const { return options_; }

 private:
  void apply_log_option();
  void apply_passwords(quillbridge_convertor& converter);
  void restore_passwords();
  // Runs the conversion on the worker and shows its progress; returns the
  // seconds it took.
  double run_conversion(quillbridge_convertor& converter);
  cli_report_input gather(const quillbridge_convertor& converter, double seconds) const;

  cli_options options_;
  cli_console& console_;
  cli_interrupts& interrupts_;
  cli_profile_passwords profile_passwords_;
  std::unique_ptr<cli_shell> shell_;
  quillbridge_convertor* converter_ = nullptr;
  // The settings' passwords that the environment stood in for this run.
  std::optional<std::wstring> kept_mssql_password_;
  std::optional<std::string> kept_mysql_password_;
};

}  // namespace qb
