#include "tk/line_reader.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace qb {
namespace {

constexpr std::size_t k_chunk = 65536;
constexpr char k_bom[] = "\xEF\xBB\xBF";

}  // namespace

tk_line_reader::tk_line_reader(const std::string& path, std::size_t limit) : limit_(limit) {
  fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd_ < 0) error_ = errno;
}

tk_line_reader::~tk_line_reader() {
  if (fd_ >= 0) ::close(fd_);
}

bool tk_line_reader::fill() {
  if (eof_ || fd_ < 0) return false;
  buffer_.erase(0, pos_);
  pos_ = 0;
  const std::size_t old_size = buffer_.size();
  buffer_.resize(old_size + k_chunk);
  for (;;) {
    const ssize_t n = ::read(fd_, buffer_.data() + old_size, k_chunk);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      error_ = errno;
      buffer_.resize(old_size);
      return false;
    }
    buffer_.resize(old_size + static_cast<std::size_t>(n));
    if (n == 0) eof_ = true;
    return n > 0;
  }
}

tk_line_reader::status tk_line_reader::next(std::string& line) {
  line.clear();
  too_long_ = false;
  if (fd_ < 0 || error_ != 0) return status::error;
  if (at_start_) {
    at_start_ = false;
    while (buffer_.size() < 3 && fill()) {
    }
    if (error_ != 0) return status::error;
    if (buffer_.compare(0, 3, k_bom) == 0) pos_ = 3;
  }
  // Room for the limit and one CR before the LF.
  const std::size_t keep = limit_ + 1;
  std::size_t total = 0;
  bool any = false;
  for (;;) {
    if (pos_ == buffer_.size() && !fill()) {
      if (error_ != 0) return status::error;
      if (!any) return status::end;
      break;  // the last line has no LF
    }
    any = true;
    const std::size_t lf = buffer_.find('\n', pos_);
    const std::size_t end = lf == std::string::npos ? buffer_.size() : lf;
    const std::size_t piece = end - pos_;
    if (line.size() < keep) line.append(buffer_, pos_, std::min(piece, keep - line.size()));
    total += piece;
    pos_ = end;
    if (lf != std::string::npos) {
      ++pos_;
      break;
    }
  }
  ++line_number_;
  if (total == line.size() && !line.empty() && line.back() == '\r') {
    line.pop_back();
    --total;
  }
  if (total > limit_) {
    too_long_ = true;
    line.resize(limit_);
  }
  return status::line;
}

}  // namespace qb
