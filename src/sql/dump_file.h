// dmp_file: the output file of a dump, a buffered sink that reports every
// failure.
//
// Writes collect in a buffer of 256 KiB and go to the file when it is full
// (a piece larger than the buffer goes straight through). A failure of the
// operating system (a full disk, a lost network share) throws tk_exception_ex
// with the file's path and the system's text, and the file stays failed: every
// later write, flush or close throws the same failure again, so that an error
// that happened under a destructor still reaches the next caller. close()
// writes what is buffered, closes the file and reports; the destructor closes
// quietly (logging a failure at level 3) and is only a safety net.
//
// Ownership: owns the file descriptor. Not copyable. Thread-safety: one
// thread at a time.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qb {

class dmp_file {
 public:
  static constexpr std::size_t buffer_size = 256 * 1024;

  // Creates the file (emptying one of that name). Throws tk_exception_ex
  // "Cannot create the dump file '<path>': <system text>".
  explicit dmp_file(std::string path);
  ~dmp_file();
  dmp_file(const dmp_file&) = delete;
  dmp_file& operator=(const dmp_file&) = delete;

  // Appends data. Throws "Cannot write the dump file '<path>': <system text>".
  void write(std::string_view data);
  // Hands the buffered bytes to the operating system.
  void flush();
  // Flushes and closes; later calls do nothing once it has succeeded.
  void close();
  // Throws the failure of an earlier call again, if there was one.
  void check() const;

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] bool is_open() const { return fd_ >= 0; }
  [[nodiscard]] bool failed() const { return error_ != 0; }
  // Bytes accepted so far (buffered ones included).
  [[nodiscard]] std::uint64_t size() const { return size_; }

 private:
  void write_through(const char* data, std::size_t count);
  [[noreturn]] void fail(int error);
  [[noreturn]] void rethrow() const;

  std::string path_;
  int fd_ = -1;
  std::string buffer_;
  std::uint64_t size_ = 0;
  int error_ = 0;  // errno of the first failure, 0 while none
};

}  // namespace qb
