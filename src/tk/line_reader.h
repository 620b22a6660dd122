// tk_line_reader: reads a text file one line at a time, with a bound on the
// length of a line, for the program's small line-oriented files (the profile,
// the type-map lists, the per-user settings).
//
// A line is the bytes up to a LF. The LF is removed, and then one CR before
// it, so that files written with CR LF read the same as files written with
// LF. A UTF-8 byte-order mark at the very start of the file is dropped. The
// last line needs no LF. NUL bytes are ordinary bytes of a line.
//
// A line whose text (without its line end) is longer than the limit is not
// kept: the reader skips to its end, reports it as too long and hands back
// only its first `limit` bytes, so a file of binary garbage costs no more
// memory than one line of the limit.
//
// Ownership: the reader owns its file descriptor and closes it on
// destruction. Not copyable.
// Thread-safety: one thread at a time.
#pragma once

#include <cstddef>
#include <string>

namespace qb {

class tk_line_reader {
 public:
  enum class status { line, end, error };

  // Opens the file for reading; see is_open() and error().
  tk_line_reader(const std::string& path, std::size_t limit);
  ~tk_line_reader();
  tk_line_reader(const tk_line_reader&) = delete;
  tk_line_reader& operator=(const tk_line_reader&) = delete;

  [[nodiscard]] bool is_open() const { return fd_ >= 0; }
  // The error number of the failed open or read, 0 when none.
  [[nodiscard]] int error() const { return error_; }

  // Reads the next line into `line`. status::end at the end of the file,
  // status::error when reading failed (see error()).
  status next(std::string& line);

  // The number of the line last returned, from 1.
  [[nodiscard]] int line_number() const { return line_number_; }
  // True when the line last returned was longer than the limit.
  [[nodiscard]] bool too_long() const { return too_long_; }

 private:
  // Refills the buffer; false at the end of the file or on an error.
  bool fill();

  int fd_ = -1;
  int error_ = 0;
  std::size_t limit_;
  int line_number_ = 0;
  bool too_long_ = false;
  bool at_start_ = true;
  bool eof_ = false;
  std::string buffer_;
  std::size_t pos_ = 0;
};

}  // namespace qb
