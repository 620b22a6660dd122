#include "udb/engine.h"

#include <cerrno>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include "tk/exception.h"
#include "tk/log.h"
#include "tk/strings.h"

namespace qb {

udb_engine::~udb_engine() = default;

void udb_engine::db_delete(const std::wstring& name) {
  LOG(2, "udb_engine::db_delete(%s)", name);
  const std::string path = tk_to_ansi(name, tk_cp_thread);
  if (::unlink(path.c_str()) != 0) {
    const int error = errno;
    throw tk_exception_ex(tk_format("Cannot delete '%s': ", path), error, 1);
  }
}

bool udb_engine::is_db_exist(const std::wstring& name) {
  LOG(1, "udb_engine::is_db_exist(%s)", name);
  const std::string path = tk_to_ansi(name, tk_cp_thread);
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0;
}

void udb_engine::set_properties(udb_properties* properties) { properties_ = properties; }

}  // namespace qb
