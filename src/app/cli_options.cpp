#include "app/cli_options.h"

#include <string_view>

#include "tk/format.h"

namespace qb {

namespace {

constexpr std::string_view k_on_error = "--on-error";
constexpr std::string_view k_log = "--log";

// Reads one option at argv[i]; an option that takes its value from the next
// argument moves i on. Returns the error, or empty text.
std::string read_option(int argc, const char* const* argv, int& i, cli_options& options) {
  const std::string_view arg = argv[i];
  // The value of "--name=value", or of "--name value".
  auto value_of = [&](std::string_view name, std::string& value) -> std::string {
    if (arg.size() > name.size() && arg[name.size()] == '=') {
      value = arg.substr(name.size() + 1);
      return {};
    }
    if (i + 1 >= argc || argv[i + 1] == nullptr) return tk_format("option %s needs a value", std::string(name));
    value = argv[++i];
    return {};
  };
  auto is = [&](std::string_view name) {
    return arg == name || (arg.size() > name.size() && arg.substr(0, name.size()) == name && arg[name.size()] == '=');
  };

  if (arg == "--help" || arg == "-h") {
    options.help = true;
  } else if (arg == "--version") {
    options.version = true;
  } else if (arg == "--quiet" || arg == "-q") {
    options.quiet = true;
  } else if (is(k_on_error)) {
    std::string value;
    if (std::string error = value_of(k_on_error, value); !error.empty()) return error;
    if (value == "continue") {
      options.abort_on_error = false;
    } else if (value == "abort") {
      options.abort_on_error = true;
    } else {
      return tk_format("--on-error takes 'continue' or 'abort', not '%s'", value);
    }
  } else if (is(k_log)) {
    if (std::string error = value_of(k_log, options.log_file); !error.empty()) return error;
    if (options.log_file.empty()) return "--log needs a file name";
  } else {
    return tk_format("unknown option '%s'", std::string(arg));
  }
  return {};
}

}  // namespace

cli_parse_result cli_parse_arguments(int argc, const char* const* argv) {
  cli_parse_result result;
  int i = 1;
  for (; i < argc; ++i) {
    if (argv[i] == nullptr) continue;
    const std::string_view arg = argv[i];
    if (arg == "--") {
      ++i;
      break;
    }
    // A lone "-" is not an option: it is (the start of) a path.
    if (arg.size() < 2 || arg[0] != '-') break;
    result.error = read_option(argc, argv, i, result.options);
    if (!result.error.empty()) return result;
  }
  for (int first = i; i < argc; ++i) {
    if (i > first) result.options.profile += ' ';
    if (argv[i] != nullptr) result.options.profile += argv[i];
  }
  if (result.options.help || result.options.version) return result;
  if (result.options.profile.empty()) result.error = "no profile given";
  return result;
}

std::string cli_usage() {
  return "Usage: quillbridge-cli [OPTIONS] PROFILE.qbr\n"
         "\n"
         "Runs the conversion saved in a Quillbridge profile (.qbr), as the wizard\n"
         "runs it when it is started with that profile, and reports how it went.\n"
         "Everything after the options is the profile's path; blanks need no quotes.\n"
         "\n"
         "Options:\n"
         "  --on-error=continue|abort  answer to an error that lets the run go on:\n"
         "                             continue with the next record or table\n"
         "                             (default), or abort the conversion\n"
         "  --log FILE                 write the log of this run to FILE instead of\n"
         "                             Quillbridge.log in the documents folder\n"
         "  -q, --quiet                print only the outcome and the errors\n"
         "  -h, --help                 show this text and exit\n"
         "      --version              show the version and exit\n"
         "  --                         end of options (for a path beginning with '-')\n"
         "\n"
         "Environment:\n"
         "  QB_MSSQL_PASSWORD  SQL Server password, used when the profile has none\n"
         "  QB_MYSQL_PASSWORD  MySQL password, used when the profile has none\n"
         "\n"
         "Exit status:\n"
         "  0    the conversion finished without errors\n"
         "  1    the conversion finished with errors (listed in the report)\n"
         "  2    the conversion could not start (bad command line or profile,\n"
         "       a connection refused, an unusable destination)\n"
         "  130  interrupted (Ctrl-C or SIGTERM); a second Ctrl-C quits at once\n"
         "  255  internal error";
}

std::string cli_version() { return tk_format("%s %d.%d.%d (Quillbridge %d.%d)", cli_program_name, 8, 1, 0, 8, 1); }

}  // namespace qb
