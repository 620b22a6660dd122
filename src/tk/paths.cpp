#include "tk/paths.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "tk/exception.h"
#include "tk/log.h"
#include "tk/strings.h"

namespace qb {
namespace {

bool is_directory(const std::string& path) {
  struct stat st {};
  return !path.empty() && ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string home_dir() {
  const char* home = std::getenv("HOME");
  if (home != nullptr && *home != '\0') return home;
  const passwd* pw = ::getpwuid(::getuid());
  return (pw != nullptr && pw->pw_dir != nullptr) ? pw->pw_dir : "";
}

// Reads XDG_DOCUMENTS_DIR="$HOME/Documents" from user-dirs.dirs.
std::string xdg_documents_dir(const std::string& home) {
  std::ifstream in(tk_get_user_config_path() + "/user-dirs.dirs");
  std::string line;
  const std::string key = "XDG_DOCUMENTS_DIR=";
  while (std::getline(in, line)) {
    if (line.rfind(key, 0) != 0) continue;
    std::string value = line.substr(key.size());
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"') value = value.substr(1, value.size() - 2);
    if (value.rfind("$HOME", 0) == 0) value = home + value.substr(5);
    return value;
  }
  return {};
}

}  // namespace

std::string tk_get_module_path() {
  char buf[4096];
  const ssize_t n = ::readlink("/proc/self/exe", buf, sizeof buf - 1);
  if (n <= 0) throw tk_mail_assertion("tk_file", 30);
  return std::string(buf, static_cast<std::size_t>(n));
}

std::wstring tk_get_module_wpath() {
  std::wstring wide;
  if (!tk_ansi_to_unicode(tk_get_module_path(), wide)) throw tk_mail_assertion("tk_file", 36);
  return wide;
}

std::string tk_get_module_dir() {
  const std::string path = tk_get_module_path();
  return path.substr(0, path.rfind('/') + 1);
}

std::string tk_get_user_config_path() {
  const char* xdg = std::getenv("XDG_CONFIG_HOME");
  if (xdg != nullptr && *xdg == '/') return xdg;
  return home_dir() + "/.config";
}

std::string tk_get_user_home_path() {
  LOG(1, "tk_get_user_home_path");
  const std::string home = home_dir();
  std::string docs = xdg_documents_dir(home);
  if (!is_directory(docs)) docs = home;
  LOG(2, "Gor user's home: %s", docs);
  return docs;
}

}  // namespace qb
