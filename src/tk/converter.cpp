#include "tk/converter.h"

#include "tk/exception.h"
#include "tk/files.h"
#include "tk/log.h"

namespace qb {

void tk_converter::set_cancel(std::uint8_t cancel) { b_cancel.store(cancel); }

void tk_converter::request_stop() {
  set_cancel(1);
  tk_thread_functor::request_stop();
}

void tk_check_log_file(const std::string& name) {
  if (tk_is_path_exist(name)) throw tk_exception("Logfile name specifies an existing path.", 1);
  if (tk_is_file_exist1(name, tk_exist_no_dir) && !tk_is_file_exist1(name, tk_exist_writable)) {
    throw tk_exception("Logfile name specifies an existing read-only file.", 1);
  }
  const tk_file_name parts(name);
  const std::string folder = parts.drive + parts.dir;
  if (!tk_is_path_exist(folder)) {
    throw tk_exception("Logfile path does not exist.\nPlease verify the correct path was given.", 1);
  }
  if (!tk_can_create_file_in(folder)) {
    throw tk_exception(
        "Cannot create log file. Make sure you have sufficient\nprivileges to create files in the directory.", 1);
  }
}

void tk_converter::set_logfile(const std::string& name) {
  LOG(1, "tk_convertor::set_logfile(%s)", name);
  tk_logger* logger = tk_logger::try_instance();
  if (logger == nullptr) return;
  log_file = name;
  if (name.empty()) {
    LOG(1, "Filename is empty");
    return;
  }
  tk_check_log_file(name);
  // The logger keeps the full path, so that a later change of the working
  // directory does not move the log.
  const tk_file_name parts(name);
  logger->set_path(parts.path().c_str());
  logger->set_enabled(true);
}

}  // namespace qb
