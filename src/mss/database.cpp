#include "mss/database.h"

#include <algorithm>
#include <utility>

#include "mss/catalog.h"
#include "mss/command.h"
#include "mss/engine.h"
#include "mss/table.h"
#include "mss/table_names.h"
#include "mss/view_cleaner.h"
#include "tk/exception.h"
#include "tk/log.h"
#include "tk/strings.h"

namespace qb {

namespace {

// Open-mode bit: view definitions are not read (the wizard's lists of tables
// and schemas).
constexpr std::uint32_t mode_no_views = 0x80;

constexpr std::wstring_view sequences_statement =
    L"SELECT CAST(name AS varchar), CAST(start_value AS int), CAST(increment AS int), CAST(minimum_value AS "
    L"bigint), CAST(maximum_value AS bigint), is_cycling FROM SYS.SEQUENCES";

std::int32_t cut_to_int(std::int64_t value) {
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(value, INT32_MIN, INT32_MAX));
}

}  // namespace

// --- odb_session_lease -------------------------------------------------------------

odb_session_lease::odb_session_lease(const odb_connection& session, bool* held) : session_(&session), held_(held) {
  if (held_ != nullptr) *held_ = true;
}

odb_session_lease::odb_session_lease(odb_connection own)
    : own_(std::make_unique<odb_connection>(std::move(own))), session_(own_.get()) {}

odb_session_lease::~odb_session_lease() { release(); }

odb_session_lease::odb_session_lease(odb_session_lease&& other) noexcept
    : own_(std::move(other.own_)), session_(other.session_), held_(other.held_) {
  other.session_ = nullptr;
  other.held_ = nullptr;
}

odb_session_lease& odb_session_lease::operator=(odb_session_lease&& other) noexcept {
  if (this != &other) {
    release();
    own_ = std::move(other.own_);
    session_ = other.session_;
    held_ = other.held_;
    other.session_ = nullptr;
    other.held_ = nullptr;
  }
  return *this;
}

const odb_connection& odb_session_lease::get() const {
  if (session_ == nullptr) throw tk_mail_assertion("odb_dbs", __LINE__);
  return *session_;
}

void odb_session_lease::release() noexcept {
  if (held_ != nullptr) *held_ = false;
  held_ = nullptr;
  session_ = nullptr;
  own_.reset();
}

// --- odb_database ------------------------------------------------------------------

odb_database::odb_database(std::wstring name, std::uint32_t mode, odb_connection session)
    : udb_database(std::move(name), mode), session_(std::move(session)) {}

odb_database::~odb_database() = default;

odb_session_lease odb_database::lease_session() {
  if (!session_held_) return {session_, &session_held_};
  LOG(2, "The session of database '%s' is in use; a connection of its own is opened", name_);
  return odb_session_lease(open_extra_session());
}

bool odb_database::delete_tab(const std::wstring& name) {
  LOG(2, "odb_database::delete_tab(%s)", name);
  // The source is read only: only the list forgets the table.
  return udb_database::delete_tab(name);
}

std::unique_ptr<udb_recordset> odb_database::query(const std::wstring& statement) {
  LOG(2, "odb_database::query(%s)", statement);
  auto result = std::make_unique<odb_table>(this, lease_session(), statement, statement);
  result->internal_initialize(true);
  if (result->n_cols() == 0) return nullptr;
  return result;
}

bool odb_database::test_query(const std::wstring& statement) {
  LOG(2, "odb_database::test_query(%s)", statement);
  try {
    const odb_session_lease lease = lease_session();
    odb_command command(lease.get());
    command.execute(statement);
    command.statement().close_cursor();
  } catch (const odb_exception& e) {
    LOG(2, "Query failed");
    LOG(2, "%s", e.what());
    return false;
  }
  LOG(2, "Query succeeded");
  return true;
}

// --- mss_database ------------------------------------------------------------------

mss_database::mss_database(mss_engine& engine, std::wstring name, std::wstring schema, odb_connection session,
                           std::uint32_t mode)
    : odb_database(std::move(name), mode, std::move(session)), engine_(engine), schema_(std::move(schema)) {
  LOG(2, "mss_database::ctor2(%s,%s)", name_, schema_);
  owner_ = schema_;
  const std::wstring table_schema = engine_.is_view_owned() && schema_.empty() ? std::wstring(L"dbo") : schema_;
  try {
    init_tables(table_schema);
  } catch (const odb_exception& e) {
    LOG(3, "Error while extracting tables:\n%s\n", e.what());
  }
  try {
    init_sequencies(schema_);
  } catch (const odb_exception& e) {
    LOG(3, "Error while extracting sequencies:\n%s\n", e.what());
  }
  if ((mode & mode_no_views) != 0) return;
  try {
    init_views(schema_);
  } catch (const odb_exception& e) {
    LOG(3, "Error while extracting views:\n%s\n", e.what());
  }
}

mss_database::~mss_database() = default;

odb_connection mss_database::open_extra_session() { return engine_.open_data_source(&name_); }

void mss_database::init_tables(const std::wstring& schema) {
  LOG(2, "mss_database::init_tables(%s)", schema);
  LOG(2, "mss_engine::ref().is_view_owned()=%d", engine_.is_view_owned() ? 1 : 0);
  try {
    const odb_tl_meta_data found(session(), schema);
    for (const odb_text_row& row : found.rows()) {
      const std::wstring owner = odb_row_text(row, odb_tl_meta_data::col_owner);
      const std::wstring table = odb_row_text(row, odb_tl_meta_data::col_name);
      LOG(2, "Got table (1): (name=%s, owner=%s)", table, owner);
      std::wstring stored = owner + L"." + table;
      LOG(2, "Stored as %s", stored);
      tables_.push_back(std::move(stored));
    }
  } catch (const odb_exception& e) {
    LOG(2, "The catalog function gave no tables:\n%s", e.what());
  }
  if (tables_.empty()) {
    LOG(2, "No tables were found! Trying another method.");
    init_tables_by_procedure(schema);
  }
  LOG(2, "Tables count: %d", static_cast<int>(tables_.size()));
  init_columns(schema);
}

void mss_database::init_tables_by_procedure(const std::wstring& schema) {
  std::wstring statement = L"exec sp_tables ";
  if (engine_.is_view_owned() && !tk_equal_no_case(schema, L"sa")) {
    statement += L"@table_owner='" + mss_literal_text(schema) + L"', ";
  }
  statement += L"@table_type=\"'TABLE'\"";
  for (const odb_text_row& row : odb_query_rows(session(), statement)) {
    const std::wstring owner = odb_row_text(row, 2);
    const std::wstring table = odb_row_text(row, 3);
    LOG(2, "Got table (2): (name=%s, owner=%s)", table, owner);
    tables_.push_back(engine_.is_view_owned() ? table : L"[" + owner + L"].[" + table + L"]");
  }
}

void mss_database::init_columns(const std::wstring& schema) {
  LOG(2, "mss_database::init_columns(%s)", schema);
  std::wstring statement = L"select TABLE_NAME, COLUMN_NAME, DATA_TYPE from INFORMATION_SCHEMA.COLUMNS where ";
  if (!schema.empty()) statement += L"TABLE_SCHEMA='" + mss_literal_text(schema) + L"' and ";
  statement += L"TABLE_NAME not in ('sysalternates','sysconstraints','syssegments')";
  for (const odb_text_row& row : odb_query_rows(session(), statement)) {
    const std::wstring table = odb_row_text(row, 1);
    const std::wstring column = odb_row_text(row, 2);
    const std::wstring type = odb_row_text(row, 3);
    LOG(1, "Database column (table, column, type): %s, %s, %s", table, column, type);
    column_types_[table][column] = type;
  }
}

void mss_database::init_sequencies(const std::wstring& schema) {
  LOG(2, "mss_database::init_sequencies(%s)", schema);
  for (const odb_text_row& row : odb_query_rows(session(), sequences_statement)) {
    sequences_.emplace_back(odb_row_text(row, 1), cut_to_int(odb_row_int(row, 2)), cut_to_int(odb_row_int(row, 3)),
                            cut_to_int(odb_row_int(row, 4)), cut_to_int(odb_row_int(row, 5)),
                            odb_row_int(row, 6) != 0 ? 1 : 0);
  }
}

void mss_database::init_views(const std::wstring& schema) {
  LOG(2, "mss_database::init_views(%s)", schema);
  for (const odb_text_row& row : odb_query_rows(session(), mss_views_query)) {
    mss_add_clean_view(views_, odb_row_text(row, 1), odb_row_text(row, 2), engine_.is_view_owned());
  }
}

std::unique_ptr<udb_recordset> mss_database::create_table(const std::wstring& name, const udb_schema& /*schema*/,
                                                          udb_indexes& /*indexes*/) {
  LOG(2, "mss_database::create_table(%s): the source is read only", name);
  throw tk_mail_assertion("mss_dbs", __LINE__);
}

void mss_database::empty_table(const std::wstring& name) {
  LOG(2, "mss_database::empty_table(%s): the source is read only", name);
  throw tk_mail_assertion("mss_dbs", __LINE__);
}

void mss_database::get_schema_info(std::vector<std::wstring>& names) {
  LOG(2, "mss_database::get_schema_info");
  names.clear();
  try {
    for (const odb_text_row& row :
         odb_query_rows(session(), L"SELECT name FROM " + name_ + L".sys.schemas where principal_id < 16384")) {
      names.push_back(odb_row_text(row, 1));
    }
  } catch (const odb_exception& e) {
    LOG(2, "No list of schemas:\n%s", e.what());
    names.assign(1, L"dbo");
  }
}

std::unique_ptr<mss_table> mss_database::make_table(const std::wstring& name, const std::wstring& select,
                                                    std::uint32_t flags) {
  return std::make_unique<mss_table>(this, lease_session(), name, select, flags, relationships_, engine_.version());
}

std::unique_ptr<udb_recordset> mss_database::get_table(const std::wstring& name, std::uint32_t flags) {
  LOG(2, "mss_database::get_table1(%s)", name);
  return amend_schema(make_table(engine_.get_safe_tname(name), std::wstring(), flags));
}

std::unique_ptr<mss_table> mss_database::get_table2(const std::wstring& name) {
  LOG(2, "mss_database::get_table2(%s)", name);
  return amend_schema(make_table(engine_.get_safe_tname(name), std::wstring(), 1));
}

std::unique_ptr<udb_recordset> mss_database::get_query(const std::wstring& name, const std::wstring& select,
                                                       std::uint32_t flags) {
  LOG(2, "mss_database::get_query(%s: %s)", name, select);
  return amend_schema(make_table(name, select, flags));
}

bool mss_database::is_table_exist(const std::wstring& name) {
  LOG(2, "mss_database::is_table_exist(%s)", name);
  if (name.empty()) return false;
  return udb_database::is_table_exist(mss_simplify_tab_name(name, L'.'));
}

std::unique_ptr<mss_table> mss_database::amend_schema(std::unique_ptr<mss_table> table) {
  LOG(2, "mss_database::amend_schema");
  // A query has no table of its own whose column types could be looked up.
  const std::map<std::wstring, std::wstring>* types = nullptr;
  if (!table->is_query_source()) {
    const auto it = column_types_.find(table->table());
    if (it != column_types_.end()) types = &it->second;
  }
  std::wstring list;
  bool spatial = false;
  for (t_ftd& field : table->schema()) {
    const std::wstring column = mss_bracket_name(field.name);
    std::wstring item = column;
    const std::wstring* native = nullptr;
    if (types != nullptr) {
      const auto it = types->find(field.name);
      if (it != types->end()) native = &it->second;
    }
    if (native != nullptr) {
      if (tk_equal_no_case(*native, L"date")) {
        LOG(2, "Refine date column '%s'", field.name);
        field.dw_reserved = 2;
        field.vartype = ole_variant::vt_date;
      } else if (tk_equal_no_case(*native, L"time")) {
        LOG(2, "Refine time column '%s'", field.name);
        field.dw_reserved = 3;
        field.vartype = ole_variant::vt_date;
      } else if (tk_equal_no_case(*native, L"geometry") || tk_equal_no_case(*native, L"geography")) {
        LOG(2, "Refine geometry/geography column '%s'", field.name);
        field.dw_reserved = tk_equal_no_case(*native, L"geometry") ? 2 : 8;
        field.vartype = ole_variant::vt_bstr;
        field.size = 0;
        item = column + L".STAsText() as " + column;
        spatial = true;
      }
    }
    if (!list.empty()) list += L", ";
    list += item;
  }
  if (spatial) table->refine_by_sql_query(L"SELECT " + list + L" FROM " + table->source());
  LOG(2, "mss_database::amend_schema - END");
  return table;
}

}  // namespace qb
