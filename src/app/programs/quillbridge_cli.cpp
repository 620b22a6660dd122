// quillbridge-cli: runs the conversion of a saved profile from the command
// line (see app/cli_main.h and doc/cli.md).
#include "app/cli_main.h"

int main(int argc, char** argv) { return qb::cli_main(argc, argv); }
