#include "mss/table.h"

#include <algorithm>
#include <array>
#include <utility>

#include "mss/command.h"
#include "mss/engine.h"
#include "mss/table_names.h"
#include "ole/date.h"
#include "tk/exception.h"
#include "tk/format.h"
#include "tk/log.h"
#include "tk/strings.h"

namespace qb {

namespace {

// Flag bits of get_table that together skip the indexes.
constexpr std::uint32_t skip_indexes_flags = 0x20 | 0x40;

// SQL Server 7.0 and 2000 have no sys schema: their columns, defaults and
// identities are read from the system tables.
bool is_old_server(int version) { return version == mss_version_7 || version == mss_version_2000; }

constexpr std::wstring_view columns_statement =
    L"SELECT SC.name, t.name as type_name, SD.definition, SC.precision, SC.scale FROM sys.tables ST INNER JOIN "
    L"sys.columns SC ON ST.object_id = SC.object_id INNER JOIN sys.types t ON t.user_type_id = SC.user_type_id "
    L"LEFT JOIN sys.default_constraints SD ON ST.object_id = SD.parent_object_id AND SC.column_id = "
    L"SD.parent_column_id WHERE ST.name='";

// The same five columns from the system tables of SQL Server 2000, and the
// column's status, whose bit 0x80 marks the identity column.
constexpr std::wstring_view old_columns_statement =
    L"SELECT c.name, t.name as type_name, m.text, c.xprec, c.xscale, c.status FROM dbo.sysobjects o INNER JOIN "
    L"dbo.syscolumns c ON c.id = o.id INNER JOIN dbo.systypes t ON t.xusertype = c.xusertype LEFT JOIN "
    L"dbo.syscomments m ON m.id = c.cdefault WHERE o.xtype = 'U' AND o.name='";
constexpr std::int64_t old_status_identity = 0x80;

constexpr std::wstring_view identity_statement =
    L"SELECT NAME AS COLUMNNAME,CAST(LAST_VALUE AS INT),CAST(INCREMENT_VALUE AS INT) FROM SYS.IDENTITY_COLUMNS "
    L"WHERE OBJECT_NAME(OBJECT_ID)='";

constexpr const wchar_t* included_with_owner =
    L"SELECT col.name FROM sys.indexes ind INNER JOIN      sys.index_columns ic ON  ind.object_id = ic.object_id "
    L"and ind.index_id = ic.index_id INNER JOIN      sys.columns col ON ic.object_id = col.object_id and "
    L"ic.column_id = col.column_id INNER JOIN      sys.tables t ON ind.object_id = t.object_id INNER JOIN      "
    L"sys.schemas sch ON t.schema_id = sch.schema_id WHERE      ic.is_included_column=1 AND sch.name='%s' AND "
    L"t.name='%s' AND ind.name='%s'";
constexpr const wchar_t* included_without_owner =
    L"SELECT      col.name FROM sys.indexes ind INNER JOIN      sys.index_columns ic ON  ind.object_id = "
    L"ic.object_id and ind.index_id = ic.index_id INNER JOIN      sys.columns col ON ic.object_id = col.object_id "
    L"and ic.column_id = col.column_id INNER JOIN      sys.tables t ON ind.object_id = t.object_id WHERE      "
    L"ic.is_included_column=1 AND t.name='%s' AND ind.name='%s'";

constexpr const wchar_t* azure_indexes_with_owner =
    L"SELECT      ind.name, col.name, ind.is_primary_key, ind.is_unique FROM      sys.indexes ind INNER JOIN      "
    L"sys.index_columns ic ON  ind.object_id = ic.object_id and ind.index_id = ic.index_id INNER JOIN      "
    L"sys.columns col ON ic.object_id = col.object_id and ic.column_id = col.column_id INNER JOIN      sys.tables "
    L"t ON ind.object_id = t.object_id WHERE      SCHEMA_NAME(t.schema_id)='%s' AND t.name='%s' AND "
    L"t.is_ms_shipped=0 ORDER BY      t.name, ind.name, ind.index_id, ic.index_column_id";
constexpr const wchar_t* azure_indexes_without_owner =
    L"SELECT      ind.name, col.name, ind.is_primary_key, ind.is_unique FROM      sys.indexes ind INNER JOIN      "
    L"sys.index_columns ic ON  ind.object_id = ic.object_id and ind.index_id = ic.index_id INNER JOIN      "
    L"sys.columns col ON ic.object_id = col.object_id and ic.column_id = col.column_id INNER JOIN      sys.tables "
    L"t ON ind.object_id = t.object_id WHERE      t.name = '%s' AND t.is_ms_shipped = 0 ORDER BY      t.name, "
    L"ind.name, ind.index_id, ic.index_column_id";

constexpr std::wstring_view azure_foreign_keys_head =
    L"SELECT       obj.name, col1.name, tab2.name, col2.name,      fks.delete_referential_action_desc, "
    L"fks.update_referential_action_desc FROM      sys.foreign_keys fks INNER JOIN sys.foreign_key_columns fkc   "
    L"   ON fks.object_id = fkc.constraint_object_id INNER JOIN sys.objects obj     ON obj.object_id = "
    L"fkc.constraint_object_id INNER JOIN sys.tables tab1     ON tab1.object_id = fkc.parent_object_id INNER JOIN "
    L"sys.columns col1     ON col1.column_id = parent_column_id AND col1.object_id = tab1.object_id INNER JOIN "
    L"sys.tables tab2     ON tab2.object_id = fkc.referenced_object_id INNER JOIN sys.columns col2     ON "
    L"col2.column_id = referenced_column_id AND col2.object_id = tab2.object_id WHERE      ";
constexpr const wchar_t* azure_foreign_keys_with_owner =
    L"SCHEMA_NAME(tab1.schema_id)='%s' AND tab1.name = '%s' ORDER BY obj.name";
constexpr const wchar_t* azure_foreign_keys_without_owner = L"tab1.name = '%s' ORDER BY obj.name";

// The rule SQL Server applies when a foreign key names none.
constexpr std::wstring_view default_rule = L"NO ACTION";

// The date functions that a date column's default may call; the target
// renders them as its own function.
constexpr std::array<std::wstring_view, 4> date_functions = {L"now()", L"getdate()", L"getutcdate()",
                                                              L"sysdatetimeoffset()"};

bool ends_with_identity(const std::wstring& type) {
  constexpr std::wstring_view word = L"identity";
  return type.size() >= word.size() && std::wstring_view(type).substr(type.size() - word.size()) == word;
}

// Takes quotes off a text wrapped in them, also behind an N prefix ("'x'",
// "N'x'"); the empty texts "''" and "N''" become empty.
bool unquote(std::wstring& text) {
  if (text.size() >= 2 && text.front() == L'\'' && text.back() == L'\'') {
    text = text.substr(1, text.size() - 2);
    return true;
  }
  if (text.size() >= 3 && (text[0] == L'N' || text[0] == L'n') && text[1] == L'\'' && text.back() == L'\'') {
    text = text.substr(2, text.size() - 3);
    return true;
  }
  return false;
}

bool is_numeric_tag(std::uint16_t type) { return ole_variant::is_numeric_type(type) || type == ole_variant::vt_bool; }

bool is_digit(wchar_t c) { return c >= L'0' && c <= L'9'; }

// A plain number: a sign, digits with at most one point, an exponent. The
// value types read numbers leniently (as the C library does: "abs(1)" reads
// 0), so a default that is an expression is caught here rather than carried
// as a wrong number.
bool is_number_text(std::wstring_view text) {
  std::size_t i = 0;
  const std::size_t n = text.size();
  while (i < n && text[i] == L' ') ++i;
  if (i < n && (text[i] == L'+' || text[i] == L'-')) ++i;
  std::size_t digits = 0;
  while (i < n && is_digit(text[i])) ++i, ++digits;
  if (i < n && text[i] == L'.') {
    ++i;
    while (i < n && is_digit(text[i])) ++i, ++digits;
  }
  if (digits == 0) return false;
  if (i < n && (text[i] == L'e' || text[i] == L'E')) {
    ++i;
    if (i < n && (text[i] == L'+' || text[i] == L'-')) ++i;
    const std::size_t start = i;
    while (i < n && is_digit(text[i])) ++i;
    if (i == start) return false;
  }
  while (i < n && text[i] == L' ') ++i;
  return i == n;
}

}  // namespace

// --- odb_table ---------------------------------------------------------------------

odb_table::odb_table(udb_database* database, odb_session_lease session, std::wstring name, std::wstring query)
    : odb_recordset(nullptr, std::move(name), database), session_(std::move(session)) {
  query_ = std::move(query);
  source_ = query_.empty() ? name_ : query_;
}

odb_table::~odb_table() {
  // The rowset is a statement of the leased session: it goes first.
  set_rowset(nullptr);
}

bool odb_table::is_eof() {
  LOG(1, "odb_table::is_eof(%d:%d)", position_, static_cast<int>(rec_cnt_));
  if (rec_cnt_ >= 0 && position_ >= rec_cnt_) return true;
  return odb_recordset::is_eof();
}

void odb_table::reset() {
  LOG(2, "odb_table::reset()");
  if (!has_rowset()) {
    open_rowset(is_query_source() ? query_ : L"SELECT * FROM " + source_, false);
  }
  odb_recordset::reset();
}

std::int64_t odb_table::get_records_cnt() {
  LOG(2, "odb_table::get_records_cnt");
  const std::wstring text = is_query_source() ? L"SELECT COUNT(*) FROM (" + query_ + L") as query"
                                              : L"SELECT COUNT(*) FROM " + source_;
  const std::vector<odb_text_row> rows = odb_query_rows(session(), text);
  rec_cnt_ = rows.empty() ? 0 : odb_row_int(rows.front(), 1);
  rec_count_ = static_cast<std::uint64_t>(std::max<std::int64_t>(rec_cnt_, 0));
  return rec_cnt_;
}

void odb_table::internal_initialize(bool read_only) {
  LOG(2, "odb_table::internal_initialize(%d)", read_only ? 1 : 0);
  if (read_only) LOG(2, "Open rowset in read_only mode");
  open_rowset(is_query_source() ? query_ : L"SELECT * FROM " + source_, true);
}

void odb_table::open_rowset(const std::wstring& text, bool reset_schema) {
  set_rowset(nullptr);  // the session keeps one pending result
  odb_command command(session());
  set_rowset(command.execute_rowset(text));
  initialize(reset_schema);
}

// --- mss_table ---------------------------------------------------------------------

mss_table::mss_table(udb_database* database, odb_session_lease session, std::wstring name, std::wstring query,
                     std::uint32_t flags, udb_relationships& relationships, int version)
    : odb_table(database, std::move(session), std::move(name), std::move(query)),
      relationships_(relationships),
      version_(version) {
  LOG(2, "mss_table::ctor1(%s)", name_);
  if (!is_query_source()) {
    split_tab_name();
    read_columns();
    read_identity();
    read_indexes(flags);
  }
  get_records_cnt();
  internal_initialize(true);
  init_schema();
  if (!identity_column_.empty()) {
    const int i = schema_.get_field_idx(identity_column_);
    if (i >= 0) schema_[static_cast<std::size_t>(i)].b_auto_num = true;
  }
  for (std::size_t i = 0; i < schema_.size(); ++i) {
    if (!schema_[i].b_auto_num) continue;
    LOG(2, "Auto-increment found: field #%d", static_cast<int>(i));
    b_identity_ = true;
  }
  sync_field_flags();
}

void mss_table::split_tab_name() {
  LOG(2, "mss_table::split_tab_name");
  mss_split_tab_name(source_, table_, owner_);
}

std::wstring mss_table::composed(const std::wstring& owner, const std::wstring& table) const {
  return owner.empty() ? table : owner + L"." + table;
}

void mss_table::read_columns() {
  LOG(2, "mss_table::init_schema");
  const bool old = is_old_server(version_);
  std::wstring statement(old ? old_columns_statement : columns_statement);
  statement += mss_literal_text(table_) + L"'";
  if (!owner_.empty()) {
    statement += old ? L" AND USER_NAME(o.uid)='" : L" and SCHEMA_NAME(ST.schema_id)='";
    statement += mss_literal_text(owner_) + L"'";
  }
  LOG(3, "query=%s", statement);
  for (const odb_text_row& row : odb_query_rows(session(), statement)) {
    catalog_column c;
    c.name = odb_row_text(row, 1);
    c.type = odb_row_text(row, 2);
    c.default_text = row.size() > 2 ? row[2] : std::nullopt;
    c.precision = odb_row_int(row, 4);
    c.scale = odb_row_int(row, 5);
    c.identity = old && (odb_row_int(row, 6) & old_status_identity) != 0;
    catalog_columns_.push_back(std::move(c));
  }
}

void mss_table::init_schema() {
  if (schema_.empty()) return;
  for (const catalog_column& c : catalog_columns_) {
    LOG(2, "Got field name/type: %s/%s", c.name, c.type);
    const int i = schema_.get_field_idx(c.name);
    if (i < 0) {
      LOG(2, "Field '%s' is not in the rowset", c.name);
      continue;
    }
    t_ftd& field = schema_[static_cast<std::size_t>(i)];
    if (c.default_text && !c.default_text->empty()) {
      LOG(2, "Got default string: %s", *c.default_text);
      apply_default(field, *c.default_text);
    }
    field.b_auto_num = ends_with_identity(c.type) || c.identity;
    if (tk_equal_no_case(c.type, L"datetimeoffset")) {
      LOG(2, "Got datetimeoffset");
      field.dw_reserved |= 16;
    }
    if (field.vartype == ole_variant::vt_decimal) {
      field.prec = static_cast<std::uint32_t>(std::max<std::int64_t>(c.precision, 0));
      field.scale = static_cast<std::uint32_t>(std::max<std::int64_t>(c.scale, 0));
      LOG(2, ">>(prec/scale)=%d/%d", field.prec, field.scale);
    }
  }
}

void mss_table::apply_default(t_ftd& field, const std::wstring& text) {
  ole_variant value;
  try {
    value = get_def_value(field.vartype, text);
  } catch (const std::exception& e) {
    // A default the column's type cannot take (an expression, a sequence):
    // the column is carried without it.
    LOG(2, "Def.value '%s' cannot be carried, it is dropped: %s", text, e.what());
    return;
  }
  if (value.is_empty()) {
    LOG(2, "Def.value '%s' is no date the column can take, it is dropped", text);
    return;
  }
  LOG(2, "Got default variant: %s", value.to_wstring());
  if (field.vartype == ole_variant::vt_bstr && value.get_type() == ole_variant::vt_bstr && field.size > 0 &&
      value.text_view().size() > field.size) {
    LOG(2, "Def.value '%s' is out of range", value.text_view());
    return;
  }
  const std::uint16_t tag = value.get_type();
  field.def_value = std::move(value);
  if (field.vartype == ole_variant::vt_date && (tag == ole_variant::vt_bstr || tag == ole_variant::vt_lpwstr)) {
    LOG(2, "Tuning for DATE functions as def.values");
    field.dw_reserved = 9;
  }
}

ole_variant mss_table::get_def_value(std::uint16_t type, const std::wstring& text) {
  LOG(2, "mss_table::get_def_value(type=0x%08X, src='%s')", static_cast<unsigned>(type), text);
  std::size_t k = 0;
  while (k < text.size() && text[k] == L'(') ++k;
  LOG(2, "Before removing round brackets, pos0=%d, size=%d", static_cast<int>(k), static_cast<int>(text.size()));
  std::wstring buf = 2 * k <= text.size() ? text.substr(k, text.size() - 2 * k) : std::wstring();
  LOG(2, "mss_table::get_def_value - buf=[%s]", buf);

  const bool quoted = unquote(buf);
  if (!quoted && is_numeric_tag(type) && buf.size() >= 2 && buf.front() == L'(' && buf.back() == L')') {
    buf = buf.substr(1, buf.size() - 2);
  }
  if (type == ole_variant::vt_date) {
    for (const std::wstring_view function : date_functions) {
      if (!tk_equal_no_case(buf, function)) continue;
      LOG(2, "Special processing for now/get...date()");
      return ole_variant(buf);
    }
    const ole_date date(buf);
    return date.is_valid() ? ole_variant(date) : ole_variant();
  }
  tk_wstring::replace_all(buf, L"''", L"'");
  LOG(2, "Got string def.value: [%s]", buf);
  if (is_numeric_tag(type) && !is_number_text(buf)) {
    throw tk_exception(tk_format("The default '%s' is not a value of the column's type", buf), 0);
  }
  return ole_variant::from_wstring(buf, type);
}

void mss_table::read_identity() {
  try {
    std::wstring statement;
    if (is_old_server(version_)) {
      const std::wstring name = mss_literal_text(source_);
      statement = L"SELECT CAST(IDENT_CURRENT('" + name + L"') AS INT), CAST(IDENT_INCR('" + name + L"') AS INT)";
    } else {
      statement = std::wstring(identity_statement) + mss_literal_text(table_) + L"'";
      if (!owner_.empty()) statement += L" AND OBJECT_SCHEMA_NAME(OBJECT_ID)='" + mss_literal_text(owner_) + L"'";
    }
    const std::vector<odb_text_row> rows = odb_query_rows(session(), statement);
    if (rows.empty()) return;
    const odb_text_row& row = rows.front();
    if (is_old_server(version_)) {
      if (odb_row_null(row, 2)) return;  // no identity column
      identity_seed_ = static_cast<std::int32_t>(odb_row_int(row, 1));
      identity_increment_ = static_cast<std::int32_t>(odb_row_int(row, 2));
    } else {
      identity_column_ = odb_row_text(row, 1);
      identity_seed_ = static_cast<std::int32_t>(odb_row_int(row, 2));  // never used: NULL reads 0
      identity_increment_ = static_cast<std::int32_t>(odb_row_int(row, 3));
    }
    LOG(2, "Autoincrement: seed=%d, increment=%d", identity_seed_, identity_increment_);
  } catch (const tk_exception& e) {
    LOG(3, "Failed to exract auto_increment properties: %s", e.what());
  }
}

void mss_table::read_indexes(std::uint32_t flags) {
  if ((flags & skip_indexes_flags) == skip_indexes_flags) return;
  try {
    if (version_ == mss_version_azure) {
      LOG(2, "Alternate init_indexes for SQL Azure");
      init_indexes2(owner_, table_);
    } else {
      init_indexes(owner_, table_);
    }
  } catch (const tk_exception& e) {
    LOG(3, "Error while init_indexes: %s", e.what());
  }
}

void mss_table::init_indexes(const std::wstring& owner, const std::wstring& table) {
  LOG(2, "mss_table::init_indexes(%s,%s)", owner, table);
  std::vector<udb_index> found;

  LOG(2, "Initializing primary key");
  const odb_pk_meta_data pk(session(), owner, table);
  std::wstring pk_name;
  int n = 0;
  for (const odb_text_row& row : pk.rows()) {
    if (found.empty()) {
      pk_name = odb_row_text(row, odb_pk_meta_data::col_pk_name);
      LOG(2, "Got pr.key: %s", pk_name);
      found.emplace_back(pk_name, true, true);
    }
    const std::wstring column = odb_row_text(row, odb_pk_meta_data::col_column);
    LOG(2, "Got pk column #%d: '%s'", ++n, column);
    found.front().fields.push_back(column);
  }
  if (found.empty()) LOG(2, "Primary key was NOT found");

  LOG(2, "Initializing foreign keys");
  const odb_fk_meta_data fks(session(), owner, table);
  for (const odb_text_row& row : fks.rows()) {
    const std::wstring fk_owner = odb_row_text(row, odb_fk_meta_data::col_fk_owner);
    add_foreign_key(odb_row_text(row, odb_fk_meta_data::col_fk_name),
                    composed(odb_row_text(row, odb_fk_meta_data::col_pk_owner),
                             odb_row_text(row, odb_fk_meta_data::col_pk_table)),
                    fk_owner, composed(fk_owner, odb_row_text(row, odb_fk_meta_data::col_fk_table)),
                    odb_row_text(row, odb_fk_meta_data::col_pk_column),
                    odb_row_text(row, odb_fk_meta_data::col_fk_column),
                    odb_fk_meta_data::rule_text(odb_row_int(row, odb_fk_meta_data::col_update_rule)),
                    odb_fk_meta_data::rule_text(odb_row_int(row, odb_fk_meta_data::col_delete_rule)));
  }

  LOG(2, "Initializing other indexes");
  const odb_id_meta_data ids(session(), owner, table);
  udb_indexes others;
  for (const odb_text_row& row : ids.rows()) {
    if (odb_row_int(row, odb_id_meta_data::col_type) == SQL_TABLE_STAT ||
        odb_row_null(row, odb_id_meta_data::col_index_name)) {
      continue;  // a row about the table, not an index
    }
    const std::wstring name = odb_row_text(row, odb_id_meta_data::col_index_name);
    const bool unique = odb_row_int(row, odb_id_meta_data::col_non_unique) == 0;
    const bool primary = !pk_name.empty() && name == pk_name;
    LOG(2, "Got index: %s (%d,%d)", name, unique ? 1 : 0, primary ? 1 : 0);
    if (primary) {
      LOG(2, "Skip Primary Key DoubleInitialization");
      continue;
    }
    if (others.is_acceptable_name(name)) others.push_back_direct(udb_index(name, unique, false));
    const std::wstring column = odb_row_text(row, odb_id_meta_data::col_column);
    LOG(2, "Add idx.column: '%s'", column);
    others.get_index(name).fields.push_back(column);
  }
  for (udb_index& index : others) found.push_back(std::move(index));

  read_included_columns(found);
  copy_indexes(found);
}

void mss_table::read_included_columns(std::vector<udb_index>& indexes) {
  if (is_old_server(version_)) {
    LOG(2, "Included columns came with SQL Server 2005: none to read");
    return;
  }
  for (udb_index& index : indexes) {
    if (index.b_primary) continue;
    const std::wstring query =
        owner_.empty() ? tk_wformat(included_without_owner, mss_literal_text(table_), mss_literal_text(index.name))
                       : tk_wformat(included_with_owner, mss_literal_text(owner_), mss_literal_text(table_),
                                    mss_literal_text(index.name));
    LOG(2, "list_inc_idx_col_qry=%s", query);
    for (const odb_text_row& row : odb_query_rows(session(), query)) {
      const std::wstring column = odb_row_text(row, 1);
      LOG(2, "Got included column for index '%s': '%s'", index.name, column);
      index.included.push_back(column);
      std::erase_if(index.fields, [&](const std::wstring& f) { return f == column; });
    }
  }
}

void mss_table::copy_indexes(std::vector<udb_index>& indexes) {
  LOG(2, "Right before copying indexes (size=%d)", static_cast<int>(indexes.size()));
  for (const udb_index& index : indexes) indexes_.push_back(index);
}

void mss_table::init_indexes2(const std::wstring& owner, const std::wstring& table) {
  LOG(2, "odb_table::init_indexes2(%s,%s)", owner, table);
  const std::wstring index_query =
      owner.empty() ? tk_wformat(azure_indexes_without_owner, mss_literal_text(table))
                    : tk_wformat(azure_indexes_with_owner, mss_literal_text(owner), mss_literal_text(table));
  LOG(2, "Index query: %s", index_query);
  udb_indexes found;
  for (const odb_text_row& row : odb_query_rows(session(), index_query)) {
    const std::wstring name = odb_row_text(row, 1);
    if (found.is_acceptable_name(name)) {
      LOG(2, "Got index: %s", name);
      const bool primary = odb_row_int(row, 3) != 0;
      found.push_back_direct(udb_index(name, primary || odb_row_int(row, 4) != 0, primary));
    }
    found.get_index(name).fields.push_back(odb_row_text(row, 2));
  }

  std::wstring fk_query(azure_foreign_keys_head);
  fk_query += owner.empty() ? tk_wformat(azure_foreign_keys_without_owner, mss_literal_text(table))
                            : tk_wformat(azure_foreign_keys_with_owner, mss_literal_text(owner),
                                         mss_literal_text(table));
  LOG(2, "FK query: %s", fk_query);
  for (const odb_text_row& row : odb_query_rows(session(), fk_query)) {
    const std::wstring name = odb_row_text(row, 1);
    LOG(2, "GOT FOREIGN KEY: %s", name);
    std::wstring delete_rule = odb_row_text(row, 5);
    std::wstring update_rule = odb_row_text(row, 6);
    std::replace(delete_rule.begin(), delete_rule.end(), L'_', L' ');
    std::replace(update_rule.begin(), update_rule.end(), L'_', L' ');
    add_foreign_key(name, composed(parent_schema(name, owner), odb_row_text(row, 3)), owner, composed(owner, table),
                    odb_row_text(row, 4), odb_row_text(row, 2), update_rule, delete_rule);
  }
  // The statement lists included columns among the keys; they are told
  // apart as on the other servers, so that no index grows by long columns.
  std::vector<udb_index> list(found.begin(), found.end());
  read_included_columns(list);
  copy_indexes(list);
}

std::wstring mss_table::parent_schema(const std::wstring& key, const std::wstring& owner) {
  // The foreign-key statement names the parent table without its schema,
  // which need not be this table's: the key's own row tells it.
  if (owner.empty()) return owner;
  const auto known = parent_schemas_.find(key);
  if (known != parent_schemas_.end()) return known->second;
  std::wstring schema = owner;
  try {
    const std::vector<odb_text_row> rows = odb_query_rows(
        session(), L"SELECT OBJECT_SCHEMA_NAME(fk.referenced_object_id) FROM sys.foreign_keys fk WHERE fk.name = N'" +
                       mss_literal_text(key) + L"' AND fk.parent_object_id = OBJECT_ID(N'" +
                       mss_literal_text(source_) + L"')");
    if (!rows.empty() && !odb_row_null(rows.front(), 1)) schema = odb_row_text(rows.front(), 1);
  } catch (const odb_exception& e) {
    LOG(2, "The schema of the parent table is taken to be '%s':\n%s", owner, e.what());
  }
  LOG(2, "Parent table of %s in schema %s", key, schema);
  parent_schemas_[key] = schema;
  return schema;
}

void mss_table::add_foreign_key(const std::wstring& name, const std::wstring& pk_table, const std::wstring& fk_owner,
                                const std::wstring& fk_table, const std::wstring& pk_column,
                                const std::wstring& fk_column, const std::wstring& update_rule,
                                const std::wstring& delete_rule) {
  LOG(2, "fk_name=%s, pk_table=%s, fk_table=%s", name, pk_table, fk_table);
  if (relationships_.find(name, pk_table, fk_table)) {
    LOG(2, "GOT EXISTING FOREIGN KEY: %s", name);
    udb_rel& rel = relationships_.get(name, pk_table, fk_table);
    for (std::size_t i = 0; i < rel.fk_fields.size() && i < rel.pk_fields.size(); ++i) {
      if (tk_equal_no_case(rel.fk_fields[i], fk_column) && tk_equal_no_case(rel.pk_fields[i], pk_column)) {
        LOG(2, "Column %s->%s already exists in FK, skip it", fk_column, pk_column);
        return;
      }
    }
    LOG(2, "Add FK column (2): %s->%s", fk_column, pk_column);
    rel.fk_fields.push_back(fk_column);
    rel.pk_fields.push_back(pk_column);
    return;
  }
  LOG(2, "GOT NEW FOREIGN KEY: %s", name);
  LOG(2, "Add FK column (1): %s->%s", fk_column, pk_column);
  LOG(2, "update rule=%s, delete_rule=%s", update_rule, delete_rule);
  std::wstring properties;
  if (!update_rule.empty() && !tk_equal_no_case(update_rule, default_rule)) properties += L" ON UPDATE " + update_rule;
  if (!delete_rule.empty() && !tk_equal_no_case(delete_rule, default_rule)) properties += L" ON DELETE " + delete_rule;
  relationships_.push_back(udb_rel(name, fk_owner, fk_table, pk_table, {fk_column}, {pk_column}, properties));
}

void mss_table::refine_by_sql_query(const std::wstring& text) {
  LOG(3, "mss_table::refine_by_sql_query(%s)", text);
  open_rowset(text, false);
}

}  // namespace qb
