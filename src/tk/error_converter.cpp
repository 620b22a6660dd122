#include "tk/error_converter.h"

#include "tk/exception.h"
#include "tk/log.h"

namespace qb {

tk_error_converter::tk_error_converter(std::size_t count, const tk_error_row* table) { load_map(count, table); }

tk_error_converter::tk_error_converter(std::span<const tk_error_row> table) { load_map(table); }

void tk_error_converter::load_map(std::size_t count, const tk_error_row* table) {
  LOG(2, "tk_error_converter::load_map (map size=%d)", count);
  if (table == nullptr) throw tk_mail_assertion("tk_errco", 43);
  for (std::size_t i = 0; i < count; ++i) {
    map_.try_emplace(table[i].code, table[i].text != nullptr ? table[i].text : "");
  }
}

std::string tk_error_converter::convert(std::uint32_t code) const {
  LOG(2, "tk_error_converter::convert(%d)", code);
  const auto it = map_.find(code);
  if (it == map_.end()) {
    LOG(1, "Error message not found!");
    return {};
  }
  LOG(1, "Error message has been found: %s", it->second);
  return it->second;
}

}  // namespace qb
