#include "sql/dump.h"

#include <ctime>

#include "sql/compat_functions.h"
#include "sql/ddl.h"
#include "sql/engine.h"
#include "sql/view_converter.h"
#include "tk/exception.h"
#include "tk/files.h"
#include "tk/format.h"
#include "tk/log.h"
#include "tk/strings.h"
#include "tk/utf.h"

namespace qb {

namespace {

// Version codes the dump gives the engine for its two dialects.
constexpr std::uint32_t new_dialect_version = 0x040100;
constexpr std::uint32_t old_dialect_version = 0x031401;

// The session's sql_mode for the replay: NO_AUTO_VALUE_ON_ZERO on (a 0 in an
// AUTO_INCREMENT column stays 0), NO_BACKSLASH_ESCAPES off (values are
// escaped with backslashes), ANSI_QUOTES off (date defaults stand between
// double quotes) together with the combined modes that would bring it back
// (sql_is_refused_mode), the server's other modes kept. The old mode is saved
// for the end of the file. Servers before 4.1.1 skip the comment.
constexpr std::string_view set_sql_mode =
    "/*!40101 SET @OLD_SQL_MODE=@@SQL_MODE, SQL_MODE=CONCAT_WS(',', NULLIF(TRIM(BOTH ',' FROM "
    "REPLACE(REPLACE(REPLACE(REPLACE(REPLACE(REPLACE(REPLACE(REPLACE(CONCAT(',', @@SQL_MODE, ','), "
    "',NO_BACKSLASH_ESCAPES,', ','), ',ANSI_QUOTES,', ','), ',ANSI,', ','), ',DB2,', ','), ',MAXDB,', ','), "
    "',MSSQL,', ','), ',ORACLE,', ','), ',POSTGRESQL,', ',')), ''), 'NO_AUTO_VALUE_ON_ZERO') */;";
constexpr std::string_view restore_sql_mode = "/*!40101 SET SQL_MODE=@OLD_SQL_MODE */;";

sql_engine& engine() { return sql_engine::instance(); }

std::string utf8(std::wstring_view text) { return tk_utf8_encode(text); }

// Text for a "#" comment line: a line break inside would end the comment.
std::string comment_text(std::wstring_view text) {
  std::string out = utf8(text);
  for (char& c : out) {
    if (c == '\r' || c == '\n') c = ' ';
  }
  return out;
}

std::string joined(const std::vector<std::string>& names) {
  std::string out;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) out += ", ";
    out += names[i];
  }
  return out;
}

}  // namespace

// --- Construction and the header --------------------------------------------------------------

dmp_database::dmp_database(const std::wstring& file_name, const dump_options& options)
    : udb_database(file_name, 0),
      options_(options),
      eol_(options.line_break == 0 ? "\r\n" : "\n"),
      file_(tk_to_ansi(file_name)) {
  LOG(2, "dmp_database::ctor(%s)", file_name);
  engine().set_version(options_.new_version ? new_dialect_version : old_dialect_version);
  // The new dialect is for servers that keep fractions of a second in
  // DATETIME(n) and TIME(n) (MySQL 5.6.4, MariaDB 5.3); the old one drops them.
  engine().set_fractional_seconds(options_.new_version);
  engine().set_large_index_prefix(options_.new_version);
  LOG(2, "b_new_ver=%d", options_.new_version ? 1 : 0);
  // A new file has no lock open, whatever an earlier run left behind.
  engine().set_lock_active(false);
  write_header();
}

dmp_database::~dmp_database() {
  if (finished_) return;
  try {
    complete();
  } catch (const tk_exception& e) {
    LOG(3, "Dump file '%s' was not completed: %s", name_, e.text());
  }
}

void dmp_database::write_header() {
  std::string text;
  if (options_.insert_comments) {
    std::string path = comment_text(name_);
    for (char& c : path) {
      if (c == '\\') c = '/';
    }
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    text += "# File name: " + path + eol_;
    text += tk_format("# Creation date: %02d/%02d/%04d", local.tm_mon + 1, local.tm_mday, local.tm_year + 1900) + eol_;
    text += "# Created by " + comment_text(options_.created_by) + eol_;
    text += "# --------------------------------------------------" + eol_;
    text += std::string("# More conversion tools at ") + dmp_maker_address + eol_;
  }
  const std::wstring& charset = engine().charset();
  text += eol_ + "SET NAMES " + (charset.empty() ? std::string("UTF8") : utf8(charset)) + ";" + eol_;
  text += std::string(set_sql_mode) + eol_;
  file_.write(text);
  if (options_.create_database && options_.create_table) write_database_block();
}

std::wstring dmp_database::database_name() const {
  if (!options_.database_name.empty()) return options_.database_name;
  return tk_file_wname(name_).name;
}

void dmp_database::write_database_block() {
  std::wstring name = database_name();
  if (options_.new_version) {
    std::wstring quoted = L"`";
    for (wchar_t c : name) {
      if (c == L'`') quoted += L'`';
      quoted += c;
    }
    name = quoted + L"`";
  }
  const std::string db = utf8(name);
  std::string text = eol_ + "DROP DATABASE IF EXISTS " + db + ";" + eol_;
  text += "CREATE DATABASE " + db + " character set " + utf8(engine().charset()) + ";" + eol_;
  text += eol_ + "USE " + db + ";" + eol_;
  file_.write(text);
}

// --- Small writers ---------------------------------------------------------------------------

std::string dmp_database::quote(const std::wstring& name) const {
  return utf8(options_.new_version ? sql_quote_name(name) : name);
}

void dmp_database::write_statement(std::string_view statement) {
  // The text of dmp_statement_text, written without copying the statement.
  if (dmp_is_create_function(statement)) {
    file_.write("DELIMITER $$" + eol_);
    file_.write(statement);
    file_.write(";" + eol_ + "$$" + eol_ + "DELIMITER ;" + eol_);
    return;
  }
  file_.write(statement);
  file_.write(";" + eol_);
}

void dmp_database::unlock_tables(const char* log_line) {
  if (!engine().lock_active()) return;
  LOG(2, "%s", log_line);
  file_.write("UNLOCK TABLES;" + eol_);
  engine().set_lock_active(false);
}

void dmp_database::lock_tables(const std::wstring& table, const std::wstring& second) {
  std::string text = "LOCK TABLES " + quote(table) + " WRITE";
  if (!second.empty()) text += ", " + quote(second) + " WRITE";
  file_.write(text + ";" + eol_);
  engine().set_lock_active(true);
}

const udb_indexes* dmp_database::table_indexes(const std::wstring& table) const {
  const auto it = indexes_.find(table);
  return it == indexes_.end() ? nullptr : &it->second;
}

// --- Tables ----------------------------------------------------------------------------------

std::unique_ptr<udb_recordset> dmp_database::create_table(const std::wstring& name, const udb_schema& schema,
                                                          udb_indexes& indexes) {
  LOG(2, "dmp_database::create_table(%s)", name);
  if (is_table_exist(name)) throw tk_mail_assertion("dmp_db", __LINE__);
  std::wstring auto_field;
  sql_schema_initializer columns(name, schema, indexes, auto_field);
  // Rows of the table before belong to its lock; this table takes its own.
  unlock_tables("dmp_database::create_table - right before unlock tables");

  udb_properties* table_mutator = sql_table_mutator_for(names_map_, name);
  std::wstring table_engine;
  std::wstring table_charset;
  if (table_mutator != nullptr) {
    const auto& properties = table_mutator->get_properties();
    if (const auto it = properties.find(L"engine"); it != properties.end()) table_engine = it->second;
    if (const auto it = properties.find(L"character set"); it != properties.end()) table_charset = it->second;
  }
  if (table_engine.empty()) table_engine = options_.new_version ? engine().storage_engine() : L"MyISAM";
  std::vector<std::wstring> chunks;
  columns.get_init_chunks(chunks, table_mutator);
  udb_indexes carried;
  if (!indexes.empty() || !auto_field.empty()) {
    sql_indexes_initializer index_chunks(&columns.schema(), indexes, auto_field, &columns.names_map());
    index_chunks.set_table_engine(table_engine);
    index_chunks.get_init_chunks(chunks);
    carried = index_chunks.carried();
  }

  const std::string table = quote(name);
  std::string text;
  if (options_.create_table) {
    if (options_.insert_comments) {
      text += eol_ + "#" + eol_ + "# Table structure for table '" + comment_text(name) + "'" + eol_ + "#" + eol_ + eol_;
    }
    text += "CREATE TABLE " + table + " (" + eol_;
    for (std::size_t i = 0; i < chunks.size(); ++i) {
      if (i > 0) text += "," + eol_;
      text += "  " + utf8(chunks[i]);
    }
    LOG(2, "Right before inserting CREATE TABLE statement");
    text += eol_ + ")" + (options_.new_version ? " ENGINE=" : " TYPE=");
    text += utf8(table_engine);
    if (!table_charset.empty()) text += " character set " + utf8(table_charset);
    text += ";" + eol_;
  }
  if (options_.insert_comments) {
    text += eol_ + "#" + eol_ + "# Dumping data for table '" + comment_text(name) + "'" + eol_ + "#" + eol_ + eol_;
  }
  file_.write(text);
  if (options_.add_lock) lock_tables(name);

  names_map_.add_fn_map(name, columns.names_map());
  indexes_[name] = std::move(carried);
  tables_.push_back(name);
  return std::make_unique<dmp_recordset>(this, name, columns.schema());
}

void dmp_database::create_index(const std::wstring& table, const udb_schema& /*schema*/, const udb_index& index) {
  LOG(2, "dmp_database::create_index(%s)", table);
  if (options_.add_lock) lock_tables(table);
  std::string text;
  if (index.b_primary) {
    text = "ALTER TABLE " + quote(table) + " ADD PRIMARY KEY " + quote(index.name) + " (";
  } else {
    text = std::string("CREATE ") + (index.b_unique ? "UNIQUE " : "") + "INDEX " + quote(index.name) + " ON " +
           quote(table) + "(";
  }
  std::vector<std::string> columns;
  for (const std::wstring& field : index.fields) columns.push_back(quote(field));
  text += joined(columns) + ");\n";
  file_.write(text);
  file_.flush();
}

bool dmp_database::delete_tab(const std::wstring& name) {
  LOG(2, "dmp_database::delete_tab(%s)", name);
  unlock_tables("dmp_database::delete_tab - right before unlock tables");
  file_.write("DROP TABLE IF EXISTS " + quote(name) + " CASCADE;" + eol_);
  return udb_database::delete_tab(name);
}

void dmp_database::delete_fk(const std::wstring& name) {
  LOG(2, "dmp_database::delete_fk(%s)", name);
  throw tk_mail_assertion("dmp_db", __LINE__);
}

void dmp_database::delete_fk(const std::wstring& table, const std::wstring& fk) {
  LOG(2, "dmp_database::delete_fk(%s,%s)", table, fk);
  unlock_tables("dmp_database::delete_fk - right before unlock tables");
  write_statement(utf8(L"ALTER TABLE `" + table + L"` DROP FOREIGN KEY `" + fk + L"`"));
}

void dmp_database::delete_idx(const std::wstring& table, const std::wstring& index) {
  LOG(2, "dmp_database::delete_idx(%s,%s)", table, index);
  unlock_tables("dmp_database::delete_idx - right before unlock tables");
  const udb_indexes* known = table_indexes(table);
  bool primary = false;
  if (known != nullptr) {
    for (const udb_index& entry : *known) {
      if (entry.b_primary && tk_equal_no_case(entry.name, index)) primary = true;
    }
  }
  std::wstring text = L"ALTER TABLE `" + table + L"` DROP ";
  text += primary ? L"PRIMARY KEY" : L"INDEX `" + index + L"`";
  write_statement(utf8(text));
}

std::unique_ptr<udb_recordset> dmp_database::get_query(const std::wstring& name, const std::wstring& /*select*/,
                                                       std::uint32_t /*flags*/) {
  LOG(2, "dmp_database::get_query(%s)", name);
  throw tk_mail_assertion("dmp_db", __LINE__);
}

std::unique_ptr<udb_recordset> dmp_database::get_table(const std::wstring& name, std::uint32_t /*flags*/) {
  LOG(2, "dmp_database::get_table(%s)", name);
  throw tk_mail_assertion("dmp_db", __LINE__);
}

bool dmp_database::test_query(const std::wstring& statement) {
  LOG(2, "dmp_database::test_query(%s)", statement);
  throw tk_mail_assertion("dmp_db", __LINE__);
}

std::unique_ptr<udb_recordset> dmp_database::query(const std::wstring& statement) {
  LOG(2, "dmp_database::query(%s)", statement);
  // The server refuses most statements (a function, a view, another table's
  // DDL) while a LOCK TABLES of the rows is open.
  unlock_tables("dmp_database::query - right before unlock tables");
  write_statement(utf8(statement));
  return nullptr;
}

// --- Foreign keys and views ------------------------------------------------------------------

void dmp_database::create_relationships(const udb_relationships& relationships) {
  LOG(2, "dmp_database::create_relationships(rels.size=%d)", relationships.size());
  if (!options_.new_version) {
    LOG(2, "This version of MySQL (%08X) doesn't support Foreign Keys", engine().version());
    return;
  }
  unlock_tables("dmp_database::create_relationships - right before unlock tables");
  file_.write(eol_ + "SET FOREIGN_KEY_CHECKS = 0;" + eol_);
  const std::unique_ptr<udb_validator> validator = engine().create_in_validator(udb_indexes());
  for (const udb_rel& rel : relationships) {
    const std::wstring child = names_map_.get_tn_mapped_name(rel.fk_table, false);
    const std::wstring parent = names_map_.get_tn_mapped_name(rel.pk_table, false);
    LOG(2, "Processing FK '%s', properties=%s", rel.name, rel.properties);
    // A key of a table that is not in the dump cannot be made on replay.
    if (!is_table_exist(child) || !is_table_exist(parent)) {
      LOG(2, "Skip FK '%s': its tables are not both in the dump", rel.name);
      continue;
    }
    std::vector<std::wstring> child_fields;
    std::vector<std::string> child_columns;
    for (const std::wstring& field : rel.fk_fields) {
      child_fields.push_back(names_map_.get_fn_mapped_name(child, field, false));
      child_columns.push_back(quote(child_fields.back()));
    }
    std::vector<std::string> parent_columns;
    for (const std::wstring& field : rel.pk_fields) {
      parent_columns.push_back(quote(names_map_.get_fn_mapped_name(parent, field, false)));
    }
    udb_indexes& stored = indexes_[child];
    if (stored.has_index_on_fields(child_fields, false)) {
      LOG(2, "Child index for table '%s' exists", child);
    } else {
      if (options_.add_lock) lock_tables(child);
      file_.write("ALTER TABLE " + quote(child) + " ADD INDEX (" + joined(child_columns) + ");" + eol_);
      stored.push_back_direct(udb_index(L"", false, false, child_fields));
    }
    if (options_.add_lock) lock_tables(child, child == parent ? std::wstring() : parent);
    std::wstring name = rel.name;
    if (!validator->is_acceptable(name)) {
      name = validator->get_safe_name(name);
      LOG(2, "Store generated index name '%s'", name);
      validator->add_existing_name(name);
    }
    validator->add_restricted_name(name);
    std::string text = "ALTER TABLE " + quote(child) + " ADD CONSTRAINT " + quote(name) + " FOREIGN KEY(" +
                       joined(child_columns) + ") REFERENCES " + quote(parent) + "(" + joined(parent_columns) + ")";
    if (!rel.properties.empty()) text += " " + utf8(rel.properties);
    file_.write(text + ";" + eol_);
  }
  file_.write("SET FOREIGN_KEY_CHECKS = 1;" + eol_);
}

void dmp_database::create_views(const udb_view_list& views) {
  LOG(2, "dmp_database::create_views");
  // The server makes no view while a LOCK TABLES is open.
  unlock_tables("dmp_database::create_views - right before unlock tables");
  std::vector<std::wstring> view_names;
  for (const udb_view& view : views_) view_names.push_back(view.first);
  const std::unique_ptr<udb_validator> validator = engine().create_tn_validator(tables_, view_names);
  for (const auto& [name, text] : views) {
    LOG(2, "Processing '%s'", name);
    LOG(1, "\t'%s'", text);
    if (!sql_view_converter::is_select_text(text)) {
      LOG(2, "Skip non-select query");
      continue;
    }
    std::wstring target = name;
    if (!validator->is_acceptable(name)) {
      target = validator->get_safe_name(name);
      LOG(2, "Store generated view name '%s'", target);
      names_map_.add_tn_mapping(name, target);
    }
    validator->add_existing_name(target);
    // The old dialect writes no back quotes, in view bodies neither.
    const std::wstring_view mark = options_.new_version ? sql_view_converter::backtick : std::wstring_view();
    const std::wstring refined =
        sql_view_converter::refine_view_in(sql_view_destination::dump, text, names_map_, mark, mark);
    const std::wstring quoted = options_.new_version ? sql_quote_name(target) : target;
    file_.write(utf8(sql_view_converter::create_view_statement(quoted, refined)) + eol_);
  }
}

// --- The end ---------------------------------------------------------------------------------

void dmp_database::complete() {
  finished_ = true;
  unlock_tables("dmp_database::~dmp_database - right before unlock tables");
  file_.write(std::string(restore_sql_mode) + eol_);
  file_.close();
}

void dmp_database::finish() {
  LOG(2, "dmp_database::finish");
  if (finished_) return;
  complete();
}

}  // namespace qb
