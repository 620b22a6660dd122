// udb_converter: what a database converter holds, between the toolkit's
// tk_converter and the product's quillbridge_convertor.
//
// It carries the scenario (mode), the selection lists of the wizard, the
// flags for definitions, indexes and views, the progress of a run, and the
// figures that the run leaves for the finish page: one udb_table_report per
// work-list entry and one udb_view_report.
//
// The selection lists keep the wizard's order and are never sorted here. The
// work of a run is `queries` in their order, then `selected_tables` in
// theirs; an entry of `queries` with an empty text is a plain table.
//
// Progress: the worker writes n_tables, n_done_tables, n_records,
// n_done_records and the current table; the wizard thread reads them on its
// timer while the run goes on. The counters are atomic, the table name has a
// small lock of its own. The reports are written by the worker and may be
// read once `finished` is 1 (the worker stores it last).
//
// Ownership: the converter owns its lists and reports.
// Thread-safety: the wizard thread owns the object until a run starts; during
// the run only the worker writes (the wizard may set b_cancel).
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tk/converter.h"

namespace qb {

class udb_profile;

// Open-mode bits: the mode given to open_db and kept by udb_database.
inline constexpr std::uint32_t udb_open_read_only = 0x01;  // create_table is a misuse
inline constexpr std::uint32_t udb_open_overwrite = 0x04;  // stored with the mode; no code tests it
inline constexpr std::uint32_t udb_open_append = 0x08;     // stored; a bare 8 keeps foreign keys out
inline constexpr std::uint32_t udb_open_bit_20 = 0x20;     // stored with the mode; no code tests it
inline constexpr std::uint32_t udb_open_no_views = 0x80;   // view definitions are not read
inline constexpr std::uint32_t udb_open_replace = 0x100;   // rows go as REPLACE instead of INSERT
// The modes in use.
inline constexpr std::uint32_t udb_open_source = 0x01;             // data, and a table's schema
inline constexpr std::uint32_t udb_open_source_views = 0x21;       // the list of views
inline constexpr std::uint32_t udb_open_source_tables = 0xA1;      // the list of tables, the schemas
inline constexpr std::uint32_t udb_open_dest_overwrite = 0xA4;     // destination, scenario 0
inline constexpr std::uint32_t udb_open_dest_update = 0xA8;        // destination, scenarios 1 to 3
inline constexpr std::uint32_t udb_open_dest_synchronize = 0x1A0;  // destination, scenario 4
// Table-open flags, the last argument of get_table and get_query.
inline constexpr std::uint32_t udb_table_read = 1;    // the driver reads a source
inline constexpr std::uint32_t udb_table_reopen = 8;  // create_table reopens an existing table

// The scenarios: what the driver does with a table that exists at the
// destination.
inline constexpr std::uint32_t udb_mode_overwrite_database = 0;
inline constexpr std::uint32_t udb_mode_overwrite_tables = 1;
inline constexpr std::uint32_t udb_mode_skip_existing = 2;
inline constexpr std::uint32_t udb_mode_merge = 3;
inline constexpr std::uint32_t udb_mode_synchronize = 4;

// (name, text): a custom query with its SELECT text, a table with an empty
// text, a view with its definition.
using udb_named_text = std::pair<std::wstring, std::wstring>;
using udb_named_texts = std::vector<udb_named_text>;

// What became of one work-list entry. The rows are counted on both sides:
// read from the source, and written as the destination reports it (or, for a
// destination that cannot tell, as the rows it accepted without an error).
struct udb_table_report {
  std::wstring name;                    // the entry's name in the work list
  std::wstring target;                  // the destination table; empty when never settled
  std::uint64_t read = 0;               // rows read from the source
  std::uint64_t written = 0;            // rows the destination stored
  std::uint64_t not_written = 0;        // read - written: duplicate keys dropped, refused rows
  std::uint64_t warnings = 0;           // warnings the destination reported
  bool counted_by_destination = false;  // written and warnings come from the destination
  bool skipped = false;                 // scenario 2: the table existed and was left alone
  bool failed = false;                  // the entry ended with a failure (error holds it)
  bool cancelled = false;               // the run was cancelled while this entry ran
  std::string error;                    // the failure's text
};

// What became of the views of a run. attempted is false when the views were
// not converted at all (switched off, the server too old, the run ended
// before). counted says whether created, failed and skipped come from the
// destination; without it only handed is known.
struct udb_view_report {
  bool attempted = false;
  bool counted = false;
  std::uint32_t handed = 0;  // views given to the destination
  std::uint32_t created = 0;
  std::uint32_t failed = 0;
  std::uint32_t skipped = 0;
};

class udb_converter : public tk_converter {
 public:
  // Logs "udb_converter::ctor".
  udb_converter();
  ~udb_converter() override;

  // Whether the source accepts the SELECT text: non-zero when it does.
  virtual int test_query(const std::wstring& text) = 0;

  // Reads the section "Generic settings" ("src", "dest", "logfile", "skip
  // indexes", "only definitions", "mode") and the lists "Available Queries",
  // "Selected Tables" (into queries: a table comes with an empty text) and
  // "Selected Views". A missing section or an empty value leaves the field
  // as it stands. A log file name is handed to set_logfile, which throws
  // when the file cannot be used. Returns true.
  bool load_profile(const udb_profile& profile);
  // Writes "Generic settings" without the keys that the product's converter
  // adds, and the lists "Available Queries" and "Selected Views"; query texts
  // and definitions as one line each (line breaks become blanks).
  bool store_profile(udb_profile& profile) const;

  // The entry being converted.
  void set_current_table(std::wstring name);
  [[nodiscard]] std::wstring current_table() const;

  std::uint32_t mode = 0;  // scenario, 0 to 4; a profile may give another digit
  std::atomic<std::uint32_t> n_tables{0};
  std::atomic<std::uint32_t> n_done_tables{0};
  std::wstring reserved_text1;  // kept for the layout; no role in this product
  std::wstring reserved_text2;
  std::atomic<std::uint64_t> n_records{0};
  std::atomic<std::uint64_t> n_done_records{0};
  std::vector<std::wstring> selected_tables;
  udb_named_texts queries;
  udb_named_texts selected_views;
  udb_named_texts available_queries;
  std::uint8_t only_definitions = 0;
  std::uint8_t skip_indexes = 0;
  std::uint8_t convert_views = 1;

  std::vector<udb_table_report> table_reports;
  udb_view_report view_report;

 private:
  mutable std::mutex current_table_mutex_;
  std::wstring current_table_;
};

// The progress bar's value, in integer arithmetic: 0 without tables;
// otherwise the table share n_done_tables * 100 / n_tables, plus, when the
// current table has rows, its own share n_done_records * 100 / n_records /
// n_tables.
int udb_progress_percent(std::uint32_t n_tables, std::uint32_t n_done_tables, std::uint64_t n_records,
                         std::uint64_t n_done_records);
// The same from the converter's counters.
int udb_progress_percent(const udb_converter& converter);

}  // namespace qb
