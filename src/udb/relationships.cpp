#include "udb/relationships.h"

#include <stdexcept>
#include <utility>

#include "tk/exception.h"
#include "tk/log.h"
#include "tk/strings.h"

namespace qb {

udb_rel::udb_rel(std::wstring name_, std::wstring owner_, std::wstring fk_table_, std::wstring pk_table_,
                 std::vector<std::wstring> fk_fields_, std::vector<std::wstring> pk_fields_, std::wstring properties_)
    : name(std::move(name_)),
      owner(std::move(owner_)),
      fk_table(std::move(fk_table_)),
      pk_table(std::move(pk_table_)),
      properties(std::move(properties_)),
      fk_fields(std::move(fk_fields_)),
      pk_fields(std::move(pk_fields_)) {}

const udb_rel* udb_relationships::find_rel(const std::wstring& name, const std::wstring& pk_table,
                                           const std::wstring& fk_table) const {
  for (const udb_rel& rel : list_) {
    if (tk_equal_no_case(rel.name, name) && tk_equal_no_case(rel.pk_table, pk_table) &&
        tk_equal_no_case(rel.fk_table, fk_table)) {
      return &rel;
    }
  }
  return nullptr;
}

bool udb_relationships::find(const std::wstring& name, const std::wstring& pk_table,
                             const std::wstring& fk_table) const {
  LOG(1, "udb_relationships::find(%s,%s,%s)", name, pk_table, fk_table);
  return find_rel(name, pk_table, fk_table) != nullptr;
}

udb_rel& udb_relationships::get(const std::wstring& name, const std::wstring& pk_table, const std::wstring& fk_table) {
  const udb_rel* rel = find_rel(name, pk_table, fk_table);
  if (rel == nullptr) throw tk_mail_assertion("udb_rel", 177);
  return const_cast<udb_rel&>(*rel);
}

udb_rel& udb_relationships::get_index(const std::wstring& name) {
  for (udb_rel& rel : list_) {
    if (tk_equal_no_case(rel.name, name)) return rel;
  }
  throw tk_mail_assertion("udb_rel", 160);
}

bool udb_relationships::is_acceptable_name(const std::wstring& name) const {
  for (const udb_rel& rel : list_) {
    if (tk_equal_no_case(rel.name, name)) return false;
  }
  return true;
}

udb_rel& udb_relationships::operator[](std::size_t i) {
  if (i >= list_.size()) throw std::out_of_range("invalid vector subscript");
  return list_[i];
}

const udb_rel& udb_relationships::operator[](std::size_t i) const {
  if (i >= list_.size()) throw std::out_of_range("invalid vector subscript");
  return list_[i];
}

}  // namespace qb
