#include "app/cli_front_end.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "app/cli_console.h"
#include "app/cli_interrupts.h"
#include "app/cli_progress.h"
#include "app/convertor.h"
#include "app/source_connect.h"
#include "tk/converter.h"
#include "tk/files.h"
#include "tk/format.h"
#include "tk/log.h"
#include "tk/utf.h"
#include "udb/profile.h"

namespace qb {

namespace {

using clock = std::chrono::steady_clock;

// How often the live line is drawn (at most five times a second), and how
// often the end of the run is looked for.
constexpr auto k_redraw = std::chrono::milliseconds(200);
constexpr auto k_poll = std::chrono::milliseconds(20);

// The variable's value; empty when it is not set.
std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

}  // namespace

cli_profile_passwords cli_read_profile_passwords(const std::string& path) {
  cli_profile_passwords passwords;
  try {
    udb_profile profile;
    profile.load(path);
    passwords.mssql = !profile.get_value(udb_profile_mss_settings, L"password").empty();
    passwords.mysql = !profile.get_value(udb_profile_mysql_settings, L"password").empty();
  } catch (const std::exception&) {
    // The run's own load of the profile reports the failure.
  }
  return passwords;
}

cli_front_end::cli_front_end(const cli_options& options, cli_console& console, cli_interrupts& interrupts)
    : options_(options), console_(console), interrupts_(interrupts) {
  // Read before the log exists, so that the run's log shows the profile
  // loaded once, as a quick launch loads it.
  profile_passwords_ = cli_read_profile_passwords(options_.profile);
}

cli_front_end::~cli_front_end() = default;

std::string cli_front_end::log_file_path() {
  if (options_.log_file.empty()) return program_front_end::log_file_path();
  return tk_file_name(options_.log_file).path();
}

bool cli_front_end::initialize_ui() {
  LOG(1, "quillbridge-cli: no user-interface library to initialise");
  return true;
}

wizard_shell& cli_front_end::create_shell(quillbridge_convertor& converter, bool /*quick_launch*/) {
  converter_ = &converter;
  apply_log_option();
  apply_passwords(converter);
  headless_policy policy;
  policy.continue_answer = options_.abort_on_error ? wizard_shell::answer_abort : wizard_shell::answer_continue;
  shell_ = std::make_unique<cli_shell>(console_, options_.quiet, policy);
  shell_->set_converter(&converter);
  return *shell_;
}

void cli_front_end::destroy_shell() {
  restore_passwords();
  shell_.reset();
  converter_ = nullptr;
}

// The profile's "logfile" has moved the log while it was loaded; the
// command line's choice wins.
void cli_front_end::apply_log_option() {
  if (options_.log_file.empty()) return;
  tk_logger* logger = tk_logger::try_instance();
  const std::string path = log_file_path();
  if (logger == nullptr || logger->path() == path) return;
  logger->set_path(path.c_str());
  logger->set_enabled(true);
  LOG(2, "The log stays in %s (--log)", path);
}

void cli_front_end::apply_passwords(quillbridge_convertor& converter) {
  if (!profile_passwords_.mssql) {
    const std::string value = environment(cli_mssql_password_variable);
    if (!value.empty()) {
      kept_mssql_password_ = converter.mssql_converter_impl::password;
      converter.mssql_converter_impl::password = tk_utf8_decode(value);
      LOG(2, "The SQL Server password is taken from %s", cli_mssql_password_variable);
    }
  }
  if (!profile_passwords_.mysql) {
    const std::string value = environment(cli_mysql_password_variable);
    if (!value.empty()) {
      kept_mysql_password_ = converter.mysql_converter_impl::password;
      converter.mysql_converter_impl::password = value;
      LOG(2, "The MySQL password is taken from %s", cli_mysql_password_variable);
    }
  }
}

// The per-user settings are saved when the converter goes: they keep the
// passwords they had, not the environment's.
void cli_front_end::restore_passwords() {
  if (converter_ == nullptr) return;
  if (kept_mssql_password_) {
    std::fill(converter_->mssql_converter_impl::password.begin(), converter_->mssql_converter_impl::password.end(),
              L'\0');
    converter_->mssql_converter_impl::password = *kept_mssql_password_;
    kept_mssql_password_.reset();
  }
  if (kept_mysql_password_) {
    std::fill(converter_->mysql_converter_impl::password.begin(), converter_->mysql_converter_impl::password.end(),
              '\0');
    converter_->mysql_converter_impl::password = *kept_mysql_password_;
    kept_mysql_password_.reset();
  }
}

bool cli_front_end::connect_source(quillbridge_convertor& converter) { return app_connect_source(converter); }

int cli_front_end::run_sheet(quillbridge_convertor& converter, wizard_shell& /*shell*/, bool quick_launch) {
  // The command line always names a profile; there is no wizard to run.
  if (!quick_launch) throw tk_mail_assertion("cli_front_end", __LINE__);
  LOG(2, "progress_page::page_init");
  const double seconds = run_conversion(converter);

  LOG(2, "gui_finish_page::page_init");
  const cli_report_input input = gather(converter, seconds);
  const cli_outcome outcome = cli_outcome_of(input);
  if (!input.errors.empty()) {
    LOG(2, "Display errors");
  } else if (outcome == cli_outcome::success) {
    LOG(2, "Display success-message");
  } else {
    LOG(2, "Display interruption");
  }
  if (!options_.quiet) console_.line(std::string());
  console_.line(cli_report_text(input, options_.quiet));
  return cli_exit_code(outcome);
}

double cli_front_end::run_conversion(quillbridge_convertor& converter) {
  shell_->set_initialized(true);
  shell_->set_running(true);
  interrupts_.run_started(converter);
  const bool draw = console_.terminal() && !options_.quiet;
  const clock::time_point start = clock::now();
  {
    tk_converter_thread worker(converter);
    worker.start();
    cli_progress_meter meter;
    clock::time_point next_draw = start;
    while (converter.finished.load() == 0) {
      const clock::time_point now = clock::now();
      if (draw && now >= next_draw) {
        console_.status(meter.line(cli_sample(converter), now, console_.width() - 1));
        next_draw = now + k_redraw;
      }
      std::this_thread::sleep_for(k_poll);
    }
    // `finished` is the worker's last store: the thread is about to end.
    while (worker.is_running()) {
    }
    worker.clean();
  }
  const double seconds = std::chrono::duration<double>(clock::now() - start).count();
  if (draw) console_.clear_status();
  interrupts_.run_ended();
  shell_->set_running(false);
  return seconds;
}

cli_report_input cli_front_end::gather(const quillbridge_convertor& converter, double seconds) const {
  cli_report_input input;
  input.tables = converter.table_reports;
  input.views = converter.view_report;
  input.views_selected = converter.convert_views != 0 && !converter.selected_views.empty();
  for (const udb_named_text& entry : converter.queries) input.work_list.push_back(entry.first);
  input.last_record = converter.n_done_records.load();
  input.last_records = converter.n_records.load();
  input.errors = shell_->errors();
  // A failure from outside the exception family reaches the user as an
  // error box only; it joins the list while the list has room, as the
  // handler's own failures do.
  for (const std::string& box : shell_->run_error_boxes()) {
    if (input.errors.size() >= wizard_shell::max_errors) break;
    if (std::find(input.errors.begin(), input.errors.end(), box) == input.errors.end()) input.errors.push_back(box);
  }
  input.failures = std::max(shell_->run_failures(), input.errors.size());
  input.interrupted = interrupts_.interrupted();
  input.opened = shell_->run_opened();
  input.seconds = seconds;
  if (const tk_logger* logger = tk_logger::try_instance()) input.log_file = logger->path();
  if (converter.direct == 0) {
    input.destination = "Dump file: " + tk_file_name(cli_narrow(converter.dest)).path();
  } else {
    const std::string& host = converter.mysql_converter_impl::host;
    input.destination = tk_format("Destination: MySQL database '%s' on %s:%s", cli_narrow(converter.dest),
                                  host.empty() ? std::string("localhost") : host, converter.port);
  }
  return input;
}

}  // namespace qb
