#include "sql/dump_file.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

#include "tk/exception.h"
#include "tk/log.h"

namespace qb {

namespace {

std::string write_failure_prefix(const std::string& path) { return "Cannot write the dump file '" + path + "': "; }

}  // namespace

dmp_file::dmp_file(std::string path) : path_(std::move(path)) {
  fd_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd_ < 0) {
    const int error = errno;
    LOG(3, "Failed to open file");
    throw tk_exception_ex("Cannot create the dump file '" + path_ + "': ", error, 1);
  }
  buffer_.reserve(buffer_size);
}

dmp_file::~dmp_file() {
  if (fd_ < 0) return;
  try {
    close();
  } catch (const tk_exception& e) {
    LOG(3, "%s", e.text());
  }
  if (fd_ >= 0) {
    ::close(fd_);
    fd_ = -1;
  }
}

void dmp_file::check() const {
  if (error_ != 0) rethrow();
}

void dmp_file::rethrow() const { throw tk_exception_ex(write_failure_prefix(path_), error_, 1); }

void dmp_file::fail(int error) {
  error_ = error;
  buffer_.clear();
  LOG(3, "Write to the dump file '%s' failed: errno=%d", path_, error);
  rethrow();
}

void dmp_file::write_through(const char* data, std::size_t count) {
  while (count > 0) {
    const ssize_t n = ::write(fd_, data, count);
    if (n < 0) {
      if (errno == EINTR) continue;
      fail(errno);
    }
    // A regular file takes at least one byte or reports why not; a write of
    // nothing would loop forever.
    if (n == 0) fail(EIO);
    data += n;
    count -= static_cast<std::size_t>(n);
  }
}

void dmp_file::write(std::string_view data) {
  if (error_ != 0) rethrow();
  if (fd_ < 0) fail(EBADF);
  size_ += data.size();
  if (buffer_.size() + data.size() <= buffer_size) {
    buffer_.append(data);
    return;
  }
  flush();
  if (data.size() >= buffer_size) {
    write_through(data.data(), data.size());
    return;
  }
  buffer_.append(data);
}

void dmp_file::flush() {
  if (error_ != 0) rethrow();
  if (buffer_.empty()) return;
  if (fd_ < 0) fail(EBADF);
  write_through(buffer_.data(), buffer_.size());
  buffer_.clear();
}

void dmp_file::close() {
  if (error_ != 0) rethrow();
  if (fd_ < 0) return;
  flush();
  const int fd = fd_;
  fd_ = -1;
  // The last chance for a network file system to report a failed write.
  if (::close(fd) != 0 && errno != EINTR) fail(errno);
}

}  // namespace qb
