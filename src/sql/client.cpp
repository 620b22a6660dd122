#include "sql/client.h"

#include <mutex>

#include "sql/exception.h"

namespace qb {

namespace {

// mysql_library_init is not thread-safe and mysql_init calls it on first use;
// doing it once up front lets connections be made on any thread. The matching
// mysql_library_end runs when the program ends.
struct client_library {
  client_library() { mysql_library_init(0, nullptr, nullptr); }
  ~client_library() { mysql_library_end(); }
  client_library(const client_library&) = delete;
  client_library& operator=(const client_library&) = delete;
};

}  // namespace

void sql_client_library_init() {
  static client_library library;
}

void sql_run(MYSQL* connection, std::string_view statement) {
  if (mysql_real_query(connection, statement.data(), static_cast<unsigned long>(statement.size())) != 0) {
    throw sql_exception(connection, statement);
  }
}

sql_stream::sql_stream(MYSQL* connection, std::string_view statement) : connection_(connection) {
  sql_run(connection, statement);
  result_.reset(mysql_use_result(connection));
  if (result_ == nullptr && mysql_errno(connection) != 0) throw sql_exception(connection, statement);
  fields_ = result_ != nullptr ? mysql_num_fields(result_.get()) : 0;
  at_end_ = result_ == nullptr;
}

sql_stream::sql_stream(MYSQL* connection, sql_result_ptr result)
    : connection_(connection), result_(std::move(result)) {
  fields_ = result_ != nullptr ? mysql_num_fields(result_.get()) : 0;
  at_end_ = result_ == nullptr;
}

sql_stream::~sql_stream() { abandon(); }

unsigned sql_stream::field_count() const { return fields_; }

bool sql_stream::next() {
  if (at_end_) return false;
  row_ = mysql_fetch_row(result_.get());
  if (row_ == nullptr) {
    at_end_ = true;
    lengths_ = nullptr;
    if (mysql_errno(connection_) != 0) throw sql_exception(connection_);
    return false;
  }
  lengths_ = mysql_fetch_lengths(result_.get());
  return true;
}

std::string_view sql_stream::field(unsigned i) const {
  if (row_ == nullptr || i >= fields_ || row_[i] == nullptr) return {};
  return {row_[i], lengths_ != nullptr ? lengths_[i] : 0};
}

bool sql_stream::is_null(unsigned i) const { return row_ == nullptr || i >= fields_ || row_[i] == nullptr; }

std::uint64_t sql_stream::abandon() noexcept {
  std::uint64_t dropped = 0;
  if (result_ != nullptr && !at_end_) {
    // The rest of the stream must be read off the wire before the connection
    // can carry another statement.
    while (mysql_fetch_row(result_.get()) != nullptr) ++dropped;
  }
  row_ = nullptr;
  lengths_ = nullptr;
  at_end_ = true;
  result_.reset();
  return dropped;
}

}  // namespace qb
