#include "sql/database.h"

#include <algorithm>

#include "sql/ddl.h"
#include "sql/engine.h"
#include "sql/exception.h"
#include "sql/recordset.h"
#include "sql/table.h"
#include "sql/view_converter.h"
#include "tk/error_handler.h"
#include "tk/exception.h"
#include "tk/log.h"
#include "tk/strings.h"
#include "tk/utf.h"
#include "udb/converter.h"
#include "udb/properties.h"

namespace qb {

namespace {

// Tables are listed with SHOW FULL TABLES from 5.0.1 on.
constexpr std::uint32_t full_tables_version = 0x050001;
// Foreign keys from 3.23.44 on.
constexpr std::uint32_t fk_version = 0x03172C;
// The mode that means append and nothing else.
constexpr std::uint32_t bare_append_mode = 8;

sql_engine& engine() { return sql_engine::instance(); }

// A text as an SQL string literal (quotes and backslashes escaped).
std::wstring string_literal(const std::wstring& text) {
  std::wstring out = L"'";
  for (wchar_t c : text) {
    if (c == L'\'' || c == L'\\') out += L'\\';
    out += c;
  }
  out += L'\'';
  return out;
}

// Hands a failure to the error handler with a context; without one it can
// only be logged. The user's Abort leaves as tk_final_exception.
void report(const tk_exception& e, const std::wstring& context) {
  if (error_handler* handler = error_handler::try_instance()) {
    handler->set_context(context);
    handler->handle(e, false);
    return;
  }
  LOG(3, "Error:\n%s", e.what());
}

}  // namespace

sql_database::sql_database(const std::wstring& name, MYSQL* connection, std::uint32_t mode)
    : udb_database(name, mode), connection_(connection) {
  LOG(2, "sql_database::sql_database(%s, mode=%d)", name, mode);
  init_tables();
  if ((mode & 0x80U) != 0) return;
  try {
    init_views();
  } catch (const tk_exception& e) {
    LOG(3, "Failed to initialize views:\n%s", e.what());
    views_.clear();
  }
}

sql_database::~sql_database() {
  LOG(2, "sql_database::dtor(%s)", name_);
  // A table object outliving its database (a misuse) must not be asked to
  // wait for its statement through a database that is gone.
  if (busy_table_ != nullptr) {
    try {
      busy_table_->drain();
    } catch (const std::exception& e) {
      LOG(3, "Database '%s': ERROR '%s'", name_, e.what());
    }
    busy_table_ = nullptr;
  }
}

void sql_database::drain() {
  if (busy_table_ != nullptr) busy_table_->drain();
}

// --- Lists ---------------------------------------------------------------------------------

void sql_database::init_tables() {
  LOG(2, "sql_database::init_tables");
  tables_.clear();
  if (engine().version() >= full_tables_version) {
    LOG(2, "Extracting tables in new way");
    std::unique_ptr<sql_list_tables_rs> list;
    try {
      list = std::make_unique<sql_list_tables_rs>(*this);
    } catch (const tk_exception&) {
      LOG(3, "Failed to create sql_list_tables_rs");
      throw;
    }
    for (; !list->is_eof(); list->next()) {
      std::wstring table = list->text(0);
      LOG(2, "Got table name: '%s'", table);
      tables_.push_back(std::move(table));
    }
    return;
  }
  LOG(2, "Extracting tables in old way");
  drain();
  sql_result_ptr result(mysql_list_tables(connection_, nullptr));
  if (result == nullptr) throw sql_exception(connection_, "mysql_list_tables");
  sql_tmp_recordset list(*this, std::move(result));
  for (; !list.is_eof(); list.next()) {
    std::wstring table = list.text(0);
    LOG(2, "Got table name: '%s'", table);
    tables_.push_back(std::move(table));
  }
}

void sql_database::init_views() {
  LOG(2, "sql_database::init_views");
  const sql_blob_to_text_scope text_scope(engine());
  views_.clear();
  sql_tmp_recordset list(
      *this, L"SELECT table_name, view_definition FROM information_schema.views WHERE table_schema=" +
                 string_literal(name_));
  for (; !list.is_eof(); list.next()) {
    std::wstring view = list.text(0);
    LOG(2, "Got query name: '%s'", view);
    std::wstring text = sql_view_converter::refine_view_out(list.text(1), name_);
    LOG(2, "Got query SQL: '%s'", text);
    views_.emplace_back(std::move(view), std::move(text));
  }
}

// --- Statements ----------------------------------------------------------------------------

sql_result_ptr sql_database::do_query2(const std::wstring& statement) { return do_query2(tk_utf8_encode(statement)); }

sql_result_ptr sql_database::do_query2(std::string_view statement) {
  LOG(2, "sql_database::do_query2(%s)", statement);
  drain();
  // The result is not tested here: the caller asks mysql_errno.
  if (mysql_real_query(connection_, statement.data(), static_cast<unsigned long>(statement.size())) != 0) {
    return nullptr;
  }
  return sql_result_ptr(mysql_use_result(connection_));
}

std::unique_ptr<udb_recordset> sql_database::query(const std::wstring& statement) {
  LOG(2, "sql_database::query(%s)", statement);
  const std::string text = tk_utf8_encode(statement);
  sql_result_ptr result = do_query2(text);
  if (mysql_errno(connection_) != 0) {
    LOG(3, "QUERY=%s", text);
    throw sql_exception(connection_, text);
  }
  if (result == nullptr) return nullptr;
  return std::make_unique<sql_tmp_recordset>(*this, std::move(result));
}

bool sql_database::query(const std::wstring& statement, sql_no_rows_t) {
  LOG(2, "sql_database::query(%s)", statement);
  try {
    drain();
  } catch (const std::exception& e) {
    LOG(3, "Database '%s': ERROR '%s'", name_, e.what());
    return false;
  }
  const std::string text = tk_utf8_encode(statement);
  const bool ok = mysql_real_query(connection_, text.data(), static_cast<unsigned long>(text.size())) == 0;
  // Rows the statement gives are read and dropped with the result.
  const sql_result_ptr result(mysql_use_result(connection_));
  return ok;
}

bool sql_database::test_query(const std::wstring& statement) { return query(statement, sql_no_rows); }

sql_statement_outcome sql_database::query_append(std::string_view statement) {
  LOG(1, "sql_database::query_append( q_len=%d)", static_cast<std::uint32_t>(statement.size()));
  LOG(1, "(%s)", statement);
  LOG(1, "sql_database::do_query1(%s)", statement);
  drain();
  if (mysql_real_query(connection_, statement.data(), static_cast<unsigned long>(statement.size())) != 0) {
    LOG(3, "QUERY=%s", statement);
    throw sql_exception(connection_, statement);
  }
  sql_statement_outcome outcome;
  outcome.affected_rows = mysql_affected_rows(connection_);
  outcome.warnings = mysql_warning_count(connection_);
  if (const char* info = mysql_info(connection_)) outcome.info = info;
  const sql_result_ptr result(mysql_use_result(connection_));
  return outcome;
}

sql_statement_outcome sql_database::prepared_statement(std::string_view text, int n_params,
                                                       const udb_record& record) {
  std::vector<const udb_field*> params;
  for (std::size_t i = 0; i < record.size(); ++i) {
    const udb_field& field = record[i];
    if (field.ole_variant::get_type() >= 2 && field.get_length() > max_field_size) {
      LOG(1, "Binding field #%d", static_cast<int>(i));
      params.push_back(&field);
    } else {
      LOG(1, "Field #%d is not supposed to be bound", static_cast<int>(i));
    }
  }
  if (static_cast<int>(params.size()) != n_params) {
    LOG(2, "prepared_statement: %d values to bind for %d placeholders", static_cast<int>(params.size()), n_params);
  }
  return prepared_statement(text, params);
}

sql_statement_outcome sql_database::prepared_statement(std::string_view text,
                                                       const std::vector<const udb_field*>& params) {
  LOG(1, "sql_database::prepared_statement(%s, %d)", text, static_cast<int>(params.size()));
  drain();
  const sql_stmt_ptr stmt(mysql_stmt_init(connection_));
  if (stmt == nullptr) throw sql_prep_stmt_failed_exception(nullptr, text);
  if (mysql_stmt_prepare(stmt.get(), text.data(), static_cast<unsigned long>(text.size())) != 0) {
    LOG(2, "mysql_stmt_prepare failed: error=%s", mysql_stmt_error(stmt.get()));
    throw sql_prep_stmt_failed_exception(stmt.get(), text);
  }
  std::vector<MYSQL_BIND> binds(params.size());
  std::vector<unsigned long> lengths(params.size(), 0);
  for (std::size_t k = 0; k < params.size(); ++k) {
    binds[k] = MYSQL_BIND{};
    binds[k].buffer_type = MYSQL_TYPE_BLOB;
    binds[k].buffer = nullptr;
    binds[k].length = &lengths[k];
  }
  if (!params.empty() && mysql_stmt_bind_param(stmt.get(), binds.data()) != 0) {
    LOG(2, "Binding failed: error=%s", mysql_stmt_error(stmt.get()));
    throw sql_prep_stmt_failed_exception(stmt.get(), text);
  }
  std::string piece;
  for (std::size_t k = 0; k < params.size(); ++k) {
    const udb_field& field = *params[k];
    LOG(1, "Reading field #%d (size=%d)", static_cast<int>(k), field.get_length());
    // Each value goes to its own placeholder, in placeholder order.
    const auto number = static_cast<unsigned>(k);
    const auto send = [&](const char* data, std::size_t size, std::size_t pos) {
      LOG(1, "prepared_statement: pos=%d, buf=%s", static_cast<std::uint32_t>(pos),
          std::string_view(data, std::min<std::size_t>(size, 64)));
      if (mysql_stmt_send_long_data(stmt.get(), number, data, static_cast<unsigned long>(size)) != 0) {
        LOG(2, "mysql_stmt_send_long_data failed (pos=%d, res=%d, error=%s)", static_cast<std::uint32_t>(pos), 1,
            mysql_stmt_error(stmt.get()));
        throw sql_prep_stmt_failed_exception(stmt.get(), text);
      }
    };
    if (field.ole_variant::get_type() == ole_variant::vt_bstr) {
      const std::wstring_view value = field.text_view();
      for (std::size_t pos = 0; pos < value.size(); pos += long_data_piece) {
        piece.clear();
        tk_utf8_append(piece, value.substr(pos, long_data_piece));
        send(piece.data(), piece.size(), pos);
      }
    } else {
      const auto bytes = field.bytes_view();
      for (std::size_t pos = 0; pos < bytes.size(); pos += long_data_piece) {
        const std::size_t count = std::min(long_data_piece, bytes.size() - pos);
        send(reinterpret_cast<const char*>(bytes.data() + pos), count, pos);
      }
    }
  }
  if (mysql_stmt_execute(stmt.get()) != 0) {
    LOG(3, "QUERY=%s", text);
    LOG(3, "mysql_stmt_execute failed: error=%s", mysql_stmt_error(stmt.get()));
    LOG(3, "row size=%d", static_cast<std::uint32_t>(text.size()));
    throw sql_prep_stmt_failed_exception(stmt.get(), text);
  }
  sql_statement_outcome outcome;
  outcome.affected_rows = mysql_stmt_affected_rows(stmt.get());
  outcome.warnings = mysql_warning_count(connection_);
  return outcome;
}

// --- Tables --------------------------------------------------------------------------------

std::wstring sql_database::table_engine(udb_properties* table_mutator) const {
  if (table_mutator != nullptr) {
    const auto& properties = table_mutator->get_properties();
    if (const auto it = properties.find(L"engine"); it != properties.end() && !it->second.empty()) return it->second;
  }
  if (engine().version() < sql_version_3_23_35) return L"MyISAM";
  return engine().storage_engine();
}

std::unique_ptr<udb_recordset> sql_database::create_table(const std::wstring& name, const udb_schema& schema,
                                                          udb_indexes& indexes) {
  LOG(2, "sql_database::create_table(%s)", name);
  if ((mode_ & udb_open_read_only) != 0) throw tk_mail_assertion("sql_db", __LINE__);
  if (is_table_exist(name)) return get_table(name, 8);

  std::wstring statement = L"CREATE TABLE " + sql_quote_name(name) + L" (";
  std::wstring auto_field;
  sql_schema_initializer columns(name, schema, indexes, auto_field);
  udb_properties* table_mutator = sql_table_mutator_for(names_map_, name);
  std::vector<std::wstring> chunks;
  columns.get_init_chunks(chunks, table_mutator);
  for (std::size_t i = 0; i < chunks.size(); ++i) {
    if (i > 0) statement += L", ";
    statement += chunks[i];
  }
  const std::wstring table_engine_text = table_engine(table_mutator);
  if (!indexes.empty() || !auto_field.empty()) {
    sql_indexes_initializer index_chunks(&columns.schema(), indexes, auto_field, &columns.names_map());
    index_chunks.set_table_engine(table_engine_text);
    std::vector<std::wstring> more;
    index_chunks.get_init_chunks(more);
    for (const std::wstring& chunk : more) statement += L", " + chunk;
  }
  statement += L")";
  if (table_mutator != nullptr) {
    const auto& properties = table_mutator->get_properties();
    if (const auto it = properties.find(L"character set"); it != properties.end() && !it->second.empty()) {
      statement += L" character set " + it->second;
    }
  }
  statement += engine().version() >= sql_version_4_0_23 ? L" ENGINE=" : L" TYPE=";
  statement += table_engine_text;
  LOG(2, "Run SQL-query: %s\n", statement);
  const std::string text = tk_utf8_encode(statement);
  drain();
  if (mysql_real_query(connection_, text.data(), static_cast<unsigned long>(text.size())) != 0) {
    LOG(3, "QUERY=%s", text);
    throw sql_exception(connection_, text);
  }
  tables_.push_back(name);
  LOG(2, "Step #1");
  names_map_.add_fn_map(name, columns.names_map());
  LOG(2, "Step #2");
  return get_table(name, 2);
}

std::unique_ptr<udb_recordset> sql_database::get_table(const std::wstring& name, std::uint32_t flags) {
  LOG(2, "sql_database::get_table(%s, %d)", name, flags);
  if (!is_table_exist(name)) {
    LOG(2, "Table '%s' does not exists", name);
    throw tk_mail_assertion("sql_db", __LINE__);
  }
  return std::make_unique<sql_table>(*this, name, flags);
}

std::unique_ptr<udb_recordset> sql_database::get_query(const std::wstring& name, const std::wstring& select,
                                                       std::uint32_t /*flags*/) {
  LOG(2, "sql_database::get_query(%s)", name);
  auto recordset = std::make_unique<sql_recordset>(*this, name, select);
  recordset->initialize();
  return recordset;
}

bool sql_database::delete_tab(const std::wstring& name) {
  LOG(2, "sql_database::delete_tab (%s)", name);
  if ((mode_ & udb_open_read_only) != 0) throw tk_mail_assertion("sql_db", __LINE__);
  if (!is_table_exist(name)) throw tk_mail_assertion("sql_db", __LINE__);
  const std::string text = tk_utf8_encode(L"DROP TABLE IF EXISTS " + sql_quote_name(name) + L" CASCADE");
  drain();
  if (mysql_real_query(connection_, text.data(), static_cast<unsigned long>(text.size())) != 0) {
    throw sql_exception(connection_, text);
  }
  return udb_database::delete_tab(name);
}

void sql_database::empty_table(const std::wstring& name) { udb_database::empty_table(sql_quote_name(name)); }

// --- Foreign keys ----------------------------------------------------------------------------

void sql_database::create_fk_index_if(const std::wstring& table, const std::vector<std::wstring>& fields) {
  LOG(2, "sql_database::create_fk_index_if(%s)", table);
  std::unique_ptr<udb_recordset> recordset = get_table(table, 0x61);
  if (recordset == nullptr) throw tk_mail_assertion("sql_db", __LINE__);
  std::vector<std::wstring> mapped;
  for (const std::wstring& field : fields) {
    const std::wstring name = names_map_.get_fn_mapped_name(table, field, false);
    LOG(1, "Got mapped name: %s", name);
    mapped.push_back(name);
  }
  LOG(1, "udb_indexes::has_index_on_fields");
  if (recordset->indexes().has_index_on_fields(mapped, false)) {
    LOG(2, "Index for table '%s' exists", table);
    return;
  }
  recordset.reset();
  LOG(2, "Index for table '%s' does NOT exist", table);
  std::wstring statement = L"ALTER TABLE " + sql_quote_name(table) + L" ADD INDEX (";
  for (std::size_t i = 0; i < mapped.size(); ++i) {
    if (i > 0) statement += L", ";
    statement += sql_quote_name(mapped[i]);
  }
  statement += L")";
  static_cast<void>(query(statement));
}

void sql_database::create_relationships(const udb_relationships& relationships) {
  LOG(2, "sql_database::create_relationships");
  LOG(3, "Converting foreign keys");
  if (engine().version() < fk_version) {
    LOG(3, "This version of MySQL doesn't support Foreign Keys");
    return;
  }
  if (mode_ == bare_append_mode) {
    LOG(3, "Foreign keys are not converted in append mode");
    return;
  }
  static_cast<void>(query(L"SET FOREIGN_KEY_CHECKS = 0"));
  const std::unique_ptr<udb_validator> validator = engine().create_in_validator(udb_indexes());
  for (const udb_rel& rel : relationships) {
    LOG(3, "Processing '%s'", rel.name);
    const std::wstring child = names_map_.get_tn_mapped_name(rel.fk_table, false);
    const std::wstring parent = names_map_.get_tn_mapped_name(rel.pk_table, false);
    LOG(2, "fk_table_name=%s", child);
    LOG(2, "pk_table_name=%s", parent);
    if (!is_table_exist(child) || !is_table_exist(parent)) continue;
    std::wstring name = rel.name;
    try {
      create_fk_index_if(child, rel.fk_fields);
      create_fk_index_if(parent, rel.pk_fields);
      if (!validator->is_acceptable(name)) {
        name = validator->get_safe_name(name);
        LOG(2, "Store generated index name '%s'", name);
        validator->add_existing_name(name);
      }
      validator->add_restricted_name(name);
      std::wstring statement = L"ALTER TABLE " + sql_quote_name(child) + L" ADD CONSTRAINT " + sql_quote_name(name) +
                               L" FOREIGN KEY(";
      for (std::size_t i = 0; i < rel.fk_fields.size(); ++i) {
        if (i > 0) statement += L", ";
        statement += sql_quote_name(names_map_.get_fn_mapped_name(child, rel.fk_fields[i], false));
      }
      statement += L") REFERENCES " + sql_quote_name(parent) + L"(";
      for (std::size_t i = 0; i < rel.pk_fields.size(); ++i) {
        if (i > 0) statement += L", ";
        statement += sql_quote_name(names_map_.get_fn_mapped_name(parent, rel.pk_fields[i], false));
      }
      statement += L")";
      if (!rel.properties.empty()) statement += L" " + rel.properties;
      LOG(3, "Foreign key query: '%s'", statement);
      static_cast<void>(query(statement));
    } catch (const sql_exception& e) {
      // One key the server refuses is that key's failure alone; the user may
      // go on with the next one or abort. A lost connection ends the work.
      if (e.connection_lost()) throw;
      LOG(3, "Foreign key '%s' was refused by MySQL: %s", name, e.what());
      report(e, L"Foreign key '" + name + L"'");
    }
  }
  static_cast<void>(query(L"SET FOREIGN_KEY_CHECKS = 1"));
}

// --- Views -----------------------------------------------------------------------------------

void sql_database::create_views(const udb_view_list& views) {
  LOG(2, "sql_database::create_views");
  std::vector<std::wstring> view_names;
  for (const udb_view& view : views_) view_names.push_back(view.first);
  const std::unique_ptr<udb_validator> validator = engine().create_tn_validator(tables_, view_names);
  for (const auto& [name, text] : views) {
    LOG(2, "Processing '%s'", name);
    LOG(1, "\t'%s'", text);
    if (!sql_view_converter::is_select_text(text)) {
      LOG(2, "Skip non-select query");
      ++view_counts_.skipped;
      continue;
    }
    std::wstring target = name;
    if (!validator->is_acceptable(name)) {
      target = validator->get_safe_name(name);
      LOG(2, "Store generated view name '%s'", target);
      add_tn_mapping(name, target);
    }
    validator->add_existing_name(target);
    const std::wstring refined = sql_view_converter::refine_view_in(sql_view_destination::server, text, names_map_);
    const std::wstring statement = sql_view_converter::create_view_statement(sql_quote_name(target), refined);
    try {
      static_cast<void>(query(statement));
      ++view_counts_.created;
      LOG(3, "View '%s' was created", target);
    } catch (const tk_exception& e) {
      ++view_counts_.failed;
      LOG(2, "Error while creating view:\n%s\n", e.what());
      LOG(3, "View '%s' was refused by MySQL: %s", target, e.what());
      const auto* server = dynamic_cast<const sql_exception*>(&e);
      if (server != nullptr && server->connection_lost()) throw;
      report(e, L"View '" + name + L"'");
    }
  }
}

udb_view_counts sql_database::view_counts() const { return view_counts_; }

}  // namespace qb
