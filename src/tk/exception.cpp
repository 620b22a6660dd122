#include "tk/exception.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tk/log.h"
#include "tk/singleton.h"
#include "tk/strings.h"

namespace qb {

tk_exception::tk_exception(std::string text, int level)
    : text_(text.empty() ? std::string("Unknown exception") : std::move(text)), level_(level) {}

tk_exception::tk_exception(const std::wstring& text, int level) : level_(level) {
  std::string narrow;
  if (tk_unicode_to_ansi2(text, narrow)) text_ = std::move(narrow);
}

tk_exception::tk_exception(int level) : text_("Unknown exception"), level_(level) {}

namespace {

// The system's text for an error number, or empty when it has none.
std::string system_error_text(int error_number) {
  if (error_number == 0) return {};
  char buf[256] = {};
  // GNU strerror_r returns a pointer that may or may not be buf.
  const char* text = strerror_r(error_number, buf, sizeof buf);
  if (text == nullptr) return {};
  std::string s(text);
  if (s.rfind("Unknown error", 0) == 0) return {};
  return s;
}

}  // namespace

tk_exception_ex::tk_exception_ex(const std::string& prefix, int level)
    : tk_exception_ex(prefix, errno, level) {}

tk_exception_ex::tk_exception_ex(const std::string& prefix, int error_number, int level) {
  const std::string sys = system_error_text(error_number);
  LOG(2, "GetLastError: %s", sys);
  set_text(sys.empty() ? std::string("Unknown exception") : prefix + sys);
  set_code(static_cast<std::uint32_t>(error_number));
  set_level(level);
}

tk_exception_ex tk_exception_ex::user_message(const std::string& text, int level) {
  tk_exception_ex e;
  e.set_text(text.empty() ? std::string("Unknown exception") : text);
  e.set_level(level);
  return e;
}

std::string make_err_meggase(const std::string& file, int line) {
  LOG(2, "make_err_meggase(%s, %d)", file, line);
  const std::string location = tk_format("%s\\%d", file, line);
  LOG(2, "result=%s", location);
  static constexpr char k_digits[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(location.size() * 2);
  for (char c : location) {
    const auto b = static_cast<unsigned char>(c);
    hex.push_back(k_digits[b >> 4]);
    hex.push_back(k_digits[b & 0x0F]);
  }
  return "Internal error: \ncode=" + hex;
}

tk_mail_assertion::tk_mail_assertion(const std::string& file, int line) {
  set_text(make_err_meggase(file, line));
  set_level(2);
  LOG(2, "tk_mail_assertion::ctor(%s)", file);
}

tk_final_exception::tk_final_exception() { LOG(2, "tk_final_exception::ctor"); }

void tk_singleton_missing(int line) { throw tk_mail_assertion("..\\TK/tk_singl", line); }

}  // namespace qb
