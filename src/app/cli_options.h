// The command line of quillbridge-cli.
//
//   quillbridge-cli [OPTIONS] PROFILE.qbr
//
// Options come first; the first argument that is not an option starts the
// path of the profile, and it and every argument after it are joined with
// single blanks into that path, as the program's quick launch joins its
// command line (so a path with blanks works unquoted, and quotes are part of
// the name). "--" ends the options explicitly, for a path that begins with
// "-".
//
// The options are what a run needs that a profile does not hold:
//   --on-error=continue|abort  the answer to a continuable error (default
//                              continue); "--on-error abort" also works
//   --log FILE, --log=FILE     the log of this run goes to FILE
//   --quiet                    only the outcome and the errors
//   --help, --version
//
// Thread-safety: pure functions.
#pragma once

#include <string>

namespace qb {

struct cli_options {
  bool help = false;
  bool version = false;
  bool quiet = false;
  bool abort_on_error = false;  // --on-error=abort
  std::string log_file;         // --log; empty: the program's own log
  std::string profile;          // the path, joined from the rest of the arguments
};

struct cli_parse_result {
  cli_options options;
  std::string error;  // not empty: the command line is wrong, and why
};

// Reads the arguments after the program's name. Without --help or --version
// a profile must be given.
cli_parse_result cli_parse_arguments(int argc, const char* const* argv);

// The text of --help.
std::string cli_usage();
// The text of --version: "quillbridge-cli 8.1.0" and the product's title.
std::string cli_version();

// The program's name in messages.
inline constexpr char cli_program_name[] = "quillbridge-cli";

}  // namespace qb
