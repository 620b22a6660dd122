// Helpers of the tests of the app layer: the user's folders in a scratch
// directory, the driver's services over in-memory databases that watch what
// the driver does to them, a table mutator that shows its rows, and the SQL Server
// and MySQL engines of the converter over in-memory stores.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/convertor.h"
#include "app/driver.h"
#include "sql/engine.h"
#include "sql/exception.h"
#include "sql/mutator.h"
#include "tk/error_handler.h"
#include "tk/error_tables.h"
#include "tk/headless_shell.h"

#include "support/memory_database.h"
#include "support/temp_dir.h"
#include "support/log_lines.h"

namespace qb::test {

// The user's home, documents and configuration folders in a scratch
// directory: the per-user settings and the program's log land there.
class user_folders {
 public:
  user_folders() : home_("HOME", dir_.path()), config_("XDG_CONFIG_HOME", dir_.path() + "/config") {}
  [[nodiscard]] const std::string& path() const { return dir_.path(); }
  [[nodiscard]] std::string settings_file() const { return dir_.path() + "/config/Varnholt/Quillbridge.conf"; }

 private:
  temp_dir dir_;
  scoped_env home_;
  scoped_env config_;
};

// The error handler with both message tables and a headless shell, as the
// program builds them.
class handler_and_shell {
 public:
  explicit handler_and_shell(headless_policy policy = {}) : shell(headless_shell::product_title(), policy) {
    handler.load_err_map(tk_destination_errors);
    shell.set_initialized(true);
  }
  error_handler handler{tk_source_errors};
  headless_shell shell;
};

// A duplicate key, as the MySQL target reports it.
inline sql_exception duplicate_key() {
  return sql_exception(1062, "Duplicate entry '1' for key 'PRIMARY'", "23000", "INSERT INTO t VALUES (1)");
}

// What the watched databases saw.
struct watch_log {
  std::vector<std::string> calls;      // "create_relationships", "create_views", "dest closed", ...
  std::vector<int> finished_at_close;  // the finished flag when a database or recordset went
  int resets = 0;                      // reset calls on source recordsets
  const std::atomic<std::uint8_t>* finished = nullptr;

  void closed(const char* what) {
    calls.emplace_back(what);
    if (finished != nullptr) finished_at_close.push_back(finished->load());
  }
};

// A source recordset that counts its resets and notes its end.
class watched_recordset : public memory_recordset {
 public:
  watched_recordset(memory_database* database, std::shared_ptr<memory_table> table, std::wstring name,
                    std::wstring query, watch_log& log)
      : memory_recordset(database, std::move(table), std::move(name), std::move(query)), log_(log) {}
  ~watched_recordset() override { log_.closed("source recordset closed"); }
  void reset() override {
    ++log_.resets;
    memory_recordset::reset();
  }

 private:
  watch_log& log_;
};

class watched_source : public memory_database {
 public:
  watched_source(memory_store& store, std::wstring name, std::uint32_t mode, watch_log& log)
      : memory_database(store, std::move(name), mode), log_(log) {}
  ~watched_source() override { log_.closed("source closed"); }
  std::unique_ptr<udb_recordset> get_table(const std::wstring& name, std::uint32_t flags) override {
    std::unique_ptr<udb_recordset> plain = memory_database::get_table(name, flags);  // throws for a missing one
    return std::make_unique<watched_recordset>(this, store().share_table(name), plain->name(), std::wstring(), log_);
  }

 private:
  watch_log& log_;
};

// How a destination holds rows back, as the real targets batch their rows.
struct batching {
  std::size_t size = 0;  // rows held back before they go out; 0: none
  bool fail_flush = false;
  bool fail_finish = false;  // the destination's finish() fails
};

// A destination recordset that holds rows back until a batch is full or it
// is flushed; its destructor sends the rest quietly.
class batching_recordset : public udb_recordset {
 public:
  batching_recordset(std::unique_ptr<udb_recordset> inner, const batching& rule)
      : udb_recordset(inner->name()), inner_(std::move(inner)), rule_(rule) {
    schema_ = inner_->schema();
    indexes_ = inner_->indexes();
  }
  ~batching_recordset() override {
    try {
      send();
    } catch (...) {
    }
  }
  void append_record(udb_record& record) override {
    pending_.push_back(record);
    if (pending_.size() >= rule_.size) send();
  }
  void finish() override {
    if (rule_.fail_flush && !pending_.empty()) throw tk_exception("Lost connection to MySQL server", 1);
    send();
  }
  [[nodiscard]] udb_write_counts write_counts() const override { return inner_->write_counts(); }
  [[nodiscard]] std::size_t pending() const { return pending_.size(); }

 private:
  void send() {
    std::vector<udb_record> rows;
    rows.swap(pending_);
    for (udb_record& row : rows) inner_->append_record(row);
  }

  std::unique_ptr<udb_recordset> inner_;
  const batching& rule_;
  std::vector<udb_record> pending_;
};

class watched_dest : public memory_database {
 public:
  watched_dest(memory_store& store, std::wstring name, std::uint32_t mode, watch_log& log,
               const batching& rule = no_batching())
      : memory_database(store, std::move(name), mode), log_(log), rule_(rule) {}
  ~watched_dest() override { log_.closed("dest closed"); }
  std::unique_ptr<udb_recordset> create_table(const std::wstring& name, const udb_schema& schema,
                                              udb_indexes& indexes) override {
    std::unique_ptr<udb_recordset> table = memory_database::create_table(name, schema, indexes);
    if (rule_.size == 0) return table;
    return std::make_unique<batching_recordset>(std::move(table), rule_);
  }
  static const batching& no_batching() {
    static const batching none;
    return none;
  }
  void create_relationships(const udb_relationships& relationships) override {
    log_.calls.emplace_back("create_relationships");
    memory_database::create_relationships(relationships);
  }
  void create_views(const udb_view_list& views) override {
    log_.calls.emplace_back("create_views");
    memory_database::create_views(views);
  }
  std::unique_ptr<udb_recordset> query(const std::wstring& statement) override {
    log_.calls.emplace_back("query");
    return memory_database::query(statement);
  }
  bool delete_tab(const std::wstring& name) override {
    log_.calls.emplace_back("delete_tab");
    return memory_database::delete_tab(name);
  }
  void finish() override {
    log_.calls.emplace_back("dest finished");
    if (rule_.fail_finish) throw tk_exception("Cannot write the dump file '/full/disk.sql': No space left on device", 1);
  }

 private:
  watch_log& log_;
  const batching& rule_;
};

// A type record of the MySQL target.
inline sql_native_type native(const std::wstring& name, std::uint64_t size = 0) {
  sql_native_type type;
  type.name = name;
  type.size = size;
  return type;
}

// A table mutator of the real tree that also shows a test each row it is
// given to change.
class watching_table_mutator : public sql_table_mutator {
 public:
  using sql_table_mutator::sql_table_mutator;
  std::function<void(const udb_record&)> on_row;

  udb_record* modify2(udb_record& record) override {
    if (on_row) on_row(record);
    return sql_table_mutator::modify2(record);
  }
};

// The driver's services over in-memory stores.
class memory_services : public conversion_services {
 public:
  memory_store source;
  memory_store dest;
  watch_log watch;
  std::uint32_t version = 0x050700;
  bool direct = true;
  bool views_possible = true;
  std::wstring schema;
  sql_db_mutator* mutators = nullptr;
  // Table mutators looked up before the tree, by source name.
  std::map<std::wstring, sql_table_mutator*> watched_mutators;
  bool source_fails = false;
  batching batch;

  std::uint8_t fast = 1;
  std::vector<std::uint8_t> fast_mode_sets;
  std::vector<std::uint32_t> packet_requests;
  std::uint32_t source_mode = 0;
  std::wstring source_schema_given;
  std::uint32_t dest_mode = udb_open_dest_update;
  // Unconnected: it gives the table-name validator of version.
  sql_engine engine;

  std::unique_ptr<udb_database> open_source(const std::wstring& name, std::uint32_t mode,
                                            const std::wstring& schema_filter) override {
    source_mode = mode;
    source_schema_given = schema_filter;
    if (source_fails) throw tk_exception("Cannot open the source database", 1);
    return std::make_unique<watched_source>(source, name, mode, watch);
  }
  std::unique_ptr<udb_database> get_dest_base() override {
    return std::make_unique<watched_dest>(dest, L"target", dest_mode, watch, batch);
  }
  std::unique_ptr<udb_validator> create_tn_validator() override {
    engine.set_version(version);
    return engine.create_tn_validator({}, {});
  }
  [[nodiscard]] bool is_direct() const override { return direct; }
  void set_max_allowed_packet(std::uint32_t bytes) override { packet_requests.push_back(bytes); }
  [[nodiscard]] std::uint8_t fast_mode() const override { return fast; }
  void set_fast_mode(std::uint8_t value) override {
    fast = value;
    fast_mode_sets.push_back(value);
  }
  sql_table_mutator* find_table_mutator(const std::wstring& name) override {
    if (const auto it = watched_mutators.find(name); it != watched_mutators.end()) return it->second;
    return mutators == nullptr ? nullptr : mutators->get_table_mutator3(name);
  }
  [[nodiscard]] std::wstring source_schema() const override { return schema; }
  bool can_create_views() override { return views_possible; }
};

// A converter with nothing of its own: the database converter's fields.
class plain_converter : public udb_converter {
 public:
  int test_query(const std::wstring& text) override { return text.empty() ? 0 : 1; }
};

// The SQL Server engine of the converter over in-memory stores, one per
// database name.
class memory_source_engine : public mss_source_engine {
 public:
  memory_engine stores;
  std::vector<std::pair<std::uint32_t, std::wstring>> opens;  // (mode, schema) of each open_db
  std::vector<std::wstring> contents{L"master", L"sales"};
  bool fail_exists = false;

  std::unique_ptr<udb_database> open_db(const std::wstring& name, std::uint32_t mode,
                                        const std::wstring& schema) override {
    opens.emplace_back(mode, schema);
    return stores.open_db(name, mode);
  }
  bool is_db_exist(const std::wstring& name) override {
    if (fail_exists) throw tk_exception("You may not open this database", 1);
    return stores.is_db_exist(name);
  }
  std::vector<std::wstring> get_contents() override { return contents; }
};

// The destination of the converter over in-memory stores; dump files are
// in-memory databases too, named by their path.
class memory_target : public mysql_target_engine {
 public:
  memory_engine stores;
  std::vector<std::wstring> created;
  std::vector<std::uint32_t> open_modes;
  std::vector<std::wstring> deleted;
  std::vector<std::pair<std::wstring, mysql_dump_options>> dumps;

  std::unique_ptr<udb_database> create_db(const std::wstring& name) override {
    created.push_back(name);
    return stores.create_db(name);
  }
  std::unique_ptr<udb_database> open_db(const std::wstring& name, std::uint32_t mode) override {
    open_modes.push_back(mode);
    return stores.open_db(name, mode);
  }
  void db_delete(const std::wstring& name) override {
    deleted.push_back(name);
    stores.db_delete(name);
  }
  bool is_db_exist(const std::wstring& name) override { return stores.is_db_exist(name); }
  std::unique_ptr<udb_database> create_dump(const std::wstring& path, const mysql_dump_options& options) override {
    dumps.emplace_back(path, options);
    return stores.create_db(path);
  }
};

// A column of type VT_I4 (3) or VT_BSTR (8).
inline t_ftd int_column(const std::wstring& name) { return memory_column(name, 3); }
inline t_ftd text_column(const std::wstring& name, std::uint32_t size = 50) { return memory_column(name, 8, size); }

// A table (id int primary key, name text) with rows (1, "a"), (2, "b"), ...
void add_people(memory_store& store, const std::wstring& table, int rows);

}  // namespace qb::test
