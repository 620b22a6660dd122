#include "udb/indexes.h"

#include <stdexcept>
#include <utility>

#include "tk/exception.h"
#include "tk/log.h"
#include "tk/strings.h"

namespace qb {

// --- udb_index -------------------------------------------------------------------

udb_index::udb_index(std::wstring name_, bool b_unique_, bool b_primary_, std::vector<std::wstring> fields_,
                     bool b_constraint_)
    : name(std::move(name_)),
      b_unique(b_unique_),
      b_primary(b_primary_),
      b_constraint(b_constraint_),
      fields(std::move(fields_)) {
  LOG(1, "udb_index::ctor('%s',%d,%d)", name, b_unique, b_primary);
}

bool udb_index::starts_with_fields(const std::vector<std::wstring>& that) const {
  LOG(1, "udb_index(%s)::starts_with_fields", name);
  LOG(1, "this.size=%d, that.size=%d", static_cast<int>(fields.size()), static_cast<int>(that.size()));
  if (that.size() > fields.size()) return false;
  for (std::size_t i = 0; i < that.size(); ++i) {
    if (!tk_equal_no_case(fields[i], that[i])) {
      LOG(1, "Field '%s' not found", that[i]);
      return false;
    }
  }
  LOG(1, "starts_with_fields returns true");
  return true;
}

// --- udb_indexes -----------------------------------------------------------------

const udb_index* udb_indexes::find(const std::wstring& name) const {
  for (const udb_index& index : list_) {
    if (tk_equal_no_case(index.name, name)) return &index;
  }
  return nullptr;
}

udb_index* udb_indexes::find(const std::wstring& name) {
  return const_cast<udb_index*>(std::as_const(*this).find(name));
}

udb_index& udb_indexes::get_index(const std::wstring& name) {
  return const_cast<udb_index&>(std::as_const(*this).get_index(name));
}

const udb_index& udb_indexes::get_index(const std::wstring& name) const {
  LOG(1, "udb_indexes::get_index(%s)", name);
  const udb_index* index = find(name);
  if (index == nullptr) throw tk_mail_assertion("udb_idx", __LINE__);
  return *index;
}

bool udb_indexes::is_acceptable_name(const std::wstring& name) const {
  LOG(1, "udb_indexes::is_acceptable_name(%s)", name);
  return find(name) == nullptr;
}

bool udb_indexes::is_idx_field(const std::wstring& field, bool b_primary_only) const {
  LOG(1, "udb_indexes::is_idx_field(%s)", field);
  for (const udb_index& index : list_) {
    if (b_primary_only && !index.b_primary) continue;
    for (const std::wstring& column : index.fields) {
      if (column == field) {
        LOG(1, "index field");
        return true;
      }
    }
  }
  LOG(1, "non-index field");
  return false;
}

bool udb_indexes::has_index_on_fields(const std::vector<std::wstring>& fields, bool b_unique_only) const {
  LOG(1, "udb_indexes::has_index_on_fields");
  for (const udb_index& index : list_) {
    if (index.starts_with_fields(fields)) return !b_unique_only || index.b_unique;
  }
  return false;
}

void udb_indexes::push_back(const udb_index& index) {
  LOG(2, "udb_indexes::push_back(%s)", index.name);
  udb_index* old = find(index.name);
  if (old == nullptr) {
    LOG(2, "Index does not exist, add it");
    list_.push_back(index);
    return;
  }
  if (old->b_primary) {
    LOG(2, "Primary key with the same name exists, skip it.");
    return;
  }
  if (index.b_primary) {
    LOG(2, "Upgrade existing index to primary key.");
    *old = index;
    return;
  }
  if (old->b_constraint) {
    LOG(2, "Unique constraint with the same name exists, skip it.");
    return;
  }
  if (index.b_constraint) {
    // The walk goes on with the updated entry: a unique constraint is unique,
    // so the next test ends it.
    LOG(2, "Set unique constraint attributes for existing index.");
    *old = index;
  }
  if (old->b_unique) {
    LOG(2, "Unique index with the same name exists, skip it.");
    return;
  }
  if (index.b_unique) {
    LOG(2, "Set unique attribute for existing index.");
    *old = index;
  }
}

void udb_indexes::push_back_direct(const udb_index& index) {
  LOG(2, "udb_indexes::push_back_direct(%s)", index.name);
  if (find(index.name) != nullptr) {
    LOG(2, "Index with the same name exists");
    return;
  }
  list_.push_back(index);
}

udb_index& udb_indexes::operator[](std::size_t i) {
  if (i >= list_.size()) throw std::out_of_range("invalid vector subscript");
  return list_[i];
}

const udb_index& udb_indexes::operator[](std::size_t i) const {
  if (i >= list_.size()) throw std::out_of_range("invalid vector subscript");
  return list_[i];
}

}  // namespace qb
