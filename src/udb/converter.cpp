#include "udb/converter.h"

#include "tk/format.h"
#include "tk/log.h"
#include "tk/strings.h"
#include "udb/profile.h"

namespace qb {

namespace {

// The pairs of a section, when the profile has that section.
const std::vector<udb_profile::t_pair>* section_pairs(const udb_profile& profile, const wchar_t* section) {
  const auto it = profile.sections.find(section);
  return it == profile.sections.end() ? nullptr : &it->second;
}

void load_list(const udb_profile& profile, const wchar_t* section, udb_named_texts& list) {
  const auto* pairs = section_pairs(profile, section);
  if (pairs == nullptr) return;
  list.assign(pairs->begin(), pairs->end());
}

void store_list(udb_profile& profile, const wchar_t* section, const udb_named_texts& list) {
  for (const auto& [name, text] : list) profile.set_value(section, name, udb_profile::to_single_line(text));
}

void load_text(const udb_profile& profile, std::wstring_view key, std::wstring& field) {
  std::wstring value = profile.get_value(udb_profile_generic_settings, key);
  if (!value.empty()) field = std::move(value);
}

}  // namespace

udb_converter::udb_converter() { LOG(1, "udb_converter::ctor"); }

udb_converter::~udb_converter() = default;

void udb_converter::set_current_table(std::wstring name) {
  std::lock_guard lock(current_table_mutex_);
  current_table_ = std::move(name);
}

std::wstring udb_converter::current_table() const {
  std::lock_guard lock(current_table_mutex_);
  return current_table_;
}

bool udb_converter::load_profile(const udb_profile& profile) {
  LOG(1, "udb_converter::load_profile");
  load_text(profile, L"src", src);
  load_text(profile, L"dest", dest);
  const std::wstring logfile = profile.get_value(udb_profile_generic_settings, L"logfile");
  if (!logfile.empty()) set_logfile(tk_to_ansi(logfile));
  profile.get_flag_zero_false(udb_profile_generic_settings, L"skip indexes", skip_indexes);
  profile.get_flag_zero_false(udb_profile_generic_settings, L"only definitions", only_definitions);
  profile.get_mode(udb_profile_generic_settings, L"mode", mode);
  load_list(profile, udb_profile_available_queries, available_queries);
  load_list(profile, udb_profile_selected_tables, queries);
  load_list(profile, udb_profile_selected_views, selected_views);
  return true;
}

bool udb_converter::store_profile(udb_profile& profile) const {
  LOG(1, "udb_converter::store_profile");
  store_list(profile, udb_profile_available_queries, available_queries);
  store_list(profile, udb_profile_selected_views, selected_views);
  const std::wstring section = udb_profile_generic_settings;
  profile.set_value(section, L"src", src);
  profile.set_value(section, L"dest", dest);
  profile.set_value(section, L"logfile", tk_ansi_to_wide(log_file));
  profile.set_flag(section, L"skip indexes", skip_indexes != 0);
  profile.set_flag(section, L"only definitions", only_definitions != 0);
  profile.set_value(section, L"mode", tk_wformat(L"%u", mode));
  return true;
}

int udb_progress_percent(std::uint32_t n_tables, std::uint32_t n_done_tables, std::uint64_t n_records,
                         std::uint64_t n_done_records) {
  if (n_tables == 0) return 0;
  std::uint64_t percent = std::uint64_t{n_done_tables} * 100 / n_tables;
  if (n_records != 0) percent += n_done_records * 100 / n_records / n_tables;
  return static_cast<int>(percent);
}

int udb_progress_percent(const udb_converter& converter) {
  return udb_progress_percent(converter.n_tables.load(), converter.n_done_tables.load(), converter.n_records.load(),
                              converter.n_done_records.load());
}

}  // namespace qb
