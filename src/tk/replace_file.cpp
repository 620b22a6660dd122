#include "tk/replace_file.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qb {
namespace {

// Writes all of content; 0 or the error number.
int write_all(int fd, std::string_view content) {
  const char* p = content.data();
  std::size_t left = content.size();
  while (left > 0) {
    const ssize_t n = ::write(fd, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return errno;
    if (n == 0) return EIO;
    p += n;
    left -= static_cast<std::size_t>(n);
  }
  return 0;
}

// Writes to an existing special file in place.
int write_in_place(const std::string& path, std::string_view content) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
  if (fd < 0) return errno;
  int error = write_all(fd, content);
  if (::close(fd) != 0 && error == 0) error = errno;
  return error;
}

void sync_directory(const std::string& dir) {
  const int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  ::fsync(fd);  // a file system that cannot do it has nothing to flush
  ::close(fd);
}

int replace_regular(const std::string& target, std::string_view content, mode_t mode) {
  const std::size_t slash = target.rfind('/');
  const std::string dir = slash == std::string::npos ? "." : (slash == 0 ? "/" : target.substr(0, slash));
  std::string base = slash == std::string::npos ? target : target.substr(slash + 1);
  if (base.size() > 200) base.resize(200);  // leaves room for the affixes within NAME_MAX
  std::string temp = (dir == "/" ? std::string() : dir) + "/." + base + ".XXXXXX";
  const int fd = ::mkostemp(temp.data(), O_CLOEXEC);
  if (fd < 0) return errno;
  int error = ::fchmod(fd, mode) != 0 ? errno : 0;
  if (error == 0) error = write_all(fd, content);
  if (error == 0 && ::fsync(fd) != 0) error = errno;
  if (::close(fd) != 0 && error == 0) error = errno;
  if (error == 0 && ::rename(temp.c_str(), target.c_str()) != 0) error = errno;
  if (error != 0) {
    ::unlink(temp.c_str());
    return error;
  }
  sync_directory(dir);
  return 0;
}

}  // namespace

int tk_replace_file(const std::string& path, std::string_view content, mode_t mode) {
  if (path.empty()) return ENOENT;
  std::string target = path;
  struct stat st {};
  if (::lstat(path.c_str(), &st) == 0) {
    if (S_ISLNK(st.st_mode)) {
      char resolved[PATH_MAX];
      if (::realpath(path.c_str(), resolved) == nullptr) return errno;
      target = resolved;
      if (::stat(target.c_str(), &st) != 0) return errno;
    }
    if (S_ISDIR(st.st_mode)) return EISDIR;
    if (!S_ISREG(st.st_mode)) return write_in_place(target, content);
  } else if (errno != ENOENT) {
    return errno;
  }
  return replace_regular(target, content, mode);
}

}  // namespace qb
