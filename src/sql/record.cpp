#include "sql/record.h"

#include <string_view>

#include "sql/engine.h"
#include "sql/literal.h"
#include "tk/log.h"
#include "tk/strings.h"
#include "tk/utf.h"
#include "udb/names_map.h"

namespace qb {

namespace {

using vt = ole_variant;

bool blob_to_text() {
  const sql_engine* engine = sql_engine::try_instance();
  return engine != nullptr && engine->blob_to_text();
}

std::wstring field_name(const MYSQL_FIELD& field) {
  return tk_utf8_decode(std::string_view(field.name != nullptr ? field.name : "", field.name_length));
}

}  // namespace

// --- sql_field -------------------------------------------------------------------------------

sql_field::sql_field(std::wstring name_, const char* value, unsigned long length, std::uint32_t mysql_type,
                     std::uint32_t mysql_flags) {
  LOG(1, "sql_field::ctor1(%s,%d,%d)", name_, mysql_type, static_cast<std::uint32_t>(length));
  name = std::move(name_);
  size = static_cast<std::uint32_t>(length);
  static_cast<ole_variant&>(*this) = get_variant(value, length, mysql_type, mysql_flags);
}

sql_field::sql_field(std::wstring name_, const char* value, unsigned long length, std::uint16_t vartype) {
  LOG(1, "sql_field::ctor2(%s,%d,%d)", name_, vartype, static_cast<std::uint32_t>(length));
  name = std::move(name_);
  size = static_cast<std::uint32_t>(length);
  static_cast<ole_variant&>(*this) = read_typed(value, length, vartype);
}

sql_field::sql_field(std::wstring name_, std::span<const std::uint8_t> bytes) {
  LOG(1, "sql_field::ctor3(%s,%d,%d)", name_, vt::vt_bytes, static_cast<std::uint32_t>(bytes.size()));
  name = std::move(name_);
  size = static_cast<std::uint32_t>(bytes.size());
  static_cast<ole_variant&>(*this) = bytes.empty() ? ole_variant::make_empty_bytes() : ole_variant(bytes);
}

ole_variant sql_field::read_typed(const char* value, unsigned long length, std::uint16_t vartype) {
  if (value == nullptr) return ole_variant::make_null();
  const std::string_view text(value, length);
  if (vartype == vt::vt_bstr) return ole_variant(text);
  if (vt::is_binary_type(vartype)) {
    if (length == 0) return ole_variant::make_empty_bytes();
    return ole_variant(static_cast<std::size_t>(length), reinterpret_cast<const std::uint8_t*>(value));
  }
  if (vartype == vt::vt_bool) return ole_variant(length > 0 && value[0] != '\0');
  return ole_variant::from_string(text, vartype);
}

// --- sql_record ------------------------------------------------------------------------------

sql_record::sql_record(unsigned n_fields, const MYSQL_FIELD* fields, const unsigned long* lengths, MYSQL_ROW row) {
  fill1(n_fields, fields, lengths, row);
}

sql_record::sql_record(unsigned n_fields, const udb_schema& schema, const unsigned long* lengths, MYSQL_ROW row) {
  fill2(n_fields, schema, lengths, row);
}

void sql_record::fill1(unsigned n_fields, const MYSQL_FIELD* fields, const unsigned long* lengths, MYSQL_ROW row) {
  LOG(1, "sql_record::ctor1(n_fields=%d)", n_fields);
  const bool as_text = blob_to_text();
  LOG(1, "is_blob_to_text=%d", as_text ? 1 : 0);
  resize(n_fields);
  for (unsigned idx = 0; idx < n_fields; ++idx) {
    const MYSQL_FIELD& f = fields[idx];
    LOG(1, "field #%d has type %d", idx, static_cast<int>(f.type));
    const bool binary = (f.flags & BINARY_FLAG) != 0;
    LOG(1, "BINARY FLAG=%d", binary ? 1 : 0);
    const char* cell = row != nullptr ? row[idx] : nullptr;
    const unsigned long length = lengths != nullptr ? lengths[idx] : 0;
    if (!binary || as_text) {
      LOG(1, "Extract as Unicode (text data)");
      LOG(1, "a_src[idx]=%s", std::string_view(cell != nullptr ? cell : "", cell != nullptr ? length : 0));
    } else {
      LOG(1, "Extract as ANSI (binary data)");
    }
    (*this)[idx] = sql_field(field_name(f), cell, length, static_cast<std::uint32_t>(f.type), f.flags);
  }
}

void sql_record::fill2(unsigned n_fields, const udb_schema& schema, const unsigned long* lengths, MYSQL_ROW row) {
  LOG(1, "sql_record::ctor2(n_fields=%d)", n_fields);
  LOG(1, "schema.size=%d", static_cast<int>(schema.size()));
  resize(n_fields);
  for (unsigned idx = 0; idx < n_fields; ++idx) {
    const char* cell = row != nullptr ? row[idx] : nullptr;
    const unsigned long length = lengths != nullptr ? lengths[idx] : 0;
    udb_field& target = (*this)[idx];
    if (idx >= schema.size()) {
      target = sql_field(std::wstring(), cell, length, vt::vt_bstr);
      continue;
    }
    const t_ftd& column = schema[idx];
    // The field keeps its name's storage from the row before.
    if (target.name != column.name) target.name = column.name;
    target.size = static_cast<std::uint32_t>(length);
    static_cast<ole_variant&>(target) = sql_field::read_typed(cell, length, column.vartype);
    target.b_auto_num = column.b_auto_num;
    target.b_not_null = column.b_not_null;
  }
}

// --- sql_field_finder ------------------------------------------------------------------------

sql_field_finder::sql_field_finder(const udb_record& record) { initialize(record); }

sql_field_finder::~sql_field_finder() = default;

void sql_field_finder::initialize(const udb_record& record) {
  LOG(1, "sql_field_finder::initialize");
  validator_ = sql_engine::instance().create_fn_validator(record);
  names_.reserve(record.size());
  for (const udb_field& field : record) {
    std::wstring name = field.name;
    if (!validator_->is_acceptable(name)) {
      std::wstring safe = validator_->get_safe_name(name);
      LOG(1, "GOT SAFE NAME: %s->%s", name, safe);
      validator_->add_existing_name(safe);
      name = std::move(safe);
    }
    // Used, as at table creation: a later field of the same name (in any
    // letter case) is refused and gets a safe name of its own.
    validator_->add_restricted_name(name);
    names_.push_back(std::move(name));
  }
}

int sql_field_finder::get_field_idx(const std::wstring& name) const {
  LOG(1, "sql_field_finder::get_field_idx(%s)", name);
  for (std::size_t i = 0; i < names_.size(); ++i) {
    if (names_[i] == name) return static_cast<int>(i);
  }
  for (std::size_t i = 0; i < names_.size(); ++i) {
    if (udb_equal_names(names_[i], name)) return static_cast<int>(i);
  }
  return -1;
}

}  // namespace qb
