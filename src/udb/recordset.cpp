#include "udb/recordset.h"

#include <utility>

#include "tk/exception.h"
#include "tk/log.h"
#include "udb/database.h"

namespace qb {

namespace {

constexpr const char* k_not_conform = "The structure of data source does not conform to the destination table.";

}  // namespace

udb_recordset::udb_recordset(udb_database* database, std::wstring name, std::wstring query, bool b_schema_owner)
    : query_(std::move(query)), name_(std::move(name)), schema_(b_schema_owner), database_(database) {
  LOG(1, "udb_recordset::ctor(%s)", name_);
}

udb_recordset::udb_recordset(udb_database* database, std::wstring name, bool b_schema_owner)
    : name_(std::move(name)), schema_(b_schema_owner), database_(database) {
  LOG(1, "udb_recordset::ctor(%s)", name_);
}

udb_recordset::udb_recordset(std::wstring name) : name_(std::move(name)) { LOG(1, "udb_recordset::ctor(default)"); }

udb_recordset::~udb_recordset() = default;

void udb_recordset::update2(const udb_key_list& /*key*/, udb_record& /*record*/) { LOG(2, "udb_recordset::update2"); }

void udb_recordset::update1(udb_record& /*record*/) { LOG(2, "udb_recordset::update1"); }

udb_write_counts udb_recordset::write_counts() const { return {}; }

udb_record* udb_recordset::get_item() { return nullptr; }

bool udb_recordset::is_eof() { return true; }

bool udb_recordset::is_query() { return !query_.empty(); }

void udb_recordset::move_to(std::int32_t position) { LOG(1, "udb_recordset::move_to(%d)", position); }

void udb_recordset::next() {}

void udb_recordset::prev() {}

void udb_recordset::reset() {}

void udb_recordset::delete_key_text(const std::wstring& /*key*/) {}

void udb_recordset::delete_key(const udb_key_list& /*key*/) {}

void udb_recordset::finish() {}

udb_key_list udb_recordset::get_key(const udb_schema& that, const udb_record& record) {
  LOG(2, "udb_recordset::get_key(that.size=%d)", static_cast<int>(that.size()));
  udb_key_list result;
  for (const udb_index& index : indexes_) {
    if (!index.b_primary) continue;
    for (const std::wstring& column : index.fields) {
      const udb_field* field = record.get_field(column);
      if (field == nullptr) {
        LOG(3, "Key field '%s' is not found in record", column);
        continue;
      }
      LOG(1, ">> Got key field: %s", column);
      result.push_back(static_cast<const ole_variant&>(*field));
    }
    break;  // a table has one primary key
  }
  LOG(2, "Just before exit: result.size=%d", static_cast<int>(result.size()));
  return result;
}

bool udb_recordset::add_index(const udb_index& index) {
  LOG(2, "udb_recordset::add_index(%s, %d)", index.name, static_cast<int>(index.fields.size()));
  if (!indexes_.is_acceptable_name(index.name)) {
    LOG(2, "Index '%s' cannot be processed", index.name);
    return false;
  }
  indexes_.push_back_direct(index);
  return true;
}

void udb_recordset::convert_record(udb_record& record) const {
  LOG(1, "udb_recordset::convert_record(%s)", name_);
  // The field map of this table is looked up once; each field then costs one
  // tree lookup and, as a rule, one name comparison against the column at
  // the same position.
  const t_names_map* renames = database_ == nullptr ? nullptr : database_->names_map().find_fn_map(name_);
  for (std::size_t i = 0; i < record.size(); ++i) {
    udb_field& field = record[i];
    const std::wstring* target = renames == nullptr ? nullptr : renames->find(field.name);
    const int column = schema_.index_of(target == nullptr ? field.name : *target, i);
    if (column < 0) continue;  // not written to this table; the value stays as it is
    const std::uint16_t vartype = schema_[static_cast<std::size_t>(column)].vartype;
    if (field.get_type() != vartype) field.change_type(vartype);
  }
}

std::wstring udb_recordset::get_filter_subquery(const std::wstring& text) const {
  LOG(2, "udb_recordset::get_filter_subquery(%s)", text);
  std::wstring result;
  std::size_t pos = 0;
  for (;;) {
    pos = text.find_first_not_of(L" \t\r\n", pos);
    if (pos == std::wstring::npos) break;
    if (text[pos] != L'<') throw tk_mail_assertion("udb_rs", __LINE__);
    LOG(1, "Open XML-tag at pos=%d", static_cast<int>(pos));
    const std::size_t tag_end = text.find(L'>', pos);
    if (tag_end == std::wstring::npos || tag_end == pos + 1 || text[pos + 1] == L'/') {
      throw tk_mail_assertion("udb_rs", __LINE__);
    }
    const std::wstring column = text.substr(pos + 1, tag_end - pos - 1);
    const std::wstring closing = L"</" + column + L">";
    const std::size_t close = text.find(closing, tag_end + 1);
    if (close == std::wstring::npos) throw tk_mail_assertion("udb_rs", __LINE__);
    LOG(1, "Close XML-tag at pos=%d", static_cast<int>(close));
    if (!schema_.find_field(column)) {
      LOG(2, "Field %s not found in the schema", column);
      throw tk_exception_ex::user_message(k_not_conform);
    }
    if (!result.empty()) result += L" and ";
    result += column;
    result += L'=';
    result.append(text, tag_end + 1, close - tag_end - 1);
    pos = close + closing.size();
  }
  return result;
}

}  // namespace qb
