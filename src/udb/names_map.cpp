#include "udb/names_map.h"

#include <cstddef>
#include <string_view>

#include "tk/log.h"
#include "tk/strings.h"

namespace qb {

namespace {

bool names_match(std::wstring_view a, std::wstring_view b, bool b_exact) {
  return b_exact ? a == b : tk_equal_no_case(a, b);
}

// The quoted form of a new name: the quotes are added only where the name
// does not already carry them.
std::wstring quoted_replacement(const std::wstring& name, const std::wstring& left, const std::wstring& right) {
  std::wstring out;
  out.reserve(left.size() + name.size() + right.size());
  if (!left.empty() && !name.starts_with(left)) out += left;
  out += name;
  if (!right.empty() && !name.ends_with(right)) out += right;
  return out;
}

// Position of the first occurrence of folded_needle in text at or after from,
// comparing each character of text folded to lower case; npos when none.
std::size_t find_no_case(const std::wstring& text, const std::wstring& folded_needle, std::size_t from) {
  const std::size_t n = folded_needle.size();
  if (n == 0 || text.size() < n) return std::wstring::npos;
  for (std::size_t pos = from; pos + n <= text.size(); ++pos) {
    std::size_t i = 0;
    while (i < n && tk_fold_case(text[pos + i]) == folded_needle[i]) ++i;
    if (i == n) return pos;
  }
  return std::wstring::npos;
}

// A hit counts only as a whole word: neither neighbour may be a letter or
// digit. An underscore, dot, bracket or quote is not, so the tail of a longer
// identifier after an underscore can match; that is intended.
bool is_whole_word(const std::wstring& text, std::size_t pos, std::size_t length) {
  if (pos > 0 && tk_is_alnum(text[pos - 1])) return false;
  const std::size_t end = pos + length;
  return !(end < text.size() && tk_is_alnum(text[end]));
}

}  // namespace

// --- t_names_map ---------------------------------------------------------------

void t_names_map::add(const std::wstring& old_name, const std::wstring& new_name) {
  LOG(1, "t_names_map::add(%s,%s)", old_name, new_name);
  insert(old_name, new_name);
}

bool t_names_map::insert(const std::wstring& old_name, const std::wstring& new_name) {
  return map_.emplace(old_name, new_name).second;
}

std::wstring t_names_map::get_mapped_name(const std::wstring& old_name) const {
  LOG(1, "t_names_map::get_mapped_name(%s)", old_name);
  for (const auto& [key, value] : map_) {
    if (tk_equal_no_case(key, old_name)) return value;
  }
  return old_name;
}

const std::wstring* t_names_map::find(const std::wstring& old_name) const {
  const auto it = map_.find(old_name);
  return it == map_.end() ? nullptr : &it->second;
}

// --- udb_names_map ---------------------------------------------------------------

void udb_names_map::add_tn_mapping(const std::wstring& source, const std::wstring& generated) {
  LOG(2, "udb_names_map::add_tn_mapping(%s,%s)", source, generated);
  tn_map_.insert(source, generated);
}

void udb_names_map::add_fn_map(const std::wstring& table, const t_names_map& map) {
  LOG(2, "udb_names_map::add_fn_map(%s)", table);
  fn_map_[table] = map;
}

std::wstring udb_names_map::get_tn_orig_name(const std::wstring& generated) const {
  for (const auto& [key, value] : tn_map_) {
    if (value == generated) return key;
  }
  return generated;
}

std::wstring udb_names_map::get_tn_mapped_name(const std::wstring& name, bool b_exact) const {
  LOG(1, "udb_names_map::get_tn_mapped_name(%s)", name);
  for (const auto& [key, value] : tn_map_) {
    LOG(1, "Comparing with (%s,%s)", key, value);
    if (names_match(key, name, b_exact)) {
      LOG(1, "Got mapped name: %s", value);
      return value;
    }
  }
  return name;
}

const t_names_map* udb_names_map::find_fn_map(const std::wstring& table) const {
  const auto it = fn_map_.find(table);
  return it == fn_map_.end() ? nullptr : &it->second;
}

std::wstring udb_names_map::get_fn_mapped_name(const std::wstring& table, const std::wstring& field,
                                               bool b_exact) const {
  LOG(1, "udb_names_map::get_fn_mapped_name(%s,%s)", table, field);
  const t_names_map* map = find_fn_map(table);
  if (map == nullptr) {
    LOG(1, "Table '%s' not found", table);
    return field;
  }
  if (b_exact) {
    // Keys are unique, so the exact match of an ordered walk is the one the
    // tree finds.
    if (const std::wstring* hit = map->find(field)) {
      LOG(1, "Got mapped name: %s", *hit);
      return *hit;
    }
    return field;
  }
  for (const auto& [key, value] : *map) {
    if (tk_equal_no_case(key, field)) {
      LOG(1, "Got mapped name: %s", value);
      return value;
    }
  }
  return field;
}

std::wstring udb_names_map::get_fn_orig_name(const std::wstring& table, const std::wstring& generated) const {
  LOG(1, "udb_names_map::get_fn_orig_name(%s,%s)", table, generated);
  const t_names_map* map = find_fn_map(table);
  if (map == nullptr) return generated;
  for (const auto& [key, value] : *map) {
    if (tk_equal_no_case(value, generated)) return key;
  }
  return generated;
}

std::wstring udb_names_map::do_global_replace1(const std::wstring& text, const std::wstring& left,
                                               const std::wstring& right) const {
  LOG(2, "udb_names_map::do_global_replace1(%s)", text);
  std::wstring result = do_global_replace2(text, tn_map_, left, right);
  for (const auto& entry : fn_map_) result = do_global_replace2(result, entry.second, left, right);
  return result;
}

std::wstring udb_names_map::do_global_replace2(const std::wstring& text, const t_names_map& map,
                                               const std::wstring& left, const std::wstring& right) {
  LOG(2, "udb_names_map::do_global_replace2(%s)", text);
  std::wstring result = text;
  for (const auto& [old_name, new_name] : map) {
    const std::wstring replacement = quoted_replacement(new_name, left, right);
    LOG(1, "Testing pair ('%s','%s')", old_name, new_name);
    // An empty key would match everywhere; it names nothing, so it is passed over.
    if (old_name.empty()) continue;
    std::wstring folded;
    folded.reserve(old_name.size());
    for (const wchar_t c : old_name) folded.push_back(tk_fold_case(c));

    std::size_t pos = find_no_case(result, folded, 0);
    while (pos != std::wstring::npos) {
      LOG(1, "'%s' was found at pos=%d", old_name, static_cast<int>(pos));
      std::size_t resume = pos + old_name.size();
      if (is_whole_word(result, pos, old_name.size())) {
        result.replace(pos, old_name.size(), replacement);
        resume = pos + replacement.size();  // a replacement is never searched again
      }
      pos = find_no_case(result, folded, resume);
    }
  }
  return result;
}

}  // namespace qb
