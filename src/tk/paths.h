// Paths of the running program and of the user's folders.
//
// Thread-safety: all functions are reentrant.
#pragma once

#include <string>

namespace qb {

// Full path of the running program (from /proc/self/exe); an internal error
// when it cannot be read.
std::string tk_get_module_path();
// The same as wide text, decoded from the system code page.
std::wstring tk_get_module_wpath();
// Directory of the running program, with a trailing '/'.
std::string tk_get_module_dir();

// The user's documents folder: XDG_DOCUMENTS_DIR from
// $XDG_CONFIG_HOME/user-dirs.dirs (or ~/.config/user-dirs.dirs), when it names
// an existing directory; else $HOME. Logs "tk_get_user_home_path". Empty when
// neither is known.
std::string tk_get_user_home_path();

// The per-user configuration directory: $XDG_CONFIG_HOME or ~/.config.
std::string tk_get_user_config_path();

}  // namespace qb
