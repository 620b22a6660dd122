// The failure family of the program.
//
// Every failure is a tk_exception with a text (narrow, in the system code
// page), a 32-bit code that keys the friendly-message tables, and a level:
//   0 continuable, 1 ends the current job, 2 internal error that ends the
//   process. Any other level behaves as 0.
// tk_final_exception stands outside the family: it means the user pressed
// Abort, and no tk_exception handler may swallow it.
//
// Thread-safety: exception objects are values; they may be thrown on any thread.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

namespace qb {

class tk_exception : public std::exception {
 public:
  // An empty text becomes "Unknown exception"; the code is 0.
  tk_exception(std::string text, int level);
  // Wide text, converted to the system code page; a failed conversion leaves
  // the text empty.
  tk_exception(const std::wstring& text, int level);
  // "Unknown exception".
  explicit tk_exception(int level);

  [[nodiscard]] const char* what() const noexcept override { return text_.c_str(); }
  [[nodiscard]] const std::string& text() const { return text_; }
  [[nodiscard]] std::uint32_t code() const { return code_; }
  [[nodiscard]] int level() const { return level_; }

 protected:
  tk_exception() = default;
  void set_text(std::string text) { text_ = std::move(text); }
  void set_code(std::uint32_t code) { code_ = code; }
  void set_level(int level) { level_ = level; }

 private:
  std::string text_;
  std::uint32_t code_ = 0;
  int level_ = 0;
};

// A failure of an operating-system call: the prefix followed by the system's
// text for the error number. The code is the error number. When the system
// has no text for it, the text is "Unknown exception" and the prefix is lost.
class tk_exception_ex : public tk_exception {
 public:
  // Takes the error number from errno.
  explicit tk_exception_ex(const std::string& prefix, int level = 1);
  tk_exception_ex(const std::string& prefix, int error_number, int level);
  // A failure that is shown to the user as it stands, with no system text
  // (the destination and log-file checks use these).
  static tk_exception_ex user_message(const std::string& text, int level = 1);

 private:
  tk_exception_ex() = default;
};

// A misuse inside the program. The user sees only "Internal error: \ncode="
// and the location as hexadecimal; the location is readable in a bug report.
class tk_mail_assertion : public tk_exception {
 public:
  tk_mail_assertion(const std::string& file, int line);
};

// The user pressed Abort. what() gives "Unknown exception".
class tk_final_exception : public std::exception {
 public:
  tk_final_exception();
  [[nodiscard]] const char* what() const noexcept override { return "Unknown exception"; }
};

// Builds the text of an assertion (the name is the one the program has
// always used for it).
std::string make_err_meggase(const std::string& file, int line);

}  // namespace qb
