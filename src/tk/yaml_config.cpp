#include "tk/yaml_config.h"

#include "tk/exception.h"
#include "tk/format.h"
#include "tk/line_reader.h"
#include "tk/log.h"
#include "tk/strings.h"
#include "tk/utf.h"

namespace qb {
namespace {

constexpr std::size_t k_max_line_bytes = 4095;

[[noreturn]] void fail_line(const std::string& file, int line, const char* what) {
  throw tk_exception(tk_format("The file %s cannot be read: line %d %s.", file, line, what), 1);
}

}  // namespace

bool tk_yaml_config::load(const std::string& file, const std::set<std::wstring>& filter) {
  LOG(2, "tk_yaml_config::load(%s)", file);
  tk_line_reader reader(file, k_max_line_bytes);
  if (!reader.is_open()) return false;

  std::wstring key;
  std::string bytes;
  for (;;) {
    const tk_line_reader::status status = reader.next(bytes);
    if (status == tk_line_reader::status::end) break;
    if (status == tk_line_reader::status::error) {
      throw tk_exception_ex(tk_format("Cannot read the file %s: ", file), reader.error(), 1);
    }
    if (reader.too_long()) fail_line(file, reader.line_number(), "is longer than 4095 bytes");
    if (!tk_is_valid_utf8(bytes)) fail_line(file, reader.line_number(), "is not UTF-8 text");

    const std::wstring line = tk_trim(tk_utf8_decode(bytes));
    LOGW(1, L"Got text line: %s", line);
    if (line.empty()) {
      LOG(1, "Skip empty line");
    } else if (line.back() == L':') {
      key = tk_trim(std::wstring_view(line).substr(0, line.size() - 1));
    } else if (line.front() == L'-') {
      const std::wstring value = tk_trim(std::wstring_view(line).substr(1));
      if (!filter.empty() && filter.count(value) != 0) {
        LOGW(1, L"String '%s' has not passed the filter", value);
      } else {
        values[key].push_back(value);
        LOGW(1, L"String '%s' has been stored under key='%s'", value, key);
      }
    }
  }
  return true;
}

}  // namespace qb
