// quillbridge-cli-memory: quillbridge-cli over an in-memory SQL Server source
// whose tables fail on purpose, for the tests of the command line that need a
// failure that no real source gives on demand.
//
// Everything but the source is the shipped program: the same cli_main, front
// end, shell, report, signals, per-user settings, profile loading, driver,
// log and destinations (a dump file is written by the real dump target). The
// source engine is replaced by an in-memory one, and connecting to it needs
// no server. This program is built with the tests only and never installed;
// runs from a real source are tested with the shipped program and the SQL
// Server stand-in.
//
// The source server holds one database, "sales":
//   [dbo].[people]     3 rows (id, name)
//   [dbo].[orders]     250 rows (id, name)
//   [dbo].[flaky]      100 rows made as they are read; reading row 51 fails
//                      as a lost connection does
//   [dbo].[shaky]      10 rows made as they are read; reading row 4 fails
//                      with a continuable error (level 0)
//   [dbo].[stuck]      reading its second row never returns (a source that
//                      hangs: the run cannot stop between two records)
//   [dbo].[misuse]     reading its first row is an internal error
//   [dbo].[foreign]    reading its second row fails with an exception from
//                      outside the program's family (std::runtime_error)
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "app/cli_console.h"
#include "app/cli_front_end.h"
#include "app/cli_main.h"
#include "app/convertor.h"
#include "app/mssql_converter.h"
#include "tk/exception.h"
#include "tk/log.h"

#include "support/memory_database.h"

namespace qb::test {
namespace {

t_ftd id_column() { return memory_column(L"id", 3, 0, true); }
t_ftd name_column() { return memory_column(L"name", 8, 50); }

// What reading one row of a generated table does instead of giving it.
enum class row_fault { none, lost_connection, continuable, hangs, misuse, foreign };

// A table whose rows are made as they are read: (n, "row n"). Reading the
// row fault_at (1-based) fails as the fault says.
class generated_rows : public udb_recordset {
 public:
  generated_rows(udb_database* database, std::wstring name, std::uint64_t rows, row_fault fault = row_fault::none,
                 std::uint64_t fault_at = 0)
      : udb_recordset(database, std::move(name), false), fault_(fault), fault_at_(fault_at) {
    schema_.push_back(id_column());
    schema_.push_back(name_column());
    indexes_.push_back_direct(udb_index(L"PK", true, true, {L"id"}));
    rec_count_ = rows;
  }
  void append_record(udb_record& /*record*/) override { throw tk_mail_assertion("memory_cli", __LINE__); }
  udb_record* get_item() override {
    if (is_eof()) return nullptr;
    const std::uint64_t n = position_ + 1;
    if (n == fault_at_) fail(n);
    row_.reset();
    row_.emplace_back(L"id", 0, ole_variant(static_cast<long long>(n)), false, true);
    row_.emplace_back(L"name", 50, ole_variant(L"row " + std::to_wstring(n)));
    return &row_;
  }
  bool is_eof() override { return position_ >= rec_count_; }
  void next() override { ++position_; }
  void reset() override { position_ = 0; }

 private:
  void fail(std::uint64_t n) const {
    switch (fault_) {
      case row_fault::none:
        return;
      case row_fault::lost_connection:
        throw tk_exception("Communication link failure", 1);
      case row_fault::continuable:
        throw tk_exception("Conversion failed when converting the value of row " + std::to_string(n), 0);
      case row_fault::hangs:
        for (;;) std::this_thread::sleep_for(std::chrono::seconds(1));
      case row_fault::misuse:
        throw tk_mail_assertion("memory_cli", __LINE__);
      case row_fault::foreign:
        throw std::runtime_error("The source returned a row it cannot describe");
    }
  }

  std::uint64_t position_ = 0;
  row_fault fault_;
  std::uint64_t fault_at_;
  udb_record row_;
};

class sample_database : public memory_database {
 public:
  using memory_database::memory_database;
  std::unique_ptr<udb_recordset> get_table(const std::wstring& name, std::uint32_t flags) override {
    if (name == L"[dbo].[flaky]") return make(name, 100, row_fault::lost_connection, 51);
    if (name == L"[dbo].[shaky]") return make(name, 10, row_fault::continuable, 4);
    if (name == L"[dbo].[stuck]") return make(name, 10, row_fault::hangs, 2);
    if (name == L"[dbo].[misuse]") return make(name, 10, row_fault::misuse, 1);
    if (name == L"[dbo].[foreign]") return make(name, 10, row_fault::foreign, 2);
    return memory_database::get_table(name, flags);
  }

 private:
  std::unique_ptr<udb_recordset> make(const std::wstring& name, std::uint64_t rows, row_fault fault = row_fault::none,
                                      std::uint64_t fault_at = 0) {
    return std::make_unique<generated_rows>(this, name, rows, fault, fault_at);
  }
};

void add_rows(memory_store& store, const std::wstring& table, int rows) {
  udb_schema schema;
  schema.push_back(id_column());
  schema.push_back(name_column());
  udb_indexes indexes;
  indexes.push_back_direct(udb_index(L"PK", true, true, {L"id"}));
  store.add_table(table, std::move(schema), std::move(indexes));
  for (int i = 1; i <= rows; ++i) {
    store.add_row(table, {ole_variant(i), ole_variant(L"row " + std::to_wstring(i))});
  }
}

class sample_source : public mss_source_engine {
 public:
  sample_source() {
    add_rows(sales_, L"[dbo].[people]", 3);
    add_rows(sales_, L"[dbo].[orders]", 250);
  }
  std::unique_ptr<udb_database> open_db(const std::wstring& name, std::uint32_t mode,
                                        const std::wstring& /*schema*/) override {
    if (name != L"sales") throw tk_exception("Cannot open database \"" + cli_narrow(name) + "\".", 1);
    return std::make_unique<sample_database>(sales_, name, mode);
  }
  bool is_db_exist(const std::wstring& name) override { return name == L"sales"; }
  std::vector<std::wstring> get_contents() override { return {L"master", L"sales"}; }

 private:
  memory_store sales_;
};

class memory_front_end : public cli_front_end {
 public:
  using cli_front_end::cli_front_end;
  void converter_created(quillbridge_convertor& converter) override { converter.set_source_engine(source_); }
  bool connect_source(quillbridge_convertor& /*converter*/) override {
    LOG(2, "mssql_settings_page::animation::operator()");
    LOG(2, "The in-memory source needs no connection");
    return true;
  }

 private:
  sample_source source_;
};

}  // namespace
}  // namespace qb::test

int main(int argc, char** argv) {
  return qb::cli_main(argc, argv,
                      [](const qb::cli_options& options, qb::cli_console& console,
                         qb::cli_interrupts& interrupts) -> std::unique_ptr<qb::cli_front_end> {
                        return std::make_unique<qb::test::memory_front_end>(options, console, interrupts);
                      });
}
