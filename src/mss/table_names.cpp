#include "mss/table_names.h"

#include <atomic>

#include "mss/engine.h"
#include "tk/log.h"

namespace qb {

namespace {

std::atomic<bool> engine_view_owned{true};

bool engine_initialized() {
  const mss_engine* engine = mss_engine::try_instance();
  return engine != nullptr && engine->is_connected();
}

bool is_bracketed(const std::wstring& name) { return name.front() == L'[' && name.back() == L']'; }

void split_bracketed(const std::wstring& name, std::wstring& table, std::wstring& owner) {
  LOG(1, "Name is enclosed in [...]");
  const std::wstring inner = name.substr(1, name.size() - 2);
  const std::size_t dot = inner.find(L"].[");
  if (dot == std::wstring::npos) {
    table = inner;
    owner.clear();
    return;
  }
  owner = inner.substr(0, dot);
  table = inner.substr(dot + 3);
}

void split_plain(const std::wstring& name, std::wstring& table, std::wstring& owner) {
  LOG(1, "Name is NOT enclosed in [...]");
  LOG(1, "mss_engine::is_initialized()=%d", engine_initialized() ? 1 : 0);
  LOG(1, "is_view_owned()=%d", engine_view_owned.load() ? 1 : 0);
  const std::size_t dot = name.find(L'.');
  if (dot == std::wstring::npos) {
    LOG(1, "Prepare blank owner for simple name (table only)");
    table = name;
    owner.clear();
    return;
  }
  LOG(1, "Getting owner for composed name");
  owner = name.substr(0, dot);
  table = name.substr(dot + 1);
}

}  // namespace

bool mss_split_tab_name(const std::wstring& name, std::wstring& table, std::wstring& owner) {
  LOG(1, "mss_split_tab_name(%s)", name);
  if (name.size() < 3) {
    table = name;
    owner.clear();
  } else if (is_bracketed(name)) {
    split_bracketed(name, table, owner);
  } else {
    split_plain(name, table, owner);
  }
  LOG(1, "tab_name=%s, owner=%s", table, owner);
  return true;
}

std::wstring mss_simplify_tab_name(const std::wstring& name, wchar_t separator) {
  LOG(1, "mss_simplify_tab_name(%s)", name);
  std::wstring table;
  std::wstring owner;
  mss_split_tab_name(name, table, owner);
  if (owner.empty()) {
    LOG(1, "Processing simple table name %s", table);
    return table;
  }
  LOG(1, "Processing compound table name %s.%s", owner, table);
  return owner + separator + table;
}

void mss_set_view_owned(bool view_owned) { engine_view_owned.store(view_owned); }

bool mss_is_view_owned() { return engine_view_owned.load(); }

}  // namespace qb
