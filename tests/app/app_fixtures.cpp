#include "app_fixtures.h"

namespace qb::test {

void add_people(memory_store& store, const std::wstring& table, int rows) {
  udb_schema schema;
  schema.push_back(int_column(L"id"));
  schema.push_back(text_column(L"name"));
  udb_indexes indexes;
  indexes.push_back_direct(udb_index(L"PK", true, true, {L"id"}));
  store.add_table(table, std::move(schema), std::move(indexes));
  for (int i = 1; i <= rows; ++i) {
    store.add_row(table, {ole_variant(i), ole_variant(std::wstring(1, static_cast<wchar_t>(L'a' + (i - 1) % 26)))});
  }
}

}  // namespace qb::test
