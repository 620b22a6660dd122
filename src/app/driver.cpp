#include "app/driver.h"

#include <algorithm>
#include <ctime>
#include <exception>
#include <utility>
#include <vector>

#include "mss/table_names.h"
#include "sql/compat_functions.h"
#include "sql/exception.h"
#include "tk/error_handler.h"
#include "tk/exception.h"
#include "tk/format.h"
#include "tk/log.h"
#include "tk/shell.h"
#include "tk/strings.h"
#include "udb/recordset.h"

namespace qb {

conversion_services::~conversion_services() = default;

namespace {

constexpr const char* k_not_conform = "The structure of data source does not conform to the destination table.";

// "... on %02d/%02d/%04d at %02d:%02d:%02d" with the local time.
void log_local_time(const char* format) {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  LOG(3, format, local.tm_mday, local.tm_mon + 1, local.tm_year + 1900, local.tm_hour, local.tm_min, local.tm_sec);
}

// Hands a caught failure to the error handler; without one it can only be
// logged. Throws tk_final_exception when the user aborts.
void report_failure(const tk_exception& e, bool no_abort) {
  if (error_handler* handler = error_handler::try_instance()) {
    handler->handle(e, no_abort);
    return;
  }
  LOG(3, "Error:\n%s", e.what());
}

void set_error_context(const std::wstring& context) {
  if (error_handler* handler = error_handler::try_instance()) handler->set_context(context);
}

void set_error_context(const std::wstring& table, std::uint64_t record) {
  if (error_handler* handler = error_handler::try_instance()) handler->set_context(table, static_cast<int>(record));
}

// Keeps detail lines out of the log while rows flow: the threshold is 2 for
// the run, and what it was before afterwards.
class log_level_pin {
 public:
  explicit log_level_pin(int level) {
    if (logger_ != nullptr) {
      previous_ = logger_->level();
      logger_->set_level(level);
    }
  }
  ~log_level_pin() {
    if (logger_ != nullptr) logger_->set_level(previous_);
  }
  log_level_pin(const log_level_pin&) = delete;
  log_level_pin& operator=(const log_level_pin&) = delete;

 private:
  tk_logger* logger_ = tk_logger::try_instance();
  int previous_ = 0;
};

std::string current_exception_text() {
  try {
    throw;
  } catch (const tk_final_exception&) {
    return "The conversion was aborted by the user.";
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "Unknown exception";
  }
}

// True for a failure after which no statement reaches the destination: the
// connection to the server is gone.
bool ends_run(const tk_exception& e) {
  const auto* server = dynamic_cast<const sql_exception*>(&e);
  return server != nullptr && server->connection_lost();
}

// How an entry ended, when it did not fail.
enum class entry_end { done, skipped, cancelled };

// One run: the objects it owns and the steps it takes.
class conversion_run {
 public:
  conversion_run(udb_converter& converter, conversion_services& services)
      : c_(converter), s_(services), schema_(services.source_schema()) {}
  conversion_run(const conversion_run&) = delete;
  conversion_run& operator=(const conversion_run&) = delete;

  void execute();

 private:
  void open();
  void make_validator();
  void walk();
  entry_end convert_entry(const udb_named_text& entry, udb_table_report& report);
  std::wstring settle_name(const std::wstring& source_name, udb_recordset& source);
  void remember_name(const std::wstring& source_name, const std::wstring& target);
  [[nodiscard]] udb_relationships carried_relationships(const udb_relationships& relationships) const;
  [[nodiscard]] const std::wstring* work_list_name(const std::wstring& table) const;
  entry_end copy_rows(udb_recordset& source, udb_recordset& destination, udb_table_report& report);
  void append_guarded(udb_recordset& source, udb_recordset& destination, udb_record& record);
  void take_counts(const udb_recordset& destination, udb_table_report& report) const;
  void commit(udb_table_report& report);
  void close();
  void convert_views();
  [[nodiscard]] udb_view_list chosen_views() const;
  [[nodiscard]] bool cancel_requested() const { return c_.b_cancel.load() != 0; }
  [[nodiscard]] bool merging() const { return c_.mode == udb_mode_merge || c_.mode == udb_mode_synchronize; }

  udb_converter& c_;
  conversion_services& s_;
  const std::wstring schema_;
  // Released in the reverse order: validator, destination, source.
  std::unique_ptr<udb_database> source_;
  std::unique_ptr<udb_database> dest_;
  std::unique_ptr<udb_validator> validator_;
  std::uint8_t fast_mode_ = 1;
  std::uint64_t entry_accepted_ = 0;  // rows of the entry the destination took without an error
  bool cancelled_ = false;
  bool stopped_ = false;  // the destination was lost; the closing steps do not run
};

void conversion_run::execute() {
  open();
  // Every selected table joins the work list behind the custom queries.
  for (const std::wstring& table : c_.selected_tables) c_.queries.emplace_back(table, std::wstring());
  fast_mode_ = s_.fast_mode();
  const log_level_pin pin(2);
  walk();
  close();
  validator_.reset();
  // The destination is completed while the run can still report: a dump
  // file that cannot be written to its end fails here, into the run's guard.
  dest_->finish();
  dest_.reset();
  source_.reset();
}

void conversion_run::open() {
  fast_mode_ = s_.fast_mode();
  source_ = s_.open_source(c_.src, udb_open_source, schema_);
  dest_ = s_.get_dest_base();
  LOG(2, "After initializing DBs");
  c_.n_tables = static_cast<std::uint32_t>(c_.queries.size() + c_.selected_tables.size());
  const std::wstring text = tk_wformat(L"Converting database '%s' (%d tables)\r\n", c_.src, c_.n_tables.load());
  LOG(3, "%s", text);
  wizard_shell::write_log(text);
  make_validator();
  if (s_.is_direct()) s_.set_max_allowed_packet(app_run_max_allowed_packet);
}

void conversion_run::make_validator() {
  const std::vector<std::wstring>& dest_names = dest_->get_table_names();
  validator_ = s_.create_tn_validator();
  for (const std::wstring& name : c_.selected_tables) validator_->add_existing_name(name);
  for (const std::wstring& name : dest_names) validator_->add_existing_name(name);
}

void conversion_run::walk() {
  for (std::size_t i = 0; i < c_.queries.size(); ++i) {
    const udb_named_text entry = c_.queries[i];
    if (cancel_requested()) {
      LOG(3, "Conversion cancelled by the user before '%s' (%d of %d entries done)", entry.first,
          c_.n_done_tables.load(), c_.n_tables.load());
      wizard_shell::write_log(tk_wformat(L"Conversion cancelled before '%s'\r\n", entry.first));
      cancelled_ = true;
      return;
    }
    udb_table_report report;
    report.name = entry.first;
    entry_end end = entry_end::done;
    try {
      end = convert_entry(entry, report);
    } catch (const tk_exception& e) {
      report.failed = true;
      report.error = e.what();
      commit(report);
      set_error_context(c_.current_table());
      report_failure(e, false);
      ++c_.n_done_tables;
      if (ends_run(e)) {
        // No later entry can reach a destination that is gone.
        LOG(3, "The connection to the destination was lost while converting '%s': the run ends", entry.first);
        wizard_shell::write_log(
            tk_wformat(L"The connection to the destination was lost while converting '%s'\r\n", entry.first));
        stopped_ = true;
        return;
      }
      continue;
    } catch (...) {
      // The run ends here (the user aborted, or a failure that no entry can
      // survive): the entry is reported as far as it came.
      report.failed = true;
      report.error = current_exception_text();
      commit(report);
      throw;
    }
    commit(report);
    if (end == entry_end::cancelled) {
      cancelled_ = true;
      return;
    }
    ++c_.n_done_tables;
  }
}

entry_end conversion_run::convert_entry(const udb_named_text& entry, udb_table_report& report) {
  const std::wstring& source_name = entry.first;
  c_.set_current_table(source_name);
  c_.n_records = 0;
  c_.n_done_records = 0;
  entry_accepted_ = 0;
  std::unique_ptr<udb_recordset> source = entry.second.empty()
                                              ? source_->get_table(source_name, udb_table_read)
                                              : source_->get_query(source_name, entry.second, udb_table_read);
  const std::wstring target = settle_name(source_name, *source);
  report.target = target;

  s_.set_fast_mode(fast_mode_);
  if (dest_->is_table_exist(target)) {
    if (c_.mode == udb_mode_skip_existing) {
      LOG(2, "Table '%s' exists at the destination and is skipped", target);
      report.skipped = true;
      return entry_end::skipped;
    }
    if (c_.mode == udb_mode_overwrite_tables) dest_->delete_tab(target);
    // Row by row, so that a duplicate key surfaces on the row that caused it.
    if (merging()) s_.set_fast_mode(0);
  }

  udb_indexes indexes;
  if (c_.skip_indexes == 0) indexes = source->indexes();
  // The (source, target) pair goes into the destination's names map before
  // the table is made: the destination finds the user's changes of the table
  // (its engine, its character sets) under the source name through it.
  remember_name(source_name, target);
  std::unique_ptr<udb_recordset> destination = dest_->create_table(target, source->schema(), indexes);

  // From here the destination may hold rows of this entry: whatever ends the
  // entry, the table is finished (its pending rows go out) and the counts
  // are taken.
  bool finished = false;
  entry_end end = entry_end::done;
  try {
    if (merging() && !source->schema().conform_to(destination->schema(), false)) {
      throw tk_exception_ex::user_message(k_not_conform);
    }
    c_.n_records = source->rec_count();
    const std::wstring text =
        tk_wformat(L"Converting table %s (%I64u records)\r\n", c_.current_table(), c_.n_records.load());
    LOG(3, "%s", text);
    wizard_shell::write_log(text);
    end = copy_rows(*source, *destination, report);
    finished = true;
    destination->finish();
    take_counts(*destination, report);
  } catch (...) {
    if (!finished) {
      try {
        destination->finish();
      } catch (const std::exception& e) {
        LOG(3, "Rows still pending for table '%s' could not be written:\n%s", target, e.what());
      }
    }
    take_counts(*destination, report);
    throw;
  }
  destination.reset();
  source.reset();
  return end;
}

std::wstring conversion_run::settle_name(const std::wstring& source_name, udb_recordset& source) {
  LOG(2, "udb_db_mutator::modify1(%s)", source_name);
  std::wstring name = source_name;
  if (sql_table_mutator* mutator = s_.find_table_mutator(source_name)) {
    mutator->modify3(source.indexes());
    std::wstring new_name;
    mutator->modify1(new_name, source.schema());
    if (!new_name.empty()) name = std::move(new_name);
  }
  if (!schema_.empty()) {
    std::wstring table;
    std::wstring owner;
    if (mss_split_tab_name(name, table, owner)) {
      LOG(2, "name=%s, owner=%s", table, owner);
      name = std::move(table);
      LOG(2, "Generate safe full name: %s", name);
    }
  }
  if (!validator_->is_acceptable(name)) name = validator_->get_safe_name(name);
  return name;
}

void conversion_run::remember_name(const std::wstring& source_name, const std::wstring& target) {
  if (source_name != target) {
    LOG(2, "Store generated table name '%s'", target);
    validator_->add_existing_name(target);
    dest_->add_tn_mapping(source_name, target);
  }
  // A later entry that arrives at this name, in any letter case, gets a name
  // of its own.
  validator_->add_restricted_name(target);
}

entry_end conversion_run::copy_rows(udb_recordset& source, udb_recordset& destination, udb_table_report& report) {
  if (c_.n_records.load() == 0 || c_.only_definitions != 0) return entry_end::done;
  const std::wstring name = c_.current_table();
  source.reset();
  while (!source.is_eof()) {
    if (cancel_requested()) {
      LOG(3, "Conversion cancelled by the user in '%s' after record #%I64u of %I64u", name, c_.n_done_records.load(),
          c_.n_records.load());
      wizard_shell::write_log(tk_wformat(L"Conversion cancelled in '%s'\r\n", name));
      report.cancelled = true;
      return entry_end::cancelled;
    }
    LOG(1, "Converting %d record", static_cast<int>(c_.n_done_records.load()));
    udb_record* record = source.get_item();
    LOG(1, "udb_db_mutator::modify2(%s)", name);
    if (record == nullptr) {
      LOG(3, "Record #%I64u of '%s' could not be read", c_.n_done_records.load() + 1, name);
    } else {
      ++report.read;
      sql_table_mutator* mutator = s_.find_table_mutator(name);
      if (mutator != nullptr && mutator->has_field_mutators()) {
        record = mutator->modify2(*record);
      } else {
        LOG(1, "Not found: '%s'", name);
      }
      if (record == nullptr) {
        LOG(3, "Record #%I64u of '%s' was lost by its customisation", c_.n_done_records.load() + 1, name);
      } else {
        append_guarded(source, destination, *record);
      }
    }
    source.next();
    ++c_.n_done_records;
  }
  return entry_end::done;
}

void conversion_run::append_guarded(udb_recordset& source, udb_recordset& destination, udb_record& record) {
  try {
    destination.append_record(record);
    ++entry_accepted_;
  } catch (const sql_exception& e) {
    LOG(2, "MODE=%d", c_.mode);
    if (e.code() == app_duplicate_key_code && c_.mode == udb_mode_synchronize) {
      // The stored row takes the source's values; the raw row, with no
      // customisation applied. A failure here ends the entry.
      if (udb_record* raw = source.get_item()) {
        destination.update1(*raw);
        ++entry_accepted_;
      }
      return;
    }
    if (e.code() == app_duplicate_key_code && c_.mode == udb_mode_merge) return;
    // A lost connection is no failure of this row: the entry ends.
    if (ends_run(e)) throw;
    set_error_context(c_.current_table(), c_.n_done_records.load() + 1);
    report_failure(e, false);
  }
}

void conversion_run::take_counts(const udb_recordset& destination, udb_table_report& report) const {
  const udb_write_counts counts = destination.write_counts();
  report.counted_by_destination = counts.known;
  report.written = counts.known ? counts.rows_written : entry_accepted_;
  report.warnings = counts.known ? counts.warnings : 0;
  report.not_written = report.read > report.written ? report.read - report.written : 0;
}

void conversion_run::commit(udb_table_report& report) {
  if (report.skipped) {
    LOG(3, "Table '%s': skipped, it exists at the destination", report.name);
  } else {
    LOG(3, "Table '%s': %I64u read, %I64u written, %I64u not written (duplicate keys or errors), %I64u warnings",
        report.name, report.read, report.written, report.not_written, report.warnings);
  }
  c_.table_reports.push_back(std::move(report));
}

void conversion_run::close() {
  set_error_context(std::wstring());
  c_.n_done_tables = 0;
  c_.n_tables = 0;
  if (!cancelled_ && cancel_requested()) {
    LOG(3, "Conversion cancelled by the user before relationships and views");
    cancelled_ = true;
  }
  if (cancelled_) {
    LOG(3, "Relationships and views are not converted: the run was cancelled");
    return;
  }
  if (stopped_) {
    LOG(3, "Relationships and views are not converted: the connection to the destination was lost");
    return;
  }
  const udb_relationships& relationships = source_->relationships();
  if (relationships.empty()) {
    LOG(2, "No relationships to convert");
  } else {
    dest_->create_relationships(carried_relationships(relationships));
  }
  if (c_.convert_views != 0 && s_.can_create_views()) {
    convert_views();
  } else {
    LOG(2, "Views are not converted");
  }
}

// The foreign keys as the destination must make them. The source names a
// key's tables in its own form ("dbo.orders") and its columns by their
// source names; the destination's names map knows each table under the name
// of its work-list entry ("[dbo].[orders]" when the selection came from a
// profile) and each column under the name the user's changes gave it. So
// each table name becomes that of the entry that denotes the same table,
// and each column of a table with changes takes its new name.
udb_relationships conversion_run::carried_relationships(const udb_relationships& relationships) const {
  udb_relationships carried;
  for (udb_rel rel : relationships) {
    for (auto [table, fields] : {std::pair{&rel.fk_table, &rel.fk_fields}, std::pair{&rel.pk_table, &rel.pk_fields}}) {
      const std::wstring* entry = work_list_name(*table);
      if (entry == nullptr) continue;
      if (*entry != *table) {
        LOG(2, "Foreign key '%s': table '%s' is the entry '%s'", rel.name, *table, *entry);
        *table = *entry;
      }
      const sql_table_mutator* mutator = s_.find_table_mutator(*entry);
      if (mutator == nullptr) continue;
      for (std::wstring& column : *fields) {
        const sql_field_mutator* field = mutator->get_field_mutator(column);
        if (field == nullptr) continue;
        if (field->is_deleted()) {
          LOG(3, "Foreign key '%s' names the column '%s' of '%s', which the type mappings drop", rel.name, column,
              *entry);
        } else if (!field->new_name.empty() && field->new_name != column) {
          LOG(2, "Foreign key '%s': column '%s' of '%s' is now '%s'", rel.name, column, *entry, field->new_name);
          column = field->new_name;
        }
      }
    }
    carried.push_back(std::move(rel));
  }
  return carried;
}

// The work-list entry (a table, not a custom query) that denotes the same
// table as name, whatever the form of either: owner and table compare
// without regard to case, and a name without an owner matches on the table
// alone. An entry of exactly that name comes first. Null when no entry does.
const std::wstring* conversion_run::work_list_name(const std::wstring& name) const {
  for (const udb_named_text& entry : c_.queries) {
    if (entry.second.empty() && entry.first == name) return &entry.first;
  }
  std::wstring table;
  std::wstring owner;
  mss_split_tab_name(name, table, owner);
  for (const udb_named_text& entry : c_.queries) {
    if (!entry.second.empty()) continue;
    std::wstring entry_table;
    std::wstring entry_owner;
    mss_split_tab_name(entry.first, entry_table, entry_owner);
    if (!udb_equal_names(table, entry_table)) continue;
    if (owner.empty() || entry_owner.empty() || udb_equal_names(owner, entry_owner)) return &entry.first;
  }
  return nullptr;
}

void conversion_run::convert_views() {
  const udb_view_list views = chosen_views();
  udb_view_report& report = c_.view_report;
  report.attempted = true;
  report.handed = static_cast<std::uint32_t>(views.size());
  if (!views.empty()) {
    // The stand-ins for SQL Server functions go first, so that a view that
    // calls one finds it.
    const int made = sql_create_compat_functions(
        [this](const std::wstring& statement) { static_cast<void>(dest_->query(statement)); });
    LOG(2, "Compatibility functions: %d of %d created", made, static_cast<int>(sql_compat_function_count));
    dest_->create_views(views);
  }
  const udb_view_counts counts = dest_->view_counts();
  if (!counts.known) {
    LOG(3, "Views: %d handed to the destination, which does not report the outcome", report.handed);
    return;
  }
  report.counted = true;
  report.created = counts.created;
  report.failed = counts.failed;
  report.skipped = counts.skipped;
  LOG(3, "Views: %d converted, %d failed", report.created, report.failed);
  if (report.skipped != 0) LOG(3, "Views: %d skipped, their text is not a SELECT", report.skipped);
}

// The selected views, in selection order, each with the definition the
// source holds now (it keeps its line breaks, which a profile cannot); a
// view the source no longer has keeps the definition saved with the choice.
udb_view_list conversion_run::chosen_views() const {
  udb_view_list chosen;
  const udb_view_list& current = source_->views();
  for (const udb_named_text& selected : c_.selected_views) {
    const auto it = std::find_if(current.begin(), current.end(),
                                 [&](const udb_view& view) { return udb_equal_names(view.first, selected.first); });
    if (it != current.end()) {
      chosen.push_back(*it);
    } else {
      LOG(2, "View '%s' is not in the source; its saved definition is used", selected.first);
      chosen.push_back(selected);
    }
  }
  return chosen;
}

}  // namespace

init_conversion::init_conversion(std::atomic<std::uint8_t>* finished, bool b_no_com)
    : finished_(finished), b_no_com_(b_no_com) {
  LOG(2, "init_conversion::ctor");
  log_local_time("Conversion started on %02d/%02d/%04d at %02d:%02d:%02d");
}

init_conversion::~init_conversion() {
  LOG(2, "init_conversion::dtor");
  log_local_time("Conversion ended on %02d/%02d/%04d at %02d:%02d:%02d");
  static_cast<void>(b_no_com_);
  if (finished_ != nullptr) finished_->store(1, std::memory_order_release);
}

void run_conversion(udb_converter& converter, conversion_services& services) {
  LOG(2, "quillbridge_convertor::operator()");
  const init_conversion frame(&converter.finished, false);
  converter.table_reports.clear();
  converter.view_report = udb_view_report{};
  try {
    conversion_run run(converter, services);
    run.execute();
  } catch (const tk_final_exception&) {
    LOG(2, "The conversion was aborted by the user");
  } catch (const tk_exception& e) {
    report_failure(e, true);
  } catch (const std::exception& e) {
    wizard_shell::error(tk_ansi_to_wide(e.what()));
  } catch (...) {
    wizard_shell::error(L"Unknown exception");
  }
}

}  // namespace qb
