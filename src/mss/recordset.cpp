#include "mss/recordset.h"

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>

#include "mss/engine.h"
#include "tk/exception.h"
#include "tk/log.h"

namespace qb {

// --- odb_record ------------------------------------------------------------------

std::uint16_t odb_record::get_vartype(std::uint16_t oledb_type, std::uint32_t size, std::uint32_t flags,
                                      std::uint32_t& reserved) {
  const mss_engine* engine = mss_engine::try_instance();
  const bool dates_native = engine != nullptr && engine->dates_native();
  return odb_get_vartype(oledb_type, size, flags, reserved, dates_native);
}

// --- The cache as the fetcher's sink ---------------------------------------------

class odb_recordset::cache_sink final : public odb_cell_sink {
 public:
  explicit cache_sink(std::vector<odb_record>& cache) : cache_(cache) {}
  ole_variant& cell(std::size_t row, std::size_t column) override { return cache_[row][column]; }
  void set_cell_size(std::size_t row, std::size_t column, std::uint32_t size) override {
    cache_[row][column].size = size;
  }

 private:
  std::vector<odb_record>& cache_;
};

// --- The reader thread ------------------------------------------------------------

// Fetches batches into free blocks and queues them, until the rows end, a
// fetch fails, or it is stopped. The caller takes the batches in order and
// gives the blocks it is done with back.
class odb_recordset::reader {
 public:
  struct batch {
    std::vector<odb_record> records;
    std::size_t rows = 0;
    std::exception_ptr error;
  };

  reader(odb_fetcher& fetcher, std::vector<std::vector<odb_record>> blocks)
      : fetcher_(fetcher), free_(std::move(blocks)), thread_([this] { run(); }) {}

  ~reader() {
    {
      const std::lock_guard lock(mutex_);
      stop_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }
  reader(const reader&) = delete;
  reader& operator=(const reader&) = delete;

  // The next batch, once the reader has it. After the last one (no rows, or
  // a failure) an empty batch.
  batch take() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !filled_.empty() || done_; });
    if (filled_.empty()) return {};
    batch b = std::move(filled_.front());
    filled_.pop_front();
    lock.unlock();
    changed_.notify_all();
    return b;
  }

  void give_back(std::vector<odb_record> block) {
    if (block.empty()) return;
    {
      const std::lock_guard lock(mutex_);
      free_.push_back(std::move(block));
    }
    changed_.notify_all();
  }

 private:
  void run() {
    for (;;) {
      batch b;
      {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return !free_.empty() || stop_; });
        if (stop_) break;
        b.records = std::move(free_.back());
        free_.pop_back();
      }
      try {
        cache_sink sink(b.records);
        b.rows = fetcher_.fetch(sink);
      } catch (...) {
        b.rows = 0;
        b.error = std::current_exception();
      }
      const bool last = b.rows == 0;
      {
        const std::lock_guard lock(mutex_);
        filled_.push_back(std::move(b));
        if (last) done_ = true;
      }
      changed_.notify_all();
      if (last) return;
    }
    const std::lock_guard lock(mutex_);
    done_ = true;
  }

  odb_fetcher& fetcher_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::vector<odb_record>> free_;
  std::deque<batch> filled_;
  bool stop_ = false;
  bool done_ = false;
  std::thread thread_;  // last: starts once the members above exist
};

// --- odb_recordset -----------------------------------------------------------------

odb_recordset::odb_recordset(std::unique_ptr<odb_statement> rowset, std::wstring name, udb_database* database)
    : udb_recordset(database, std::move(name), true), rowset_(std::move(rowset)), fresh_(rowset_ != nullptr) {
  LOG(2, "odb_recordset::ctor");
  initialize(true);
}

odb_recordset::~odb_recordset() {
  stop_reader();
  clean_cache();
  fetcher_.reset();  // unbinds before the statement goes
  rowset_.reset();
}

void odb_recordset::append_record(udb_record& /*record*/) { throw tk_mail_assertion("odb_recs", __LINE__); }

void odb_recordset::set_rowset(std::unique_ptr<odb_statement> rowset) {
  stop_reader();
  clean_cache();
  fetcher_.reset();
  rowset_ = std::move(rowset);
  fresh_ = rowset_ != nullptr;
}

void odb_recordset::initialize(bool reset_schema) {
  LOG(2, "odb_recordset::initialize");
  if (rowset_ == nullptr) {
    LOG(2, "Rowset isn't defined");
    return;
  }
  stop_reader();
  fetcher_.reset();
  columns_ = odb_describe_columns(*rowset_);
  LOG(2, "*** Got %d columns ***", static_cast<int>(columns_.size()));
  tags_.assign(columns_.size(), 0);
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    std::uint32_t reserved = 0;
    tags_[i] = odb_record::get_vartype(columns_[i].dbtype, columns_[i].size, columns_[i].flags, reserved);
  }
  if (reset_schema) build_schema();
  clean_cache();
  prepare_cache();
  LOG(2, "odb_accessor::bind(n_cols=%d)", static_cast<int>(columns_.size()));
  fetcher_ = std::make_unique<odb_fetcher>(*rowset_, columns_, tags_, name_);
}

void odb_recordset::build_schema() {
  schema_.reset();
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    const odb_column& c = columns_[i];
    LOGW(2, L"Column '%s' (#%d) has type=%d, size=%d", c.name, static_cast<int>(i), c.dbtype, c.size);
    std::uint32_t reserved = 0;
    const std::uint16_t tag = odb_record::get_vartype(c.dbtype, c.size, c.flags, reserved);
    std::uint32_t size = c.size;
    if (c.dbtype == odb_dbtype::bytes) size = 2 * c.size;
    if (c.dbtype == odb_dbtype::guid) {
      LOG(2, "Update column size for DBTYPE_GUID");
      size = 36;
    }
    LOG(2, "f_size=%d", size);
    if (tag == ole_variant::vt_date) reserved = 1;  // date against time is settled by the table's catalog
    if (tag == ole_variant::vt_bstr && c.dbtype == odb_dbtype::guid) {
      LOG(2, "Set dw_reserved = 1 for DBTYPE_GUID");
      reserved = 1;
    }
    LOG(2, ">>> reserved=%d", reserved);
    if (tag == ole_variant::vt_blob || tag == ole_variant::vt_bytes) size = 0;
    t_ftd field(size, c.name, tag, !c.nullable, false, ole_variant(), reserved, std::wstring());
    if (tag == ole_variant::vt_decimal) {
      field.prec = static_cast<std::uint32_t>(c.column_size);
      field.scale = static_cast<std::uint32_t>(std::max<SQLSMALLINT>(c.decimal_digits, 0));
      LOGW(2, L"Scale/precision for decimal column '%s': (%d, %d)", c.name, field.scale, field.prec);
    } else if (tag == ole_variant::vt_date) {
      field.prec = 0;
      field.scale = static_cast<std::uint32_t>(std::max<SQLSMALLINT>(c.decimal_digits, 0));
      LOGW(2, L"Scale for date column '%s': %d", c.name, field.scale);
    }
    schema_.push_back(std::move(field));
  }
}

void odb_recordset::prepare_cache() {
  // One record a cached row, with a field a column; the values are refilled
  // in place for every batch.
  cache_.assign(cache_size, odb_record());
  for (odb_record& record : cache_) {
    record.resize(columns_.size());
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      odb_field& field = record[i];
      field.name = columns_[i].name;
      field.b_not_null = !columns_[i].nullable;
      if (i < schema_.size()) field.b_auto_num = schema_[i].b_auto_num;
    }
  }
}

std::vector<odb_record> odb_recordset::make_block() const {
  // The fields as the handed-out block has them (flags synchronised with
  // the schema included), with no values.
  odb_record blank;
  blank.resize(columns_.size());
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    odb_field& field = blank[i];
    field.name = columns_[i].name;
    if (!cache_.empty() && i < cache_.front().size()) {
      field.b_not_null = cache_.front()[i].b_not_null;
      field.b_auto_num = cache_.front()[i].b_auto_num;
    } else {
      field.b_not_null = !columns_[i].nullable;
      if (i < schema_.size()) field.b_auto_num = schema_[i].b_auto_num;
    }
  }
  return std::vector<odb_record>(cache_size, blank);
}

void odb_recordset::start_reader() {
  stop_reader();
  std::vector<std::vector<odb_record>> blocks;
  for (std::size_t i = 0; i < read_ahead_batches; ++i) blocks.push_back(make_block());
  reader_ = std::make_unique<reader>(*fetcher_, std::move(blocks));
}

void odb_recordset::stop_reader() { reader_.reset(); }

void odb_recordset::sync_field_flags() {
  for (odb_record& record : cache_) {
    for (std::size_t i = 0; i < record.size() && i < schema_.size(); ++i) {
      record[i].b_auto_num = schema_[i].b_auto_num;
      record[i].b_not_null = schema_[i].b_not_null;
    }
  }
}

void odb_recordset::reset() {
  LOG(2, "odb_recordset::reset");
  if (rowset_ == nullptr) return;
  stop_reader();
  if (!fresh_) {
    // A forward-only result restarts by running its statement again.
    const std::wstring text = rowset_->text();
    rowset_->close_cursor();
    rowset_->execute(text);
    fetcher_->rebind();
  }
  fresh_ = false;
  fetcher_->restart();
  position_ = 0;
  local_pos_ = 0;
  clean_cache();
  fill_cache();  // the first batch on the caller's thread; the reader starts with the second
}

bool odb_recordset::is_eof() { return rowset_ == nullptr || rows_obtaind_ == 0; }

udb_record* odb_recordset::get_item() {
  if (local_pos_ >= rows_obtaind_) throw tk_mail_assertion("odb_recs", __LINE__);
  return &cache_[local_pos_];
}

void odb_recordset::next() {
  LOG(1, "odb_recordset::next(%d)", position_);
  LOG(1, "local_pos=%d, rows_obtaind=%d", static_cast<int>(local_pos_), static_cast<int>(rows_obtaind_));
  if (rows_obtaind_ == 0) throw tk_mail_assertion("odb_recs", __LINE__);  // next on an empty result
  if (local_pos_ + 1 >= rows_obtaind_) {
    clean_cache();
    if (reader_ == nullptr && fetcher_ != nullptr) start_reader();
    fill_cache();
    local_pos_ = 0;
  } else {
    ++local_pos_;
  }
  ++position_;
}

void odb_recordset::fill_cache() {
  LOG(1, "odb_recordset::fill_cache");
  if (rowset_ == nullptr || fetcher_ == nullptr) throw tk_mail_assertion("odb_recs", __LINE__);
  fresh_ = false;
  if (reader_ != nullptr) {
    reader::batch b = reader_->take();
    if (b.records.empty()) {
      rows_obtaind_ = 0;  // the rows had ended
    } else {
      reader_->give_back(std::move(cache_));
      cache_ = std::move(b.records);
      rows_obtaind_ = b.rows;
    }
    if (b.error) std::rethrow_exception(b.error);
  } else {
    cache_sink sink(cache_);
    rows_obtaind_ = fetcher_->fetch(sink);
  }
  LOG(1, "GetNextRows extracts %d records", static_cast<int>(rows_obtaind_));
}

void odb_recordset::clean_cache() {
  LOG(1, "odb_recordset::clean_cache(rows_obtaind=%d)", static_cast<int>(rows_obtaind_));
  rows_obtaind_ = 0;
}

}  // namespace qb
