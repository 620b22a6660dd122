// The conversion driver: one run, from opening the source to the last view.
//
// run_conversion is the body of quillbridge_convertor::operator(), on the
// worker thread. It opens the source and the destination, makes the
// table-name validator, and walks one work list (custom queries, then the
// selected tables): for each entry it applies the user's changes, settles
// the target name, decides by the scenario what to do with a table that
// exists, creates the table and streams the rows. Then the relationships and
// the views. It reads and writes the fields of the converter, and asks
// everything else of conversion_services, which the converter implements
// with the real engines and a test with the in-memory ones.
//
// Failures are bounded by three guards: a row that the destination refuses
// (sql_exception) is reported and the next row follows; a failure of an
// entry (tk_exception) is reported and the next entry follows; anything else
// ends the run, reported. The user's Abort in a dialog (tk_final_exception)
// ends the run silently. Whatever happens, every object of the run is
// released and then, last of all, `finished` is set.
//
// Cancelling: b_cancel of the converter is tested between entries and
// between rows; a cancelled run stops there, releases the recordsets (their
// pending rows are written), skips relationships and views, logs where it
// stopped, and ends as any run does.
//
// Counting: per entry the rows read from the source, the rows the
// destination reports as written, and its warnings go to the converter's
// table_reports, and a line "Table '%s': %I64u read, %I64u written, %I64u
// not written (duplicate keys or errors), %I64u warnings" at level 3; the
// views end with "Views: %d converted, %d failed".
//
// Ownership: the driver owns the source, the destination, the validator
// and each entry's recordsets for as long as it needs them; the services
// and the converter belong to the caller.
// Thread-safety: runs on the worker; it is the only writer of the
// converter's progress fields and reports while it runs.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "sql/mutator.h"
#include "udb/converter.h"
#include "udb/database.h"
#include "udb/validator.h"

namespace qb {

// The packet limit a run asks of a MySQL server: 200 MiB.
inline constexpr std::uint32_t app_run_max_allowed_packet = 0xC800000;
// The friendly-message code of a duplicate key at a MySQL server (error 1062).
inline constexpr std::uint32_t app_duplicate_key_code = 0x400426;

// What the driver asks of the engines and of the rest of the converter.
class conversion_services {
 public:
  conversion_services() = default;
  virtual ~conversion_services();
  conversion_services(const conversion_services&) = delete;
  conversion_services& operator=(const conversion_services&) = delete;

  // The source database, opened with the mode bits and the schema filter.
  virtual std::unique_ptr<udb_database> open_source(const std::wstring& name, std::uint32_t mode,
                                                    const std::wstring& schema) = 0;
  // The destination: the server database (opened or created by the
  // scenario) or the dump file.
  virtual std::unique_ptr<udb_database> get_dest_base() = 0;
  // The version code of the destination's rules: the server's version, or
  // the dialect the dump page chose (0x40100 new, 0x31401 old).
  virtual std::uint32_t dest_version() = 0;
  // A table-name validator for that version: the old rule set below 4.1.0,
  // the new one from it.
  virtual std::unique_ptr<udb_validator> create_tn_validator(std::uint32_t version) = 0;
  // True when the destination is a MySQL server, false for a dump file.
  [[nodiscard]] virtual bool is_direct() const = 0;
  virtual void set_max_allowed_packet(std::uint32_t bytes) = 0;
  // The row loader's switch: 1 multi-row statements, 0 row by row.
  [[nodiscard]] virtual std::uint8_t fast_mode() const = 0;
  virtual void set_fast_mode(std::uint8_t value) = 0;
  // The user's changes to the source table of exactly that name, or null.
  virtual sql_table_mutator* find_table_mutator(const std::wstring& source_name) = 0;
  // The source schema filter; empty: all schemas, names keep their owner.
  [[nodiscard]] virtual std::wstring source_schema() const = 0;
  // Whether the destination takes views.
  virtual bool can_create_views() = 0;
};

// The frame of a run on the worker: logs "init_conversion::ctor" and at level
// 3 "Conversion started on %02d/%02d/%04d at %02d:%02d:%02d" (local day,
// month, year, hour, minute, second); at its end "init_conversion::dtor",
// "Conversion ended on ..." and then stores 1 into the finished flag, the
// last thing the worker does. b_no_com is kept for the layout: there is no
// COM to initialise here. The progress page's timer is the user
// interface's own business.
class init_conversion {
 public:
  init_conversion(std::atomic<std::uint8_t>* finished, bool b_no_com);
  ~init_conversion();
  init_conversion(const init_conversion&) = delete;
  init_conversion& operator=(const init_conversion&) = delete;

 private:
  std::atomic<std::uint8_t>* finished_;
  bool b_no_com_;
};

// Runs one conversion as described above. Throws nothing.
void run_conversion(udb_converter& converter, conversion_services& services);

}  // namespace qb
